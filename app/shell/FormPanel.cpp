#include "shell/FormPanel.h"

#include "shell/Present.h"
#include "shell/QtText.h"

#include <QCloseEvent>
#include <QFormLayout>
#include <QFrame>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QScrollBar>
#include <QVBoxLayout>
#include <algorithm>

namespace quillet {
namespace {

// Longer choices scroll rather than push the panel off small screens.
constexpr int visibleLines = 8;

std::optional<Form::Key> formKey(const QKeyEvent& event) {
    // Arrows and Enter on the keypad arrive with the keypad flag; they are the same keys here.
    if ((event.modifiers() & ~Qt::KeypadModifier) != Qt::NoModifier) {
        return std::nullopt;
    }
    switch (event.key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        return Form::Key::enter;
    case Qt::Key_Tab:
        return Form::Key::tab;
    case Qt::Key_Escape:
        return Form::Key::escape;
    case Qt::Key_Up:
        return Form::Key::up;
    case Qt::Key_Down:
        return Form::Key::down;
    default:
        return std::nullopt;
    }
}

QString keyName(Form::Key key) {
    switch (key) {
    case Form::Key::enter:
        return QStringLiteral("Return");
    case Form::Key::tab:
        return QStringLiteral("Tab");
    case Form::Key::escape:
        return QStringLiteral("Esc");
    case Form::Key::up:
        return QStringLiteral("Up");
    case Form::Key::down:
        return QStringLiteral("Down");
    }
    return {};
}

QListWidget* choiceList(const Form::Row& row, QWidget* parent) {
    auto* list = new QListWidget(parent);
    list->setSelectionMode(QAbstractItemView::SingleSelection);
    list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    for (const Form::Line& line : row.lines) {
        auto* item = new QListWidgetItem(fromUtf8(line.text), list);
        if (line.heading) {
            item->setFlags(Qt::ItemIsEnabled);
            QFont font = item->font();
            font.setBold(true);
            item->setFont(font);
            item->setData(Qt::AccessibleDescriptionRole, QStringLiteral("heading"));
        }
    }
    int height = 0;
    for (int line = 0; line < std::min(list->count(), visibleLines); ++line) {
        height += list->sizeHintForRow(line);
    }
    list->setFixedHeight(height + 2 * list->frameWidth());
    const int scrollBar =
        list->count() > visibleLines ? list->verticalScrollBar()->sizeHint().width() : 0;
    list->setMinimumWidth(list->sizeHintForColumn(0) + 2 * list->frameWidth() + scrollBar);
    return list;
}

} // namespace

FormPanel* FormPanel::ask(const std::vector<Tokens::Field>& fields, Done done, QWidget* parent) {
    auto* panel = new FormPanel(fields, std::move(done), parent);
    present(*panel);
    return panel;
}

FormPanel::FormPanel(const std::vector<Tokens::Field>& fields, Done done, QWidget* parent)
    : QWidget(parent, Qt::Tool | Qt::WindowStaysOnTopHint), form_(fields), done_(std::move(done)) {
    setWindowTitle(QStringLiteral("Fill in the snippet"));
    setAccessibleName(windowTitle());
    build();
    render();
}

FormPanel::~FormPanel() {
    if (!finished_ && done_) {
        done_(std::nullopt);
    }
}

void FormPanel::build() {
    auto* layout = new QVBoxLayout(this);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    auto* rows = new QFormLayout;
    rows->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    const int textWidth = fontMetrics().averageCharWidth() * 32;
    for (std::size_t index = 0; index < form_.rows().size(); ++index) {
        const Form::Row& row = form_.rows()[index];
        const QString name = fromUtf8(row.name);
        QWidget* input = nullptr;
        if (row.kind == Form::Row::Kind::text) {
            auto* edit = new QLineEdit(this);
            edit->setMinimumWidth(textWidth);
            connect(edit, &QLineEdit::textEdited, this, [this, index](const QString& text) {
                form_.setText(index, text.toStdString());
                render();
            });
            input = edit;
        } else {
            auto* list = choiceList(row, this);
            list->setMinimumWidth(std::max(list->minimumWidth(), textWidth));
            // Clicks arrive as a change of the list's current line; render() puts a heading
            // the Form refused back to the Form's pick.
            connect(list, &QListWidget::currentRowChanged, this, [this, index](int line) {
                if (rendering_ || line < 0) {
                    return;
                }
                form_.setFocus(index);
                form_.select(index, static_cast<std::size_t>(line));
                render();
            });
            input = list;
        }
        input->setAccessibleName(name);
        input->installEventFilter(this);
        auto* label = new QLabel(this);
        label->setTextFormat(Qt::PlainText);
        label->setText(name);
        label->setAccessibleName(name);
        label->setBuddy(input);
        rows->addRow(label, input);
        inputs_.push_back(input);
    }
    layout->addLayout(rows);

    auto* rule = new QFrame(this);
    rule->setFrameShape(QFrame::HLine);
    rule->setFrameShadow(QFrame::Sunken);
    rule->setAccessibleName(QStringLiteral("separator"));
    layout->addWidget(rule);

    auto* footer = new QHBoxLayout;
    footer->setSpacing(fontMetrics().averageCharWidth() * 3);
    footer->addStretch();
    QFont hintFont = font();
    hintFont.setPointSizeF(hintFont.pointSizeF() * 0.9);
    for (const Form::Hint& hint : form_.hints()) {
        auto* label = new QLabel(this);
        label->setTextFormat(Qt::RichText);
        label->setText(QStringLiteral("<b>%1</b>&nbsp;%2")
                           .arg(keyName(hint.key), fromUtf8(hint.label).toHtmlEscaped()));
        label->setAccessibleName(keyName(hint.key) + QStringLiteral(": ") + fromUtf8(hint.label));
        label->setFont(hintFont);
        label->setForegroundRole(QPalette::PlaceholderText);
        footer->addWidget(label);
    }
    layout->addLayout(footer);
    installEventFilter(this);
}

void FormPanel::render() {
    rendering_ = true;
    for (std::size_t index = 0; index < inputs_.size(); ++index) {
        if (auto* edit = qobject_cast<QLineEdit*>(inputs_[index])) {
            const QString text = fromUtf8(form_.text(index));
            // Rewriting an unchanged text would move the caret to its end.
            if (edit->text() != text) {
                edit->setText(text);
            }
        } else if (auto* list = qobject_cast<QListWidget*>(inputs_[index])) {
            const std::optional<std::size_t> line = form_.selected(index);
            list->setCurrentRow(line ? static_cast<int>(*line) : -1);
            if (line) {
                list->scrollToItem(list->currentItem());
            }
        }
    }
    if (!inputs_.empty() && !inputs_[form_.focus()]->hasFocus()) {
        inputs_[form_.focus()]->setFocus(Qt::TabFocusReason);
    }
    rendering_ = false;
}

bool FormPanel::eventFilter(QObject* watched, QEvent* event) {
    switch (event->type()) {
    case QEvent::ShortcutOverride: {
        // The form's keys are never shortcuts while it is open.
        if (formKey(*static_cast<QKeyEvent*>(event))) {
            event->accept();
            return true;
        }
        return false;
    }
    case QEvent::KeyPress: {
        const auto* key = static_cast<QKeyEvent*>(event);
        if (const std::optional<Form::Key> pressed = formKey(*key)) {
            press(*pressed);
            return true;
        }
        // A list's own keys (type-ahead, Home, Page Down) would move its pick behind the Form's
        // back, and Shift+Tab would move the focus the same way.
        return key->key() == Qt::Key_Backtab || qobject_cast<QListWidget*>(watched) != nullptr;
    }
    case QEvent::FocusIn: {
        const auto input = std::ranges::find(inputs_, watched);
        if (!rendering_ && input != inputs_.end()) {
            form_.setFocus(static_cast<std::size_t>(input - inputs_.begin()));
            render();
        }
        return false;
    }
    default:
        return false;
    }
}

void FormPanel::closeEvent(QCloseEvent* event) {
    finish(std::nullopt);
    event->accept();
}

void FormPanel::press(Form::Key key) {
    switch (form_.press(key)) {
    case Form::Outcome::done:
        finish(form_.values());
        break;
    case Form::Outcome::cancelled:
        finish(std::nullopt);
        break;
    case Form::Outcome::editing:
        render();
        break;
    }
}

void FormPanel::finish(std::optional<Expansion::Values> values) {
    if (finished_) {
        return;
    }
    finished_ = true;
    // Hidden before the answer goes out, so the application it is for has the keyboard back.
    hide();
    deleteLater();
    Done done = std::move(done_);
    done_ = nullptr;
    done(std::move(values));
}

} // namespace quillet
