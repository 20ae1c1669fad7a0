#pragma once

#include "entry/Settings.h"

#include <QWidget>
#include <functional>
#include <string>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QVBoxLayout;

namespace quillet {
class SharedFoldersBox;
}

namespace quillet {

/// The settings page: a control for every setting Settings knows, written the moment it is
/// changed and brought up to date when the settings change elsewhere (the file edited by hand,
/// another window). Keyboard first: every control is in the tab order and has a name screen
/// readers announce.
class SettingsPage final : public QWidget {
public:
    /// chooseFolder asks the user for a folder to share (empty when they cancelled); a dialog
    /// by default, something else in tests.
    explicit SettingsPage(Settings& settings, std::function<std::string()> chooseFolder = {},
                          QWidget* parent = nullptr);

    /// Shows every setting as it is stored now.
    void refresh();

private:
    void showPasteShortcuts();

    Settings& settings_;
    std::function<std::string()> chooseFolder_;
    QComboBox* triggerMode_;
    QComboBox* appearance_;
    QLineEdit* shortcut_;
    QLabel* shortcutProblem_;
    std::vector<std::pair<std::string, QCheckBox*>> switches_;
    std::vector<QCheckBox*> groups_;
    std::vector<std::pair<std::string, QCheckBox*>> sets_;
    QVBoxLayout* pasteRows_;
    QLineEdit* pasteApp_;
    QLineEdit* pasteStroke_;
    QLabel* pasteProblem_;
    std::vector<std::pair<std::string, std::string>> shownPaste_;
    QLabel* syncFolder_;
    QPushButton* chooseSync_;
    QCheckBox* synced_;
    QLabel* syncMessage_;
    SharedFoldersBox* folders_;
    QLabel* browsersState_;
    QLabel* browsersMessage_;
};

} // namespace quillet
