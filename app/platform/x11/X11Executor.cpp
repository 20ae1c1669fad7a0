#include "platform/x11/X11Executor.h"

#include <X11/keysym.h>
#include <algorithm>
#include <array>
#include <cctype>
#include <string>

namespace quillet {
namespace {

std::string lower(std::string_view s) {
    std::string out(s);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

} // namespace

X11Executor::X11Executor(X11Typer& typer, X11Clipboard& clipboard, const FrontApplication& front,
                         const Preferences& preferences, Scheduler& scheduler)
    : typer_(typer), clipboard_(clipboard), front_(front), preferences_(preferences),
      scheduler_(scheduler) {}

X11Executor::~X11Executor() {
    *alive_ = false;
    if (borrowed_) {
        clipboard_.restore(std::move(*borrowed_));
    }
    if (expanding_ && hold_) {
        hold_(false);
    }
}

bool X11Executor::isTerminal(std::string_view app) {
    // WM_CLASS classes as the terminals set them; compared without case.
    static constexpr std::array<std::string_view, 24> terminals = {
        "xterm",          "uxterm",        "urxvt",          "rxvt",
        "gnome-terminal", "konsole",       "xfce4-terminal", "tilix",
        "terminator",     "alacritty",     "kitty",          "org.wezfurlong.wezterm",
        "wezterm",        "foot",          "st-256color",    "st",
        "lxterminal",     "mate-terminal", "qterminal",      "terminology",
        "sakura",         "guake",         "yakuake",        "eterm"};
    const std::string id = lower(app);
    return std::find(terminals.begin(), terminals.end(), id) != terminals.end();
}

Tokens::KeyStroke X11Executor::pasteShortcut(std::string_view app, const Preferences& preferences) {
    const nlohmann::json table = preferences.value(pasteShortcutsKey);
    if (table.is_object() && !app.empty()) {
        const std::string id = lower(app);
        for (const auto& [key, value] : table.items()) {
            if (lower(key) != id || !value.is_string()) {
                continue;
            }
            if (auto stroke = Tokens::keyStroke(value.get<std::string>())) {
                return *stroke;
            }
        }
    }
    Tokens::KeyStroke v = *Tokens::keyStroke("ctrl+v");
    if (isTerminal(app)) {
        v.mask |= Tokens::shiftMask;
    }
    return v;
}

void X11Executor::begin() {
    if (std::exchange(expanding_, true)) {
        return;
    }
    if (hold_) {
        hold_(true);
    }
}

void X11Executor::hold(Done done) {
    std::weak_ptr<bool> alive = alive_;
    scheduler_.post([this, alive, done = std::move(done)] {
        if (auto live = alive.lock(); live && *live) {
            begin();
        }
        done();
    });
}

void X11Executor::tapAll(KeySym key, std::int64_t count) {
    if (count > 0) {
        typer_.tap(key, 0, static_cast<int>(std::min<std::int64_t>(count, 1 << 20)));
    }
}

void X11Executor::erase(std::int64_t count, Done done) {
    begin();
    tapAll(XK_BackSpace, count);
    done();
}

void X11Executor::moveLeft(std::int64_t count, Done done) {
    begin();
    tapAll(XK_Left, count);
    done();
}

void X11Executor::moveRight(std::int64_t count, Done done) {
    begin();
    tapAll(XK_Right, count);
    done();
}

void X11Executor::press(const Tokens::KeyStroke& stroke, Done done) {
    begin();
    typer_.press(stroke);
    done();
}

void X11Executor::type(std::string_view text, Done done) {
    begin();
    typer_.type(text);
    done();
}

void X11Executor::insert(const Payload& payload, Done done) {
    begin();
    if (!borrowed_) {
        // Without a snapshot (the owner never answered) there is nothing to put back; pasting
        // still goes on, since the user asked for the expansion.
        borrowed_ = clipboard_.snapshot();
    }
    std::weak_ptr<bool> alive = alive_;
    clipboard_.offer(
        payload.items(),
        [alive, done](bool) {
            // Fetched or given up: either way the next step may go.
            if (auto live = alive.lock(); live && *live) {
                done();
            }
        },
        fetchTimeout);
    const Tokens::KeyStroke shortcut = pasteShortcut(front_.id(), preferences_);
    whenModifiersReleased([this, shortcut] { typer_.press(shortcut); },
                          std::chrono::steady_clock::now() + modifierPatience);
}

void X11Executor::whenModifiersReleased(std::function<void()> then,
                                        std::chrono::steady_clock::time_point deadline) {
    // A Shift still held from typing the abbreviation would turn Control+V into another
    // shortcut; past the deadline the typer releases it itself.
    if (!typer_.modifiersHeld() || std::chrono::steady_clock::now() >= deadline) {
        then();
        return;
    }
    std::weak_ptr<bool> alive = alive_;
    scheduler_.postAfter(std::chrono::milliseconds(5), [this, alive, then, deadline] {
        if (auto live = alive.lock(); live && *live) {
            whenModifiersReleased(then, deadline);
        }
    });
}

void X11Executor::finish(Done done) {
    if (borrowed_) {
        clipboard_.restore(std::move(*borrowed_));
        borrowed_.reset();
    }
    if (std::exchange(expanding_, false)) {
        if (hold_) {
            hold_(false);
        }
    }
    done();
}

} // namespace quillet
