#pragma once

#include <map>
#include <string>
#include <vector>

namespace quillet::testing {

/// What a finished child process left behind.
struct ProcessResult {
    int status = -1; ///< exit status, or 128 + signal number
    std::string out;
    std::string err;
};

/// Runs program with args (program first) and stdin as its standard input, with the parent's
/// environment changed by env (an empty value removes the variable); waits for it to end.
ProcessResult runProcess(const std::vector<std::string>& args, const std::string& stdinText = {},
                         const std::map<std::string, std::string>& env = {});

} // namespace quillet::testing
