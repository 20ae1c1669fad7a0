#include "engine/Matcher.h"

#include "engine/PatternFilter.h"
#include "library/Text.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using Mode = Matcher::Mode;
using Match = Matcher::Match;
constexpr auto none = std::nullopt;

// Types text one character (code point) at a time, then "\t" as the Tab key; returns the last
// answer.
std::optional<Match> type(Matcher& m, std::string_view text) {
    std::optional<Match> last;
    for (std::size_t i = 0; i < text.size();) {
        auto lead = static_cast<unsigned char>(text[i]);
        std::size_t size = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        std::string_view key = text.substr(i, size);
        last = key == "\t" ? m.fire(Mode::tab, "") : m.feed(key);
        i += size;
    }
    return last;
}

// A match as "abbreviation>expansion [trailer] erased", "-" for none: one table line per case.
std::string shown(const std::optional<Match>& m) {
    return !m ? "-"
              : m->abbreviation + ">" + m->expansion + " [" + m->trailer + "] " +
                    std::to_string(m->onScreen) + (m->key ? " " + *m->key : "");
}

TEST(MatcherSnippets, FiringRules) {
    const Matcher::Table ab = {{";a", "A"}, {";ab", "AB"}}, brb = {{"brb", "B"}},
                         df = {{"df", "D"}};
    const Matcher::Modes delimited = {{"brb", Mode::delimiter}}, tab = {{"df", Mode::tab}};
    constexpr Mode instant = Mode::instant, delimiter = Mode::delimiter;
    const std::map<std::string, std::string> issue = {{"#(\\d+)", "Issue $1"}};
    const Matcher::Table typos = {{"teh", "the"}, {"a", "an"}, {"cafe", "caf\u00E9"}, {"ok", "ok"}};
    const struct {
        Matcher::Table snippets;
        Matcher::Modes modes;
        Mode global;
        std::string typed, expected;
        std::map<std::string, std::string> patterns = {};
        Matcher::Table corrections = {};
    } cases[] = {
        {{{";sig", "S"}}, {}, instant, "abc;sig", ";sig>S [] 3"}, // erases all but the last
        {ab, {}, instant, ";ab", "-"},                            // the shorter fired first
        {ab, {}, delimiter, ";ab ", ";ab>AB [ ] 2"},              // the longest suffix wins
        {brb, delimited, instant, "brb,", "brb>B [,] 2"},
        {brb, delimited, instant, "brb\u00A0", "brb>B [\u00A0] 2"},
        {brb, delimited, instant, "brb\u2019", "brb>B [\u2019] 2"}, // a closing quote
        {brb, delimited, instant, "brb+", "-"},                     // symbols are no delimiters
        {{{"e.g", "E"}}, {{"e.g", delimiter}}, instant, "say e.g ", "e.g>E [ ] 2"},
        {{{"sig;", "S"}}, {}, instant, "sig;", "sig;>S [] 3"}, // on its own punctuation
        {df, tab, instant, "df ", "-"},
        {df, tab, instant, "df\t", "df>D [] 1"},
        {{{";thanks", "T"}}, {}, instant, ";Thanks", "-"},                // case-sensitive
        {{{"ty", "T"}}, {}, instant, "party", "ty>T [] 1"},               // no word boundary
        {{{";x", "X"}}, {{";x", instant}}, delimiter, ";x", ";x>X [] 1"}, // its own trigger wins
        // Patterns follow the global mode only.
        {{}, {}, delimiter, "#42", "-", issue},
        {{}, {}, delimiter, "#42.", "#42>Issue 42 [.] 2 #(\\d+)", issue},
        {{}, {}, delimiter, "#42\t", "-", issue},
        // Replacement templates: groups by number or name, escapes, unknowns kept.
        {{},
         {},
         instant,
         "ab=",
         "ab=>ab=|ba|$1|$9|${x}|$ [] 2 (\\w)(\\w)=",
         {{"(\\w)(\\w)=", "$0|$2$1|\\$1|$9|${x}|$"}}},
        {{}, {}, instant, "7+", "7+>77 [] 1 (?<n>\\d)\\+", {{"(?<n>\\d)\\+", "${n}${n}"}}},
        // The required literal counts from where it was typed until it scrolls out.
        {{}, {}, instant, "#xyyyz", "#xyyyz>found [] 5 #x.*z", {{"#x.*z", "found"}}},
        {{}, {}, instant, "#x" + std::string(70, 'y') + "z", "-", {{"#x.*z", "found"}}},
        // Corrections take whole words, in the typed case.
        {{}, {}, instant, "teh ", "teh>the [ ] 3", {}, typos},
        {{}, {}, instant, "Teh ", "Teh>The [ ] 3", {}, typos},
        {{}, {}, instant, "TEH ", "TEH>THE [ ] 3", {}, typos},
        {{}, {}, instant, "tEH ", "tEH>the [ ] 3", {}, typos},
        {{}, {}, instant, "so teh ", "teh>the [ ] 3", {}, typos},
        {{}, {}, instant, "CAFE ", "CAFE>CAF\u00C9 [ ] 4", {}, typos},
        {{}, {}, instant, "a ", "-", {}, typos},  // one letter is never corrected
        {{}, {}, instant, "ok ", "-", {}, typos}, // nothing would change
        {{}, {}, instant, "steh ", "-", {}, typos},
    };
    for (const auto& c : cases) {
        Matcher m;
        m.setSnippets(c.snippets, c.modes);
        m.setPatterns(c.patterns);
        m.setCorrections(c.corrections);
        m.compile();
        m.setMode(c.global);
        EXPECT_EQ(shown(type(m, c.typed)), c.expected) << c.typed;
        if (c.expected != "-") {
            EXPECT_EQ(m.buffer(), "") << c.typed;
        }
    }
}

TEST(MatcherPatterns, FirstSortedPatternWinsWithItsTemplate) {
    Matcher m;
    type(m, "see #42"); // typed before the pattern exists, so "#4" has not fired on its own
    m.setPatterns(
        {{"#(\\d+)", "Issue $1"}, {"b+", "B"}, {"a+b+", "AB"}, {"x*", "never"}, {"(", "broken"}});
    m.compile();
    EXPECT_EQ(m.fire(Mode::instant, ""), (Match{"#42", "Issue 42", "", 2, "#(\\d+)"}));
    // Not the longest: "a+b+" sorts before "b+".
    EXPECT_EQ(type(m, "aab"), (Match{"aab", "AB", "", 2, "a+b+"}));
    // An empty match never fires; the invalid pattern is skipped and the others still work.
    EXPECT_FALSE(type(m, "zz"));
    // Unanchored, a pattern takes as much as it can reach from the left.
    m.setPatterns({{"[a-z]+!", "loud"}});
    m.compile();
    EXPECT_EQ(type(m, "1 hello!"), (Match{"hello!", "loud", "", 5, "[a-z]+!"}));
}

TEST(MatcherExtras, WordStartShadowingAndOrder) {
    Matcher m;
    m.setExtras({{":smile:", {"\U0001F604", Mode::instant}},
                 {"teh", {"the", Mode::instant}},
                 {"->", {"\u2192", Mode::instant}},
                 {";me", {"pack", Mode::instant}}});
    m.setSnippets({{";me", "mine"}}, {{";me", Mode::tab}});
    m.setPatterns({{"->", "pattern"}});
    m.compile();
    EXPECT_EQ(type(m, "x:smile:"), (Match{":smile:", "\U0001F604", "", 6, none}));
    EXPECT_FALSE(type(m, "steh")); // a letter-led key must start a word
    EXPECT_TRUE(type(m, " teh"));
    m.clear();
    EXPECT_TRUE(type(m, "teh"));                    // the buffer's start counts as a word start
    EXPECT_EQ(type(m, "->")->expansion, "pattern"); // patterns come before extras
    EXPECT_FALSE(type(m, ";me")); // the user's own abbreviation shadows the pack entry
    EXPECT_EQ(m.fire(Mode::tab, "")->expansion, "mine");
}

TEST(PatternFilterLiterals, OnlyMandatoryTextCounts) {
    for (auto [pattern, literal] : std::vector<std::pair<std::string_view, std::string_view>>{
             {"#(\\d+)", "#"},
             {"abc?d", "ab"},
             {"ab+cd", "ab"},
             {"ab+cde", "cde"},
             {"(?:foo)+bar", "foo"},
             {"(foo)?bar", "bar"},
             {"x(a|b)y", "x"},
             {"a|b", ""},
             {"(?i)abc", ""},
             {"\\Qa.b\\E+", "a.b"},
             {"\\.\\*x", ".*x"},
             {"[abc]def", "def"},
             {"\\d{0,3}kg", "kg"},
             {"(?<y>\\d{4})-", "-"},
             {"(\\w)\\1", ""},
             {"a(?=b)c", "a"},
         }) {
        EXPECT_EQ(PatternFilter::requiredLiteral(pattern), literal) << pattern;
    }
}

} // namespace
} // namespace quillet
