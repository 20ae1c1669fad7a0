// gtest first: Xlib defines None and Bool as macros, and gtest uses both names.
#include <gtest/gtest.h>

// Everything below may include Xlib.
#include "library/RunLoop.h"
#include "platform/x11/X11Typer.h"
#include "support/X11Keys.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <algorithm>
#include <clocale>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <poll.h>
#include <set>
#include <thread>
#include <unistd.h>

namespace quillet {
namespace {

using namespace std::chrono_literals;

// The target reads its display on a thread of its own; Xlib's shared state needs this first.
const bool threadsReady = XInitThreads() != 0;

// An application of the test's own: a window with the keyboard focus that reads its key events
// on its own thread as they come, and translates them through an input context with the
// keymap Xlib knows at that moment, as any application would.
class Target {
public:
    struct Key {
        unsigned keycode;
        bool press;
        KeySym keysym;
        unsigned state;
    };

    Target() {
        std::setlocale(LC_CTYPE, "C.UTF-8");
        XSetLocaleModifiers("@im=none"); // no input method server: plain key translation
        display_ = XOpenDisplay(nullptr);
        if (display_ == nullptr) {
            return;
        }
        window_ = testing::openFocusedWindow(display_, KeyPressMask | KeyReleaseMask);
        im_ = XOpenIM(display_, nullptr, nullptr, nullptr);
        if (im_ != nullptr) {
            ic_ = XCreateIC(im_, XNInputStyle, XIMPreeditNothing | XIMStatusNothing, XNClientWindow,
                            window_, XNFocusWindow, window_, nullptr);
        }
        // Xlib reads the keymap when it translates its first key and follows changes only from
        // then on; any application that has seen a key has done so.
        XKeyEvent first{};
        first.type = KeyPress;
        first.display = display_;
        first.keycode = XKeysymToKeycode(display_, XK_a);
        char ignored[8];
        XLookupString(&first, ignored, sizeof ignored, nullptr, nullptr);
        XSync(display_, False);
        if (pipe(stop_) == 0) {
            reader_ = std::thread([this] { read(); });
        }
    }

    ~Target() {
        if (reader_.joinable()) {
            const char byte = 0;
            [[maybe_unused]] ssize_t n = write(stop_[1], &byte, 1);
            reader_.join();
            close(stop_[0]);
            close(stop_[1]);
        }
        if (ic_ != nullptr) {
            XDestroyIC(ic_);
        }
        if (im_ != nullptr) {
            XCloseIM(im_);
        }
        if (display_ != nullptr) {
            XCloseDisplay(display_);
        }
    }

    bool ready() const { return display_ != nullptr && ic_ != nullptr && reader_.joinable(); }

    /// Waits until the text typed so far is expected; false after timeout.
    bool waitForText(const std::string& expected, std::chrono::seconds timeout = 10s) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return text_ == expected; });
    }

    /// Waits until count key events have come.
    bool waitForKeys(std::size_t count, std::chrono::seconds timeout = 10s) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return keys_.size() >= count; });
    }

    /// Waits until a press (or release) of keycode comes, at index from or later.
    bool waitForKey(unsigned keycode, bool press, std::size_t from) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, 10s, [&] {
            return std::any_of(
                keys_.begin() + static_cast<std::ptrdiff_t>(std::min(from, keys_.size())),
                keys_.end(),
                [&](const Key& key) { return key.keycode == keycode && key.press == press; });
        });
    }

    std::string text() {
        std::lock_guard lock(mutex_);
        return text_;
    }

    std::vector<Key> keys() {
        std::lock_guard lock(mutex_);
        return keys_;
    }

    void clear() {
        std::lock_guard lock(mutex_);
        text_.clear();
        keys_.clear();
    }

private:
    void read() {
        while (true) {
            pollfd fds[2] = {{stop_[0], POLLIN, 0}, {XConnectionNumber(display_), POLLIN, 0}};
            if (XPending(display_) == 0 && poll(fds, 2, -1) > 0 && fds[0].revents != 0) {
                return;
            }
            while (XPending(display_) > 0) {
                XEvent event;
                XNextEvent(display_, &event);
                if (event.type == MappingNotify) {
                    XRefreshKeyboardMapping(&event.xmapping);
                }
                if (XFilterEvent(&event, None) ||
                    (event.type != KeyPress && event.type != KeyRelease)) {
                    continue;
                }
                take(event.xkey);
            }
        }
    }

    void take(XKeyEvent& key) {
        char buffer[64];
        KeySym keysym = NoSymbol;
        int length = 0;
        if (key.type == KeyPress) {
            Status status = 0;
            length = Xutf8LookupString(ic_, &key, buffer, sizeof buffer, &keysym, &status);
            if (status != XLookupChars && status != XLookupBoth) {
                length = 0;
            }
        } else {
            XLookupString(&key, buffer, sizeof buffer, &keysym, nullptr);
        }
        std::lock_guard lock(mutex_);
        keys_.push_back({key.keycode, key.type == KeyPress, keysym, key.state});
        if (key.type == KeyPress && (key.state & (ControlMask | Mod1Mask | Mod4Mask)) == 0) {
            // What an editor would do with the key.
            if (keysym == XK_BackSpace) {
                while (!text_.empty() && (text_.back() & 0xc0) == 0x80) {
                    text_.pop_back();
                }
                if (!text_.empty()) {
                    text_.pop_back();
                }
            } else if (keysym == XK_Return) {
                text_ += '\n';
            } else {
                text_.append(buffer, static_cast<std::size_t>(length));
            }
        }
        changed_.notify_all();
    }

    Display* display_ = nullptr;
    Window window_ = None;
    XIM im_ = nullptr;
    XIC ic_ = nullptr;
    int stop_[2] = {-1, -1};
    std::thread reader_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string text_;
    std::vector<Key> keys_;
};

// The user's side of the keyboard: presses keys through a connection of its own and looks at
// the server's keymap and state.
class User {
public:
    User() : display_(XOpenDisplay(nullptr)) {}
    ~User() {
        if (display_ != nullptr) {
            XCloseDisplay(display_);
        }
    }

    Display* display() const { return display_; }

    void key(KeySym keysym, bool press) {
        XTestFakeKeyEvent(display_, XKeysymToKeycode(display_, keysym), press ? True : False,
                          CurrentTime);
        XSync(display_, False);
    }

    unsigned heldModifiers() {
        XkbStateRec state{};
        XkbGetState(display_, XkbUseCoreKbd, &state);
        return state.base_mods;
    }

    /// The keycodes with no keysym at all.
    std::set<unsigned> emptyKeycodes() { return testing::emptyKeycodes(display_); }

private:
    Display* display_;
};

class Typing : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(threadsReady);
        ASSERT_NE(user.display(), nullptr) << "no X display";
        ASSERT_TRUE(target.ready());
        spareBefore = user.emptyKeycodes();
        std::string error;
        connection = X11Connection::open("", loop, error);
        ASSERT_TRUE(connection) << error;
        typer = std::make_unique<X11Typer>(*connection, own);
        start = OwnKeys::Clock::now();
    }

    // What a failed case left behind must not spill into the next one.
    void TearDown() override {
        typer.reset();
        if (user.display() == nullptr) {
            return;
        }
        XkbStateRec state{};
        XkbGetState(user.display(), XkbUseCoreKbd, &state);
        if ((state.base_mods & ShiftMask) != 0) {
            user.key(XK_Shift_L, false);
        }
        if ((state.locked_mods & LockMask) != 0) {
            user.key(XK_Caps_Lock, true);
            user.key(XK_Caps_Lock, false);
        }
        if (otherLayout) {
            XkbLockGroup(user.display(), XkbUseCoreKbd, 0);
            EXPECT_EQ(std::system("setxkbmap -layout us"), 0);
        }
    }

    // Every key event the target sees was announced, in order, and every announced one comes;
    // releases may still be on their way when the text is complete.
    void expectAllAnnounced() {
        while (own.consumeMappingChange(start)) {
        }
        std::size_t seen = 0;
        while (own.pending(start) && target.waitForKeys(seen + 1)) {
            const std::vector<Target::Key> keys = target.keys();
            for (; seen < keys.size(); ++seen) {
                const Target::Key& key = keys[seen];
                ASSERT_TRUE(own.consume(key.keycode, key.press, start))
                    << "event " << seen << ": keycode " << key.keycode
                    << (key.press ? " press" : " release");
            }
        }
        EXPECT_FALSE(own.pending(start));
        EXPECT_EQ(target.keys().size(), seen) << "events nobody announced";
    }

    // The user presses or releases a key; true once the target has it.
    bool userKey(KeySym keysym, bool press) {
        const std::size_t from = target.keys().size();
        user.key(keysym, press);
        return target.waitForKey(XKeysymToKeycode(user.display(), keysym), press, from);
    }

    User user;
    Target target;
    std::set<unsigned> spareBefore;
    RunLoop loop;
    OwnKeys own;
    std::unique_ptr<X11Connection> connection;
    std::unique_ptr<X11Typer> typer;
    OwnKeys::Clock::time_point start;
    bool otherLayout = false;
};

TEST_F(Typing, TypesShiftedCharactersLineBreaksTabsAndErasesWithBackspace) {
    const std::string ascii = "Hello, World! ~`@#$%^&*()_+{}|:\"<>? [x]\\;',./ -=0123456789";
    EXPECT_TRUE(typer->type(ascii));
    ASSERT_TRUE(target.waitForText(ascii)) << target.text();

    EXPECT_TRUE(typer->type("\tone\ntwo\r\nthree\b\b"));
    ASSERT_TRUE(target.waitForText(ascii + "\tone\ntwo\nthr")) << target.text();
    EXPECT_TRUE(typer->tap(XK_BackSpace, 0, 5));
    ASSERT_TRUE(target.waitForText(ascii + "\tone\ntw")) << target.text();
    const auto keys = target.keys();
    EXPECT_EQ(
        std::count_if(keys.begin(), keys.end(),
                      [](const Target::Key& key) { return key.press && key.keysym == XK_Return; }),
        2)
        << "\\r\\n is one line break";
    EXPECT_EQ(user.heldModifiers(), 0u);
    expectAllAnnounced();
}

TEST_F(Typing, CharactersTheLayoutLacksGoThroughSpareKeycodesGivenBackAtTheEnd) {
    ASSERT_GE(spareBefore.size(), X11Typer::spareCount);
    // More characters missing from the layout than there are spares, so that the least
    // recently used ones are bound again while the target is still reading; ü and 😀 come
    // back after their spares were taken by others.
    const std::string text = "Grüße € 😀🎉😀 ÄÖÜ αβγδεζηθ ü😀 ÿ";
    EXPECT_TRUE(typer->type(text));
    ASSERT_TRUE(target.waitForText(text)) << target.text();

    std::set<unsigned> used;
    for (const Target::Key& key : target.keys()) {
        if (spareBefore.count(key.keycode) != 0) {
            used.insert(key.keycode);
        }
    }
    EXPECT_EQ(used.size(), X11Typer::spareCount);
    EXPECT_NE(user.emptyKeycodes(), spareBefore);
    EXPECT_EQ(user.heldModifiers(), 0u);
    expectAllAnnounced();

    typer.reset();
    EXPECT_EQ(user.emptyKeycodes(), spareBefore);
    EXPECT_TRUE(own.consumeMappingChange()) << "giving the spares back is announced";
}

TEST_F(Typing, KeyStrokesOfTemplatesArriveWithTheirModifiers) {
    for (const char* name : {"cmd+a", "ctrl+shift+k", "opt+left", "super+return", "7"}) {
        EXPECT_TRUE(typer->press(*Tokens::keyStroke(name))) << name;
    }
    ASSERT_TRUE(target.waitForText("7"));
    std::vector<std::pair<KeySym, unsigned>> pressed;
    for (const Target::Key& key : target.keys()) {
        if (key.press && !(key.keysym >= XK_Shift_L && key.keysym <= XK_Hyper_R)) {
            pressed.emplace_back(key.keysym,
                                 key.state & (ShiftMask | ControlMask | Mod1Mask | Mod4Mask));
        }
    }
    const std::vector<std::pair<KeySym, unsigned>> expected = {
        {XK_a, ControlMask}, {XK_K, ControlMask | ShiftMask},
        {XK_Left, Mod1Mask}, {XK_Return, Mod4Mask},
        {XK_7, 0},
    };
    EXPECT_EQ(pressed, expected);
    EXPECT_EQ(user.heldModifiers(), 0u);
    expectAllAnnounced();

    // macOS "delete" is BackSpace.
    EXPECT_EQ(X11Typer::keysymFor(Tokens::keyStroke("delete")->code), KeySym{XK_BackSpace});
    EXPECT_FALSE(typer->press({200, 0})) << "a key code with no X key";
}

TEST_F(Typing, ModifiersTheUserHoldsOrLocksDoNotChangeWhatIsTyped) {
    ASSERT_TRUE(userKey(XK_Shift_L, true));
    EXPECT_TRUE(typer->modifiersHeld());
    target.clear();
    EXPECT_TRUE(typer->type("abc"));
    ASSERT_TRUE(target.waitForText("abc")) << target.text();
    EXPECT_FALSE(typer->modifiersHeld());
    EXPECT_EQ(user.heldModifiers(), 0u);
    const KeyCode shift = XKeysymToKeycode(user.display(), XK_Shift_L);
    std::vector<bool> shiftEvents;
    for (const Target::Key& key : target.keys()) {
        if (key.keycode == shift) {
            shiftEvents.push_back(key.press);
        }
    }
    EXPECT_EQ(shiftEvents, std::vector<bool>{false}) << "released once, never pressed again";
    expectAllAnnounced();

    // A shifted character typed while the user holds Shift uses the user's Shift as it is.
    ASSERT_TRUE(userKey(XK_Shift_L, true));
    EXPECT_TRUE(typer->type("A"));
    ASSERT_TRUE(target.waitForText("abcA")) << target.text();
    EXPECT_EQ(user.heldModifiers(), static_cast<unsigned>(ShiftMask));
    ASSERT_TRUE(userKey(XK_Shift_L, false));

    // Under Caps Lock, text keeps its case, on the layout's keys and on spare keycodes (ß has an
    // upper case that only some know of); a key stroke is pressed as the user would.
    ASSERT_TRUE(userKey(XK_Caps_Lock, true));
    ASSERT_TRUE(userKey(XK_Caps_Lock, false));
    EXPECT_TRUE(typer->type(" Mixed ü Ü ß αΩ"));
    EXPECT_TRUE(target.waitForText("abcA Mixed ü Ü ß αΩ")) << target.text();
    const std::size_t before = target.keys().size();
    EXPECT_TRUE(typer->press(*Tokens::keyStroke("cmd+a")));
    ASSERT_TRUE(target.waitForKey(XKeysymToKeycode(user.display(), XK_a), true, before));
    const auto keys = target.keys();
    const auto a = std::find_if(keys.rbegin(), keys.rend(), [](const Target::Key& key) {
        return key.press && (key.keysym == XK_a || key.keysym == XK_A);
    });
    EXPECT_EQ(a->state & (ShiftMask | ControlMask | LockMask),
              static_cast<unsigned>(ControlMask | LockMask));
}

TEST_F(Typing, OtherLayoutsAreTypedOnTheirOwnLevelsAndGroups) {
    otherLayout = true;
    ASSERT_EQ(std::system("setxkbmap -layout de"), 0);
    const std::set<unsigned> empty = user.emptyKeycodes();
    // German has ü and ß on keys of their own, and € and @ on the third level (AltGr).
    const std::string german = "Grüße € @ {x}";
    EXPECT_TRUE(typer->type(german));
    ASSERT_TRUE(target.waitForText(german)) << target.text();
    const KeyCode altGr = XKeysymToKeycode(user.display(), XK_ISO_Level3_Shift);
    bool spare = false;
    bool thirdLevel = false;
    for (const Target::Key& key : target.keys()) {
        spare = spare || empty.count(key.keycode) != 0;
        thirdLevel = thirdLevel || key.keycode == altGr;
    }
    EXPECT_FALSE(spare) << "the layout has every character";
    EXPECT_TRUE(thirdLevel);
    expectAllAnnounced();

    // In the Russian group, Cyrillic comes from the layout and Latin letters, which only the
    // other group has, through spare keycodes.
    ASSERT_EQ(std::system("setxkbmap -layout us,ru"), 0);
    XkbLockGroup(user.display(), XkbUseCoreKbd, 1);
    XSync(user.display(), False);
    target.clear();
    const std::string mixed = "Привет, hello!";
    EXPECT_TRUE(typer->type(mixed));
    EXPECT_TRUE(target.waitForText(mixed)) << target.text();
    XkbStateRec state{};
    XkbGetState(user.display(), XkbUseCoreKbd, &state);
    EXPECT_EQ(state.group, 1) << "the user's group stays";
}

TEST_F(Typing, AKeyboardOfItsOwnTypesTheLayoutAndLeavesTheUsersModifiersAlone) {
    typer->useKeyboard(X11OwnKeyboard::open(connection->display()));
    ASSERT_NE(typer->ownKeyboard(), nullptr) << "no XInput 2 master devices here";
    typer->followFocus();
    // The layout changes after the keyboard was made, as when the user switches layouts.
    otherLayout = true;
    ASSERT_EQ(std::system("setxkbmap -layout de"), 0);
    ASSERT_TRUE(userKey(XK_Shift_L, true));
    EXPECT_FALSE(typer->modifiersHeld());
    // The third level (AltGr) must mean on Quillet's keyboard what it means in the layout.
    const std::string german = "Grüße € @ {x} abc";
    EXPECT_TRUE(typer->type(german));
    ASSERT_TRUE(target.waitForText(german)) << target.text();
    EXPECT_EQ(user.heldModifiers(), static_cast<unsigned>(ShiftMask)) << "still the user's";
    ASSERT_TRUE(userKey(XK_Shift_L, false));
}

} // namespace
} // namespace quillet
