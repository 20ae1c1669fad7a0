#include "platform/linux/InotifyWatcher.h"

#include "library/RunLoop.h"
#include "support/TempFolder.h"

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <sys/wait.h>

namespace quillet {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::TempFolder;

// Runs a command in a child shell, as another program changing the files would.
void shell(const std::string& command) {
    int status = std::system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command;
}

std::string quoted(const std::filesystem::path& path) {
    return "'" + path.string() + "'";
}

// A watcher on a run loop that counts the batches it reports.
class Watching : public ::testing::Test {
protected:
    Watching() : watcher(std::make_unique<InotifyWatcher>(loop)) {
        watcher->setCallback([this] { ++batches; });
    }

    // Runs the loop until the next batch arrives; false when none came within a few seconds.
    bool nextBatch() {
        const int before = batches;
        return loop.runUntil([&] { return batches > before; }, 5s);
    }

    // True when no batch arrives during twice the batch time.
    bool quiet() {
        const int before = batches;
        loop.runFor(2 * FileWatcher::latency);
        return batches == before;
    }

    TempFolder temp;
    RunLoop loop;
    std::unique_ptr<InotifyWatcher> watcher;
    int batches = 0;
};

TEST_F(Watching, AChangeByAnotherProcessArrivesAfterTheBatchTime) {
    watcher->watch({temp.path()});
    EXPECT_EQ(watcher->error(), "");
    ASSERT_TRUE(quiet()); // watching itself reports nothing

    const auto start = Clock::now();
    shell("echo hello > " + quoted(temp / "snippets.json"));
    ASSERT_TRUE(nextBatch());
    const auto took = Clock::now() - start;
    std::printf("change reported after %.0f ms\n",
                std::chrono::duration<double, std::milli>(took).count());
    EXPECT_GE(took, FileWatcher::latency);
    EXPECT_LT(took, 3s);
    EXPECT_TRUE(quiet());
}

TEST_F(Watching, ManyQuickWritesArriveAsOneBatch) {
    watcher->watch({temp.path()});
    shell("cd " + quoted(temp.path()) +
          " && for i in $(seq 100); do echo $i > f$((i % 7)); echo $i >> log; done"
          " && mkdir sub && mv f1 sub/ && rm f2");
    ASSERT_TRUE(nextBatch());
    EXPECT_TRUE(quiet());
    EXPECT_EQ(batches, 1);
}

TEST_F(Watching, AFileReplacedByRenameStaysWatchedAndItsNeighboursDoNotCount) {
    auto file = temp / "notes.txt";
    shell("echo first > " + quoted(file));
    watcher->watch({file});
    for (int save = 0; save < 3; ++save) {
        // How editors and sync tools save: write a new file beside it, rename it over the old.
        shell("echo v" + std::to_string(save) + " > " + quoted(temp / ".notes.txt.swp") +
              " && mv " + quoted(temp / ".notes.txt.swp") + " " + quoted(file));
        ASSERT_TRUE(nextBatch()) << "save " << save;
    }
    shell("echo other > " + quoted(temp / "other.txt") + " && rm " + quoted(temp / "other.txt"));
    EXPECT_TRUE(quiet());
    shell("rm " + quoted(file));
    EXPECT_TRUE(nextBatch());
    shell("echo back > " + quoted(file));
    EXPECT_TRUE(nextBatch());
}

TEST_F(Watching, AFolderThatDoesNotExistYetIsSeenOnceMade) {
    auto folder = temp / "a" / "b" / "quillet";
    watcher->watch({folder});
    EXPECT_EQ(watcher->error(), "");
    shell("mkdir " + quoted(temp / "unrelated"));
    EXPECT_TRUE(quiet());

    shell("mkdir -p " + quoted(folder) + " && echo x > " + quoted(folder / "snippets.json"));
    ASSERT_TRUE(nextBatch());
    EXPECT_TRUE(quiet());
    // Now the folder itself is watched, not its parent.
    shell("echo y > " + quoted(folder / "snippets.json"));
    EXPECT_TRUE(nextBatch());
}

TEST_F(Watching, TheWatchFollowsThePathWhenTheFolderIsMovedOrDeleted) {
    auto folder = temp / "library";
    auto moved = temp / "library.old";
    shell("mkdir " + quoted(folder));
    watcher->watch({folder});

    shell("mv " + quoted(folder) + " " + quoted(moved) + " && mkdir " + quoted(folder));
    ASSERT_TRUE(nextBatch());
    shell("echo x > " + quoted(moved / "f"));
    EXPECT_TRUE(quiet()) << "the moved folder is no longer the one at the path";
    shell("echo x > " + quoted(folder / "f"));
    ASSERT_TRUE(nextBatch());

    shell("rm -r " + quoted(folder));
    ASSERT_TRUE(nextBatch());
    shell("mkdir " + quoted(folder) + " && echo x > " + quoted(folder / "f"));
    ASSERT_TRUE(nextBatch());
    EXPECT_TRUE(quiet());
    shell("echo y > " + quoted(folder / "f"));
    EXPECT_TRUE(nextBatch());
}

TEST_F(Watching, WatchingAgainReplacesThePaths) {
    auto first = temp / "first";
    auto second = temp / "second";
    auto third = temp / "third";
    shell("mkdir " + quoted(first) + " " + quoted(second) + " " + quoted(third));
    watcher->watch({first, second});
    watcher->watch({second, third});
    shell("echo x > " + quoted(first / "f"));
    EXPECT_TRUE(quiet());
    shell("echo x > " + quoted(third / "f"));
    EXPECT_TRUE(nextBatch());
    shell("echo x > " + quoted(second / "f"));
    EXPECT_TRUE(nextBatch());

    watcher->watch({});
    shell("echo y > " + quoted(second / "f") + " && echo y > " + quoted(third / "f"));
    EXPECT_TRUE(quiet());
}

TEST_F(Watching, NothingIsReportedOnceTheCallbackIsClearedOrTheWatcherIsGone) {
    watcher->watch({temp.path()});
    shell("echo x > " + quoted(temp / "f"));
    watcher->setCallback({});
    EXPECT_TRUE(quiet());

    watcher->setCallback([this] { ++batches; });
    shell("echo y > " + quoted(temp / "f"));
    // Destroyed while the batch is still being gathered or already handed to the loop.
    loop.runFor(FileWatcher::latency / 2);
    watcher.reset();
    EXPECT_TRUE(quiet());
}

} // namespace
} // namespace quillet
