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

/// How a child is started besides its arguments.
struct ProcessOptions {
    std::string stdinText;                  ///< its standard input
    std::map<std::string, std::string> env; ///< changes to the environment; "" removes a variable
    bool newSession = false;                ///< start it without a controlling terminal
};

/// Runs program with args (program first) as options say, and waits for it to end.
ProcessResult runProcess(const std::vector<std::string>& args, const ProcessOptions& options);

/// Runs program with args (program first) and stdin as its standard input, with the parent's
/// environment changed by env (an empty value removes the variable); waits for it to end.
inline ProcessResult runProcess(const std::vector<std::string>& args,
                                const std::string& stdinText = {},
                                const std::map<std::string, std::string>& env = {}) {
    return runProcess(args, ProcessOptions{stdinText, env, false});
}

} // namespace quillet::testing
