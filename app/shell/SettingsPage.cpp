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

    folders_ = new SharedFoldersBox(settings_, chooseFolder_, false, this);
    page->addWidget(folders_);
    page->addStretch();
    refresh();
}

void SettingsPage::refresh() {
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
    folders_->refresh();
}

} // namespace quillet
