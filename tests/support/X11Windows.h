#pragma once

// Include after gtest: Xlib defines None and Bool as macros, and gtest uses both names.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <chrono>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>

namespace quillet::testing {

/// Applications of the test's own under a window manager: windows it opens, activates as a
/// taskbar would, focuses and grabs the keyboard onto.
class X11Windows {
public:
    X11Windows() : display_(XOpenDisplay(nullptr)) {}
    ~X11Windows() {
        if (display_ != nullptr) {
            XCloseDisplay(display_);
        }
    }

    Display* display() const { return display_; }
    Window root() const { return XDefaultRootWindow(display_); }

    /// Opens a window with WM_CLASS className (none when null) and title inside parent (the
    /// root when None), managed unless unmanaged; waits until it is viewable.
    Window open(const char* className, const std::string& title = "", bool unmanaged = false,
                Window parent = None) {
        XSetWindowAttributes attributes{};
        attributes.override_redirect = unmanaged ? True : False;
        const Window window =
            XCreateWindow(display_, parent != None ? parent : root(), 10, 10, 200, 100, 0,
                          CopyFromParent, InputOutput, nullptr, CWOverrideRedirect, &attributes);
        if (className != nullptr) {
            std::string instance = "quillet-test";
            std::string name = className;
            XClassHint hint{instance.data(), name.data()};
            XSetClassHint(display_, window, &hint);
        }
        if (!title.empty()) {
            XChangeProperty(display_, window, XInternAtom(display_, "_NET_WM_NAME", False),
                            XInternAtom(display_, "UTF8_STRING", False), 8, PropModeReplace,
                            reinterpret_cast<const unsigned char*>(title.data()),
                            static_cast<int>(title.size()));
        }
        XSelectInput(display_, window, StructureNotifyMask);
        XMapWindow(display_, window);
        EXPECT_TRUE(waitViewable(window)) << (className != nullptr ? className : "child");
        settle();
        return window;
    }

    /// Asks the window manager to activate window, as a taskbar does.
    void activate(Window window) {
        sendToRoot(window, "_NET_ACTIVE_WINDOW", 2); // 2: a pager, spared focus-stealing checks
        settle();
    }

    /// Gives window the input focus directly, as an application does for itself.
    void focus(Window window) {
        XSetInputFocus(display_, window, RevertToParent, CurrentTime);
        settle();
    }

    void close(Window window) {
        XDestroyWindow(display_, window);
        XSync(display_, False);
    }

    /// Grabs the keyboard onto window, as soon as the server lets it.
    void grab(Window window) {
        int status = GrabSuccess;
        for (int tries = 0; tries < 500; ++tries) {
            status =
                XGrabKeyboard(display_, window, False, GrabModeAsync, GrabModeAsync, CurrentTime);
            XSync(display_, False);
            if (status == GrabSuccess) {
                return;
            }
        }
        ADD_FAILURE() << "the keyboard could not be grabbed: " << status;
    }

    void ungrab() {
        XUngrabKeyboard(display_, CurrentTime);
        XSync(display_, False);
    }

    /// Taps a key on XTEST's keyboard.
    void tap(KeySym key) {
        const unsigned keycode = XKeysymToKeycode(display_, key);
        XTestFakeKeyEvent(display_, keycode, True, CurrentTime);
        XTestFakeKeyEvent(display_, keycode, False, CurrentTime);
        XSync(display_, False);
    }

    /// Waits until a window manager runs: it lists the clients it manages on the root window.
    bool waitForWindowManager() {
        XSelectInput(display_, root(), PropertyChangeMask);
        return waitUntil([&] { return hasProperty(root(), "_NET_CLIENT_LIST"); });
    }

private:
    void sendToRoot(Window window, const char* message, long first) {
        XEvent event{};
        event.xclient.type = ClientMessage;
        event.xclient.window = window;
        event.xclient.message_type = XInternAtom(display_, message, False);
        event.xclient.format = 32;
        event.xclient.data.l[0] = first;
        XSendEvent(display_, root(), False, SubstructureRedirectMask | SubstructureNotifyMask,
                   &event);
    }

    /// Waits until the window manager has handled everything sent so far, focus included, or
    /// it may act on an earlier request after the test has moved on. It answers in order, so
    /// the answer to a request for frame extents marks the point.
    void settle() {
        if (probe_ == None) {
            probe_ = XCreateSimpleWindow(display_, root(), 0, 0, 1, 1, 0, 0, 0);
            XSelectInput(display_, probe_, PropertyChangeMask);
        }
        XDeleteProperty(display_, probe_, XInternAtom(display_, "_NET_FRAME_EXTENTS", False));
        sendToRoot(probe_, "_NET_REQUEST_FRAME_EXTENTS", 0);
        EXPECT_TRUE(waitUntil([&] { return hasProperty(probe_, "_NET_FRAME_EXTENTS"); }));
    }

    bool hasProperty(Window window, const char* name) {
        Atom type = None;
        int format = 0;
        unsigned long count = 0, after = 0;
        unsigned char* data = nullptr;
        XGetWindowProperty(display_, window, XInternAtom(display_, name, False), 0, 0, False,
                           AnyPropertyType, &type, &format, &count, &after, &data);
        if (data != nullptr) {
            XFree(data);
        }
        return type != None;
    }

    // Checks after each batch of events, or every 100 ms, for at most 10 s.
    template <typename Done> bool waitUntil(Done done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < deadline) {
            if (done()) {
                return true;
            }
            pollfd fd{XConnectionNumber(display_), POLLIN, 0};
            poll(&fd, 1, 100);
            for (XEvent event; XPending(display_) > 0;) {
                XNextEvent(display_, &event);
            }
        }
        return false;
    }

    bool waitViewable(Window window) {
        // Openbox loses map requests that come while it is still starting, so one left
        // unanswered for a while is made again.
        auto again = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
        return waitUntil([&] {
            XWindowAttributes attributes{};
            if (XGetWindowAttributes(display_, window, &attributes) != 0 &&
                attributes.map_state == IsViewable) {
                return true;
            }
            if (std::chrono::steady_clock::now() > again) {
                XMapWindow(display_, window);
                again = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
            }
            return false;
        });
    }

    Display* display_;
    Window probe_ = None;
};

} // namespace quillet::testing
