#include "engine/Matcher.h"

#include "engine/PatternFilter.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using Mode = Matcher::Mode;
using Match = Matcher::Match;

// Types text one character at a time and returns the last answer.
std::optional<Match> type(Matcher& m, std::string_view text) {
    std::optional<Match> last;
    std::size_t i = 0;
    while (i < text.size()) {
        auto lead = static_cast<unsigned char>(text[i]);
        std::size_t size = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        last = m.feed(text.substr(i, size));
        i += size;
    }
    return last;
}

Matcher withSnippets(Matcher::Table snippets, Matcher::Modes modes = {}) {
    Matcher m;
    m.setSnippets(std::move(snippets), std::move(modes));
    return m;
}

TEST(MatcherSnippets, InstantMatchErasesAllButTheLastCharacter) {
    Matcher m = withSnippets({{";sig", "Best, Ann"}});
    EXPECT_FALSE(type(m, "abc;si"));
    auto match = m.feed("g");
    ASSERT_TRUE(match);
    EXPECT_EQ(*match, (Match{";sig", "Best, Ann", "", 3, std::nullopt}));
    EXPECT_EQ(m.buffer(), "");
}

TEST(MatcherSnippets, ShorterInstantAbbreviationFiresFirstButLongestWinsOnDelimiter) {
    Matcher instant = withSnippets({{";a", "A"}, {";ab", "AB"}});
    auto first = type(instant, ";a");
    ASSERT_TRUE(first);
    EXPECT_EQ(first->abbreviation, ";a");

    Matcher delimited = withSnippets({{";a", "A"}, {";ab", "AB"}});
    delimited.setMode(Mode::delimiter);
    EXPECT_FALSE(type(delimited, ";ab"));
    auto match = delimited.feed(" ");
    ASSERT_TRUE(match);
    EXPECT_EQ(*match, (Match{";ab", "AB", " ", 2, std::nullopt}));
}

TEST(MatcherSnippets, DelimitersArePunctuationAndWhitespaceButNotSymbols) {
    Matcher m = withSnippets({{"brb", "be right back"}}, {{"brb", Mode::delimiter}});
    type(m, "brb");
    auto comma = m.feed(",");
    ASSERT_TRUE(comma);
    EXPECT_EQ(comma->trailer, ",");
    EXPECT_EQ(comma->onScreen, 2);

    for (std::string_view symbol : {"+", "=", "$", "<", "|", "~", "^", "`"}) {
        Matcher s = withSnippets({{"brb", "x"}}, {{"brb", Mode::delimiter}});
        type(s, "brb");
        EXPECT_FALSE(s.feed(symbol)) << symbol;
        EXPECT_EQ(s.buffer(), std::string("brb") + std::string(symbol));
    }
    for (std::string_view delimiter :
         {"\t", "\n", "\u00A0", "\u3000", "-", "(", "\u00BB", "\u2019", "_"}) {
        Matcher s = withSnippets({{"brb", "x"}}, {{"brb", Mode::delimiter}});
        type(s, "brb");
        auto match = s.feed(delimiter);
        ASSERT_TRUE(match) << delimiter;
        EXPECT_EQ(match->trailer, delimiter);
    }
}

TEST(MatcherSnippets, AbbreviationMayContainItsOwnDelimiter) {
    Matcher m = withSnippets({{"e.g", "for example"}}, {{"e.g", Mode::delimiter}});
    auto match = type(m, "say e.g ");
    ASSERT_TRUE(match);
    EXPECT_EQ(match->expansion, "for example");
    EXPECT_EQ(match->trailer, " ");
}

TEST(MatcherSnippets, InstantAbbreviationEndingInPunctuationFiresOnIt) {
    Matcher m = withSnippets({{"sig;", "S"}});
    auto match = type(m, "sig;");
    ASSERT_TRUE(match);
    EXPECT_EQ(match->trailer, "");
}

TEST(MatcherSnippets, TabAbbreviationFiresOnlyThroughTab) {
    Matcher m = withSnippets({{"df", "display"}}, {{"df", Mode::tab}});
    EXPECT_FALSE(type(m, "df"));
    EXPECT_FALSE(m.feed(" "));
    EXPECT_FALSE(type(m, "df"));
    auto match = m.fire(Mode::tab, "");
    ASSERT_TRUE(match);
    EXPECT_EQ(*match, (Match{"df", "display", "", 1, std::nullopt}));
}

TEST(MatcherSnippets, MatchingIsCaseSensitiveAndNeedsNoWordBoundary) {
    Matcher m = withSnippets({{";thanks", "T"}});
    EXPECT_FALSE(type(m, ";Thanks"));
    Matcher inside = withSnippets({{"ty", "thank you"}});
    EXPECT_TRUE(type(inside, "party"));
}

TEST(MatcherSnippets, OwnTriggerOverridesGlobalMode) {
    Matcher m = withSnippets({{";x", "X"}}, {{";x", Mode::instant}});
    m.setMode(Mode::delimiter);
    EXPECT_TRUE(type(m, ";x"));
}

TEST(MatcherBuffer, KeepsTheLastSixtyFourCharacters) {
    Matcher m;
    std::string typed;
    for (int i = 0; i < 100; ++i) {
        typed += static_cast<char>('a' + i % 26);
    }
    type(m, typed);
    EXPECT_EQ(m.buffer(), typed.substr(36));
    EXPECT_EQ(m.bufferLength(), 64);
}

TEST(MatcherBuffer, CountsGraphemeClustersNotBytes) {
    Matcher m;
    // A family emoji is seven code points joined into one character.
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466";
    for (int i = 0; i < 70; ++i) {
        type(m, family);
    }
    EXPECT_EQ(m.bufferLength(), 64);
    type(m, "e\u0301"); // combining accent joins the e as typed separately
    EXPECT_EQ(m.bufferLength(), 64);
    EXPECT_TRUE(m.buffer().ends_with(family + "e\u0301"));
}

TEST(MatcherBuffer, FlagsPairRegionalIndicatorsAsTheyAreTyped) {
    Matcher m = withSnippets({{";fr\U0001F1EB\U0001F1F7", "France"}});
    // Two flags typed indicator by indicator: the buffer must pair them as typed.
    type(m, "\U0001F1FA\U0001F1F8\U0001F1EB");
    EXPECT_EQ(m.bufferLength(), 2);
    type(m, "\U0001F1F7");
    EXPECT_EQ(m.bufferLength(), 2);
}

TEST(MatcherGraphemes, EmojiAndCombiningMarksCountAsOneCharacter) {
    Matcher m = withSnippets({{":\U0001F44D", "thumbs"}, {"caf\u00E9", "coffee"}});
    auto thumbs = type(m, "x:\U0001F44D");
    ASSERT_TRUE(thumbs);
    EXPECT_EQ(thumbs->onScreen, 1);

    // Typed as e + combining acute: canonically the same as the precomposed abbreviation.
    auto cafe = type(m, "cafe\u0301");
    ASSERT_TRUE(cafe);
    EXPECT_EQ(cafe->abbreviation, "caf\u00E9");
    EXPECT_EQ(cafe->onScreen, 3);
}

TEST(MatcherGraphemes, AbbreviationNeverMatchesHalfACharacter) {
    // The buffer's last character is e + acute; an abbreviation ending in a bare e must not fire
    // once the accent has joined it, and one that is just the accent never fires.
    Matcher m = withSnippets({{"\u0301", "accent"}}, {{"\u0301", Mode::delimiter}});
    type(m, "cafe\u0301");
    EXPECT_FALSE(m.feed(" "));
}

TEST(MatcherPatterns, CaptureGroupsFillTheTemplate) {
    // Typed before the pattern exists, so that "#4" does not fire on its own first.
    Matcher m;
    type(m, "see #42");
    m.setPatterns({{"#(\\d+)", "Issue $1"}});
    m.compile();
    auto match = m.fire(Mode::instant, "");
    ASSERT_TRUE(match);
    EXPECT_EQ(*match, (Match{"#42", "Issue 42", "", 2, std::string("#(\\d+)")}));
}

TEST(MatcherPatterns, FirstPatternInSortedOrderWinsNotTheLongest) {
    Matcher m;
    m.setPatterns({{"b+", "B"}, {"a+b+", "AB"}});
    m.compile();
    auto match = type(m, "aab");
    ASSERT_TRUE(match);
    EXPECT_EQ(match->key, "a+b+");
    EXPECT_EQ(match->abbreviation, "aab");
}

TEST(MatcherPatterns, EmptyMatchesNeverFireAndInvalidPatternsAreSkipped) {
    Matcher m;
    m.setPatterns({{"x*", "never"}, {"(", "broken"}, {";d(\\d)", "day $1"}});
    m.compile();
    EXPECT_FALSE(type(m, "abc"));
    auto match = type(m, ";d5");
    ASSERT_TRUE(match);
    EXPECT_EQ(match->expansion, "day 5");
}

TEST(MatcherPatterns, FollowTheGlobalModeWhateverTheirOwnTrigger) {
    Matcher m;
    m.setMode(Mode::delimiter);
    m.setPatterns({{"#(\\d+)", "Issue $1"}});
    m.compile();
    EXPECT_FALSE(type(m, "#42"));
    auto match = m.feed(".");
    ASSERT_TRUE(match);
    EXPECT_EQ(match->trailer, ".");
    EXPECT_FALSE(m.fire(Mode::tab, ""));
}

TEST(MatcherPatterns, UnanchoredPatternTakesAsMuchAsItCanReachFromTheLeft) {
    Matcher m;
    m.setPatterns({{"[a-z]+!", "loud"}});
    m.compile();
    auto match = type(m, "1 hello!");
    ASSERT_TRUE(match);
    EXPECT_EQ(match->abbreviation, "hello!");
    EXPECT_EQ(match->onScreen, 5);
}

TEST(MatcherPatterns, ReplacementTemplateRules) {
    Matcher m;
    m.setPatterns({{"(\\w)(\\w)=", "$0|$2$1|\\$1|$9|${x}|$"}, {"(?<n>\\d)\\+", "${n}${n}"}});
    m.compile();
    auto swapped = type(m, "ab=");
    ASSERT_TRUE(swapped);
    EXPECT_EQ(swapped->expansion, "ab=|ba|$1|$9|${x}|$");
    auto named = type(m, "7+");
    ASSERT_TRUE(named);
    EXPECT_EQ(named->expansion, "77");
}

TEST(MatcherPatterns, LiteralSeenEarlierCountsUntilItScrollsOut) {
    Matcher m;
    m.setPatterns({{"#x.*z", "found"}});
    m.compile();
    type(m, "#x");
    auto match = type(m, std::string(10, 'y') + "z");
    ASSERT_TRUE(match);
    EXPECT_EQ(match->abbreviation, "#x" + std::string(10, 'y') + "z");

    type(m, "#x" + std::string(70, 'y'));
    EXPECT_FALSE(m.feed("z"));
}

TEST(MatcherExtras, SymbolLedKeysFireAnywhereLetterLedOnlyAtWordStart) {
    Matcher m;
    m.setExtras({{":smile:", {"\U0001F604", Mode::instant}}, {"teh", {"the", Mode::instant}}});
    auto smile = type(m, "x:smile:");
    ASSERT_TRUE(smile);
    EXPECT_EQ(smile->onScreen, 6);
    EXPECT_FALSE(type(m, "steh"));
    m.clear();
    EXPECT_TRUE(type(m, "teh"));
    EXPECT_TRUE(type(m, "a teh"));
}

TEST(MatcherExtras, UserAbbreviationWithTheSameKeyWins) {
    Matcher m = withSnippets({{":smile:", "mine"}}, {{":smile:", Mode::tab}});
    m.setExtras({{":smile:", {"\U0001F604", Mode::instant}}});
    EXPECT_FALSE(type(m, ":smile:"));
    auto match = m.fire(Mode::tab, "");
    ASSERT_TRUE(match);
    EXPECT_EQ(match->expansion, "mine");
}

TEST(MatcherExtras, ExtrasComeAfterPatterns) {
    Matcher m;
    m.setPatterns({{"->", "pattern"}});
    m.compile();
    m.setExtras({{"->", {"\u2192", Mode::instant}}});
    auto match = type(m, "->");
    ASSERT_TRUE(match);
    EXPECT_EQ(match->expansion, "pattern");
}

TEST(MatcherCorrections, KeepTheTypedCase) {
    auto check = [](std::string_view typed, std::optional<std::string> expected) {
        Matcher m;
        m.setCorrections({{"teh", "the"}, {"a", "an"}, {"cafe", "caf\u00E9"}, {"ok", "ok"}});
        type(m, typed);
        auto match = m.feed(" ");
        if (!expected) {
            EXPECT_FALSE(match) << typed;
            return;
        }
        ASSERT_TRUE(match) << typed;
        EXPECT_EQ(match->expansion, *expected);
        EXPECT_EQ(match->abbreviation, typed.substr(typed.rfind(' ') + 1));
        EXPECT_EQ(match->trailer, " ");
    };
    check("teh", "the");
    check("Teh", "The");
    check("TEH", "THE");
    check("tEH", "the");
    check("so teh", "the");
    check("CAFE", "CAF\u00C9");
    check("a", std::nullopt);  // one letter is never corrected
    check("ok", std::nullopt); // nothing would change
    check("steh", std::nullopt);
}

TEST(MatcherCorrections, OnScreenIsTheWholeWord) {
    Matcher m;
    m.setCorrections({{"recieve", "receive"}});
    type(m, "recieve");
    auto match = m.feed(".");
    ASSERT_TRUE(match);
    EXPECT_EQ(match->onScreen, 7);
}

TEST(PatternFilterLiterals, OnlyMandatoryTextCounts) {
    struct Case {
        std::string_view pattern;
        std::string_view literal;
    };
    for (auto [pattern, literal] : std::initializer_list<Case>{
             {"#(\\d+)", "#"},
             {";date(\\d+)", ";date"},
             {"abc?d", "ab"},
             {"ab+cd", "ab"},
             {"ab+cde", "cde"},
             {"(?:foo)+bar", "foo"},
             {"(foo)?bar", "bar"},
             {"x(a|b)y", "x"},
             {"a|b", ""},
             {"(?i)abc", ""},
             {"\\Qa.b\\E+", "a.b"},
             {"\\Qa.\\E", "a."},
             {"x\\Q*", "x*"},
             {"\\.\\*x", ".*x"},
             {"[abc]def", "def"},
             {"\\d{0,3}kg", "kg"},
             {"gr\u00FC\u00DFe", "gr\u00FC\u00DFe"},
             {"(?<y>\\d{4})-", "-"},
             {"(\\w)\\1", ""},
             {"a(?=b)c", "a"},
         }) {
        EXPECT_EQ(PatternFilter::requiredLiteral(pattern), literal) << pattern;
    }
}

} // namespace
} // namespace quillet
