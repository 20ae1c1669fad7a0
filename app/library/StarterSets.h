#pragma once

#include "library/Snippet.h"

#include <span>
#include <string_view>
#include <vector>

namespace quillet {

/// One snippet of a starter set: an abbreviation and its template text.
struct StarterSnippet {
    std::string_view abbreviation;
    std::string_view content;
};

/// A named group of ready-made snippets the user can add to the library in one go.
struct StarterSet {
    std::string_view name;
    std::span<const StarterSnippet> snippets;
};

/// The starter sets in the order they are offered: Support, Sales, Student, Freelancer.
std::span<const StarterSet> starterSets();

/// The starter set with this name, or null when there is none.
const StarterSet* starterSet(std::string_view name);

/// New text snippets (fresh ids, created now) for the entries of a set, in its order.
std::vector<Snippet> makeSnippets(const StarterSet& set);

} // namespace quillet
