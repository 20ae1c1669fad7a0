// gtest first: Xlib defines None and Bool as macros, and gtest uses both names.
#include <gtest/gtest.h>

// Everything below may include Xlib.
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11GlobalShortcut.h"
#include "platform/x11/X11Locks.h"
#include "support/X11Clients.h"

namespace quillet {
namespace {

using namespace std::chrono_literals;

TEST(X11GlobalShortcut, TheBoundStrokeCallsWhateverLocksAreOnAndOnlyIt) {
    RunLoop loop;
    auto connection = testing::openOwn(loop);
    X11GlobalShortcut shortcut(*connection);
    std::string error;
    int pressed = 0;
    const auto press = [&] { ++pressed; };
    ASSERT_TRUE(shortcut.bind("super+period", press, error)) << error;
    testing::Typist keys(testing::Typist::Source::xtest);
    keys.chord({XK_Super_L, XK_period});
    EXPECT_TRUE(loop.runUntil([&] { return pressed == 1; }, 5s));
    // With Num Lock and Caps Lock on.
    const unsigned locks = LockMask | modifierMaskOf(keys.display(), XK_Num_Lock);
    XkbLockModifiers(keys.display(), XkbUseCoreKbd, locks, locks);
    keys.chord({XK_Super_L, XK_period});
    EXPECT_TRUE(loop.runUntil([&] { return pressed == 2; }, 5s));
    XkbLockModifiers(keys.display(), XkbUseCoreKbd, locks, 0);
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
    auto connection = testing::openOwn(loop), other = testing::openOwn(loop);
    X11GlobalShortcut shortcut(*connection), first(*other);
    std::string error;
    const auto nothing = [] {};
    ASSERT_TRUE(first.bind("ctrl+alt+k", nothing, error)) << error;
    for (auto [stroke, refusal] :
         {std::pair{"ctrl+alt+k", "Another application already uses ctrl+alt+k."},
          {"super+nosuchkey", "\"super+nosuchkey\" is not a key this keyboard has."},
          {"hyper+k", ""}}) {
        EXPECT_FALSE(shortcut.bind(stroke, nothing, error)) << stroke;
        EXPECT_TRUE(*refusal == '\0' || error == refusal) << error;
    }
    first.unbind(); // let go, it is free for the next one
    EXPECT_TRUE(shortcut.bind("ctrl+alt+k", nothing, error)) << error;
    EXPECT_TRUE(shortcut.bind("Super+Space", nothing, error)) << error; // names in any case
}

} // namespace
} // namespace quillet
