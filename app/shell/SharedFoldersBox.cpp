#include "shell/SharedFoldersBox.h"

#include "shell/Labels.h"
#include "shell/QtText.h"

#include <QFileDialog>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

namespace quillet {

SharedFoldersBox::SharedFoldersBox(Settings& settings, std::function<std::string()> chooseFolder,
                                   bool listSnippets, QWidget* parent)
    : QGroupBox(QStringLiteral("Shared folders"), parent), settings_(settings),
      chooseFolder_(std::move(chooseFolder)), listSnippets_(listSnippets) {
    setAccessibleName(title());
    auto* layout = new QVBoxLayout(this);
    folders_ = new QVBoxLayout;
    layout->addLayout(folders_);
    auto* add = new QPushButton(QStringLiteral("Add a &Folder\u2026"), this);
    add->setAccessibleName(QStringLiteral("Add a shared folder"));
    connect(add, &QPushButton::clicked, this, &SharedFoldersBox::addFolder);
    layout->addWidget(add, 0, Qt::AlignLeft);
    problem_ = problemLabel(this);
    layout->addWidget(problem_);
    refresh();
}

void SharedFoldersBox::refresh() {
    std::vector<std::string> folders = settings_.sharedFolders();
    std::vector<std::vector<std::string>> lines;
    for (const std::string& folder : folders) {
        lines.push_back(settings_.sharedFolderLines(folder));
        if (listSnippets_) {
            for (const auto& [abbreviation, first] : settings_.sharedSnippets(folder)) {
                lines.back().push_back(abbreviation + '\t' + first);
            }
        }
    }
    if (folders == shownFolders_ && lines == shownLines_) {
        return; // rebuilding would move the keyboard focus off a button for nothing
    }
    // Later, not now: the click that got here may come from a button of a row.
    while (QLayoutItem* item = folders_->takeAt(0)) {
        item->widget()->hide();
        item->widget()->deleteLater();
        delete item;
    }
    for (std::size_t i = 0; i < folders.size(); ++i) {
        auto* row = new QWidget(this);
        auto* rowLayout = new QVBoxLayout(row);
        rowLayout->setContentsMargins(0, 0, 0, 6);
        auto* name = new QLabel(fromUtf8(folders[i]), row);
        name->setAccessibleName(name->text());
        name->setTextInteractionFlags(Qt::TextSelectableByMouse);
        QFont bold = name->font();
        bold.setBold(true);
        name->setFont(bold);
        rowLayout->addWidget(name);
        for (const std::string& line : settings_.sharedFolderLines(folders[i])) {
            rowLayout->addWidget(noteLabel(line, row));
        }
        if (listSnippets_) {
            auto* list = new QListWidget(row);
            list->setAccessibleName(QStringLiteral("Snippets of ") + fromUtf8(folders[i]));
            for (const auto& [abbreviation, first] : settings_.sharedSnippets(folders[i])) {
                list->addItem(fromUtf8(abbreviation) + QStringLiteral("  \u2014  ") +
                              oneLine(first, 60));
            }
            list->setMaximumHeight(list->count() > 0 ? 140 : 0);
            list->setVisible(list->count() > 0);
            rowLayout->addWidget(list);
        }
        auto* stop = new QPushButton(fromUtf8(Settings::stopUsingLabel()), row);
        stop->setAccessibleName(fromUtf8(Settings::stopUsingLabel() + ": " + folders[i]));
        connect(stop, &QPushButton::clicked, this, [this, folder = folders[i]] {
            settings_.removeSharedFolder(folder);
            refresh();
        });
        rowLayout->addWidget(stop, 0, Qt::AlignLeft);
        folders_->addWidget(row);
    }
    if (folders.empty()) {
        folders_->addWidget(noteLabel("No shared folders. A team's folder of snippet files adds "
                                      "their snippets here, read-only.",
                                      this));
    }
    shownFolders_ = std::move(folders);
    shownLines_ = std::move(lines);
}

void SharedFoldersBox::addFolder() {
    const std::string folder =
        chooseFolder_ ? chooseFolder_()
                      : QFileDialog::getExistingDirectory(this, QStringLiteral("Share a folder"))
                            .toStdString();
    if (folder.empty()) {
        return;
    }
    showProblem(problem_, settings_.addSharedFolder(folder));
    refresh();
}

} // namespace quillet
