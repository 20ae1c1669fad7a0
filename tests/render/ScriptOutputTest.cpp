#include "render/ScriptOutput.h"

#include "support/TempFolder.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <thread>

namespace quillet {
namespace {

using namespace std::chrono_literals;
using Kind = Snippet::Kind;

const MemoryPreferences allowed(nlohmann::json{{"allowScripts", true}});

ScriptResult run(Kind kind, const std::string& script, ScriptLimits limits = {}) {
    return scriptOutput(kind, script, allowed, limits).get();
}

// True when the process whose id the file holds is gone, or (unless it must be collected) a
// zombie that its parent, init once our child is killed, has yet to collect.
bool stopped(const std::filesystem::path& pidFile, bool mustBeCollected) {
    auto stat = testing::contentsOf(
        "/proc/" + std::to_string(std::stoi(testing::contentsOf(pidFile))) + "/stat");
    return stat.empty() || (!mustBeCollected && stat.find(") Z") != std::string::npos);
}

// First in the file: the check forks, best before other cases have left threads behind.
TEST(ScriptOutput, AScriptRunFromATerminalIsNeverStoppedByIt) {
    // As `snippets expand` typed in a terminal: the caller leads a session whose controlling
    // terminal is its standard input. A script touching that terminal from outside the
    // foreground group would be stopped and give nothing at the limit.
    const std::pair<const char*, const char*> cases[] = {
        {"cat; echo read", "read"},
        {"cat </dev/tty; echo tried", "tried"},
    };
    for (const auto& [script, expected] : cases) {
        int status = testing::inChild([&, script = script, expected = expected] {
            int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
            if (terminal < 0 || ::grantpt(terminal) != 0 || ::unlockpt(terminal) != 0 ||
                ::setsid() < 0) {
                return 90;
            }
            int input = ::open(::ptsname(terminal), O_RDWR); // becomes the controlling terminal
            if (input < 0 || ::dup2(input, STDIN_FILENO) < 0) {
                return 91;
            }
            return run(Kind::shell, script) == expected ? 0 : 1;
        });
        EXPECT_EQ(status, 0) << script;
    }
}

TEST(ScriptOutput, ResultsOfEachKindInTheApplicationsSurroundings) {
    const std::tuple<Kind, std::string, ScriptResult> cases[] = {
        {Kind::shell, "printf 'a\\nb\\n'", "a\nb"}, // exactly one final line feed goes
        {Kind::shell, "printf 'a\\n\\n'", "a\n"},
        {Kind::shell, "printf 'a\\r\\n'", "a\r"},
        {Kind::shell, "printf '\\303\\251\\n'", "\u00e9"},
        {Kind::shell, "echo lost >&2; echo kept", "kept"},
        {Kind::shell, "printf %s \"$0\"", ::access("/bin/zsh", X_OK) == 0 ? "/bin/zsh" : "/bin/sh"},
        // An ignored SIGPIPE is not inherited (glibc's own signals, 32 and 33, may be).
        {Kind::shell, "echo $((0x$(grep ^SigIgn /proc/self/status | cut -f2) & 0x7fffffff))", "0"},
        {Kind::shell, "echo partial; exit 1", std::nullopt},
        {Kind::shell, "printf 'caf\\351'", std::nullopt}, // Latin-1, not UTF-8
    };
    auto previous = std::signal(SIGPIPE, SIG_IGN);
    for (const auto& [kind, script, expected] : cases) {
        EXPECT_EQ(run(kind, script), expected) << script;
    }
    std::signal(SIGPIPE, previous);
}

TEST(ScriptOutput, OnlyTextAndJavaScriptRunWhileScriptsAreOff) {
    testing::TempFolder folder;
    std::string script = "touch '" + (folder / "ran").string() + "'\n";
    MemoryPreferences preferences;
    // Text and refused scripts are answered before scriptOutput returns.
    std::vector<ScriptResult> got;
    for (Kind kind : {Kind::text, Kind::shell, Kind::applescript}) {
        scriptOutput(kind, script, preferences, [&](ScriptResult r) { got.push_back(r); });
    }
    EXPECT_EQ(got, (std::vector<ScriptResult>{script, std::nullopt, std::nullopt}));
    EXPECT_EQ(runningScripts(), 0u);
    EXPECT_FALSE(std::filesystem::exists(folder / "ran"));
    EXPECT_EQ(scriptOutput(Kind::javascript, "return 1 + 2", preferences).get(), "3");
    // The setting is read at every call; no output is still a result.
    preferences.setValue("allowScripts", true);
    EXPECT_EQ(scriptOutput(Kind::shell, script, preferences).get(), "");
}

TEST(ScriptOutput, ShellsAreKilledAfterFiveSecondsAndJavaScriptStoppedAfterSix) {
    // The output is read once the script has ended, so a script writing more than the pipe holds
    // blocks until it is killed: nothing, by design.
    constexpr ScriptLimits quick{300ms, 600ms};
    EXPECT_EQ(run(Kind::shell, "head -c 1000000 /dev/zero | tr '\\0' a", quick), std::nullopt);
    EXPECT_EQ(run(Kind::shell, "head -c 1000 /dev/zero | tr '\\0' a", quick)->size(), 1000u);

    testing::TempFolder folder;
    run(Kind::javascript, "1"); // the interpreter's first run opens what it keeps for good
    auto descriptors = std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    auto start = std::chrono::steady_clock::now();
    auto endless = scriptOutput(Kind::javascript, "while (true) {}", allowed);
    std::string script = "echo $$ > '" + (folder / "shell").string() + "'; sleep 30 & echo $! > '" +
                         (folder / "child").string() + "'; wait; echo late";
    EXPECT_EQ(run(Kind::shell, script), std::nullopt);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 4900ms);
    EXPECT_EQ(endless.get(), std::nullopt);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 5900ms);
    // The interpreter's thread stops too rather than keeping a core busy.
    ASSERT_TRUE(waitForScripts(3s));
    EXPECT_TRUE(stopped(folder / "shell", true));
    // The orphaned sleep belongs to init now, which may collect it a little later.
    for (int i = 0; i < 100 && !stopped(folder / "child", false); ++i) {
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_TRUE(stopped(folder / "child", false));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}), descriptors);
}

TEST(ScriptOutput, EachCallCompletesOnceAndIndependently) {
    testing::TempFolder folder;
    std::string gate = "while [ ! -e '" + (folder / "gate").string() + "' ]; do sleep 0.02; done";
    auto held = scriptOutput(Kind::shell, gate + "; echo released", allowed);
    // This shell outlives the call's limit (its own limit is longer), then finishes with text
    // that must go nowhere; around their limit the JavaScript runs race their interrupts.
    std::atomic<int> shell = 0, completions = 0;
    scriptOutput(Kind::shell, "sleep 0.4; echo late", allowed,
                 [&](ScriptResult r) { shell += r ? 100 : 1; }, {2s, 100ms});
    for (int i = 0; i < 40; ++i) {
        scriptOutput(Kind::javascript, "const end = Date.now() + 20; while (Date.now() < end) {} 1",
                     allowed, [&](ScriptResult) { ++completions; }, {5s, 20ms});
    }
    // A shell waiting on its own holds up no other run.
    EXPECT_EQ(run(Kind::shell, "echo 1"), "1");
    testing::writeText(folder / "gate", "");
    EXPECT_EQ(held.get(), "released");
    ASSERT_TRUE(waitForScripts(10s));
    EXPECT_EQ(shell, 1); // once, and without the late text
    EXPECT_EQ(completions, 40);
}

} // namespace
} // namespace quillet
