#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// The rows of comma-separated text, each a list of cells as they stand (not trimmed). A double
/// quote opens a quoted cell only at the start of a cell, where commas and line breaks are text
/// and a doubled quote is one quote; elsewhere it is an ordinary character. Line feeds, carriage
/// returns and the pair of both end a row; blank lines are dropped.
std::vector<std::vector<std::string>> readCsv(std::string_view text);

} // namespace quillet
