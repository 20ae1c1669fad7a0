#include "platform/Desktop.h"

#ifdef QUILLET_HAVE_X11
#include "platform/x11/X11Desktop.h"
#endif

#include <cstdlib>

namespace quillet {

std::unique_ptr<Desktop> Desktop::open(Scheduler& scheduler, const Preferences& preferences,
                                       const std::function<void(const std::string&)>& log,
                                       std::string& why) {
    const char* display = std::getenv("DISPLAY");
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
#ifdef QUILLET_HAVE_X11
    if (display != nullptr && *display != '\0') {
        std::string error;
        if (auto desktop = X11Desktop::open(display, scheduler, preferences, error, log)) {
            log("keyboard backend: " + desktop->describe());
            return desktop;
        }
        log("keyboard backend x11 unavailable: " + error);
        why = error;
        return nullptr;
    }
#else
    (void)scheduler;
    (void)preferences;
#endif
    if (wayland != nullptr && *wayland != '\0') {
        why = "This Wayland session gives Quillet no X11 display to listen to.";
    } else if (display == nullptr || *display == '\0') {
        why = "There is no X11 display to listen to (DISPLAY is not set).";
    } else {
        why = "This build of Quillet has no backend for this desktop.";
    }
    log("no keyboard backend: " + why);
    return nullptr;
}

} // namespace quillet
