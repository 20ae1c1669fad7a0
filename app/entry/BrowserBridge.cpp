#include "entry/BrowserBridge.h"

#include "library/AtomicFile.h"
#include "library/Site.h"
#include "library/SiteSink.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace quillet {
namespace {

namespace fs = std::filesystem;
using json = nlohmann::json;

const std::string manifestName = std::string(BrowserBridge::hostName) + ".json";

// A browser, where its settings live under the config folder, and the host manifests in there.
struct Browser {
    std::string_view name;
    std::string_view folder;
    bool firefox = false;
};

const std::array<Browser, 6> browsers = {{
    {"Google Chrome", "google-chrome"},
    {"Chromium", "chromium"},
    {"Brave", "BraveSoftware/Brave-Browser"},
    {"Microsoft Edge", "microsoft-edge"},
    {"Vivaldi", "vivaldi"},
    {"Firefox", {}, true},
}};

// Chromium's browsers keep their settings under the XDG config folder; Firefox in its own
// folder in the home folder, whatever XDG says.
fs::path browserFolder(const Folders& folders, const Browser& browser) {
    return browser.firefox ? folders.home / ".mozilla"
                           : folders.config.parent_path() / browser.folder;
}

// Where the browser reads user-level host manifests.
fs::path hostsFolder(const Folders& folders, const Browser& browser) {
    return browserFolder(folders, browser) /
           (browser.firefox ? "native-messaging-hosts" : "NativeMessagingHosts");
}

std::string manifest(const fs::path& executable, bool firefox) {
    json m = {{"name", BrowserBridge::hostName},
              {"description", "Quillet"},
              {"path", executable.string()},
              {"type", "stdio"}};
    if (firefox) {
        m["allowed_extensions"] = {BrowserBridge::firefoxAddOn};
    } else {
        m["allowed_origins"] = {BrowserBridge::allowedOrigin, BrowserBridge::shippedOrigin};
    }
    return m.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

// Fills buffer from fd; false when the input ended or failed first.
bool readExactly(int fd, char* buffer, std::size_t size) {
    while (size > 0) {
        const ssize_t got = ::read(fd, buffer, size);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return false;
        }
        buffer += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

std::string siteOf(std::string_view message) {
    json parsed = json::parse(message, nullptr, false);
    if (!parsed.is_object()) {
        return {};
    }
    auto host = parsed.find("host");
    if (host == parsed.end() || !host->is_string()) {
        return {};
    }
    return siteHost(host->get_ref<const std::string&>()).value_or(std::string());
}

} // namespace

bool BrowserBridge::isHostCall(const std::vector<std::string>& args) {
    if (args.empty()) {
        return false;
    }
    return args[0].starts_with("chrome-extension://") ||
           (args.size() >= 2 && fs::path(args[0]).filename() == manifestName);
}

std::string BrowserBridge::browserId(const fs::path& executable) {
    const std::string name = executable.filename().string();
    const std::string folder = executable.parent_path().filename().string();
    // Chrome and Edge run a binary of a plain name from a folder named after the channel
    // (/opt/google/chrome-beta/chrome), and the channel is in their windows' class too.
    auto channel = [&](std::string_view stable) {
        return folder.starts_with(std::string(stable) + "-") ? folder.substr(stable.size())
                                                             : std::string();
    };
    if (name == "chrome" && !folder.starts_with("chromium")) {
        return "Google-chrome" + channel("chrome");
    }
    if (name == "msedge") {
        return "Microsoft-edge" + channel("msedge");
    }
    struct Known {
        std::string_view prefix;
        std::string_view id;
    };
    // The first prefix that fits wins: firefox-esr before firefox.
    static constexpr std::array<Known, 8> known = {{
        {"chrome", "Chromium"}, // a Chromium build's binary in a chromium folder
        {"chromium", "Chromium"},
        {"google-chrome", "Google-chrome"},
        {"brave", "Brave-browser"},
        {"microsoft-edge", "Microsoft-edge"},
        {"vivaldi", "Vivaldi-stable"},
        {"firefox-esr", "firefox-esr"},
        {"firefox", "firefox"},
    }};
    for (const Known& k : known) {
        if (name.starts_with(k.prefix)) {
            return std::string(k.id);
        }
    }
    return {};
}

std::string BrowserBridge::callingBrowser() {
    std::error_code error;
    std::string path =
        fs::read_symlink("/proc/" + std::to_string(::getppid()) + "/exe", error).string();
    // A browser updated while it runs still runs the replaced file.
    const std::string_view deleted = " (deleted)";
    if (path.ends_with(deleted)) {
        path.resize(path.size() - deleted.size());
    }
    return error ? std::string() : browserId(path);
}

void BrowserBridge::serve(int fd, std::string_view browser, SiteSink& sink) {
    std::string message;
    for (;;) {
        std::array<unsigned char, 4> header{};
        if (!readExactly(fd, reinterpret_cast<char*>(header.data()), header.size())) {
            return;
        }
        std::uint32_t length = 0;
        for (std::size_t i = header.size(); i-- > 0;) {
            length = (length << 8U) | header[i];
        }
        if (length > maxMessage) {
            return;
        }
        message.resize(length);
        if (!readExactly(fd, message.data(), length)) {
            return;
        }
        sink.changed(std::string(browser) + " " + siteOf(message));
    }
}

BrowserBridge::Installed BrowserBridge::install(const Folders& folders,
                                                const fs::path& executable) {
    Installed result;
    for (const Browser& browser : browsers) {
        std::error_code missing;
        if (!fs::is_directory(browserFolder(folders, browser), missing)) {
            continue;
        }
        const fs::path folder = hostsFolder(folders, browser);
        std::string error;
        if (createFolders(folder, 0755, error) &&
            writeFileAtomically(folder / manifestName, manifest(executable, browser.firefox), 0644,
                                error)) {
            result.browsers.emplace_back(browser.name);
        }
    }
    if (result.browsers.empty()) {
        result.message = "No Chrome, Brave, Edge, Vivaldi or Chromium found.";
        return result;
    }
    result.message = "Set up for ";
    for (std::size_t i = 0; i < result.browsers.size(); ++i) {
        result.message += (i > 0 ? ", " : "") + result.browsers[i];
    }
    result.message +=
        ". Now add the Quillet extension: open the extensions page, turn on Developer mode, "
        "choose Load unpacked and pick the app/ChromeExtension folder in the Quillet source. "
        "Then a snippet set to \u201COnly in\u2026\u201D a website expands only there.";
    return result;
}

bool BrowserBridge::isInstalled(const Folders& folders) {
    for (const Browser& browser : browsers) {
        std::error_code error;
        if (fs::is_regular_file(hostsFolder(folders, browser) / manifestName, error)) {
            return true;
        }
    }
    return false;
}

fs::path BrowserBridge::ownExecutable() {
    std::error_code error;
    return fs::read_symlink("/proc/self/exe", error);
}

} // namespace quillet
