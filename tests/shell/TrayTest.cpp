// The tray icon and its menu on a real X server with a real tray host (trayer, an XEmbed
// tray), over a coordinator whose desktop is made of fakes. With QUILLET_SCREENSHOTS set to a
// folder, the menu is photographed there.
#include "shell/Tray.h"

#include "library/RunLoop.h"
#include "platform/fake/FakeDesktop.h"
#include "platform/fake/FakeFileWatcher.h"
#include "platform/fake/FakeOwnerAuth.h"
#include "platform/fake/FakeSecretStore.h"
#include "shell/QtScheduler.h"
#include "support/ChildProcess.h"
#include "support/TempFolder.h"

#include <QApplication>
#include <QLabel>
#include <QScreen>
#include <QTest>
#include <QWidgetAction>
#include <gtest/gtest.h>

namespace quillet {
namespace {

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

    testing::TempFolder temp;
    QtScheduler scheduler;
    JsonFilePreferences preferences{temp / "settings.json"};
    FakeFileWatcher watcher;
    FakeSecretStore secrets;
    FakeOwnerAuth auth;
    bool present = false;
    FakeDesktop* fake = nullptr;
    std::unique_ptr<Tray> tray;
    Coordinator coordinator({scheduler, preferences, watcher, secrets, auth,
                             [&](std::string& why) -> std::unique_ptr<Desktop> {
                                 if (!present) {
                                     why = "There is no X display to listen to.";
                                     return nullptr;
                                 }
                                 auto desktop = std::make_unique<FakeDesktop>();
                                 fake = desktop.get();
                                 return desktop;
                             },
                             Folders::forHome(temp / "home", "", "")},
                            {{}, {}, {}, [&] {
                                 if (tray) {
                                     tray->update();
                                 }
                             }});
    Appearance appearance(*qApp);
    tray = std::make_unique<Tray>(coordinator, appearance, [] {});
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
                           "Pause expansion (off)", "Quit Quillet"}));
    EXPECT_TRUE(tray->icon().toolTip().startsWith("Quillet\nNeeds typing access"));

    present = true;
    coordinator.refresh();
    EXPECT_EQ(texts(tray->menu()), (QStringList{"Ready", "Saved 0s over 0 expansions.",
                                                "Pause expansion", "Quit Quillet"}));
    tray->menu().actions()[3]->trigger(); // the pause item
    EXPECT_EQ(coordinator.status().state, EngineStatus::State::paused);
    EXPECT_FALSE(fake->keys_.started());
    EXPECT_EQ(texts(tray->menu())[2], "Resume expansion");
    tray->menu().actions()[3]->trigger();
    EXPECT_TRUE(fake->keys_.started());

    if (const char* folder = std::getenv("QUILLET_SCREENSHOTS")) {
        testing::runProcess({"/usr/bin/xsetroot", "-solid", "#4c566a"}, std::string());
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
