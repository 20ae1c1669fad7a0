#include "platform/x11/X11Connection.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace quillet {

std::unique_ptr<X11Connection> X11Connection::open(const std::string& display, Scheduler& scheduler,
                                                   std::string& error) {
    Display* d = XOpenDisplay(display.empty() ? nullptr : display.c_str());
    if (d == nullptr) {
        const char* name = display.empty() ? XDisplayName(nullptr) : display.c_str();
        error = std::string("Cannot open the X display \"") + (name ? name : "") + "\".";
        return nullptr;
    }
    return std::unique_ptr<X11Connection>(new X11Connection(d, scheduler));
}

X11Connection::X11Connection(Display* display, Scheduler& scheduler)
    : display_(display), scheduler_(scheduler), self_(std::make_shared<X11Connection*>(this)) {
    if (pipe2(wake_, O_CLOEXEC | O_NONBLOCK) != 0) {
        wake_[0] = wake_[1] = -1;
    }
}

X11Connection::~X11Connection() {
    self_.reset();
    stopping_ = true;
    wakeWatcher();
    if (watcher_.joinable()) {
        watcher_.join();
    }
    for (int fd : wake_) {
        if (fd >= 0) {
            close(fd);
        }
    }
    XCloseDisplay(display_);
}

void X11Connection::wakeWatcher() {
    if (wake_[1] >= 0) {
        const char byte = 0;
        [[maybe_unused]] const ssize_t n = write(wake_[1], &byte, 1); // full: it is awake anyway
    }
}

void X11Connection::watch(Handler handler) {
    handler_ = std::move(handler);
    watcher_ = std::thread([this] { watchLoop(); });
    drainSoon(); // events may already be queued from the set-up's round trips
}

void X11Connection::discard(Display* display) {
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
    }
}

void X11Connection::drainSoon() {
    if (draining_.exchange(true)) {
        return;
    }
    std::weak_ptr<X11Connection*> alive = self_;
    scheduler_.post([alive] {
        if (auto self = alive.lock()) {
            (*self)->drain();
        }
    });
}

void X11Connection::drain() {
    draining_ = false;
    wakeWatcher(); // it watches the socket again from now on
    if (handler_) {
        handler_(display_);
    }
    XFlush(display_);
    // A handler's own round trips may have read events that the socket no longer shows.
    if (XQLength(display_) > 0) {
        drainSoon();
    }
}

void X11Connection::watchLoop() {
    const int fd = ConnectionNumber(display_);
    while (!stopping_) {
        // While a drain is queued the socket stays readable until the main thread reads it:
        // then only the wake pipe is watched, which the drain writes to once it ran, so the
        // thread neither spins nor wakes on a timer.
        const bool queued = draining_;
        pollfd fds[2] = {{wake_[0], POLLIN, 0}, {fd, POLLIN, 0}};
        const int n = poll(fds, queued ? 1 : 2, -1);
        if (stopping_ || (n < 0 && errno != EINTR)) {
            return;
        }
        if (n > 0 && (fds[0].revents & POLLIN) != 0) {
            char bytes[64];
            while (read(wake_[0], bytes, sizeof bytes) > 0) {
            }
        }
        if (!queued && n > 0 && (fds[1].revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
            drainSoon();
        }
    }
}

} // namespace quillet
