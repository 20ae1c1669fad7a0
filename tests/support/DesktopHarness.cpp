#include "support/DesktopHarness.h"

#include "library/LibraryFile.h"

#include <algorithm>

namespace quillet::testing {

using namespace std::chrono_literals;

// The text window ----------------------------------------------------------------------------

TextWindow::TextWindow(const std::vector<std::string>& options) {
    std::vector<std::string> args{QUILLET_TEXT_WINDOW};
    args.insert(args.end(), options.begin(), options.end());
    std::map<std::string, std::string> environment{{"QT_QPA_PLATFORM", "xcb"}};
    if (std::find(options.begin(), options.end(), "--password") != options.end() ||
        std::find(options.begin(), options.end(), "--accessible") != options.end()) {
        environment.emplace("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1"); // as with a screen reader on
    }
    process_ = std::make_unique<LiveProcess>(args, environment);
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (std::chrono::steady_clock::now() < deadline) {
        auto line = process_->readLine(1s);
        if (line && line->starts_with("ready ")) {
            window_ = std::stoul(line->substr(6));
            return;
        }
        if (line) {
            take(*line);
        }
    }
}

bool TextWindow::take(const std::string& line) {
    if (!line.starts_with("changed ")) {
        return false;
    }
    const std::size_t space = line.find(' ', 8);
    const long long ns = std::stoll(line.substr(8, space - 8));
    current_ = nlohmann::json::parse(line.substr(space + 1)).get<std::string>();
    changes_.emplace_back(std::chrono::steady_clock::time_point(std::chrono::nanoseconds(ns)),
                          current_);
    return true;
}

std::optional<std::string> TextWindow::answer(const std::string& command,
                                              const std::string& prefix) {
    process_->send(command);
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (std::chrono::steady_clock::now() < deadline) {
        auto line = process_->readLine(1s);
        if (!line || take(*line)) {
            continue;
        }
        if (line->starts_with(prefix)) {
            return line->substr(prefix.size());
        }
    }
    return std::nullopt;
}

std::string TextWindow::waitFor(const std::string& expected, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (current_ != expected && std::chrono::steady_clock::now() < deadline) {
        if (auto line = process_->readLine(50ms)) {
            take(*line);
        }
    }
    return current_;
}

// Quillet ------------------------------------------------------------------------------------

QuilletProcess::QuilletProcess(const std::vector<Snippet>& library, const std::string& settings) {
    const auto data = home_ / "data";
    const auto config = home_ / "config";
    std::filesystem::create_directories(data / "quillet");
    std::filesystem::create_directories(config / "quillet");
    std::string error;
    writeLibrary(data / "quillet" / "snippets.json", library, error);
    writeText(config / "quillet" / "settings.json", settings);
    env_ = {{"HOME", home_.path().string()},
            {"XDG_DATA_HOME", data.string()},
            {"XDG_CONFIG_HOME", config.string()}};
    process_ = std::make_unique<LiveProcess>(std::vector<std::string>{QUILLET_PROGRAM}, env_);
    listening_ = process_->waitForError("listening", 20s);
}

ProcessResult QuilletProcess::launchAgain(const std::vector<std::string>& arguments) const {
    std::vector<std::string> args{QUILLET_PROGRAM};
    args.insert(args.end(), arguments.begin(), arguments.end());
    return runProcess(args, {}, env_);
}

} // namespace quillet::testing
