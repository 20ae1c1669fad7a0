#include "script/JavaScript.h"

#include <future>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace quillet {
namespace {

using namespace std::chrono_literals;

TEST(JavaScript, TheValueInTheInterpretersOwnTextOrNothingFromRunsInParallel) {
    std::vector<std::pair<std::string, std::optional<std::string>>> cases{
        {"[1, [2, 3], null]", "1,2,3,"},
        {"0.1 + 0.2", "0.30000000000000004"},
        {"let greeting = 'h\\u00e9 \u2713 \U0001F389'; greeting", "h\u00e9 \u2713 \U0001F389"},
        {"new Error('boom')", "Error: boom"}, // not thrown, so a value like any other
        // A top-level return; a last-line comment must not swallow the wrapper's closing brace.
        {"const d = 4;\nif (d > 3) return 'big';\nreturn 'small';", "big"},
        {"return 7 // seven", "7"},
        {"var leaked = 1; Object.prototype.extra = 2; leaked", "1"},
    };
    for (const char* source : {"undefined", "null", "return", "return null", "var x = 1;",
                               "throw new Error('x')", "throw 5", "throw undefined", "}{",
                               "missing.property", "function f() { return f(); } return f();"}) {
        cases.emplace_back(source, std::nullopt);
    }
    // Run alone, this is the process's first run: off the main thread, with no application object.
    std::vector<std::future<std::optional<std::string>>> runs;
    for (const auto& one : cases) {
        runs.push_back(std::async(std::launch::async, [&one] { return runJavaScript(one.first); }));
    }
    for (std::size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(runs[i].get(), cases[i].second) << cases[i].first;
    }
    // Every run starts fresh, with no host objects to reach files, processes or the network.
    EXPECT_EQ(runJavaScript("[typeof leaked, typeof ({}).extra, typeof console, typeof print, "
                            "typeof Qt, typeof XMLHttpRequest, typeof require].join()"),
              "undefined,undefined,undefined,undefined,undefined,undefined,undefined");
}

TEST(JavaScript, AnInterruptStopsEndlessCodeWhereverItRunsOrBeforeItStarts) {
    // Endless in either evaluation, in the value's conversion to text, and past a catch-all.
    for (const char* source :
         {"while (true) {}", "while (true) {}\nreturn 1", "({ toString() { for (;;) {} } })",
          "for (;;) { try { for (;;) {} } catch (e) {} }"}) {
        JavaScriptRun run;
        auto result = std::async(std::launch::async, [&] { return runJavaScript(source, run); });
        std::this_thread::sleep_for(100ms);
        run.interrupt();
        EXPECT_EQ(result.get(), std::nullopt) << source;
    }
    JavaScriptRun early;
    early.interrupt();
    EXPECT_EQ(runJavaScript("1", early), std::nullopt);
}

} // namespace
} // namespace quillet
