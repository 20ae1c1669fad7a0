// The tray icon and its menu on a real X server with a real tray host (trayer, an XEmbed
// tray), over a coordinator whose desktop is made of fakes. With QUILLET_SCREENSHOTS set to a
// folder, the menu is photographed there.
#include "shell/Tray.h"

#include "shell/QtScheduler.h"
#include "support/ChildProcess.h"
#include "support/CoordinatorHarness.h"

#include <QApplication>
#include <QLabel>
#include <QScreen>
#include <QTest>
#include <QWidgetAction>
#include <gtest/gtest.h>

namespace quillet {
namespace {

// The visible menu item with that text.
QAction& item(const QMenu& menu, const QString& text) {
    for (QAction* action : menu.actions()) {
        if (action->isVisible() && action->text() == text) {
            return *action;
        }
    }
    throw std::runtime_error("no menu item " + text.toStdString());
}

// The menu as a user reads it: status labels as they are, items marked when unavailable.
QStringList texts(const QMenu& menu) {
    QStringList out;
    for (QAction* action : menu.actions()) {
        if (action->isSeparator() || !action->isVisible()) {
            continue;
        }
        if (auto* widget = qobject_cast<QWidgetAction*>(action)) {
            out << static_cast<QLabel*>(widget->defaultWidget())->text();
        } else {
            out << action->text() + (action->isEnabled() ? "" : " (off)");
        }
    }
    return out;
}

TEST(Tray, TheMenuFollowsTheStatusAndPausesExpansion) {
    testing::LiveProcess host({"/usr/bin/trayer", "--edge", "top", "--align", "right",
                               "--widthtype", "request", "--height", "24", "--SetDockType", "true"},
                              {});
    ASSERT_TRUE(QTest::qWaitFor([] { return QSystemTrayIcon::isSystemTrayAvailable(); }, 10000));

    std::unique_ptr<Tray> tray; // outlives the coordinator, which may report while it stops
    testing::CoordinatorHarness<QtScheduler> h;
    h.onStatus = [&] {
        if (tray) {
            tray->update();
        }
    };
    Coordinator& coordinator = *h.coordinator;
    Appearance appearance(*qApp);
    int searches = 0;
    tray = std::make_unique<Tray>(
        coordinator, appearance, [] {}, [&searches] { ++searches; });
    for (auto badge :
         {TrayLook::Badge::none, TrayLook::Badge::suggestion, TrayLook::Badge::warning}) {
        for (bool dark : {false, true}) {
            EXPECT_FALSE(Tray::iconFor(badge, dark).pixmap(22).isNull()) << dark;
        }
    }
    coordinator.refresh();
    EXPECT_TRUE(tray->icon().isVisible());
    EXPECT_EQ(texts(tray->menu()),
              (QStringList{"Needs typing access", "There is no X display to listen to.",
                           "Pause expansion (off)", "Search and Paste\u2026", "Quit Quillet"}));
    EXPECT_TRUE(tray->icon().toolTip().startsWith("Quillet\nNeeds typing access"));

    h.present = true;
    coordinator.refresh();
    EXPECT_EQ(texts(tray->menu()),
              (QStringList{"Ready", "Saved 0s over 0 expansions.", "Pause expansion",
                           "Search and Paste\u2026", "Quit Quillet"}));
    item(tray->menu(), "Search and Paste\u2026").trigger();
    EXPECT_EQ(searches, 1);
    item(tray->menu(), "Pause expansion").trigger();
    EXPECT_EQ(coordinator.status().state, EngineStatus::State::paused);
    EXPECT_FALSE(h.fake->keys_.started());
    EXPECT_EQ(texts(tray->menu())[2], "Resume expansion");
    item(tray->menu(), "Resume expansion").trigger();
    EXPECT_TRUE(h.fake->keys_.started());

    // A retyped phrase is offered until taken ("&" would mark a mnemonic, so it is doubled).
    h.runWithSuggestions();
    h.retype("fish & chips for tea tonight");
    const QString make = "Make \u201C;fcftt\u201D from \u201C"
                         "fish && chips for tea\u2026\u201D";
    EXPECT_EQ(texts(tray->menu()),
              (QStringList{"Ready", "Saved 0s over 0 expansions.", make, "Not now",
                           "Pause expansion", "Search and Paste\u2026", "Quit Quillet"}));
    item(tray->menu(), make).trigger();
    EXPECT_EQ(h.coordinator->store().snippets().back().content, "fish & chips for tea tonight");
    EXPECT_EQ(texts(tray->menu()).size(), 5);

    if (const char* folder = std::getenv("QUILLET_SCREENSHOTS")) {
        testing::runProcess({"/usr/bin/xsetroot", "-solid", "#4c566a"});
        // The tray host sits in the top right corner; the menu opens below it.
        const QRect screen = QGuiApplication::primaryScreen()->geometry();
        tray->menu().popup(QPoint(screen.right() - 250, 30));
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&tray->menu()));
        QTest::qWait(300); // the tray host paints the icon on its own schedule
        const QPixmap shot = QGuiApplication::primaryScreen()->grabWindow(
            0, screen.right() - 300, 0, 300, tray->menu().geometry().bottom() + 30);
        EXPECT_TRUE(shot.save(QString(folder) + "/tray-menu.png"));
        tray->menu().hide();
    }
}

} // namespace
} // namespace quillet
