// gtest first: Xlib defines None and Bool as macros, and gtest uses both names.
#include <gtest/gtest.h>

// Everything below may include Xlib.
#include "platform/x11/OwnKeys.h"
#include "platform/x11/X11KeySource.h"
#include "support/X11Clients.h"

#include <cstdlib>

namespace quillet {
namespace {

using namespace std::chrono_literals;
using Key = KeyEvent::Key;

struct Recorder : KeySource::Observer {
    Verdict key(const KeyEvent& event) override {
        keys.push_back(event);
        return verdict ? verdict(event) : Verdict::pass;
    }
    void click() override { ++clicks; }
    void reset() override { ++resets; }

    std::vector<KeyEvent> keys;
    int clicks = 0, resets = 0;
    std::function<Verdict(const KeyEvent&)> verdict;
};

// Types on XTEST's keyboard, as the user's keyboard and other programs would, and looks at
// what the listener reports and, where a case needs one, what a focused window receives.
class X11KeySourceTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(source_.start(observer_, error)) << error;
    }
    void TearDown() override { source_.stop(); }

    bool waitFor(const std::function<bool()>& done) { return loop_.runUntil(done, 10s); }

    void tap(KeySym key) { keys_.chord({key}); }
    void tapCode(unsigned keycode) {
        keys_.send(keycode, true);
        keys_.send(keycode, false);
        keys_.sync();
    }

    // The last key reported, once there are count; more would be a fault.
    KeyEvent reported(std::size_t count) {
        EXPECT_TRUE(waitFor([&] { return observer_.keys.size() >= count; }));
        EXPECT_EQ(observer_.keys.size(), count);
        return observer_.keys.empty() ? KeyEvent{} : observer_.keys.back();
    }

    // A focused window that records the keys it receives; each wakes the loop.
    void openWindow() {
        window_ = std::make_unique<testing::KeyWindow>([this] { loop_.post([] {}); });
        ASSERT_TRUE(window_->ready());
    }

    bool windowShows(const std::string& text) {
        return waitFor([&] { return window_->text() == text; });
    }

    // Presses of sym the window has received.
    std::size_t received(KeySym sym) {
        const auto keys = window_->keys();
        return std::count_if(keys.begin(), keys.end(), [&](const testing::KeyWindow::Key& key) {
            return key.press && key.keycode == keys_.code(sym);
        });
    }

    void bind(unsigned keycode, KeySym sym) {
        XChangeKeyboardMapping(keys_.display(), static_cast<int>(keycode), 1, &sym, 1);
        XSync(keys_.display(), False);
    }

    RunLoop loop_;
    OwnKeys own_;
    Recorder observer_;
    X11KeySource source_{"", loop_, own_};
    testing::Typist keys_{testing::Typist::Source::xtest};
    std::unique_ptr<testing::KeyWindow> window_;
};

TEST_F(X11KeySourceTest, DecodesKeysTextModifiersAndClicks) {
    const struct {
        std::vector<KeySym> chord; // modifiers, then the key
        Key kind;
        std::string text;
        KeyEvent::Modifiers modifiers;
    } cases[] = {
        {{XK_a}, Key::other, "a", {}},
        {{XK_Shift_L, XK_1}, Key::other, "!", {.shift = true}},
        {{XK_BackSpace}, Key::backspace, "", {}},
        {{XK_Return}, Key::enter, "\r", {}},
        {{XK_KP_Enter}, Key::enter, "\r", {}},
        {{XK_Control_L, XK_c}, Key::other, "", {.control = true}}, // a control character
        {{XK_Alt_L, XK_Shift_L, XK_f}, Key::other, "F", {.shift = true, .alt = true}},
        {{XK_Super_L, XK_l}, Key::other, "l", {.super = true}},
        {{XK_ISO_Level3_Shift, XK_e}, Key::other, "e", {}}, // AltGr is a level, not Alt
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(XKeysymToString(c.chord.back()));
        const std::size_t before = observer_.keys.size();
        keys_.chord(c.chord);
        // Each modifier's press is reported as such; no release is.
        const KeyEvent event = reported(before + c.chord.size());
        for (std::size_t i = 0; i + 1 < c.chord.size(); ++i) {
            EXPECT_EQ(observer_.keys[before + i].key, Key::modifier);
        }
        EXPECT_EQ(event.key, c.kind);
        EXPECT_EQ(event.text, c.text);
        EXPECT_EQ(event.modifiers, c.modifiers);
        EXPECT_FALSE(event.held);
    }

    // Caps Lock changes the text but is no modifier the engine sees.
    const std::size_t before = observer_.keys.size();
    tap(XK_Caps_Lock);
    tap(XK_b);
    const KeyEvent capital = reported(before + 2);
    EXPECT_EQ(capital.text, "B");
    EXPECT_EQ(capital.modifiers, KeyEvent::Modifiers{});
    tap(XK_Caps_Lock);

    // Buttons 4 and 5 are the wheel.
    for (unsigned button : {4u, 5u, 1u}) {
        XTestFakeButtonEvent(keys_.display(), button, True, CurrentTime);
        XTestFakeButtonEvent(keys_.display(), button, False, CurrentTime);
    }
    tap(XK_x); // seen only after the buttons
    reported(before + 4);
    EXPECT_EQ(observer_.clicks, 1);
}

TEST_F(X11KeySourceTest, LeavesOutOwnEventsButTracksTheirModifiers) {
    const unsigned a = keys_.code(XK_a), shift = keys_.code(XK_Shift_L);
    for (auto [keycode, press] :
         {std::pair{a, true}, {a, false}, {shift, true}, {a, true}, {a, false}, {shift, false}}) {
        own_.expect(keycode, press);
    }
    tapCode(a);
    tap(XK_x); // the user's, between two of ours
    keys_.send(shift, true);
    tap(XK_y); // the user's key while our Shift is down: the server shifts it
    tapCode(a);
    keys_.send(shift, false);
    tap(XK_z);

    EXPECT_EQ(reported(3).text, "z");
    EXPECT_FALSE(observer_.keys[2].modifiers.shift);
    EXPECT_EQ(observer_.keys[0].text, "x");
    EXPECT_EQ(observer_.keys[1].text, "Y");
    EXPECT_TRUE(observer_.keys[1].modifiers.shift);
    EXPECT_FALSE(own_.pending());
}

TEST_F(X11KeySourceTest, HoldsGrabbedKeysAndHandsOnTheOnesLetThrough) {
    openWindow();
    auto windowGets = [&](KeySym sym, std::size_t count) {
        return waitFor([&] { return received(sym) >= count; });
    };
    observer_.verdict = [](const KeyEvent&) { return Verdict::swallow; };

    source_.grabTab(true);
    tap(XK_Tab);
    const KeyEvent tab = reported(1);
    EXPECT_EQ(tab.key, Key::tab);
    EXPECT_TRUE(tab.held);
    tap(XK_a); // not grabbed: reaches the window, and shows the Tab did not
    EXPECT_FALSE(reported(2).held);
    ASSERT_TRUE(windowGets(XK_a, 1));
    EXPECT_EQ(received(XK_Tab), 0u);

    // With Caps Lock or Num Lock on, a plain Tab is still caught; Shift+Tab is not.
    for (KeySym lock : {XK_Caps_Lock, XK_Num_Lock}) {
        tap(lock);
        tap(XK_Tab);
        tap(lock);
    }
    reported(8);
    EXPECT_TRUE(observer_.keys[3].held);
    EXPECT_TRUE(observer_.keys[6].held);
    keys_.chord({XK_Shift_L, XK_Tab});
    EXPECT_FALSE(reported(10).held);
    ASSERT_TRUE(windowGets(XK_Tab, 1));

    source_.grabTab(false);
    tap(XK_Tab);
    EXPECT_FALSE(reported(11).held);
    ASSERT_TRUE(windowGets(XK_Tab, 2));

    // A held Tab the observer lets through reaches the window after all, is not reported a
    // second time, and the grab is back in place afterwards.
    source_.grabTab(true);
    observer_.verdict = [](const KeyEvent&) { return Verdict::pass; };
    tap(XK_Tab);
    EXPECT_TRUE(reported(12).held);
    ASSERT_TRUE(windowGets(XK_Tab, 3));
    observer_.verdict = [](const KeyEvent&) { return Verdict::swallow; };
    tap(XK_Tab);
    EXPECT_TRUE(reported(13).held);
    // Quillet's own Tab, typed while the grab is on, still reaches the window.
    own_.expect(keys_.code(XK_Tab), true);
    own_.expect(keys_.code(XK_Tab), false);
    tap(XK_Tab);
    ASSERT_TRUE(windowGets(XK_Tab, 4));

    // Another client's active grab (an open menu) takes the Tab before the passive grab can:
    // the key went there, so it is not held.
    Display* menu = keys_.display();
    XGrabKeyboard(menu, XDefaultRootWindow(menu), False, GrabModeAsync, GrabModeAsync, CurrentTime);
    tap(XK_Tab);
    EXPECT_FALSE(reported(14).held);
    XUngrabKeyboard(menu, CurrentTime);

    source_.grabEscape(true);
    tap(XK_Escape);
    const KeyEvent escape = reported(15);
    EXPECT_EQ(escape.key, Key::escape);
    EXPECT_TRUE(escape.held);
    EXPECT_EQ(received(XK_Escape), 0u);
    EXPECT_EQ(received(XK_Tab), 4u); // not the one the menu took
}

TEST_F(X11KeySourceTest, FollowsKeymapChangesAndResetsOnlyForOtherPrograms) {
    const std::set<unsigned> empty = testing::emptyKeycodes(keys_.display());
    ASSERT_FALSE(empty.empty());
    const unsigned spare = *empty.rbegin();

    bind(spare, XK_eacute);
    ASSERT_TRUE(waitFor([&] { return observer_.resets == 1; }));
    tapCode(spare);
    EXPECT_EQ(reported(1).text, "é");

    // Announced as Quillet's own: nothing is reset. The key follows the change at once, so
    // decoding it right shows the change was seen first.
    own_.expectMappingChange();
    bind(spare, XK_oslash);
    tapCode(spare);
    EXPECT_EQ(reported(2).text, "ø");
    EXPECT_EQ(observer_.resets, 1);

    bind(spare, NoSymbol);
    ASSERT_TRUE(waitFor([&] { return observer_.resets == 2; }));

    // Another layout group: German swaps Y and Z.
    if (std::system("setxkbmap -layout us,de >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "setxkbmap cannot load a second layout here";
    }
    ASSERT_TRUE(waitFor([&] { return observer_.resets >= 3; }));
    for (auto [group, text] : {std::pair{1u, "z"}, {0u, "y"}}) {
        XkbLockGroup(keys_.display(), XkbUseCoreKbd, group);
        tapCode(keys_.code(XK_y));
        EXPECT_EQ(reported(group == 1 ? 3 : 4).text, text);
    }
    EXPECT_EQ(std::system("setxkbmap -layout us >/dev/null 2>&1"), 0);
}

TEST_F(X11KeySourceTest, DeadKeysAndComposeSequencesArriveAsTheCharacterTheyMake) {
    // Two keycodes the layout leaves empty, bound as a user's layout would have them.
    int min = 0, max = 0;
    XDisplayKeycodes(keys_.display(), &min, &max);
    bind(static_cast<unsigned>(max), XK_dead_acute);
    bind(static_cast<unsigned>(max - 1), XK_Multi_key);
    ASSERT_TRUE(waitFor([&] { return observer_.resets >= 2; }));
    const struct {
        std::vector<KeySym> keys;
        std::string last; // the text of the last key; the ones before it type nothing
    } cases[] = {
        {{XK_dead_acute, XK_e}, "\u00e9"},
        {{XK_Multi_key, XK_apostrophe, XK_e}, "\u00e9"},
        {{XK_Multi_key, XK_o, XK_c}, "\u00a9"},
        {{XK_dead_acute, XK_q}, ""}, // no such character: the sequence is dropped
        {{XK_e}, "e"},
    };
    for (const auto& c : cases) {
        const std::size_t before = observer_.keys.size();
        for (KeySym key : c.keys) {
            tap(key);
        }
        reported(before + c.keys.size());
        for (std::size_t i = before; i + 1 < observer_.keys.size(); ++i) {
            EXPECT_EQ(observer_.keys[i].text, "") << c.last;
        }
        EXPECT_EQ(observer_.keys.back().text, c.last);
    }
}

TEST_F(X11KeySourceTest, ReportsNothingOnceStoppedEvenFromInsideACallback) {
    source_.grabTab(true);
    observer_.verdict = [&](const KeyEvent&) {
        source_.stop();
        return Verdict::pass;
    };
    tap(XK_a);
    tap(XK_b);
    reported(1);
    loop_.runFor(50ms);
    EXPECT_EQ(observer_.keys.size(), 1u);

    // Started again, it listens as before, and holds no key until asked again.
    std::string error;
    observer_.verdict = nullptr;
    ASSERT_TRUE(source_.start(observer_, error)) << error;
    tap(XK_Tab);
    EXPECT_FALSE(reported(2).held);
}

TEST_F(X11KeySourceTest, HoldsThePhysicalKeyboardWhileQuilletTypes) {
    openWindow();
    testing::Typist user; // the server's own keyboard, typed on as a person would
    auto own = [&](KeySym sym) {
        own_.expect(keys_.code(sym), true);
        own_.expect(keys_.code(sym), false);
        tap(sym);
    };
    observer_.verdict = [](const KeyEvent& event) {
        return event.text == "q" ? Verdict::swallow : Verdict::pass;
    };

    source_.holdKeyboard(true);
    user.key(XK_Shift_L, true);
    user.tap(XK_a);
    own(XK_x); // Quillet's own key, typed while the user's Shift is down
    user.key(XK_Shift_L, false);
    user.tap(XK_q);
    user.key(XK_b, true);
    own(XK_y);
    user.key(XK_b, false);

    ASSERT_TRUE(windowShows("xy"));
    EXPECT_EQ(reported(4).text, "b");
    EXPECT_EQ(window_->text(), "xy") << "the user's keys were held";
    EXPECT_EQ(observer_.keys[0].key, Key::modifier);
    EXPECT_EQ(observer_.keys[1].text, "A");
    EXPECT_EQ(observer_.keys[2].text, "q");
    for (const KeyEvent& event : observer_.keys) {
        EXPECT_TRUE(event.held);
    }

    // Let go: the keys let through arrive in order, the swallowed q never does, and none is
    // reported again.
    source_.holdKeyboard(false);
    ASSERT_TRUE(windowShows("xyAb"));
    user.tap(XK_c);
    ASSERT_TRUE(windowShows("xyAbc"));
    EXPECT_FALSE(reported(5).held);
}

} // namespace
} // namespace quillet
