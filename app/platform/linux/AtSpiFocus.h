#pragma once

#include "engine/Caret.h"
#include "engine/SecureInput.h"
#include "library/Scheduler.h"

#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace quillet {

/// The object with the keyboard focus, as the accessibility bus (AT-SPI) tells it: whether it is
/// a password field (its role is "password text"), which pauses matching, and where its text
/// caret is. Two ways lead to the focused object. Qt, GTK and browsers announce
/// focus changes inside their windows on the bus (object:state-changed:focused); and whenever
/// another window comes to the front, its application is looked up on the bus by process id and
/// its focused object asked for, since an application announces only the events it has learned
/// someone listens to, which it may learn only after its first field took the focus. An
/// application not yet on the bus is looked for again for a few seconds. Each question has a
/// 0.2 s limit and the answer is kept, so nothing is asked while a key is handled. Any window
/// losing its activation clears it as well, since an application left behind does not always
/// announce that its field lost the focus.
///
/// libatspi is single-threaded, so it runs on a thread of its own, serving its connections from
/// a GLib main context of that thread's (Qt's main thread iterates GLib's default one). Answers
/// reach the main thread through the scheduler. Without an accessibility bus this reports nothing
/// and logs why, once. Applications without accessibility (plain X clients, terminals) are not
/// seen.
///
/// The caret is the focused text's character extents at its caret offset, in screen pixels; at
/// the end of the text, where there is no character, the right edge of the one before it.
class AtSpiFocus final : public SecureInput, public Caret {
public:
    /// Reports through scheduler; writes to log (may be empty) when no bus can be reached.
    AtSpiFocus(Scheduler& scheduler, std::function<void(const std::string&)> log);
    /// Stops.
    ~AtSpiFocus() override;
    AtSpiFocus(const AtSpiFocus&) = delete;
    AtSpiFocus& operator=(const AtSpiFocus&) = delete;

    /// Looks at the focus of the application with this process id (0: none known), which has
    /// just come to the front.
    void frontMoved(int pid);
    /// Names the process in front when started, for the first look.
    void setFrontProcess(std::function<int()> front) { front_ = std::move(front); }

    void start(std::function<void()> changed) override;
    void stop() override;
    bool active() const override { return active_; }
    std::string holder() const override { return active_ ? holder_ : std::string(); }

    void locate(Found found) override;

private:
    struct Listener;
    void report(bool active, std::string holder);

    Scheduler& scheduler_;
    std::function<void(const std::string&)> log_;
    std::function<void()> changed_;
    std::function<int()> front_;
    bool active_ = false;
    std::string holder_;
    bool logged_ = false;
    std::unique_ptr<Listener> listener_; // what the thread owns and stop() ends
    std::thread thread_;
    std::shared_ptr<AtSpiFocus*> alive_;
};

} // namespace quillet
