#include "library/LibraryLocation.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using std::filesystem::path;

const Folders folders = Folders::forHome("/home/ada", "", "");

TEST(LibraryLocation, FollowsTheXdgRulesAndTheSyncSwitchAtOnce) {
    EXPECT_EQ(folders.data, path("/home/ada/.local/share/quillet"));
    EXPECT_EQ(folders.settingsFile(), path("/home/ada/.config/quillet/settings.json"));
    EXPECT_EQ(Folders::forHome("/home/ada", "/srv/data", "").data, path("/srv/data/quillet"));
    EXPECT_EQ(Folders::forHome("/home/ada", "", "/etc/ada").config, path("/etc/ada/quillet"));
    // Relative values are invalid by the rules: ignored, never resolved against the working folder.
    EXPECT_EQ(Folders::forHome("/home/ada", "data", "").data, folders.data);
    EXPECT_EQ(Folders::forHome("/home/ada", "", "./config").config, folders.config);

    MemoryPreferences preferences;
    LibraryLocation location(preferences, folders);
    const std::tuple<nlohmann::json, nlohmann::json, path> cases[] = {
        {nullptr, "/mnt/sync", folders.data}, // a folder alone does not switch sync on
        {true, "/mnt/sync", "/mnt/sync/Quillet"},
        {"true", "/mnt/sync", folders.data},
        {true, "Sync", folders.data},
        {true, 3, folders.data},
        {true, "", folders.data},
        {true, "~/Nextcloud", "/home/ada/Nextcloud/Quillet"},
    };
    for (const auto& [sync, syncFolder, folder] : cases) {
        preferences.setValue("sync", sync);
        preferences.setValue("syncFolder", syncFolder);
        EXPECT_EQ(location.libraryFile(), folder / "snippets.json") << sync << " " << syncFolder;
    }
    Snippet snippet;
    snippet.image = "9F3C.png";
    EXPECT_EQ(location.imageFile(snippet), path("/home/ada/Nextcloud/Quillet/images/9F3C.png"));
    for (const char* name : {"", ".", "..", "../usage.json", "/etc/passwd", "a/b.png"}) {
        snippet.image = name;
        EXPECT_FALSE(location.imageFile(snippet)) << name;
    }
}

} // namespace
} // namespace quillet
