#include "library/Store.h"

#include "library/LibraryFile.h"
#include "library/RunLoop.h"
#include "platform/fake/FakeFileWatcher.h"
#include "platform/linux/InotifyWatcher.h"
#include "support/TempFolder.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>

namespace quillet {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::contentsOf;
using testing::TempFolder;
using testing::writeText;

Snippet snippet(std::string abbreviation, std::string content = "text") {
    Snippet s = Snippet::make();
    s.abbreviation = std::move(abbreviation);
    s.content = std::move(content);
    return s;
}

std::vector<std::string> abbreviations(const std::vector<Snippet>& snippets) {
    std::vector<std::string> result;
    for (const Snippet& s : snippets) {
        result.push_back(s.abbreviation);
    }
    return result;
}

using Names = std::vector<std::string>;

void writeLibraryFile(const fs::path& file, const std::vector<Snippet>& snippets) {
    std::string error;
    ASSERT_TRUE(writeLibrary(file, snippets, error)) << error;
}

std::vector<Snippet> libraryIn(const fs::path& file) {
    LibraryRead read = readLibrary(file);
    EXPECT_EQ(read.status, LibraryStatus::ok) << read.message;
    return read.snippets;
}

struct timespec modified(const fs::path& file) {
    struct stat info {};
    ::stat(file.c_str(), &info);
    return info.st_mtim;
}

bool operator==(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// A store over temporary XDG folders, with settings in memory.
class StoreTest : public ::testing::Test {
protected:
    StoreTest() : folders(Folders::forHome(temp / "home", "", "")) {}

    std::unique_ptr<SnippetStore> makeStore(SnippetStore::SharedFolderLoader loader = {}) {
        auto store =
            std::make_unique<SnippetStore>(preferences, watcher, loop, folders, std::move(loader));
        store->setOnChange([this](const std::vector<Snippet>& effective) {
            ++changes;
            told = effective;
        });
        return store;
    }

    fs::path localFile() const { return folders.data / "snippets.json"; }

    TempFolder temp;
    Folders folders;
    MemoryPreferences preferences;
    FakeFileWatcher watcher;
    RunLoop loop;
    int changes = 0;
    std::vector<Snippet> told;
};

TEST_F(StoreTest, AFirstStartWritesExactlyTheTwoSeedSnippets) {
    auto store = makeStore();
    EXPECT_TRUE(store->isNew());
    EXPECT_TRUE(store->canSave());
    ASSERT_EQ(store->snippets().size(), 2U);
    EXPECT_EQ(libraryIn(localFile()), store->snippets());
    EXPECT_EQ(told, store->snippets()); // handed over as soon as the callback is set

    const Snippet& omw = store->snippets()[0];
    const Snippet& shrug = store->snippets()[1];
    EXPECT_EQ(omw.abbreviation, ";omw");
    EXPECT_EQ(omw.content, "On my way!");
    EXPECT_EQ(shrug.abbreviation, ";shrug");
    EXPECT_EQ(shrug.content, "\xC2\xAF\\_(\xE3\x83\x84)_/\xC2\xAF"); // one backslash
    EXPECT_NE(contentsOf(localFile()).find(R"("¯\\_(ツ)_/¯")"), std::string::npos);
    EXPECT_NE(omw.id, shrug.id);
    for (const Snippet& seed : store->snippets()) {
        ASSERT_TRUE(seed.created);
        Snippet plain;
        plain.id = seed.id;
        plain.created = seed.created;
        plain.abbreviation = seed.abbreviation;
        plain.content = seed.content;
        EXPECT_EQ(seed, plain) << "every other field at its default";
    }

    auto seeded = store->snippets();
    store.reset();
    auto again = makeStore();
    EXPECT_FALSE(again->isNew());
    EXPECT_EQ(again->snippets(), seeded);
}

TEST_F(StoreTest, ABadLibraryIsNeverWrittenUntilItReadsAgain) {
    const std::string record =
        R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","abbreviation":";a","content":"x"})";
    const std::vector<std::string> badFiles{
        "[" + record + R"(,{"id":"0B7A1C4E-5D2F-4A8B-9C3D-1E2F3A4B5C6D","abbrevi)",
        "[" + record +
            R"(,{"id":"0B7A1C4E-5D2F-4A8B-9C3D-1E2F3A4B5C6D","abbreviation":5,)"
            R"("content":"y"}])",
        record,
        "",
    };
    for (const std::string& bad : badFiles) {
        SCOPED_TRACE(bad);
        fs::create_directories(folders.data);
        writeText(localFile(), bad);
        auto store = makeStore();
        EXPECT_FALSE(store->isNew());
        EXPECT_FALSE(store->canSave());
        EXPECT_NE(store->problem(), "");
        EXPECT_TRUE(store->snippets().empty());

        store->setSnippets({snippet(";new")});
        EXPECT_FALSE(store->save());
        watcher.trigger(); // still bad on disk
        store->setSnippets({snippet(";newer")});
        EXPECT_EQ(contentsOf(localFile()), bad);

        // Repaired on disk: taken as it is, and saved again from then on.
        auto repaired = std::vector<Snippet>{snippet(";fixed")};
        writeText(localFile(), encodeLibrary(repaired));
        watcher.trigger();
        EXPECT_TRUE(store->canSave());
        EXPECT_EQ(store->problem(), "");
        EXPECT_EQ(store->snippets(), repaired);
        EXPECT_EQ(told, repaired);
        repaired.push_back(snippet(";more"));
        store->setSnippets(repaired);
        EXPECT_EQ(libraryIn(localFile()), repaired);
        fs::remove(localFile());
    }
}

TEST_F(StoreTest, AFolderWhereTheLibraryFileShouldBeIsLeftAlone) {
    fs::create_directories(localFile() / "inside");
    auto store = makeStore();
    EXPECT_FALSE(store->canSave());
    EXPECT_NE(store->problem().find("folder"), std::string::npos) << store->problem();
    store->setSnippets({snippet(";a")});
    EXPECT_TRUE(fs::is_directory(localFile() / "inside"));

    // Repaired to an empty list, equal to what is shown: saving resumes all the same.
    fs::remove_all(localFile());
    writeText(localFile(), "[]");
    store->setSnippets({});
    watcher.trigger();
    EXPECT_TRUE(store->canSave());
    store->setSnippets({snippet(";b")});
    EXPECT_EQ(abbreviations(libraryIn(localFile())), Names{";b"});
}

TEST_F(StoreTest, ReloadTakesOutsideChangesWithoutWritingThemBack) {
    auto store = makeStore();
    const int afterStart = changes;

    std::vector<Snippet> outside{snippet(";x"), snippet(";y")};
    writeLibraryFile(localFile(), outside);
    const auto stamp = modified(localFile());
    watcher.trigger();
    EXPECT_EQ(store->snippets(), outside);
    EXPECT_EQ(told, outside);
    EXPECT_EQ(changes, afterStart + 1);
    EXPECT_TRUE(modified(localFile()) == stamp);

    // The store's own save comes back as a change on disk, and is recognised as no change.
    outside.push_back(snippet(";z"));
    store->setSnippets(outside);
    EXPECT_EQ(changes, afterStart + 2);
    const auto saved = modified(localFile());
    watcher.trigger();
    watcher.trigger();
    EXPECT_EQ(changes, afterStart + 2);
    EXPECT_TRUE(modified(localFile()) == saved);
}

TEST_F(StoreTest, AReloadAskedForFromAnotherThreadRunsOnTheMainThread) {
    auto store = makeStore();
    bool onMain = false;
    store->setOnChange([&](const std::vector<Snippet>& effective) {
        onMain = loop.isMainThread();
        told = effective;
    });
    onMain = false;
    std::vector<Snippet> outside{snippet(";x")};
    writeLibraryFile(localFile(), outside);
    std::thread([&] { store->reload(); }).join();
    EXPECT_NE(told, outside) << "nothing may change off the main thread";
    loop.runFor(0ms);
    EXPECT_EQ(told, outside);
    EXPECT_TRUE(onMain);
}

TEST_F(StoreTest, ALibraryBrokenWhileRunningKeepsTheListButIsNotOverwritten) {
    auto store = makeStore();
    auto shown = store->snippets();
    writeText(localFile(), "[{\"id\":");
    watcher.trigger();
    EXPECT_EQ(store->snippets(), shown);
    EXPECT_FALSE(store->canSave());
    store->setSnippets({snippet(";edit")});
    EXPECT_EQ(contentsOf(localFile()), "[{\"id\":");

    // A deleted file is no damage: the list stays and the next change writes it again.
    writeLibraryFile(localFile(), shown);
    watcher.trigger();
    EXPECT_TRUE(store->canSave());
    fs::remove(localFile());
    watcher.trigger();
    EXPECT_EQ(store->snippets(), shown);
    store->setSnippets({snippet(";back")});
    EXPECT_EQ(abbreviations(libraryIn(localFile())), Names{";back"});
}

TEST_F(StoreTest, SharedSnippetsFollowOwnOnesAndGiveWayToTheirAbbreviations) {
    preferences.setValue("sharedFolders", {"/team/one", "relative/two", 3, "/team/three"});
    std::map<std::string, std::vector<Snippet>> onDisk{
        {"/team/one", {snippet(";sig", "team signature"), snippet(";addr")}},
        {"relative/two", {}},
        {"/team/three", {snippet(";sig", "other team"), snippet(";hi")}},
    };
    int loads = 0;
    auto store = makeStore([&](const std::string& folder) {
        ++loads;
        return SnippetStore::SharedPack{folder, onDisk[folder], folder == "/team/one" ? 2 : 0};
    });
    EXPECT_EQ(loads, 3);
    ASSERT_EQ(store->shared().size(), 3U);
    EXPECT_EQ(store->shared()[0].leftOut, 2);
    EXPECT_EQ(watcher.paths(), (std::vector<fs::path>{folders.data, "/team/one", "/team/three"}));
    EXPECT_EQ(abbreviations(told), (Names{";omw", ";shrug", ";sig", ";addr", ";sig", ";hi"}));

    auto own = store->snippets();
    own.push_back(snippet(";sig", "mine"));
    store->setSnippets(own);
    EXPECT_EQ(abbreviations(told), (Names{";omw", ";shrug", ";sig", ";addr", ";hi"}));
    EXPECT_EQ(told[2].content, "mine");
    own.pop_back();
    store->setSnippets(own);
    EXPECT_EQ(told[2].content, "team signature");

    // Unchanged packs wake nobody; a changed one does.
    const int before = changes;
    watcher.trigger();
    EXPECT_EQ(changes, before);
    onDisk["/team/three"].push_back(snippet(";new"));
    watcher.trigger();
    EXPECT_EQ(changes, before + 1);
    EXPECT_EQ(told.back().abbreviation, ";new");

    store->removeSharedFolder("/team/one");
    EXPECT_EQ(preferences.value("sharedFolders"), nlohmann::json({"relative/two", "/team/three"}));
    EXPECT_EQ(store->shared().size(), 2U);
    EXPECT_EQ(watcher.paths(), (std::vector<fs::path>{folders.data, "/team/three"}));
    EXPECT_EQ(abbreviations(told), (Names{";omw", ";shrug", ";sig", ";hi", ";new"}));
}

TEST_F(StoreTest, WithoutAFolderReaderSharedFoldersAreWatchedButYieldNothing) {
    preferences.setValue("sharedFolders", {"/team/one"});
    auto store = makeStore();
    EXPECT_TRUE(store->shared().empty());
    EXPECT_EQ(watcher.paths(), (std::vector<fs::path>{folders.data, "/team/one"}));
    store.reset();
    EXPECT_FALSE(watcher.hasCallback());
    EXPECT_TRUE(watcher.paths().empty());
}

// A synced folder that another computer has already filled, and this computer's library.
class SyncTest : public StoreTest {
protected:
    SyncTest() : synced(temp / "Sync") {
        fs::create_directories(synced);
        preferences.setValue("syncFolder", synced.string());
        mine = {snippet(";a", "mine a"), snippet(";b", "mine b")};
        writeLibraryFile(localFile(), mine);
    }

    fs::path syncedFile() const { return synced / "Quillet" / "snippets.json"; }

    fs::path synced;
    std::vector<Snippet> mine;
};

TEST_F(SyncTest, TurningOnMergesWithTheSyncedLibraryKeepingItsSnippets) {
    std::vector<Snippet> theirs{snippet(";b", "their b"), snippet(";c", "their c")};
    writeLibraryFile(syncedFile(), theirs);
    auto store = makeStore();

    auto message = store->setSync(true);
    ASSERT_TRUE(message);
    EXPECT_EQ(*message, "2 came from the synced folder; 1 of yours were added to them.");
    EXPECT_TRUE(store->isSynced());
    EXPECT_EQ(preferences.value("sync"), true);
    EXPECT_EQ(abbreviations(store->snippets()), (Names{";b", ";c", ";a"}));
    EXPECT_EQ(store->snippets()[0], theirs[0]);
    EXPECT_EQ(store->snippets()[2], mine[0]);
    EXPECT_EQ(told, store->snippets());
    EXPECT_EQ(libraryIn(syncedFile()), store->snippets());
    EXPECT_EQ(libraryIn(localFile()), mine);
    EXPECT_EQ(watcher.paths().front(), synced / "Quillet");
    EXPECT_EQ(store->setSync(true), std::nullopt);
}

TEST_F(SyncTest, TheMergeMessageNamesAZeroCount) {
    writeLibraryFile(syncedFile(), {snippet(";a"), snippet(";b")});
    auto store = makeStore();
    EXPECT_EQ(store->setSync(true),
              "2 came from the synced folder; 0 of yours were added to them.");
    EXPECT_EQ(abbreviations(store->snippets()), (Names{";a", ";b"}));
}

TEST_F(SyncTest, TurningOnCopiesThePicturesAndTurningOffLeavesTheSyncedCopy) {
    fs::create_directories(folders.data / "images");
    writeText(folders.data / "images" / "logo.png", "local logo");
    writeText(folders.data / "images" / "map.png", "old map");
    fs::create_directories(synced / "Quillet" / "images");
    writeText(synced / "Quillet" / "images" / "map.png", "newer map");
    auto past = fs::last_write_time(folders.data / "images" / "map.png") - 1h;
    fs::last_write_time(folders.data / "images" / "map.png", past);
    auto store = makeStore();

    auto on = store->setSync(true);
    EXPECT_EQ(on, "Your snippets are in " + (synced / "Quillet").string() +
                      ". Turn this on on your other computers too.");
    EXPECT_EQ(contentsOf(synced / "Quillet" / "images" / "logo.png"), "local logo");
    EXPECT_EQ(contentsOf(synced / "Quillet" / "images" / "map.png"), "newer map");
    EXPECT_EQ(libraryIn(syncedFile()), mine);

    auto edited = mine;
    edited.push_back(snippet(";d"));
    store->setSnippets(edited);
    writeText(synced / "Quillet" / "images" / "photo.png", "from elsewhere");

    auto off = store->setSync(false);
    EXPECT_EQ(off, "Your snippets are on this computer only now. The copy in the synced folder "
                   "stays until you delete it.");
    EXPECT_FALSE(store->isSynced());
    EXPECT_EQ(preferences.value("sync"), false);
    EXPECT_EQ(libraryIn(localFile()), edited);
    EXPECT_EQ(libraryIn(syncedFile()), edited);
    EXPECT_EQ(contentsOf(folders.data / "images" / "photo.png"), "from elsewhere");
    EXPECT_EQ(watcher.paths().front(), folders.data);
    EXPECT_EQ(store->setSync(false), std::nullopt);
}

TEST_F(SyncTest, TurningOnNeedsAnExistingSyncedFolderAndAReadableLibraryThere) {
    auto store = makeStore();
    const std::string chooseFirst = "Choose a synced folder first, in Settings → Sync.";
    preferences.setValue("syncFolder", nullptr);
    EXPECT_EQ(store->setSync(true), chooseFirst);
    preferences.setValue("syncFolder", (temp / "missing").string());
    EXPECT_EQ(store->setSync(true), chooseFirst);
    preferences.setValue("syncFolder", "relative/folder");
    EXPECT_EQ(store->setSync(true), chooseFirst);
    EXPECT_EQ(preferences.value("sync"), nullptr);

    preferences.setValue("syncFolder", synced.string());
    fs::create_directories(syncedFile().parent_path());
    writeText(syncedFile(), "[{\"id\":\"half");
    auto refused = store->setSync(true);
    ASSERT_TRUE(refused);
    EXPECT_NE(refused->find("can't be read"), std::string::npos);
    EXPECT_EQ(preferences.value("sync"), nullptr);
    EXPECT_EQ(contentsOf(syncedFile()), "[{\"id\":\"half");
    EXPECT_EQ(store->snippets(), mine);
    EXPECT_EQ(watcher.paths().front(), folders.data);
}

TEST_F(SyncTest, AnUnreadableLibraryIsNotCarriedOverButTheOtherPlaceIsRead) {
    writeText(localFile(), "damaged");
    std::vector<Snippet> theirs{snippet(";c")};
    writeLibraryFile(syncedFile(), theirs);
    auto store = makeStore();
    ASSERT_FALSE(store->canSave());

    EXPECT_TRUE(store->setSync(true));
    EXPECT_TRUE(store->canSave());
    EXPECT_EQ(store->snippets(), theirs);
    EXPECT_EQ(libraryIn(syncedFile()), theirs);
    EXPECT_EQ(contentsOf(localFile()), "damaged");
}

// The same store on the real watcher: what another process writes arrives by itself.
class StoreOnInotifyTest : public SyncTest {
protected:
    StoreOnInotifyTest() : inotify(loop) {}

    std::unique_ptr<SnippetStore> makeWatchedStore() {
        auto store = std::make_unique<SnippetStore>(preferences, inotify, loop, folders);
        store->setOnChange([this](const std::vector<Snippet>& effective) {
            ++changes;
            told = effective;
        });
        return store;
    }

    // Another process replaces file with the library, the way the command-line tool does.
    void writeFromOutside(const fs::path& file, const std::vector<Snippet>& snippets) {
        auto staged = temp / "staged.json";
        writeText(staged, encodeLibrary(snippets));
        std::string command = "cp '" + staged.string() + "' '" + file.string() + ".new' && mv '" +
                              file.string() + ".new' '" + file.string() + "'";
        int status = std::system(command.c_str());
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }

    bool changedWithin(std::chrono::seconds timeout) {
        const int before = changes;
        return loop.runUntil([&] { return changes > before; }, timeout);
    }

    InotifyWatcher inotify;
};

TEST_F(StoreOnInotifyTest, AWriteByAnotherProcessIsPickedUpAndOwnSavesDoNotComeBack) {
    auto store = makeWatchedStore();
    std::vector<Snippet> fromTool = mine;
    fromTool.push_back(snippet(";cli"));
    writeFromOutside(localFile(), fromTool);
    ASSERT_TRUE(changedWithin(5s));
    EXPECT_EQ(store->snippets(), fromTool);

    fromTool.push_back(snippet(";app"));
    store->setSnippets(fromTool);
    const int afterSave = changes;
    const auto saved = modified(localFile());
    loop.runFor(3 * FileWatcher::latency);
    EXPECT_EQ(changes, afterSave);
    EXPECT_TRUE(modified(localFile()) == saved);
}

TEST_F(StoreOnInotifyTest, AfterTheMoveTheSyncedFolderIsWatched) {
    auto store = makeWatchedStore();
    ASSERT_TRUE(store->setSync(true));
    loop.runFor(2 * FileWatcher::latency); // the move's own writes

    std::vector<Snippet> fromElsewhere{snippet(";remote")};
    writeFromOutside(syncedFile(), fromElsewhere);
    ASSERT_TRUE(changedWithin(5s));
    EXPECT_EQ(store->snippets(), fromElsewhere);

    writeFromOutside(localFile(), {snippet(";stale")});
    EXPECT_FALSE(changedWithin(1s));
    EXPECT_EQ(store->snippets(), fromElsewhere);
}

} // namespace
} // namespace quillet
