// The indexed matcher against the plain linear scan, on random libraries and key streams.
// Small alphabets make abbreviations collide, nest and overlap far more often than real ones;
// this one also joins and composes characters, and long streams overflow the buffer.
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

struct Random : std::mt19937 {
    using std::mt19937::mt19937;
    int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(*this); }
    bool chance(int percent) { return below(100) < percent; }
    const std::string& pick(const std::vector<std::string>& from) {
        return from[static_cast<std::size_t>(below(static_cast<int>(from.size())))];
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

// A random library, loaded into both matchers.
void load(Random& r, Matcher& fast, ReferenceMatcher& slow) {
    ReferenceMatcher lib;
    for (int i = 0, count = 1 + r.below(30); i < count; ++i) {
        const std::string key = r.word(4);
        lib.snippets[key] = "S" + std::to_string(i);
        if (r.chance(40)) {
            lib.modes[key] = r.mode();
        }
    }
    for (int i = r.below(5); i > 0; --i) {
        const std::string& shape = r.pick(patternShapes);
        const bool group = shape.find('(') != std::string::npos && shape.find("(?") == shape.npos;
        lib.patterns[shape] = group ? "<$1|$0>" : "<$0>";
    }
    for (int i = r.below(8); i > 0; --i) {
        // Sometimes a user abbreviation, so that shadowing is exercised.
        const std::string key =
            r.chance(20) && !lib.snippets.empty() ? lib.snippets.begin()->first : r.word(3);
        lib.extras[key] = {"X" + std::to_string(i), r.mode()};
    }
    for (const char* word : {"ab", "abe", "bae", "\u00E9a", "aa"}) {
        if (r.chance(50)) {
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

TEST(MatcherEquivalence, AgreesWithLinearScanOnRandomInput) {
    int matches = 0, patternMatches = 0;
    for (unsigned seed = 1; seed <= 1500; ++seed) {
        Random r(seed);
        Matcher fast;
        ReferenceMatcher slow;
        load(r, fast, slow);
        std::string history; // with the seed, what reproduces a failure
        for (int step = 0; step < 300; ++step) {
            const int action = r.below(100);
            if (action < 3) {
                fast.clear();
                slow.clear();
                history += "<clear>";
                continue;
            }
            if (action < 6) {
                fast.setMode(slow.mode = r.mode());
                history += "<mode>";
                continue;
            }
            if (action < 7) {
                load(r, fast, slow); // the library changes while the user types: the buffer stays
                history += "<library>";
                continue;
            }
            // Asking whether a trigger would fire answers as firing does, and changes nothing.
            for (Mode trigger : {Mode::instant, Mode::delimiter, Mode::tab}) {
                Matcher copy = fast;
                ASSERT_EQ(fast.wouldFire(trigger), copy.fire(trigger, "").has_value())
                    << "seed " << seed << " after: " << history;
            }
            std::optional<Matcher::Match> a, b;
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
            ASSERT_EQ(describe(a), describe(b)) << "seed " << seed << " after: " << history;
            ASSERT_EQ(fast.buffer(), slow.buffer()) << "seed " << seed << " after: " << history;
            matches += a.has_value();
            patternMatches += a && a->key;
        }
    }
    // The comparison is only worth something if every stage actually fired.
    EXPECT_GT(matches, 2000);
    EXPECT_GT(patternMatches, 200);
}

} // namespace
} // namespace quillet
