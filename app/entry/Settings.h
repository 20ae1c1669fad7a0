#pragma once

#include "library/Preferences.h"
#include "library/Store.h"
#include "library/TriggerMode.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// What the settings page shows and changes: each setting under the key its reader uses, with
/// the labels the page puts beside it, so the page holds neither keys nor rules. Every change is
/// written at once; the running parts follow the settings file like any other change of it.
class Settings {
public:
    /// An on-off setting.
    struct Switch {
        std::string_view key;
        std::string label;
        std::string note; ///< shown under the switch; may be empty
    };

    /// A switch for a group of correction or symbol sets: on when any of them is.
    struct Group {
        std::string label;
        std::string description;
        const std::vector<std::string>* ids;
    };

    /// One of a list of choices, as stored and as labelled.
    struct Choice {
        std::string raw;
        std::string label;
    };

    /// preferences and store must outlive the settings.
    Settings(Preferences& preferences, SnippetStore& store);

    /// The on-off settings, in the order the page lists them.
    static const std::vector<Switch>& switches();
    bool isOn(std::string_view key) const;
    /// False when the value could not be kept (the settings file is damaged, the disk refused).
    bool setOn(std::string_view key, bool on);

    /// When abbreviations fire unless a snippet says otherwise.
    static const std::vector<Choice>& triggerModes();
    TriggerMode triggerMode() const;
    bool setTriggerMode(TriggerMode mode);

    /// The colours: "system", "light" or "dark".
    static const std::vector<Choice>& appearances();
    std::string appearance() const;
    bool setAppearance(const std::string& raw);

    /// The stroke that opens search and paste, as written ("super+period"); empty when off.
    std::string pickerShortcut() const;
    /// Stores the stroke (surrounding blanks dropped, empty turns it off); what is wrong with it
    /// when it is no stroke, and then nothing is stored.
    std::optional<std::string> setPickerShortcut(std::string_view stroke);

    /// The two group switches: typo fixes, and symbols with emoji.
    static const std::vector<Group>& groups();
    bool groupOn(const Group& group) const;
    bool setGroupOn(const Group& group, bool on);
    /// What the page says of the sets: where they fire, and how corrections do.
    static const std::string& setsNote();
    static const std::string& correctionsNote();
    /// One set's own switch, by its id.
    bool setIsOn(std::string_view id) const;
    bool setSetOn(std::string_view id, bool on);

    /// The shared folders, in the order they were added.
    std::vector<std::string> sharedFolders() const;
    /// Adds a folder (made absolute) after the others and reads it; what is wrong when it is
    /// not a folder or already listed, and then nothing changes.
    std::optional<std::string> addSharedFolder(const std::string& folder);
    /// Takes a folder off the list; its snippets go with it.
    void removeSharedFolder(const std::string& folder);
    /// The lines shown under a shared folder: read-only and what was left out, or why it is
    /// empty when it cannot be read any more.
    std::vector<std::string> sharedFolderLines(const std::string& folder) const;
    /// The snippets a shared folder brings, as abbreviation and first line, in its order.
    std::vector<std::pair<std::string, std::string>>
    sharedSnippets(const std::string& folder) const;
    /// The folder a sync tool keeps, where the library can live; empty while none is chosen.
    std::string syncFolder() const;
    /// Chooses the synced folder (made absolute); what is wrong when it is no folder or the
    /// library lives in the one chosen before, and then nothing changes.
    std::optional<std::string> setSyncFolder(const std::string& folder);
    /// True while the library lives in the synced folder.
    bool isSynced() const { return store_.isSynced(); }
    /// Moves the library into the synced folder or back; what the user is told.
    std::optional<std::string> setSync(bool on);
    /// The applications that paste with their own key stroke, by application id.
    std::vector<std::pair<std::string, std::string>> pasteShortcuts() const;
    /// Sets the stroke that pastes in app (an empty stroke goes back to the usual one); what
    /// is wrong when it is no stroke or no application is named, and then nothing is stored.
    std::optional<std::string> setPasteShortcut(const std::string& app, std::string_view stroke);
    /// The button that takes a folder off the list.
    static const std::string& stopUsingLabel();

    /// True when a browser has the host manifest that lets the Quillet extension report sites.
    bool browsersSetUp() const;
    /// What the page says of the browsers: set up or not, and what for.
    std::string browsersState() const;
    /// Writes the host manifest for every browser found; what the user is told.
    std::string setUpBrowsers();

private:
    Preferences& preferences_;
    SnippetStore& store_;
};

} // namespace quillet
