// gtest first: Xlib defines None and Bool as macros, and gtest uses both names.
#include <gtest/gtest.h>

// Everything below may include Xlib.
#include "library/RunLoop.h"
#include "platform/x11/OwnKeys.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11KeySource.h"
#include "platform/x11/X11SecureInput.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace quillet {
namespace {

using namespace std::chrono_literals;
using Changes = std::vector<std::string>;

struct Swallower : KeySource::Observer {
    Verdict key(const KeyEvent& event) override {
        return event.key == KeyEvent::Key::tab && swallowTab ? Verdict::swallow : Verdict::pass;
    }
    void click() override {}
    void reset() override {}
    bool swallowTab = true;
};

// Another program on the server: a window of its own, and the keyboard grabbed onto it as a
// password prompt or a screen locker does.
class Client {
public:
    Client() : display_(XOpenDisplay(nullptr)) {}
    ~Client() { XCloseDisplay(display_); }

    /// Opens a window with WM_CLASS className (none when empty) and title, managed by the window
    /// manager unless unmanaged, and waits until it can be grabbed onto.
    Window open(const std::string& className, const std::string& title, bool unmanaged) {
        XSetWindowAttributes attributes{};
        attributes.override_redirect = unmanaged ? True : False;
        attributes.event_mask = StructureNotifyMask;
        const Window window = XCreateWindow(display_, XDefaultRootWindow(display_), 20, 20, 200,
                                            100, 0, CopyFromParent, InputOutput, nullptr,
                                            CWOverrideRedirect | CWEventMask, &attributes);
        if (!className.empty()) {
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
        XMapWindow(display_, window);
        for (XEvent event; XWindowEvent(display_, window, StructureNotifyMask, &event),
                           event.type != MapNotify;) {
        }
        return window;
    }

    /// Grabs the keyboard onto window, as soon as the server lets it.
    void grab(Window window) {
        int status = GrabSuccess;
        for (int tries = 0; tries < 500; ++tries) {
            status =
                XGrabKeyboard(display_, window, False, GrabModeAsync, GrabModeAsync, CurrentTime);
            if (status == GrabSuccess) {
                XSync(display_, False);
                return;
            }
            XSync(display_, False);
        }
        ADD_FAILURE() << "the keyboard could not be grabbed: " << status;
    }

    void ungrab() {
        XUngrabKeyboard(display_, CurrentTime);
        XSync(display_, False);
    }

    void close(Window window) {
        XDestroyWindow(display_, window);
        XSync(display_, False);
    }

    void focus(Window window) {
        XSetInputFocus(display_, window, RevertToParent, CurrentTime);
        XSync(display_, False);
    }

    /// Taps a key on XTEST's keyboard.
    void tap(KeySym key) {
        const unsigned keycode = XKeysymToKeycode(display_, key);
        XTestFakeKeyEvent(display_, keycode, True, CurrentTime);
        XTestFakeKeyEvent(display_, keycode, False, CurrentTime);
        XSync(display_, False);
    }

    Display* display() const { return display_; }

private:
    Display* display_;
};

// The watcher on its own connection, told about Quillet's grabs by a real listener, and every
// change it reports as "held by NAME" or "free".
class X11SecureInputTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        connection_ = X11Connection::open("", loop_, error);
        ASSERT_TRUE(connection_) << error;
        ASSERT_TRUE(keys_.start(observer_, error)) << error;
        watch_ = std::make_unique<X11SecureInput>(*connection_,
                                                  [this] { return keys_.grabsActivated(); });
        watch_->start([this] {
            changes_.push_back(watch_->active() ? "held by " + watch_->holder() : "free");
        });
    }

    void TearDown() override {
        watch_.reset();
        keys_.stop();
    }

    // Lets the watcher see every window made so far and the server take its selections, as
    // it would between a prompt's window appearing and its grab.
    void settle() {
        XSync(connection_->display(), False);
        connection_->drainSoon();
        bool drained = false;
        loop_.post([&] { drained = true; });
        ASSERT_TRUE(loop_.runUntil([&] { return drained; }, 10s));
        XSync(connection_->display(), False);
    }

    // Waits until count changes came; more would be a fault the caller sees.
    Changes changesOnce(std::size_t count) {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (changes_.size() < count && std::chrono::steady_clock::now() < deadline) {
            loop_.runFor(5ms);
        }
        return changes_;
    }

    RunLoop loop_;
    OwnKeys own_;
    Swallower observer_;
    X11KeySource keys_{"", loop_, own_};
    std::unique_ptr<X11Connection> connection_;
    std::unique_ptr<X11SecureInput> watch_;
    Changes changes_;
};

TEST_F(X11SecureInputTest, AnotherClientsGrabPausesWithItsNameUntilItEnds) {
    struct Case {
        const char* name;
        std::string windowClass;
        std::string title;
        bool unmanaged;
        bool focusFirst; // the prompt has the focus and grabs its own window
        bool onRoot;
        std::string holder;
    };
    const Case cases[] = {
        {"focused prompt", "Pinentry", "", false, true, false, "Pinentry"},
        {"locker's unmanaged window", "Locker", "", true, false, false, "Locker"},
        {"managed window without focus", "Polkit-agent", "", false, false, false, "Polkit-agent"},
        {"only a title", "", "Unlock keyring", true, false, false, "Unlock keyring"},
        {"grab on the root window", "", "", true, false, true, ""},
    };
    Client editor;
    editor.focus(editor.open("Editor", "", false));
    // One connection for every prompt: a new one could reuse a window id of the last, which the
    // window manager may still be letting go of.
    Client prompt;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        changes_.clear();
        const Window window = prompt.open(c.windowClass, c.title, c.unmanaged);
        if (c.focusFirst) {
            prompt.focus(window);
        }
        settle();
        prompt.grab(c.onRoot ? XDefaultRootWindow(prompt.display()) : window);
        EXPECT_EQ(changesOnce(1), Changes{"held by " + c.holder});
        prompt.ungrab();
        EXPECT_EQ(changesOnce(2), (Changes{"held by " + c.holder, "free"}));
        prompt.close(window);
        editor.focus(XDefaultRootWindow(editor.display()));
    }
}

TEST_F(X11SecureInputTest, QuilletsOwnGrabsAndHoldNeverPause) {
    Client editor;
    editor.focus(editor.open("Editor", "", false));
    settle();
    keys_.grabTab(true);
    keys_.grabEscape(true);
    observer_.swallowTab = true; // the grab stays active until Tab is let go
    editor.tap(XK_Tab);
    observer_.swallowTab = false; // handed on: the grab ends at once
    editor.tap(XK_Tab);
    editor.tap(XK_Escape);
    ASSERT_TRUE(loop_.runUntil([&] { return keys_.grabsActivated() == 3; }, 10s));
    keys_.holdKeyboard(true);
    keys_.holdKeyboard(false);
    // Events come in server order: once the prompt's grab is seen, Quillet's came before it.
    Client prompt;
    const Window window = prompt.open("Pinentry", "", true);
    settle();
    prompt.grab(window);
    EXPECT_EQ(changesOnce(1), Changes{"held by Pinentry"});
    prompt.ungrab();
    EXPECT_EQ(changesOnce(2), (Changes{"held by Pinentry", "free"}));
}

} // namespace
} // namespace quillet
