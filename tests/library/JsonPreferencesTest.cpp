#include "library/JsonPreferences.h"

#include "library/LibraryLocation.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using nlohmann::json;
using testing::contentsOf;
using testing::entriesOf;
using testing::modeOf;
using testing::writeText;

class JsonPreferencesTest : public ::testing::Test {
protected:
    testing::TempFolder temp;
    std::filesystem::path file = temp / "config" / "quillet" / "settings.json";
};

TEST_F(JsonPreferencesTest, MissingFileReadsEmptyAndFirstWriteCreatesIt) {
    JsonFilePreferences preferences(file);
    EXPECT_TRUE(preferences.value("triggerMode").is_null());
    EXPECT_FALSE(preferences.isOn("sync"));
    EXPECT_FALSE(std::filesystem::exists(file));

    ASSERT_TRUE(preferences.setValue("triggerMode", "tab")) << preferences.lastError();
    ASSERT_TRUE(preferences.setValue("sync", true)) << preferences.lastError();
    EXPECT_EQ(modeOf(temp / "config"), 0700U);
    EXPECT_EQ(modeOf(file.parent_path()), 0700U);
    EXPECT_EQ(modeOf(file), 0600U);
    EXPECT_EQ(json::parse(contentsOf(file)), (json{{"triggerMode", "tab"}, {"sync", true}}));
    EXPECT_EQ(entriesOf(file.parent_path()), std::vector<std::string>{"settings.json"});

    JsonFilePreferences reopened(file);
    EXPECT_EQ(reopened.text("triggerMode"), "tab");
    EXPECT_EQ(reopened.boolean("sync"), true);
}

TEST_F(JsonPreferencesTest, NullRemovesAKeyAndKeepsTheOthers) {
    JsonFilePreferences preferences(file);
    ASSERT_TRUE(preferences.setValue("a", 1));
    ASSERT_TRUE(preferences.setValue("b", json::array({"x"})));
    ASSERT_TRUE(preferences.setValue("a", nullptr));
    EXPECT_TRUE(preferences.value("a").is_null());
    EXPECT_EQ(json::parse(contentsOf(file)), (json{{"b", json::array({"x"})}}));
}

TEST_F(JsonPreferencesTest, OutsideEditsAreSeenOnTheNextRead) {
    JsonFilePreferences preferences(file);
    ASSERT_TRUE(preferences.setValue("triggerMode", "tab"));
    EXPECT_EQ(preferences.text("triggerMode"), "tab");

    // Edited in place, same size, right after the last read: only the content differs.
    writeText(file, R"({"triggerMode": "ta2"})");
    EXPECT_EQ(preferences.text("triggerMode"), "ta2");
    writeText(file, R"({"triggerMode": "ta3"})");
    EXPECT_EQ(preferences.text("triggerMode"), "ta3");

    // Replaced by another program's atomic write.
    writeText(temp / "other.json", R"({"triggerMode": "delimiter", "typo.common": true})");
    std::filesystem::rename(temp / "other.json", file);
    EXPECT_EQ(preferences.text("triggerMode"), "delimiter");

    // A value set now keeps what the outside edit added.
    ASSERT_TRUE(preferences.setValue("allowScripts", false));
    EXPECT_EQ(json::parse(contentsOf(file)),
              (json{{"triggerMode", "delimiter"}, {"typo.common", true}, {"allowScripts", false}}));

    std::filesystem::remove(file);
    EXPECT_TRUE(preferences.value("triggerMode").is_null());
}

TEST_F(JsonPreferencesTest, DamagedFileReadsEmptyAndIsNeverOverwritten) {
    std::filesystem::create_directories(file.parent_path());
    for (const char* damaged : {R"({"sync": true,)", R"(["sync", true])", ""}) {
        writeText(file, damaged);
        JsonFilePreferences preferences(file);
        EXPECT_TRUE(preferences.value("sync").is_null()) << damaged;
        EXPECT_TRUE(preferences.isDamaged());
        EXPECT_FALSE(preferences.setValue("sync", false));
        EXPECT_NE(preferences.lastError(), "");
        EXPECT_EQ(contentsOf(file), damaged);
    }

    // Once the user repairs it, it is read and written again.
    JsonFilePreferences preferences(file);
    EXPECT_FALSE(preferences.setValue("sync", false));
    writeText(file, R"({"sync": true})");
    EXPECT_FALSE(preferences.isDamaged());
    EXPECT_EQ(preferences.boolean("sync"), true);
    EXPECT_TRUE(preferences.setValue("sync", false));
    EXPECT_EQ(preferences.boolean("sync"), false);
}

TEST_F(JsonPreferencesTest, FolderInPlaceOfTheFileIsNotReplaced) {
    std::filesystem::create_directories(file);
    JsonFilePreferences preferences(file);
    EXPECT_TRUE(preferences.value("sync").is_null());
    EXPECT_FALSE(preferences.setValue("sync", true));
    EXPECT_TRUE(std::filesystem::is_directory(file));
}

TEST_F(JsonPreferencesTest, ReadOnlySettingsNeverWrite) {
    JsonFilePreferences readOnly(file, JsonFilePreferences::Access::readOnly);
    EXPECT_FALSE(readOnly.setValue("sync", true));
    EXPECT_FALSE(std::filesystem::exists(file.parent_path()));

    JsonFilePreferences writer(file);
    ASSERT_TRUE(writer.setValue("sync", true));
    EXPECT_EQ(readOnly.boolean("sync"), true);
    std::string before = contentsOf(file);
    EXPECT_FALSE(readOnly.setValue("sync", false));
    EXPECT_EQ(contentsOf(file), before);
}

TEST_F(JsonPreferencesTest, SyncEditedInTheSettingsFileMovesTheLibrary) {
    JsonFilePreferences preferences(file, JsonFilePreferences::Access::readOnly);
    Folders folders = Folders::forHome(temp.path(), "", "");
    LibraryLocation location(preferences, folders);
    EXPECT_EQ(location.libraryFile(), folders.data / "snippets.json");

    std::filesystem::create_directories(file.parent_path());
    writeText(file, R"({"sync": true, "syncFolder": ")" + (temp / "Sync").string() + R"("})");
    EXPECT_EQ(location.libraryFile(), temp / "Sync" / "Quillet" / "snippets.json");
}

TEST_F(JsonPreferencesTest, UnreadableFileIsNotReplaced) {
    JsonFilePreferences preferences(file);
    ASSERT_TRUE(preferences.setValue("sync", true));
    // Anyone may replace entries in the folder, so only the refusal protects the file.
    for (auto p = file.parent_path(); p != temp.path().parent_path(); p = p.parent_path()) {
        ::chmod(p.c_str(), 0777);
    }
    ::chmod(file.c_str(), 0200);
    int status = testing::asNobody([&] {
        JsonFilePreferences other(file);
        if (!other.value("sync").is_null()) {
            return 1;
        }
        return other.setValue("sync", false) ? 2 : 0;
    });
    EXPECT_EQ(status, 0);
    ::chmod(file.c_str(), 0600);
    EXPECT_EQ(json::parse(contentsOf(file)), (json{{"sync", true}}));
}

} // namespace
} // namespace quillet
