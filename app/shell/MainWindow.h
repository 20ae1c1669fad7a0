#pragma once

#include "entry/LibraryEditor.h"
#include "entry/Settings.h"
#include "shell/SettingsPage.h"
#include "shell/SnippetsPage.h"

#include <QMainWindow>

class QListWidget;
class QStackedWidget;

namespace quillet {

/// Quillet's window, opened from the tray: a page list down the side (snippets, settings) and
/// the chosen page. Closing it only hides it; the application goes on in the tray. Its size and
/// place are remembered between sessions.
class MainWindow final : public QMainWindow {
public:
    /// The pages, in the order of the side list.
    enum class Page { snippets, settings };

    MainWindow(LibraryEditor& library, Settings& settings);

    /// Brings the window up on page, in front, with the keyboard focus.
    void open(Page page = Page::snippets);
    /// Shows the library and the settings as they are stored now.
    void refresh();

    SnippetsPage& snippetsPage() { return *snippets_; }
    SettingsPage& settingsPage() { return *settings_; }
    QListWidget& pages() { return *pages_; }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    QListWidget* pages_;
    QStackedWidget* stack_;
    SnippetsPage* snippets_;
    SettingsPage* settings_;
};

} // namespace quillet
