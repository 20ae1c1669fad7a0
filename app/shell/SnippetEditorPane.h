#pragma once

#include "entry/LibraryEditor.h"

#include <QTimer>
#include <QWidget>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QToolButton;

namespace quillet {

/// The editor of one snippet: a control for every field of the record, with the warnings, notes
/// and preview the library editor gives. Every change is saved at once (typed text a moment
/// after the last key); nothing is kept here that the library does not have.
class SnippetEditorPane final : public QWidget {
public:
    /// choosePicture asks for a picture file (empty when cancelled); a dialog by default.
    explicit SnippetEditorPane(LibraryEditor& editor,
                               std::function<std::filesystem::path()> choosePicture = {},
                               QWidget* parent = nullptr);

    /// Edits the snippet with id, or shows nothing to edit.
    void show(const std::optional<Uuid>& id);
    /// Shows the snippet as stored now, leaving alone what already agrees.
    void reload();
    /// The snippet shown, if any.
    const std::optional<Uuid>& shown() const { return id_; }
    /// Saves typed text that waits for its moment.
    void flush();
    /// Sets what is called after each saved change, so the list can show it.
    void setOnSaved(std::function<void()> callback) { onSaved_ = std::move(callback); }
    /// Puts the keyboard focus on the abbreviation.
    void focusAbbreviation();
    /// Sets where the applications with a window open come from, for the applications menu.
    void setRunningApplications(std::function<std::vector<std::string>()> running) {
        runningApps_ = std::move(running);
    }

    QLineEdit& abbreviation() { return *abbreviation_; }
    QPlainTextEdit& content() { return *content_; }
    QComboBox& kind() { return *kind_; }
    QComboBox& trigger() { return *trigger_; }
    QComboBox& scope() { return *scope_; }
    QLineEdit& apps() { return *apps_; }
    QLineEdit& sites() { return *sites_; }
    QCheckBox& markdown() { return *markdown_; }
    QCheckBox& pattern() { return *pattern_; }
    QCheckBox& locked() { return *locked_; }
    QPushButton& choosePictureButton() { return *choosePicture_; }
    QToolButton& addApplicationButton() { return *addApp_; }
    QLabel& picture() { return *picture_; }
    QLabel& warning() { return *warning_; }
    QLabel& problem() { return *problem_; }
    QLabel& preview() { return *preview_; }

private:
    void load();
    void showPicture(const Snippet& snippet);
    void change(const std::function<void(Snippet&)>& edit);
    void report(const std::optional<std::string>& problem);
    void showNotes(const Snippet& snippet);
    void insert(const QString& token);
    void editChoice();
    void showLockedText();

    LibraryEditor& editor_;
    std::function<std::filesystem::path()> choosePictureFile_;
    std::function<void()> onSaved_;
    std::optional<Uuid> id_;
    bool lockedShown_ = false; // the locked text was confirmed and is in the content field
    QTimer typing_;            // saves typed text once typing pauses
    bool typed_ = false;       // text was typed since the last save
    QWidget* form_;
    QLabel* empty_;
    QLineEdit* abbreviation_;
    QLabel* warning_;
    QCheckBox* pattern_;
    QComboBox* kind_;
    QLabel* caption_;
    QLabel* notice_;
    QPlainTextEdit* content_;
    QPushButton* showLocked_;
    QCheckBox* markdown_;
    QLabel* picture_;
    QPushButton* choosePicture_;
    QToolButton* addApp_;
    std::function<std::vector<std::string>()> runningApps_;
    QPushButton* removePicture_;
    QComboBox* trigger_;
    QComboBox* scope_;
    QLineEdit* apps_;
    QLineEdit* sites_;
    QLabel* sitesProblem_;
    QCheckBox* locked_;
    QLabel* preview_;
    QLabel* problem_;
};

} // namespace quillet
