#pragma once

#include "engine/SecureInput.h"
#include "platform/x11/X11Connection.h"

#include <X11/Xlib.h>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace quillet {

/// Another X client holding the keyboard with an active grab: pinentry, polkit and sudo dialogs,
/// screen lockers, open menus. While it lasts every key goes to that client alone.
///
/// The only way to ask the server whether the keyboard is grabbed is to try to grab it, which
/// would steal keys; instead this listens. A keyboard grab that activates or ends makes the server
/// send FocusOut and FocusIn with mode NotifyGrab or NotifyUngrab, as if the focus moved from the
/// focused window to the grab window and back, even when the two are the same window, and any
/// client may select focus events on any window. So this selects them on the root window, on
/// every child of the root (window managers' frames and unmanaged windows such as lockers; new
/// ones are picked up from CreateNotify) and on the focused window, followed as it changes.
/// NotifyGrab or NotifyWhileGrabbed on any of them means a grab is active, NotifyUngrab or
/// NotifyNormal that none is. The grab window receives FocusIn with NotifyGrab, and each of its
/// ancestors below the common one with the old focus NotifyNonlinearVirtual: a child of the root
/// therefore names the grabbing client even inside a window manager's frame (its WM_CLASS class,
/// else its _NET_WM_NAME; nothing for a grab on the root window).
///
/// XInput2 focus events carry the same modes but need the same per-window selections, so they
/// add nothing. XInput2 device grabs of slave keyboards (how Quillet holds the keyboard while it
/// types) float the device and send no core focus events, so they never count.
///
/// Quillet's own passive grabs of Tab and Escape on the root window do send these events when a
/// key activates them; ownGrabs, which counts those activations up to date with the server,
/// tells them apart: a grab that begins while one of them is not yet accounted for is Quillet's.
///
/// Limits: a grab already active when this starts is noticed only at the next focus change; a
/// grab inside the focused application's own top-level window is seen but named only when that
/// window has a WM_CLASS; window managers' key bindings grab the keyboard for a moment too.
class X11SecureInput final : public SecureInput {
public:
    /// How many times Quillet's own grabs have turned active so far, including every key the
    /// server has sent until the call.
    using OwnGrabs = std::function<std::uint64_t()>;

    /// Watches through connection, which nobody else may watch; ownGrabs may be empty.
    X11SecureInput(X11Connection& connection, OwnGrabs ownGrabs);
    ~X11SecureInput() override;
    X11SecureInput(const X11SecureInput&) = delete;
    X11SecureInput& operator=(const X11SecureInput&) = delete;

    void start(std::function<void()> changed) override;
    void stop() override;
    bool active() const override { return grabbed_ && !own_; }
    std::string holder() const override { return active() ? holder_ : std::string(); }

private:
    void drainEvents();
    void focusEvent(const XFocusChangeEvent& event);
    void beginGrab();
    void follow();
    std::string nameAround(Window window);

    Display* display_;
    Window root_;
    OwnGrabs ownGrabs_;
    std::function<void()> changed_;
    bool started_ = false;
    Window followed_ = None;
    bool grabbed_ = false;
    bool own_ = false;
    std::uint64_t ownSeen_ = 0; // Quillet's grab activations whose focus events came already
    std::string holder_;
    std::shared_ptr<X11SecureInput*> alive_;
};

} // namespace quillet
