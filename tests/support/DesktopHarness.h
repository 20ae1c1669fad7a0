#pragma once

#include "support/ChildProcess.h"
#include "support/Snippets.h"
#include "support/TempFolder.h"
#include "support/X11Clients.h"

#include <chrono>
#include <csignal>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace quillet::testing {

/// The test window (tests/support/textwindow): an editor that reports its text.
class TextWindow {
public:
    /// Starts the window with these options and waits until it has the focus. With
    /// "--accessible" or "--password" it serves the accessibility bus.
    explicit TextWindow(const std::vector<std::string>& options = {});

    /// True once the window is up.
    bool ready() const { return window_ != 0; }
    /// The editor's content as HTML.
    std::string html() {
        auto json = answer("html", "html ");
        return json ? nlohmann::json::parse(*json).get<std::string>() : "<no answer>";
    }
    /// Empties the editor.
    void clear() {
        answer("clear", "ok");
        current_.clear();
        changes_.clear();
    }
    /// Gives the window the keyboard focus again.
    void focus() { answer("focus", "ok"); }
    /// Waits until the text equals expected; the last text seen when it never did.
    std::string waitFor(const std::string& expected,
                        std::chrono::milliseconds timeout = std::chrono::seconds(5));
    /// The X window id.
    Window window() const { return window_; }
    /// Every change since the last clear(): when it happened (steady clock) and the text then.
    const std::vector<std::pair<std::chrono::steady_clock::time_point, std::string>>&
    changes() const {
        return changes_;
    }

private:
    std::optional<std::string> answer(const std::string& command, const std::string& prefix);
    bool take(const std::string& line);

    std::unique_ptr<LiveProcess> process_;
    Window window_ = 0;
    std::string current_;
    std::vector<std::pair<std::chrono::steady_clock::time_point, std::string>> changes_;
};

/// Quillet itself, started as the user would, against a library and settings of the test's.
class QuilletProcess {
public:
    /// Writes the library and settings (a JSON object) into a fresh home and starts `quillet`.
    QuilletProcess(const std::vector<Snippet>& library, const std::string& settings = "{}");
    ~QuilletProcess() { process_->stop(SIGTERM, std::chrono::seconds(10)); }

    /// True once it logged that it listens.
    bool listening() const { return listening_; }
    /// Everything it wrote to standard error.
    const std::string& log() const { return process_->errors(); }
    /// Waits until it logs text after the first from characters of its log.
    bool waitForLog(const std::string& text, std::size_t from) {
        return process_->waitForError(text, std::chrono::seconds(5), from);
    }
    /// Replaces its settings file by renaming, as the application and editors do.
    void writeSettings(const std::string& settings) {
        const auto file = home_ / "config" / "quillet" / "settings.json";
        writeText(file.string() + ".new", settings);
        std::filesystem::rename(file.string() + ".new", file);
    }
    /// Starts `quillet` once more as the same user, with arguments, and waits for it to end.
    ProcessResult launchAgain(const std::vector<std::string>& arguments = {}) const;
    /// The environment it runs in: its home and XDG folders.
    const std::map<std::string, std::string>& environment() const { return env_; }
    /// The folder holding its data (library, usage).
    const TempFolder& home() const { return home_; }
    /// Its process id.
    int pid() const { return process_->pid(); }

private:
    TempFolder home_;
    std::map<std::string, std::string> env_;
    std::unique_ptr<LiveProcess> process_;
    bool listening_ = false;
};

} // namespace quillet::testing
