#pragma once

#include <X11/Xlib.h>
#include <X11/extensions/XInput.h>
#include <memory>

namespace quillet {

/// The master keyboard the applications listen to, typed on directly: XTEST accepts key events
/// for a master device, which the server then handles as the core keyboard's own, with no slave
/// device in between. That lets a hold grab every slave keyboard, XTEST's virtual one included
/// (on-screen keyboards, remote desktops and automation tools type through it), while Quillet
/// still types, so a key the user types meanwhile, from any device, lands after the expansion
/// instead of in its middle. The keys keep the core keyboard's focus, keymap and modifiers, and
/// applications that hear only one master keyboard (Chromium and Electron take the last one the
/// server lists) take them like the user's; a master pair of Quillet's own would silence the
/// user's keys there.
class X11CoreKeyboard {
public:
    /// The master keyboard paired with this client's pointer on display, first removing the
    /// device pairs earlier versions of Quillet left behind when they died; null when the
    /// server has no XInput 2.
    static std::unique_ptr<X11CoreKeyboard> open(Display* display);

    /// The master keyboard to send key events through (XTestFakeDeviceKeyEvent).
    XDevice* device() { return &device_; }
    /// Its XInput device id, for its XKB state.
    int masterId() const { return static_cast<int>(device_.device_id); }

private:
    X11CoreKeyboard() = default;

    XDevice device_{};
};

} // namespace quillet
