#pragma once

#include "entry/Coordinator.h"
#include "entry/ImportExport.h"
#include "entry/LibraryEditor.h"
#include "entry/Overview.h"
#include "entry/Settings.h"
#include "shell/CollectionsPage.h"
#include "shell/ImportPage.h"
#include "shell/OverviewPage.h"
#include "shell/SettingsPage.h"
#include "shell/SnippetsPage.h"

#include <QMainWindow>
#include <functional>
#include <string>
#include <vector>

class QListWidget;
class QStackedWidget;

namespace quillet {

/// Quillet's window, opened from the tray: a page list down the side (snippets, overview,
/// collections, import and export, settings) and the chosen page. Closing it only hides it; the
/// application goes on in the tray. Its size and place are remembered between sessions.
class MainWindow final : public QMainWindow {
public:
    /// The pages, in the order of the side list.
    enum class Page { snippets, overview, collections, transfer, settings };

    /// What the pages show and change; all of it must outlive the window.
    struct Parts {
        LibraryEditor& library;
        Settings& settings;
        Overview& overview;
        ImportExport& transfer;
        Coordinator* coordinator = nullptr; ///< the waiting phrase; null where there is none
        /// The applications with a window open, for a snippet's applications.
        std::function<std::vector<std::string>()> runningApplications = [] {
            return std::vector<std::string>();
        };
    };

    explicit MainWindow(Parts parts);

    /// Brings the window up on page, in front, with the keyboard focus.
    void open(Page page = Page::snippets);
    /// Shows the library and the settings as they are stored now.
    void refresh();

    SnippetsPage& snippetsPage() { return *snippets_; }
    OverviewPage& overviewPage() { return *overview_; }
    CollectionsPage& collectionsPage() { return *collections_; }
    ImportPage& importPage() { return *import_; }
    SettingsPage& settingsPage() { return *settings_; }
    QListWidget& pages() { return *pages_; }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    QListWidget* pages_;
    QStackedWidget* stack_;
    SnippetsPage* snippets_;
    OverviewPage* overview_;
    CollectionsPage* collections_;
    ImportPage* import_;
    SettingsPage* settings_;
};

} // namespace quillet
