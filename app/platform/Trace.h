#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace quillet {

/// True when QUILLET_TRACE=1: moments that tests and the benchmark wait for are written out.
inline bool tracing() {
    static const bool on = [] {
        const char* value = std::getenv("QUILLET_TRACE");
        return value != nullptr && std::string_view(value) == "1";
    }();
    return on;
}

/// With QUILLET_TRACE=1, writes "trace: " and line to standard error: moments that tests and the
/// benchmark wait for, never anything the user typed. Callers that would build the line on a
/// busy path ask tracing() first.
inline void trace(const std::string& line) {
    if (tracing()) {
        std::fprintf(stderr, "trace: %s\n", line.c_str());
    }
}

} // namespace quillet
