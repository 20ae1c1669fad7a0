#include "platform/linux/SignalQuit.h"

#include <pthread.h>

namespace quillet {

SignalQuit::SignalQuit(std::function<void()> quit, std::function<void(int signal)> log) {
    sigemptyset(&set_);
    // SIGUSR1 is how the destructor ends the waiting thread.
    for (int s : {SIGINT, SIGTERM, SIGHUP, SIGUSR1}) {
        sigaddset(&set_, s);
    }
    pthread_sigmask(SIG_BLOCK, &set_, nullptr);
    thread_ = std::thread([this, quit = std::move(quit), log = std::move(log)] {
        int signal = 0;
        sigwait(&set_, &signal);
        if (signal != SIGUSR1) {
            if (log) {
                log(signal);
            }
            quit();
        }
    });
}

SignalQuit::~SignalQuit() {
    pthread_kill(thread_.native_handle(), SIGUSR1);
    thread_.join();
}

} // namespace quillet
