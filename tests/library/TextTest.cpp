#include "library/Text.h"

#include <gtest/gtest.h>

namespace quillet::text {
namespace {

TEST(TextGraphemes, JoinedSequencesAreOneCharacter) {
    EXPECT_EQ(graphemeCount(""), 0u);
    EXPECT_EQ(graphemeCount("abc"), 3u);
    EXPECT_EQ(graphemeCount("\r\n"), 1u);
    EXPECT_EQ(graphemeCount("e\u0301"), 1u);
    EXPECT_EQ(graphemeCount("\U0001F468\u200D\U0001F469\u200D\U0001F467"), 1u);
    EXPECT_EQ(graphemeCount("\U0001F44D\U0001F3FD"), 1u);           // skin tone modifier
    EXPECT_EQ(graphemeCount("\U0001F1EB\U0001F1F7\U0001F1E9"), 2u); // a flag and a lone indicator
    EXPECT_EQ(graphemeCount("\u0915\u094D\u0937"), 1u);             // Devanagari conjunct
    auto parts = graphemes("ae\u0301\U0001F44D");
    ASSERT_EQ(parts.size(), 3u);
    EXPECT_EQ(parts[1], "e\u0301");
    EXPECT_EQ(lastGraphemeSize("x\U0001F44D"), 4u);
}

TEST(TextCategories, DelimitersAreWhitespaceAndPunctuationOnly) {
    for (std::string_view d : {" ", "\t", "\n", ".", ",", "!", "?", "-", "_", "(", ")", "\"", "'",
                               "\u00A0", "\u2014", "\u00BF", "\u300C"}) {
        EXPECT_TRUE(isDelimiter(d)) << d;
    }
    for (std::string_view n :
         {"a", "1", "+", "=", "$", "<", ">", "|", "~", "^", "`", "\u20AC", "\U0001F44D", ""}) {
        EXPECT_FALSE(isDelimiter(n)) << n;
    }
}

TEST(TextCategories, LettersDigitsAndCase) {
    EXPECT_TRUE(isLetter("\u00E9"));
    EXPECT_TRUE(isLetter("\u05D0")); // Hebrew has no case but is a letter
    EXPECT_FALSE(isLetter("1"));
    EXPECT_TRUE(isLetterOrDigit("\u0663")); // Arabic-Indic digit
    EXPECT_FALSE(isLetterOrDigit(":"));
    EXPECT_TRUE(isUppercase("\u00C9"));
    EXPECT_FALSE(isUppercase("\u00E9"));
}

TEST(TextCase, FullUnicodeMappings) {
    EXPECT_EQ(toUpper("stra\u00DFe"), "STRASSE");
    EXPECT_EQ(toLower("CAF\u00C9"), "caf\u00E9");
    EXPECT_EQ(toUpper("abc"), "ABC");
}

TEST(TextNormalisation, ComposesAndRepairs) {
    EXPECT_EQ(nfc("e\u0301"), "\u00E9");
    EXPECT_TRUE(isNfc("plain"));
    EXPECT_FALSE(isNfc("e\u0301"));
    EXPECT_EQ(repairUtf8("a\xFF"
                         "b"),
              "a\uFFFD"
              "b");
    EXPECT_EQ(repairUtf8("\xE2\x82"), "\uFFFD");
    EXPECT_TRUE(isValidUtf8("\U0001F44D"));
    EXPECT_FALSE(isValidUtf8("\xC0\xAF")); // overlong encodings are not UTF-8
}

} // namespace
} // namespace quillet::text
