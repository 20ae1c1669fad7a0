#pragma once

// Include after gtest: Xlib defines None and Bool as macros, and gtest uses both names.
#include <X11/Xlib.h>
#include <X11/extensions/XInput.h>
#include <set>
#include <string>

namespace quillet::testing {

/// The keycodes the keymap leaves without any keysym: where a test binds characters of its own.
inline std::set<unsigned> emptyKeycodes(Display* display) {
    int low = 0, high = 0, width = 0;
    XDisplayKeycodes(display, &low, &high);
    KeySym* syms = XGetKeyboardMapping(display, static_cast<KeyCode>(low), high - low + 1, &width);
    std::set<unsigned> empty;
    for (int keycode = low; keycode <= high; ++keycode) {
        bool none = true;
        for (int i = 0; i < width; ++i) {
            none = none && syms[(keycode - low) * width + i] == NoSymbol;
        }
        if (none) {
            empty.insert(static_cast<unsigned>(keycode));
        }
    }
    XFree(syms);
    return empty;
}

/// The server's own keyboard device, whose keys look like a physical keyboard's rather than
/// XTEST's; null when there is none.
inline XDevice* openKeyboardDevice(Display* display) {
    int count = 0;
    XDeviceInfo* devices = XListInputDevices(display, &count);
    XDevice* keyboard = nullptr;
    for (int i = 0; i < count && keyboard == nullptr; ++i) {
        if (devices[i].use == IsXExtensionKeyboard &&
            std::string(devices[i].name).find("XTEST") == std::string::npos) {
            keyboard = XOpenDevice(display, devices[i].id);
        }
    }
    XFreeDeviceList(devices);
    return keyboard;
}

/// A window of the root, mapped and given the input focus, selecting mask besides
/// StructureNotifyMask; returns once it is mapped.
inline Window openFocusedWindow(Display* display, long mask) {
    const Window window =
        XCreateSimpleWindow(display, XDefaultRootWindow(display), 0, 0, 200, 100, 0, 0, 0);
    XSelectInput(display, window, mask | StructureNotifyMask);
    XMapWindow(display, window);
    for (XEvent event;
         XWindowEvent(display, window, StructureNotifyMask, &event), event.type != MapNotify;) {
    }
    XSetInputFocus(display, window, RevertToParent, CurrentTime);
    XSync(display, False);
    return window;
}

} // namespace quillet::testing
