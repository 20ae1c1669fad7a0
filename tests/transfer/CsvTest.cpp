#include "transfer/Csv.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using Rows = std::vector<std::vector<std::string>>;

struct Case {
    const char* name;
    std::string text;
    Rows rows;
};

class CsvTest : public ::testing::TestWithParam<Case> {};

TEST_P(CsvTest, ReadsRowsAndCells) {
    EXPECT_EQ(readCsv(GetParam().text), GetParam().rows);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CsvTest,
    ::testing::Values(
        Case{"Empty", "", {}}, Case{"CellsAreNotTrimmed", " a , b\t", {{" a ", " b\t"}}},
        Case{"EveryLineBreakEndsARow", "a,b\nc\r\nd\re", {{"a", "b"}, {"c"}, {"d"}, {"e"}}},
        Case{"BlankLinesDropButEmptyCellsStay", "\n\r\n,\n\na,\n", {{"", ""}, {"a", ""}}},
        Case{"QuotedCellHoldsCommasAndLineBreaks", "\"a,b\r\nc\",d\n", {{"a,b\r\nc", "d"}}},
        Case{"DoubledQuoteIsOneQuote", "\"say \"\"hi\"\"\",x", {{"say \"hi\"", "x"}}},
        Case{"QuoteInsideAnUnquotedCellIsKept", "5\" disk,a\"b\"", {{"5\" disk", "a\"b\""}}},
        // The character after a closing quote is read as outside quotes.
        Case{"TextAfterClosingQuoteJoinsTheCell", "\"ab\"cd\"e,f", {{"abcd\"e", "f"}}},
        Case{"ClosingQuoteBeforeALineBreak", "\"a\"\r\n\"b\"", {{"a"}, {"b"}}},
        Case{"CellsOfQuotesOnly", "\"\"\"\",\"\"\"x\",\"\"", {{"\"", "\"x", ""}}},
        Case{"UnclosedQuoteRunsToTheEnd", "a,\"b\nc", {{"a", "b\nc"}}},
        Case{"QuoteAtTheVeryEnd", "\"a\"", {{"a"}}}),
    [](const auto& test) { return std::string(test.param.name); });

// A single cell of many megabytes is one copy, not a crawl: this finishes well within the test's
// time limit only when reading is linear.
TEST(CsvLargeTest, LongLinesReadInLinearTime) {
    const std::size_t size = 32u << 20;
    std::string quoted = "\"" + std::string(size, 'x') + "\",y";
    Rows rows = readCsv(quoted);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0][0].size(), size);
    EXPECT_EQ(rows[0][1], "y");
    std::string plain(size, 'z');
    rows = readCsv(plain);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0][0].size(), size);
}

} // namespace
} // namespace quillet
