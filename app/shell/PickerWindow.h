#pragma once

#include "library/Snippet.h"
#include "library/Usage.h"
#include "library/Uuid.h"

#include <QWidget>
#include <functional>
#include <optional>

class QLineEdit;
class QTreeWidget;

namespace quillet {

/// The search-and-paste picker: a search field over every snippet and the snippets it finds as
/// the user types, the most used first (searchSnippets decides). Return picks the selected one,
/// Up and Down choose, Escape or closing the window gives up. Keyboard first: the field keeps
/// the focus throughout.
class PickerWindow : public QWidget {
public:
    /// Receives the chosen snippet's id, or nothing when the user gave up.
    using Done = std::function<void(std::optional<Uuid>)>;

    /// Shows a picker over snippets with their usage, above other windows, on the screen under
    /// the pointer, and takes the keyboard; done is called exactly once, after which the window
    /// closes and deletes itself.
    static PickerWindow* pick(SnippetList snippets, Usage usage, Done done);

    /// A window destroyed before it was answered counts as given up.
    ~PickerWindow() override;

    /// The search field and the list, for tests and screenshots.
    QLineEdit* field() const { return field_; }
    QTreeWidget* list() const { return list_; }

protected:
    /// Return, Escape, Up and Down in the field act on the list.
    bool eventFilter(QObject* watched, QEvent* event) override;
    /// Closing the window is giving up.
    void closeEvent(QCloseEvent* event) override;

private:
    PickerWindow(SnippetList snippets, Usage usage, Done done);

    void search();
    void finish(std::optional<Uuid> chosen);

    SnippetList snippets_;
    Usage usage_;
    Done done_;
    QLineEdit* field_ = nullptr;
    QTreeWidget* list_ = nullptr;
    bool finished_ = false;
};

} // namespace quillet
