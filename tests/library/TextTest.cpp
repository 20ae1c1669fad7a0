#include "library/Text.h"

#include <gtest/gtest.h>

namespace quillet::text {
namespace {

// The ICU calls are checked only as far as this code puts them together: the UTF-8 offsets,
// the categories it picks, and what it does with text that is not UTF-8.
TEST(Text, GraphemesDelimitersAndRepairs) {
    const std::pair<std::string_view, std::size_t> counts[] = {
        {"", 0},
        {"a\r\n", 2},
        {"\U0001F468\u200D\U0001F469\u200D\U0001F467", 1},
        {"\U0001F1EB\U0001F1F7\U0001F1E9", 2}, // a flag and a lone indicator
    };
    for (const auto& [s, count] : counts) {
        EXPECT_EQ(graphemeCount(s), count) << s;
    }
    EXPECT_EQ(graphemes("ae\u0301\U0001F44D"),
              (std::vector<std::string_view>{"a", "e\u0301", "\U0001F44D"}));
    EXPECT_EQ(lastGraphemeSize("x\U0001F44D"), 4u);

    // Delimiters are whitespace and punctuation only, never symbols.
    for (std::string_view d : {" ", "\n", ".", "_", "\"", "\u00A0", "\u2014", "\u300C"}) {
        EXPECT_TRUE(isDelimiter(d)) << d;
    }
    for (std::string_view n : {"a", "1", "+", "$", "`", "\u20AC", "\U0001F44D", ""}) {
        EXPECT_FALSE(isDelimiter(n)) << n;
    }
    EXPECT_EQ(repairUtf8("a\xFFz\xE2\x82"), "a\uFFFDz\uFFFD");
}

TEST(Text, ClipKeepsWholeWordsAndWholeCharacters) {
    const std::tuple<std::string_view, std::size_t, std::string_view> cases[] = {
        {"Thanks for your quick reply", 27, "Thanks for your quick reply"},
        {"Thanks for your quick reply", 12, "Thanks for\u2026"},
        {"see you", 4, "see\u2026"},                    // the blank itself is not kept
        {"Supercalifragilistic day", 5, "Super\u2026"}, // a first word too long is cut
        {"e\u0301e\u0301e\u0301", 2, "e\u0301e\u0301\u2026"},
    };
    for (const auto& [s, characters, clipped] : cases) {
        EXPECT_EQ(clip(s, characters), clipped) << s << " " << characters;
    }
}

} // namespace
} // namespace quillet::text
