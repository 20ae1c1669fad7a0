#include "entry/Coordinator.h"

#include "library/LibraryFile.h"
#include "library/RunLoop.h"
#include "support/CoordinatorHarness.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>

namespace quillet {
namespace {

using State = EngineStatus::State;
using Shown = std::pair<std::string, std::string>;

using Harness = testing::CoordinatorHarness<RunLoop>;
using testing::Pairs;
using testing::pairsOf;

// Types the abbreviation on the fake keyboard; true once the engine expanded it.
bool expands(Harness& h, std::string_view abbreviation) {
    h.fake->executor_.steps.clear();
    h.fake->keys_.type(abbreviation);
    Expander& engine = *h.coordinator->engine();
    return h.loop.runUntil([&] { return engine.idle() && !h.fake->executor_.steps.empty(); },
                           std::chrono::seconds(10));
}

TEST(Coordinator, EachRefreshTakesUpWhatWasMissingAndSaysWhatStopsExpansion) {
    Harness h;
    h.coordinator->refresh();
    EXPECT_EQ(h.coordinator->status().state, State::noDisplay);
    EXPECT_EQ(h.shown(), Shown("Needs typing access", "There is no X display to listen to."));
    h.coordinator->refresh();
    EXPECT_EQ(h.log.size(), 1u) << "the same reason is logged once";

    // A display that refuses the listener: tried again at every refresh.
    h.present = true;
    h.refusal = "RECORD is missing";
    h.coordinator->refresh();
    EXPECT_EQ(h.shown(), Shown("Couldn't start", "The X server refused the keyboard listener."));
    h.fake->keys_.refusal.reset();
    h.coordinator->refresh();
    EXPECT_EQ(h.shown(), Shown("Ready", "Saved 0s over 0 expansions."));
    EXPECT_TRUE(h.fake->keys_.started());

    // Another program holding the keyboard, named or not; the tray hears at once.
    const int before = h.changes;
    h.fake->secure_.set(true, "Pinentry");
    EXPECT_EQ(h.shown(), Shown("Expansion is paused", "Pinentry is holding the keyboard."));
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

TEST(Coordinator, ThePickersShortcutAndStartingWithTheSessionFollowTheSettings) {
    Harness h;
    EXPECT_EQ(h.startsWithSession, std::vector<bool>{false}); // put right at start
    h.preferences.setValue(Coordinator::startWithSessionKey, true);
    h.watcher.trigger();
    EXPECT_EQ(h.startsWithSession, (std::vector<bool>{false, true}));
    // The shortcut is bound once a desktop is there.
    h.present = true;
    h.coordinator->refresh();
    FakeGlobalShortcut& shortcut = h.fake->shortcut_;
    EXPECT_EQ(shortcut.bound, "super+period");
    shortcut.press();
    EXPECT_EQ(h.pickerOpened, 1);
    h.preferences.setValue(Coordinator::pickerShortcutKey, std::string("ctrl+alt+space"));
    h.watcher.trigger();
    EXPECT_EQ(shortcut.bound, "ctrl+alt+space");
    shortcut.refused = "ctrl+alt+k";
    h.preferences.setValue(Coordinator::pickerShortcutKey, std::string("ctrl+alt+k"));
    h.watcher.trigger();
    EXPECT_EQ(h.log.back(),
              "search and paste has no shortcut: Another application already uses ctrl+alt+k.");
    h.preferences.setValue(Coordinator::pickerShortcutKey, std::string());
    h.watcher.trigger();
    EXPECT_EQ(shortcut.bound, "");
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

    // The same phrase typed three times becomes a suggestion: a dot, until turned down, which
    // adds nothing and forgets the phrase.
    h.coordinator->engine()->preferencesChanged();
    const std::size_t count = h.coordinator->store().snippets().size();
    h.retype("see you very soon then");
    ASSERT_TRUE(h.coordinator->suggestion().has_value());
    EXPECT_EQ(h.coordinator->trayLook().badge, TrayLook::Badge::suggestion);
    h.coordinator->dismissSuggestion();
    EXPECT_EQ(h.coordinator->trayLook().badge, TrayLook::Badge::none);
    EXPECT_EQ(h.coordinator->suggestion(), std::nullopt);
    EXPECT_EQ(h.coordinator->store().snippets().size(), count);
    EXPECT_EQ(h.coordinator->engine()->repeats().count("see you very soon then"), 0);
}

TEST(Coordinator, AcceptingASuggestionAddsAndSavesTheSnippetWhichThenExpands) {
    Harness h;
    h.runWithSuggestions();
    const auto before = pairsOf(h.coordinator->store().snippets());
    h.retype("see you very soon then");
    ASSERT_EQ(h.coordinator->suggestion(),
              (Repeats::Suggestion{";syvst", "see you very soon then", 3}));
    const int changes = h.changes;
    EXPECT_EQ(h.coordinator->acceptSuggestion(), ";syvst");
    EXPECT_EQ(h.coordinator->suggestion(), std::nullopt);
    EXPECT_EQ(h.coordinator->trayLook().badge, TrayLook::Badge::none);
    EXPECT_GT(h.changes, changes) << "the tray hears that the dot went";

    auto after = before;
    after.emplace_back(";syvst", "see you very soon then");
    EXPECT_EQ(pairsOf(h.coordinator->store().snippets()), after);
    EXPECT_EQ(pairsOf(readLibrary(h.coordinator->store().location().libraryFile()).snippets),
              after);
    EXPECT_TRUE(expands(h, ";syvst")) << "the engine has the new snippet";
    EXPECT_EQ(h.coordinator->acceptSuggestion(), std::nullopt) << "nothing waits any more";
}

TEST(Coordinator, SharedFoldersInTheSettingsAreReadFollowedAndExpandUnlessOneOfYoursWins) {
    Harness h;
    h.present = true;
    h.coordinator->refresh();
    h.addSnippet(";mine", "Mine");
    const std::filesystem::path team = h.temp / "team";
    std::filesystem::create_directory(team);
    testing::writeText(team / "team.csv", ";team,Team text\n;mine,Theirs\n");
    h.preferences.setValue("sharedFolders", {team.string()});
    h.watcher.trigger(); // the settings file changed
    // From ;mine on: the first run's examples come before it.
    auto effective = [&] {
        auto all = pairsOf(*h.coordinator->store().effectiveSnippets());
        const auto examples = static_cast<std::ptrdiff_t>(h.coordinator->store().snippets().size());
        all.erase(all.begin(), all.begin() + examples - 1);
        return all;
    };
    EXPECT_EQ(effective(), (Pairs{{";mine", "Mine"}, {";team", "Team text"}}));
    EXPECT_NE(std::find(h.watcher.paths().begin(), h.watcher.paths().end(), team),
              h.watcher.paths().end());

    EXPECT_TRUE(expands(h, ";team")) << "the engine has the shared snippet";

    // A colleague's edit arrives with the next batch; a deleted folder empties its pack.
    testing::writeText(team / "team.csv", ";team,Team text\n;new,New\n");
    h.watcher.trigger();
    EXPECT_EQ(effective(), (Pairs{{";mine", "Mine"}, {";team", "Team text"}, {";new", "New"}}));
    std::filesystem::remove_all(team);
    h.watcher.trigger();
    EXPECT_EQ(effective(), (Pairs{{";mine", "Mine"}}));
    ASSERT_EQ(h.coordinator->store().shared().size(), 1u);
    EXPECT_TRUE(h.coordinator->store().shared()[0].missing);
}

TEST(Coordinator, ASuggestionTakesAFreeAbbreviationAndNeverRepeatsASnippet) {
    Harness h;
    h.runWithSuggestions();
    // Taken by another text that waits for a delimiter: a digit makes it free.
    h.addSnippet(";syvst", "see you, very sincerely, Tom", TriggerMode::delimiter);
    h.retype("see you very soon then");
    ASSERT_TRUE(h.coordinator->suggestion());
    EXPECT_EQ(h.coordinator->suggestion()->abbreviation, ";syvst2");
    // Taken since it was offered: the next digit.
    h.addSnippet(";syvst2", "elsewhere", TriggerMode::tab);
    EXPECT_EQ(h.coordinator->acceptSuggestion(), ";syvst3");
    EXPECT_EQ(h.coordinator->store().snippets().back().content, "see you very soon then");

    // Not offered: what is already a snippet, what has no letters, what nothing free fits.
    h.addSnippet(";tiol", "this is our last offer");
    h.addSnippet(";wiu", "what is up");
    for (std::string_view phrase :
         {"this is our last offer", "1234 5678 9012 3456", "what is up with you"}) {
        h.log.clear();
        h.retype(phrase);
        EXPECT_EQ(h.coordinator->suggestion(), std::nullopt) << phrase;
        ASSERT_EQ(h.log.size(), 1u) << phrase;
        EXPECT_EQ(h.log[0].find(phrase), std::string::npos) << "the log never holds the phrase";
    }
}

} // namespace
} // namespace quillet
