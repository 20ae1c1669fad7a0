#include "platform/linux/TerminalPrompt.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <termios.h>
#include <unistd.h>

namespace quillet {
namespace {

// Longer answers are refused rather than cut, so a pasted wall of text is never half-used.
constexpr std::size_t maximumAnswer = 4096;

constexpr std::array<int, 5> interrupting{SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};

volatile std::sig_atomic_t caughtSignal = 0;

extern "C" void noteSignal(int signal) {
    caughtSignal = signal;
}

void writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        ssize_t written = ::write(fd, text.data(), text.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

void wipe(std::string& s) {
    ::explicit_bzero(s.data(), s.size());
    s.clear();
}

// While echo is off, a signal that ends or stops the process would leave the terminal silent;
// the handlers only note the signal so the terminal is restored before it takes effect.
class QuietTerminal {
public:
    explicit QuietTerminal(int fd) : fd_(fd) {
        if (::tcgetattr(fd_, &saved_) != 0) {
            return;
        }
        caughtSignal = 0;
        struct sigaction action {};
        action.sa_handler = noteSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = 0; // no SA_RESTART: the read must return to notice the signal
        for (std::size_t i = 0; i < interrupting.size(); ++i) {
            ::sigaction(interrupting[i], &action, &previous_[i]);
        }
        termios quiet = saved_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHOE | ECHOK);
        quiet.c_lflag |= ECHONL; // the Enter key still moves to the next line
        active_ = ::tcsetattr(fd_, TCSAFLUSH, &quiet) == 0;
        if (!active_) {
            restoreHandlers();
        }
    }
    QuietTerminal(const QuietTerminal&) = delete;
    QuietTerminal& operator=(const QuietTerminal&) = delete;
    ~QuietTerminal() { restore(); }

    bool active() const { return active_; }

    // Restores echo and the signal handlers, then delivers a signal that arrived meanwhile.
    void restore() {
        if (!active_) {
            return;
        }
        active_ = false;
        ::tcsetattr(fd_, TCSAFLUSH, &saved_);
        restoreHandlers();
        if (int signal = caughtSignal; signal != 0) {
            caughtSignal = 0;
            ::raise(signal);
        }
    }

private:
    void restoreHandlers() {
        for (std::size_t i = 0; i < interrupting.size(); ++i) {
            ::sigaction(interrupting[i], &previous_[i], nullptr);
        }
    }

    int fd_;
    termios saved_{};
    std::array<struct sigaction, interrupting.size()> previous_{};
    bool active_ = false;
};

// One line from the terminal without its line end; nothing at end of input, on an error, on a
// signal, or when the line is too long.
std::optional<std::string> readLine(int fd) {
    std::string line;
    bool tooLong = false;
    for (;;) {
        char c = 0;
        ssize_t got = ::read(fd, &c, 1);
        if (got < 0 && errno == EINTR && caughtSignal == 0) {
            continue;
        }
        if (got <= 0) {
            wipe(line);
            return std::nullopt;
        }
        if (c == '\n') {
            break;
        }
        if (line.size() >= maximumAnswer) {
            tooLong = true;
            continue;
        }
        line.push_back(c);
    }
    if (tooLong) {
        wipe(line);
        return std::nullopt;
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
}

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    int get() const { return fd_; }

private:
    int fd_;
};

} // namespace

std::optional<std::string> TerminalPrompt::operator()(const AuthQuestion& question) const {
    Descriptor tty(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (tty.get() < 0) {
        return std::nullopt;
    }
    if (question.kind == AuthQuestion::Kind::notice || question.kind == AuthQuestion::Kind::error) {
        std::string text = question.text;
        if (text.empty() || text.back() != '\n') {
            text += '\n';
        }
        writeAll(tty.get(), text);
        return std::string();
    }

    std::string ask;
    if (!question.reason.empty()) {
        ask = "Quillet is trying to " + question.reason + ".\n";
    }
    ask += question.text.empty() ? "Password: " : question.text;

    if (question.kind == AuthQuestion::Kind::visible) {
        writeAll(tty.get(), ask);
        return readLine(tty.get());
    }
    // Echo goes off before the question appears: switching it flushes pending input, which
    // would drop an answer typed as soon as the question showed.
    QuietTerminal quiet(tty.get());
    if (!quiet.active()) {
        // Asking for a secret with echo on would show it; refuse instead.
        return std::nullopt;
    }
    writeAll(tty.get(), ask);
    auto answer = readLine(tty.get());
    quiet.restore();
    return answer;
}

} // namespace quillet
