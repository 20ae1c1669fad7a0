#pragma once

#include "engine/Expander.h"
#include "library/FileWatcher.h"
#include "library/JsonPreferences.h"
#include "library/LockedSnippets.h"
#include "library/Scheduler.h"
#include "library/Store.h"
#include "library/Usage.h"
#include "platform/Desktop.h"
#include "render/ClipboardHistory.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quillet {

/// What the tray shows about expansion: a headline, a detail line and whether expansion works.
struct EngineStatus {
    enum class State {
        starting,    ///< before the first refresh
        running,     ///< expanding
        noDisplay,   ///< nothing to listen to (no X display)
        refused,     ///< the display refused the keyboard listener
        secureInput, ///< another application keeps the keyboard to itself
        paused,      ///< the user paused expansion from the tray
    };

    State state = State::starting;
    std::string headline;
    std::string detail;

    /// True while abbreviations expand.
    bool works() const { return state == State::running; }

    friend bool operator==(const EngineStatus&, const EngineStatus&) = default;
};

/// How the tray icon shows the status: the semicolon, with a badge, and its tooltip.
struct TrayLook {
    enum class Badge {
        none,       ///< expanding, nothing waiting
        suggestion, ///< a dot: a retyped phrase waits to become a snippet
        warning,    ///< a warning sign: expansion is stopped
    };

    Badge badge = Badge::none;
    std::string tooltip;

    friend bool operator==(const TrayLook&, const TrayLook&) = default;
};

/// The running application's parts and their life: the store from start-up, the desktop and
/// the keyboard engine from the first status refresh that finds a display, and the status the
/// tray shows, refreshed every two seconds so that a display or listener that was missing is
/// taken up as soon as it can be. Everything runs on the scheduler's main thread; the windows
/// that ask for values or passwords are given as hooks, so this holds no toolkit code.
class Coordinator {
public:
    /// The preference that puts the time saved beside the tray icon.
    static constexpr std::string_view showSavedKey = "showSaved";
    /// The preference naming the colours: "system", "light" or "dark".
    static constexpr std::string_view appearanceKey = "appearance";

    /// The preference that starts Quillet with the desktop session.
    static constexpr std::string_view startWithSessionKey = "startWithSession";

    /// The preference naming the key stroke that opens the search-and-paste picker.
    static constexpr std::string_view pickerShortcutKey = "pickerShortcut";
    /// The stroke when the preference is absent.
    static constexpr std::string_view defaultPickerShortcut = "super+period";

    /// How often the status is refreshed.
    static constexpr std::chrono::seconds refreshEvery{2};

    /// The platform's parts, which must outlive the coordinator.
    struct Parts {
        Scheduler& scheduler;
        JsonFilePreferences& preferences;
        FileWatcher& watcher;
        SecretStore& secrets;
        OwnerAuth& auth;
        /// Opens the desktop session; null with why in the user's words when there is none.
        std::function<std::unique_ptr<Desktop>(std::string& why)> openDesktop;
        /// Where the library, usage and settings live.
        Folders folders = Folders::current();
        /// Makes the session start Quillet (true) or not; empty where nothing can.
        std::function<void(bool on)> startWithSession = {};
    };

    /// What the shell wants to hear and show; every hook may be empty.
    struct Hooks {
        std::function<void(const std::string&)> log;
        /// Asks the user for a snippet's field values; empty takes their defaults.
        Expander::AskForm askForm;
        /// A phrase was typed often enough to become a snippet (see suggestion()).
        Expander::OnRepeat onRepeat;
        /// The status changed (and with it the tray).
        std::function<void()> statusChanged;
        /// Opens the search-and-paste picker (its global shortcut was pressed).
        std::function<void()> openPicker;
        /// The panel that lists matching snippets at the caret; must outlive the coordinator.
        MatchPopup* popup = nullptr;
        /// The library changed: edited here, in the file, or in a shared folder.
        std::function<void()> libraryChanged = {};
    };

    /// Loads the library and reads the settings; nothing listens until start().
    Coordinator(Parts parts, Hooks hooks);
    /// Stops the engine, letting an expansion under way give the user's clipboard back.
    ~Coordinator();
    Coordinator(const Coordinator&) = delete;
    Coordinator& operator=(const Coordinator&) = delete;

    /// Refreshes the status now and every refreshEvery from now on.
    void start();
    /// Works out the status, first opening the desktop and starting the engine where missing.
    void refresh();

    /// The status as of the last refresh.
    const EngineStatus& status() const { return status_; }
    /// "Saved 1h 5m over 120 expansions."
    std::string savedLine() const;
    /// The time saved alone ("1h 5m"), for beside the tray icon; empty before anything saved.
    std::string savedShort() const;

    /// The tray icon's badge and tooltip; the tooltip leads with the time saved when
    /// "showSaved" is on, as the tray has no room for text beside the icon.
    TrayLook trayLook() const;

    /// The retyped phrase waiting to become a snippet, if any, with an abbreviation that was free
    /// when it was offered.
    const std::optional<Repeats::Suggestion>& suggestion() const { return suggestion_; }
    /// Adds the waiting phrase to the library as a snippet, under its abbreviation or, should
    /// that have been taken since, the next free one; answers the abbreviation, or nothing when
    /// it was not added (the log says why). Nothing waits afterwards.
    std::optional<std::string> acceptSuggestion();
    /// Turns the waiting suggestion down. The repeat detector forgot the phrase when it offered
    /// it, so it comes back only once typed as often again.
    void dismissSuggestion();

    /// Stops expansion until resumed (true), or resumes it.
    void setPaused(bool paused);
    /// True while the user paused expansion.
    bool userPaused() const { return userPaused_; }

    /// The library.
    SnippetStore& store() { return store_; }
    /// The texts of locked snippets.
    LockedSnippets& locked() { return locked_; }
    /// The keyboard engine; null until a desktop was found.
    Expander* engine() { return engine_.get(); }
    /// The desktop session; null until one was found.
    Desktop* desktop() { return desktop_.get(); }

private:
    void createEngine();
    void scheduleRefresh();
    void setStatus(EngineStatus status);
    void log(const std::string& line) const;
    void secureInputChanged();
    void settingsChanged();
    void bindPickerShortcut();
    void offer(Repeats::Suggestion suggestion);
    std::string place(Repeats::Suggestion& suggestion) const;
    void clearSuggestion();

    Parts parts_;
    Hooks hooks_;
    SnippetStore store_;
    UsageFile usage_;
    LockedSnippets locked_;
    std::unique_ptr<Desktop> desktop_;
    std::unique_ptr<ClipboardHistory> history_;
    std::unique_ptr<Expander> engine_;
    EngineStatus status_;
    std::string lastWhy_;
    std::optional<Repeats::Suggestion> suggestion_;
    bool userPaused_ = false;
    bool secureStarted_ = false;
    std::optional<bool> startsWithSession_;
    std::string pickerShortcut_; // the stroke bound now; empty when none
    Scheduler::TimerId timer_ = 0;
    std::shared_ptr<Coordinator*> alive_;
};

} // namespace quillet
