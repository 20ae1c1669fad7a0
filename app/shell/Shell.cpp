#include "shell/Shell.h"

#include "entry/Application.h"
#include "entry/Coordinator.h"
#include "library/JsonPreferences.h"
#include "platform/Desktop.h"
#include "platform/linux/Autostart.h"
#include "platform/linux/InotifyWatcher.h"
#include "platform/linux/PamOwnerAuth.h"
#include "platform/linux/SecretServiceStore.h"
#include "platform/linux/SignalQuit.h"
#include "shell/Appearance.h"
#include "shell/AutomationService.h"
#include "shell/FormPanel.h"
#include "shell/MainWindow.h"
#include "shell/PickerWindow.h"
#include "shell/PopupPanel.h"
#include "shell/QtScheduler.h"
#include "shell/SingleInstance.h"
#include "shell/SiteListener.h"
#include "shell/SuggestionNotifier.h"
#include "shell/Tray.h"
#include "shell/UnlockDialog.h"

#include <QApplication>
#include <QEventLoop>
#include <QPointer>
#include <QTimer>
#include <memory>

namespace quillet {

int runShell(int argc, char** argv) {
    Tray::registerIcons();
    QApplication app(argc, argv);
    QApplication::setApplicationName("Quillet");
    QApplication::setDesktopFileName("example.quillet.Quillet"); // the launcher entry's name
    QApplication::setWindowIcon(QIcon(":/icons/quillet.svg"));
    // Closing a window (the form, a dialog) never ends the application: the tray does.
    QApplication::setQuitOnLastWindowClosed(false);

    SingleInstance single(Folders::current().config.string());
    if (single.handOver()) {
        logLine("Quillet is already running: its window was brought up");
        return 0;
    }

    QtScheduler scheduler;
    SignalQuit stopOnSignal(
        [] { QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection); },
        logSignal);
    JsonFilePreferences preferences(Folders::current().settingsFile());
    InotifyWatcher watcher(scheduler);
    SecretServiceStore secrets;
    // Unlocking a snippet asks in Quillet's own window, also when started without a terminal.
    PamOwnerAuth auth{UnlockDialog::prompt()};
    Appearance appearance(app);
    std::unique_ptr<Tray> tray;
    std::unique_ptr<SuggestionNotifier> notifier;
    std::unique_ptr<SiteListener> sites;
    std::unique_ptr<MainWindow> mainWindow;
    auto refreshTray = [&] {
        appearance.apply(preferences.text(Coordinator::appearanceKey).value_or("system"));
        if (tray) {
            tray->update();
        }
        if (notifier) {
            notifier->update();
        }
        if (mainWindow && mainWindow->isVisible()) {
            mainWindow->refresh(); // the settings may have changed in the file, or a suggestion
        }
    };

    Coordinator* running = nullptr;
    PopupPanel popup([&running]() -> Caret* {
        Desktop* desktop = running != nullptr ? running->desktop() : nullptr;
        return desktop != nullptr ? &desktop->caret() : nullptr;
    });
    // The form takes the focus; the values go to the window the user typed in, once it has the
    // focus back, or nowhere.
    auto askForm = [&running](const std::vector<Tokens::Field>& fields, Expander::FormDone done) {
        Desktop* desktop = running->desktop();
        const std::uint64_t window = desktop != nullptr ? desktop->focusedWindow() : 0;
        logLine("asking for " + std::to_string(fields.size()) + " field values");
        FormPanel::ask(fields, [desktop, window, done](std::optional<Expansion::Values> values) {
            if (desktop == nullptr || window == 0) {
                done(std::move(values));
                return;
            }
            desktop->refocus(window, [done, values](bool back) {
                if (!back && values) {
                    logLine("the window the snippet was typed in is gone: nothing inserted");
                }
                done(back ? values : std::nullopt);
            });
        });
    };
    // The picker takes the focus; the chosen snippet goes to the window that was in front, once
    // it has the focus back, through the engine like a typed abbreviation.
    QPointer<PickerWindow> picker;
    auto openPicker = [&running, &picker] {
        Expander* engine = running->engine();
        Desktop* desktop = running->desktop();
        if (engine == nullptr || desktop == nullptr) {
            return;
        }
        if (picker) {
            picker->raise();
            picker->activateWindow();
            return;
        }
        const std::uint64_t window = desktop->focusedWindow();
        Coordinator* coordinator = running;
        picker = PickerWindow::pick(
            coordinator->store().effectiveSnippets(), engine->usage(),
            [coordinator, desktop, window](std::optional<Uuid> chosen) {
                if (window == 0) {
                    return;
                }
                desktop->refocus(window, [coordinator, chosen](bool back) {
                    Expander* now = coordinator->engine();
                    if (!chosen || now == nullptr) {
                        return;
                    }
                    if (!back) {
                        logLine("the window to paste into is gone: nothing inserted");
                    } else if (!now->insert(*chosen)) {
                        logLine("the chosen snippet is gone: nothing inserted");
                    }
                });
            });
    };
    std::error_code noPath;
    const Autostart autostart(Folders::current().config,
                              std::filesystem::read_symlink("/proc/self/exe", noPath));
    Coordinator coordinator(
        {scheduler, preferences, watcher, secrets, auth,
         [&](std::string& why) { return Desktop::open(scheduler, preferences, logLine, why); },
         Folders::current(),
         [&autostart](bool on) {
             std::string error;
             if (!autostart.set(on, error)) {
                 logLine(error);
             }
         }},
        {logLine, askForm, {}, refreshTray, openPicker, &popup, [&mainWindow] {
             // After the change that caused it is done: an edit saved from the window itself
             // calls here while its own handler is still running.
             if (mainWindow && mainWindow->isVisible()) {
                 QTimer::singleShot(0, mainWindow.get(),
                                    [&mainWindow] { mainWindow->snippetsPage().refresh(); });
             }
         }});
    running = &coordinator;
    refreshTray();
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        logLine("tray icon in the system tray");
    } else {
        logLine("no system tray on this desktop: the icon shows once one starts");
    }
    Settings settings(preferences, coordinator.store());
    auto usage = [&coordinator]() -> const Usage* {
        Expander* engine = coordinator.engine();
        return engine != nullptr ? &engine->usage() : nullptr;
    };
    LibraryEditor library({coordinator.store(), preferences, coordinator.locked(), usage});
    Overview overview(
        [&coordinator]() -> const std::vector<Snippet>& { return coordinator.store().snippets(); },
        usage);
    ImportExport transfer(coordinator.store(), Folders::current());
    // Built when first asked for: most sessions never open it, and its widgets cost memory.
    auto openWindow = [&](MainWindow::Page page) {
        if (!mainWindow) {
            mainWindow = std::make_unique<MainWindow>(MainWindow::Parts{
                library, settings, overview, transfer, &coordinator, [&running] {
                    Desktop* desktop = running != nullptr ? running->desktop() : nullptr;
                    return desktop != nullptr ? desktop->front().running()
                                              : std::vector<std::string>();
                }});
        }
        mainWindow->open(page);
    };
    if (!single.listen([&openWindow] { openWindow(MainWindow::Page::snippets); })) {
        logLine("a later launch can't reach this one: it would start a second copy");
    }
    tray = std::make_unique<Tray>(
        coordinator, appearance, [] { QCoreApplication::quit(); }, openPicker,
        [&openWindow] { openWindow(MainWindow::Page::settings); },
        [&openWindow] { openWindow(MainWindow::Page::snippets); });
    notifier = std::make_unique<SuggestionNotifier>(coordinator, logLine);
    // The latest report wins: a browser's extension reports again when its window comes to the
    // front, and the engine counts a site only while the window in front is that browser's.
    sites = std::make_unique<SiteListener>(
        [&coordinator](const std::string& notice) {
            if (Expander* engine = coordinator.engine()) {
                engine->setSite(Expander::Site::fromNotice(notice));
            }
        },
        logLine);
    AutomationService automation(Automation(Folders::current()), logLine);
    coordinator.start();
    const int status = QApplication::exec();

    if (Expander* engine = coordinator.engine()) {
        engine->stop();
        // Expansions under way finish, so the user's clipboard is back before the desktop
        // closes; the loop runs for them a little longer.
        QEventLoop finishing;
        QTimer limit;
        limit.setSingleShot(true);
        QObject::connect(&limit, &QTimer::timeout, &finishing, &QEventLoop::quit);
        limit.start(2000);
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &finishing, [&] {
            if (engine->idle()) {
                finishing.quit();
            }
        });
        poll.start(10);
        if (!engine->idle()) {
            finishing.exec();
        }
    }
    mainWindow.reset(); // before the settings and library it shows
    return status;
}

} // namespace quillet
