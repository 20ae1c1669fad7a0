#pragma once

#include "library/Snippet.h"
#include "library/Usage.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace quillet {

/// The snippets a search finds, for the search-and-paste picker: every snippet that can be
/// inserted (not archived, not a regular expression) whose abbreviation or text holds each word
/// of query, ignoring case and how accented letters are composed (a locked snippet's text is not at
/// hand, so only its abbreviation counts). The most used come first, then by abbreviation ignoring
/// case; an empty query lists every snippet so. At most limit of them, pointing into snippets.
std::vector<const Snippet*> searchSnippets(const std::vector<Snippet>& snippets,
                                           std::string_view query, const Usage& usage,
                                           std::size_t limit = 50);

} // namespace quillet
