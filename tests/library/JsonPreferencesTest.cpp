#include "library/JsonPreferences.h"

#include "library/LibraryLocation.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using namespace testing;
using nlohmann::json;

class JsonPreferencesTest : public ::testing::Test {
protected:
    TempFolder temp;
    std::filesystem::path file = temp / "settings.json";
};

TEST_F(JsonPreferencesTest, SeesOutsideEditsOnTheNextReadAndKeepsThemOnWrite) {
    JsonFilePreferences preferences(file);
    ASSERT_TRUE(preferences.setValue("triggerMode", "tab")) << preferences.lastError();
    // Edited in place right after the write, same size, likely in the same second.
    writeText(file, R"({"triggerMode": "ta2"})");
    EXPECT_EQ(preferences.text("triggerMode"), "ta2");
    // Replaced by another program's atomic write; values set now keep what that added.
    writeText(temp / "other.json", R"({"triggerMode": "delimiter", "typo.common": true, "a": 1})");
    std::filesystem::rename(temp / "other.json", file);
    ASSERT_TRUE(preferences.setValue("a", nullptr) && preferences.setValue("sync", false));
    EXPECT_EQ(json::parse(contentsOf(file)),
              (json{{"triggerMode", "delimiter"}, {"typo.common", true}, {"sync", false}}));
    std::filesystem::remove(file);
    EXPECT_TRUE(preferences.value("triggerMode").is_null());
}

TEST_F(JsonPreferencesTest, DamagedOrUnreadableSettingsAreNeverOverwritten) {
    JsonFilePreferences preferences(file);
    for (const char* damaged : {R"({"sync": true,)", R"(["sync", true])", ""}) {
        writeText(file, damaged);
        EXPECT_TRUE(preferences.value("sync").is_null() && preferences.isDamaged()) << damaged;
        EXPECT_TRUE(!preferences.setValue("sync", false) && !preferences.lastError().empty());
        EXPECT_EQ(contentsOf(file), damaged);
    }
    writeText(file, R"({"sync": true})"); // once repaired, it is read and written again
    EXPECT_TRUE(preferences.setValue("sync", false) && preferences.boolean("sync") == false);

    // Anyone may replace entries in the folder, so only the refusal protects the file.
    ::chmod(temp.path().c_str(), 0777);
    ::chmod(file.c_str(), 0200);
    auto replacedAsNobody = [&] {
        JsonFilePreferences other(file);
        return !other.value("sync").is_null() || other.setValue("sync", true);
    };
    EXPECT_EQ(asNobody(replacedAsNobody), 0);
    ::chmod(file.c_str(), 0600);
    EXPECT_EQ(json::parse(contentsOf(file)), (json{{"sync", false}}));
}

TEST_F(JsonPreferencesTest, SyncEditedInReadOnlySettingsMovesTheLibraryAtOnce) {
    JsonFilePreferences readOnly(file, JsonFilePreferences::Access::readOnly);
    LibraryLocation location(readOnly, Folders::forHome(temp.path(), "", ""));
    EXPECT_EQ(location.libraryFile(), temp / ".local/share/quillet/snippets.json");
    std::string written = R"({"sync": true, "syncFolder": ")" + (temp / "Sync").string() + "\"}";
    writeText(file, written);
    EXPECT_EQ(location.libraryFile(), temp / "Sync" / "Quillet" / "snippets.json");
    EXPECT_FALSE(readOnly.setValue("sync", false)); // tools that only read never write
    EXPECT_EQ(contentsOf(file), written);
}

} // namespace
} // namespace quillet
