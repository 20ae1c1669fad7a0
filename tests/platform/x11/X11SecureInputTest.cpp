// gtest first: Xlib defines None and Bool as macros, and gtest uses both names.
#include <gtest/gtest.h>

// Everything below may include Xlib.
#include "platform/x11/OwnKeys.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11KeySource.h"
#include "platform/x11/X11SecureInput.h"
#include "support/X11Clients.h"

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

// The watcher on its own connection, told about Quillet's grabs by a real listener, and every
// change it reports as "held by NAME" or "free".
class X11SecureInputTest : public ::testing::Test {
protected:
    void SetUp() override {
        connection_ = testing::openOwn(loop_);
        std::string error;
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

TEST_F(X11SecureInputTest, AnotherClientsGrabPausesWithItsNameUntilItEndsButQuilletsOwnNever) {
    testing::X11Windows editor;
    editor.focus(editor.open("Editor"));
    settle();
    // Quillet's own grabs and hold come first; events arrive in server order, so once the first
    // prompt's grab is seen, these would have been seen before it.
    keys_.grabTab(true);
    keys_.grabEscape(true);
    testing::Typist keys(testing::Typist::Source::xtest);
    keys.tap(XK_Tab); // swallowed: the grab stays active until Tab is let go
    observer_.swallowTab = false;
    keys.tap(XK_Tab); // handed on: the grab ends at once
    keys.tap(XK_Escape);
    ASSERT_TRUE(loop_.runUntil([&] { return keys_.grabsActivated() == 3; }, 10s));
    keys_.holdKeyboard(true);
    keys_.holdKeyboard(false);

    // focusFirst: the prompt has the focus and grabs its own window.
    const struct {
        const char *name, *windowClass;
        std::string title;
        bool unmanaged, focusFirst, onRoot;
        std::string holder;
    } cases[] = {
        {"locker's unmanaged window", "Locker", "", true, false, false, "Locker"},
        {"focused prompt", "Pinentry", "", false, true, false, "Pinentry"},
        {"managed window without focus", "Polkit-agent", "", false, false, false, "Polkit-agent"},
        {"only a title", nullptr, "Unlock keyring", true, false, false, "Unlock keyring"},
        {"grab on the root window", nullptr, "", true, false, true, ""},
    };
    // One connection for every prompt: a new one could reuse a window id of the last, which the
    // window manager may still be letting go of.
    testing::X11Windows prompt;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Window window = prompt.open(c.windowClass, c.title, c.unmanaged);
        if (c.focusFirst) {
            prompt.focus(window);
        }
        settle();
        prompt.grab(c.onRoot ? prompt.root() : window);
        EXPECT_EQ(changesOnce(1), Changes{"held by " + c.holder});
        prompt.ungrab();
        EXPECT_EQ(changesOnce(2), (Changes{"held by " + c.holder, "free"}));
        prompt.close(window);
        editor.focus(editor.root());
        changes_.clear();
    }
}

} // namespace
} // namespace quillet
