#include "shell/SettingsPage.h"

#include "engine/Expander.h"
#include "engine/Typos.h"
#include "entry/Coordinator.h"
#include "shell/Labels.h"
#include "shell/SharedFoldersBox.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>
#include <algorithm>

namespace quillet {
namespace {

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

} // namespace

SettingsPage::SettingsPage(Settings& settings, std::function<std::string()> chooseFolder,
                           QWidget* parent)
    : QWidget(parent), settings_(settings), chooseFolder_(std::move(chooseFolder)) {
    setAccessibleName(QStringLiteral("Settings"));
    auto* page = new QVBoxLayout(this);
    auto section = [&](const QString& title) {
        auto* box = new QGroupBox(title, this);
        box->setAccessibleName(title);
        page->addWidget(box);
        return box;
    };
    auto addSwitch = [&](QBoxLayout* layout, const Settings::Switch& s, QWidget* box) {
        auto* check = new QCheckBox(qt(s.label), box);
        check->setAccessibleName(check->text());
        layout->addWidget(check);
        if (!s.note.empty()) {
            layout->addWidget(noteLabel(s.note, box));
        }
        const std::string key(s.key);
        connect(check, &QCheckBox::toggled, this,
                [this, key](bool on) { settings_.setOn(key, on); });
        switches_.emplace_back(key, check);
    };
    const std::vector<Settings::Switch>& all = Settings::switches();
    auto switchFor = [&](std::string_view key) -> const Settings::Switch& {
        return *std::find_if(all.begin(), all.end(),
                             [&](const Settings::Switch& s) { return s.key == key; });
    };

    // Expanding: when abbreviations fire, the picker's stroke, the popup, starting.
    QGroupBox* expanding = section(QStringLiteral("Expanding"));
    auto* expandingLayout = new QVBoxLayout(expanding);
    auto* form = new QFormLayout;
    // A list of choices whose stored value goes to chosen when the user picks one.
    auto choices = [this](const std::vector<Settings::Choice>& offered, const QString& name,
                          QWidget* box, std::function<void(const std::string&)> chosen) {
        auto* combo = new QComboBox(box);
        for (const Settings::Choice& choice : offered) {
            combo->addItem(qt(choice.label), qt(choice.raw));
        }
        combo->setAccessibleName(name);
        connect(combo, &QComboBox::activated, this, [combo, chosen = std::move(chosen)](int i) {
            chosen(combo->itemData(i).toString().toStdString());
        });
        return combo;
    };
    triggerMode_ = choices(Settings::triggerModes(), QStringLiteral("Expand abbreviations"),
                           expanding, [this](const std::string& raw) {
                               if (auto mode = triggerModeFromRaw(raw)) {
                                   settings_.setTriggerMode(*mode);
                               }
                           });
    form->addRow(QStringLiteral("E&xpand abbreviations:"), triggerMode_);
    shortcut_ = new QLineEdit(expanding);
    shortcut_->setPlaceholderText(QStringLiteral("super+period, or empty for none"));
    shortcut_->setAccessibleName(QStringLiteral("Search and paste shortcut"));
    connect(shortcut_, &QLineEdit::editingFinished, this, [this] {
        showProblem(shortcutProblem_, settings_.setPickerShortcut(shortcut_->text().toStdString()));
    });
    form->addRow(QStringLiteral("&Search and paste:"), shortcut_);
    shortcutProblem_ = problemLabel(expanding);
    form->addRow(QString(), shortcutProblem_);
    expandingLayout->addLayout(form);
    addSwitch(expandingLayout, switchFor(Expander::popupKey), expanding);
    addSwitch(expandingLayout, switchFor(Coordinator::startWithSessionKey), expanding);

    // Corrections and symbols: the two group switches, then every set on its own.
    QGroupBox* typing = section(QStringLiteral("Corrections and symbols"));
    auto* typingLayout = new QVBoxLayout(typing);
    for (const Settings::Group& group : Settings::groups()) {
        auto* check = new QCheckBox(qt(group.label), typing);
        check->setAccessibleName(check->text());
        check->setAccessibleDescription(qt(group.description));
        typingLayout->addWidget(check);
        typingLayout->addWidget(noteLabel(group.description, typing));
        connect(check, &QCheckBox::toggled, this, [this, &group](bool on) {
            settings_.setGroupOn(group, on);
            refresh(); // the sets of the group follow
        });
        groups_.push_back(check);
    }
    // The sets one by one: word corrections, then those that expand like abbreviations.
    for (const bool corrections : {true, false}) {
        auto* sets = new QGroupBox(
            corrections ? QStringLiteral("Corrections") : QStringLiteral("Symbols"), typing);
        sets->setAccessibleName(sets->title());
        sets->setFlat(true);
        auto* setsLayout = new QVBoxLayout(sets);
        for (const Typos::Set& set : Typos::all()) {
            if ((set.fires.kind == Typos::Fires::Kind::wordEnds) != corrections) {
                continue;
            }
            auto* check = new QCheckBox(qt(set.name), sets);
            check->setAccessibleName(check->text());
            setsLayout->addWidget(check);
            connect(check, &QCheckBox::toggled, this, [this, id = set.id](bool on) {
                settings_.setSetOn(id, on);
                refresh(); // the group switches follow
            });
            sets_.emplace_back(set.id, check);
        }
        setsLayout->addWidget(
            noteLabel(corrections ? Settings::correctionsNote() : Settings::setsNote(), sets));
        typingLayout->addWidget(sets);
    }

    // Suggestions, the icon and the colours.
    QGroupBox* looks = section(QStringLiteral("Suggestions and appearance"));
    auto* looksLayout = new QVBoxLayout(looks);
    addSwitch(looksLayout, switchFor(Expander::suggestionsKey), looks);
    addSwitch(looksLayout, switchFor(Coordinator::showSavedKey), looks);
    auto* looksForm = new QFormLayout;
    appearance_ = choices(Settings::appearances(), QStringLiteral("Appearance"), looks,
                          [this](const std::string& raw) { settings_.setAppearance(raw); });
    looksForm->addRow(QStringLiteral("&Appearance:"), appearance_);
    looksLayout->addLayout(looksForm);

    QGroupBox* scripts = section(QStringLiteral("Scripts"));
    auto* scriptsLayout = new QVBoxLayout(scripts);
    addSwitch(scriptsLayout, switchFor("allowScripts"), scripts);

    // Pasting: the applications that paste with a stroke of their own.
    QGroupBox* pasting = section(QStringLiteral("Pasting"));
    auto* pastingLayout = new QVBoxLayout(pasting);
    pastingLayout->addWidget(noteLabel("Quillet pastes with Ctrl+V, and with Ctrl+Shift+V in "
                                       "terminals. An application that pastes otherwise is "
                                       "listed here by its window class.",
                                       pasting));
    pasteRows_ = new QVBoxLayout;
    pastingLayout->addLayout(pasteRows_);
    auto* newPaste = new QHBoxLayout;
    pasteApp_ = new QLineEdit(pasting);
    pasteApp_->setPlaceholderText(QStringLiteral("Window class, such as emacs"));
    pasteApp_->setAccessibleName(QStringLiteral("Application"));
    pasteStroke_ = new QLineEdit(pasting);
    pasteStroke_->setPlaceholderText(QStringLiteral("Stroke, such as ctrl+y"));
    pasteStroke_->setAccessibleName(QStringLiteral("Paste stroke"));
    auto* addPaste = new QPushButton(QStringLiteral("A&dd"), pasting);
    addPaste->setAccessibleName(QStringLiteral("Add the paste stroke"));
    newPaste->addWidget(pasteApp_, 1);
    newPaste->addWidget(pasteStroke_, 1);
    newPaste->addWidget(addPaste);
    pastingLayout->addLayout(newPaste);
    pasteProblem_ = problemLabel(pasting);
    pastingLayout->addWidget(pasteProblem_);
    auto addStroke = [this] {
        auto problem = settings_.setPasteShortcut(pasteApp_->text().toStdString(),
                                                  pasteStroke_->text().toStdString());
        showProblem(pasteProblem_, problem);
        if (!problem) {
            pasteApp_->clear();
            pasteStroke_->clear();
            showPasteShortcuts();
        }
    };
    connect(addPaste, &QPushButton::clicked, this, addStroke);
    connect(pasteStroke_, &QLineEdit::returnPressed, this, addStroke);

    // Sync: the library in a folder a sync tool keeps.
    QGroupBox* sync = section(QStringLiteral("Sync"));
    auto* syncLayout = new QVBoxLayout(sync);
    auto* syncRow = new QHBoxLayout;
    syncFolder_ = new QLabel(sync);
    syncFolder_->setAccessibleName(QStringLiteral("Synced folder"));
    syncFolder_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    chooseSync_ = new QPushButton(QStringLiteral("C&hoose Folder\u2026"), sync);
    chooseSync_->setAccessibleName(QStringLiteral("Choose the synced folder"));
    syncRow->addWidget(syncFolder_, 1);
    syncRow->addWidget(chooseSync_);
    syncLayout->addLayout(syncRow);
    synced_ = new QCheckBox(QStringLiteral("&Keep my snippets in this folder"), sync);
    synced_->setAccessibleName(QStringLiteral("Keep my snippets in the synced folder"));
    syncLayout->addWidget(synced_);
    syncLayout->addWidget(noteLabel("A folder that Syncthing, Nextcloud, Dropbox or another sync "
                                    "tool keeps the same on your computers.",
                                    sync));
    syncMessage_ = new QLabel(sync);
    syncMessage_->setWordWrap(true);
    syncMessage_->setAccessibleName(QStringLiteral("Sync message"));
    syncMessage_->hide();
    syncLayout->addWidget(syncMessage_);
    connect(chooseSync_, &QPushButton::clicked, this, [this] {
        const std::string folder =
            chooseFolder_ ? chooseFolder_()
                          : QFileDialog::getExistingDirectory(this, QStringLiteral("Synced folder"))
                                .toStdString();
        if (!folder.empty()) {
            std::optional<std::string> problem = settings_.setSyncFolder(folder);
            syncMessage_->setText(problem ? qt(*problem) : QString());
            syncMessage_->setVisible(problem.has_value());
            refresh();
        }
    });
    connect(synced_, &QCheckBox::toggled, this, [this](bool on) {
        std::optional<std::string> message = settings_.setSync(on);
        syncMessage_->setText(message ? qt(*message) : QString());
        syncMessage_->setVisible(message.has_value());
        refresh();
    });

    folders_ = new SharedFoldersBox(settings_, chooseFolder_, false, this);
    page->addWidget(folders_);

    // Browser extension: the browsers told where the host is that reports their site.
    QGroupBox* browser = section(QStringLiteral("Browser extension"));
    auto* browserLayout = new QVBoxLayout(browser);
    auto* browserRow = new QHBoxLayout;
    browsersState_ = new QLabel(browser);
    browsersState_->setWordWrap(true);
    browsersState_->setAccessibleName(QStringLiteral("Browser extension state"));
    auto* setUp = new QPushButton(QStringLiteral("Set Up &Browsers"), browser);
    setUp->setAccessibleName(QStringLiteral("Set up browsers for the Quillet extension"));
    browserRow->addWidget(browsersState_, 1);
    browserRow->addWidget(setUp);
    browserLayout->addLayout(browserRow);
    browsersMessage_ = new QLabel(browser);
    browsersMessage_->setWordWrap(true);
    browsersMessage_->setAccessibleName(QStringLiteral("Browser extension message"));
    browsersMessage_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    browsersMessage_->hide();
    browserLayout->addWidget(browsersMessage_);
    connect(setUp, &QPushButton::clicked, this, [this] {
        browsersMessage_->setText(qt(settings_.setUpBrowsers()));
        browsersMessage_->show();
        refresh();
    });
    page->addStretch();
    refresh();
}

void SettingsPage::refresh() {
    browsersState_->setText(qt(settings_.browsersState()));
    {
        const QSignalBlocker quiet(triggerMode_);
        triggerMode_->setCurrentIndex(
            triggerMode_->findData(qt(std::string(rawValue(settings_.triggerMode())))));
    }
    {
        const QSignalBlocker quiet(appearance_);
        appearance_->setCurrentIndex(appearance_->findData(qt(settings_.appearance())));
    }
    if (!shortcut_->hasFocus()) { // never taken from under the user's fingers
        shortcut_->setText(qt(settings_.pickerShortcut()));
    }
    for (auto& [key, check] : switches_) {
        const QSignalBlocker quiet(check);
        check->setChecked(settings_.isOn(key));
    }
    for (std::size_t i = 0; i < groups_.size(); ++i) {
        const QSignalBlocker quiet(groups_[i]);
        groups_[i]->setChecked(settings_.groupOn(Settings::groups()[i]));
    }
    for (auto& [id, check] : sets_) {
        const QSignalBlocker quiet(check);
        check->setChecked(settings_.setIsOn(id));
    }
    {
        const QSignalBlocker quiet(synced_);
        synced_->setChecked(settings_.isSynced());
    }
    const std::string folder = settings_.syncFolder();
    syncFolder_->setText(folder.empty() ? QStringLiteral("No folder chosen") : qt(folder));
    chooseSync_->setEnabled(!settings_.isSynced());
    showPasteShortcuts();
    folders_->refresh();
}

void SettingsPage::showPasteShortcuts() {
    std::vector<std::pair<std::string, std::string>> shown = settings_.pasteShortcuts();
    if (shown == shownPaste_) {
        return; // rebuilding would move the keyboard focus off a button for nothing
    }
    while (QLayoutItem* item = pasteRows_->takeAt(0)) {
        item->widget()->hide();
        item->widget()->deleteLater();
        delete item;
    }
    for (const auto& [app, stroke] : shown) {
        auto* row = new QWidget(this);
        auto* layout = new QHBoxLayout(row);
        layout->setContentsMargins(0, 0, 0, 0);
        auto* label = new QLabel(qt(app) + QStringLiteral(": ") + qt(stroke), row);
        label->setAccessibleName(label->text());
        auto* remove = new QPushButton(QStringLiteral("Remove"), row);
        remove->setAccessibleName(QStringLiteral("Remove the paste stroke of ") + qt(app));
        connect(remove, &QPushButton::clicked, this, [this, app = app] {
            showProblem(pasteProblem_, settings_.setPasteShortcut(app, ""));
            showPasteShortcuts();
        });
        layout->addWidget(label, 1);
        layout->addWidget(remove);
        pasteRows_->addWidget(row);
    }
    shownPaste_ = std::move(shown);
}

} // namespace quillet
