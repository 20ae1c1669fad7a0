#include "platform/linux/InotifyWatcher.h"

#include "library/RunLoop.h"
#include "support/TempFolder.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <sys/wait.h>

namespace quillet {
namespace {

using namespace std::chrono_literals;

constexpr auto quietTime = 2 * FileWatcher::latency; // a batch would have come by then

// A watcher on a run loop that counts the batches it reports, and a shell that changes files in
// the temporary folder as another program would.
class Watching : public ::testing::Test {
protected:
    Watching() : watcher(std::make_unique<InotifyWatcher>(loop)) {
        watcher->setCallback([this] { ++batches; });
    }

    void shell(const std::string& command) {
        int status = std::system(("cd '" + temp.path().string() + "' && " + command).c_str());
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command;
    }

    // Runs the loop until the next batch arrives; false when none came within timeout.
    bool batch(Scheduler::Duration timeout = 5s) {
        const int before = batches;
        return loop.runUntil([&] { return batches > before; }, timeout);
    }

    testing::TempFolder temp;
    RunLoop loop;
    std::unique_ptr<InotifyWatcher> watcher;
    int batches = 0;
};

TEST_F(Watching, ChangesByAnotherProcessArriveTogetherAfterTheBatchTime) {
    watcher->watch({temp.path()});
    ASSERT_FALSE(batch(quietTime)); // watching itself reports nothing
    const auto start = std::chrono::steady_clock::now();
    shell("echo hello > snippets.json");
    ASSERT_TRUE(batch());
    EXPECT_GE(std::chrono::steady_clock::now() - start, FileWatcher::latency);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);

    shell("for i in $(seq 100); do echo $i > f$((i % 7)); echo $i >> log; done && mkdir sub && "
          "mv f1 sub/ && rm f2");
    ASSERT_TRUE(batch());
    EXPECT_FALSE(batch(quietTime));
    EXPECT_EQ(batches, 2);
}

TEST_F(Watching, TheWatchFollowsPathsThroughRenamesAndFoldersMadeMovedOrDeletedLater) {
    shell("echo first > notes.txt");
    watcher->watch({temp / "notes.txt", temp / "a" / "b" / "library"});
    EXPECT_EQ(watcher->error(), "");
    // How editors and sync tools save: write a new file beside it, rename it over the old.
    shell("echo second > .notes.swp && mv .notes.swp notes.txt");
    ASSERT_TRUE(batch());
    shell("echo other > other.txt && rm other.txt && mkdir unrelated");
    EXPECT_FALSE(batch(quietTime)) << "neighbours do not count";
    shell("rm notes.txt");
    EXPECT_TRUE(batch());
    shell("echo third > notes.txt");
    EXPECT_TRUE(batch()) << "the file is still watched after the rename and the deletion";

    shell("mkdir -p a/b/library && echo x > a/b/library/f");
    ASSERT_TRUE(batch());
    EXPECT_FALSE(batch(quietTime));
    shell("echo y > a/b/library/f"); // now the folder itself is watched, not its parent
    ASSERT_TRUE(batch());
    shell("mv a/b/library a/b/library.old && mkdir a/b/library");
    ASSERT_TRUE(batch());
    shell("echo x > a/b/library.old/f");
    EXPECT_FALSE(batch(quietTime)) << "the moved folder is no longer the one at the path";
    shell("echo x > a/b/library/f");
    ASSERT_TRUE(batch());
    shell("rm -r a/b/library");
    ASSERT_TRUE(batch());
    shell("mkdir a/b/library && echo x > a/b/library/f");
    EXPECT_TRUE(batch());
}

TEST_F(Watching, NothingIsReportedForPathsNoLongerWatchedOrOnceTheWatcherIsGone) {
    shell("mkdir first second");
    watcher->watch({temp / "first", temp / "second"});
    watcher->watch({temp / "second"});
    shell("echo x > first/f");
    EXPECT_FALSE(batch(quietTime));
    shell("echo x > second/f");
    EXPECT_TRUE(batch());
    watcher->setCallback({});
    shell("echo y > second/f");
    EXPECT_FALSE(batch(quietTime));

    watcher->setCallback([this] { ++batches; });
    shell("echo z > second/f");
    // Destroyed while the batch is still being gathered or already handed to the loop.
    loop.runFor(FileWatcher::latency / 2);
    watcher.reset();
    EXPECT_FALSE(batch(quietTime));
}

} // namespace
} // namespace quillet
