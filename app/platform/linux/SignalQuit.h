#pragma once

#include <csignal>
#include <functional>
#include <thread>

namespace quillet {

/// Ends the application on SIGINT, SIGTERM or SIGHUP through quit, called on a thread of its
/// own that takes the signals with sigwait: the main loop then ends in order and everything is
/// torn down on the main thread, so the user's clipboard and the keyboard mapping are given back
/// before the process ends. Make it before any other thread starts, so all of them block the
/// signals.
class SignalQuit {
public:
    /// Calls quit (from another thread) on the first of the signals; log names it.
    SignalQuit(std::function<void()> quit, std::function<void(int signal)> log);
    ~SignalQuit();
    SignalQuit(const SignalQuit&) = delete;
    SignalQuit& operator=(const SignalQuit&) = delete;

private:
    sigset_t set_;
    std::thread thread_;
};

} // namespace quillet
