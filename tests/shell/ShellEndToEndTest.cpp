// Quillet as the user runs it, asking for a snippet's values in its form: the values land in
// the window the abbreviation was typed in, Escape leaves it erased. Keys come from a keyboard
// device and from XTEST. Runs under a window manager.
#include <gtest/gtest.h>

// After gtest, whose headers use a name Xlib defines as a macro (None).
#include "support/DesktopHarness.h"

#include <X11/keysym.h>
#include <thread>

namespace quillet {
namespace {

using namespace std::chrono_literals;
using testing::QuilletProcess;
using testing::snippet;
using testing::TextWindow;
using testing::Typist;

// Waits until the keyboard focus is on window (in), or has left it for another one (out).
bool focusMoves(Typist& typist, Window window, bool in) {
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (std::chrono::steady_clock::now() < deadline) {
        Window focus = 0;
        int revert = 0;
        XGetInputFocus(typist.display(), &focus, &revert);
        if (in ? focus == window : focus != window && focus > PointerRoot) {
            return true;
        }
        std::this_thread::sleep_for(10ms);
    }
    return false;
}

TEST(ShellEndToEnd, TheFormsValuesLandInTheWindowTypedInAndEscapeLeavesItErased) {
    QuilletProcess quillet({snippet(";form", "Dear {field:Name}, see you {choice:Day=Mon|Tue}.")});
    ASSERT_TRUE(quillet.listening()) << quillet.log();
    TextWindow editor;
    ASSERT_TRUE(editor.ready());
    for (auto source : {Typist::Source::keyboard, Typist::Source::xtest}) {
        SCOPED_TRACE(source == Typist::Source::xtest ? "XTEST" : "keyboard");
        Typist typist(source);
        editor.focus();
        editor.clear();
        std::size_t from = quillet.log().size();
        typist.type(";form");
        ASSERT_TRUE(quillet.waitForLog("asking for 2 field values", from)) << quillet.log();
        ASSERT_TRUE(focusMoves(typist, editor.window(), false));
        typist.type("Bob\t");
        typist.tap(XK_Down);
        typist.tap(XK_Return);
        EXPECT_EQ(editor.waitFor("Dear Bob, see you Tue."), "Dear Bob, see you Tue.");

        editor.clear();
        from = quillet.log().size();
        typist.type(";form");
        ASSERT_TRUE(quillet.waitForLog("asking for 2 field values", from)) << quillet.log();
        ASSERT_TRUE(focusMoves(typist, editor.window(), false));
        typist.tap(XK_Escape);
        ASSERT_TRUE(focusMoves(typist, editor.window(), true));
        typist.type("x"); // the abbreviation is gone
        EXPECT_EQ(editor.waitFor("x"), "x");
    }
}

} // namespace
} // namespace quillet
