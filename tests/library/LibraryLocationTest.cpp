#include "library/LibraryLocation.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using std::filesystem::path;

const Folders folders = Folders::forHome("/home/ada", "", "");

TEST(Folders, FollowTheXdgBaseDirectoryRules) {
    EXPECT_EQ(folders.data, path("/home/ada/.local/share/quillet"));
    EXPECT_EQ(folders.config, path("/home/ada/.config/quillet"));
    EXPECT_EQ(folders.settingsFile(), path("/home/ada/.config/quillet/settings.json"));

    Folders custom = Folders::forHome("/home/ada", "/srv/data", "/etc/ada");
    EXPECT_EQ(custom.data, path("/srv/data/quillet"));
    EXPECT_EQ(custom.config, path("/etc/ada/quillet"));

    // Relative values are invalid by the rules and must be ignored, not resolved against the
    // working folder.
    Folders relative = Folders::forHome("/home/ada", "data", "./config");
    EXPECT_EQ(relative.data, folders.data);
    EXPECT_EQ(relative.config, folders.config);
}

TEST(LibraryLocation, SyncSwitchMovesTheLibraryAtOnce) {
    MemoryPreferences preferences;
    LibraryLocation location(preferences, folders);
    EXPECT_FALSE(location.isSynced());
    EXPECT_EQ(location.libraryFile(), path("/home/ada/.local/share/quillet/snippets.json"));
    EXPECT_EQ(location.imagesFolder(), path("/home/ada/.local/share/quillet/images"));

    preferences.setValue("syncFolder", "/home/ada/Sync");
    EXPECT_EQ(location.folder(), folders.data); // a folder alone does not switch sync on
    preferences.setValue("sync", true);
    EXPECT_TRUE(location.isSynced());
    EXPECT_EQ(location.libraryFile(), path("/home/ada/Sync/Quillet/snippets.json"));
    EXPECT_EQ(location.imagesFolder(), path("/home/ada/Sync/Quillet/images"));

    preferences.setValue("sync", false);
    EXPECT_EQ(location.folder(), folders.data);
}

TEST(LibraryLocation, SyncWithoutAUsableFolderStaysLocal) {
    for (const nlohmann::json& syncFolder :
         {nlohmann::json(), nlohmann::json(""), nlohmann::json("Sync"), nlohmann::json(3)}) {
        MemoryPreferences preferences({{"sync", true}, {"syncFolder", syncFolder}});
        EXPECT_EQ(LibraryLocation(preferences, folders).folder(), folders.data) << syncFolder;
    }
    MemoryPreferences textual({{"sync", "true"}, {"syncFolder", "/mnt/sync"}});
    EXPECT_EQ(LibraryLocation(textual, folders).folder(), folders.data);

    MemoryPreferences tilde({{"sync", true}, {"syncFolder", "~/Nextcloud"}});
    EXPECT_EQ(LibraryLocation(tilde, folders).folder(), path("/home/ada/Nextcloud/Quillet"));
}

TEST(LibraryLocation, UsageAndSettingsStayLocalWhenSynced) {
    MemoryPreferences preferences({{"sync", true}, {"syncFolder", "/mnt/sync"}});
    LibraryLocation location(preferences, folders);
    EXPECT_EQ(location.usageFile(), path("/home/ada/.local/share/quillet/usage.json"));
    EXPECT_EQ(location.settingsFile(), path("/home/ada/.config/quillet/settings.json"));
}

TEST(LibraryLocation, ImageFileStaysInsideTheImagesFolder) {
    MemoryPreferences preferences;
    LibraryLocation location(preferences, folders);
    Snippet snippet;
    EXPECT_FALSE(location.imageFile(snippet));
    snippet.image = "9F3C.png";
    EXPECT_EQ(location.imageFile(snippet), path("/home/ada/.local/share/quillet/images/9F3C.png"));
    for (const char* name : {"", ".", "..", "../usage.json", "/etc/passwd", "a/b.png"}) {
        snippet.image = name;
        EXPECT_FALSE(location.imageFile(snippet)) << name;
    }
}

} // namespace
} // namespace quillet
