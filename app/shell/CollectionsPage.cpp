#include "shell/CollectionsPage.h"

#include "shell/Labels.h"
#include "shell/QtText.h"
#include "shell/SharedFoldersBox.h"

#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace quillet {

CollectionsPage::CollectionsPage(LibraryEditor& library, Settings& settings,
                                 std::function<std::string()> chooseFolder,
                                 std::function<void()> onAdded, QWidget* parent)
    : QWidget(parent), library_(library), onAdded_(std::move(onAdded)) {
    setAccessibleName(QStringLiteral("Collections"));
    auto* page = new QVBoxLayout(this);
    auto* starters = new QGroupBox(QStringLiteral("Starter sets"), this);
    starters->setAccessibleName(starters->title());
    auto* grid = new QGridLayout(starters);
    int row = 0;
    for (const StarterSet& set : starterSets()) {
        auto* name = new QLabel(fromUtf8(set.name), starters);
        QFont bold = name->font();
        bold.setBold(true);
        name->setFont(bold);
        QStringList abbreviations;
        for (const StarterSnippet& entry : set.snippets) {
            abbreviations << fromUtf8(entry.abbreviation);
        }
        auto* list = new QLabel(abbreviations.join(QStringLiteral("  ")), starters);
        list->setForegroundRole(QPalette::PlaceholderText);
        auto* add = new QPushButton(QStringLiteral("Add"), starters);
        add->setAccessibleName(QStringLiteral("Add the ") + fromUtf8(set.name) +
                               QStringLiteral(" set"));
        connect(add, &QPushButton::clicked, this, [this, &set] {
            result_->setText(fromUtf8(library_.addStarterSet(set)));
            result_->show();
            refresh();
            if (onAdded_) {
                onAdded_();
            }
        });
        grid->addWidget(name, row, 0);
        grid->addWidget(list, row, 1);
        grid->addWidget(add, row, 2);
        add_.push_back(add);
        ++row;
    }
    grid->setColumnStretch(1, 1);
    result_ = new QLabel(starters);
    result_->setAccessibleName(QStringLiteral("Added"));
    result_->setWordWrap(true);
    result_->hide();
    grid->addWidget(result_, row, 0, 1, 3);
    page->addWidget(starters);
    folders_ = new SharedFoldersBox(settings, std::move(chooseFolder), true, this);
    page->addWidget(folders_);
    page->addStretch();
    refresh();
}

void CollectionsPage::refresh() {
    std::size_t i = 0;
    for (const StarterSet& set : starterSets()) {
        const bool added = library_.hasStarterSet(set);
        add_[i]->setText(added ? QStringLiteral("Added") : QStringLiteral("Add"));
        add_[i]->setEnabled(!added);
        ++i;
    }
    folders_->refresh();
}

} // namespace quillet
