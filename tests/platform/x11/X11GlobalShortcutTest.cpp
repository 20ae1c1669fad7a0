// gtest first: Xlib defines None and Bool as macros, and gtest uses both names.
#include <gtest/gtest.h>

// Everything below may include Xlib.
#include "library/RunLoop.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11GlobalShortcut.h"
#include "platform/x11/X11Locks.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <chrono>

namespace quillet {
namespace {

using namespace std::chrono_literals;

// Presses keys through XTEST, as any keyboard would, on a connection of the test's own.
struct Keys {
    Display* display = XOpenDisplay(nullptr);
    ~Keys() { XCloseDisplay(display); }
    void chord(std::initializer_list<KeySym> keys) {
        for (KeySym key : keys) {
            XTestFakeKeyEvent(display, XKeysymToKeycode(display, key), True, CurrentTime);
        }
        for (auto key = std::rbegin(keys); key != std::rend(keys); ++key) {
            XTestFakeKeyEvent(display, XKeysymToKeycode(display, *key), False, CurrentTime);
        }
        XSync(display, False);
    }
};

TEST(X11GlobalShortcut, TheBoundStrokeCallsWhateverLocksAreOnAndOnlyIt) {
    RunLoop loop;
    std::string error;
    auto connection = X11Connection::open("", loop, error);
    ASSERT_TRUE(connection) << error;
    X11GlobalShortcut shortcut(*connection);
    int pressed = 0;
    ASSERT_TRUE(shortcut.bind(
        "super+period", [&] { ++pressed; }, error))
        << error;
    Keys keys;
    keys.chord({XK_Super_L, XK_period});
    EXPECT_TRUE(loop.runUntil([&] { return pressed == 1; }, 5s));
    // With Num Lock and Caps Lock on.
    const unsigned locks = LockMask | modifierMaskOf(keys.display, XK_Num_Lock);
    XkbLockModifiers(keys.display, XkbUseCoreKbd, locks, locks);
    keys.chord({XK_Super_L, XK_period});
    EXPECT_TRUE(loop.runUntil([&] { return pressed == 2; }, 5s));
    XkbLockModifiers(keys.display, XkbUseCoreKbd, locks, 0);
    // Period alone, or with another modifier, is the application's.
    keys.chord({XK_period});
    keys.chord({XK_Control_L, XK_period});
    keys.chord({XK_Super_L, XK_period}); // a marker: nothing came before it
    EXPECT_TRUE(loop.runUntil([&] { return pressed == 3; }, 5s));
    loop.runFor(50ms);
    EXPECT_EQ(pressed, 3);

    shortcut.unbind();
    keys.chord({XK_Super_L, XK_period});
    loop.runFor(100ms);
    EXPECT_EQ(pressed, 3);
}

TEST(X11GlobalShortcut, AStrokeTakenOrUnknownIsRefusedInWords) {
    RunLoop loop;
    std::string error;
    auto connection = X11Connection::open("", loop, error);
    auto other = X11Connection::open("", loop, error);
    ASSERT_TRUE(connection && other) << error;
    X11GlobalShortcut shortcut(*connection);
    X11GlobalShortcut first(*other);
    ASSERT_TRUE(first.bind(
        "ctrl+alt+k", [] {}, error))
        << error;
    EXPECT_FALSE(shortcut.bind(
        "ctrl+alt+k", [] {}, error));
    EXPECT_EQ(error, "Another application already uses ctrl+alt+k.");
    EXPECT_FALSE(shortcut.bind(
        "super+nosuchkey", [] {}, error));
    EXPECT_EQ(error, "\"super+nosuchkey\" is not a key this keyboard has.");
    EXPECT_FALSE(shortcut.bind(
        "hyper+k", [] {}, error));
    // Let go, it is free for the next one.
    first.unbind();
    EXPECT_TRUE(shortcut.bind(
        "ctrl+alt+k", [] {}, error))
        << error;
    EXPECT_TRUE(shortcut.bind(
        "Super+Space", [] {}, error))
        << error; // names in any case
}

} // namespace
} // namespace quillet
