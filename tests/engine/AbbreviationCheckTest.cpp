#include "engine/AbbreviationCheck.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace quillet {
namespace {

std::string clash(std::string_view longer, std::string_view shorter) {
    return "Typing " + std::string(longer) + " will expand " + std::string(shorter) +
           " first. Pick a different start.";
}

TEST(AbbreviationCheckProblem, WarnsWhenAnotherAbbreviationStartsWithIt) {
    std::vector<AbbreviationOwner> library = {{"1", ";sig"}, {"2", ";ab"}, {"3", ";abc"}};
    EXPECT_EQ(abbreviationProblem(";a", "9", library, std::nullopt), clash(";ab", ";a"));
    // The first clash in library order is named, not the closest one.
    std::vector<AbbreviationOwner> reordered = {{"3", ";abc"}, {"2", ";ab"}};
    EXPECT_EQ(abbreviationProblem(";a", "9", reordered, std::nullopt), clash(";abc", ";a"));
}

TEST(AbbreviationCheckProblem, NoClashWithItselfEqualsLongerOnesOrOtherStarts) {
    // The snippet being edited is in the library too, under its own id.
    EXPECT_EQ(abbreviationProblem(";a", "1", {{"1", ";ab"}}, std::nullopt), std::nullopt);
    EXPECT_EQ(abbreviationProblem(";ab", "1", {{"2", ";ab"}}, std::nullopt), std::nullopt);
    EXPECT_EQ(abbreviationProblem(";abc", "1", {{"2", ";ab"}}, std::nullopt), std::nullopt);
    EXPECT_EQ(abbreviationProblem(";A", "1", {{"2", ";ab"}}, std::nullopt), std::nullopt)
        << "matching is case-sensitive";
    EXPECT_EQ(abbreviationProblem("", "1", {{"2", ";ab"}}, "x"), std::nullopt);
}

TEST(AbbreviationCheckProblem, ComparesWholeCharacters) {
    // "q" with a combining acute has no composed form but is still one character: typing it
    // never leaves a bare "q" at the end of what was typed.
    EXPECT_EQ(abbreviationProblem(";q", "1", {{"2", ";q\u0301t"}}, std::nullopt), std::nullopt);
    // Composed and decomposed spellings are the same abbreviation to the matcher.
    EXPECT_EQ(abbreviationProblem(";\u00E9", "1", {{"2", ";e\u0301t"}}, std::nullopt),
              clash(";e\u0301t", ";\u00E9"));
}

TEST(AbbreviationCheckProblem, ClashComesBeforeTheWordExample) {
    EXPECT_EQ(abbreviationProblem("ing", "1", {{"2", "ings"}}, "bing"), clash("ings", "ing"));
    EXPECT_EQ(abbreviationProblem("ing", "1", {{"2", "ong"}}, "bing"),
              "Might expand inside words like \"bing\". Start it with ; or another symbol.");
}

class AbbreviationCheckWords : public ::testing::Test {
protected:
    void SetUp() override {
        path_ = std::filesystem::temp_directory_path() /
                ("quillet-words-" + std::to_string(::getpid()) + ".txt");
    }
    void TearDown() override { std::filesystem::remove(path_); }

    WordList listOf(const std::string& contents) {
        std::ofstream(path_, std::ios::binary) << contents;
        return WordList::fromFile(path_);
    }

    std::filesystem::path path_;
};

TEST_F(AbbreviationCheckWords, ShortestLongerWordFirstAmongEquals) {
    auto words = listOf("something\nring\nsing\nking\ning\n\nbringing\n");
    EXPECT_EQ(wordExample("ing", words), "ring");
    EXPECT_EQ(wordExample("ING", words), "ring") << "the abbreviation is lower-cased";
    EXPECT_EQ(wordExample("bringing", words), std::nullopt) << "the word itself is not inside";
    EXPECT_EQ(wordExample("xyz", words), std::nullopt);
}

TEST_F(AbbreviationCheckWords, OnlyLowerCaseWordsCount) {
    auto words = listOf("Ring\nIng's\nsing's\nk2ing\n\u00C9ring\n\u00E9'ing\nZing\r\nwinging\r\n");
    EXPECT_EQ(words.size(), 1u);
    EXPECT_EQ(wordExample("ing", words), "winging");
}

TEST_F(AbbreviationCheckWords, AccentedWordsCountInCharacters) {
    // "fiancé" ends in "é" spelt with a combining accent: six characters, not seven, and still a
    // word ending in the composed "é".
    auto words = listOf("fiance\u0301\nattache\u0301\n\xE9t\xE9\n");
    EXPECT_EQ(words.size(), 2u) << "a line that is not UTF-8 is dropped";
    EXPECT_EQ(wordExample("\u00E9", words), "fianc\u00E9");
    EXPECT_EQ(wordExample("e", words), std::nullopt);
}

TEST_F(AbbreviationCheckWords, OnlyAllLetterAbbreviationsWarn) {
    auto words = listOf("ring\nxing\n");
    EXPECT_EQ(wordExample("", words), std::nullopt);
    EXPECT_EQ(wordExample(";ing", words), std::nullopt);
    EXPECT_EQ(wordExample("in1", words), std::nullopt);
    EXPECT_EQ(wordExample("ng", words), "ring");
}

TEST_F(AbbreviationCheckWords, MissingFileGivesNoWarning) {
    EXPECT_EQ(WordList::fromFile(path_ / "absent").size(), 0u);
    EXPECT_EQ(wordExample("ing", WordList::fromFile(path_ / "absent")), std::nullopt);
}

TEST(AbbreviationCheckDictionary, FindsAWordEndingInIng) {
    if (!std::filesystem::exists(WordList::standardPath)) {
        GTEST_SKIP() << "no " << WordList::standardPath;
    }
    auto example = wordExample("ing");
    ASSERT_TRUE(example.has_value());
    EXPECT_GT(example->size(), 3u);
    EXPECT_TRUE(example->ends_with("ing"));
    EXPECT_EQ(wordExample(";x"), std::nullopt);
}

} // namespace
} // namespace quillet
