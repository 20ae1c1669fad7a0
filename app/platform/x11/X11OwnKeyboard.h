#pragma once

#include <X11/Xlib.h>
#include <X11/extensions/XInput.h>
#include <memory>
#include <string>

namespace quillet {

/// A keyboard of Quillet's own on the X server: an XInput2 master device pair whose XTEST
/// keyboard carries the keys Quillet types. Every other keyboard, XTEST's virtual one included
/// (on-screen keyboards, remote desktops, automation tools type through it), can then be held
/// while an expansion is typed without holding Quillet's own keys, so a key the user types
/// meanwhile, from any device, lands after the expansion instead of in its middle.
///
/// The master has its own focus, which follows the core keyboard's for each expansion and is
/// dropped afterwards (a window another master still focuses is never told it lost the focus),
/// and its own modifier state, so a modifier the user still holds never changes what Quillet
/// types. Its keyboard gets the core keyboard's keymap, so that its modifier keys mean what the
/// layout says. The pair's pointer, which nobody moves, sits in a corner and is held by a grab
/// with a blank cursor, so the server draws no second cursor for it. Applications read the keys
/// as they read any keyboard's.
class X11OwnKeyboard {
public:
    /// Adds the device pair on display, first removing pairs a Quillet that died left behind;
    /// null when the server has no XInput 2 or refuses.
    static std::unique_ptr<X11OwnKeyboard> open(Display* display);
    /// Removes the device pair.
    ~X11OwnKeyboard();
    X11OwnKeyboard(const X11OwnKeyboard&) = delete;
    X11OwnKeyboard& operator=(const X11OwnKeyboard&) = delete;

    /// The XTEST keyboard to send key events through (XTestFakeDeviceKeyEvent).
    XDevice* device() const { return device_; }
    /// The XInput device id of that keyboard: the one device a hold must leave alone.
    int keyboardId() const { return keyboard_; }
    /// The master keyboard's id, for its XKB state.
    int masterId() const { return master_; }
    /// Points the master's focus at the window the core keyboard's focus is on.
    void followFocus();
    /// Takes the master's focus away from every window.
    void dropFocus();
    /// Gives the keyboard the core keyboard's keymap; call after the layout changed.
    void copyKeymap();

private:
    explicit X11OwnKeyboard(Display* display) : display_(display) {}

    Display* display_;
    std::string name_;
    int pointer_ = -1; // the master pointer, by which the pair is removed
    Cursor blank_ = None;
    int master_ = -1;
    int keyboard_ = -1;
    XDevice* device_ = nullptr;
};

} // namespace quillet
