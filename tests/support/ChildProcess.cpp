#include "support/ChildProcess.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

extern char** environ;

namespace quillet::testing {
namespace {

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> out;
    for (auto& s : strings) {
        out.push_back(s.data());
    }
    out.push_back(nullptr);
    return out;
}

int statusOf(int wait) {
    return WIFEXITED(wait) ? WEXITSTATUS(wait) : 128 + WTERMSIG(wait);
}

} // namespace

ProcessResult runProcess(const std::vector<std::string>& args, const ProcessOptions& options) {
    LiveProcess child(args, options.env, options.newSession);
    ProcessResult result;
    if (child.pid_ <= 0) {
        result.err = std::strerror(child.startError_);
        return result;
    }
    // Standard input is fed on a thread of its own while both outputs are drained here, so that
    // no pipe fills up and stalls.
    std::thread feeder([fd = std::exchange(child.in_, -1), &input = options.stdinText] {
        for (std::size_t written = 0; written < input.size();) {
            const ssize_t n = ::write(fd, input.data() + written, input.size() - written);
            if (n <= 0) {
                break;
            }
            written += static_cast<std::size_t>(n);
        }
        ::close(fd);
    });
    while (child.out_ >= 0 || child.errFd_ >= 0) {
        child.fill(std::chrono::hours(1));
    }
    feeder.join();
    int wait = 0;
    while (::waitpid(child.pid_, &wait, 0) < 0 && errno == EINTR) {
    }
    child.status_ = result.status = statusOf(wait);
    result.out = std::move(child.outBuffer_);
    result.err = std::move(child.err_);
    return result;
}

LiveProcess::LiveProcess(const std::vector<std::string>& args,
                         const std::map<std::string, std::string>& env, bool newSession) {
    int in[2], out[2], err[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 ||
        ::pipe2(err, O_CLOEXEC) != 0) {
        startError_ = errno;
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    if (newSession) {
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    }
    // The parent's environment with env's changes; an empty value removes the variable.
    std::vector<std::string> argStrings = args, envStrings;
    for (char** e = environ; *e != nullptr; ++e) {
        const std::string entry = *e;
        if (env.count(entry.substr(0, entry.find('='))) == 0) {
            envStrings.push_back(entry);
        }
    }
    for (auto& [name, value] : env) {
        if (!value.empty()) {
            envStrings.push_back(name + "=" + value);
        }
    }
    auto argv = pointers(argStrings);
    auto envp = pointers(envStrings);
    pid_t pid = -1;
    startError_ = ::posix_spawn(&pid, argv[0], &actions, &attributes, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    for (int fd : {in[0], out[1], err[1]}) {
        ::close(fd);
    }
    in_ = in[1];
    out_ = out[0];
    errFd_ = err[0];
    pid_ = startError_ == 0 ? pid : -1;
    // A child that died must fail the test, not kill it.
    ::signal(SIGPIPE, SIG_IGN);
}

LiveProcess::~LiveProcess() {
    if (pid_ > 0 && status_ < 0 && stop(SIGTERM, std::chrono::seconds(5)) < 0) {
        stop(SIGKILL, std::chrono::seconds(5));
    }
    for (int fd : {in_, out_, errFd_}) {
        if (fd >= 0) {
            ::close(fd);
        }
    }
}

bool LiveProcess::running() {
    int wait = 0;
    if (pid_ > 0 && status_ < 0 && ::waitpid(pid_, &wait, WNOHANG) == pid_) {
        status_ = statusOf(wait);
    }
    return pid_ > 0 && status_ < 0;
}

void LiveProcess::send(const std::string& line) {
    const std::string data = line + "\n";
    [[maybe_unused]] ssize_t n = ::write(in_, data.data(), data.size());
}

bool LiveProcess::fill(std::chrono::milliseconds timeout) {
    pollfd fds[2] = {{out_, POLLIN, 0}, {errFd_, POLLIN, 0}};
    if (::poll(fds, 2, static_cast<int>(timeout.count())) <= 0) {
        return false;
    }
    char buffer[65536];
    bool got = false;
    for (int i = 0; i < 2; ++i) {
        if (fds[i].fd < 0 || (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) == 0) {
            continue;
        }
        const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
        if (n > 0) {
            (i == 0 ? outBuffer_ : err_).append(buffer, static_cast<std::size_t>(n));
            got = true;
        } else {
            ::close(fds[i].fd); // the end of that output
            (i == 0 ? out_ : errFd_) = -1;
        }
    }
    return got;
}

bool LiveProcess::fillUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
        fill(std::min(left, std::chrono::milliseconds(10))); // a child that ended closes nothing
    }
    return true;
}

std::optional<std::string> LiveProcess::readLine(std::chrono::milliseconds timeout) {
    if (!fillUntil([&] { return outBuffer_.find('\n') != std::string::npos; }, timeout)) {
        return std::nullopt;
    }
    const std::size_t end = outBuffer_.find('\n');
    std::string line = outBuffer_.substr(0, end);
    outBuffer_.erase(0, end + 1);
    return line;
}

bool LiveProcess::waitForError(const std::string& text, std::chrono::milliseconds timeout,
                               std::size_t from) {
    return fillUntil([&] { return err_.find(text, from) != std::string::npos; }, timeout);
}

int LiveProcess::stop(int signal, std::chrono::milliseconds timeout) {
    if (pid_ > 0 && status_ < 0) {
        ::kill(pid_, signal);
        fillUntil([&] { return !running(); }, timeout); // reading keeps the pipes from filling
    }
    return pid_ > 0 ? status_ : -1;
}

} // namespace quillet::testing
