#include "engine/Repeats.h"

#include <cstdio>
#include <gtest/gtest.h>

namespace quillet {
namespace {

// Types text in one context, then breaks it (a click) and answers what was offered.
std::optional<Repeats::Suggestion> typeThenBreak(Repeats& r, std::string_view text) {
    r.feed(text);
    return r.take();
}

// Types text in one context, then backspaces over the space after it: the run ends unoffered.
void typeThenErase(Repeats& r, const std::string& text) {
    r.feed(text + " ");
    r.backspace();
}

TEST(Repeats, PhraseIsOfferedOnTheThirdBreakAndThenOnlyAfterThreeMore) {
    Repeats r;
    const std::string phrase = "see you very soon then";
    for (int round = 0; round < 2; ++round) {
        EXPECT_FALSE(typeThenBreak(r, phrase));
        EXPECT_FALSE(typeThenBreak(r, phrase + " "));
        EXPECT_EQ(typeThenBreak(r, phrase), (Repeats::Suggestion{";syvst", phrase, 3}));
        // Its parts ("you very soon then", "see you very soon") were typed only inside it.
        EXPECT_FALSE(r.take());
    }
}

TEST(Repeats, ShortPhrasesAndSingleWordsNeverCount) {
    Repeats r;
    for (int i = 0; i < 4; ++i) {
        for (const char* text : {"ok ok", "see you soon", "Supercalifragilisticexpialidocious",
                                 "日本語の 東京都へ"}) { // 25 bytes, 9 characters
            EXPECT_FALSE(typeThenBreak(r, text));
        }
    }
    r.feed("thanks for that ");
    EXPECT_EQ(r.count("thanks for that"), 1); // exactly 15 characters
}

TEST(Repeats, WordsEndAtUnicodeWhitespaceAndBackspaceUndoesACharacterOrTheRun) {
    Repeats r;
    for (std::string_view key : {"Ok,", "\u00A0", "w", "e", "\u0301", "\t", "cafe\u0301"}) {
        r.feed(key);
    }
    r.backspace();
    EXPECT_EQ(r.run(), (std::vector<std::string>{"Ok,", "we\u0301"}));
    EXPECT_EQ(r.word(), "caf");
    r.feed("\u3000thanks for your helpx");
    r.backspace();
    r.feed("\n");
    EXPECT_EQ(r.count("thanks for your help"), 1);
    r.backspace(); // over the line break: the next word does not follow "help"
    EXPECT_TRUE(r.run().empty() && r.seen().empty());
    r.feed("breakfast today ");
    EXPECT_EQ(r.count("help breakfast today"), 0);
    EXPECT_EQ(r.count("breakfast today"), 1);
}

TEST(Repeats, OnlyPhrasesWithinTheLastEightWordsCountAndOnlyOncePerRun) {
    Repeats r;
    r.feed("one two three four five six seven eight nine ");
    EXPECT_EQ(r.count("two three four five six seven eight nine"), 1);
    EXPECT_EQ(r.count("one two three four five six seven eight"), 1);
    r.feed("la la la la la la la la la la la la thanks a lot Sam thanks a lot Sam");
    for (const auto& [phrase, n] : r.counts()) {
        EXPECT_FALSE(phrase.starts_with("one ") && phrase.ends_with(" nine")) << phrase;
        EXPECT_EQ(n, 1) << phrase;
    }
    EXPECT_FALSE(r.take());
}

TEST(Repeats, OfferingAPhraseUsesUpOnlyTheTypingsOfItsParts) {
    Repeats r;
    const std::string whole = "thanks for your quick reply";
    typeThenErase(r, "your quick reply");
    typeThenErase(r, "your quick reply");
    typeThenErase(r, "our quick reply"); // a substring of whole, but not its words
    typeThenErase(r, whole);
    typeThenErase(r, whole);
    EXPECT_EQ(r.count("your quick reply"), 4);
    EXPECT_EQ(typeThenBreak(r, whole)->expansion, whole); // the longest wins
    EXPECT_EQ(r.count("your quick reply"), 2);
    EXPECT_EQ(r.count("our quick reply"), 1);
    EXPECT_FALSE(r.take());
    EXPECT_EQ(typeThenBreak(r, "your quick reply"),
              (Repeats::Suggestion{";yqr", "your quick reply", 3}));
}

TEST(Repeats, EquallyLongPhrasesAreOfferedInSortOrder) {
    Repeats r;
    for (const char* text : {"kind regards Bob", "kind regards Amy"}) {
        for (int i = 0; i < 3; ++i) {
            typeThenErase(r, text);
        }
    }
    EXPECT_EQ(r.take()->expansion, "kind regards Amy");
    EXPECT_EQ(r.take()->expansion, "kind regards Bob");
    EXPECT_FALSE(r.take());
}

TEST(Repeats, BeyondTheLimitOneOffPhrasesAreDroppedAndRepeatedOnesKept) {
    Repeats r;
    typeThenErase(r, "keep this phrase");
    typeThenErase(r, "keep this phrase");
    char words[32];
    for (int i = 0; r.counts().size() < Repeats::maxPhrases; ++i) {
        std::snprintf(words, sizeof words, "p%07d q%07d", i, i); // one phrase per run
        typeThenErase(r, words);
    }
    EXPECT_EQ(r.count("keep this phrase"), 2);
    typeThenErase(r, "one more phrase");
    EXPECT_EQ(r.counts(), (Repeats::Counts{{"keep this phrase", 2}}));
}

TEST(Repeats, ProposedAbbreviationTakesFirstLettersOfFiveWords) {
    EXPECT_EQ(Repeats::proposedAbbreviation("Thanks for your quick reply"), ";tfyqr");
    EXPECT_EQ(Repeats::proposedAbbreviation("one two three four five six"), ";ottff");
    EXPECT_EQ(Repeats::proposedAbbreviation("Call 555-1234 — (now) 3rd try"), ";cnrt");
    EXPECT_EQ(Repeats::proposedAbbreviation("Élan über\u00A0Ölfeld"), ";éüö");
    EXPECT_EQ(Repeats::proposedAbbreviation("E\u0301tude"), ";e\u0301");
    EXPECT_EQ(Repeats::proposedAbbreviation("Ευχαριστώ ΣΑΣ"), ";εσ");
    EXPECT_EQ(Repeats::proposedAbbreviation("42 — 17"), ";");
}

} // namespace
} // namespace quillet
