#include "entry/LibraryEditor.h"

#include "engine/AbbreviationCheck.h"
#include "engine/Matcher.h"
#include "library/Site.h"
#include "library/SnippetSearch.h"
#include "library/Text.h"
#include "render/Expansion.h"
#include "render/Payload.h"
#include "transfer/Transfer.h"

#include <algorithm>
#include <system_error>

namespace quillet {
namespace {

constexpr std::size_t subtitleCharacters = 80;

std::string notFound() {
    return "This snippet isn't in the library any more.";
}

std::string couldNotSave(const SnippetStore& store) {
    if (!store.canSave()) {
        return "Couldn't save: the library file can't be read, so Quillet leaves it alone. " +
               store.problem();
    }
    return "Couldn't save the library. The change is kept here and saved with the next one.";
}

std::string scopeBadge(const Snippet& snippet) {
    if (snippet.scope == Snippet::Scope::everywhere) {
        return {};
    }
    std::vector<std::string> places = snippet.apps;
    places.insert(places.end(), snippet.sites.begin(), snippet.sites.end());
    std::string list;
    for (std::size_t i = 0; i < places.size() && i < 2; ++i) {
        list += (i > 0 ? ", " : "") + places[i];
    }
    if (places.size() > 2) {
        list += " +" + std::to_string(places.size() - 2);
    }
    if (places.empty()) {
        list = "nowhere";
    }
    return (snippet.scope == Snippet::Scope::only ? "Only in " : "Not in ") + list;
}

LibraryEditor::Row rowOf(const Snippet& snippet) {
    LibraryEditor::Row row{snippet.id, snippet.abbreviation, {}, {}, snippet.archived};
    if (snippet.locked) {
        row.subtitle = LockedSnippets::label;
    } else if (snippet.content.empty() && snippet.image) {
        row.subtitle = "Picture";
    } else {
        row.subtitle = text::clip(snippet.firstLine(), subtitleCharacters);
    }
    if (std::string scope = scopeBadge(snippet); !scope.empty()) {
        row.badges.push_back(std::move(scope));
    }
    if (snippet.kind != Snippet::Kind::text) {
        for (const auto& kind : LibraryEditor::kinds()) {
            if (kind.value == snippet.kind) {
                row.badges.push_back(kind.label);
            }
        }
    }
    if (snippet.regex) {
        row.badges.emplace_back("Pattern");
    }
    if (snippet.markdown) {
        row.badges.emplace_back("Markdown");
    }
    if (snippet.image && !row.subtitle.empty() && row.subtitle != "Picture") {
        row.badges.emplace_back("Picture");
    }
    if (snippet.trigger) {
        row.badges.emplace_back(label(*snippet.trigger));
    }
    if (snippet.archived) {
        row.badges.emplace_back("Archived");
    }
    return row;
}

template <typename List> auto findIn(List& list, const Uuid& id) {
    return std::find_if(list.begin(), list.end(),
                        [&](const Snippet& snippet) { return snippet.id == id; });
}

} // namespace

LibraryEditor::LibraryEditor(Parts parts) : parts_(std::move(parts)) {}

LibraryEditor::~LibraryEditor() {
    forget();
}

const std::vector<LibraryEditor::Choice<LibraryEditor::Order>>& LibraryEditor::orders() {
    static const std::vector<Choice<Order>> all = {{Order::library, "Your order"},
                                                   {Order::mostUsed, "Most used"},
                                                   {Order::newest, "Newest"},
                                                   {Order::alphabetical, "A to Z"}};
    return all;
}

const std::vector<LibraryEditor::Choice<Snippet::Kind>>& LibraryEditor::kinds() {
    static const std::vector<Choice<Snippet::Kind>> all = {
        {Snippet::Kind::text, "Text"},
        {Snippet::Kind::javascript, "JavaScript"},
        {Snippet::Kind::shell, "Shell script"},
        {Snippet::Kind::applescript, "AppleScript"}};
    return all;
}

const std::vector<LibraryEditor::Choice<Snippet::Scope>>& LibraryEditor::scopes() {
    static const std::vector<Choice<Snippet::Scope>> all = {
        {Snippet::Scope::everywhere, "Everywhere"},
        {Snippet::Scope::only, "Only in these apps and sites"},
        {Snippet::Scope::except, "Everywhere except these apps and sites"}};
    return all;
}

const std::vector<LibraryEditor::Choice<std::optional<TriggerMode>>>& LibraryEditor::triggers() {
    static const std::vector<Choice<std::optional<TriggerMode>>> all = [] {
        std::vector<Choice<std::optional<TriggerMode>>> out = {{std::nullopt, "As in Settings"}};
        for (TriggerMode mode : {TriggerMode::instant, TriggerMode::delimiter, TriggerMode::tab}) {
            out.push_back({mode, std::string(label(mode))});
        }
        return out;
    }();
    return all;
}

std::vector<LibraryEditor::Row> LibraryEditor::rows(std::string_view query, Order order,
                                                    bool archived) const {
    const std::vector<Snippet>& all = parts_.store.snippets();
    const SnippetQuery wanted(query);
    std::vector<Row> out;
    auto take = [&](const Snippet& snippet) {
        if ((archived || !snippet.archived) && wanted.matches(snippet)) {
            out.push_back(rowOf(snippet));
        }
    };
    if (order == Order::library) {
        std::for_each(all.begin(), all.end(), take);
        return out;
    }
    const Usage none;
    const Usage* usage = parts_.usage();
    const auto byUsage = order == Order::mostUsed ? Usage::Order::mostUsed
                         : order == Order::newest ? Usage::Order::newest
                                                  : Usage::Order::alphabetical;
    const std::vector<Snippet> sorted = (usage != nullptr ? *usage : none).sorted(all, byUsage);
    std::for_each(sorted.begin(), sorted.end(), take);
    return out;
}

std::optional<LibraryEditor::Row> LibraryEditor::row(const Uuid& id) const {
    const std::vector<Snippet>& all = parts_.store.snippets();
    auto it = findIn(all, id);
    return it == all.end() ? std::nullopt : std::optional<Row>(rowOf(*it));
}

std::optional<Snippet> LibraryEditor::find(const Uuid& id) const {
    const std::vector<Snippet>& all = parts_.store.snippets();
    auto it = findIn(all, id);
    return it == all.end() ? std::nullopt : std::optional<Snippet>(*it);
}

std::optional<std::string> LibraryEditor::store(std::vector<Snippet> list) {
    if (!parts_.store.setSnippets(std::move(list))) {
        return couldNotSave(parts_.store);
    }
    return std::nullopt;
}

std::optional<Uuid> LibraryEditor::create(std::string& error) {
    std::vector<Snippet> list = parts_.store.snippets();
    Snippet fresh = Snippet::make();
    const Uuid id = fresh.id;
    list.push_back(std::move(fresh));
    if (auto problem = store(std::move(list))) {
        error = *problem;
        return std::nullopt;
    }
    return id;
}

std::optional<Uuid> LibraryEditor::duplicate(const Uuid& id, std::string& error) {
    std::vector<Snippet> list = parts_.store.snippets();
    auto it = findIn(list, id);
    if (it == list.end()) {
        error = notFound();
        return std::nullopt;
    }
    Snippet copy = *it;
    copy.id = Uuid::random();
    copy.created = Date::now();
    // The copy gets the first of abbreviation2 to abbreviation9 nobody has; the editor then
    // warns that the original fires on the way, and the user renames one of them.
    for (int n = 2; n <= 9 && !copy.regex && !copy.abbreviation.empty(); ++n) {
        std::string candidate = it->abbreviation + std::to_string(n);
        if (std::none_of(list.begin(), list.end(),
                         [&](const Snippet& s) { return s.abbreviation == candidate; })) {
            copy.abbreviation = std::move(candidate);
            break;
        }
    }
    if (copy.locked) {
        SecretResult text = parts_.locked.readText(it->id);
        if (!text.ok() || !parts_.locked.writeText(copy.id, text.text).ok()) {
            error = "Couldn't copy the locked text: " + (text.ok() ? "" : text.error);
            return std::nullopt;
        }
    }
    const Uuid copied = copy.id;
    list.insert(it + 1, std::move(copy));
    if (auto problem = store(std::move(list))) {
        error = *problem;
        return std::nullopt;
    }
    return copied;
}

std::optional<std::string> LibraryEditor::update(const Snippet& edited) {
    std::vector<Snippet> list = parts_.store.snippets();
    Snippet record = edited;
    auto it = std::find_if(list.begin(), list.end(),
                           [&](const Snippet& snippet) { return snippet.id == edited.id; });
    if (it != list.end()) {
        record.locked = it->locked; // locking moves the text: only setLocked changes it
    }
    if (record.locked) {
        record.content.clear(); // the text lives in the secret store, never in the file
    }
    if (it == list.end()) {
        list.push_back(std::move(record));
    } else if (*it == record) {
        return std::nullopt;
    } else {
        *it = std::move(record);
    }
    return store(std::move(list));
}

std::optional<std::string> LibraryEditor::setArchived(const Uuid& id, bool archived) {
    std::optional<Snippet> snippet = find(id);
    if (!snippet) {
        return notFound();
    }
    snippet->archived = archived;
    return update(*snippet);
}

std::optional<std::string> LibraryEditor::remove(const Uuid& id) {
    std::vector<Snippet> list = parts_.store.snippets();
    auto it = findIn(list, id);
    if (it == list.end()) {
        return notFound();
    }
    Deleted gone{*it, static_cast<std::size_t>(it - list.begin())};
    list.erase(it);
    if (auto problem = store(std::move(list))) {
        return problem;
    }
    forget();
    deleted_ = std::move(gone);
    return std::nullopt;
}

void LibraryEditor::forget() {
    // The text of a locked snippet stays in the secret store while undo can bring it back.
    if (deleted_ && deleted_->snippet.locked && !find(deleted_->snippet.id)) {
        parts_.locked.deleteText(deleted_->snippet.id);
    }
    deleted_.reset();
}

std::string LibraryEditor::undoLabel() const {
    if (!deleted_) {
        return {};
    }
    const std::string& name = deleted_->snippet.abbreviation;
    return name.empty() ? "Undo deleting the snippet" : "Undo deleting " + name;
}

std::optional<std::string> LibraryEditor::undo() {
    if (!deleted_) {
        return std::nullopt;
    }
    std::vector<Snippet> list = parts_.store.snippets();
    if (findIn(list, deleted_->snippet.id) == list.end()) {
        const std::size_t at = std::min(deleted_->index, list.size());
        list.insert(list.begin() + static_cast<std::ptrdiff_t>(at), deleted_->snippet);
    }
    if (auto problem = store(std::move(list))) {
        return problem;
    }
    deleted_.reset();
    return std::nullopt;
}

bool LibraryEditor::hasStarterSet(const StarterSet& set) const {
    const std::vector<Snippet>& all = parts_.store.snippets();
    return std::all_of(set.snippets.begin(), set.snippets.end(), [&](const StarterSnippet& entry) {
        return std::any_of(all.begin(), all.end(), [&](const Snippet& snippet) {
            return snippet.abbreviation == entry.abbreviation;
        });
    });
}

std::string LibraryEditor::addStarterSet(const StarterSet& set) {
    std::vector<Snippet> list = parts_.store.snippets();
    Transfer::Report report = Transfer::merge({makeSnippets(set), {}, {}}, list);
    list.insert(list.end(), report.added.begin(), report.added.end());
    if (auto problem = store(std::move(list))) {
        return *problem;
    }
    return report.text();
}

std::optional<std::string> LibraryEditor::setLocked(const Uuid& id, bool locked) {
    std::vector<Snippet> list = parts_.store.snippets();
    auto it = findIn(list, id);
    if (it == list.end()) {
        return notFound();
    }
    if (it->locked == locked) {
        return std::nullopt;
    }
    if (locked) {
        std::string error;
        std::optional<Snippet> done = parts_.locked.lock(*it, error);
        if (!done) {
            return "Couldn't lock it: " + error;
        }
        *it = std::move(*done);
        if (auto problem = store(std::move(list))) {
            parts_.locked.deleteText(id); // the library still holds the text
            return problem;
        }
        return std::nullopt;
    }
    std::string error;
    std::optional<std::string> text = lockedText(id, error);
    if (!text) {
        return error;
    }
    it->locked = false;
    it->content = std::move(*text);
    if (auto problem = store(std::move(list))) {
        return problem;
    }
    parts_.locked.deleteText(id);
    return std::nullopt;
}

std::optional<std::string> LibraryEditor::lockedText(const Uuid& id, std::string& error) {
    std::optional<Snippet> snippet = find(id);
    if (!snippet) {
        error = notFound();
        return std::nullopt;
    }
    Unlocked unlocked =
        parts_.locked.unlockForUse(*snippet, "show \u201C" + snippet->abbreviation + "\u201D");
    switch (unlocked.outcome) {
    case Unlocked::Outcome::ok:
        return unlocked.snippet->content;
    case Unlocked::Outcome::refused:
        error = "The text stays locked: you didn't confirm it's you.";
        break;
    case Unlocked::Outcome::missing:
        error = "This computer has no text for this locked snippet. It was locked elsewhere.";
        break;
    case Unlocked::Outcome::failed:
        error = "Couldn't read the locked text: " + unlocked.message;
        break;
    }
    return std::nullopt;
}

std::optional<std::string> LibraryEditor::setLockedText(const Uuid& id, const std::string& text) {
    std::optional<Snippet> snippet = find(id);
    if (!snippet || !snippet->locked) {
        return notFound();
    }
    SecretResult written = parts_.locked.writeText(id, text);
    if (!written.ok()) {
        return "Couldn't store the locked text: " + written.error;
    }
    return std::nullopt;
}

std::optional<std::string> LibraryEditor::setPicture(const Uuid& id,
                                                     const std::filesystem::path& file) {
    std::optional<Snippet> snippet = find(id);
    if (!snippet) {
        return notFound();
    }
    if (file.empty()) {
        snippet->image.reset();
        return update(*snippet);
    }
    const std::filesystem::path folder = parts_.store.location().imagesFolder();
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    std::string extension = text::toLower(file.extension().string());
    const std::string name = Uuid::random().text() + extension;
    std::filesystem::copy_file(file, folder / name, error);
    if (error) {
        return "Couldn't copy the picture: " + error.message() + ".";
    }
    snippet->image = name;
    return update(*snippet);
}

std::optional<std::string> LibraryEditor::abbreviationWarning(const Snippet& snippet) const {
    if (snippet.regex) {
        return Matcher::patternProblem(snippet.abbreviation);
    }
    if (snippet.abbreviation.empty()) {
        return std::nullopt;
    }
    const std::vector<Snippet>& all = parts_.store.snippets();
    std::vector<AbbreviationOwner> others;
    others.reserve(all.size());
    for (const Snippet& other : all) {
        if (!other.regex && !other.archived) {
            others.push_back({other.id.text(), other.abbreviation});
        }
    }
    return abbreviationProblem(snippet.abbreviation, snippet.id.text(), others,
                               wordExample(snippet.abbreviation));
}

std::optional<std::string> LibraryEditor::kindCaption(Snippet::Kind kind) {
    switch (kind) {
    case Snippet::Kind::text:
        return std::nullopt;
    case Snippet::Kind::javascript:
        return "What this JavaScript returns";
    case Snippet::Kind::shell:
        return "What this shell script prints";
    case Snippet::Kind::applescript:
        return "What this AppleScript returns";
    }
    return std::nullopt;
}

std::optional<std::string> LibraryEditor::kindNotice(Snippet::Kind kind) const {
    if (kind == Snippet::Kind::applescript) {
        return "AppleScript runs on macOS only.";
    }
    if (kind == Snippet::Kind::shell && !parts_.preferences.isOn("allowScripts")) {
        return "Shell and AppleScript snippets are off.";
    }
    return std::nullopt;
}

std::string LibraryEditor::preview(const Snippet& snippet) const {
    if (snippet.kind != Snippet::Kind::text) {
        return {};
    }
    RenderContext context;
    context.clipboard = parts_.clipboard();
    const std::vector<Tokens::Field> fields = Tokens::fields(snippet.content);
    return Expansion::text(snippet.content, snippet.abbreviation, parts_.store.snippets(),
                           Expansion::defaults(fields).value_or(Expansion::Values{}), context);
}

std::optional<std::string> LibraryEditor::styledPreview(const Snippet& snippet) const {
    if (!snippet.markdown || snippet.kind != Snippet::Kind::text || snippet.locked) {
        return std::nullopt;
    }
    return Payload::markdown(preview(snippet));
}

std::optional<std::filesystem::path> LibraryEditor::picture(const Snippet& snippet) const {
    if (!snippet.image || snippet.image->empty()) {
        return std::nullopt;
    }
    return parts_.store.location().imagesFolder() / *snippet.image;
}

std::optional<std::string> LibraryEditor::addApplication(const Uuid& id, const std::string& app) {
    std::optional<Snippet> snippet = find(id);
    if (!snippet) {
        return notFound();
    }
    if (std::find(snippet->apps.begin(), snippet->apps.end(), app) == snippet->apps.end()) {
        snippet->apps.push_back(app);
    }
    if (snippet->scope == Snippet::Scope::everywhere) {
        snippet->scope = Snippet::Scope::only;
    }
    return update(*snippet);
}

std::vector<std::string> LibraryEditor::sites(std::string_view written, std::string& problem) {
    std::vector<std::string> out;
    problem.clear();
    std::size_t at = 0;
    while (at <= written.size()) {
        const std::size_t comma = std::min(written.find(',', at), written.size());
        std::string_view entry = written.substr(at, comma - at);
        at = comma + 1;
        if (entry.find_first_not_of(" \t") == std::string_view::npos) {
            continue;
        }
        if (std::optional<std::string> host = siteHost(entry)) {
            if (std::find(out.begin(), out.end(), *host) == out.end()) {
                out.push_back(std::move(*host));
            }
        } else if (problem.empty()) {
            const std::size_t first = entry.find_first_not_of(" \t");
            const std::size_t last = entry.find_last_not_of(" \t");
            problem = "\u201C" + std::string(entry.substr(first, last - first + 1)) +
                      "\u201D isn't a web address, such as example.com.";
        }
    }
    return out;
}

} // namespace quillet
