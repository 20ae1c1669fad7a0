#include "platform/x11/X11OwnKeyboard.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XInput2.h>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <string_view>
#include <unistd.h>

namespace quillet {
namespace {

constexpr std::string_view prefix = "Quillet ";

// Requests the server may refuse (a device gone meanwhile) must not end the process.
int ignoreErrors(Display*, XErrorEvent*) {
    return 0;
}

// A pair left by a Quillet that is gone: its name ends in a process id nobody has any more.
bool abandoned(std::string_view name) {
    if (!name.starts_with(prefix) || !name.ends_with(" pointer")) {
        return false;
    }
    name.remove_prefix(prefix.size());
    name.remove_suffix(std::string_view(" pointer").size());
    int pid = 0;
    const auto [end, problem] = std::from_chars(name.data(), name.data() + name.size(), pid);
    if (problem != std::errc() || end != name.data() + name.size() || pid <= 1) {
        return false;
    }
    return ::kill(pid, 0) != 0 && errno == ESRCH;
}

// A cursor with no visible pixel.
Cursor blankCursor(Display* display) {
    const Pixmap empty = XCreatePixmap(display, XDefaultRootWindow(display), 1, 1, 1);
    XColor black{};
    const Cursor cursor = XCreatePixmapCursor(display, empty, empty, &black, &black, 0, 0);
    XFreePixmap(display, empty);
    return cursor;
}

void removePair(Display* display, int pointer) {
    XIRemoveMasterInfo remove{XIRemoveMaster, pointer, XIFloating, 0, 0};
    XIChangeHierarchy(display, reinterpret_cast<XIAnyHierarchyChangeInfo*>(&remove), 1);
}

} // namespace

std::unique_ptr<X11OwnKeyboard> X11OwnKeyboard::open(Display* display) {
    int opcode = 0;
    int event = 0;
    int error = 0;
    int major = 2;
    int minor = 0;
    if (!XQueryExtension(display, "XInputExtension", &opcode, &event, &error) ||
        XIQueryVersion(display, &major, &minor) != Success || major < 2) {
        return nullptr;
    }
    auto* previous = XSetErrorHandler(ignoreErrors);
    std::unique_ptr<X11OwnKeyboard> own(new X11OwnKeyboard(display));

    int count = 0;
    XIDeviceInfo* devices = XIQueryDevice(display, XIAllMasterDevices, &count);
    for (int i = 0; i < count; ++i) {
        if (devices[i].use == XIMasterPointer && abandoned(devices[i].name)) {
            removePair(display, devices[i].deviceid);
        }
    }
    XIFreeDeviceInfo(devices);

    own->name_ = std::string(prefix) + std::to_string(::getpid());
    XIAddMasterInfo add{XIAddMaster, own->name_.data(), True, True};
    XIChangeHierarchy(display, reinterpret_cast<XIAnyHierarchyChangeInfo*>(&add), 1);
    XSync(display, False);
    devices = XIQueryDevice(display, XIAllDevices, &count);
    for (int i = 0; i < count; ++i) {
        const std::string name = devices[i].name;
        if (name == own->name_ + " pointer") {
            own->pointer_ = devices[i].deviceid;
        } else if (name == own->name_ + " keyboard") {
            own->master_ = devices[i].deviceid;
        } else if (name == own->name_ + " XTEST keyboard") {
            own->keyboard_ = devices[i].deviceid;
        }
    }
    XIFreeDeviceInfo(devices);
    if (own->keyboard_ >= 0 && own->master_ >= 0) {
        own->device_ = XOpenDevice(display, static_cast<XID>(own->keyboard_));
    }
    if (own->device_ == nullptr) {
        if (own->pointer_ >= 0) {
            removePair(display, own->pointer_);
        }
        own->pointer_ = -1;
        XSync(display, False);
        XSetErrorHandler(previous);
        return nullptr;
    }
    own->copyKeymap();
    const Window root = XDefaultRootWindow(display);
    XIWarpPointer(display, own->pointer_, None, root, 0, 0, 0, 0,
                  XDisplayWidth(display, XDefaultScreen(display)) - 1,
                  XDisplayHeight(display, XDefaultScreen(display)) - 1);
    own->blank_ = blankCursor(display);
    unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
    XIEventMask none{own->pointer_, sizeof bits, bits};
    XIGrabDevice(display, own->pointer_, root, CurrentTime, own->blank_, XIGrabModeAsync,
                 XIGrabModeAsync, False, &none);
    XSync(display, False);
    XSetErrorHandler(previous);
    return own;
}

X11OwnKeyboard::~X11OwnKeyboard() {
    auto* previous = XSetErrorHandler(ignoreErrors);
    if (device_ != nullptr) {
        XCloseDevice(display_, device_);
    }
    if (pointer_ >= 0) {
        removePair(display_, pointer_);
    }
    if (blank_ != None) {
        XFreeCursor(display_, blank_);
    }
    XSync(display_, False);
    XSetErrorHandler(previous);
}

void X11OwnKeyboard::dropFocus() {
    XISetFocus(display_, master_, None, CurrentTime);
    XFlush(display_);
}

void X11OwnKeyboard::followFocus() {
    Window focus = None;
    int revert = 0;
    XGetInputFocus(display_, &focus, &revert);
    XISetFocus(display_, master_, focus, CurrentTime);
}

void X11OwnKeyboard::copyKeymap() {
    // The server turns this keyboard's keys into modifier state by its own keymap, while the
    // applications read the keycodes by the core keyboard's: the two must be the same.
    XkbDescPtr map =
        XkbGetMap(display_, XkbAllClientInfoMask | XkbAllServerInfoMask, XkbUseCoreKbd);
    if (map == nullptr) {
        return;
    }
    map->device_spec = static_cast<unsigned short>(keyboard_);
    XkbSetMap(display_, XkbAllClientInfoMask | XkbAllServerInfoMask, map);
    XkbFreeKeyboard(map, 0, True);
}

} // namespace quillet
