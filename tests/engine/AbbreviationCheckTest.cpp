#include "engine/AbbreviationCheck.h"

#include "support/TempFolder.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

std::string clash(std::string_view longer, std::string_view shorter) {
    return "Typing " + std::string(longer) + " will expand " + std::string(shorter) +
           " first. Pick a different start.";
}

std::optional<std::string> problem(std::string_view abbreviation, std::string_view other,
                                   const std::optional<std::string>& example = std::nullopt) {
    return abbreviationProblem(abbreviation, "1", {{"2", std::string(other)}}, example);
}

TEST(AbbreviationCheck, WarnsOfTheFirstAbbreviationThatStartsWithIt) {
    // Skips the edited snippet's own entry and names the first clash in library order.
    std::vector<AbbreviationOwner> library = {{"9", ";ab"}, {"3", ";abc"}, {"2", ";ab"}};
    EXPECT_EQ(abbreviationProblem(";a", "9", library, std::nullopt), clash(";abc", ";a"));
    // No clash with equal, longer or other-case ones, or inside one character ("q" + U+0301).
    for (auto [abbreviation, other] :
         {std::pair{";ab", ";ab"}, {";abc", ";ab"}, {";A", ";ab"}, {";q", ";q\u0301t"}}) {
        EXPECT_EQ(problem(abbreviation, other), std::nullopt) << abbreviation;
    }
    EXPECT_EQ(problem(";\u00E9", ";e\u0301t"), clash(";e\u0301t", ";\u00E9"))
        << "composed and decomposed spellings are the same abbreviation to the matcher";
    EXPECT_EQ(problem("", ";ab", "x"), std::nullopt);
    EXPECT_EQ(problem("ing", "ings", "bing"), clash("ings", "ing")) << "the clash comes first";
    EXPECT_EQ(problem("ing", "ong", "bing"),
              "Might expand inside words like \"bing\". Start it with ; or another symbol.");
}

TEST(AbbreviationCheck, AFreeAbbreviationNeitherFiresInsideAnotherNorHasOneFireInsideIt) {
    const struct {
        std::vector<TakenAbbreviation> taken;
        bool instant;
        std::optional<std::string> free;
        std::string proposed = ";tfyqr";
    } cases[] = {
        {{{";other", true}}, true, ";tfyqr"},
        {{{";tfyqr", false}}, true, ";tfyqr2"}, // the taken one waits for a delimiter
        {{{";tfyqr", false}, {";tfyqr2", true}}, true, ";tfyqr3"},
        {{{";tfyqr", true}}, false, std::nullopt}, // it would fire on the way to every digit
        {{{"fy", true}}, false, std::nullopt},     // inside, not only at the start
        {{{";tfyqr2", false}}, true, ";tfyqr3"},   // the new one would fire inside it
        {{{";tfyqr2", false}}, false, ";tfyqr"},
        {{{"r", true}, {"qr", false}}, true, ";tfyqr"},          // at its end the longer one wins
        {{{";tfyqr\u20DD", false}}, true, ";tfyqr"},             // r and its combining mark are one
        {{{";e\u0301t", false}}, true, ";\u00E9t2", ";\u00E9t"}, // the same once composed
    };
    for (const auto& c : cases) {
        EXPECT_EQ(freeAbbreviation(c.proposed, c.taken, c.instant), c.free)
            << c.taken.front().abbreviation << " " << c.instant;
    }
}

TEST(AbbreviationCheck, ExampleIsTheShortestLowerCaseWordEndingInIt) {
    WordList words({"something", "Ring", "Ing's", "sing's", "k2ing", "\u00C9ring", "ring", "sing",
                    "ing", "", "bringing", "fiance\u0301", "\xE9t\xE9"});
    EXPECT_EQ(words.size(), 6u) << "names, possessives, digits and text that is not UTF-8 are out";
    EXPECT_EQ(wordExample("ING", words), "ring") << "first among equals, lower-cased";
    EXPECT_EQ(wordExample("ng", words), "ing");
    EXPECT_EQ(wordExample("\u00E9", words), "fianc\u00E9") << "found, and returned composed";
    // Only letters warn, a word is not inside itself, and "fiancé" does not end in a bare "e".
    for (const char* none : {"", ";ing", "in1", "xyz", "bringing", "e"}) {
        EXPECT_EQ(wordExample(none, words), std::nullopt) << none;
    }
}

TEST(AbbreviationCheck, WordListsComeFromFiles) {
    testing::TempFolder temp;
    testing::writeText(temp / "words", "Zing\r\nwinging\r\n");
    EXPECT_EQ(wordExample("ing", WordList::fromFile(temp / "words")), "winging");
    EXPECT_EQ(WordList::fromFile(temp / "absent").size(), 0u);
    if (!std::filesystem::exists(WordList::standardPath)) {
        GTEST_SKIP() << "no " << WordList::standardPath;
    }
    std::string example = wordExample("ing").value_or("");
    EXPECT_TRUE(example.size() > 3 && example.ends_with("ing")) << example;
    EXPECT_EQ(wordExample(";x"), std::nullopt);
}

} // namespace
} // namespace quillet
