// The store against a writer killed at random moments, and against files it may not read or write.
// Checks in child processes report through the exit status, as expectations there would be lost.
#include "library/LibraryFile.h"
#include "library/LibraryLock.h"
#include "library/RunLoop.h"
#include "library/Store.h"
#include "platform/fake/FakeFileWatcher.h"
#include "support/TempFolder.h"

#include <csignal>
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

// A library of n snippets whose contents all carry tag, big enough that a save takes a while.
std::vector<Snippet> library(char tag, std::size_t n) {
    std::vector<Snippet> snippets(n);
    for (Snippet& s : snippets) {
        s = Snippet::make();
        s.content = std::string(400, tag) + "\nKind regards,\n{clipboard}";
    }
    return snippets;
}

struct ChildStore {
    explicit ChildStore(const Folders& folders) : store(preferences, watcher, loop, folders) {}
    MemoryPreferences preferences;
    FakeFileWatcher watcher;
    RunLoop loop;
    SnippetStore store;
};

class StoreCrashTest : public ::testing::Test {
protected:
    StoreCrashTest() {
        const auto start = std::chrono::steady_clock::now();
        std::string error;
        EXPECT_TRUE(writeLibrary(file, original, error)) << error;
        saveTime = std::chrono::steady_clock::now() - start;
    }

    testing::TempFolder temp;
    Folders folders = Folders::forHome(temp / "home", temp.path().string(), "");
    fs::path file = folders.data / "snippets.json";
    std::vector<Snippet> original = library('a', 150);
    std::chrono::steady_clock::duration saveTime;

    // Not synced, the library's folder is the local data folder where the lock lives.
    std::string lockName() const {
        return LibraryLock::lockFile(file, folders.data).filename().string();
    }
};

TEST_F(StoreCrashTest, AKilledSaveLeavesTheOldOrTheNewLibraryAndItsLeftoversGoLater) {
    const auto second = library('b', 170);
    // Kill somewhere within a few saves' time of the store being up.
    std::mt19937 rng(7);
    std::uniform_int_distribution<long> pause(0, 3 * std::max<long>(saveTime / 1us, 1000));
    int seenFirst = 0;
    pid_t pid = 0;
    for (int kill = 0; kill < 200; ++kill) {
        // Made before the fork, so the child is saving from its first moment.
        ChildStore writer(folders);
        pid = ::fork();
        if (pid == 0) {
            ::alarm(30);
            for (bool flip = false;; flip = !flip) {
                writer.store.setSnippets(flip ? original : second);
            }
        }
        std::this_thread::sleep_for(pause(rng) * 1us);
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);

        LibraryRead read = readLibrary(file);
        ASSERT_TRUE(read.snippets == original || read.snippets == second)
            << "after kill " << kill << ": " << read.message;
        seenFirst += read.snippets == original ? 1 : 0;
    }
    EXPECT_TRUE(seenFirst > 0 && seenFirst < 200) << seenFirst << " of 200 left the old list";

    // What a killed writer left is removed at the next start (which names count is AtomicFile's
    // test).
    testing::writeText(folders.data / (".snippets.json." + std::to_string(pid) + ".Ab3dE9"), "");
    ChildStore next(folders);
    EXPECT_EQ(testing::entriesOf(folders.data),
              (std::vector<std::string>{lockName(), "snippets.json"}));
}

TEST_F(StoreCrashTest, ALibraryItMayNotReadOrWriteIsKeptAsItWas) {
    fs::permissions(temp.path(), fs::perms(0755));
    fs::permissions(folders.data, fs::perms(0755));
    const std::string bytes = testing::contentsOf(file);
    const auto edited = library('b', 2);
    // Unreadable (root's and private), then readable in a folder it may not write to.
    for (bool readable : {false, true}) {
        fs::permissions(file, readable ? fs::perms(0644) : fs::perms(0600));
        int status = testing::asNobody([&] {
            ChildStore child(folders);
            SnippetStore& store = child.store;
            bool loaded = readable
                              ? store.canSave() && store.snippets() == original
                              : !store.canSave() && store.snippets().empty() &&
                                    store.problem().find("ermission denied") != std::string::npos;
            store.setSnippets(edited);
            return !loaded || store.save() || store.snippets() != edited;
        });
        EXPECT_EQ(status, 0) << "readable: " << readable;
    }
    EXPECT_EQ(testing::contentsOf(file), bytes);
    EXPECT_EQ(testing::entriesOf(folders.data), std::vector<std::string>{"snippets.json"});

    // A file size limit makes a write fail midway, as a full disk would; the next one is tried.
    const auto small = library('c', 1);
    int status = testing::inChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{4096, 4096};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        ChildStore child(folders);
        child.store.setSnippets(library('b', 50));
        const bool kept = !child.store.save() && testing::contentsOf(file) == bytes;
        child.store.setSnippets(small);
        return kept ? 0 : 1;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(readLibrary(file).snippets, small);
    EXPECT_EQ(testing::entriesOf(folders.data),
              (std::vector<std::string>{lockName(), "snippets.json"}));
}

} // namespace
} // namespace quillet
