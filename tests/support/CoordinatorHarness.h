#pragma once

#include "entry/Coordinator.h"
#include "platform/fake/FakeDesktop.h"
#include "platform/fake/FakeFileWatcher.h"
#include "platform/fake/FakeOwnerAuth.h"
#include "platform/fake/FakeSecretStore.h"
#include "support/Snippets.h"
#include "support/TempFolder.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quillet::testing {

/// A coordinator over the fakes, on a scheduler of type Loop (RunLoop, or QtScheduler in the
/// shell's tests); the desktop appears only once `present` is set, as a display would.
/// onStatus, when set, hears every status change after the count in `changes`.
template <typename Loop> struct CoordinatorHarness {
    CoordinatorHarness() {
        coordinator = std::make_unique<Coordinator>(
            Coordinator::Parts{loop, preferences, watcher, secrets, auth,
                               [this](std::string& why) -> std::unique_ptr<Desktop> {
                                   if (!present) {
                                       why = "There is no X display to listen to.";
                                       return nullptr;
                                   }
                                   auto desktop = std::make_unique<FakeDesktop>();
                                   desktop->keys_.refusal = refusal;
                                   fake = desktop.get();
                                   return desktop;
                               },
                               folders, [this](bool on) { startsWithSession.push_back(on); }},
            Coordinator::Hooks{[this](const std::string& line) { log.push_back(line); },
                               {},
                               {},
                               [this] {
                                   ++changes;
                                   if (onStatus) {
                                       onStatus();
                                   }
                               },
                               [this] { ++pickerOpened; },
                               nullptr});
    }

    int pickerOpened = 0; ///< times the picker's shortcut was pressed

    /// The status's headline and detail.
    std::pair<std::string, std::string> shown() const {
        return {coordinator->status().headline, coordinator->status().detail};
    }

    /// Expanding, with retyped phrases offered as snippets.
    void runWithSuggestions() {
        present = true;
        preferences.setValue(Expander::suggestionsKey, true);
        coordinator->refresh();
        coordinator->engine()->preferencesChanged();
    }

    /// Types the phrase as often as it takes to be offered, each time ended by a click.
    void retype(std::string_view phrase) {
        for (int i = 0; i < Repeats::times; ++i) {
            fake->keys_.type(phrase);
            fake->keys_.click();
        }
    }

    /// Adds a snippet to the user's library.
    void addSnippet(std::string abbreviation, std::string content,
                    std::optional<TriggerMode> trigger = std::nullopt) {
        std::vector<Snippet> list = coordinator->store().snippets();
        list.push_back(snippet(std::move(abbreviation), std::move(content),
                               [&](Snippet& s) { s.trigger = trigger; }));
        coordinator->store().setSnippets(std::move(list));
    }

    TempFolder temp;
    Folders folders = Folders::forHome(temp / "home", "", "");
    JsonFilePreferences preferences{temp / "settings.json"};
    Loop loop;
    FakeFileWatcher watcher;
    FakeSecretStore secrets;
    FakeOwnerAuth auth;
    bool present = false;
    std::optional<std::string> refusal;
    FakeDesktop* fake = nullptr;
    std::vector<std::string> log;
    int changes = 0;
    std::function<void()> onStatus;
    std::vector<bool> startsWithSession;
    std::unique_ptr<Coordinator> coordinator;
};

} // namespace quillet::testing
