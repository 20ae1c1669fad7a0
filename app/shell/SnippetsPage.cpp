#include "shell/SnippetsPage.h"

#include "shell/Labels.h"
#include "shell/QtText.h"

#include <QAbstractListModel>
#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QSplitter>
#include <QVBoxLayout>

namespace quillet {

/// The rows of the list: two lines each, the abbreviation, then what it pastes and its badges.
class RowModel final : public QAbstractListModel {
public:
    using QAbstractListModel::QAbstractListModel;

    void set(std::vector<LibraryEditor::Row> rows) {
        beginResetModel();
        rows_ = std::move(rows);
        endResetModel();
    }
    const std::vector<LibraryEditor::Row>& rows() const { return rows_; }
    void replace(int at, LibraryEditor::Row row) {
        rows_[std::size_t(at)] = std::move(row);
        emit dataChanged(index(at), index(at));
    }

    int rowCount(const QModelIndex& parent) const override {
        return parent.isValid() ? 0 : static_cast<int>(rows_.size());
    }

    QVariant data(const QModelIndex& index, int role) const override {
        if (!index.isValid() || index.row() >= rowCount({})) {
            return {};
        }
        const LibraryEditor::Row& row = rows_[std::size_t(index.row())];
        if (role == Qt::DisplayRole || role == Qt::AccessibleTextRole) {
            QString first = row.abbreviation.empty() ? QStringLiteral("(no abbreviation)")
                                                     : fromUtf8(row.abbreviation);
            QString second = oneLine(row.subtitle, 60);
            for (const std::string& badge : row.badges) {
                second += (second.isEmpty() ? "" : "  \u00B7  ") + fromUtf8(badge);
            }
            return first + '\n' + second;
        }
        if (role == Qt::ForegroundRole && row.archived) {
            return QPalette().brush(QPalette::PlaceholderText);
        }
        return {};
    }

private:
    std::vector<LibraryEditor::Row> rows_;
};

SnippetsPage::SnippetsPage(LibraryEditor& editor, std::function<std::filesystem::path()> choose,
                           QWidget* parent)
    : QWidget(parent), editor_(editor) {
    setAccessibleName(QStringLiteral("Snippets"));
    auto* split = new QSplitter(this);
    auto* outer = new QHBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(split);

    auto* side = new QWidget(split);
    auto* column = new QVBoxLayout(side);
    search_ = new QLineEdit(side);
    search_->setPlaceholderText(QStringLiteral("Search snippets"));
    search_->setAccessibleName(QStringLiteral("Search snippets"));
    search_->setClearButtonEnabled(true);
    column->addWidget(search_);
    auto* filters = new QHBoxLayout;
    order_ = new QComboBox(side);
    order_->setAccessibleName(QStringLiteral("Order"));
    for (const auto& choice : LibraryEditor::orders()) {
        order_->addItem(fromUtf8(choice.label));
    }
    archived_ = new QCheckBox(QStringLiteral("Show a&rchived"), side);
    archived_->setAccessibleName(QStringLiteral("Show archived"));
    filters->addWidget(order_, 1);
    filters->addWidget(archived_);
    column->addLayout(filters);
    rows_ = new RowModel(this);
    list_ = new QListView(side);
    list_->setModel(rows_);
    list_->setAccessibleName(QStringLiteral("Snippets"));
    list_->setUniformItemSizes(true); // a large library lists without measuring every row
    list_->setAlternatingRowColors(true);
    list_->setSpacing(1);
    list_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    column->addWidget(list_, 1);
    auto* buttons = new QHBoxLayout;
    auto button = [&](const QString& text, const QString& name, QKeySequence keys,
                      void (SnippetsPage::*act)()) {
        auto* b = new QPushButton(text, side);
        b->setAccessibleName(name);
        b->setToolTip(keys.isEmpty() ? name
                                     : name + " (" + keys.toString(QKeySequence::NativeText) + ")");
        buttons->addWidget(b);
        connect(b, &QPushButton::clicked, this, act);
        if (!keys.isEmpty()) {
            auto* action = new QAction(name, this);
            action->setShortcut(keys);
            action->setShortcutContext(Qt::WidgetWithChildrenShortcut);
            connect(action, &QAction::triggered, this, act);
            addAction(action);
        }
        return b;
    };
    button(QStringLiteral("&New"), QStringLiteral("New snippet"), QKeySequence::New,
           &SnippetsPage::create);
    button(QStringLiteral("&Duplicate"), QStringLiteral("Duplicate"),
           QKeySequence(Qt::CTRL | Qt::Key_D), &SnippetsPage::duplicate);
    archive_ = button(QStringLiteral("Archi&ve"), QStringLiteral("Archive"),
                      QKeySequence(Qt::CTRL | Qt::Key_E), &SnippetsPage::toggleArchived);
    button(QStringLiteral("De&lete"), QStringLiteral("Delete"), {}, &SnippetsPage::remove);
    column->addLayout(buttons);
    auto* undoRow = new QHBoxLayout;
    undoText_ = new QLabel(side);
    undoText_->setAccessibleName(QStringLiteral("Deleted"));
    undo_ = new QPushButton(QStringLiteral("&Undo"), side);
    undo_->setAccessibleName(QStringLiteral("Undo"));
    undoRow->addWidget(undoText_, 1);
    undoRow->addWidget(undo_);
    column->addLayout(undoRow);
    connect(undo_, &QPushButton::clicked, this, &SnippetsPage::undo);
    auto* undoKey = new QAction(QStringLiteral("Undo"), this);
    undoKey->setShortcut(QKeySequence::Undo);
    undoKey->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    connect(undoKey, &QAction::triggered, this, [this] {
        if (!editor_.undoLabel().empty()) {
            undo();
        }
    });
    list_->addAction(undoKey);
    problem_ = problemLabel(side);
    column->addWidget(problem_);

    auto* scroll = new QScrollArea(split);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff); // the fields wrap and shrink
    pane_ = new SnippetEditorPane(editor_, std::move(choose), scroll);
    scroll->setWidget(pane_);
    split->addWidget(side);
    split->addWidget(scroll);
    split->setStretchFactor(0, 2);
    split->setStretchFactor(1, 3);
    split->setChildrenCollapsible(false);

    connect(search_, &QLineEdit::textChanged, this, [this] { refresh(); });
    connect(order_, &QComboBox::currentIndexChanged, this, [this] { refresh(); });
    connect(archived_, &QCheckBox::toggled, this, [this] { refresh(); });
    connect(list_->selectionModel(), &QItemSelectionModel::currentChanged, this, [this] {
        pane_->show(current());
        showArchiveLabel();
    });
    connect(list_, &QListView::activated, this, [this] { pane_->focusAbbreviation(); });
    pane_->setOnSaved([this] {
        // Only the row changes: its place stays, so typing in the editor never moves the list.
        const QModelIndex index = list_->currentIndex();
        if (std::optional<Uuid> id = current(); id && index.isValid()) {
            if (std::optional<LibraryEditor::Row> row = editor_.row(*id)) {
                rows_->replace(index.row(), std::move(*row));
            }
        }
    });
    list_->installEventFilter(this);
    search_->installEventFilter(this);
    showUndo();
    refresh();
}

SnippetsPage::~SnippetsPage() {
    pane_->flush();
}

std::optional<Uuid> SnippetsPage::current() const {
    const QModelIndex index = list_->currentIndex();
    if (!index.isValid() || std::size_t(index.row()) >= rows_->rows().size()) {
        return std::nullopt;
    }
    return rows_->rows()[std::size_t(index.row())].id;
}

void SnippetsPage::refresh() {
    pane_->flush();
    const std::optional<Uuid> chosen = current();
    const int scrolled = list_->verticalScrollBar()->value();
    const auto order = LibraryEditor::orders()[std::size_t(std::max(0, order_->currentIndex()))];
    {
        const QSignalBlocker blocker(list_->selectionModel());
        rows_->set(
            editor_.rows(search_->text().toStdString(), order.value, archived_->isChecked()));
    }
    int row = rows_->rows().empty() ? -1 : 0;
    for (std::size_t i = 0; chosen && i < rows_->rows().size(); ++i) {
        if (rows_->rows()[i].id == *chosen) {
            row = static_cast<int>(i);
        }
    }
    {
        const QSignalBlocker blocker(list_->selectionModel());
        list_->setCurrentIndex(row >= 0 ? rows_->index(row) : QModelIndex());
    }
    list_->verticalScrollBar()->setValue(scrolled);
    if (current() == pane_->shown()) {
        pane_->reload();
    } else {
        pane_->show(current());
    }
    showArchiveLabel();
}

void SnippetsPage::showArchiveLabel() {
    std::optional<Uuid> id = current();
    std::optional<Snippet> snippet = id ? editor_.find(*id) : std::nullopt;
    archive_->setText(snippet && snippet->archived ? QStringLiteral("Unarchi&ve")
                                                   : QStringLiteral("Archi&ve"));
}

void SnippetsPage::select(const Uuid& id) {
    for (std::size_t i = 0; i < rows_->rows().size(); ++i) {
        if (rows_->rows()[i].id == id) {
            list_->setCurrentIndex(rows_->index(static_cast<int>(i)));
            return;
        }
    }
    // Hidden by the search or the archive filter: shown again with everything.
    search_->clear();
    archived_->setChecked(true);
    refresh();
    select(id);
}

void SnippetsPage::create() {
    std::string error;
    std::optional<Uuid> id = editor_.create(error);
    if (id) {
        search_->clear();
    }
    edit(id, error);
}

void SnippetsPage::duplicate() {
    std::optional<Uuid> id = current();
    if (!id) {
        return;
    }
    pane_->flush();
    std::string error;
    edit(editor_.duplicate(*id, error), error);
}

void SnippetsPage::edit(const std::optional<Uuid>& added, const std::string& error) {
    showProblem(problem_, added ? std::nullopt : std::optional(error));
    if (added) {
        refresh();
        select(*added);
        pane_->focusAbbreviation();
    }
}

void SnippetsPage::toggleArchived() {
    std::optional<Uuid> id = current();
    if (!id) {
        return;
    }
    pane_->flush();
    showProblem(problem_, editor_.setArchived(*id, !editor_.find(*id)->archived));
    refresh();
}

void SnippetsPage::remove() {
    std::optional<Uuid> id = current();
    if (!id) {
        return;
    }
    pane_->flush();
    const int row = list_->currentIndex().row();
    showProblem(problem_, editor_.remove(*id));
    refresh();
    if (rows_->rowCount({}) > 0) { // the next one, as in a mail list
        list_->setCurrentIndex(rows_->index(std::min(row, rows_->rowCount({}) - 1)));
    }
    showUndo();
    list_->setFocus(Qt::OtherFocusReason);
}

void SnippetsPage::undo() {
    const std::string label = editor_.undoLabel();
    if (label.empty()) {
        return;
    }
    std::optional<Uuid> back = editor_.deletedId();
    showProblem(problem_, editor_.undo());
    showUndo();
    refresh();
    if (back) {
        select(*back);
    }
}

void SnippetsPage::showUndo() {
    const std::string label = editor_.undoLabel();
    undoText_->setText(label.empty() ? QString() : QStringLiteral("Deleted."));
    undo_->setVisible(!label.empty());
    undoText_->setVisible(!label.empty());
    undo_->setToolTip(fromUtf8(label));
    undo_->setAccessibleName(label.empty() ? QStringLiteral("Undo") : fromUtf8(label));
}

bool SnippetsPage::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::KeyPress) {
        return QWidget::eventFilter(watched, event);
    }
    auto* key = static_cast<QKeyEvent*>(event);
    if (watched == search_ && (key->key() == Qt::Key_Down || key->key() == Qt::Key_Up ||
                               key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter)) {
        if (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) {
            pane_->focusAbbreviation();
            return true;
        }
        const int step = key->key() == Qt::Key_Down ? 1 : -1;
        const int row =
            std::clamp(list_->currentIndex().row() + step, 0, std::max(0, rows_->rowCount({}) - 1));
        if (rows_->rowCount({}) > 0) {
            list_->setCurrentIndex(rows_->index(row));
        }
        return true;
    }
    if (watched == list_) {
        if (key->key() == Qt::Key_Delete) {
            remove();
            return true;
        }
        // Typing in the list searches, as in a file manager.
        const QString text = key->text();
        if (!text.isEmpty() && text[0].isPrint() &&
            (key->modifiers() & ~(Qt::ShiftModifier | Qt::KeypadModifier)) == 0) {
            search_->setFocus(Qt::OtherFocusReason);
            search_->insert(text);
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace quillet
