#include "shell/PickerWindow.h"

#include "library/SnippetSearch.h"
#include "shell/Present.h"
#include "shell/QtText.h"

#include <QCloseEvent>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace quillet {
namespace {

// Rows shown before the list scrolls.
constexpr int visibleRows = 8;
// A preview long enough to tell snippets apart.
constexpr int previewLength = 60;

QString preview(const Snippet& snippet) {
    return snippet.locked ? QStringLiteral("Locked") : oneLine(snippet.content, previewLength);
}

} // namespace

PickerWindow* PickerWindow::pick(SnippetList snippets, Usage usage, Done done) {
    auto* window = new PickerWindow(std::move(snippets), std::move(usage), std::move(done));
    window->setAttribute(Qt::WA_DeleteOnClose);
    present(*window);
    window->field_->setFocus();
    return window;
}

PickerWindow::PickerWindow(SnippetList snippets, Usage usage, Done done)
    : QWidget(nullptr, Qt::Tool | Qt::WindowStaysOnTopHint), snippets_(std::move(snippets)),
      usage_(std::move(usage)), done_(std::move(done)) {
    setWindowTitle(QStringLiteral("Search snippets"));
    setAccessibleName(windowTitle());
    auto* layout = new QVBoxLayout(this);
    field_ = new QLineEdit(this);
    field_->setPlaceholderText(QStringLiteral("Search abbreviations and text"));
    field_->setAccessibleName(QStringLiteral("Search"));
    field_->setClearButtonEnabled(true);
    field_->installEventFilter(this);
    layout->addWidget(field_);
    list_ = new QTreeWidget(this);
    list_->setColumnCount(2);
    list_->setHeaderHidden(true);
    list_->setRootIsDecorated(false);
    list_->setIndentation(0);
    list_->setFocusPolicy(Qt::NoFocus); // typing always goes to the field
    list_->setAccessibleName(QStringLiteral("Snippets found"));
    list_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    layout->addWidget(list_);
    auto* hint = new QLabel(QStringLiteral("Return inserts \u00b7 Esc closes"), this);
    hint->setAccessibleName(hint->text());
    hint->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(hint);
    const int width = fontMetrics().averageCharWidth() * 72;
    setFixedWidth(width);
    list_->setColumnWidth(0, fontMetrics().averageCharWidth() * 16);
    connect(field_, &QLineEdit::textChanged, this, [this] { search(); });
    connect(list_, &QTreeWidget::itemActivated, this, [this](QTreeWidgetItem* item) {
        finish(Uuid::parse(item->data(0, Qt::UserRole).toString().toStdString()));
    });
    search();
}

PickerWindow::~PickerWindow() {
    if (!finished_ && done_) {
        done_(std::nullopt);
    }
}

void PickerWindow::search() {
    list_->clear();
    if (!snippets_) {
        return;
    }
    QFont bold = list_->font();
    bold.setBold(true);
    for (const Snippet* snippet :
         searchSnippets(*snippets_, field_->text().toStdString(), usage_)) {
        auto* item =
            new QTreeWidgetItem(list_, {fromUtf8(snippet->abbreviation), preview(*snippet)});
        item->setFont(0, bold);
        item->setData(0, Qt::UserRole, fromUtf8(snippet->id.text()));
        item->setData(0, Qt::AccessibleTextRole,
                      (snippet->abbreviation.empty()
                           ? QString()
                           : fromUtf8(snippet->abbreviation) + QStringLiteral(": ")) +
                          preview(*snippet));
    }
    if (list_->topLevelItemCount() > 0) {
        list_->setCurrentItem(list_->topLevelItem(0));
    }
    const int row =
        list_->topLevelItemCount() > 0 ? list_->sizeHintForRow(0) : fontMetrics().height();
    list_->setFixedHeight(row * visibleRows + 2 * list_->frameWidth());
}

bool PickerWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched != field_ || event->type() != QEvent::KeyPress) {
        return QWidget::eventFilter(watched, event);
    }
    const auto* key = static_cast<QKeyEvent*>(event);
    const int count = list_->topLevelItemCount();
    const int current = list_->indexOfTopLevelItem(list_->currentItem());
    switch (key->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (current >= 0) {
            finish(Uuid::parse(
                list_->topLevelItem(current)->data(0, Qt::UserRole).toString().toStdString()));
        }
        return true;
    case Qt::Key_Escape:
        finish(std::nullopt);
        return true;
    case Qt::Key_Down:
    case Qt::Key_Up:
        if (count > 0) {
            const int step = key->key() == Qt::Key_Down ? 1 : -1;
            list_->setCurrentItem(list_->topLevelItem((current + step + count) % count));
        }
        return true;
    default:
        return QWidget::eventFilter(watched, event);
    }
}

void PickerWindow::closeEvent(QCloseEvent* event) {
    finish(std::nullopt);
    event->accept();
}

void PickerWindow::finish(std::optional<Uuid> chosen) {
    if (finished_) {
        return;
    }
    finished_ = true;
    // Hidden first, so the window typed in can have the focus back before anything is inserted.
    hide();
    if (done_) {
        auto done = std::move(done_);
        done(std::move(chosen));
    }
    deleteLater();
}

} // namespace quillet
