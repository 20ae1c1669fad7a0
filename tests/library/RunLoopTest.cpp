#include "library/RunLoop.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace quillet {
namespace {

using namespace std::chrono_literals;

TEST(RunLoop, RunsTasksInOrderOnItsThreadDelayedOnesByDueTimeUntilQuit) {
    RunLoop loop;
    loop.quit();
    loop.run(); // returns at once: the quit came first
    std::vector<int> order;
    std::atomic<int> done = 0, offMain = 0;
    std::thread poster([&] {
        for (int i = 0; i < 100; ++i) {
            loop.post([&, i] {
                offMain += loop.isMainThread() ? 0 : 1;
                order.push_back(i);
                ++done;
            });
        }
        while (done < 100) {
            std::this_thread::sleep_for(1ms);
        }
        loop.quit(); // while run() waits for more
    });
    loop.run();
    poster.join();
    EXPECT_EQ(offMain, 0);
    EXPECT_TRUE(order.size() == 100 && std::is_sorted(order.begin(), order.end()));

    // Whichever thread runs the loop is its main thread.
    std::thread([&] { loop.runFor(0ms); }).join();
    EXPECT_FALSE(loop.isMainThread());

    std::vector<std::string> ran;
    // Taken before the first delay starts counting: taken after, the delay may look short.
    const auto start = std::chrono::steady_clock::now();
    loop.postAfter(60ms, [&] { ran.push_back("late"); });
    auto dropped = loop.postAfter(30ms, [&] { ran.push_back("dropped"); });
    auto early = loop.postAfter(20ms, [&] { ran.push_back("early"); });
    loop.post([&] { ran.push_back("now"); });
    EXPECT_TRUE(loop.cancel(dropped));
    EXPECT_TRUE(loop.runUntil([&] { return ran.size() == 3; }, 5s));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 60ms);
    EXPECT_EQ(ran, (std::vector<std::string>{"now", "early", "late"}));
    EXPECT_FALSE(loop.cancel(early)); // already ran

    // A task that keeps posting itself must not hold a bounded run open.
    std::function<void()> again = [&] { loop.post(again); };
    loop.post(again);
    const auto bounded = std::chrono::steady_clock::now();
    loop.runFor(50ms);
    EXPECT_GE(std::chrono::steady_clock::now() - bounded, 50ms);
}

} // namespace
} // namespace quillet
