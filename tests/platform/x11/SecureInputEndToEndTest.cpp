// Quillet as the user runs it, while the user types a secret: into a prompt grabbing the
// keyboard, or into a password field an accessible application reports. Runs on a private
// session bus, with its accessibility bus, under a window manager.
#include <gtest/gtest.h>

// After gtest, whose headers use a name Xlib defines as a macro (None).
#include "support/DesktopHarness.h"

namespace quillet {
namespace {

using testing::QuilletProcess;
using testing::snippet;
using testing::TextWindow;
using testing::Typist;

// A password prompt: a window of its own that grabs the keyboard and counts the keys it gets.
struct Prompt : testing::X11Windows {
    Prompt() : window(open("Pinentry", "", true)) {
        XSelectInput(display(), window, StructureNotifyMask | KeyPressMask);
    }

    /// Lets go of the keyboard; the key presses it received until then.
    int ungrabCounting() {
        ungrab();
        int presses = 0;
        for (XEvent event; XCheckWindowEvent(display(), window, KeyPressMask, &event);) {
            ++presses;
        }
        return presses;
    }

    const Window window;
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
    prompt.grab(prompt.window);
    ASSERT_TRUE(quillet.waitForLog("Expansion is paused: Pinentry is holding the keyboard.", from))
        << quillet.log();
    const std::string typed = ";sig secret;sig";
    typist.type(typed);
    from = quillet.log().size();
    // Quillet's erasing or pasting would have landed in the prompt too.
    EXPECT_EQ(prompt.ungrabCounting(), static_cast<int>(typed.size()));
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
