#pragma once

#include "engine/Executor.h"
#include "engine/FrontApplication.h"
#include "library/Preferences.h"
#include "library/Scheduler.h"
#include "platform/x11/X11Clipboard.h"
#include "platform/x11/X11Typer.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

namespace quillet {

/// Carries out the engine's intentions on X11: keys through XTEST, insertions by pasting from
/// the CLIPBOARD selection, which Quillet owns for the moment. The user's clipboard is
/// snapshotted before an expansion's first paste and put back when it ends. Nothing waits a
/// fixed time: a paste is over once the application has fetched the data and stopped asking,
/// so the next step, and the restore, never overtake it.
class X11Executor final : public Executor {
public:
    /// How long a paste may wait for the application to fetch the clipboard.
    static constexpr std::chrono::milliseconds fetchTimeout{1000};
    /// How long the paste shortcut waits for the user to let go of modifiers.
    static constexpr std::chrono::milliseconds modifierPatience{500};
    /// Everything must outlive the executor.
    X11Executor(X11Typer& typer, X11Clipboard& clipboard, const FrontApplication& front,
                const Preferences& preferences, Scheduler& scheduler);
    ~X11Executor() override;

    /// Sets who keeps the user's own key presses back while an expansion is typed (the
    /// listener's keyboard hold), so they cannot land in the middle of it.
    void setHoldKeyboard(std::function<void(bool)> hold) { hold_ = std::move(hold); }

    /// Holds the keyboard, and with it has the keys typed before reported, on the next turn of
    /// the loop (never inside the key source's callback).
    void hold(Done done) override;
    void erase(std::int64_t count, Done done) override;
    void insert(const Payload& payload, Done done) override;
    void press(const Tokens::KeyStroke& stroke, Done done) override;
    void moveLeft(std::int64_t count, Done done) override;
    void moveRight(std::int64_t count, Done done) override;
    void type(std::string_view text, Done done) override;
    void finish(Done done) override;

    /// The key stroke that pastes in the application app: the "pasteShortcuts" setting's entry
    /// for it, else Control+Shift+V in terminals and Control+V everywhere else.
    static Tokens::KeyStroke pasteShortcut(std::string_view app, const Preferences& preferences);

    /// True for the window classes of terminal emulators, which paste with Control+Shift+V.
    static bool isTerminal(std::string_view app);

private:
    void begin();
    void tapAll(KeySym key, std::int64_t count);
    void whenModifiersReleased(std::function<void()> then,
                               std::chrono::steady_clock::time_point deadline);

    X11Typer& typer_;
    X11Clipboard& clipboard_;
    const FrontApplication& front_;
    const Preferences& preferences_;
    Scheduler& scheduler_;
    std::function<void(bool)> hold_;

    bool expanding_ = false;                         // between an expansion's first step and finish
    std::optional<X11Clipboard::Snapshot> borrowed_; // the user's clipboard while we paste
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace quillet
