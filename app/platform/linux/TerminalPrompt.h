#pragma once

#include "library/OwnerAuth.h"

#include <optional>
#include <string>

namespace quillet {

/// Asks authentication questions on the process's controlling terminal (/dev/tty), with echo
/// off for secrets, so that the answer never passes through standard input or output.
class TerminalPrompt {
public:
    /// The answer typed on the terminal; nothing without a terminal, at end of input, or when
    /// the terminal fails.
    std::optional<std::string> operator()(const AuthQuestion& question) const;
};

} // namespace quillet
