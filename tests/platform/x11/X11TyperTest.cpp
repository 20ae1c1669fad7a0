// gtest first: Xlib defines None and Bool as macros, and gtest uses both names.
#include <gtest/gtest.h>

// Everything below may include Xlib.
#include "platform/x11/X11Typer.h"
#include "support/X11Clients.h"

#include <cstdlib>

namespace quillet {
namespace {

using Key = testing::KeyWindow::Key;

class Typing : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(testing::xlibThreads);
        ASSERT_TRUE(target.ready());
        spareBefore = testing::emptyKeycodes(user.display());
        connection = testing::openOwn(loop);
        typer = std::make_unique<X11Typer>(*connection, own);
        start = OwnKeys::Clock::now();
    }

    // What a failed case left behind must not spill into the next one.
    void TearDown() override {
        typer.reset();
        const XkbStateRec state = user.state();
        if ((state.base_mods & ShiftMask) != 0) {
            user.key(XK_Shift_L, false);
        }
        if ((state.locked_mods & LockMask) != 0) {
            user.tap(XK_Caps_Lock);
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
        while (own.pending(start) &&
               target.waitUntil([&](auto& keys, auto&) { return keys.size() > seen; })) {
            for (const std::vector<Key> keys = target.keys(); seen < keys.size(); ++seen) {
                ASSERT_TRUE(own.consume(keys[seen].keycode, keys[seen].press, start))
                    << "event " << seen << ": keycode " << keys[seen].keycode;
            }
        }
        EXPECT_FALSE(own.pending(start));
        EXPECT_EQ(target.keys().size(), seen) << "events nobody announced";
    }

    // The user presses or releases a key; true once the target has it.
    bool userKey(KeySym keysym, bool press) {
        const std::size_t from = target.keys().size();
        user.key(keysym, press);
        return target.waitForKey(user.code(keysym), press, from);
    }

    unsigned heldModifiers() { return user.state().base_mods; }

    testing::Typist user{testing::Typist::Source::xtest};
    testing::KeyWindow target;
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
    EXPECT_TRUE(typer->type(ascii + "\tone\ntwo\r\nthree\b\b"));
    ASSERT_TRUE(target.waitForText(ascii + "\tone\ntwo\nthr")) << target.text();
    EXPECT_TRUE(typer->tap(XK_BackSpace, 0, 5));
    ASSERT_TRUE(target.waitForText(ascii + "\tone\ntw")) << target.text();
    const auto keys = target.keys();
    EXPECT_EQ(std::count_if(keys.begin(), keys.end(),
                            [](const Key& key) { return key.press && key.keysym == XK_Return; }),
              2)
        << "\\r\\n is one line break";
    EXPECT_EQ(heldModifiers(), 0u);
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
    for (const Key& key : target.keys()) {
        if (spareBefore.count(key.keycode) != 0) {
            used.insert(key.keycode);
        }
    }
    EXPECT_EQ(used.size(), X11Typer::spareCount);
    EXPECT_NE(testing::emptyKeycodes(user.display()), spareBefore);
    EXPECT_EQ(heldModifiers(), 0u);
    expectAllAnnounced();

    typer.reset();
    EXPECT_EQ(testing::emptyKeycodes(user.display()), spareBefore);
    EXPECT_TRUE(own.consumeMappingChange()) << "giving the spares back is announced";
}

TEST_F(Typing, KeyStrokesOfTemplatesArriveWithTheirModifiers) {
    for (const char* name : {"cmd+a", "ctrl+shift+k", "opt+left", "super+return", "7"}) {
        EXPECT_TRUE(typer->press(*Tokens::keyStroke(name))) << name;
    }
    ASSERT_TRUE(target.waitForText("7"));
    std::vector<std::pair<KeySym, unsigned>> pressed;
    for (const Key& key : target.keys()) {
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
    EXPECT_EQ(heldModifiers(), 0u);
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
    EXPECT_EQ(heldModifiers(), 0u);
    std::vector<bool> shiftEvents;
    for (const Key& key : target.keys()) {
        if (key.keycode == user.code(XK_Shift_L)) {
            shiftEvents.push_back(key.press);
        }
    }
    EXPECT_EQ(shiftEvents, std::vector<bool>{false}) << "released once, never pressed again";
    expectAllAnnounced();

    // A shifted character typed while the user holds Shift uses the user's Shift as it is.
    ASSERT_TRUE(userKey(XK_Shift_L, true));
    EXPECT_TRUE(typer->type("A"));
    ASSERT_TRUE(target.waitForText("abcA")) << target.text();
    EXPECT_EQ(heldModifiers(), static_cast<unsigned>(ShiftMask));
    ASSERT_TRUE(userKey(XK_Shift_L, false));

    // Under Caps Lock, text keeps its case, on the layout's keys and on spare keycodes (ß has an
    // upper case that only some know of); a key stroke is pressed as the user would.
    ASSERT_TRUE(userKey(XK_Caps_Lock, true));
    ASSERT_TRUE(userKey(XK_Caps_Lock, false));
    EXPECT_TRUE(typer->type(" Mixed ü Ü ß αΩ"));
    EXPECT_TRUE(target.waitForText("abcA Mixed ü Ü ß αΩ")) << target.text();
    const std::size_t before = target.keys().size();
    EXPECT_TRUE(typer->press(*Tokens::keyStroke("cmd+a")));
    ASSERT_TRUE(target.waitForKey(user.code(XK_a), true, before));
    const auto keys = target.keys();
    const auto a = std::find_if(keys.rbegin(), keys.rend(), [](const Key& key) {
        return key.press && (key.keysym == XK_a || key.keysym == XK_A);
    });
    EXPECT_EQ(a->state & (ShiftMask | ControlMask | LockMask),
              static_cast<unsigned>(ControlMask | LockMask));
}

TEST_F(Typing, OtherLayoutsAreTypedOnTheirOwnLevelsAndGroups) {
    otherLayout = true;
    ASSERT_EQ(std::system("setxkbmap -layout de"), 0);
    const std::set<unsigned> empty = testing::emptyKeycodes(user.display());
    // German has ü and ß on keys of their own, and € and @ on the third level (AltGr).
    const std::string german = "Grüße € @ {x}";
    EXPECT_TRUE(typer->type(german));
    ASSERT_TRUE(target.waitForText(german)) << target.text();
    bool spare = false, thirdLevel = false;
    for (const Key& key : target.keys()) {
        spare = spare || empty.count(key.keycode) != 0;
        thirdLevel = thirdLevel || key.keycode == user.code(XK_ISO_Level3_Shift);
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
    EXPECT_EQ(user.state().group, 1) << "the user's group stays";
}

TEST_F(Typing, OnTheMasterKeyboardTheLayoutHoldsAndTheUsersModifiersComeBack) {
    typer->useKeyboard(X11CoreKeyboard::open(connection->display()));
    ASSERT_NE(typer->coreKeyboard(), nullptr) << "no XInput 2 here";
    otherLayout = true;
    ASSERT_EQ(std::system("setxkbmap -layout de"), 0);
    ASSERT_TRUE(userKey(XK_Shift_L, true));
    EXPECT_FALSE(typer->modifiersHeld());
    // Unshifted letters and third-level (AltGr) characters while the user holds Shift.
    const std::string german = "Grüße € @ {x} abc";
    EXPECT_TRUE(typer->type(german));
    ASSERT_TRUE(target.waitForText(german)) << target.text();
    EXPECT_EQ(heldModifiers(), static_cast<unsigned>(ShiftMask)) << "still the user's";
    ASSERT_TRUE(userKey(XK_Shift_L, false));
    EXPECT_EQ(heldModifiers(), 0u) << "the user's release lets go of it";
}

} // namespace
} // namespace quillet
