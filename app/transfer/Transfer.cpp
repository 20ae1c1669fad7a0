#include "transfer/Transfer.h"

#include "library/AtomicFile.h"
#include "library/Site.h"
#include "library/Text.h"
#include "transfer/Csv.h"

#include <array>
#include <cmath>
#include <limits>
#include <sys/stat.h>
#include <unordered_map>

namespace quillet {
namespace {

using nlohmann::json;

// Optional keys may also hold null, which means absent.
const json* present(const json& object, const char* key) {
    auto it = object.find(key);
    return it == object.end() || it->is_null() ? nullptr : &*it;
}

bool readFlag(const json& object, const char* key, std::optional<bool>& out) {
    const json* value = present(object, key);
    if (value == nullptr) {
        return true;
    }
    if (!value->is_boolean()) {
        return false;
    }
    out = value->get<bool>();
    return true;
}

bool readList(const json& object, const char* key, std::optional<std::vector<std::string>>& out) {
    const json* value = present(object, key);
    if (value == nullptr) {
        return true;
    }
    if (!value->is_array()) {
        return false;
    }
    std::vector<std::string> items;
    items.reserve(value->size());
    for (const json& item : *value) {
        if (!item.is_string()) {
            return false;
        }
        items.push_back(item.get<std::string>());
    }
    out = std::move(items);
    return true;
}

template <typename Enum, typename FromRaw>
bool readEnum(const json& object, const char* key, FromRaw fromRaw, std::optional<Enum>& out) {
    const json* value = present(object, key);
    if (value == nullptr) {
        return true;
    }
    if (!value->is_string()) {
        return false;
    }
    out = fromRaw(value->get_ref<const std::string&>());
    return out.has_value();
}

// A version written as 1.0 is still the integer 1; 1.5 is not an integer.
std::optional<int> integer(const json& value) {
    if (value.is_number_integer()) {
        if (value.is_number_unsigned()) {
            auto n = value.get<std::uint64_t>();
            return n <= static_cast<std::uint64_t>(std::numeric_limits<int>::max())
                       ? std::optional<int>(static_cast<int>(n))
                       : std::nullopt;
        }
        auto n = value.get<std::int64_t>();
        return n >= std::numeric_limits<int>::min() && n <= std::numeric_limits<int>::max()
                   ? std::optional<int>(static_cast<int>(n))
                   : std::nullopt;
    }
    if (value.is_number_float()) {
        double d = value.get<double>();
        if (std::trunc(d) == d && d >= std::numeric_limits<int>::min() &&
            d <= std::numeric_limits<int>::max()) {
            return static_cast<int>(d);
        }
    }
    return std::nullopt;
}

std::optional<std::vector<Transfer::Entry>> entriesFromJson(const json& list) {
    if (!list.is_array()) {
        return std::nullopt;
    }
    std::vector<Transfer::Entry> entries;
    entries.reserve(list.size());
    for (const json& item : list) {
        std::optional<Transfer::Entry> entry = Transfer::Entry::fromJson(item);
        if (!entry) {
            return std::nullopt;
        }
        entries.push_back(std::move(*entry));
    }
    return entries;
}

// Full Unicode lower-casing of the cell without the spaces and tabs around it. A cell too long
// to lower-case to any column name is not lower-cased at all: the first row of a headerless file
// may hold a text of any size.
std::string headerName(std::string_view cell) {
    constexpr std::size_t longestName = 64;
    std::size_t first = cell.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    std::size_t last = cell.find_last_not_of(" \t");
    if (last - first >= longestName) {
        return {};
    }
    return text::toLower(cell.substr(first, last - first + 1));
}

template <std::size_t N>
std::optional<std::size_t> firstNamed(const std::vector<std::string>& names,
                                      const std::array<std::string_view, N>& wanted) {
    for (std::size_t i = 0; i < names.size(); ++i) {
        for (std::string_view w : wanted) {
            if (names[i] == w) {
                return i;
            }
        }
    }
    return std::nullopt;
}

constexpr std::array<std::string_view, 5> abbreviationNames{"abbreviation", "shortcut", "trigger",
                                                            "keyword", "autotext"};
constexpr std::array<std::string_view, 7> contentNames{
    "content", "text", "snippet", "phrase", "expansion", "replace", "replacement"};

Transfer::Incoming readCsvFile(std::string_view text) {
    Transfer::Incoming incoming;
    std::vector<std::vector<std::string>> rows = readCsv(text);
    std::size_t abbreviationColumn = 0;
    std::size_t contentColumn = 1;
    std::size_t firstData = 0;
    if (!rows.empty()) {
        std::vector<std::string> names;
        names.reserve(rows[0].size());
        for (const std::string& cell : rows[0]) {
            names.push_back(headerName(cell));
        }
        if (auto found = firstNamed(names, abbreviationNames)) {
            abbreviationColumn = *found;
            auto content = firstNamed(names, contentNames);
            contentColumn = content ? *content : abbreviationColumn == 0 ? 1 : 0;
            firstData = 1;
        }
    }
    const std::size_t needed = std::max(abbreviationColumn, contentColumn) + 1;
    incoming.snippets.reserve(rows.size() - firstData);
    for (std::size_t r = firstData; r < rows.size(); ++r) {
        std::vector<std::string>& row = rows[r];
        if (row.size() < needed) {
            incoming.skipped.push_back("Row " + std::to_string(r - firstData + 1) +
                                       ": needs an abbreviation and its text.");
            continue;
        }
        Snippet s = Snippet::make();
        s.abbreviation = Transfer::withSemicolon(row[abbreviationColumn]);
        s.content = std::move(row[contentColumn]);
        incoming.snippets.push_back(std::move(s));
    }
    return incoming;
}

// Neither an exchange file nor a list of entries nests deeper than four levels (pack, list,
// entry, its lists). Deeper text is neither, and is not parsed: its document would be many times
// the size of the text.
bool nestsAtMost(std::string_view text, int limit) {
    int depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') {
                ++i;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > limit) {
                return false;
            }
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return true;
}

// Parses without exceptions; a value that is not JSON is discarded.
json parseJson(std::string_view bytes) {
    return json::parse(bytes.begin(), bytes.end(), nullptr, false);
}

std::string bulleted(const std::vector<std::string>& lines) {
    std::string out;
    for (const std::string& line : lines) {
        if (!out.empty()) {
            out += '\n';
        }
        out += "\u2022 " + line;
    }
    return out;
}

} // namespace

Transfer::Entry Transfer::Entry::from(const Snippet& snippet) {
    Entry entry;
    entry.abbreviation = snippet.abbreviation;
    entry.content = snippet.content;
    if (snippet.markdown) {
        entry.markdown = true;
    }
    if (snippet.scope != Snippet::Scope::everywhere) {
        entry.scope = snippet.scope;
    }
    if (!snippet.apps.empty()) {
        entry.apps = snippet.apps;
    }
    if (!snippet.sites.empty()) {
        entry.sites = snippet.sites;
    }
    if (snippet.regex) {
        entry.regex = true;
    }
    if (snippet.kind != Snippet::Kind::text) {
        entry.kind = snippet.kind;
    }
    return entry;
}

Snippet Transfer::Entry::snippet() const {
    Snippet s = Snippet::make();
    s.abbreviation = abbreviation;
    s.content = content;
    s.markdown = markdown.value_or(false);
    s.scope = scope.value_or(Snippet::Scope::everywhere);
    s.apps = apps.value_or(std::vector<std::string>{});
    for (const std::string& site : sites.value_or(std::vector<std::string>{})) {
        if (std::optional<std::string> host = siteHost(site)) {
            s.sites.push_back(std::move(*host));
        }
    }
    s.regex = regex.value_or(false);
    s.kind = kind.value_or(Snippet::Kind::text);
    return s;
}

json Transfer::Entry::toJson() const {
    json out = json::object();
    out["abbreviation"] = abbreviation;
    out["content"] = content;
    if (markdown.value_or(false)) {
        out["markdown"] = true;
    }
    if (scope && *scope != Snippet::Scope::everywhere) {
        out["scope"] = std::string(rawValue(*scope));
    }
    if (apps && !apps->empty()) {
        out["apps"] = *apps;
    }
    if (sites && !sites->empty()) {
        out["sites"] = *sites;
    }
    if (regex.value_or(false)) {
        out["regex"] = true;
    }
    if (kind && *kind != Snippet::Kind::text) {
        out["kind"] = std::string(rawValue(*kind));
    }
    return out;
}

std::optional<Transfer::Entry> Transfer::Entry::fromJson(const json& object) {
    if (!object.is_object()) {
        return std::nullopt;
    }
    auto abbreviation = object.find("abbreviation");
    auto content = object.find("content");
    if (abbreviation == object.end() || !abbreviation->is_string() || content == object.end() ||
        !content->is_string()) {
        return std::nullopt;
    }
    Entry entry;
    entry.abbreviation = abbreviation->get<std::string>();
    entry.content = content->get<std::string>();
    if (!readFlag(object, "markdown", entry.markdown) ||
        !readEnum(object, "scope", scopeFromRaw, entry.scope) ||
        !readList(object, "apps", entry.apps) || !readList(object, "sites", entry.sites) ||
        !readFlag(object, "regex", entry.regex) ||
        !readEnum(object, "kind", kindFromRaw, entry.kind)) {
        return std::nullopt;
    }
    return entry;
}

json Transfer::Pack::toJson() const {
    json list = json::array();
    for (const Entry& entry : snippets) {
        list.push_back(entry.toJson());
    }
    return json{{"snippets", std::move(list)}, {"version", version}};
}

std::optional<Transfer::Pack> Transfer::Pack::fromJson(const json& object) {
    if (!object.is_object()) {
        return std::nullopt;
    }
    auto version = object.find("version");
    auto snippets = object.find("snippets");
    if (version == object.end() || snippets == object.end()) {
        return std::nullopt;
    }
    std::optional<int> number = integer(*version);
    std::optional<std::vector<Entry>> entries = entriesFromJson(*snippets);
    if (!number || !entries) {
        return std::nullopt;
    }
    return Pack{*number, std::move(*entries)};
}

std::string Transfer::Report::text() const {
    std::string out =
        "Added " + std::to_string(added.size()) + " snippet" + (added.size() == 1 ? "" : "s") + ".";
    if (!skipped.empty()) {
        out += " Left out:\n" + bulleted(skipped);
    }
    if (!notes.empty()) {
        out += "\n\nWorth a look:\n" + bulleted(notes);
    }
    return out;
}

const std::string& Transfer::exportName() {
    static const std::string name = "quillet-snippets.json";
    return name;
}

std::string Transfer::exportFile(const std::vector<Snippet>& library) {
    Pack pack;
    for (const Snippet& s : library) {
        if (s.abbreviation.empty()) {
            continue;
        }
        Entry entry = Entry::from(s);
        // The library holds no text for a locked snippet; what stands there is not its text.
        if (s.locked) {
            entry.content.clear();
        }
        pack.snippets.push_back(std::move(entry));
    }
    // Objects keep their keys sorted, so the dump is sorted too.
    return pack.toJson().dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

std::string Transfer::exportMessage(const std::vector<Snippet>& library) {
    std::size_t count = 0;
    bool anyLocked = false;
    for (const Snippet& s : library) {
        count += s.abbreviation.empty() ? 0 : 1;
        anyLocked = anyLocked || s.locked;
    }
    std::string message = "Exported " + std::to_string(count) + " snippets. Images stay behind.";
    if (anyLocked) {
        message += " Locked snippets are exported without their text.";
    }
    return message;
}

bool Transfer::writeExport(const std::filesystem::path& path, const std::vector<Snippet>& library,
                           std::string& error) {
    // The umask can only be read by setting it; it is put back at once.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return writeFileAtomically(path, exportFile(library), 0666 & ~mask, error);
}

Transfer::Incoming Transfer::read(std::string_view bytes, const ForeignReader& foreign) {
    Incoming incoming;
    auto take = [&](const std::vector<Entry>& entries) {
        incoming.snippets.reserve(entries.size());
        for (const Entry& entry : entries) {
            incoming.snippets.push_back(entry.snippet());
        }
    };
    // Only text that starts like a JSON value is parsed as one: a CSV file is then never held
    // twice in memory.
    std::string_view body = bytes.starts_with("\xEF\xBB\xBF") ? bytes.substr(3) : bytes;
    if (startsLikeJson(body) && nestsAtMost(body, 4)) {
        json document = parseJson(bytes);
        if (!document.is_discarded()) {
            if (std::optional<Pack> pack = Pack::fromJson(document)) {
                take(pack->snippets);
                return incoming;
            }
            if (std::optional<std::vector<Entry>> entries = entriesFromJson(document)) {
                take(*entries);
                return incoming;
            }
        }
    }
    if (foreign) {
        if (std::optional<Foreign> read = foreign(bytes)) {
            for (Entry& entry : read->entries) {
                if (!entry.regex.value_or(false)) {
                    entry.abbreviation = withSemicolon(entry.abbreviation);
                }
            }
            take(read->entries);
            incoming.skipped = std::move(read->skipped);
            incoming.notes = std::move(read->notes);
            return incoming;
        }
    }
    if (!text::isValidUtf8(bytes)) {
        incoming.skipped.push_back("This file isn't text.");
        return incoming;
    }
    return readCsvFile(body);
}

bool Transfer::startsLikeJson(std::string_view bytes) {
    if (bytes.starts_with("\xEF\xBB\xBF")) {
        bytes.remove_prefix(3);
    }
    const std::size_t first = bytes.find_first_not_of(" \t\r\n");
    return first != std::string_view::npos && (bytes[first] == '{' || bytes[first] == '[');
}

std::string Transfer::withSemicolon(std::string_view abbreviation) {
    if (abbreviation.empty()) {
        return {};
    }
    for (std::string_view character : text::graphemes(abbreviation)) {
        if (text::isLetterOrDigit(character)) {
            const auto from = static_cast<std::size_t>(character.data() - abbreviation.data());
            return ";" + std::string(abbreviation.substr(from));
        }
    }
    std::size_t rest = abbreviation.find_first_not_of(';');
    return ";" + std::string(rest == std::string_view::npos ? "" : abbreviation.substr(rest));
}

bool Transfer::isRisky(const Snippet& snippet) {
    // The same snippets the command line leaves to the editor.
    return snippet.needsEditor();
}

std::optional<Transfer::Warning> Transfer::trustWarning(const std::vector<Snippet>& incoming) {
    std::string names;
    for (const Snippet& s : incoming) {
        if (isRisky(s)) {
            names += (names.empty() ? "" : ", ") + s.abbreviation;
        }
    }
    if (names.empty()) {
        return std::nullopt;
    }
    return Warning{"Some of these press keys, paste your clipboard or run scripts",
                   names + "\n\nImport them only if you trust where they came from."};
}

Transfer::Report Transfer::merge(Incoming incoming, const std::vector<Snippet>& library) {
    Report report;
    report.skipped = std::move(incoming.skipped);
    report.notes = std::move(incoming.notes);
    // Abbreviations are compared as the keyboard engine sees them: a composed and a decomposed
    // accent are the same abbreviation. Added snippets are reserved for so that the pointers to
    // them stay valid.
    report.added.reserve(incoming.snippets.size());
    std::unordered_map<std::string, std::vector<const Snippet*>> existing;
    existing.reserve(library.size() + incoming.snippets.size());
    for (const Snippet& s : library) {
        existing[text::nfc(s.abbreviation)].push_back(&s);
    }
    for (Snippet& s : incoming.snippets) {
        if (s.abbreviation.empty()) {
            report.skipped.push_back("A snippet with no abbreviation.");
            continue;
        }
        std::vector<const Snippet*>& same = existing[text::nfc(s.abbreviation)];
        bool duplicate = false;
        for (const Snippet* other : same) {
            if (other->scope == s.scope && other->apps == s.apps && other->sites == s.sites) {
                duplicate = true;
                break;
            }
        }
        if (duplicate) {
            report.skipped.push_back(s.abbreviation + ": you already have one.");
            continue;
        }
        if (isRisky(s)) {
            report.notes.push_back(s.abbreviation + ": presses keys, pastes your clipboard, "
                                                    "includes another snippet or runs a script.");
        }
        report.added.push_back(std::move(s));
        same.push_back(&report.added.back());
    }
    return report;
}

} // namespace quillet
