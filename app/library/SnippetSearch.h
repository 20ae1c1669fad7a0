#pragma once

#include "library/Snippet.h"
#include "library/Usage.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// A search as the user typed it: each word must be found in a snippet's abbreviation or text,
/// ignoring case and how accented letters are composed. A locked snippet's text is not at hand,
/// so only its abbreviation counts.
class SnippetQuery {
public:
    explicit SnippetQuery(std::string_view query);

    /// True when every word of the query is in the snippet; always for an empty query.
    bool matches(const Snippet& snippet) const;

private:
    std::vector<std::string> words_;
};

/// The snippets a search finds, for the search-and-paste picker: every snippet that can be
/// inserted (not archived, not a regular expression) that query matches. The most used come first,
/// then by abbreviation ignoring case; an empty query lists every snippet so. At most limit of
/// them, pointing into snippets.
std::vector<const Snippet*> searchSnippets(const std::vector<Snippet>& snippets,
                                           std::string_view query, const Usage& usage,
                                           std::size_t limit = 50);

} // namespace quillet
