#include "render/ScriptOutput.h"

#include "support/TempFolder.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <thread>
#include <vector>

namespace quillet {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Kind = Snippet::Kind;
using testing::contentsOf;
using testing::TempFolder;

// Short limits for the cases that only need some limit to pass; the real ones are shown once each.
constexpr ScriptLimits quick{300ms, 600ms};

MemoryPreferences allowed() {
    return MemoryPreferences(nlohmann::json{{"allowScripts", true}});
}

ScriptResult shell(const std::string& script, ScriptLimits limits = {}) {
    return scriptOutput(Kind::shell, script, allowed(), limits).get();
}

std::size_t openDescriptors() {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                      std::filesystem::directory_iterator()));
}

// True when no process with this id is left running: gone, or a zombie that its parent (here
// init, once our child is killed) has yet to collect. Our own children must be gone outright.
bool stopped(pid_t pid, bool mustBeCollected) {
    std::string stat = contentsOf("/proc/" + std::to_string(pid) + "/stat");
    if (stat.empty()) {
        return true;
    }
    return !mustBeCollected && stat.find(") Z") != std::string::npos;
}

pid_t pidIn(const std::filesystem::path& file) {
    return static_cast<pid_t>(std::stoi(contentsOf(file)));
}

TEST(ScriptOutput, TextIsTheContentAtOnce) {
    MemoryPreferences preferences;
    std::optional<ScriptResult> got;
    scriptOutput(Kind::text, "{date} x\n", preferences, [&](ScriptResult r) { got = r; });
    ASSERT_TRUE(got); // called before scriptOutput returned
    EXPECT_EQ(*got, "{date} x\n");
}

TEST(ScriptOutput, JavaScriptRunsEvenWithScriptsOff) {
    MemoryPreferences off;
    EXPECT_EQ(scriptOutput(Kind::javascript, "return 1 + 2", off).get(), "3");
    EXPECT_EQ(scriptOutput(Kind::javascript, "undefined", off).get(), std::nullopt);
}

TEST(ScriptOutput, ShellAndAppleScriptStartNothingWhileScriptsAreOff) {
    TempFolder folder;
    std::string script = "touch '" + (folder / "ran").string() + "'";
    MemoryPreferences preferences;
    for (Kind kind : {Kind::shell, Kind::applescript}) {
        std::optional<ScriptResult> got;
        scriptOutput(kind, script, preferences, [&](ScriptResult r) { got = r; });
        ASSERT_TRUE(got);
        EXPECT_EQ(*got, std::nullopt);
    }
    EXPECT_EQ(runningScripts(), 0u);
    EXPECT_FALSE(std::filesystem::exists(folder / "ran"));

    // The setting is read at every call.
    preferences.setValue("allowScripts", true);
    EXPECT_EQ(scriptOutput(Kind::shell, script, preferences).get(), "");
    EXPECT_TRUE(std::filesystem::exists(folder / "ran"));
    // AppleScript has no interpreter here even when allowed.
    EXPECT_EQ(scriptOutput(Kind::applescript, "return 1", preferences).get(), std::nullopt);
}

TEST(ScriptOutput, ShellLosesExactlyOneFinalLineFeed) {
    EXPECT_EQ(shell("printf 'a\\nb\\n'"), "a\nb");
    EXPECT_EQ(shell("printf 'a\\n\\n'"), "a\n");
    EXPECT_EQ(shell("printf 'a\\r\\n'"), "a\r");
    EXPECT_EQ(shell("printf abc"), "abc");
    EXPECT_EQ(shell("printf '\\n'"), "");
    EXPECT_EQ(shell("true"), ""); // no output is still a result
    EXPECT_EQ(shell("printf '\\303\\251\\n'"), "\u00e9");
}

TEST(ScriptOutput, ShellFailuresGiveNothing) {
    EXPECT_EQ(shell("echo partial; exit 1"), std::nullopt);
    EXPECT_EQ(shell("echo partial; kill -9 $$"), std::nullopt);
    EXPECT_EQ(shell("printf 'caf\\351'"), std::nullopt); // Latin-1, not UTF-8
    EXPECT_EQ(shell("if then fi"), std::nullopt);
}

TEST(ScriptOutput, ShellRunsInTheApplicationsSurroundings) {
    ::setenv("QUILLET_TEST_GREETING", "hello there", 1);
    EXPECT_EQ(shell("printf %s \"$QUILLET_TEST_GREETING\""), "hello there");
    EXPECT_EQ(shell("echo lost >&2; echo kept"), "kept");
    std::string expected = ::access("/bin/zsh", X_OK) == 0 ? "/bin/zsh" : "/bin/sh";
    EXPECT_EQ(shell("printf %s \"$0\""), expected);
    // Nothing the application blocks or ignores (say, SIGPIPE) carries over to the script.
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    auto previous = std::signal(SIGPIPE, SIG_IGN);
    auto masks = shell("grep -E '^Sig(Blk|Ign)' /proc/self/status | cut -f2").value_or("");
    ASSERT_EQ(masks.size(), 33u) << masks;
    // glibc's own signals (32 and 33) may show as ignored; they are no business of scripts.
    constexpr unsigned long long standard = 0x7fffffffULL;
    EXPECT_EQ(std::stoull(masks.substr(0, 16), nullptr, 16) & standard, 0u) << masks;
    EXPECT_EQ(std::stoull(masks.substr(17), nullptr, 16) & standard, 0u) << masks;
    std::signal(SIGPIPE, previous);
    ::pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
}

TEST(ScriptOutput, OutputBeyondThePipeBufferWaitsForTheLimit) {
    // The output is read once the script has ended, so a script writing more than the pipe holds
    // blocks until it is killed: nothing, by design.
    EXPECT_EQ(shell("head -c 1000000 /dev/zero | tr '\\0' a", quick), std::nullopt);
    EXPECT_EQ(shell("head -c 1000 /dev/zero | tr '\\0' a", quick).value_or("").size(), 1000u);
}

TEST(ScriptOutput, TimeOutKillsTheScriptAndEverythingItStarted) {
    TempFolder folder;
    std::size_t descriptors = openDescriptors();
    std::string script = "echo $$ > '" + (folder / "shell").string() + "'; sleep 30 & echo $! > '" +
                         (folder / "child").string() + "'; wait";
    EXPECT_EQ(shell(script, quick), std::nullopt);
    ASSERT_TRUE(waitForScripts(2s));

    EXPECT_TRUE(stopped(pidIn(folder / "shell"), true));
    // The orphaned sleep belongs to init now, which may collect it a little later.
    auto child = pidIn(folder / "child");
    for (int i = 0; i < 100 && !stopped(child, false); ++i) {
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_TRUE(stopped(child, false));
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(ScriptOutput, ShellIsKilledAfterFiveSeconds) {
    auto start = Clock::now();
    EXPECT_EQ(shell("sleep 10; echo late"), std::nullopt);
    auto elapsed = Clock::now() - start;
    EXPECT_GE(elapsed, 4900ms);
    EXPECT_LT(elapsed, 9s);
}

TEST(ScriptOutput, EndlessJavaScriptGivesNothingAfterSixSecondsAndIsStopped) {
    MemoryPreferences preferences;
    auto start = Clock::now();
    EXPECT_EQ(scriptOutput(Kind::javascript, "while (true) {}", preferences).get(), std::nullopt);
    auto elapsed = Clock::now() - start;
    EXPECT_GE(elapsed, 5900ms);
    EXPECT_LT(elapsed, 9s);
    // The interpreter's thread stops too rather than keeping a core busy.
    EXPECT_TRUE(waitForScripts(3s));
}

TEST(ScriptOutput, TheCallCompletesOnceWhoeverFinishesFirst) {
    MemoryPreferences preferences = allowed();
    // The shell outlives the call's limit (its own limit is longer), then finishes with text that
    // must go nowhere.
    std::atomic<int> shellCompletions = 0;
    std::atomic<bool> shellGotText = false;
    scriptOutput(Kind::shell, "sleep 0.4; echo late", preferences,
                 [&](ScriptResult r) {
                     ++shellCompletions;
                     shellGotText = r.has_value();
                 },
                 {2s, 100ms});
    // Around the limit the two finishers race; still one completion each.
    constexpr int racing = 40;
    std::atomic<int> completions = 0;
    for (int i = 0; i < racing; ++i) {
        scriptOutput(Kind::javascript, "const end = Date.now() + 20; while (Date.now() < end) {} 1",
                     preferences, [&](ScriptResult) { ++completions; }, {5s, 20ms});
    }
    ASSERT_TRUE(waitForScripts(10s));
    EXPECT_EQ(shellCompletions, 1);
    EXPECT_FALSE(shellGotText);
    EXPECT_EQ(completions, racing);
    EXPECT_EQ(runningScripts(), 0u);
}

TEST(ScriptOutput, ConcurrentRunsAreIndependent) {
    TempFolder folder;
    std::string gate = "'" + (folder / "gate").string() + "'";
    MemoryPreferences preferences = allowed();
    auto held =
        scriptOutput(Kind::shell, "while [ ! -e " + gate + " ]; do sleep 0.02; done; echo released",
                     preferences);
    auto endless = scriptOutput(Kind::javascript, "while (true) {}", preferences, quick);
    std::vector<std::future<ScriptResult>> others;
    for (int i = 0; i < 8; ++i) {
        others.push_back(scriptOutput(Kind::shell, "echo " + std::to_string(i), preferences));
        others.push_back(
            scriptOutput(Kind::javascript, "return " + std::to_string(i) + " * 2", preferences));
    }
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(others[2 * i].get(), std::to_string(i));
        EXPECT_EQ(others[2 * i + 1].get(), std::to_string(i * 2));
    }
    EXPECT_EQ(held.wait_for(0s), std::future_status::timeout);
    testing::writeText(folder / "gate", "");
    EXPECT_EQ(held.get(), "released");
    EXPECT_EQ(endless.get(), std::nullopt);
    EXPECT_TRUE(waitForScripts(3s));
}

} // namespace
} // namespace quillet
