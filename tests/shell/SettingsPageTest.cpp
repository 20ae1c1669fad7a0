// The settings page over a real store and settings file, under the offscreen platform: what the
// user changes is written at once, what changes in the file shows, bad input is answered next
// to its field, and every control has a name a screen reader can say.
#include "shell/SettingsPage.h"

#include "engine/Typos.h"
#include "shell/Named.h"
#include "shell/QtScheduler.h"
#include "support/CoordinatorHarness.h"

#include <QAbstractButton>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <gtest/gtest.h>

namespace quillet {
namespace {

using testing::named;

TEST(SettingsPage, ChangesAreWrittenAtOnceAndTheFileIsFollowed) {
    testing::CoordinatorHarness<QtScheduler> h;
    Settings settings(h.preferences, h.coordinator->store());
    const std::filesystem::path team = h.temp / "team";
    std::filesystem::create_directory(team);
    testing::writeText(team / "team.csv", ";team,Team text\n");
    std::string chosen;
    SettingsPage page(settings, [&] { return chosen; });
    page.show();

    // Every control the keyboard reaches is named.
    for (QWidget* control : page.findChildren<QWidget*>()) {
        if (control->focusPolicy() != Qt::NoFocus && control->isVisibleTo(&page)) {
            EXPECT_FALSE(control->accessibleName().isEmpty()) << control->metaObject()->className();
        }
    }

    auto& fixTypos = named<QCheckBox>(page, "Fix typos as I type");
    fixTypos.click();
    EXPECT_EQ(Typos::on(h.preferences).size(), 1u);
    EXPECT_TRUE(named<QCheckBox>(page, "Common typos").isChecked()) << "the set follows its group";
    named<QCheckBox>(page, "Suggest snippets from what I retype").click();
    EXPECT_TRUE(h.preferences.isOn("suggestions"));
    auto& mode = named<QComboBox>(page, "Expand abbreviations");
    mode.setFocus();
    QTest::keyClick(&mode, Qt::Key_Down);
    EXPECT_EQ(h.preferences.text("triggerMode"), "delimiter");

    auto& shortcut = named<QLineEdit>(page, "Search and paste shortcut");
    auto& problem = named<QLabel>(page, "Problem");
    shortcut.setFocus();
    shortcut.setText("hyper+x");
    QTest::keyClick(&shortcut, Qt::Key_Return);
    EXPECT_TRUE(problem.isVisible());
    EXPECT_EQ(problem.text().toStdString(),
              "\u201Chyper\u201D isn't a modifier: use ctrl, alt, shift or super.");
    EXPECT_EQ(settings.pickerShortcut(), "super+period") << "nothing stored";
    shortcut.setText("ctrl+alt+space");
    QTest::keyClick(&shortcut, Qt::Key_Return);
    EXPECT_FALSE(problem.isVisible());
    EXPECT_EQ(settings.pickerShortcut(), "ctrl+alt+space");

    // Changed in the file: shown at the next refresh, whatever the page showed.
    h.preferences.setValue("appearance", "dark");
    h.preferences.setValue("typo.common", false);
    page.refresh();
    EXPECT_EQ(named<QComboBox>(page, "Appearance").currentText(), "Dark");
    EXPECT_FALSE(fixTypos.isChecked());

    chosen = team.string();
    named<QPushButton>(page, "Add a shared folder").click();
    auto& stop = named<QPushButton>(
        page, QString::fromStdString("Stop using this folder: " + team.string()));
    EXPECT_EQ(h.coordinator->store().shared().size(), 1u);
    stop.click();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(settings.sharedFolders().empty());
    EXPECT_THROW(named<QPushButton>(page, "Stop using this folder: " +
                                              QString::fromStdString(team.string())),
                 std::runtime_error);
}

TEST(SettingsPage, SetsUpTheBrowsersFoundAndSaysSo) {
    testing::CoordinatorHarness<QtScheduler> h;
    Settings settings(h.preferences, h.coordinator->store());
    SettingsPage page(settings);
    auto& state = named<QLabel>(page, "Browser extension state");
    auto& message = named<QLabel>(page, "Browser extension message");
    auto& setUp = named<QPushButton>(page, "Set up browsers for the Quillet extension");
    EXPECT_TRUE(state.text().startsWith("Not set up")) << state.text().toStdString();
    setUp.click();
    EXPECT_EQ(message.text(), QStringLiteral("No Chrome, Brave, Edge, Vivaldi or Chromium found."));
    std::filesystem::create_directories(h.folders.config.parent_path() / "chromium");
    setUp.click();
    EXPECT_TRUE(message.text().startsWith("Set up for Chromium. Now add"))
        << message.text().toStdString();
    EXPECT_TRUE(state.text().startsWith("Set up:")) << state.text().toStdString();
}

} // namespace
} // namespace quillet
