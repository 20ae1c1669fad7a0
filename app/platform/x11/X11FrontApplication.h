#pragma once

#include "engine/FrontApplication.h"
#include "library/Scheduler.h"
#include "platform/x11/X11Connection.h"

#include <X11/Xlib.h>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace quillet {

/// The application in front on X11: the WM_CLASS class of the active window (_NET_ACTIVE_WINDOW)
/// or, when the window manager keeps no such property or none runs, of the window with the
/// input focus or its nearest ancestor that has a WM_CLASS. Changes are followed through events,
/// never by polling: the root window's _NET_ACTIVE_WINDOW, and focus changes on the focused
/// window. Windows of other clients may vanish at any moment; the queries on them go through
/// XCB, whose errors come back to the caller instead of ending the process.
class X11FrontApplication final : public FrontApplication {
public:
    /// Follows the front application through connection, which it watches: nobody else may.
    explicit X11FrontApplication(X11Connection& connection);
    ~X11FrontApplication() override;
    X11FrontApplication(const X11FrontApplication&) = delete;
    X11FrontApplication& operator=(const X11FrontApplication&) = delete;

    std::string id() const override { return id_; }
    void setOnChange(std::function<void()> changed) override { changed_ = std::move(changed); }
    /// The classes of the windows the window manager lists (_NET_CLIENT_LIST) or, without one,
    /// of the top-level windows on screen.
    std::vector<std::string> running() const override;

    /// The WM_CLASS class of the window in front, the same as id().
    std::string windowClass() const { return id_; }

    /// Calls moved with the process id of the window in front (_NET_WM_PID; 0 when it names
    /// none) whenever another window comes to the front, even of the same application; an
    /// empty function stops the calls.
    void setOnWindowChange(std::function<void(int pid)> moved) { moved_ = std::move(moved); }
    /// The process id of the window in front; 0 when unknown.
    int frontProcess() { return processOf(window_); }

    /// The window in front (the one with the class); None when unknown.
    Window frontWindow() const { return window_; }
    /// Asks the window manager (or, without one, the server) to give window the focus, and
    /// calls done once it is in front (true), or after a second or when it is gone (false).
    void refocus(Window window, std::function<void(bool back)> done);

private:
    struct Front {
        std::string id;
        Window window = None; // the window that has the class
    };

    void drainEvents();
    void refresh();
    Front resolve();
    void follow(Window focus);
    int processOf(Window window);

    void endRefocus(bool back);

    Scheduler& scheduler_;
    Display* display_;
    Window root_;
    Atom activeAtom_;
    Atom pidAtom_;
    Window followed_ = None; // the focused window whose focus changes are selected
    std::string id_;
    Window window_ = None;
    std::function<void()> changed_;
    std::function<void(int)> moved_;
    Window refocusing_ = None;
    std::function<void(bool)> refocused_;
    std::uint64_t refocusTimer_ = 0;
    std::shared_ptr<X11FrontApplication*> alive_; // what the connection's handler looks for
};

} // namespace quillet
