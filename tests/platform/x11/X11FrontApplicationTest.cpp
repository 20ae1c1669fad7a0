// gtest first: Xlib defines None and Bool as macros, and gtest uses both names.
#include <gtest/gtest.h>

// Everything below may include Xlib.
#include "library/RunLoop.h"
#include "platform/x11/X11FrontApplication.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <chrono>
#include <poll.h>
#include <string>
#include <vector>

namespace quillet {
namespace {

using namespace std::chrono_literals;

// Applications of the test's own: windows it opens, and activates as a pager or taskbar would.
class Clients {
public:
    Clients() : display_(XOpenDisplay(nullptr)) {}
    ~Clients() {
        if (display_ != nullptr) {
            XCloseDisplay(display_);
        }
    }

    Display* display() const { return display_; }

    /// Opens a window with WM_CLASS className (none when null) inside parent (the root window
    /// when None), managed by the window manager unless unmanaged; waits until it is viewable.
    Window open(const char* className, Window parent = None, bool unmanaged = false) {
        XSetWindowAttributes attributes{};
        attributes.override_redirect = unmanaged ? True : False;
        const Window window = XCreateWindow(
            display_, parent != None ? parent : XDefaultRootWindow(display_), 10, 10, 200, 100, 0,
            CopyFromParent, InputOutput, nullptr, CWOverrideRedirect, &attributes);
        if (className != nullptr) {
            std::string instance = "quillet-test";
            std::string name = className;
            XClassHint hint{instance.data(), name.data()};
            XSetClassHint(display_, window, &hint);
        }
        XSelectInput(display_, window, StructureNotifyMask);
        XMapWindow(display_, window);
        EXPECT_TRUE(waitViewable(window)) << (className != nullptr ? className : "child");
        settle();
        return window;
    }

    /// Asks the window manager to activate window, as a taskbar does.
    void activate(Window window) {
        XEvent event{};
        event.xclient.type = ClientMessage;
        event.xclient.window = window;
        event.xclient.message_type = XInternAtom(display_, "_NET_ACTIVE_WINDOW", False);
        event.xclient.format = 32;
        event.xclient.data.l[0] = 2; // from a pager: honoured without focus-stealing checks
        event.xclient.data.l[1] = CurrentTime;
        XSendEvent(display_, XDefaultRootWindow(display_), False,
                   SubstructureRedirectMask | SubstructureNotifyMask, &event);
        settle();
    }

    /// Gives window the input focus directly, as an application does for itself.
    void focus(Window window) {
        XSetInputFocus(display_, window, RevertToParent, CurrentTime);
        settle();
    }

    /// Waits until a window manager runs: it lists the clients it manages on the root window.
    bool waitForWindowManager() {
        const Window root = XDefaultRootWindow(display_);
        XSelectInput(display_, root, PropertyChangeMask);
        return waitUntil([&] { return hasProperty(root, "_NET_CLIENT_LIST"); });
    }

private:
    /// Waits until the window manager has handled everything sent so far, focus events
    /// included: otherwise it may still act on an earlier request (focusing a window it has
    /// just mapped) after the test has moved on. It answers requests in order, so a request
    /// for frame extents, answered by setting a property, marks the point.
    void settle() {
        if (probe_ == None) {
            probe_ =
                XCreateSimpleWindow(display_, XDefaultRootWindow(display_), 0, 0, 1, 1, 0, 0, 0);
            XSelectInput(display_, probe_, PropertyChangeMask);
        }
        const Atom extents = XInternAtom(display_, "_NET_FRAME_EXTENTS", False);
        XDeleteProperty(display_, probe_, extents);
        XEvent event{};
        event.xclient.type = ClientMessage;
        event.xclient.window = probe_;
        event.xclient.message_type = XInternAtom(display_, "_NET_REQUEST_FRAME_EXTENTS", False);
        event.xclient.format = 32;
        XSendEvent(display_, XDefaultRootWindow(display_), False,
                   SubstructureRedirectMask | SubstructureNotifyMask, &event);
        EXPECT_TRUE(waitUntil([&] { return hasProperty(probe_, "_NET_FRAME_EXTENTS"); }));
    }

    bool hasProperty(Window window, const char* name) {
        Atom type = None;
        int format = 0;
        unsigned long count = 0;
        unsigned long after = 0;
        unsigned char* data = nullptr;
        XGetWindowProperty(display_, window, XInternAtom(display_, name, False), 0, 0, False,
                           AnyPropertyType, &type, &format, &count, &after, &data);
        if (data != nullptr) {
            XFree(data);
        }
        return type != None;
    }

    // Checks done after each batch of events, or every 100 ms, for at most 10 s.
    template <typename Done> bool waitUntil(Done done) {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (std::chrono::steady_clock::now() < deadline) {
            if (done()) {
                return true;
            }
            pollfd fd{XConnectionNumber(display_), POLLIN, 0};
            poll(&fd, 1, 100);
            while (XPending(display_) > 0) {
                XEvent event;
                XNextEvent(display_, &event);
            }
        }
        return false;
    }

    bool waitViewable(Window window) {
        // The window manager maps it after reparenting it. Openbox loses map requests that
        // come while it is still starting, so one left unanswered for a while is made again.
        auto again = std::chrono::steady_clock::now() + 500ms;
        return waitUntil([&] {
            XWindowAttributes attributes{};
            if (XGetWindowAttributes(display_, window, &attributes) != 0 &&
                attributes.map_state == IsViewable) {
                return true;
            }
            if (std::chrono::steady_clock::now() > again) {
                XMapWindow(display_, window);
                again = std::chrono::steady_clock::now() + 500ms;
            }
            return false;
        });
    }

    Display* display_;
    Window probe_ = None;
};

class Front : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(clients.display(), nullptr) << "no X display";
        ASSERT_TRUE(clients.waitForWindowManager());
        std::string error;
        connection = X11Connection::open("", loop, error);
        ASSERT_TRUE(connection) << error;
        front = std::make_unique<X11FrontApplication>(*connection);
        front->setOnChange([this] { reported.push_back(front->id()); });
    }

    // Runs the loop until the application in front is id.
    bool inFront(const std::string& id) {
        return loop.runUntil([&] { return front->id() == id; }, 10s);
    }

    Clients clients;
    RunLoop loop;
    std::unique_ptr<X11Connection> connection;
    std::unique_ptr<X11FrontApplication> front;
    std::vector<std::string> reported; // the id at each call of the change handler
};

TEST_F(Front, FollowsTheActiveWindowAndCallsOnlyWhenTheApplicationChanges) {
    const Window alpha = clients.open("Alpha");
    clients.activate(alpha);
    ASSERT_TRUE(inFront("Alpha"));
    const Window beta = clients.open("Beta");
    clients.activate(beta);
    ASSERT_TRUE(inFront("Beta"));
    EXPECT_EQ(front->windowClass(), "Beta");

    clients.focus(alpha); // an application taking the focus itself
    ASSERT_TRUE(inFront("Alpha"));
    // Another window of the same application is no change; Beta afterwards is one.
    const Window alpha2 = clients.open("Alpha");
    clients.activate(alpha2);
    clients.activate(alpha);
    clients.activate(beta);
    ASSERT_TRUE(inFront("Beta"));
    const std::vector<std::string> expected = {"Alpha", "Beta", "Alpha", "Beta"};
    EXPECT_EQ(std::vector<std::string>(reported.end() - 4, reported.end()), expected);
    for (std::size_t i = 1; i < reported.size(); ++i) {
        EXPECT_NE(reported[i], reported[i - 1]) << "called without a change at " << i;
    }

    // A new observer knows at once, without waiting for an event.
    std::string error;
    auto other = X11Connection::open("", loop, error);
    ASSERT_TRUE(other) << error;
    EXPECT_EQ(X11FrontApplication(*other).id(), "Beta");
}

TEST_F(Front, AFocusedWindowWithoutClassIsNamedByItsNearestAncestorWithOne) {
    const Window beta = clients.open("Beta");
    clients.activate(beta);
    ASSERT_TRUE(inFront("Beta"));

    // A popup the window manager does not manage: the active window goes, and the input focus
    // is on a child window that has no WM_CLASS of its own.
    const Window popup = clients.open("Popup", None, true);
    const Window inner = clients.open(nullptr, popup);
    const Window innermost = clients.open(nullptr, inner);
    clients.focus(innermost);
    ASSERT_TRUE(inFront("Popup"));

    clients.focus(beta);
    ASSERT_TRUE(inFront("Beta"));
    XDestroyWindow(clients.display(), popup);
    XFlush(clients.display());
    clients.activate(beta);
    ASSERT_TRUE(inFront("Beta"));
}

} // namespace
} // namespace quillet
