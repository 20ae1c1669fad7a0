#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
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

/// A child process that keeps running while the test talks to it: lines on its standard input,
/// lines read back from its standard output and error. Ended with SIGTERM when destroyed.
class LiveProcess {
public:
    /// Starts program with args (program first) and env changes as for runProcess, in a session
    /// of its own when asked; check running() afterwards.
    LiveProcess(const std::vector<std::string>& args, const std::map<std::string, std::string>& env,
                bool newSession = false);
    LiveProcess(const LiveProcess&) = delete;
    LiveProcess& operator=(const LiveProcess&) = delete;
    ~LiveProcess();

    /// True while the child has not exited.
    bool running();
    /// Writes line and a line feed to the child's standard input.
    void send(const std::string& line);
    /// The next line of standard output, or nothing when none came within timeout.
    std::optional<std::string> readLine(std::chrono::milliseconds timeout);
    /// Reads standard error until text appears at or after offset from; false when it did not
    /// within timeout.
    bool waitForError(const std::string& text, std::chrono::milliseconds timeout,
                      std::size_t from = 0);
    /// Everything read from standard error so far.
    const std::string& errors() const { return err_; }
    /// Sends signal and waits up to timeout for the exit; the exit status, or -1 when it went on.
    int stop(int signal, std::chrono::milliseconds timeout);
    /// The child's process id.
    int pid() const { return pid_; }

private:
    friend ProcessResult runProcess(const std::vector<std::string>&, const ProcessOptions&);
    // Reads what either output has within timeout; false when nothing came.
    bool fill(std::chrono::milliseconds timeout);
    // Reads until done, or for timeout at most; done's answer.
    bool fillUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout);

    int pid_ = -1, startError_ = 0, status_ = -1;
    int in_ = -1, out_ = -1, errFd_ = -1; // -1 once closed
    std::string outBuffer_, err_;
};

} // namespace quillet::testing
