#include "library/Store.h"

#include "library/LibraryFile.h"
#include "library/RunLoop.h"
#include "platform/fake/FakeFileWatcher.h"
#include "platform/linux/InotifyWatcher.h"
#include "support/Snippets.h"
#include "support/TempFolder.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>

namespace quillet {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::contentsOf;
using testing::snippet;
using testing::writeText;

// A store over temporary XDG folders, with settings in memory and a synced folder chosen.
class StoreTest : public ::testing::Test {
protected:
    StoreTest() {
        fs::create_directories(images);
        fs::create_directories(syncedImages);
        preferences.setValue("syncFolder", synced.string());
    }

    std::unique_ptr<SnippetStore> makeStore(SnippetStore::SharedFolderLoader loader = {},
                                            FileWatcher* on = nullptr) {
        auto store = std::make_unique<SnippetStore>(preferences, on != nullptr ? *on : watcher,
                                                    loop, folders, std::move(loader));
        store->setOnChange([this](const SnippetList& effective) {
            ++changes;
            told = *effective;
        });
        return store;
    }

    testing::TempFolder temp;
    Folders folders = Folders::forHome(temp / "home", "", "");
    fs::path localFile = folders.data / "snippets.json";
    fs::path synced = temp / "Sync";
    fs::path syncedFile = synced / "Quillet" / "snippets.json";
    fs::path images = folders.data / "images";
    fs::path syncedImages = synced / "Quillet" / "images";
    std::vector<Snippet> mine{snippet(";a", "mine a"), snippet(";b", "mine b")};
    MemoryPreferences preferences;
    FakeFileWatcher watcher;
    RunLoop loop;
    int changes = 0;
    std::vector<Snippet> told;
};

TEST_F(StoreTest, AFirstStartWritesExactlyTheTwoSeedSnippets) {
    auto store = makeStore();
    EXPECT_TRUE(store->isNew());
    const auto& seeds = store->snippets();
    ASSERT_TRUE(seeds.size() == 2 && seeds[0].created && seeds[1].created);
    auto again = makeStore(); // reads what the first one wrote
    EXPECT_FALSE(again->isNew());
    EXPECT_EQ(again->snippets(), seeds);
}

TEST_F(StoreTest, ADamagedLibraryIsNeverWrittenUntilItReadsAgain) {
    const std::string id = R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F",)";
    for (const std::string& bad : {"[" + id + R"("abbrevi)", "[" + id + R"("abbreviation":5}])",
                                   id + R"("abbreviation":";a","content":"x"})", std::string()}) {
        SCOPED_TRACE(bad);
        writeText(localFile, bad);
        auto store = makeStore();
        EXPECT_FALSE(store->canSave());
        EXPECT_NE(store->problem(), "");
        EXPECT_TRUE(store->snippets().empty());
        store->setSnippets({snippet(";new")});
        watcher.trigger(); // still bad on disk
        store->setSnippets({snippet(";newer")});
        EXPECT_EQ(contentsOf(localFile), bad);

        // Repaired on disk: taken as it is, and saved again from then on.
        std::vector<Snippet> repaired{snippet(";fixed")};
        writeText(localFile, encodeLibrary(repaired));
        watcher.trigger();
        EXPECT_TRUE(store->canSave());
        EXPECT_EQ(store->problem(), "");
        EXPECT_EQ(told, repaired);
        repaired.push_back(snippet(";more"));
        store->setSnippets(repaired);
        EXPECT_EQ(readLibrary(localFile).snippets, repaired);

        // Broken again while the store holds a list: everything stays as it is, saving too,
        // and the broken file is kept aside before an edit writes over it.
        writeText(localFile, bad);
        watcher.trigger();
        EXPECT_TRUE(store->canSave());
        EXPECT_EQ(store->snippets(), repaired);
        repaired.push_back(snippet(";after"));
        store->setSnippets(repaired);
        EXPECT_EQ(readLibrary(localFile).snippets, repaired);
        EXPECT_EQ(contentsOf(localFile.string() + ".damaged"), bad);
        fs::remove(localFile);
        fs::remove(localFile.string() + ".damaged");
    }
}

TEST_F(StoreTest, AChangedSettingsFileMovesTheLibraryReloadsSharedFoldersAndIsPassedOn) {
    writeText(localFile, encodeLibrary(mine));
    auto store = makeStore([](const std::string& folder) {
        return SnippetStore::SharedPack{folder, {snippet(";team")}, 0};
    });
    int settingsChanges = 0;
    store->setOnSettingsChange([&] { ++settingsChanges; });
    EXPECT_EQ(watcher.paths(), (std::vector<fs::path>{folders.data, folders.settingsFile()}));
    watcher.trigger(); // the library folder changed, the settings did not
    EXPECT_EQ(settingsChanges, 0);

    preferences.setValue("sharedFolders", {"/team"});
    watcher.trigger();
    EXPECT_EQ(settingsChanges, 1);
    EXPECT_EQ(told.back().abbreviation, ";team");
    EXPECT_EQ(watcher.paths().back(), "/team");

    // Sync switched on by hand: the library moves into the empty synced folder with its images.
    writeText(images / "logo.png", "logo");
    preferences.setValue("sync", true);
    watcher.trigger();
    EXPECT_EQ(readLibrary(syncedFile).snippets, mine);
    EXPECT_EQ(contentsOf(syncedImages / "logo.png"), "logo");
    EXPECT_EQ(watcher.paths().front(), synced / "Quillet");
    EXPECT_EQ(settingsChanges, 2);
}

TEST_F(StoreTest, SharedSnippetsFollowOwnOnesAndGiveWayToTheirAbbreviations) {
    const Snippet sig = snippet(";sig", "team"), addr = snippet(";addr"),
                  otherSig = snippet(";sig", "other team"), hi = snippet(";hi"),
                  added = snippet(";new"), mySig = snippet(";sig", "mine");
    preferences.setValue("sharedFolders", {"/team/one", "relative/two", 3, "/team/three"});
    std::map<std::string, std::vector<Snippet>> onDisk{{"/team/one", {sig, addr}},
                                                       {"/team/three", {otherSig, hi}}};
    auto store = makeStore([&](const std::string& folder) {
        return SnippetStore::SharedPack{folder, onDisk[folder], 0};
    });
    auto own = store->snippets();
    EXPECT_EQ(told, (std::vector<Snippet>{own[0], own[1], sig, addr, otherSig, hi}));
    own.push_back(mySig);
    store->setSnippets(own);
    EXPECT_EQ(told, (std::vector<Snippet>{own[0], own[1], mySig, addr, hi}));

    onDisk["/team/three"].push_back(added);
    watcher.trigger();
    EXPECT_EQ(told.back(), added);
    store->removeSharedFolder("/team/one");
    EXPECT_EQ(preferences.value("sharedFolders"), nlohmann::json({"relative/two", "/team/three"}));
    // A relative path would depend on the working folder: it is read but not watched.
    EXPECT_EQ(watcher.paths(),
              (std::vector<fs::path>{folders.data, folders.settingsFile(), "/team/three"}));
    EXPECT_EQ(told, (std::vector<Snippet>{own[0], own[1], mySig, hi, added}));
    store.reset();
    EXPECT_TRUE(!watcher.hasCallback() && watcher.paths().empty()) << "nothing left behind";
}

TEST_F(StoreTest, SyncMergesWithTheSyncedLibraryAndTurningItOffLeavesTheSyncedCopy) {
    writeText(localFile, encodeLibrary(mine));
    writeText(images / "logo.png", "local logo");
    writeText(images / "map.png", "old map");
    writeText(syncedImages / "map.png", "newer map");
    fs::last_write_time(images / "map.png", fs::last_write_time(syncedImages / "map.png") - 1h);
    auto store = makeStore();

    // Refused, changing nothing, without a usable folder or while the library there is unreadable.
    for (nlohmann::json folder : {nlohmann::json(), nlohmann::json((temp / "missing").string()),
                                  nlohmann::json("relative/folder")}) {
        preferences.setValue("syncFolder", folder);
        EXPECT_EQ(store->setSync(true), "Choose a synced folder first, in Settings → Sync.")
            << folder;
    }
    preferences.setValue("syncFolder", synced.string());
    writeText(syncedFile, "[{\"id\":\"half");
    EXPECT_EQ(store->setSync(true),
              "The snippets in the synced folder can't be read, so nothing was moved. Try again "
              "once your sync tool has finished.");
    EXPECT_EQ(contentsOf(syncedFile), "[{\"id\":\"half");
    EXPECT_EQ(preferences.value("sync"), nullptr);

    std::vector<Snippet> theirs{snippet(";b", "their b"), snippet(";c", "their c")};
    writeText(syncedFile, encodeLibrary(theirs));
    EXPECT_EQ(store->setSync(true),
              "2 came from the synced folder; 1 of yours were added to them.");
    EXPECT_EQ(told, (std::vector<Snippet>{theirs[0], theirs[1], mine[0]}));
    EXPECT_EQ(readLibrary(syncedFile).snippets, told);
    EXPECT_EQ(contentsOf(syncedImages / "logo.png"), "local logo");
    EXPECT_EQ(contentsOf(syncedImages / "map.png"), "newer map");
    EXPECT_EQ(watcher.paths().front(), synced / "Quillet");

    auto edited = told;
    edited.push_back(snippet(";d"));
    store->setSnippets(edited);
    writeText(syncedImages / "photo.png", "from elsewhere");
    EXPECT_EQ(store->setSync(false),
              "Your snippets are on this computer only now. The copy in the synced folder stays "
              "until you delete it.");
    EXPECT_EQ(readLibrary(localFile).snippets, edited);
    EXPECT_EQ(readLibrary(syncedFile).snippets, edited);
    EXPECT_EQ(contentsOf(images / "photo.png"), "from elsewhere");
    EXPECT_EQ(watcher.paths().front(), folders.data);
}

TEST_F(StoreTest, OnTheRealWatcherOutsideWritesArriveAndOwnSavesDoNotComeBack) {
    InotifyWatcher inotify(loop);
    auto store = makeStore({}, &inotify);
    // Another process replaces the file the way the command-line tool does: by renaming.
    std::vector<Snippet> fromTool = store->snippets();
    fromTool.push_back(snippet(";cli"));
    writeText(temp / "staged", encodeLibrary(fromTool));
    const std::string mv = "mv '" + (temp / "staged").string() + "' '" + localFile.string() + "'";
    ASSERT_EQ(std::system(mv.c_str()), 0);
    const auto outside = fs::last_write_time(localFile);
    ASSERT_TRUE(loop.runUntil([&] { return store->snippets() == fromTool; }, 5s));
    EXPECT_EQ(fs::last_write_time(localFile), outside); // taken, not written back

    fromTool.push_back(snippet(";app"));
    store->setSnippets(fromTool);
    const int afterSave = changes;
    const auto saved = fs::last_write_time(localFile);
    loop.runFor(3 * FileWatcher::latency);
    EXPECT_EQ(changes, afterSave);
    EXPECT_EQ(fs::last_write_time(localFile), saved);
}

} // namespace
} // namespace quillet
