#include "script/JavaScript.h"

#include <atomic>
#include <chrono>
#include <future>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace quillet {
namespace {

using namespace std::chrono_literals;

TEST(JavaScript, GivesTheValueInTheInterpretersOwnText) {
    EXPECT_EQ(runJavaScript("1 + 2"), "3");
    EXPECT_EQ(runJavaScript("'a' + 'b'"), "ab");
    EXPECT_EQ(runJavaScript("[1, [2, 3], null]"), "1,2,3,");
    EXPECT_EQ(runJavaScript("({a: 1})"), "[object Object]");
    EXPECT_EQ(runJavaScript("0.1 + 0.2"), "0.30000000000000004");
    EXPECT_EQ(runJavaScript("let greeting = 'h\\u00e9 \u2713 \U0001F389'; greeting"),
              "h\u00e9 \u2713 \U0001F389");
    // An Error that is not thrown is a value like any other.
    EXPECT_EQ(runJavaScript("new Error('boom')"), "Error: boom");
}

TEST(JavaScript, TopLevelReturnRunsAsAFunctionBody) {
    EXPECT_EQ(runJavaScript("return 1 + 2"), "3");
    EXPECT_EQ(runJavaScript("const d = 4;\nif (d > 3) return 'big';\nreturn 'small';"), "big");
    // A line comment on the last line must not swallow the closing brace of the wrapper.
    EXPECT_EQ(runJavaScript("return 7 // seven"), "7");
}

TEST(JavaScript, NothingForNoValueOrAnException) {
    for (const char* source : {"undefined", "null", "return", "return null", "var x = 1;",
                               "throw new Error('x')", "throw 5", "throw undefined", "}{",
                               "missing.property", "function f() { return f(); } return f();"}) {
        EXPECT_EQ(runJavaScript(source), std::nullopt) << source;
    }
}

TEST(JavaScript, EveryRunStartsFresh) {
    EXPECT_EQ(runJavaScript("var leaked = 1; Object.prototype.extra = 2; leaked"), "1");
    EXPECT_EQ(runJavaScript("typeof leaked + ' ' + typeof ({}).extra"), "undefined undefined");
    // No host objects: nothing to reach files, processes or the network with.
    EXPECT_EQ(runJavaScript("[typeof console, typeof print, typeof Qt, typeof XMLHttpRequest, "
                            "typeof require].join()"),
              "undefined,undefined,undefined,undefined,undefined");
}

// Interrupts run after a moment and reports what the run gave and how long it took.
std::pair<std::optional<std::string>, std::chrono::steady_clock::duration>
interruptedAfter(const char* source, std::chrono::milliseconds delay) {
    JavaScriptRun run;
    auto start = std::chrono::steady_clock::now();
    auto result = std::async(std::launch::async, [&] { return runJavaScript(source, run); });
    std::this_thread::sleep_for(delay);
    run.interrupt();
    auto value = result.get();
    return {value, std::chrono::steady_clock::now() - start};
}

TEST(JavaScript, AnInterruptStopsEndlessCodeWhereverItRuns) {
    for (const char* source : {"while (true) {}",
                               // in the second, wrapped evaluation
                               "while (true) {}\nreturn 1",
                               // in the conversion of the value to text
                               "({ toString() { for (;;) {} } })",
                               // in a catch-all loop that would swallow an ordinary exception
                               "for (;;) { try { for (;;) {} } catch (e) {} }"}) {
        auto [value, elapsed] = interruptedAfter(source, 100ms);
        EXPECT_EQ(value, std::nullopt) << source;
        EXPECT_LT(elapsed, 5s) << source;
    }
}

TEST(JavaScript, AnInterruptBeforeTheStartMeansNoRun) {
    JavaScriptRun run;
    run.interrupt();
    run.interrupt();
    EXPECT_TRUE(run.interrupted());
    EXPECT_EQ(runJavaScript("1", run), std::nullopt);
}

TEST(JavaScript, RunsInParallelOnThreadsOfTheirOwn) {
    // The first run of this process happens here, off the main thread, with no application
    // object created beforehand.
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &wrong] {
            for (int i = 0; i < 25; ++i) {
                std::string source = "var s = 0; for (let k = 0; k <= " + std::to_string(t * i) +
                                     "; k++) s += k; return s";
                int n = t * i;
                if (runJavaScript(source) != std::to_string(n * (n + 1) / 2)) {
                    ++wrong;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

} // namespace
} // namespace quillet
