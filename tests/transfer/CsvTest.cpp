#include "transfer/Csv.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using Rows = std::vector<std::vector<std::string>>;

TEST(CsvTest, ReadsRowsAndCells) {
    const std::pair<std::string, Rows> cases[] = {
        {"", {}},
        {" a , b\t", {{" a ", " b\t"}}},                       // cells are not trimmed
        {"a,b\nc\r\nd\re", {{"a", "b"}, {"c"}, {"d"}, {"e"}}}, // every line break ends a row
        {"\n\r\n,\n\na,\n", {{"", ""}, {"a", ""}}},            // blank lines drop, empty cells stay
        {"\"a,b\r\nc\",d\n", {{"a,b\r\nc", "d"}}},
        {"\"say \"\"hi\"\"\",x", {{"say \"hi\"", "x"}}},
        {"5\" disk,a\"b\"", {{"5\" disk", "a\"b\""}}}, // kept inside an unquoted cell
        // The character after a closing quote is read as outside quotes.
        {"\"ab\"cd\"e,f", {{"abcd\"e", "f"}}},
        {"\"a\"\r\n\"b\"", {{"a"}, {"b"}}},
        {"\"\"\"\",\"\"\"x\",\"\"", {{"\"", "\"x", ""}}},
        {"a,\"b\nc", {{"a", "b\nc"}}}, // an unclosed quote runs to the end
        {"\"a\"", {{"a"}}},
    };
    for (const auto& [text, rows] : cases) {
        EXPECT_EQ(readCsv(text), rows) << text;
    }
}

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
