#pragma once

#include "library/Snippet.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace quillet::testing {

/// A new snippet of the abbreviation and content, changed further by change when given.
inline Snippet snippet(std::string abbreviation, std::string content = "text",
                       const std::function<void(Snippet&)>& change = {}) {
    Snippet s = Snippet::make();
    s.abbreviation = std::move(abbreviation);
    s.content = std::move(content);
    if (change) {
        change(s);
    }
    return s;
}

/// A change for snippet(): fires only in (or everywhere but) these applications and sites.
inline std::function<void(Snippet&)> scoped(std::vector<std::string> apps,
                                            std::vector<std::string> sites = {},
                                            Snippet::Scope scope = Snippet::Scope::only) {
    return [=](Snippet& s) {
        s.scope = scope;
        s.apps = apps;
        s.sites = sites;
    };
}

using Pairs = std::vector<std::pair<std::string, std::string>>;

/// Snippets as abbreviation and content, for one comparison.
inline Pairs pairsOf(const std::vector<Snippet>& snippets) {
    Pairs out;
    for (const Snippet& s : snippets) {
        out.emplace_back(s.abbreviation, s.content);
    }
    return out;
}

} // namespace quillet::testing
