#include "entry/Coordinator.h"

#include "library/RunLoop.h"
#include "platform/fake/FakeDesktop.h"
#include "platform/fake/FakeFileWatcher.h"
#include "platform/fake/FakeOwnerAuth.h"
#include "platform/fake/FakeSecretStore.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using State = EngineStatus::State;

// A coordinator over the fakes; the desktop appears only once `present` is set, as a display
// would.
struct Harness {
    Harness() {
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
                               [this] { ++changes; }});
    }

    std::pair<std::string, std::string> shown() const {
        return {coordinator->status().headline, coordinator->status().detail};
    }

    testing::TempFolder temp;
    Folders folders = Folders::forHome(temp / "home", "", "");
    JsonFilePreferences preferences{temp / "settings.json"};
    RunLoop loop;
    FakeFileWatcher watcher;
    FakeSecretStore secrets;
    FakeOwnerAuth auth;
    bool present = false;
    std::optional<std::string> refusal;
    FakeDesktop* fake = nullptr;
    std::vector<std::string> log;
    int changes = 0;
    std::vector<bool> startsWithSession;
    std::unique_ptr<Coordinator> coordinator;
};

TEST(Coordinator, EachRefreshTakesUpWhatWasMissingAndSaysWhatStopsExpansion) {
    Harness h;
    h.coordinator->refresh();
    EXPECT_EQ(h.coordinator->status().state, State::noDisplay);
    EXPECT_EQ(h.shown(), (std::pair<std::string, std::string>{
                             "Needs typing access", "There is no X display to listen to."}));
    h.coordinator->refresh();
    EXPECT_EQ(h.log.size(), 1u) << "the same reason is logged once";

    // A display that refuses the listener: tried again at every refresh.
    h.present = true;
    h.refusal = "RECORD is missing";
    h.coordinator->refresh();
    EXPECT_EQ(h.shown(), (std::pair<std::string, std::string>{
                             "Couldn't start", "The X server refused the keyboard listener."}));
    h.fake->keys_.refusal.reset();
    h.coordinator->refresh();
    EXPECT_EQ(h.shown(),
              (std::pair<std::string, std::string>{"Ready", "Saved 0s over 0 expansions."}));
    EXPECT_TRUE(h.fake->keys_.started());

    // Another program holding the keyboard, named or not; the tray hears at once.
    const int before = h.changes;
    h.fake->secure_.set(true, "Pinentry");
    EXPECT_EQ(h.shown(), (std::pair<std::string, std::string>{
                             "Expansion is paused", "Pinentry is holding the keyboard."}));
    EXPECT_GT(h.changes, before);
    h.fake->secure_.set(true);
    EXPECT_EQ(h.shown().second, "An app is holding the keyboard.");
    h.fake->secure_.set(false);
    EXPECT_EQ(h.coordinator->status().state, State::running);

    // Paused from the tray: the listener stops until resumed, whatever the refreshes.
    h.coordinator->setPaused(true);
    h.coordinator->refresh();
    EXPECT_EQ(h.coordinator->status().state, State::paused);
    EXPECT_FALSE(h.fake->keys_.started());
    h.coordinator->setPaused(false);
    EXPECT_EQ(h.coordinator->status().state, State::running);
    EXPECT_TRUE(h.fake->keys_.started());
}

TEST(Coordinator, StartingWithTheSessionFollowsTheSetting) {
    Harness h;
    EXPECT_EQ(h.startsWithSession, std::vector<bool>{false}); // put right at start
    h.preferences.setValue(Coordinator::startWithSessionKey, true);
    h.watcher.trigger();
    EXPECT_EQ(h.startsWithSession, (std::vector<bool>{false, true}));
}

TEST(Coordinator, TheTrayShowsAWarningWhenStoppedADotForASuggestionAndTheTimeSavedOnRequest) {
    Harness h;
    h.coordinator->refresh();
    EXPECT_EQ(h.coordinator->trayLook(),
              (TrayLook{TrayLook::Badge::warning,
                        "Quillet\nNeeds typing access\nThere is no X display to listen to."}));
    h.present = true;
    h.preferences.setValue(Coordinator::showSavedKey, true);
    h.preferences.setValue("suggestions", true);
    h.coordinator->refresh();
    EXPECT_EQ(
        h.coordinator->trayLook(),
        (TrayLook{TrayLook::Badge::none, "Quillet: 0s saved\nReady\nSaved 0s over 0 expansions."}));

    // The same phrase typed three times becomes a suggestion: a dot, until dismissed.
    h.coordinator->engine()->preferencesChanged();
    for (int i = 0; i < 3; ++i) {
        h.fake->keys_.type("see you very soon then");
        h.fake->keys_.click();
    }
    ASSERT_TRUE(h.coordinator->suggestion().has_value());
    EXPECT_EQ(h.coordinator->trayLook().badge, TrayLook::Badge::suggestion);
    h.coordinator->dismissSuggestion();
    EXPECT_EQ(h.coordinator->trayLook().badge, TrayLook::Badge::none);
}

} // namespace
} // namespace quillet
