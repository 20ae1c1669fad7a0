#include "platform/x11/X11CoreKeyboard.h"

#include <X11/extensions/XInput2.h>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <string_view>
#include <unistd.h>

namespace quillet {
namespace {

// Requests the server may refuse (a device gone meanwhile) must not end the process.
int ignoreErrors(Display*, XErrorEvent*) {
    return 0;
}

// A master pair an earlier Quillet made and left when it died: its name ends in a process id
// nobody has any more. While it stays, Chromium hears its keyboard instead of the user's.
bool abandoned(std::string_view name) {
    constexpr std::string_view prefix = "Quillet ";
    constexpr std::string_view suffix = " pointer";
    if (!name.starts_with(prefix) || !name.ends_with(suffix)) {
        return false;
    }
    name.remove_prefix(prefix.size());
    name.remove_suffix(suffix.size());
    int pid = 0;
    const auto [end, problem] = std::from_chars(name.data(), name.data() + name.size(), pid);
    if (problem != std::errc() || end != name.data() + name.size() || pid <= 1) {
        return false;
    }
    return ::kill(pid, 0) != 0 && errno == ESRCH;
}

} // namespace

std::unique_ptr<X11CoreKeyboard> X11CoreKeyboard::open(Display* display) {
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
    int pointer = -1;
    if (XIGetClientPointer(display, None, &pointer) == 0) {
        pointer = -1;
    }
    int master = -1;
    int count = 0;
    XIDeviceInfo* devices = XIQueryDevice(display, XIAllMasterDevices, &count);
    for (int i = 0; i < count; ++i) {
        const XIDeviceInfo& device = devices[i];
        if (device.use == XIMasterPointer && abandoned(device.name)) {
            XIRemoveMasterInfo remove{XIRemoveMaster, device.deviceid, XIFloating, 0, 0};
            XIChangeHierarchy(display, reinterpret_cast<XIAnyHierarchyChangeInfo*>(&remove), 1);
        } else if (device.use == XIMasterPointer && device.deviceid == pointer) {
            master = device.attachment;
        } else if (device.use == XIMasterKeyboard && master < 0 && pointer < 0) {
            master = device.deviceid;
        }
    }
    XIFreeDeviceInfo(devices);
    XSync(display, False);
    XSetErrorHandler(previous);
    if (master < 0) {
        return nullptr;
    }
    std::unique_ptr<X11CoreKeyboard> keyboard(new X11CoreKeyboard);
    keyboard->device_.device_id = static_cast<XID>(master);
    return keyboard;
}

} // namespace quillet
