#include "library/RunLoop.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace quillet {
namespace {

using namespace std::chrono_literals;

TEST(RunLoop, RunsTasksFromOtherThreadsOnItsOwnThreadInOrder) {
    RunLoop loop;
    std::vector<int> order;
    bool allOnMain = true;
    std::thread poster([&] {
        EXPECT_FALSE(loop.isMainThread());
        for (int i = 0; i < 100; ++i) {
            loop.post([&, i] {
                allOnMain = allOnMain && loop.isMainThread();
                order.push_back(i);
            });
        }
    });
    poster.join();
    EXPECT_TRUE(loop.runUntil([&] { return order.size() == 100; }, 5s));
    EXPECT_TRUE(allOnMain);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(order[static_cast<std::size_t>(i)], i);
    }
}

TEST(RunLoop, DelayedTasksRunByDueTimeAndCanBeCancelled) {
    RunLoop loop;
    std::vector<std::string> ran;
    loop.postAfter(60ms, [&] { ran.push_back("late"); });
    auto dropped = loop.postAfter(30ms, [&] { ran.push_back("dropped"); });
    loop.postAfter(20ms, [&] { ran.push_back("early"); });
    loop.post([&] { ran.push_back("now"); });
    EXPECT_NE(dropped, 0u);
    EXPECT_TRUE(loop.cancel(dropped));
    EXPECT_FALSE(loop.cancel(dropped));

    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(loop.runUntil([&] { return ran.size() == 3; }, 5s));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 60ms);
    EXPECT_EQ(ran, (std::vector<std::string>{"now", "early", "late"}));

    auto done = loop.postAfter(0ms, [] {});
    loop.runFor(0ms);
    EXPECT_FALSE(loop.cancel(done)); // already ran
}

TEST(RunLoop, BoundedRunsReturnOnTime) {
    RunLoop loop;
    int ticks = 0;
    // A task that keeps posting itself must not hold a bounded run open.
    std::function<void()> tick = [&] {
        ++ticks;
        loop.post(tick);
    };
    loop.post(tick);
    const auto start = std::chrono::steady_clock::now();
    loop.runFor(50ms);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, 50ms);
    EXPECT_LT(took, 2s);
    EXPECT_GT(ticks, 1);

    bool late = false;
    loop.postAfter(10s, [&] { late = true; });
    EXPECT_FALSE(loop.runUntil([&] { return late; }, 30ms));
    EXPECT_FALSE(late);
}

TEST(RunLoop, QuitEndsRunFromAnyThreadAndIsNotLostBeforeRun) {
    RunLoop loop;
    loop.quit();
    loop.run(); // returns at once: the quit came first

    std::atomic<bool> ran = false;
    std::thread other([&] {
        loop.post([&] { ran = true; });
        while (!ran) {
            std::this_thread::sleep_for(1ms);
        }
        loop.quit();
    });
    loop.run();
    other.join();
    EXPECT_TRUE(ran);
    EXPECT_TRUE(loop.isMainThread());
}

TEST(RunLoop, TheThreadThatRunsItIsTheMainThread) {
    RunLoop loop;
    bool onMain = false;
    std::thread runner([&] {
        loop.post([&] { onMain = loop.isMainThread(); });
        loop.runFor(0ms);
    });
    runner.join();
    EXPECT_TRUE(onMain);
    EXPECT_FALSE(loop.isMainThread());
}

} // namespace
} // namespace quillet
