#pragma once

#include "entry/Coordinator.h"
#include "shell/Appearance.h"

#include <QAction>
#include <QLabel>
#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>
#include <functional>

namespace quillet {

/// The tray icon and its menu: the status headline and detail, the retyped phrase waiting to
/// become a snippet, pausing and resuming expansion, quitting. Shows what the coordinator says and
/// sends the user's choices back to it; holds no state of its own. The icon is a StatusNotifierItem
/// where the desktop hosts those, an XEmbed icon otherwise (Qt picks).
class Tray final : public QObject {
public:
    /// Shows coordinator's status, in the colours appearance says; quit ends the application,
    /// search (when given) opens the search-and-paste picker, settings and snippets (when given)
    /// the window on that page.
    Tray(Coordinator& coordinator, const Appearance& appearance, std::function<void()> quit,
         std::function<void()> search = {}, std::function<void()> settings = {},
         std::function<void()> snippets = {});

    /// Shows the status, badge and tooltip as they are now.
    void update();

    /// The menu, for tests and screenshots.
    QMenu& menu() { return menu_; }
    /// The icon, for tests.
    const QSystemTrayIcon& icon() const { return icon_; }

    /// Makes the icons compiled into the shell available (":/icons/..."); the linker would drop
    /// their registration from the static library otherwise.
    static void registerIcons();

    /// The icon for a badge, light or dark glyph.
    static QIcon iconFor(TrayLook::Badge badge, bool darkPanel);

private:
    Coordinator& coordinator_;
    const Appearance& appearance_;
    QMenu menu_;
    QLabel* headline_;
    QLabel* detail_;
    QAction* detailAction_;
    QAction* suggestionSeparator_;
    QAction* make_;
    QAction* notNow_;
    QAction* pause_;
    QAction* quit_;
    QSystemTrayIcon icon_;
};

} // namespace quillet
