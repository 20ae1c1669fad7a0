#include "support/ChildProcess.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace quillet::testing {
namespace {

std::vector<std::string> environmentWith(const std::map<std::string, std::string>& changes) {
    std::vector<std::string> out;
    for (char** e = environ; *e != nullptr; ++e) {
        std::string entry = *e;
        std::string name = entry.substr(0, entry.find('='));
        if (changes.count(name) == 0) {
            out.push_back(entry);
        }
    }
    for (auto& [name, value] : changes) {
        if (!value.empty()) {
            out.push_back(name + "=" + value);
        }
    }
    return out;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> out;
    for (auto& s : strings) {
        out.push_back(s.data());
    }
    out.push_back(nullptr);
    return out;
}

// A child started with its standard streams on pipes: in (write end), out and err (read ends).
struct Spawned {
    pid_t pid = -1;
    int in = -1, out = -1, err = -1;
    int error = 0; // errno of a failed start
};

Spawned spawn(const std::vector<std::string>& args, const std::map<std::string, std::string>& env,
              bool newSession) {
    Spawned child;
    int in[2], out[2], err[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 ||
        ::pipe2(err, O_CLOEXEC) != 0) {
        child.error = errno;
        return child;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    std::vector<std::string> argStrings = args;
    std::vector<std::string> envStrings = environmentWith(env);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    if (newSession) {
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    }
    auto argv = pointers(argStrings);
    auto envp = pointers(envStrings);
    child.error =
        ::posix_spawn(&child.pid, argv[0], &actions, &attributes, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    child.in = in[1];
    child.out = out[0];
    child.err = err[0];
    // A child that died must fail the test, not kill it.
    ::signal(SIGPIPE, SIG_IGN);
    return child;
}

} // namespace

ProcessResult runProcess(const std::vector<std::string>& args, const ProcessOptions& options) {
    const std::string& stdinText = options.stdinText;
    const Spawned child = spawn(args, options.env, options.newSession);
    ProcessResult result;
    int out[2] = {child.out, -1}, err[2] = {child.err, -1}, in[2] = {-1, child.in};
    const pid_t pid = child.pid;
    if (child.error != 0) {
        for (int fd : {child.in, child.out, child.err}) {
            if (fd >= 0) {
                ::close(fd);
            }
        }
        result.err = std::strerror(child.error);
        return result;
    }
    // Feed standard input and drain both outputs together, so that no pipe fills up and stalls.
    std::size_t written = 0;
    int inFd = in[1];
    if (stdinText.empty()) {
        ::close(inFd);
        inFd = -1;
    }
    int openOutputs = 2;
    char buffer[65536];
    while (openOutputs > 0 || inFd >= 0) {
        pollfd fds[3] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}, {inFd, POLLOUT, 0}};
        if (::poll(fds, 3, -1) < 0 && errno != EINTR) {
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd >= 0 && (fds[i].revents & (POLLIN | POLLHUP | POLLERR))) {
                ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
                if (n > 0) {
                    (i == 0 ? result.out : result.err).append(buffer, static_cast<std::size_t>(n));
                } else {
                    ::close(fds[i].fd);
                    (i == 0 ? out[0] : err[0]) = -1;
                    --openOutputs;
                }
            }
        }
        if (inFd >= 0 && (fds[2].revents & (POLLOUT | POLLERR | POLLHUP))) {
            ssize_t n = ::write(inFd, stdinText.data() + written, stdinText.size() - written);
            if (n > 0) {
                written += static_cast<std::size_t>(n);
            }
            if (n <= 0 || written == stdinText.size()) {
                ::close(inFd);
                inFd = -1;
            }
        }
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

LiveProcess::LiveProcess(const std::vector<std::string>& args,
                         const std::map<std::string, std::string>& env) {
    const Spawned child = spawn(args, env, false);
    in_ = child.in;
    out_ = child.out;
    err_fd_ = child.err;
    if (child.error == 0) {
        pid_ = child.pid;
    }
}

LiveProcess::~LiveProcess() {
    if (pid_ > 0 && status_ < 0) {
        if (stop(SIGTERM, std::chrono::seconds(5)) < 0) {
            stop(SIGKILL, std::chrono::seconds(5));
        }
    }
    for (int fd : {in_, out_, err_fd_}) {
        if (fd >= 0) {
            ::close(fd);
        }
    }
}

bool LiveProcess::running() {
    if (pid_ <= 0 || status_ >= 0) {
        return false;
    }
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return false;
    }
    return true;
}

void LiveProcess::send(const std::string& line) {
    const std::string data = line + "\n";
    [[maybe_unused]] ssize_t n = ::write(in_, data.data(), data.size());
}

bool LiveProcess::fill(std::chrono::milliseconds timeout) {
    pollfd fds[2] = {{out_, POLLIN, 0}, {err_fd_, POLLIN, 0}};
    if (::poll(fds, 2, static_cast<int>(timeout.count())) <= 0) {
        return false;
    }
    char buffer[65536];
    bool got = false;
    for (int i = 0; i < 2; ++i) {
        if ((fds[i].revents & (POLLIN | POLLHUP)) == 0) {
            continue;
        }
        const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
        if (n > 0) {
            (i == 0 ? outBuffer_ : err_).append(buffer, static_cast<std::size_t>(n));
            got = true;
        }
    }
    return got;
}

std::optional<std::string> LiveProcess::readLine(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        if (auto end = outBuffer_.find('\n'); end != std::string::npos) {
            std::string line = outBuffer_.substr(0, end);
            outBuffer_.erase(0, end + 1);
            return line;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || (!fill(left) && std::chrono::steady_clock::now() >= deadline)) {
            return std::nullopt;
        }
    }
}

bool LiveProcess::waitForError(const std::string& text, std::chrono::milliseconds timeout,
                               std::size_t from) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (err_.find(text, from) == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
        fill(left);
    }
    return true;
}

int LiveProcess::stop(int signal, std::chrono::milliseconds timeout) {
    if (pid_ <= 0) {
        return -1;
    }
    if (status_ >= 0) {
        return status_;
    }
    ::kill(pid_, signal);
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        if (!running()) {
            return status_;
        }
        fill(std::chrono::milliseconds(10)); // keep the pipes from filling up
    }
    return -1;
}

} // namespace quillet::testing
