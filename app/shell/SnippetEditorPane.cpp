#include "shell/SnippetEditorPane.h"

#include "render/Tokens.h"
#include "shell/Labels.h"
#include "shell/QtText.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPixmap>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalBlocker>
#include <QToolButton>
#include <QVBoxLayout>

namespace quillet {
namespace {

// How long typing may pause before what was typed is saved.
constexpr int savePauseMs = 400;
// The longer side of the picture shown in the editor, in pixels.
constexpr int pictureSize = 120;

std::string utf8(const QString& text) {
    return text.toStdString();
}

std::vector<std::string> appList(const QString& written) {
    std::vector<std::string> out;
    for (const QString& part : written.split(',', Qt::SkipEmptyParts)) {
        if (QString app = part.trimmed(); !app.isEmpty()) {
            out.push_back(utf8(app));
        }
    }
    return out;
}

QString joined(const std::vector<std::string>& list) {
    QStringList parts;
    for (const std::string& item : list) {
        parts << fromUtf8(item);
    }
    return parts.join(QStringLiteral(", "));
}

template <typename Value>
void fill(QComboBox* box, const std::vector<LibraryEditor::Choice<Value>>& choices) {
    for (const auto& choice : choices) {
        box->addItem(fromUtf8(choice.label));
    }
}

template <typename Value>
int indexOf(const std::vector<LibraryEditor::Choice<Value>>& choices, const Value& value) {
    for (std::size_t i = 0; i < choices.size(); ++i) {
        if (choices[i].value == value) {
            return static_cast<int>(i);
        }
    }
    return 0;
}

// Asks for a choice's name, options (one a line, "#" for a heading) and order; false when
// cancelled.
bool askChoice(QWidget* parent, Tokens::Field& field) {
    QDialog dialog(parent);
    dialog.setWindowTitle(field.name.empty() ? QStringLiteral("Add a Choice")
                                             : QStringLiteral("Edit Choice"));
    auto* layout = new QFormLayout(&dialog);
    auto* name = new QLineEdit(fromUtf8(field.name), &dialog);
    name->setAccessibleName(QStringLiteral("Choice name"));
    auto* options = new QPlainTextEdit(&dialog);
    options->setAccessibleName(QStringLiteral("Options, one a line"));
    options->setPlaceholderText(QStringLiteral("One option a line; start a line with # for a "
                                               "heading"));
    QStringList lines;
    for (const std::string& option : field.options) {
        lines << fromUtf8(option);
    }
    options->setPlainText(lines.join('\n'));
    options->setTabChangesFocus(true);
    auto* sorted = new QCheckBox(QStringLiteral("Sort A–Z under each heading"), &dialog);
    sorted->setAccessibleName(sorted->text());
    sorted->setChecked(field.sorted);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    layout->addRow(QStringLiteral("&Name"), name);
    layout->addRow(QStringLiteral("&Options"), options);
    layout->addRow(sorted);
    layout->addRow(buttons);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    if (dialog.exec() != QDialog::Accepted || name->text().trimmed().isEmpty()) {
        return false;
    }
    // The token's own separators cannot be part of a name or an option.
    auto clean = [](QString text) {
        return utf8(text.remove('|').remove('}').remove('=').trimmed());
    };
    field.name = clean(name->text());
    field.options.clear();
    for (const QString& line : options->toPlainText().split('\n')) {
        if (std::string option = clean(line); !option.empty()) {
            field.options.push_back(std::move(option));
        }
    }
    field.sorted = sorted->isChecked();
    return !field.options.empty();
}

} // namespace

SnippetEditorPane::SnippetEditorPane(LibraryEditor& editor,
                                     std::function<std::filesystem::path()> choosePicture,
                                     QWidget* parent)
    : QWidget(parent), editor_(editor), choosePictureFile_(std::move(choosePicture)) {
    setAccessibleName(QStringLiteral("Snippet editor"));
    if (!choosePictureFile_) {
        choosePictureFile_ = [this] {
            return std::filesystem::path(utf8(QFileDialog::getOpenFileName(
                this, QStringLiteral("Choose a Picture"), QString(),
                QStringLiteral("Pictures (*.png *.jpg *.jpeg *.gif *.bmp *.webp *.tiff)"))));
        };
    }
    typing_.setSingleShot(true);
    typing_.setInterval(savePauseMs);
    connect(&typing_, &QTimer::timeout, this, [this] { flush(); });

    auto* outer = new QVBoxLayout(this);
    empty_ = new QLabel(QStringLiteral("Choose a snippet, or make a new one with Ctrl+N."), this);
    empty_->setAlignment(Qt::AlignCenter);
    empty_->setForegroundRole(QPalette::PlaceholderText);
    outer->addWidget(empty_);
    form_ = new QWidget(this);
    outer->addWidget(form_);
    auto* form = new QFormLayout(form_);
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    auto named = [](QWidget* widget, const QString& name) {
        widget->setAccessibleName(name);
        return widget;
    };

    abbreviation_ = new QLineEdit(form_);
    named(abbreviation_, QStringLiteral("Abbreviation"));
    abbreviation_->setPlaceholderText(QStringLiteral("What you type, such as ;sig"));
    form->addRow(QStringLiteral("&Abbreviation"), abbreviation_);
    warning_ = problemLabel(form_);
    warning_->setAccessibleName(QStringLiteral("Abbreviation warning"));
    form->addRow(QString(), warning_);
    pattern_ = new QCheckBox(QStringLiteral("The abbreviation is a regular expression"), form_);
    named(pattern_, pattern_->text());
    form->addRow(QString(), pattern_);

    kind_ = new QComboBox(form_);
    named(kind_, QStringLiteral("Kind"));
    fill(kind_, LibraryEditor::kinds());
    form->addRow(QStringLiteral("&Kind"), kind_);
    notice_ = problemLabel(form_);
    notice_->setAccessibleName(QStringLiteral("Kind notice"));
    form->addRow(QString(), notice_);

    caption_ = new QLabel(form_);
    caption_->setAccessibleName(QStringLiteral("Content caption"));
    content_ = new QPlainTextEdit(form_);
    named(content_, QStringLiteral("Content"));
    content_->setTabChangesFocus(true);
    content_->setMinimumHeight(140);
    auto* contentBox = new QVBoxLayout;
    contentBox->addWidget(caption_);
    contentBox->addWidget(content_);
    auto* tools = new QHBoxLayout;
    auto* insertButton = new QToolButton(form_);
    insertButton->setText(QStringLiteral("&Insert"));
    named(insertButton, QStringLiteral("Insert a token"));
    insertButton->setPopupMode(QToolButton::InstantPopup);
    auto* menu = new QMenu(insertButton);
    const std::vector<std::pair<QString, QString>> tokens = {
        {QStringLiteral("Today's date"), QStringLiteral("{date}")},
        {QStringLiteral("The time"), QStringLiteral("{time}")},
        {QStringLiteral("The date in two weeks"), QStringLiteral("{date+14d}")},
        {QStringLiteral("A date in words (next friday)"), QStringLiteral("{date:next friday}")},
        {QStringLiteral("The clipboard"), QStringLiteral("{clipboard}")},
        {QStringLiteral("The one copied before"), QStringLiteral("{clipboard:1}")},
        {QStringLiteral("Where the caret ends up"), QStringLiteral("{cursor}")},
        {QStringLiteral("A key press (Enter)"), QStringLiteral("{key:enter}")},
        {QStringLiteral("A fill-in field"), QStringLiteral("{field:Name}")},
    };
    for (const auto& [label, token] : tokens) {
        QString text = token;
        connect(menu->addAction(label), &QAction::triggered, this, [this, text] { insert(text); });
    }
    connect(menu->addAction(QStringLiteral("A choice…")), &QAction::triggered, this,
            [this] { editChoice(); });
    QMenu* includes = menu->addMenu(QStringLiteral("Another snippet"));
    connect(includes, &QMenu::aboutToShow, this, [this, includes] {
        includes->clear();
        for (const auto& row : editor_.rows("", LibraryEditor::Order::alphabetical, false)) {
            if (row.abbreviation.empty() || (id_ && row.id == *id_)) {
                continue;
            }
            QString token = QStringLiteral("{snippet:") + fromUtf8(row.abbreviation) + '}';
            connect(includes->addAction(fromUtf8(row.abbreviation)), &QAction::triggered, this,
                    [this, token] { insert(token); });
        }
    });
    insertButton->setMenu(menu);
    tools->addWidget(insertButton);
    auto* choiceButton = new QPushButton(QStringLiteral("Edit &Choice…"), form_);
    named(choiceButton, QStringLiteral("Edit the choice at the caret"));
    connect(choiceButton, &QPushButton::clicked, this, [this] { editChoice(); });
    tools->addWidget(choiceButton);
    showLocked_ = new QPushButton(QStringLiteral("&Show Locked Text…"), form_);
    named(showLocked_, showLocked_->text().remove('&'));
    connect(showLocked_, &QPushButton::clicked, this, [this] { showLockedText(); });
    tools->addWidget(showLocked_);
    tools->addStretch();
    contentBox->addLayout(tools);
    form->addRow(QStringLiteral("Content"), contentBox);

    markdown_ = new QCheckBox(QStringLiteral("Paste as formatted text (Markdown)"), form_);
    named(markdown_, markdown_->text());
    form->addRow(QString(), markdown_);

    auto* pictureRow = new QHBoxLayout;
    picture_ = new QLabel(form_);
    picture_->setAccessibleName(QStringLiteral("Picture"));
    choosePicture_ = new QPushButton(QStringLiteral("Choose &Picture…"), form_);
    named(choosePicture_, QStringLiteral("Choose a picture"));
    removePicture_ = new QPushButton(QStringLiteral("Remove"), form_);
    named(removePicture_, QStringLiteral("Remove the picture"));
    pictureRow->addWidget(picture_, 1);
    pictureRow->addWidget(choosePicture_);
    pictureRow->addWidget(removePicture_);
    form->addRow(QStringLiteral("Picture"), pictureRow);

    trigger_ = new QComboBox(form_);
    named(trigger_, QStringLiteral("Expands"));
    fill(trigger_, LibraryEditor::triggers());
    form->addRow(QStringLiteral("&Expands"), trigger_);

    scope_ = new QComboBox(form_);
    named(scope_, QStringLiteral("Where"));
    fill(scope_, LibraryEditor::scopes());
    form->addRow(QStringLiteral("&Where"), scope_);
    apps_ = new QLineEdit(form_);
    named(apps_, QStringLiteral("Applications"));
    apps_->setPlaceholderText(QStringLiteral("Window classes, such as firefox, gedit"));
    addApp_ = new QToolButton(form_);
    addApp_->setText(QStringLiteral("Add &Open Application"));
    named(addApp_, QStringLiteral("Add an application that has a window open"));
    addApp_->setPopupMode(QToolButton::InstantPopup);
    auto* openApps = new QMenu(addApp_);
    addApp_->setMenu(openApps);
    // Listed when the menu opens: the windows open then, not when the editor was built.
    connect(openApps, &QMenu::aboutToShow, this, [this, openApps] {
        openApps->clear();
        const std::vector<std::string> ids =
            runningApps_ ? runningApps_() : std::vector<std::string>();
        for (const std::string& id : ids) {
            openApps->addAction(fromUtf8(id), this, [this, id] {
                if (id_) {
                    report(editor_.addApplication(*id_, id));
                    load();
                    if (onSaved_) {
                        onSaved_(); // the list's scope badge
                    }
                }
            });
        }
        if (ids.empty()) {
            openApps->addAction(QStringLiteral("No windows are open"))->setEnabled(false);
        }
    });
    auto* appsRow = new QHBoxLayout;
    appsRow->addWidget(apps_, 1);
    appsRow->addWidget(addApp_);
    auto* appsLabel = new QLabel(QStringLiteral("A&pplications"), form_);
    appsLabel->setBuddy(apps_);
    form->addRow(appsLabel, appsRow);
    sites_ = new QLineEdit(form_);
    named(sites_, QStringLiteral("Websites"));
    sites_->setPlaceholderText(QStringLiteral("Sites, such as mail.example.com"));
    form->addRow(QStringLiteral("Web&sites"), sites_);
    sitesProblem_ = problemLabel(form_);
    sitesProblem_->setAccessibleName(QStringLiteral("Websites problem"));
    form->addRow(QString(), sitesProblem_);

    locked_ = new QCheckBox(QStringLiteral("Loc&ked"), form_);
    named(locked_, QStringLiteral("Locked"));
    form->addRow(QString(), locked_);
    form->addRow(QString(), noteLabel("The text is kept in the secret store, and pasting it asks "
                                      "you to confirm it's you.",
                                      form_));

    preview_ = new QLabel(form_);
    preview_->setAccessibleName(QStringLiteral("Preview"));
    preview_->setWordWrap(true);
    preview_->setTextFormat(Qt::PlainText);
    preview_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    preview_->setFrameShape(QFrame::StyledPanel);
    preview_->setMargin(6);
    // The whole row's width, so wrapped (and styled) text gets the height it needs.
    preview_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Minimum);
    form->addRow(QStringLiteral("Preview"), preview_);
    problem_ = problemLabel(this);
    outer->addWidget(problem_);
    outer->addStretch();

    connect(abbreviation_, &QLineEdit::textEdited, this, [this] {
        typed_ = true;
        typing_.start();
        if (std::optional<Snippet> snippet = editor_.find(id_.value_or(Uuid{}))) {
            snippet->abbreviation = utf8(abbreviation_->text());
            showNotes(*snippet);
        }
    });
    // Return in the abbreviation goes on to what it becomes.
    connect(abbreviation_, &QLineEdit::returnPressed, this, [this] {
        flush();
        content_->setFocus(Qt::OtherFocusReason);
    });
    connect(content_, &QPlainTextEdit::textChanged, this, [this] {
        if (id_) {
            typed_ = true;
            typing_.start();
        }
    });
    connect(pattern_, &QCheckBox::toggled, this,
            [this](bool on) { change([on](Snippet& s) { s.regex = on; }); });
    connect(markdown_, &QCheckBox::toggled, this,
            [this](bool on) { change([on](Snippet& s) { s.markdown = on; }); });
    connect(kind_, &QComboBox::currentIndexChanged, this, [this](int index) {
        change([index](Snippet& s) { s.kind = LibraryEditor::kinds()[std::size_t(index)].value; });
    });
    connect(trigger_, &QComboBox::currentIndexChanged, this, [this](int index) {
        change([index](Snippet& s) {
            s.trigger = LibraryEditor::triggers()[std::size_t(index)].value;
        });
    });
    connect(scope_, &QComboBox::currentIndexChanged, this, [this](int index) {
        change(
            [index](Snippet& s) { s.scope = LibraryEditor::scopes()[std::size_t(index)].value; });
    });
    connect(apps_, &QLineEdit::editingFinished, this,
            [this] { change([this](Snippet& s) { s.apps = appList(apps_->text()); }); });
    connect(sites_, &QLineEdit::editingFinished, this, [this] {
        std::string wrong;
        std::vector<std::string> hosts = LibraryEditor::sites(utf8(sites_->text()), wrong);
        change([&hosts](Snippet& s) { s.sites = std::move(hosts); });
        if (!wrong.empty()) { // what was typed stays for the user to mend
            showProblem(sitesProblem_, wrong);
        } else if (std::optional<Snippet> snippet = editor_.find(id_.value_or(Uuid{}))) {
            sites_->setText(joined(snippet->sites));
        }
    });
    connect(locked_, &QCheckBox::toggled, this, [this](bool on) {
        flush();
        if (id_) {
            std::optional<std::string> problem = editor_.setLocked(*id_, on);
            load();
            report(problem);
            if (onSaved_) {
                onSaved_();
            }
        }
    });
    connect(choosePicture_, &QPushButton::clicked, this, [this] {
        std::filesystem::path file = choosePictureFile_();
        if (!file.empty() && id_) {
            report(editor_.setPicture(*id_, file));
            load();
        }
    });
    connect(removePicture_, &QPushButton::clicked, this, [this] {
        if (id_) {
            report(editor_.setPicture(*id_, {}));
            load();
        }
    });
    show(std::nullopt);
}

void SnippetEditorPane::show(const std::optional<Uuid>& id) {
    flush();
    id_ = id;
    lockedShown_ = false;
    showProblem(problem_, std::nullopt);
    showProblem(sitesProblem_, std::nullopt);
    {
        const QSignalBlocker blocker(content_);
        content_->clear();
    }
    load();
}

void SnippetEditorPane::reload() {
    flush();
    load();
}

void SnippetEditorPane::focusAbbreviation() {
    abbreviation_->setFocus(Qt::OtherFocusReason);
    abbreviation_->selectAll();
}

void SnippetEditorPane::load() {
    std::optional<Snippet> snippet = id_ ? editor_.find(*id_) : std::nullopt;
    form_->setVisible(snippet.has_value());
    empty_->setVisible(!snippet);
    if (!snippet) {
        id_.reset();
        return;
    }
    const QSignalBlocker blockers[] = {QSignalBlocker(abbreviation_), QSignalBlocker(content_),
                                       QSignalBlocker(pattern_),      QSignalBlocker(markdown_),
                                       QSignalBlocker(kind_),         QSignalBlocker(trigger_),
                                       QSignalBlocker(scope_),        QSignalBlocker(locked_)};
    // Only what differs is set: a reload after the library changed elsewhere must not move the
    // caret of a field being typed in.
    auto set = [](auto* field, const QString& text) {
        if (field->text() != text) {
            field->setText(text);
        }
    };
    set(abbreviation_, fromUtf8(snippet->abbreviation));
    pattern_->setChecked(snippet->regex);
    kind_->setCurrentIndex(indexOf(LibraryEditor::kinds(), snippet->kind));
    trigger_->setCurrentIndex(indexOf(LibraryEditor::triggers(), snippet->trigger));
    scope_->setCurrentIndex(indexOf(LibraryEditor::scopes(), snippet->scope));
    markdown_->setChecked(snippet->markdown);
    locked_->setChecked(snippet->locked);
    if (!apps_->hasFocus()) {
        set(apps_, joined(snippet->apps));
    }
    if (!sites_->hasFocus()) {
        set(sites_, joined(snippet->sites));
    }
    if (const QString text = fromUtf8(snippet->content);
        !lockedShown_ && content_->toPlainText() != text) {
        content_->setPlainText(text);
    }
    const bool hidden = snippet->locked && !lockedShown_;
    content_->setReadOnly(hidden);
    content_->setPlaceholderText(hidden ? QStringLiteral("The text is locked.")
                                        : QStringLiteral("What the abbreviation becomes"));
    showLocked_->setVisible(hidden);
    showPicture(*snippet);
    removePicture_->setEnabled(snippet->image.has_value());
    showNotes(*snippet);
}

void SnippetEditorPane::showNotes(const Snippet& snippet) {
    showProblem(warning_, editor_.abbreviationWarning(snippet));
    showProblem(notice_, editor_.kindNotice(snippet.kind));
    std::optional<std::string> caption = LibraryEditor::kindCaption(snippet.kind);
    caption_->setText(caption ? fromUtf8(*caption) : QString());
    caption_->setVisible(caption.has_value());
    const bool previewed = snippet.kind == Snippet::Kind::text && !snippet.locked;
    preview_->setVisible(previewed);
    if (previewed) {
        // A Markdown snippet shows as it pastes, styled.
        if (std::optional<std::string> styled = editor_.styledPreview(snippet)) {
            preview_->setTextFormat(Qt::RichText);
            preview_->setText(fromUtf8(*styled));
        } else {
            const std::string text = editor_.preview(snippet);
            preview_->setTextFormat(Qt::PlainText);
            preview_->setText(text.empty() ? QStringLiteral(" ") : fromUtf8(text));
        }
    }
}

void SnippetEditorPane::showPicture(const Snippet& snippet) {
    const std::optional<std::filesystem::path> file = editor_.picture(snippet);
    const QString name = snippet.image ? fromUtf8(*snippet.image) : QString();
    QPixmap shown;
    if (file && shown.load(QString::fromStdString(file->string()))) {
        picture_->setPixmap(
            shown.scaled(pictureSize, pictureSize, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    } else {
        picture_->setText(!file ? QStringLiteral("None")
                                : name + QStringLiteral(" (can't be read)"));
    }
    picture_->setAccessibleDescription(name);
    picture_->setToolTip(name);
}

void SnippetEditorPane::change(const std::function<void(Snippet&)>& edit) {
    if (!id_) {
        return;
    }
    std::optional<Snippet> snippet = editor_.find(*id_);
    if (!snippet) {
        report("This snippet isn't in the library any more.");
        return;
    }
    edit(*snippet);
    report(editor_.update(*snippet));
    showNotes(*snippet);
    if (onSaved_) {
        onSaved_();
    }
}

void SnippetEditorPane::flush() {
    typing_.stop();
    if (!typed_ || !id_) {
        typed_ = false;
        return;
    }
    typed_ = false;
    const std::string abbreviation = utf8(abbreviation_->text());
    const std::string content = utf8(content_->toPlainText());
    if (lockedShown_) {
        report(editor_.setLockedText(*id_, content));
        change([&](Snippet& s) { s.abbreviation = abbreviation; });
        return;
    }
    change([&](Snippet& s) {
        s.abbreviation = abbreviation;
        if (!s.locked) {
            s.content = content;
        }
    });
}

void SnippetEditorPane::report(const std::optional<std::string>& problem) {
    showProblem(problem_, problem);
}

void SnippetEditorPane::insert(const QString& token) {
    if (content_->isReadOnly()) {
        return;
    }
    content_->insertPlainText(token);
    content_->setFocus(Qt::OtherFocusReason);
}

void SnippetEditorPane::editChoice() {
    if (content_->isReadOnly()) {
        return;
    }
    // The choice whose token holds the caret, if any: that one is renamed or re-ordered.
    const QString text = content_->toPlainText();
    const int caret = content_->textCursor().position();
    const int start = text.lastIndexOf(QStringLiteral("{choice:"), caret > 0 ? caret - 1 : 0);
    const int end = start >= 0 ? text.indexOf('}', start) : -1;
    Tokens::Field field;
    std::string oldName;
    if (start >= 0 && end >= caret - 1 && caret > start) {
        std::vector<Tokens::Field> found = Tokens::fields(utf8(text.mid(start, end - start + 1)));
        if (!found.empty() && !found[0].options.empty()) {
            field = found[0];
            oldName = field.name;
        }
    }
    if (!askChoice(this, field)) {
        return;
    }
    if (oldName.empty()) {
        insert(fromUtf8(Tokens::choiceToken(field.name, field.options, field.sorted)));
        return;
    }
    content_->setPlainText(fromUtf8(
        Tokens::renameChoice(utf8(text), oldName, field.name, field.options, field.sorted)));
    flush();
}

void SnippetEditorPane::showLockedText() {
    if (!id_) {
        return;
    }
    std::string error;
    std::optional<std::string> text = editor_.lockedText(*id_, error);
    if (!text) {
        report(error);
        return;
    }
    lockedShown_ = true;
    {
        const QSignalBlocker blocker(content_);
        content_->setPlainText(fromUtf8(*text));
    }
    load();
    content_->setFocus(Qt::OtherFocusReason);
}

} // namespace quillet
