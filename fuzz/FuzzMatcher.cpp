// The indexed matcher against the plain linear scan, on libraries and key streams the fuzzer
// chooses. Keys and abbreviations come from a small alphabet, so that abbreviations collide, nest
// and overlap far more often than real ones; it also joins and composes characters, and long
// streams overflow the buffer. Any disagreement aborts.
#include "engine/Matcher.h"
#include "reference/ReferenceMatcher.h"

#include <cstdio>
#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <string>
#include <vector>

namespace {

using quillet::Matcher;
using quillet::ReferenceMatcher;
using Mode = Matcher::Mode;

const std::vector<std::string> alphabet = {
    "a", "b",      "e",      ";",          ":",          ".",          ",",      " ",  "+", "1",
    "2", "\u00E9", "\u0301", "\U0001F44D", "\U0001F1EB", "\U0001F1F7", "\u200D", "\n", "A", "B"};

const std::vector<std::string> patternShapes = {
    "a(b+)",  "[ab]+;",   ";\\d+",    "(e|a)b", "x*",       "\\w+\\.", "\u00E9(.)",
    "(?i)ab", "a.{2}b",   "\\Qa.\\E", "b{2}",   ";(\\w)1",  "^a",      "\\d\\d",
    "1?2",    "(a)(b)?e", "e\\b",     "[^ ]+,", "(?:ab)+:", "a\u0301", "(",
};

struct Input : FuzzedDataProvider {
    using FuzzedDataProvider::FuzzedDataProvider;
    int below(int n) { return ConsumeIntegralInRange(0, n - 1); }
    const std::string& pick(const std::vector<std::string>& from) {
        return from[ConsumeIntegralInRange<std::size_t>(0, from.size() - 1)];
    }
    std::string word(int maxLength) {
        std::string s;
        for (int length = 1 + below(maxLength); length > 0; --length) {
            s += pick(alphabet);
        }
        return s;
    }
    Mode mode() { return static_cast<Mode>(below(3)); }
};

// A library, loaded into both matchers.
void load(Input& in, Matcher& fast, ReferenceMatcher& slow) {
    ReferenceMatcher lib;
    for (int i = 0, count = 1 + in.below(30); i < count; ++i) {
        const std::string key = in.word(4);
        lib.snippets[key] = "S" + std::to_string(i);
        if (in.ConsumeBool()) {
            lib.modes[key] = in.mode();
        }
    }
    for (int i = in.below(5); i > 0; --i) {
        const std::string& shape = in.pick(patternShapes);
        const bool group = shape.find('(') != std::string::npos && shape.find("(?") == shape.npos;
        lib.patterns[shape] = group ? "<$1|$0>" : "<$0>";
    }
    for (int i = in.below(8); i > 0; --i) {
        // Sometimes a user abbreviation, so that shadowing is exercised.
        const std::string key = in.ConsumeBool() ? lib.snippets.begin()->first : in.word(3);
        lib.extras[key] = {"X" + std::to_string(i), in.mode()};
    }
    for (const char* word : {"ab", "abe", "bae", "\u00E9a", "aa"}) {
        if (in.ConsumeBool()) {
            lib.corrections[word] = std::string("fixed-") + word;
        }
    }
    fast.setSnippets(lib.snippets, lib.modes);
    fast.setPatterns(lib.patterns);
    fast.compile();
    fast.setCorrections(lib.corrections);
    fast.setExtras(lib.extras);
    slow.snippets = lib.snippets;
    slow.modes = lib.modes;
    slow.patterns = lib.patterns;
    slow.compile();
    slow.corrections = lib.corrections;
    slow.extras = lib.extras;
}

std::string describe(const std::optional<Matcher::Match>& m) {
    return !m ? "none"
              : "{" + m->abbreviation + " -> " + m->expansion + ", trailer '" + m->trailer +
                    "', onScreen " + std::to_string(m->onScreen) + ", key " + m->key.value_or("-") +
                    "}";
}

void check(bool agree, const std::string& what, const std::string& fast, const std::string& slow) {
    if (!agree) {
        std::fprintf(stderr, "%s: matcher %s, reference %s\n", what.c_str(), fast.c_str(),
                     slow.c_str());
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input in(data, size);
    Matcher fast;
    ReferenceMatcher slow;
    load(in, fast, slow);
    while (in.remaining_bytes() > 0) {
        const int action = in.below(100);
        if (action < 3) {
            fast.clear();
            slow.clear();
            continue;
        }
        if (action < 6) {
            fast.setMode(slow.mode = in.mode());
            continue;
        }
        if (action < 7) {
            load(in, fast, slow); // the library changes while the user types: the buffer stays
            continue;
        }
        // Asking whether a trigger would fire answers as firing does, and changes nothing.
        for (Mode trigger : {Mode::instant, Mode::delimiter, Mode::tab}) {
            Matcher copy = fast;
            const bool would = fast.wouldFire(trigger), fires = copy.fire(trigger, "").has_value();
            check(would == fires, "wouldFire", std::to_string(would), std::to_string(fires));
        }
        const bool tab = action < 12;
        const std::string key = tab ? std::string() : in.pick(alphabet);
        const auto a = tab ? fast.fire(Mode::tab, "") : fast.feed(key);
        const auto b = tab ? slow.fire(Mode::tab, "") : slow.feed(key);
        check(describe(a) == describe(b), tab ? "tab" : "key '" + key + "'", describe(a),
              describe(b));
        check(fast.buffer() == slow.buffer(), "buffer", fast.buffer(), slow.buffer());
    }
    return 0;
}
