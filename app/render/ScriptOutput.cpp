#include "render/ScriptOutput.h"

#include "library/Text.h"
#include "script/JavaScript.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <poll.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace quillet {
namespace {

using Clock = std::chrono::steady_clock;

// Every run in flight, so that a process can wait for them before it exits. Never destroyed:
// a run that outlives the caller's time limit may still end during static destruction.
struct Runs {
    std::mutex mutex;
    std::condition_variable idle;
    std::size_t count = 0;
};

Runs& runs() {
    static Runs* instance = new Runs;
    return *instance;
}

// One call of scriptOutput, shared by the thread running the script and the thread timing it.
// Whichever finishes first completes the call; the other finds it completed and is ignored.
class Call {
public:
    explicit Call(std::function<void(ScriptResult)> done) : done_(std::move(done)) {
        std::lock_guard lock(runs().mutex);
        ++runs().count;
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    // The last of the two threads lets go: the run is over.
    ~Call() {
        std::lock_guard lock(runs().mutex);
        if (--runs().count == 0) {
            runs().idle.notify_all();
        }
    }

    // Hands result to the caller unless the call is already complete.
    void complete(ScriptResult result) {
        std::function<void(ScriptResult)> done;
        {
            std::lock_guard lock(mutex_);
            if (completed_) {
                return;
            }
            completed_ = true;
            done = std::move(done_);
        }
        completedChanged_.notify_all();
        // Outside the lock: the caller may take its time or start another call from here.
        done(std::move(result));
    }

    // Waits until the call is complete or deadline passes; true when it completed.
    bool waitUntil(Clock::time_point deadline) {
        std::unique_lock lock(mutex_);
        return completedChanged_.wait_until(lock, deadline, [this] { return completed_; });
    }

    JavaScriptRun& javaScript() { return javaScript_; }

private:
    std::mutex mutex_;
    std::condition_variable completedChanged_;
    bool completed_ = false;
    std::function<void(ScriptResult)> done_;
    JavaScriptRun javaScript_;
};

// Closes a descriptor on every way out of a function.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { reset(); }
    int get() const { return fd_; }
    void reset(int fd = -1) {
        if (fd_ >= 0) {
            ::close(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_;
};

// zsh when installed, as on the Mac where snippets may have been written; the POSIX shell
// otherwise. Looked up at every run so that installing zsh needs no restart.
const char* shellPath() {
    return ::access("/bin/zsh", X_OK) == 0 ? "/bin/zsh" : "/bin/sh";
}

// Starts the shell with content as its script, standard output into outputEnd, standard input
// and error on the null device, in a session of its own. The pid, or -1 when it could not start.
pid_t spawnShell(const std::string& content, int outputEnd) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    if (::posix_spawn_file_actions_init(&actions) != 0) {
        return -1;
    }
    if (::posix_spawnattr_init(&attributes) != 0) {
        ::posix_spawn_file_actions_destroy(&actions);
        return -1;
    }
    // Nothing to read: a command that reads standard input gets its end at once instead of
    // waiting for input nobody will type.
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, outputEnd, STDOUT_FILENO);
    ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    // A session of its own, which is also a process group, so that a time-out reaches
    // everything the script started. Without the caller's terminal, run from `snippets expand`
    // in a shell, nothing in the script can be stopped for touching it (SIGTTIN, SIGTTOU) and
    // hang until the limit. Signal mask and ignored signals are reset: the application's choices
    // (say, ignoring SIGPIPE) must not change how a pipeline in the script behaves.
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setsigdefault(&attributes, &all);
    ::posix_spawnattr_setflags(&attributes,
                               POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    std::string shell = shellPath();
    std::string option = "-c";
    std::string script = content;
    char* arguments[] = {shell.data(), option.data(), script.data(), nullptr};
    pid_t pid = -1;
    int failed = ::posix_spawn(&pid, shell.c_str(), &actions, &attributes, arguments, environ);
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    return failed == 0 ? pid : -1;
}

// Blocks until the child has ended and collects it; its wait status, or -1 when it was already
// collected elsewhere.
int reap(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return status;
}

// Waits until the child ends or deadline passes. True with its wait status when it ended (it is
// then collected); false on time-out, leaving it to be killed and collected by the caller.
bool waitForExit(pid_t pid, Clock::time_point deadline, int& status) {
    Descriptor pidfd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    if (pidfd.get() >= 0) {
        for (;;) {
            auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            pollfd ready{pidfd.get(), POLLIN, 0};
            int polled = ::poll(&ready, 1, static_cast<int>(std::max<long>(left.count(), 0)));
            if (polled > 0) {
                status = reap(pid);
                return true;
            }
            if (polled == 0 || errno != EINTR) {
                return false;
            }
        }
    }
    // Kernels before 5.3, or sandboxes that forbid pidfd_open: look every few milliseconds.
    for (;;) {
        pid_t ended = ::waitpid(pid, &status, WNOHANG);
        if (ended == pid) {
            return true;
        }
        if (ended < 0 && errno != EINTR) {
            status = -1;
            return true;
        }
        if (Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

// What the pipe holds now. The script has ended, so everything it wrote is in there; anything it
// left running in the background may still hold the pipe open, but is not waited for.
std::optional<std::string> takeBuffered(int fd) {
    int available = 0;
    if (::ioctl(fd, FIONREAD, &available) < 0) {
        return std::nullopt;
    }
    std::string bytes(static_cast<std::size_t>(available), '\0');
    std::size_t got = 0;
    while (got < bytes.size()) {
        ssize_t n = ::read(fd, bytes.data() + got, bytes.size() - got);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return std::nullopt;
        }
        got += static_cast<std::size_t>(n);
    }
    return bytes;
}

ScriptResult runShell(const std::string& content, std::chrono::milliseconds limit) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return std::nullopt;
    }
    Descriptor output(ends[0]);
    Descriptor input(ends[1]);
    Clock::time_point deadline = Clock::now() + limit;
    pid_t pid = spawnShell(content, input.get());
    input.reset();
    if (pid < 0) {
        return std::nullopt;
    }

    // Standard output is read only once the script has ended. A script that writes more than the
    // pipe holds therefore blocks until the time limit and gives nothing: deliberate, as it bounds
    // what a runaway script can make the application hold.
    int status = 0;
    if (!waitForExit(pid, deadline, status)) {
        // The whole group: killing the shell alone would leave its commands (a sleep, a pipeline)
        // running on, holding the pipe open. SIGKILL because a script can ignore SIGTERM.
        ::kill(-pid, SIGKILL);
        reap(pid);
        return std::nullopt;
    }
    if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return std::nullopt;
    }
    std::optional<std::string> text = takeBuffered(output.get());
    if (!text || !text::isValidUtf8(*text)) {
        return std::nullopt;
    }
    if (!text->empty() && text->back() == '\n') {
        text->pop_back();
    }
    return text;
}

// Runs the script on a background thread and races it against the call's time limit on another.
void race(Snippet::Kind kind, std::string content, std::function<void(ScriptResult)> done,
          ScriptLimits limits) {
    auto call = std::make_shared<Call>(std::move(done));
    Clock::time_point deadline = Clock::now() + limits.call;
    try {
        std::thread([call, deadline] {
            if (!call->waitUntil(deadline)) {
                // Stop first, so that a program looping forever does not keep a core busy.
                call->javaScript().interrupt();
                call->complete(std::nullopt);
            }
        }).detach();
    } catch (const std::system_error&) {
        call->complete(std::nullopt);
        return;
    }
    try {
        std::thread([call, kind, content = std::move(content), limits] {
            ScriptResult result;
            try {
                result = kind == Snippet::Kind::javascript
                             ? runJavaScript(content, call->javaScript())
                             : runShell(content, limits.process);
            } catch (const std::exception&) {
                result = std::nullopt;
            }
            call->complete(std::move(result));
        }).detach();
    } catch (const std::system_error&) {
        call->complete(std::nullopt);
    }
}

} // namespace

void scriptOutput(Snippet::Kind kind, std::string content, const Preferences& preferences,
                  std::function<void(ScriptResult)> done, ScriptLimits limits) {
    switch (kind) {
    case Snippet::Kind::text:
        done(std::move(content));
        return;
    case Snippet::Kind::applescript:
        // There is no AppleScript here, allowed or not.
        done(std::nullopt);
        return;
    case Snippet::Kind::shell:
        if (!preferences.isOn("allowScripts")) {
            done(std::nullopt);
            return;
        }
        break;
    case Snippet::Kind::javascript:
        // Never gated: the interpreter can reach neither files nor processes.
        break;
    }
    race(kind, std::move(content), std::move(done), limits);
}

std::future<ScriptResult> scriptOutput(Snippet::Kind kind, std::string content,
                                       const Preferences& preferences, ScriptLimits limits) {
    auto promise = std::make_shared<std::promise<ScriptResult>>();
    std::future<ScriptResult> result = promise->get_future();
    scriptOutput(
        kind, std::move(content), preferences,
        [promise](ScriptResult output) { promise->set_value(std::move(output)); }, limits);
    return result;
}

std::size_t runningScripts() {
    std::lock_guard lock(runs().mutex);
    return runs().count;
}

bool waitForScripts(std::chrono::milliseconds limit) {
    std::unique_lock lock(runs().mutex);
    return runs().idle.wait_for(lock, limit, [] { return runs().count == 0; });
}

} // namespace quillet
