#pragma once

#include "library/Scheduler.h"

#include <X11/Xlib.h>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace quillet {

/// One Xlib connection whose events are handled on the scheduler's main thread. A watcher thread
/// only waits for the socket to become readable and asks the main thread to drain it; every Xlib
/// call on the connection therefore happens on the main thread, and no XInitThreads is needed.
class X11Connection {
public:
    /// Drains the connection: called on the main thread when data may be waiting.
    using Handler = std::function<void(Display*)>;

    /// Opens display (empty: $DISPLAY); null, with error saying why, when it cannot be opened.
    static std::unique_ptr<X11Connection> open(const std::string& display, Scheduler& scheduler,
                                               std::string& error);

    X11Connection(const X11Connection&) = delete;
    X11Connection& operator=(const X11Connection&) = delete;
    /// The scheduler whose main thread handles this connection's events.
    Scheduler& scheduler() const { return scheduler_; }
    /// Stops watching and closes the display; call on the main thread.
    ~X11Connection();

    /// The Xlib display; use it on the main thread only.
    Display* display() const { return display_; }

    /// Starts calling handler whenever the socket is readable; the handler must read every
    /// queued event (XPending/XNextEvent). Call once.
    void watch(Handler handler);

    /// Watches for owner while alive holds it: calls its handle member to drain, and once the
    /// owner is gone throws queued events away so the socket does not stay readable.
    template <typename Owner>
    void watchWhileAlive(std::weak_ptr<Owner*> alive, void (Owner::*handle)()) {
        watch([alive, handle](Display* display) {
            if (auto self = alive.lock()) {
                ((*self)->*handle)();
            } else {
                discard(display);
            }
        });
    }

    /// Throws away every event queued on display.
    static void discard(Display* display);

    /// Asks for one more drain soon: for replies and events Xlib already read into its queue
    /// during a round trip, which leave the socket quiet.
    void drainSoon();

private:
    X11Connection(Display* display, Scheduler& scheduler);
    void watchLoop();
    // Makes the watcher thread look at its flags again.
    void wakeWatcher();
    void drain();

    Display* display_;
    Scheduler& scheduler_;
    Handler handler_;
    std::thread watcher_;
    int wake_[2] = {-1, -1};
    std::atomic<bool> stopping_{false};
    std::atomic<bool> draining_{false}; // a drain is queued and has not run yet
    std::shared_ptr<X11Connection*> self_;
};

} // namespace quillet
