#pragma once

#include "entry/LibraryEditor.h"
#include "shell/SnippetEditorPane.h"

#include <QWidget>
#include <filesystem>
#include <functional>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListView;
class QPushButton;

namespace quillet {

class RowModel;

/// The snippets page: the searchable list beside the editor of the chosen snippet. Keyboard
/// first: typing in the list searches, the arrows move through it from the search field, Return
/// edits, Delete deletes (Ctrl+Z brings it back), Ctrl+N makes a new one, Ctrl+D a copy.
class SnippetsPage final : public QWidget {
public:
    explicit SnippetsPage(LibraryEditor& editor,
                          std::function<std::filesystem::path()> choosePicture = {},
                          QWidget* parent = nullptr);
    ~SnippetsPage() override;

    /// Lists the library as it is now, keeping the chosen snippet when it is still there.
    void refresh();
    /// Chooses the snippet in the list and edits it.
    void select(const Uuid& id);

    void create();
    void duplicate();
    void toggleArchived();
    void remove();
    void undo();

    QLineEdit& search() { return *search_; }
    QListView& list() { return *list_; }
    QCheckBox& showArchived() { return *archived_; }
    QComboBox& order() { return *order_; }
    SnippetEditorPane& editorPane() { return *pane_; }
    QLabel& undoText() { return *undoText_; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    std::optional<Uuid> current() const;
    /// Lists and edits a snippet just added, or shows why none was.
    void edit(const std::optional<Uuid>& added, const std::string& error);
    void showUndo();
    void showArchiveLabel();

    LibraryEditor& editor_;
    RowModel* rows_;
    QLineEdit* search_;
    QComboBox* order_;
    QCheckBox* archived_;
    QListView* list_;
    QPushButton* archive_;
    QLabel* undoText_;
    QPushButton* undo_;
    QLabel* problem_;
    SnippetEditorPane* pane_;
};

} // namespace quillet
