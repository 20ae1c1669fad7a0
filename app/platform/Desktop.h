#pragma once

#include "engine/Caret.h"
#include "engine/Executor.h"
#include "engine/FrontApplication.h"
#include "engine/GlobalShortcut.h"
#include "engine/KeySource.h"
#include "engine/SecureInput.h"
#include "library/Preferences.h"
#include "library/Scheduler.h"
#include "render/Pasteboard.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace quillet {

/// The desktop session as the keyboard engine and the clipboard history need it: one backend's
/// listener, executor, front application and clipboard, made to work together.
class Desktop {
public:
    virtual ~Desktop() = default;

    /// The backend and where it runs, for the log, such as "x11 on display :0".
    virtual std::string describe() const = 0;

    /// The keyboard as the engine listens to it.
    virtual KeySource& keys() = 0;

    /// Carries out the engine's intentions in the focused application.
    virtual Executor& executor() = 0;

    /// The application in front, for scopes.
    virtual FrontApplication& front() = 0;

    /// The system clipboard.
    virtual Pasteboard& pasteboard() = 0;

    /// Whether another application keeps the user's typing to itself, and which.
    virtual SecureInput& secureInput() = 0;

    /// Where the focused application's text caret is.
    virtual Caret& caret() = 0;

    /// The key stroke that calls Quillet from any application.
    virtual GlobalShortcut& shortcut() = 0;

    /// The window that has the keyboard focus now, to give it back to later; 0 when none is
    /// known.
    virtual std::uint64_t focusedWindow() = 0;

    /// Gives the keyboard focus back to window (from focusedWindow()) and calls done on the main
    /// thread: true once it has the focus again, false when it is gone or did not take it
    /// within a second.
    virtual void refocus(std::uint64_t window, std::function<void(bool back)> done) = 0;

    /// Calls changed on the main thread whenever another application puts something on the
    /// clipboard.
    virtual void setOnClipboardChange(std::function<void()> changed) = 0;

    /// Opens the backend this session offers, deciding what only the running session can tell
    /// (an X display or not); null, with why in the user's words, when none can listen. The
    /// choice, or each refusal, is written to log.
    static std::unique_ptr<Desktop> open(Scheduler& scheduler, const Preferences& preferences,
                                         const std::function<void(const std::string&)>& log,
                                         std::string& why);
};

} // namespace quillet
