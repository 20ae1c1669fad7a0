#include "shell/OverviewPage.h"

#include "shell/Labels.h"
#include "shell/QtText.h"

#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

namespace quillet {
namespace {

constexpr int idRole = Qt::UserRole;

} // namespace

OverviewPage::OverviewPage(Overview& overview, Coordinator* coordinator,
                           std::function<void(const Uuid&)> open, QWidget* parent)
    : QWidget(parent), overview_(overview), coordinator_(coordinator), open_(std::move(open)) {
    setAccessibleName(QStringLiteral("Overview"));
    auto* page = new QVBoxLayout(this);

    auto* savedBox = new QGroupBox(fromUtf8(Overview::savedTitle()), this);
    savedBox->setAccessibleName(savedBox->title());
    auto* savedLayout = new QVBoxLayout(savedBox);
    saved_ = new QLabel(savedBox);
    saved_->setAccessibleName(QStringLiteral("Time saved"));
    QFont large = saved_->font();
    large.setPointSizeF(large.pointSizeF() * 2);
    large.setBold(true);
    saved_->setFont(large);
    savedDetail_ = new QLabel(savedBox);
    savedDetail_->setAccessibleName(QStringLiteral("Characters not typed"));
    savedDetail_->setWordWrap(true);
    savedLayout->addWidget(saved_);
    savedLayout->addWidget(savedDetail_);
    page->addWidget(savedBox);

    suggestion_ = new QGroupBox(QStringLiteral("You keep typing this"), this);
    suggestion_->setAccessibleName(suggestion_->title());
    auto* suggestionLayout = new QVBoxLayout(suggestion_);
    phrase_ = new QLabel(suggestion_);
    phrase_->setWordWrap(true);
    phrase_->setAccessibleName(QStringLiteral("Phrase"));
    suggestionLayout->addWidget(phrase_);
    auto* answers = new QHBoxLayout;
    const std::pair<QString, int> buttons[] = {{QStringLiteral("&Make a Snippet"), 0},
                                               {QStringLiteral("&Edit\u2026"), 1},
                                               {QStringLiteral("&Not Now"), 2}};
    for (const auto& [text, which] : buttons) {
        auto* button = new QPushButton(text, suggestion_);
        button->setAccessibleName(QString(text).remove('&').remove(QChar(0x2026)));
        connect(button, &QPushButton::clicked, this, [this, which = which] {
            if (which == 2) {
                coordinator_->dismissSuggestion();
                refresh();
            } else {
                accept(which == 1);
            }
        });
        answers->addWidget(button);
    }
    answers->addStretch();
    suggestionLayout->addLayout(answers);
    page->addWidget(suggestion_);

    auto* lists = new QHBoxLayout;
    for (int i = 0; i < 3; ++i) {
        boxes_[i] = new QGroupBox(this);
        auto* layout = new QVBoxLayout(boxes_[i]);
        lists_[i] = new QListWidget(boxes_[i]);
        empty_[i] = new QLabel(boxes_[i]);
        empty_[i]->setWordWrap(true);
        empty_[i]->setForegroundRole(QPalette::PlaceholderText);
        layout->addWidget(lists_[i]);
        layout->addWidget(empty_[i]);
        lists->addWidget(boxes_[i]);
        connect(lists_[i], &QListWidget::itemActivated, this, [this](QListWidgetItem* item) {
            if (auto id = Uuid::parse(item->data(idRole).toString().toStdString()); id && open_) {
                open_(*id);
            }
        });
    }
    page->addLayout(lists, 1);
    refresh();
}

void OverviewPage::refresh() {
    const std::optional<std::string> saved = overview_.saved();
    saved_->setText(saved ? fromUtf8(*saved) : QStringLiteral("0s"));
    savedDetail_->setText(fromUtf8(overview_.savedDetail()));
    const Overview::List lists[] = {overview_.mostUsed(), overview_.recent(), overview_.stale()};
    for (int i = 0; i < 3; ++i) {
        const Overview::List& list = lists[i];
        boxes_[i]->setTitle(fromUtf8(list.title));
        boxes_[i]->setAccessibleName(boxes_[i]->title());
        lists_[i]->setAccessibleName(boxes_[i]->title());
        lists_[i]->clear();
        for (const Overview::Line& line : list.lines) {
            auto* item = new QListWidgetItem(
                fromUtf8(line.abbreviation) + '\n' + oneLine(line.detail, 50), lists_[i]);
            item->setData(idRole, fromUtf8(line.id.text()));
        }
        lists_[i]->setVisible(!list.lines.empty());
        QString empty = fromUtf8(list.emptyTitle);
        if (!list.emptyDetail.empty()) {
            empty += '\n' + fromUtf8(list.emptyDetail);
        }
        empty_[i]->setText(empty);
        empty_[i]->setVisible(list.lines.empty());
    }
    static const std::optional<Repeats::Suggestion> none;
    const auto& suggestion = coordinator_ != nullptr ? coordinator_->suggestion() : none;
    suggestion_->setVisible(suggestion.has_value());
    if (suggestion) {
        phrase_->setText(QStringLiteral("\u201C%1\u201D, %2 times. As a snippet: %3")
                             .arg(oneLine(suggestion->expansion, 80))
                             .arg(suggestion->typed)
                             .arg(fromUtf8(suggestion->abbreviation)));
    }
}

void OverviewPage::accept(bool edit) {
    std::optional<std::string> added = coordinator_->acceptSuggestion();
    refresh();
    if (!added || !edit || !open_) {
        return;
    }
    for (const Snippet& snippet : coordinator_->store().snippets()) {
        if (snippet.abbreviation == *added) {
            open_(snippet.id);
        }
    }
}

} // namespace quillet
