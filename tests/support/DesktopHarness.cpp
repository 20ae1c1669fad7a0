#include "support/DesktopHarness.h"

#include "library/LibraryFile.h"
#include "support/X11Keys.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>
#include <unicode/utf8.h>

namespace quillet::testing {
namespace {

using namespace std::chrono_literals;

KeySym keysymOf(char32_t cp) {
    switch (cp) {
    case '\n':
        return XK_Return;
    case '\t':
        return XK_Tab;
    case 0x1B:
        return XK_Escape;
    case '\b':
        return XK_BackSpace;
    default:
        return cp < 0x100 ? static_cast<KeySym>(cp) : static_cast<KeySym>(0x01000000 + cp);
    }
}

} // namespace

Typist::Typist(Source source) {
    display_ = XOpenDisplay(nullptr);
    if (display_ == nullptr) {
        throw std::runtime_error("no X display");
    }
    xtest_ = source == Source::xtest;
    keyboard_ = openKeyboardDevice(display_);
    if (keyboard_ == nullptr && !xtest_) {
        throw std::runtime_error("the X server has no keyboard device of its own");
    }
    XSync(display_, False);
}

Typist::~Typist() {
    if (keyboard_ != nullptr) {
        XCloseDevice(display_, keyboard_);
    }
    if (display_ != nullptr) {
        XCloseDisplay(display_);
    }
}

unsigned Typist::code(KeySym key, bool& shift) {
    const KeyCode keycode = XKeysymToKeycode(display_, key);
    if (keycode == 0) {
        throw std::runtime_error("no key types keysym " + std::to_string(key));
    }
    shift = shift || (XkbKeycodeToKeysym(display_, keycode, 0, 0) != key &&
                      XkbKeycodeToKeysym(display_, keycode, 0, 1) == key);
    return keycode;
}

void Typist::send(unsigned keycode, bool down) {
    if (xtest_) {
        XTestFakeKeyEvent(display_, keycode, down ? True : False, CurrentTime);
    } else {
        XTestFakeDeviceKeyEvent(display_, keyboard_, keycode, down ? True : False, nullptr, 0, 0);
    }
}

void Typist::key(KeySym sym, bool down) {
    bool shift = false;
    send(code(sym, shift), down);
    XFlush(display_);
}

void Typist::tap(KeySym sym, bool shift) {
    const unsigned keycode = code(sym, shift);
    const unsigned shiftCode = XKeysymToKeycode(display_, XK_Shift_L);
    if (shift) {
        send(shiftCode, true);
    }
    send(keycode, true);
    send(keycode, false);
    if (shift) {
        send(shiftCode, false);
    }
    XFlush(display_);
}

void Typist::type(std::string_view text, std::chrono::milliseconds pause) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    for (int32_t i = 0, size = static_cast<int32_t>(text.size()); i < size;) {
        UChar32 cp = 0;
        U8_NEXT(bytes, i, size, cp);
        tap(keysymOf(static_cast<char32_t>(cp)));
        std::this_thread::sleep_for(pause);
    }
}

void Typist::sync() {
    XSync(display_, False);
}

// The text window ----------------------------------------------------------------------------

TextWindow::TextWindow(const std::vector<std::string>& options) {
    std::vector<std::string> args{QUILLET_TEXT_WINDOW};
    args.insert(args.end(), options.begin(), options.end());
    std::map<std::string, std::string> environment{{"QT_QPA_PLATFORM", "xcb"}};
    if (std::find(options.begin(), options.end(), "--password") != options.end() ||
        std::find(options.begin(), options.end(), "--accessible") != options.end()) {
        environment["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1"; // as with a screen reader on
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

std::string TextWindow::html() {
    auto json = answer("html", "html ");
    return json ? nlohmann::json::parse(*json).get<std::string>() : "<no answer>";
}

void TextWindow::clear() {
    answer("clear", "ok");
    current_.clear();
    changes_.clear();
}

void TextWindow::focus() {
    answer("focus", "ok");
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
    process_ = std::make_unique<LiveProcess>(
        std::vector<std::string>{QUILLET_PROGRAM},
        std::map<std::string, std::string>{{"HOME", home_.path().string()},
                                           {"XDG_DATA_HOME", data.string()},
                                           {"XDG_CONFIG_HOME", config.string()}});
    listening_ = process_->waitForError("listening", 20s);
}

void QuilletProcess::writeSettings(const std::string& settings) {
    const auto file = home_ / "config" / "quillet" / "settings.json";
    writeText(file.string() + ".new", settings);
    std::filesystem::rename(file.string() + ".new", file);
}

} // namespace quillet::testing
