// The store against a writer killed at random moments, and against files and folders it may
// not read or write.
#include "library/LibraryFile.h"
#include "library/RunLoop.h"
#include "library/Store.h"
#include "platform/fake/FakeFileWatcher.h"
#include "support/TempFolder.h"

#include <csignal>
#include <cstdio>
#include <functional>
#include <grp.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace quillet {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::contentsOf;
using testing::TempFolder;
using testing::writeText;

// A library of n snippets whose contents all carry tag, big enough that a save takes a while.
std::vector<Snippet> library(char tag, std::size_t n) {
    std::vector<Snippet> snippets;
    std::mt19937 rng(static_cast<unsigned>(tag));
    for (std::size_t i = 0; i < n; ++i) {
        Snippet s = Snippet::make();
        s.abbreviation = ";" + std::string(1, tag) + std::to_string(i);
        s.content = std::string(200 + rng() % 400, tag) + "\nKind regards,\n{clipboard}";
        if (i % 5 == 0) {
            s.scope = Snippet::Scope::only;
            s.sites = {"example.com", "mail.example.org"};
        }
        snippets.push_back(std::move(s));
    }
    return snippets;
}

std::vector<std::string> temporariesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& name : testing::entriesOf(folder)) {
        if (name.starts_with(".snippets.json.")) {
            names.push_back(name);
        }
    }
    return names;
}

void makeOld(const fs::path& file) {
    fs::last_write_time(file, fs::file_time_type::clock::now() - 1h);
}

// The store as the application makes it, for a child process.
struct ChildStore {
    explicit ChildStore(const Folders& folders) : store(preferences, watcher, loop, folders) {}
    MemoryPreferences preferences;
    FakeFileWatcher watcher;
    RunLoop loop;
    SnippetStore store;
};

// Runs body in a child process and returns its exit status; the body's checks report through
// it, since a failed expectation in the child would never reach the test's result.
class StoreCrashTest : public ::testing::Test {
protected:
    StoreCrashTest() : folders(Folders::forHome(temp / "home", "", "")) {}

    fs::path file() const { return folders.data / "snippets.json"; }

    TempFolder temp;
    Folders folders;
};

TEST_F(StoreCrashTest, AKilledSaveLeavesEitherTheOldOrTheNewLibrary) {
    const auto first = library('a', 150);
    const auto second = library('b', 170);
    std::string error;
    ASSERT_TRUE(writeLibrary(file(), first, error)) << error;

    // Kill somewhere within a few saves' time of the store being up.
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(writeLibrary(file(), first, error));
    const auto save = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - start);
    std::mt19937 rng(7);
    std::uniform_int_distribution<long> pause(0, 3 * std::max<long>(save.count(), 1000));

    int seenFirst = 0;
    int seenSecond = 0;
    int midWrite = 0;
    std::size_t leftBefore = 0;
    constexpr int kills = 200;
    for (int kill = 0; kill < kills; ++kill) {
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            ::close(ready[0]);
            ::alarm(30);
            ChildStore child(folders);
            [[maybe_unused]] ssize_t told = ::write(ready[1], "r", 1);
            for (bool flip = false;; flip = !flip) {
                child.store.setSnippets(flip ? first : second);
            }
        }
        ::close(ready[1]);
        char byte = 0;
        ASSERT_EQ(::read(ready[0], &byte, 1), 1);
        ::close(ready[0]);
        std::this_thread::sleep_for(std::chrono::microseconds(pause(rng)));
        ::kill(pid, SIGKILL);
        int status = 0;
        ::waitpid(pid, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer must still have been saving";

        LibraryRead read = readLibrary(file());
        ASSERT_EQ(read.status, LibraryStatus::ok) << "after kill " << kill << ": " << read.message;
        if (read.snippets == first) {
            ++seenFirst;
        } else if (read.snippets == second) {
            ++seenSecond;
        } else {
            FAIL() << "after kill " << kill << " the library is neither list";
        }
        // A killed writer leaves at most its one temporary file.
        const std::size_t left = temporariesIn(folders.data).size();
        ASSERT_LE(left, leftBefore + 1) << "after kill " << kill;
        midWrite += left > leftBefore ? 1 : 0;
        leftBefore = left;
    }
    std::printf("%d kills: %d left the first list, %d the second, %d hit a write\n", kills,
                seenFirst, seenSecond, midWrite);
    EXPECT_GT(seenFirst, 0);
    EXPECT_GT(seenSecond, 0);

    // What the killed writers left is removed at the next start once it is clearly abandoned.
    for (const auto& name : temporariesIn(folders.data)) {
        makeOld(folders.data / name);
    }
    ChildStore next(folders);
    EXPECT_TRUE(temporariesIn(folders.data).empty());
    EXPECT_TRUE(next.store.canSave());
}

TEST_F(StoreCrashTest, OnlyAbandonedTemporaryFilesAreRemovedAtStart) {
    std::string error;
    ASSERT_TRUE(writeLibrary(file(), library('a', 2), error));
    const auto folder = folders.data;
    for (const char* name :
         {".snippets.json.Ab3dE9", ".snippets.json.Zz9yX8", ".snippets.json.bak",
          ".snippets.json.backup1", "snippets.json.Ab3dE9", ".usage.json.Ab3dE9"}) {
        writeText(folder / name, "x");
        makeOld(folder / name);
    }
    fs::create_directory(folder / ".snippets.json.Folder");
    makeOld(folder / ".snippets.json.Folder");
    writeText(folder / ".snippets.json.Fresh1", "a live writer's");

    ChildStore store(folders);
    EXPECT_EQ(
        testing::entriesOf(folder),
        (std::vector<std::string>{".snippets.json.Folder", ".snippets.json.Fresh1",
                                  ".snippets.json.backup1", ".snippets.json.bak",
                                  ".usage.json.Ab3dE9", "snippets.json", "snippets.json.Ab3dE9"}));
}

TEST_F(StoreCrashTest, ALibraryItMayNotReadIsNeitherShownNorOverwritten) {
    const auto original = library('a', 3);
    std::string error;
    ASSERT_TRUE(writeLibrary(file(), original, error));
    fs::permissions(temp.path(), fs::perms(0755));
    for (fs::path p = folders.data; p != temp.path(); p = p.parent_path()) {
        fs::permissions(p, fs::perms(0755));
    }
    const std::string bytes = contentsOf(file());

    // Unreadable: the file is root's and private.
    int status = testing::asNobody([&] {
        ChildStore child(folders);
        if (child.store.canSave() || !child.store.snippets().empty()) {
            return 1;
        }
        if (child.store.problem().find("ermission denied") == std::string::npos) {
            return 2;
        }
        child.store.setSnippets(library('b', 1));
        return child.store.save() ? 3 : 0;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(contentsOf(file()), bytes);

    // Readable, but in a folder it may not write to: the edit stays in memory.
    fs::permissions(file(), fs::perms(0644));
    status = testing::asNobody([&] {
        ChildStore child(folders);
        if (!child.store.canSave() || child.store.snippets() != original) {
            return 1;
        }
        auto edited = library('b', 2);
        child.store.setSnippets(edited);
        if (child.store.save() || child.store.snippets() != edited) {
            return 2;
        }
        return 0;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(contentsOf(file()), bytes);
    EXPECT_TRUE(temporariesIn(folders.data).empty());
}

TEST_F(StoreCrashTest, AWriteThatRunsOutOfSpaceLeavesTheOldFileAndTriesAgainNextTime) {
    const auto original = library('a', 2);
    std::string error;
    ASSERT_TRUE(writeLibrary(file(), original, error));
    const auto small = library('c', 1);
    ASSERT_LT(encodeLibrary(small).size(), 4096U);
    ASSERT_GT(encodeLibrary(library('b', 50)).size(), 4096U);

    // A file size limit makes the write fail midway, as a full disk would.
    int status = testing::inChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{4096, 4096};
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) {
            return 90;
        }
        ChildStore child(folders);
        child.store.setSnippets(library('b', 50));
        if (child.store.save() || readLibrary(file()).snippets != original) {
            return 1;
        }
        child.store.setSnippets(small);
        return readLibrary(file()).snippets == small ? 0 : 2;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(readLibrary(file()).snippets, small);
    EXPECT_TRUE(temporariesIn(folders.data).empty());
}

} // namespace
} // namespace quillet
