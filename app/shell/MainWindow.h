#pragma once

#include "entry/Settings.h"
#include "shell/SettingsPage.h"

#include <QMainWindow>

namespace quillet {

/// Quillet's window, opened from the tray: the settings, scrolled when the screen is small.
/// Closing it only hides it; the application goes on in the tray.
class MainWindow final : public QMainWindow {
public:
    explicit MainWindow(Settings& settings);

    /// Brings the window up, in front, with the keyboard focus.
    void open();
    /// Shows the settings as they are stored now.
    void refresh() { page_->refresh(); }

    SettingsPage& settingsPage() { return *page_; }

private:
    SettingsPage* page_;
};

} // namespace quillet
