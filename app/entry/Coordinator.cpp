#include "entry/Coordinator.h"

#include "engine/AbbreviationCheck.h"
#include "library/FreeMemory.h"
#include "library/Text.h"
#include "transfer/SharedFolder.h"

#include <algorithm>

namespace quillet {
namespace {

// A settings file that does not parse is the user's to fix; it is never written over, so every
// setting the application would store waits until it parses again.
std::string settingsProblem(const JsonFilePreferences& preferences) {
    if (!preferences.isDamaged()) {
        return {};
    }
    return preferences.lastError() + " Quillet uses its defaults and leaves the file as it is.";
}

EngineStatus make(EngineStatus::State state, std::string headline, std::string detail) {
    return EngineStatus{state, std::move(headline), std::move(detail)};
}

} // namespace

Coordinator::Coordinator(Parts parts, Hooks hooks)
    : parts_(std::move(parts)), hooks_(std::move(hooks)),
      store_(parts_.preferences, parts_.watcher, parts_.scheduler, parts_.folders,
             &SharedFolder::load),
      usage_(store_.location().usageFile()), locked_(parts_.secrets, parts_.auth),
      alive_(std::make_shared<Coordinator*>(this)) {
    if (std::string problem = settingsProblem(parts_.preferences); !problem.empty()) {
        log(problem);
    }
    if (!store_.problem().empty()) {
        log(store_.problem());
    }
    store_.setOnChange([this](const SnippetList& snippets) {
        if (engine_) {
            engine_->update(snippets);
        }
        returnFreeMemory(); // a large library leaves much behind while it is read and indexed
        if (hooks_.libraryChanged) {
            hooks_.libraryChanged();
        }
    });
    store_.setOnSettingsChange([this] {
        if (std::string problem = settingsProblem(parts_.preferences); !problem.empty()) {
            log(problem);
        } else {
            log("settings changed");
        }
        settingsChanged();
    });
    settingsChanged();
}

void Coordinator::settingsChanged() {
    if (engine_) {
        engine_->preferencesChanged();
        bindPickerShortcut();
    }
    const bool starts = parts_.preferences.isOn(startWithSessionKey);
    if (parts_.startWithSession && starts != startsWithSession_) {
        startsWithSession_ = starts;
        parts_.startWithSession(starts);
    }
    if (hooks_.statusChanged) {
        hooks_.statusChanged(); // the tray's colours and tooltip follow the settings
    }
}

Coordinator::~Coordinator() {
    alive_.reset();
    if (timer_ != 0) {
        parts_.scheduler.cancel(timer_);
    }
    if (engine_) {
        if (desktop_) {
            desktop_->secureInput().stop();
        }
        engine_->stop();
    }
}

void Coordinator::bindPickerShortcut() {
    if (!desktop_ || !hooks_.openPicker) {
        return;
    }
    const std::string stroke =
        parts_.preferences.text(pickerShortcutKey).value_or(std::string(defaultPickerShortcut));
    if (stroke == pickerShortcut_) {
        return;
    }
    pickerShortcut_ = stroke;
    if (stroke.empty()) {
        desktop_->shortcut().unbind();
        return;
    }
    std::string error;
    if (desktop_->shortcut().bind(stroke, hooks_.openPicker, error)) {
        log("search and paste: " + stroke);
    } else {
        log("search and paste has no shortcut: " + error);
    }
}

void Coordinator::log(const std::string& line) const {
    if (hooks_.log) {
        hooks_.log(line);
    }
}

void Coordinator::start() {
    refresh();
    scheduleRefresh();
}

void Coordinator::scheduleRefresh() {
    timer_ = parts_.scheduler.postAfter(refreshEvery, [alive = std::weak_ptr(alive_)] {
        if (const auto self = alive.lock()) {
            (*self)->refresh();
            (*self)->scheduleRefresh();
        }
    });
}

void Coordinator::createEngine() {
    history_ = std::make_unique<ClipboardHistory>(desktop_->pasteboard());
    desktop_->setOnClipboardChange([this] { history_->poll(); });
    engine_ = std::make_unique<Expander>(Expander::Platform{desktop_->keys(), desktop_->executor(),
                                                            desktop_->front(), parts_.scheduler,
                                                            &desktop_->secureInput()},
                                         Expander::Services{parts_.preferences, store_.location(),
                                                            &usage_, &locked_, history_.get()});
    if (hooks_.askForm) {
        engine_->setAskForm(hooks_.askForm);
    }
    engine_->setPopup(hooks_.popup);
    bindPickerShortcut();
    engine_->setOnRepeat([this](const Repeats::Suggestion& suggestion) { offer(suggestion); });
    engine_->update(store_.effectiveSnippets());
}

void Coordinator::refresh() {
    if (!desktop_) {
        std::string why;
        desktop_ = parts_.openDesktop ? parts_.openDesktop(why) : nullptr;
        if (!desktop_) {
            if (why != lastWhy_) {
                log("Quillet cannot expand abbreviations here: " + why);
                lastWhy_ = why;
            }
            setStatus(make(EngineStatus::State::noDisplay, "Needs typing access", why));
            return;
        }
        createEngine();
    }
    if (userPaused_) {
        setStatus(make(EngineStatus::State::paused, "Paused",
                       "Abbreviations don't expand until you resume."));
        return;
    }
    if (!engine_->isListening()) {
        std::string error;
        if (!engine_->start(error)) {
            const std::string detail = "The X server refused the keyboard listener.";
            if (status_.state != EngineStatus::State::refused) {
                log(detail + (error.empty() ? "" : " " + error));
            }
            setStatus(make(EngineStatus::State::refused, "Couldn't start", detail));
            return;
        }
        if (!secureStarted_) {
            secureStarted_ = true;
            desktop_->secureInput().start([this] { secureInputChanged(); });
        }
        log("listening; " + std::to_string(store_.snippets().size()) + " snippets from " +
            store_.location().libraryFile().string());
        returnFreeMemory(); // what reading the library and building the indexes left behind
    }
    if (engine_->paused()) {
        const std::string holder = engine_->pausedBy();
        setStatus(make(EngineStatus::State::secureInput, "Expansion is paused",
                       (holder.empty() ? "An app" : holder) + " is holding the keyboard."));
        return;
    }
    setStatus(make(EngineStatus::State::running, "Ready", savedLine()));
}

void Coordinator::secureInputChanged() {
    if (!engine_->paused()) {
        log("Expansion resumed");
    } else {
        const std::string holder = engine_->pausedBy();
        log("Expansion is paused: " + (holder.empty() ? "An app" : holder) +
            " is holding the keyboard.");
    }
    refresh(); // the tray says so at once, not at the next tick
}

void Coordinator::setPaused(bool paused) {
    if (paused == userPaused_) {
        return;
    }
    userPaused_ = paused;
    if (engine_ && paused) {
        engine_->stop();
    }
    log(paused ? "Expansion paused by the user" : "Expansion resumed by the user");
    refresh();
}

std::string Coordinator::savedShort() const {
    if (!engine_) {
        return {};
    }
    return engine_->usage().timeSaved("").value_or("");
}

std::string Coordinator::savedLine() const {
    const Usage empty;
    const Usage& usage = engine_ ? engine_->usage() : empty;
    return "Saved " + formatDuration(typingSeconds(usage.characters), "") + " over " +
           std::to_string(usage.expansions) + " expansions.";
}

TrayLook Coordinator::trayLook() const {
    TrayLook look;
    const bool stopped = status_.state != EngineStatus::State::running &&
                         status_.state != EngineStatus::State::starting;
    look.badge = stopped       ? TrayLook::Badge::warning
                 : suggestion_ ? TrayLook::Badge::suggestion
                               : TrayLook::Badge::none;
    if (parts_.preferences.isOn(showSavedKey)) {
        const std::string saved = savedShort();
        look.tooltip = "Quillet: " + (saved.empty() ? "0s" : saved) + " saved\n";
    } else {
        look.tooltip = "Quillet\n";
    }
    look.tooltip += status_.headline;
    if (!status_.detail.empty()) {
        look.tooltip += "\n" + status_.detail;
    }
    if (look.badge == TrayLook::Badge::suggestion) {
        look.tooltip += "\nA snippet suggestion is waiting.";
    }
    return look;
}

// The log never holds the phrase: it is what the user typed, and the log may end up in a file.
void Coordinator::offer(Repeats::Suggestion suggestion) {
    if (std::string problem = place(suggestion); !problem.empty()) {
        log("a retyped phrase is not offered: " + problem);
        return;
    }
    suggestion_ = std::move(suggestion);
    if (hooks_.onRepeat) {
        hooks_.onRepeat(*suggestion_);
    }
    if (hooks_.statusChanged) {
        hooks_.statusChanged(); // the dot
    }
}

std::string Coordinator::place(Repeats::Suggestion& suggestion) const {
    // Each time from the phrase's own proposal, so that a digit added before is not added to.
    const std::string proposed = Repeats::proposedAbbreviation(suggestion.expansion);
    // A phrase without letters gets ";" alone, which would fire at every semicolon.
    if (text::graphemeCount(proposed) < 2) {
        return "it has no letters to make an abbreviation of";
    }
    const SnippetList library = store_.effectiveSnippets();
    const auto same = std::find_if(library->begin(), library->end(), [&](const Snippet& s) {
        return !s.regex && !s.archived && s.kind == Snippet::Kind::text &&
               s.content == suggestion.expansion;
    });
    if (same != library->end()) {
        return "it is already " + same->abbreviation;
    }
    const TriggerMode global =
        triggerModeFromRaw(parts_.preferences.text(Expander::triggerModeKey).value_or(""))
            .value_or(TriggerMode::instant);
    std::optional<std::string> free = freeAbbreviation(
        proposed, takenAbbreviations(*library, global), global == TriggerMode::instant);
    if (!free) {
        return "no abbreviation like " + proposed + " is free";
    }
    suggestion.abbreviation = std::move(*free);
    return {};
}

std::optional<std::string> Coordinator::acceptSuggestion() {
    if (!suggestion_) {
        return std::nullopt;
    }
    Repeats::Suggestion suggestion = *suggestion_;
    // The library may have changed since the phrase was offered.
    std::optional<std::string> added;
    if (std::string problem = place(suggestion); !problem.empty()) {
        log("the suggested snippet was not added: " + problem);
    } else {
        Snippet snippet = Snippet::make();
        snippet.abbreviation = suggestion.abbreviation;
        snippet.content = suggestion.expansion;
        std::vector<Snippet> snippets = store_.snippets();
        snippets.push_back(std::move(snippet));
        if (store_.setSnippets(std::move(snippets))) {
            log("added the suggested snippet " + suggestion.abbreviation);
        } else {
            log("added the suggested snippet " + suggestion.abbreviation +
                ", not saved yet: the library file could not be written");
        }
        added = suggestion.abbreviation;
    }
    clearSuggestion();
    return added;
}

void Coordinator::dismissSuggestion() {
    if (suggestion_) {
        log("suggestion turned down");
        clearSuggestion();
    }
}

void Coordinator::clearSuggestion() {
    suggestion_.reset();
    if (hooks_.statusChanged) {
        hooks_.statusChanged(); // the dot goes
    }
}

void Coordinator::setStatus(EngineStatus status) {
    if (status == status_) {
        return;
    }
    status_ = std::move(status);
    if (hooks_.statusChanged) {
        hooks_.statusChanged();
    }
}

} // namespace quillet
