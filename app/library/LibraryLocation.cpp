#include "library/LibraryLocation.h"

#include <algorithm>
#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace quillet {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view folderName = "quillet";

std::string_view environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string_view() : std::string_view(value);
}

fs::path homeFolder() {
    fs::path home(environment("HOME"));
    if (home.is_absolute()) {
        return home;
    }
    // Services and sudo sessions may run without HOME; the account database still knows it.
    if (const passwd* entry = ::getpwuid(::getuid());
        entry != nullptr && entry->pw_dir != nullptr) {
        return entry->pw_dir;
    }
    return "/";
}

fs::path baseFolder(std::string_view value, const fs::path& fallback) {
    fs::path path(value);
    return path.is_absolute() ? path : fallback;
}

} // namespace

const Folders& Folders::current() {
    static const Folders folders =
        forHome(homeFolder(), environment("XDG_DATA_HOME"), environment("XDG_CONFIG_HOME"));
    return folders;
}

Folders Folders::forHome(const fs::path& home, std::string_view dataHome,
                         std::string_view configHome) {
    Folders folders;
    folders.home = home;
    folders.data = baseFolder(dataHome, home / ".local" / "share") / folderName;
    folders.config = baseFolder(configHome, home / ".config") / folderName;
    return folders;
}

LibraryLocation::LibraryLocation(const Preferences& preferences, Folders folders)
    : preferences_(preferences), folders_(std::move(folders)) {}

std::optional<fs::path> LibraryLocation::syncedFolder() const {
    if (!preferences_.isOn("sync")) {
        return std::nullopt;
    }
    auto setting = preferences_.text("syncFolder");
    if (!setting || setting->empty()) {
        return std::nullopt;
    }
    std::string_view text = *setting;
    // A relative folder would resolve differently for the application and the command-line tool,
    // so only "~" is expanded and anything else relative counts as not set.
    if (text == "~" || text.starts_with("~/")) {
        text.remove_prefix(std::min<std::size_t>(2, text.size()));
        return (folders_.home / text).lexically_normal();
    }
    fs::path path(text);
    if (!path.is_absolute()) {
        return std::nullopt;
    }
    return path;
}

bool LibraryLocation::isSynced() const {
    return syncedFolder().has_value();
}

fs::path LibraryLocation::folder() const {
    if (auto synced = syncedFolder()) {
        return *synced / "Quillet";
    }
    return folders_.data;
}

std::optional<fs::path> LibraryLocation::imageFile(const Snippet& snippet) const {
    if (!snippet.image) {
        return std::nullopt;
    }
    // The name comes from a file that may have been synced from elsewhere; a path in it must not
    // reach outside the images folder.
    const std::string& name = *snippet.image;
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
        name.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    return imagesFolder() / name;
}

} // namespace quillet
