#pragma once

#include "library/Preferences.h"
#include "library/Snippet.h"

#include <filesystem>
#include <optional>
#include <string_view>

namespace quillet {

/// The per-user base folders of the application.
struct Folders {
    std::filesystem::path home;   ///< the user's home folder
    std::filesystem::path data;   ///< local data: the library when not synced, usage statistics
    std::filesystem::path config; ///< settings

    /// The folders of this process's user, worked out from the environment on first use and kept.
    static const Folders& current();

    /// The folders for a home folder and the values of XDG_DATA_HOME and XDG_CONFIG_HOME (empty
    /// when unset); relative values are ignored as the XDG base directory rules require.
    static Folders forHome(const std::filesystem::path& home, std::string_view dataHome,
                           std::string_view configHome);

    /// The settings file in the config folder.
    std::filesystem::path settingsFile() const { return config / "settings.json"; }
};

/// Where the library lives. The sync settings are read again on every call, so switching sync on
/// or off moves the next read or write without a restart.
class LibraryLocation {
public:
    /// A location reading "sync" and "syncFolder" from preferences, which must outlive it.
    explicit LibraryLocation(const Preferences& preferences, Folders folders = Folders::current());

    /// True when the library lives in the synced folder.
    bool isSynced() const;

    /// The library folder: syncFolder/"Quillet" when synced, else the local data folder.
    std::filesystem::path folder() const;

    /// The library file in the current library folder.
    std::filesystem::path libraryFile() const { return folder() / "snippets.json"; }

    /// The folder of the snippets' pictures in the current library folder.
    std::filesystem::path imagesFolder() const { return folder() / "images"; }

    /// The picture file of a snippet; nothing when it has no image or the name is not a plain
    /// file name.
    std::optional<std::filesystem::path> imageFile(const Snippet& snippet) const;

    /// The usage statistics file, always in the local data folder since counts are per computer.
    std::filesystem::path usageFile() const { return folders_.data / "usage.json"; }

    /// The settings file.
    std::filesystem::path settingsFile() const { return folders_.settingsFile(); }

    /// The base folders this location was made with.
    const Folders& folders() const { return folders_; }

private:
    std::optional<std::filesystem::path> syncedFolder() const;

    const Preferences& preferences_;
    Folders folders_;
};

} // namespace quillet
