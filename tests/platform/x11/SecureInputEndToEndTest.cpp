// Quillet as the user runs it, while the user types a secret: into a prompt grabbing the
// keyboard, or into a password field an accessible application reports. Runs on a private
// session bus, with its accessibility bus, under a window manager.
#include <gtest/gtest.h>

// After gtest, whose headers use a name Xlib defines as a macro (None).
#include "support/DesktopHarness.h"

#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <cstdlib>

namespace quillet {
namespace {

using namespace std::chrono_literals;
using testing::QuilletProcess;
using testing::snippet;
using testing::TextWindow;
using testing::Typist;

// A password prompt: a window of its own that grabs the keyboard and counts the keys it gets.
class Prompt {
public:
    Prompt() : display_(XOpenDisplay(nullptr)) {
        XSetWindowAttributes attributes{};
        attributes.override_redirect = True;
        attributes.event_mask = StructureNotifyMask | KeyPressMask;
        window_ = XCreateWindow(display_, XDefaultRootWindow(display_), 40, 40, 300, 80, 0,
                                CopyFromParent, InputOutput, nullptr,
                                CWOverrideRedirect | CWEventMask, &attributes);
        std::string instance = "pinentry";
        std::string name = "Pinentry";
        XClassHint hint{instance.data(), name.data()};
        XSetClassHint(display_, window_, &hint);
        XMapWindow(display_, window_);
        for (XEvent event; XWindowEvent(display_, window_, StructureNotifyMask, &event),
                           event.type != MapNotify;) {
        }
    }
    ~Prompt() { XCloseDisplay(display_); }

    bool grab() {
        for (int tries = 0; tries < 500; ++tries) {
            if (XGrabKeyboard(display_, window_, False, GrabModeAsync, GrabModeAsync,
                              CurrentTime) == GrabSuccess) {
                return true;
            }
        }
        return false;
    }

    /// Lets go of the keyboard; the key presses it received until then.
    int ungrab() {
        XUngrabKeyboard(display_, CurrentTime);
        XSync(display_, False);
        int presses = 0;
        for (XEvent event; XCheckWindowEvent(display_, window_, KeyPressMask, &event);) {
            ++presses;
        }
        return presses;
    }

private:
    Display* display_;
    Window window_ = 0;
};

std::vector<Snippet> library() {
    return {snippet(";sig", "Best, Ann")};
}

TEST(SecureInputEndToEnd, AnotherProgramsGrabPausesExpansionUntilItLetsGo) {
    Typist typist;
    // The prompt's window is there before Quillet: one made just before its grab may not have
    // been seen yet, and the grab would be reported without a name.
    Prompt prompt;
    QuilletProcess quillet(library());
    ASSERT_TRUE(quillet.listening()) << quillet.log();
    TextWindow window;
    ASSERT_TRUE(window.ready());

    std::size_t from = quillet.log().size();
    ASSERT_TRUE(prompt.grab());
    ASSERT_TRUE(quillet.waitForLog("Expansion is paused: Pinentry is holding the keyboard.", from))
        << quillet.log();
    const std::string typed = ";sig secret;sig";
    typist.type(typed);
    typist.sync();
    from = quillet.log().size();
    // Quillet's erasing or pasting would have landed in the prompt too.
    EXPECT_EQ(prompt.ungrab(), static_cast<int>(typed.size()));
    ASSERT_TRUE(quillet.waitForLog("Expansion resumed", from)) << quillet.log();

    window.focus();
    typist.type(";sig");
    EXPECT_EQ(window.waitFor("Best, Ann"), "Best, Ann");
}

TEST(SecureInputEndToEnd, APasswordFieldIsNeverMatched) {
    Typist typist;
    QuilletProcess quillet(library());
    ASSERT_TRUE(quillet.listening()) << quillet.log();
    TextWindow window;
    ASSERT_TRUE(window.ready());
    // A field that has the focus from its first moment, before its application can have
    // learned that anyone listens for focus changes.
    std::size_t from = quillet.log().size();
    TextWindow field({"--password", "--class", "Login"});
    ASSERT_TRUE(field.ready());
    ASSERT_TRUE(quillet.waitForLog("Expansion is paused", from)) << quillet.log();
    typist.type(";sig!");
    EXPECT_EQ(field.waitFor(";sig!"), ";sig!");

    from = quillet.log().size();
    window.focus();
    ASSERT_TRUE(quillet.waitForLog("Expansion resumed", from)) << quillet.log();
    typist.type(";sig");
    EXPECT_EQ(window.waitFor("Best, Ann"), "Best, Ann");
}

} // namespace
} // namespace quillet
