#include "platform/x11/X11GlobalShortcut.h"

#include "library/Text.h"
#include "platform/x11/X11Locks.h"

#include <X11/Xlib-xcb.h>
#include <X11/keysym.h>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>
#include <xcb/xcb.h>

namespace quillet {
namespace {

struct Stroke {
    unsigned modifiers = 0;
    KeySym keysym = NoSymbol;
};

// "super+period" as X11 modifiers and a keysym. Modifier names are read in any case; the key's
// name as written, then in lower case ("Period" is not a keysym, "period" is).
std::optional<Stroke> parse(std::string_view written) {
    Stroke stroke;
    while (true) {
        const std::size_t plus = written.find('+', 1); // a lone "+" is the key itself
        const std::string part(written.substr(0, plus));
        if (plus == std::string_view::npos) {
            stroke.keysym = XStringToKeysym(part.c_str());
            if (stroke.keysym == NoSymbol) {
                stroke.keysym = XStringToKeysym(text::toLower(part).c_str());
            }
            if (stroke.keysym == NoSymbol && part == "+") {
                stroke.keysym = XK_plus;
            }
            return stroke.keysym != NoSymbol ? std::optional(stroke) : std::nullopt;
        }
        const std::string modifier = text::toLower(part);
        if (modifier == "ctrl" || modifier == "control") {
            stroke.modifiers |= ControlMask;
        } else if (modifier == "alt") {
            stroke.modifiers |= Mod1Mask;
        } else if (modifier == "shift") {
            stroke.modifiers |= ShiftMask;
        } else if (modifier == "super" || modifier == "meta" || modifier == "cmd") {
            stroke.modifiers |= Mod4Mask;
        } else {
            return std::nullopt;
        }
        written.remove_prefix(plus + 1);
    }
}

} // namespace

X11GlobalShortcut::X11GlobalShortcut(X11Connection& connection)
    : connection_(connection), alive_(std::make_shared<X11GlobalShortcut*>(this)) {
    connection.watchWhileAlive(std::weak_ptr<X11GlobalShortcut*>(alive_),
                               &X11GlobalShortcut::drain);
}

X11GlobalShortcut::~X11GlobalShortcut() {
    unbind();
    alive_.reset();
}

bool X11GlobalShortcut::bind(const std::string& text, std::function<void()> pressed,
                             std::string& error) {
    unbind();
    const auto stroke = parse(text);
    Display* display = connection_.display();
    const KeyCode keycode = stroke ? XKeysymToKeycode(display, stroke->keysym) : 0;
    if (!stroke || keycode == 0) {
        error = "\"" + text + "\" is not a key this keyboard has.";
        return false;
    }
    xcb_connection_t* xcb = XGetXCBConnection(display);
    const auto root = static_cast<xcb_window_t>(XDefaultRootWindow(display));
    std::vector<xcb_void_cookie_t> cookies;
    const unsigned numLock = modifierMaskOf(display, XK_Num_Lock);
    const unsigned scrollLock = modifierMaskOf(display, XK_Scroll_Lock);
    for (unsigned locks : lockCombinations(numLock, scrollLock)) {
        cookies.push_back(xcb_grab_key_checked(
            xcb, 0, root, static_cast<std::uint16_t>(stroke->modifiers | locks), keycode,
            XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    }
    bool refused = false;
    for (xcb_void_cookie_t cookie : cookies) {
        if (xcb_generic_error_t* failure = xcb_request_check(xcb, cookie)) {
            refused = true;
            free(failure);
        }
    }
    keycode_ = keycode;
    modifiers_ = stroke->modifiers;
    if (refused) {
        unbind();
        error = "Another application already uses " + text + ".";
        return false;
    }
    pressed_ = std::move(pressed);
    return true;
}

void X11GlobalShortcut::unbind() {
    pressed_ = {};
    if (keycode_ == 0) {
        return;
    }
    Display* display = connection_.display();
    const unsigned numLock = modifierMaskOf(display, XK_Num_Lock);
    const unsigned scrollLock = modifierMaskOf(display, XK_Scroll_Lock);
    for (unsigned locks : lockCombinations(numLock, scrollLock)) {
        XUngrabKey(display, static_cast<int>(keycode_), modifiers_ | locks,
                   XDefaultRootWindow(display));
    }
    XSync(display, False);
    keycode_ = 0;
}

void X11GlobalShortcut::drain() {
    Display* display = connection_.display();
    bool pressed = false;
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        pressed = pressed || (event.type == KeyPress && event.xkey.keycode == keycode_);
    }
    if (pressed && pressed_) {
        auto call = pressed_; // the call may bind again
        call();
    }
}

} // namespace quillet
