#include "entry/Settings.h"

#include "engine/Executor.h"
#include "engine/Expander.h"
#include "engine/Typos.h"
#include "entry/BrowserBridge.h"
#include "entry/Coordinator.h"
#include "library/Text.h"
#include "render/Tokens.h"
#include "transfer/SharedFolder.h"

#include <algorithm>
#include <filesystem>

namespace quillet {
namespace {

constexpr std::string_view sharedFoldersKey = "sharedFolders";

// Whether written names a key stroke: modifier names joined by "+" before one key's name. The
// key's name is the keyboard backend's to check, when it binds the stroke.
std::optional<std::string> strokeProblem(std::string_view written) {
    if (written.find_first_of(" \t") != std::string_view::npos) {
        return "Write the keys joined by +, such as super+period.";
    }
    while (true) {
        const std::size_t plus = written.find('+', 1); // a lone "+" is the key itself
        if (plus == std::string_view::npos) {
            return written.empty() ? std::optional<std::string>("Name a key after the last +.")
                                   : std::nullopt;
        }
        const std::string modifier = text::toLower(written.substr(0, plus));
        if (modifier != "ctrl" && modifier != "control" && modifier != "alt" &&
            modifier != "shift" && modifier != "super" && modifier != "meta" && modifier != "cmd") {
            return "\u201C" + std::string(written.substr(0, plus)) +
                   "\u201D isn't a modifier: use ctrl, alt, shift or super.";
        }
        written.remove_prefix(plus + 1);
    }
}

std::string trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    return std::string(text.substr(first, text.find_last_not_of(" \t") - first + 1));
}

} // namespace

Settings::Settings(Preferences& preferences, SnippetStore& store)
    : preferences_(preferences), store_(store) {}

const std::vector<Settings::Switch>& Settings::switches() {
    static const std::vector<Switch> all = {
        {Expander::suggestionsKey, "Suggest snippets from what I retype",
         "A phrase you type three times is offered as a snippet."},
        {Expander::popupKey, "Show matching snippets as I type",
         "A small list at the caret, in applications that serve the accessibility bus."},
        {Coordinator::showSavedKey, "Show time saved next to the icon", ""},
        {Coordinator::startWithSessionKey, "Start Quillet when I log in", ""},
        {"allowScripts", "Allow shell and AppleScript snippets", "They run with your permissions"},
    };
    return all;
}

bool Settings::isOn(std::string_view key) const {
    return preferences_.isOn(key);
}

bool Settings::setOn(std::string_view key, bool on) {
    return preferences_.setValue(key, on);
}

const std::vector<Settings::Choice>& Settings::triggerModes() {
    static const std::vector<Choice> all = {
        {std::string(rawValue(TriggerMode::instant)), "Instantly"},
        {std::string(rawValue(TriggerMode::delimiter)), "After a space"},
        {std::string(rawValue(TriggerMode::tab)), "On Tab"},
    };
    return all;
}

TriggerMode Settings::triggerMode() const {
    return triggerModeFromRaw(preferences_.text(Expander::triggerModeKey).value_or(""))
        .value_or(TriggerMode::instant);
}

bool Settings::setTriggerMode(TriggerMode mode) {
    return preferences_.setValue(Expander::triggerModeKey, std::string(rawValue(mode)));
}

const std::vector<Settings::Choice>& Settings::appearances() {
    static const std::vector<Choice> all = {
        {"system", "System"}, {"light", "Light"}, {"dark", "Dark"}};
    return all;
}

std::string Settings::appearance() const {
    const std::string raw = preferences_.text(Coordinator::appearanceKey).value_or("system");
    const auto& all = appearances();
    return std::any_of(all.begin(), all.end(), [&](const Choice& c) { return c.raw == raw; })
               ? raw
               : "system";
}

bool Settings::setAppearance(const std::string& raw) {
    return preferences_.setValue(Coordinator::appearanceKey, raw);
}

std::string Settings::pickerShortcut() const {
    return preferences_.text(Coordinator::pickerShortcutKey)
        .value_or(std::string(Coordinator::defaultPickerShortcut));
}

std::optional<std::string> Settings::setPickerShortcut(std::string_view stroke) {
    const std::string keys = trimmed(stroke);
    if (!keys.empty()) {
        if (std::optional<std::string> problem = strokeProblem(keys)) {
            return problem;
        }
    }
    if (!preferences_.setValue(Coordinator::pickerShortcutKey, keys)) {
        return "Couldn't save the setting: the settings file can't be written.";
    }
    return std::nullopt;
}

const std::vector<Settings::Group>& Settings::groups() {
    static const std::vector<Group> all = {
        {"Fix typos as I type", "Common misspellings, accents, French, German and Spanish",
         &Typos::typoGroup()},
        {"Symbols and emoji", "Type :smile: or -> and get \U0001F604 or \u2192",
         &Typos::symbolGroup()},
    };
    return all;
}

bool Settings::groupOn(const Group& group) const {
    return Typos::groupIsOn(preferences_, *group.ids);
}

bool Settings::setGroupOn(const Group& group, bool on) {
    return Typos::setGroup(preferences_, *group.ids, on);
}

const std::string& Settings::setsNote() {
    static const std::string text =
        "These expand like your abbreviations, after your own snippets, and stay out of search.";
    return text;
}

const std::string& Settings::correctionsNote() {
    static const std::string text =
        "Fix the whole word when it ends. Off until you switch a set on.";
    return text;
}

bool Settings::setIsOn(std::string_view id) const {
    return preferences_.isOn(Typos::key(id));
}

bool Settings::setSetOn(std::string_view id, bool on) {
    return preferences_.setValue(Typos::key(id), on);
}

std::vector<std::string> Settings::sharedFolders() const {
    return store_.sharedFolders();
}

std::optional<std::string> Settings::addSharedFolder(const std::string& folder) {
    std::error_code error;
    const std::filesystem::path path = std::filesystem::absolute(folder, error).lexically_normal();
    if (error || !std::filesystem::is_directory(path, error)) {
        return "\u201C" + folder + "\u201D isn't a folder.";
    }
    std::string text = path.string();
    if (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    nlohmann::json list = nlohmann::json::array();
    for (const std::string& listed : sharedFolders()) {
        if (listed == text) {
            return "That folder is shared already.";
        }
        list.push_back(listed);
    }
    list.push_back(text);
    if (!preferences_.setValue(sharedFoldersKey, std::move(list))) {
        return "Couldn't save the setting: the settings file can't be written.";
    }
    store_.reloadShared();
    return std::nullopt;
}

void Settings::removeSharedFolder(const std::string& folder) {
    store_.removeSharedFolder(folder);
}

std::vector<std::string> Settings::sharedFolderLines(const std::string& folder) const {
    for (const SnippetStore::SharedPack& pack : store_.shared()) {
        if (pack.folder == folder) {
            return SharedFolder::describe(pack);
        }
    }
    return {};
}

std::vector<std::pair<std::string, std::string>>
Settings::sharedSnippets(const std::string& folder) const {
    std::vector<std::pair<std::string, std::string>> out;
    for (const SnippetStore::SharedPack& pack : store_.shared()) {
        if (pack.folder == folder) {
            for (const Snippet& snippet : pack.snippets) {
                out.emplace_back(snippet.abbreviation, text::clip(snippet.firstLine(), 60));
            }
        }
    }
    return out;
}

std::string Settings::syncFolder() const {
    return preferences_.text("syncFolder").value_or("");
}

std::optional<std::string> Settings::setSyncFolder(const std::string& folder) {
    if (store_.isSynced()) {
        return "Turn off keeping your snippets there before choosing another folder.";
    }
    std::error_code error;
    const std::filesystem::path path = std::filesystem::absolute(folder, error);
    if (error || !std::filesystem::is_directory(path, error)) {
        return "\u201C" + folder + "\u201D isn't a folder.";
    }
    if (!preferences_.setValue("syncFolder", path.lexically_normal().string())) {
        return "Couldn't save the setting: the settings file can't be written.";
    }
    return std::nullopt;
}

std::optional<std::string> Settings::setSync(bool on) {
    return store_.setSync(on);
}

std::vector<std::pair<std::string, std::string>> Settings::pasteShortcuts() const {
    std::vector<std::pair<std::string, std::string>> out;
    const nlohmann::json table = preferences_.value(Executor::pasteShortcutsKey);
    if (table.is_object()) {
        for (const auto& [app, stroke] : table.items()) {
            if (stroke.is_string()) {
                out.emplace_back(app, stroke.get<std::string>());
            }
        }
    }
    return out;
}

std::optional<std::string> Settings::setPasteShortcut(const std::string& app,
                                                      std::string_view stroke) {
    const std::string id = trimmed(app);
    const std::string keys = trimmed(stroke);
    if (id.empty()) {
        return std::string("Name the application by its window class, such as firefox.");
    }
    if (!keys.empty() && !Tokens::keyStroke(text::toLower(keys))) {
        return "\u201C" + keys + "\u201D isn't a key stroke, such as ctrl+shift+v.";
    }
    nlohmann::json table = preferences_.value(Executor::pasteShortcutsKey);
    if (!table.is_object()) {
        table = nlohmann::json::object();
    }
    if (keys.empty()) {
        table.erase(id);
    } else {
        table[id] = text::toLower(keys);
    }
    if (!preferences_.setValue(Executor::pasteShortcutsKey, table)) {
        return std::string("Couldn't save the setting: the settings file can't be written.");
    }
    return std::nullopt;
}

const std::string& Settings::stopUsingLabel() {
    return SharedFolder::stopUsing();
}

bool Settings::browsersSetUp() const {
    return BrowserBridge::isInstalled(store_.location().folders());
}

std::string Settings::browsersState() const {
    return browsersSetUp() ? "Set up: snippets limited to websites know the site your browser "
                             "shows."
                           : "Not set up: snippets limited to websites don't know the site your "
                             "browser shows.";
}

std::string Settings::setUpBrowsers() {
    return BrowserBridge::install(store_.location().folders(), BrowserBridge::ownExecutable())
        .message;
}

} // namespace quillet
