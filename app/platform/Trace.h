#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace quillet {

/// With QUILLET_TRACE=1, writes "trace: " and line to standard error: moments that tests and the
/// benchmark wait for, never anything the user typed.
inline void trace(const std::string& line) {
    static const bool on = [] {
        const char* value = std::getenv("QUILLET_TRACE");
        return value != nullptr && std::string_view(value) == "1";
    }();
    if (on) {
        std::fprintf(stderr, "trace: %s\n", line.c_str());
    }
}

} // namespace quillet
