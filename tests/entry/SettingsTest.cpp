#include "entry/Settings.h"

#include "engine/Typos.h"
#include "library/RunLoop.h"
#include "support/CoordinatorHarness.h"
#include "support/Snippets.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using Harness = testing::CoordinatorHarness<RunLoop>;

TEST(Settings, TheSearchShortcutIsStoredTrimmedOrRefusedWithAReason) {
    Harness h;
    Settings settings(h.preferences, h.coordinator->store());
    EXPECT_EQ(settings.pickerShortcut(), "super+period") << "the default while none is stored";
    struct Row {
        std::string typed;
        std::optional<std::string> problem;
        std::string stored;
    };
    for (const Row& row : std::vector<Row>{
             {" ctrl+alt+space ", std::nullopt, "ctrl+alt+space"},
             {"Super++", std::nullopt, "Super++"}, // the plus key itself
             {"", std::nullopt, ""},               // off
             {"hyper+x", "\u201Chyper\u201D isn't a modifier: use ctrl, alt, shift or super.", ""},
             {"ctrl+", "Name a key after the last +.", ""},
             {"ctrl + k", "Write the keys joined by +, such as super+period.", ""},
         }) {
        EXPECT_EQ(settings.setPickerShortcut(row.typed), row.problem) << row.typed;
        EXPECT_EQ(settings.pickerShortcut(), row.stored) << row.typed;
    }
}

TEST(Settings, WhatIsSwitchedReachesTheEngineAndSharedFoldersTheLibrary) {
    Harness h;
    h.present = true;
    h.coordinator->refresh();
    Settings settings(h.preferences, h.coordinator->store());
    Expander& engine = *h.coordinator->engine();
    // Whether typing text made the engine act, once the settings file's change was taken in.
    auto acts = [&](std::string_view text) {
        h.watcher.trigger();
        h.fake->executor_.steps.clear();
        h.fake->keys_.click();
        h.fake->keys_.type(text);
        h.loop.runUntil([&] { return engine.idle(); }, std::chrono::seconds(5));
        return !h.fake->executor_.steps.empty();
    };
    EXPECT_FALSE(acts("teh "));
    settings.setGroupOn(Settings::groups()[0], true);
    EXPECT_TRUE(acts("teh "));
    EXPECT_FALSE(acts("cafe ")) << "the group's first set only";
    settings.setSetOn("accents", true);
    EXPECT_TRUE(acts("cafe "));
    settings.setGroupOn(Settings::groups()[0], false);
    EXPECT_TRUE(Typos::on(h.preferences).empty()) << "off turns every set of the group off";

    h.addSnippet(";x", "X");
    settings.setTriggerMode(TriggerMode::delimiter);
    EXPECT_FALSE(acts(";x"));
    EXPECT_TRUE(acts(";x "));

    const std::filesystem::path team = h.temp / "team";
    std::filesystem::create_directory(team);
    testing::writeText(team / "team.csv", ";team,Team text\n;keys,{key:enter}\n");
    EXPECT_EQ(settings.addSharedFolder((team / ".").string()), std::nullopt);
    EXPECT_EQ(settings.sharedFolders(), std::vector<std::string>{team.string()});
    EXPECT_EQ(testing::pairsOf(h.coordinator->store().shared().at(0).snippets),
              (testing::Pairs{{";team", "Team text"}}));
    EXPECT_EQ(settings.sharedFolderLines(team.string()).size(), 2u) << "read-only, 1 left out";
    EXPECT_EQ(settings.addSharedFolder(team.string()), "That folder is shared already.");
    EXPECT_EQ(settings.addSharedFolder((team / "team.csv").string()),
              "\u201C" + (team / "team.csv").string() + "\u201D isn't a folder.");
    settings.removeSharedFolder(team.string());
    EXPECT_TRUE(settings.sharedFolders().empty());
    EXPECT_TRUE(h.coordinator->store().shared().empty());
}

TEST(Settings, PasteStrokesAndTheSyncedFolderAreStoredOrRefusedWithAReason) {
    Harness h;
    Settings settings(h.preferences, h.coordinator->store());
    using Strokes = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(settings.setPasteShortcut(" emacs ", " Ctrl+Y "), std::nullopt);
    EXPECT_EQ(settings.setPasteShortcut("urxvt", "alt+v"), std::nullopt);
    EXPECT_EQ(settings.setPasteShortcut("xterm", "ctrl+bogus"),
              "\u201Cctrl+bogus\u201D isn't a key stroke, such as ctrl+shift+v.");
    EXPECT_EQ(settings.setPasteShortcut(" ", "ctrl+v"),
              "Name the application by its window class, such as firefox.");
    EXPECT_EQ(settings.pasteShortcuts(), (Strokes{{"emacs", "ctrl+y"}, {"urxvt", "alt+v"}}));
    EXPECT_EQ(settings.setPasteShortcut("emacs", ""), std::nullopt);
    EXPECT_EQ(settings.pasteShortcuts(), (Strokes{{"urxvt", "alt+v"}}));

    const std::filesystem::path synced = h.temp / "Sync";
    EXPECT_EQ(settings.setSync(true), "Choose a synced folder first, in Settings \u2192 Sync.");
    EXPECT_EQ(settings.setSyncFolder((synced / "x").string()),
              "\u201C" + (synced / "x").string() + "\u201D isn't a folder.");
    std::filesystem::create_directories(synced);
    EXPECT_EQ(settings.setSyncFolder((synced / ".").string()), std::nullopt);
    EXPECT_EQ(settings.syncFolder(), synced.string() + "/");
    EXPECT_EQ(settings.setSync(true), "Your snippets are in " + (synced / "Quillet").string() +
                                          ". Turn this on on your other computers too.");
    EXPECT_TRUE(settings.isSynced());
    EXPECT_TRUE(std::filesystem::exists(synced / "Quillet" / "snippets.json"));
    EXPECT_EQ(settings.setSyncFolder(h.temp.path().string()),
              "Turn off keeping your snippets there before choosing another folder.");
    EXPECT_EQ(settings.setSync(false),
              "Your snippets are on this computer only now. The copy in the synced folder stays "
              "until you delete it.");
}

} // namespace
} // namespace quillet
