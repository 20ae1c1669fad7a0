// gtest first: Xlib defines None and Bool as macros, and gtest uses both names.
#include <gtest/gtest.h>

// Everything below may include Xlib.
#include "platform/x11/X11FrontApplication.h"
#include "support/X11Clients.h"

namespace quillet {
namespace {

using namespace std::chrono_literals;

class Front : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(clients.display(), nullptr) << "no X display";
        ASSERT_TRUE(clients.waitForWindowManager());
        connection = testing::openOwn(loop);
        front = std::make_unique<X11FrontApplication>(*connection);
        front->setOnChange([this] { reported.push_back(front->id()); });
    }

    // Runs the loop until the application in front is id.
    bool inFront(const std::string& id) {
        return loop.runUntil([&] { return front->id() == id; }, 10s);
    }

    testing::X11Windows clients;
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
    EXPECT_EQ(X11FrontApplication(*testing::openOwn(loop)).id(), "Beta");
}

TEST_F(Front, ListsTheApplicationsWithAWindowEachOnceAndNoUnmanagedPopups) {
    const Window first = clients.open("Gamma");
    clients.open("Delta");
    clients.open("Gamma");
    clients.open("Tooltip", "", true);
    const std::vector<std::string> expected = {"Delta", "Gamma"};
    // The window manager lists a window once it manages it, a moment after it shows.
    EXPECT_TRUE(loop.runUntil([&] { return front->running() == expected; }, 10s))
        << ::testing::PrintToString(front->running());
    clients.close(first);
    EXPECT_EQ(front->running(), expected) << "the other Gamma window is still open";
}

TEST_F(Front, AFocusedWindowWithoutClassIsNamedByItsNearestAncestorWithOne) {
    const Window beta = clients.open("Beta");
    clients.activate(beta);
    ASSERT_TRUE(inFront("Beta"));

    // A popup the window manager does not manage: the active window goes, and the input focus
    // is on a child window that has no WM_CLASS of its own.
    const Window popup = clients.open("Popup", "", true);
    const Window inner = clients.open(nullptr, "", false, popup);
    const Window innermost = clients.open(nullptr, "", false, inner);
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
