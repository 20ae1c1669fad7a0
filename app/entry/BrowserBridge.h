#pragma once

#include "library/LibraryLocation.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

class SiteSink;

/// The browser side of sites: the native-messaging host a browser starts this executable as,
/// which passes each site its extension reports on to a SiteSink, and the host manifests that
/// tell each browser where the host is.
struct BrowserBridge {
    /// The host's name; its manifest is this name with ".json".
    static constexpr std::string_view hostName = "com.quillet.site";
    /// The extensions Chromium-family browsers let start the host: the published one, and the
    /// one in app/ChromeExtension, whose manifest's key fixes its id when loaded unpacked.
    static constexpr std::string_view allowedOrigin =
        "chrome-extension://hbnpkcdalmgiefojhbnpkcdalmgiefoj/";
    static constexpr std::string_view shippedOrigin =
        "chrome-extension://pflhjiadgdngaiohagpgcnonoklmcmpf/";
    /// The only add-on Firefox lets start the host.
    static constexpr std::string_view firefoxAddOn = "quillet-site@quillet.example";
    /// The largest message read; a longer one ends the host.
    static constexpr std::size_t maxMessage = 4096;

    /// True when args (the program path left out) are what a browser starts its host with: a
    /// Chromium extension's origin first, or Firefox's path of the manifest and the add-on id.
    static bool isHostCall(const std::vector<std::string>& args);

    /// The WM_CLASS class the windows of the browser running executable carry; empty when it is
    /// no browser known here.
    static std::string browserId(const std::filesystem::path& executable);

    /// The browser id of this process's parent, the browser that started the host.
    static std::string callingBrowser();

    /// Reads framed messages from fd until it ends, fails or brings a frame over maxMessage, and
    /// passes "<browser> <site>" to sink for each.
    static void serve(int fd, std::string_view browser, SiteSink& sink);

    /// What installing the manifests did.
    struct Installed {
        std::vector<std::string> browsers; ///< the display names of those set up, in order
        std::string message;               ///< what the user is told
    };

    /// Writes a manifest naming executable as the host for every browser whose folder exists
    /// under folders, replacing an earlier one; a browser whose write fails is left out.
    static Installed install(const Folders& folders, const std::filesystem::path& executable);

    /// True when some browser under folders has the host's manifest.
    static bool isInstalled(const Folders& folders);

    /// The absolute path of the running executable, as a browser must start it.
    static std::filesystem::path ownExecutable();
};

} // namespace quillet
