#pragma once

#include "platform/x11/OwnKeys.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11CoreKeyboard.h"
#include "render/Tokens.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace quillet {

/// Presses keys in whatever window has the keyboard focus, through XTEST. Keysyms are found in
/// the live XKB keymap, in the current group at any shift level; a character the layout lacks
/// is typed through a spare keycode (one the keymap leaves empty) bound to it for the moment.
/// Modifiers are set explicitly for every key: modifiers the user still holds are released,
/// the wanted ones pressed and released around the key, and text comes out in its own case
/// under Caps Lock. Typing on the master keyboard, the user's modifiers are pressed again after
/// each key. Every event is announced in OwnKeys before it is sent, so the listener can
/// tell it from the user's.
///
/// Everything is synchronous: the events are sent in order and flushed; the server keeps them
/// in order. Main thread only.
class X11Typer {
public:
    /// Spare keycodes kept bound at most; a character typed again reuses its binding.
    static constexpr std::size_t spareCount = 10;
    /// How long a spare keycode must have been left alone before it is bound to another
    /// character: applications translate a key event with the mapping they know when they read
    /// it, which may already be the newer one if they read late.
    static constexpr std::chrono::milliseconds rebindAfter{200};

    /// Types through connection, which the typer watches for keymap changes and must not be
    /// watched by anyone else; own and connection must outlive the typer.
    X11Typer(X11Connection& connection, OwnKeys& own);
    /// Gives back every spare keycode it bound, once applications have had time to read it.
    ~X11Typer();
    X11Typer(const X11Typer&) = delete;
    X11Typer& operator=(const X11Typer&) = delete;

    /// Presses and releases the key of keysym times with these modifiers (ShiftMask,
    /// ControlMask, Mod1Mask for Alt, Mod4Mask for Super), those its shift level needs (Shift
    /// for XK_A) and no others; Caps Lock acts on it as on the user's own key. False when the
    /// keysym cannot be typed.
    bool tap(KeySym keysym, unsigned modifiers, int times = 1);

    /// Presses one key stroke of a template: cmd and ctrl become Control, opt Alt, shift Shift
    /// and super Super; false for a key code with no X counterpart.
    bool press(const Tokens::KeyStroke& stroke);

    /// Types UTF-8 text one code point at a time, without the clipboard; "\n" and "\r\n" as
    /// Return, "\t" as Tab, "\b" as BackSpace. False when some character was left out.
    bool type(std::string_view text);

    /// True while the user holds Shift, Control, Alt or Super in a way that would change what
    /// the typer types; never when it types on the master keyboard, where the keyboard is held
    /// meanwhile (waiting for the user to let go is in vain) and each key gets its modifiers.
    bool modifiersHeld();

    /// Types on the master keyboard directly from now on; null goes back to XTEST's virtual
    /// keyboard.
    void useKeyboard(std::unique_ptr<X11CoreKeyboard> keyboard) { keyboard_ = std::move(keyboard); }
    /// The master keyboard typed on, if any.
    const X11CoreKeyboard* coreKeyboard() const { return keyboard_.get(); }

    /// The X keysym for a macOS virtual key code of the US ANSI layout; nothing for unknown ones.
    static std::optional<KeySym> keysymFor(std::uint16_t macKeyCode);

    /// The X modifier mask for a key stroke's macOS-style modifier mask.
    static unsigned modifiersFor(std::uint64_t macMask);

private:
    // Where a symbol sits in the keymap: a key and a shift level of its current group.
    struct Place {
        KeyCode keycode;
        int group;
        int level;
    };

    // A keycode the layout leaves empty, borrowed for characters it lacks.
    struct Spare {
        KeyCode keycode;
        KeySym bound = NoSymbol;
        std::chrono::steady_clock::time_point used{};
    };

    void drainEvents();
    void reloadKeymap();
    void adoptSpares();
    void buildIndex(int group, unsigned locked);
    XkbStateRec refreshState();
    std::optional<unsigned> levelModifiers(const Place& place, unsigned locked) const;
    bool strike(KeySym keysym, std::optional<char32_t> character, unsigned modifiers, int times);
    void strokeOnce(KeyCode keycode, unsigned wanted, const XkbStateRec& state);
    bool bindSpare(KeySym keysym);
    bool writeSpare(KeyCode keycode, KeySym keysym);
    std::vector<KeyCode> releaseUnwanted(const XkbStateRec& state, unsigned wanted);
    void send(KeyCode keycode, bool press);
    unsigned modifiersOf(KeyCode keycode) const;
    unsigned stateDevice() const;
    const std::vector<Place>* findSymbol(KeySym keysym) const;
    const std::vector<Place>* findCharacter(char32_t c) const;

    X11Connection& connection_;
    Display* display_;
    OwnKeys& own_;
    int xkbEventBase_ = -1;
    bool xtest_ = false;

    XkbDescPtr keymap_ = nullptr;
    bool stale_ = true;   // the server's keymap may have changed since it was read
    int indexGroup_ = -1; // the group and locked modifiers the index was built for
    unsigned indexLocked_ = 0;
    std::unordered_map<KeySym, std::vector<Place>> bySymbol_;
    std::unordered_map<char32_t, std::vector<Place>> byCharacter_;
    KeyCode modifierKeys_[8] = {}; // the key pressed for each real modifier; 0 when none
    std::vector<Spare> spares_;
    std::unique_ptr<X11CoreKeyboard> keyboard_;
    std::shared_ptr<X11Typer*> alive_; // what the connection's handler looks for
};

} // namespace quillet
