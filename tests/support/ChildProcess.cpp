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

} // namespace

ProcessResult runProcess(const std::vector<std::string>& args, const ProcessOptions& options) {
    const std::string& stdinText = options.stdinText;
    int in[2], out[2], err[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 ||
        ::pipe2(err, O_CLOEXEC) != 0) {
        return {};
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    std::vector<std::string> argStrings = args;
    std::vector<std::string> envStrings = environmentWith(options.env);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    if (options.newSession) {
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    }
    auto argv = pointers(argStrings);
    auto envp = pointers(envStrings);
    pid_t pid = -1;
    int spawned = ::posix_spawn(&pid, argv[0], &actions, &attributes, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    ProcessResult result;
    if (spawned != 0) {
        ::close(in[1]);
        ::close(out[0]);
        ::close(err[0]);
        result.err = std::strerror(spawned);
        return result;
    }
    // Feed standard input and drain both outputs together, so that no pipe fills up and stalls.
    ::signal(SIGPIPE, SIG_IGN);
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

} // namespace quillet::testing
