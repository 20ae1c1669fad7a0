// The indexed matcher against the plain linear scan, on random libraries and key streams.
// Small alphabets make abbreviations collide, nest and overlap far more often than real ones.
#include "engine/Matcher.h"
#include "support/ReferenceMatcher.h"

#include <gtest/gtest.h>
#include <random>

namespace quillet {
namespace {

using testing::ReferenceMatcher;
using Mode = Matcher::Mode;

const std::vector<std::string> alphabet = {
    "a", "b",      "e",      ";",          ":",          ".",          ",",      " ",  "+", "1",
    "2", "\u00E9", "\u0301", "\U0001F44D", "\U0001F1EB", "\U0001F1F7", "\u200D", "\n", "A", "B"};

const std::vector<std::string> patternShapes = {
    "a(b+)",  "[ab]+;",   ";\\d+",    "(e|a)b", "x*",       "\\w+\\.", "\u00E9(.)",
    "(?i)ab", "a.{2}b",   "\\Qa.\\E", "b{2}",   ";(\\w)1",  "^a",      "\\d\\d",
    "1?2",    "(a)(b)?e", "e\\b",     "[^ ]+,", "(?:ab)+:", "a\u0301", "(",
};

class Randomiser {
public:
    explicit Randomiser(unsigned seed) : rng_(seed) {}

    int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }
    bool chance(int percent) { return below(100) < percent; }
    const std::string& pick(const std::vector<std::string>& from) {
        return from[static_cast<std::size_t>(below(static_cast<int>(from.size())))];
    }
    std::string word(int maxLength) {
        std::string s;
        int length = 1 + below(maxLength);
        for (int i = 0; i < length; ++i) {
            s += pick(alphabet);
        }
        return s;
    }
    Mode mode() { return static_cast<Mode>(below(3)); }

private:
    std::mt19937 rng_;
};

struct Library {
    Matcher::Table snippets;
    Matcher::Modes modes;
    std::map<std::string, std::string> patterns;
    Matcher::Table corrections;
    Matcher::Extras extras;
};

Library randomLibrary(Randomiser& r) {
    Library lib;
    int count = 1 + r.below(30);
    for (int i = 0; i < count; ++i) {
        std::string key = r.word(4);
        lib.snippets[key] = "S" + std::to_string(i);
        if (r.chance(40)) {
            lib.modes[key] = r.mode();
        }
    }
    int patterns = r.below(5);
    for (int i = 0; i < patterns; ++i) {
        const std::string& shape = r.pick(patternShapes);
        bool hasGroup =
            shape.find('(') != std::string::npos && shape.find("(?") == std::string::npos;
        lib.patterns[shape] = hasGroup ? "<$1|$0>" : "<$0>";
    }
    int extras = r.below(8);
    for (int i = 0; i < extras; ++i) {
        // Sometimes reuse a user abbreviation so that shadowing is exercised.
        std::string key =
            r.chance(20) && !lib.snippets.empty() ? lib.snippets.begin()->first : r.word(3);
        lib.extras[key] = {"X" + std::to_string(i), r.mode()};
    }
    for (const char* word : {"ab", "abe", "bae", "\u00E9a", "aa"}) {
        if (r.chance(50)) {
            lib.corrections[word] = std::string("fixed-") + word;
        }
    }
    return lib;
}

void load(const Library& lib, Matcher& fast, ReferenceMatcher& slow) {
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

// Shows control characters so that a failure report stays on one line.
std::string visible(std::string_view s) {
    std::string out;
    for (char c : s) {
        if (c == '\n') {
            out += "\\n";
        } else {
            out += c;
        }
    }
    return out;
}

std::string describe(const std::optional<Matcher::Match>& m) {
    if (!m) {
        return "none";
    }
    return "{" + m->abbreviation + " -> " + m->expansion + ", trailer '" + m->trailer +
           "', onScreen " + std::to_string(m->onScreen) + ", key " + m->key.value_or("-") + "}";
}

TEST(MatcherEquivalence, AgreesWithLinearScanOnRandomInput) {
    int matches = 0;
    int patternMatches = 0;
    for (unsigned seed = 1; seed <= 1500; ++seed) {
        Randomiser r(seed);
        Matcher fast;
        ReferenceMatcher slow;
        load(randomLibrary(r), fast, slow);
        std::string history;
        for (int step = 0; step < 300; ++step) {
            int action = r.below(100);
            std::optional<Matcher::Match> a;
            std::optional<Matcher::Match> b;
            if (action < 3) {
                fast.clear();
                slow.clear();
                history += "<clear>";
                continue;
            }
            if (action < 6) {
                Mode m = r.mode();
                fast.setMode(m);
                slow.mode = m;
                history += "<mode>";
                continue;
            }
            if (action < 7) {
                // The library changes while the user types: the buffer stays.
                Library next = randomLibrary(r);
                load(next, fast, slow);
                history += "<library>";
                continue;
            }
            const std::string before = slow.buffer();
            if (action < 12) {
                a = fast.fire(Mode::tab, "");
                b = slow.fire(Mode::tab, "");
                history += "<tab>";
            } else {
                const std::string& key = r.pick(alphabet);
                a = fast.feed(key);
                b = slow.feed(key);
                history += key;
            }
            // The seed reproduces the library; the history, the keys that led here.
            ASSERT_EQ(describe(a), describe(b)) << "seed " << seed << " after: " << visible(history)
                                                << " buffer before: [" << visible(before) << "]";
            ASSERT_EQ(fast.buffer(), slow.buffer())
                << "seed " << seed << " after: " << visible(history);
            if (a) {
                ++matches;
                patternMatches += a->key.has_value();
            }
        }
    }
    // The comparison is only worth something if every stage actually fired.
    EXPECT_GT(matches, 2000);
    EXPECT_GT(patternMatches, 200);
}

} // namespace
} // namespace quillet
