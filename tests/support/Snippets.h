#pragma once

#include "library/Snippet.h"

#include <functional>
#include <string>

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

} // namespace quillet::testing
