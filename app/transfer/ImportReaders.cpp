// The readers of other expanders' data that work on bytes: Espanso's match files, aText's data
// file, Keyboard Maestro's macros, Alfred's snippet files and the JSON exports of several
// programs.
#include "library/AtomicFile.h"
#include "library/Text.h"
#include "transfer/Importers.h"
#include "transfer/Lz4Frame.h"
#include "transfer/PropertyList.h"

#include <algorithm>
#include <functional>

namespace quillet {
namespace {

using nlohmann::json;
using Result = Importers::Result;

const std::string aSnippet = "A snippet";

// Every place where text has opener and then what parse accepts is replaced; parse is given
// the text after the opener and returns how much of it the match takes and its replacement.
using Parse = std::function<std::optional<std::pair<std::size_t, std::string>>(std::string_view)>;

std::string substitute(std::string_view text, std::string_view opener, const Parse& parse) {
    std::string out;
    std::size_t from = 0;
    for (std::size_t at = text.find(opener); at != std::string_view::npos;
         at = text.find(opener, at + 1)) {
        if (at < from) {
            continue;
        }
        if (auto match = parse(text.substr(at + opener.size()))) {
            out.append(text.substr(from, at - from));
            out += match->second;
            from = at + opener.size() + match->first;
        }
    }
    out.append(text.substr(from));
    return out;
}

std::string replaceAll(std::string_view text, std::string_view from, std::string_view to) {
    return substitute(text, from, [&](std::string_view) {
        return std::optional<std::pair<std::size_t, std::string>>({0, std::string(to)});
    });
}

// The run at the start of s of characters that are not one of stop; nothing when empty.
std::size_t runUntil(std::string_view s, std::string_view stop) {
    return std::min(s.find_first_of(stop), s.size());
}

bool isAsciiLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// A word character as YAML keys and form names use them; bytes of non-ASCII letters count.
bool isWord(char c) {
    return isAsciiLetter(c) || (c >= '0' && c <= '9') || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

std::size_t wordRun(std::string_view s) {
    std::size_t n = 0;
    while (n < s.size() && isWord(s[n])) {
        ++n;
    }
    return n;
}

void add(Result& result, const std::string& abbreviation, std::string content) {
    Transfer::Entry entry;
    entry.abbreviation = abbreviation;
    entry.content = std::move(content);
    result.entries.push_back(std::move(entry));
}

const std::string* stringAt(const json& object, const char* key) {
    if (!object.is_object()) {
        return nullptr;
    }
    auto it = object.find(key);
    return it != object.end() && it->is_string() ? &it->get_ref<const std::string&>() : nullptr;
}

std::string stringOr(const json& object, const char* key, const std::string& fallback) {
    const std::string* value = stringAt(object, key);
    return value != nullptr ? *value : fallback;
}

// ---- Espanso ----

std::string espansoText(std::string text, bool form) {
    if (form) {
        text = substitute(text, "[[", [](std::string_view rest) {
            const std::size_t n = wordRun(rest);
            return n > 0 && rest.substr(n).starts_with("]]")
                       ? std::optional<std::pair<std::size_t, std::string>>(
                             {n + 2, "{field:" + std::string(rest.substr(0, n)) + "}"})
                       : std::nullopt;
        });
    }
    text = replaceAll(text, "{{clipboard}}", "{clipboard}");
    return replaceAll(text, "$|$", "{cursor}");
}

std::size_t indentOf(std::string_view line) {
    return std::min(line.find_first_not_of(" \t"), line.size());
}

std::string_view trimEnd(std::string_view s) {
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) {
        s.remove_suffix(1);
    }
    return s;
}

// A scalar as YAML writes it on one line: quoted with its escapes, or plain up to a comment.
std::string scalar(std::string_view value) {
    value = trimEnd(value);
    if (value.size() >= 2 && value.front() == '\'' && value.back() == '\'') {
        return replaceAll(value.substr(1, value.size() - 2), "''", "'");
    }
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
        std::string out;
        value = value.substr(1, value.size() - 2);
        for (std::size_t i = 0; i < value.size(); ++i) {
            if (value[i] != '\\' || i + 1 == value.size()) {
                out += value[i];
                continue;
            }
            const char c = value[++i];
            switch (c) {
            case 'n':
                out += '\n';
                break;
            case 't':
                out += '\t';
                break;
            case 'r':
                out += '\r';
                break;
            case '0':
                out += '\0';
                break;
            case 'u':
            case 'x': {
                const std::size_t digits = c == 'u' ? 4 : 2;
                unsigned code = 0;
                std::size_t n = 0;
                for (; n < digits && i + 1 + n < value.size() &&
                       text::hexDigit(value[i + 1 + n]) >= 0;
                     ++n) {
                    code = code * 16 + static_cast<unsigned>(text::hexDigit(value[i + 1 + n]));
                }
                if (n < digits) {
                    out += '\\';
                    out += c;
                    break;
                }
                i += digits;
                out += text::fromIcu(icu::UnicodeString(static_cast<UChar32>(code)));
                break;
            }
            default:
                out += c;
            }
        }
        return out;
    }
    const std::size_t comment = value.find(" #");
    return std::string(trimEnd(value.substr(0, comment)));
}

// A key line "  - key: value": its indentation, whether it starts a list item, where its key
// begins, the key and the rest.
struct KeyLine {
    std::size_t indent = 0;
    bool item = false;
    std::size_t keyColumn = 0;
    std::string_view key;
    std::string_view value;
};

std::optional<KeyLine> keyLine(std::string_view line) {
    KeyLine k;
    k.indent = indentOf(line);
    std::size_t at = k.indent;
    if (at < line.size() && line[at] == '-') {
        const std::size_t after = line.find_first_not_of(" \t", at + 1);
        if (after == at + 1 || after == std::string_view::npos) {
            return std::nullopt;
        }
        k.item = true;
        at = after;
    }
    k.keyColumn = at;
    const std::size_t n = wordRun(line.substr(at));
    if (n == 0 || at + n >= line.size() || line[at + n] != ':') {
        return std::nullopt;
    }
    k.key = line.substr(at, n);
    const std::size_t value = line.find_first_not_of(" \t", at + n + 1);
    if (value != std::string_view::npos && value == at + n + 1) {
        return std::nullopt; // "a:b" is a plain value, not a key
    }
    k.value = value == std::string_view::npos ? std::string_view() : trimEnd(line.substr(value));
    return k;
}

bool isBlockMarker(std::string_view value) {
    return !value.empty() && (value[0] == '|' || value[0] == '>') &&
           value.substr(1).find_first_not_of("+-0123456789") == std::string_view::npos;
}

struct EspansoMatch {
    std::vector<std::string> triggers;
    std::optional<std::string> text;
    bool form = false;
    bool notText = false;
};

void finish(Result& result, std::optional<EspansoMatch>& match) {
    if (!match || match->triggers.empty()) {
        match.reset();
        return;
    }
    const std::string& name = match->triggers.front();
    if (match->notText) {
        result.skipped.push_back(name + ": an image or script, not text.");
    } else if (match->text) {
        const std::string text = espansoText(*match->text, match->form);
        if (text.find("{{") != std::string::npos) {
            result.notes.push_back(name + ": Espanso variables kept as text.");
        }
        for (const std::string& trigger : match->triggers) {
            add(result, trigger, text);
        }
    }
    match.reset();
}

// ---- aText ----

void walkAText(const json& node, int depth, Result& result) {
    if (depth > 64) {
        return;
    }
    if (node.is_array()) {
        for (const json& child : node) {
            walkAText(child, depth + 1, result);
        }
        return;
    }
    if (!node.is_object()) {
        return;
    }
    auto children = node.find("13");
    const bool group = (node.contains("99") && node["99"] == 1) ||
                       (children != node.end() && children->is_array() &&
                        std::any_of(children->begin(), children->end(),
                                    [](const json& c) { return c.is_object(); }));
    if (group) {
        if (children != node.end()) {
            walkAText(*children, depth + 1, result);
        }
        return;
    }
    std::vector<std::string> abbreviations;
    if (auto one = node.find("1"); one != node.end()) {
        if (one->is_string() && !one->get_ref<const std::string&>().empty()) {
            abbreviations.push_back(one->get<std::string>());
        } else if (one->is_array()) {
            for (const json& a : *one) {
                if (a.is_string() && !a.get_ref<const std::string&>().empty()) {
                    abbreviations.push_back(a.get<std::string>());
                }
            }
        }
    }
    if (abbreviations.empty()) {
        result.skipped.push_back(stringOr(node, "2", aSnippet) + ": no abbreviation in aText.");
        return;
    }
    const std::string type = stringOr(node, "3", "t");
    const std::string content = stringOr(node, "4", "");
    if ((type != "t" && type != "r" && type != "h") || content.empty()) {
        result.skipped.push_back(abbreviations.front() + ": a script or picture snippet.");
        return;
    }
    if (type != "t") {
        result.notes.push_back(abbreviations.front() + ": rich text came over as plain text.");
    }
    for (const std::string& a : abbreviations) {
        add(result, a, content);
    }
}

// ---- Keyboard Maestro ----

std::string keyboardMaestroText(std::string text) {
    text = replaceAll(text, "%CurrentClipboard%", "{clipboard}");
    text = substitute(text, "%PastClipboard%", [](std::string_view rest) {
        std::size_t n = 0;
        while (n < rest.size() && rest[n] >= '0' && rest[n] <= '9') {
            ++n;
        }
        return n > 0 && rest.substr(n).starts_with("%")
                   ? std::optional<std::pair<std::size_t, std::string>>(
                         {n + 1, "{clipboard:" + std::string(rest.substr(0, n)) + "}"})
                   : std::nullopt;
    });
    return replaceAll(text, "%|%", "{cursor}");
}

// True when text holds %Name%, a token of Keyboard Maestro's.
bool hasKeyboardMaestroToken(std::string_view text) {
    for (std::size_t at = text.find('%'); at != std::string_view::npos;
         at = text.find('%', at + 1)) {
        std::size_t n = at + 1;
        while (n < text.size() && isAsciiLetter(text[n])) {
            ++n;
        }
        if (n > at + 1 && n < text.size() && text[n] == '%') {
            return true;
        }
    }
    return false;
}

const json& listAt(const json& object, const char* key) {
    static const json empty = json::array();
    if (!object.is_object()) {
        return empty;
    }
    auto it = object.find(key);
    return it != object.end() && it->is_array() ? *it : empty;
}

// ---- TextExpander ----

using Match = std::optional<std::pair<std::size_t, std::string>>;

// name=NAME then what follows up to the closing %, or nothing.
Match fillField(std::string_view rest) {
    if (!rest.starts_with("name=")) {
        return std::nullopt;
    }
    const std::size_t name = runUntil(rest.substr(5), ":%");
    const std::size_t close = rest.find('%', 5 + name);
    if (name == 0 || close == std::string_view::npos) {
        return std::nullopt;
    }
    return Match({close + 1, "{field:" + std::string(rest.substr(5, name)) + "}"});
}

Match fillPopup(std::string_view rest) {
    if (!rest.starts_with("name=")) {
        return std::nullopt;
    }
    const std::size_t name = runUntil(rest.substr(5), ":%");
    const std::size_t colon = 5 + name;
    if (name == 0 || colon >= rest.size() || rest[colon] != ':') {
        return std::nullopt;
    }
    const std::size_t close = rest.find('%', colon + 1);
    if (close == std::string_view::npos) {
        return std::nullopt;
    }
    std::vector<std::string> options;
    std::string_view list = rest.substr(colon + 1, close - colon - 1);
    bool haveDefault = false;
    for (;;) {
        const std::size_t end = std::min(list.find(':'), list.size());
        std::string_view option = list.substr(0, end);
        if (option.starts_with("default=") && !haveDefault) {
            options.insert(options.begin(), std::string(option.substr(8)));
            haveDefault = true;
        } else if (option.starts_with("default=")) {
            options.emplace_back(option.substr(8));
        } else {
            options.emplace_back(option);
        }
        if (end == list.size()) {
            break;
        }
        list.remove_prefix(end + 1);
    }
    std::string joined;
    for (const std::string& o : options) {
        joined += (joined.empty() ? "" : "|") + o;
    }
    return Match({close + 1, "{choice:" + std::string(rest.substr(5, name)) + "=" + joined + "}"});
}

std::string textExpanderText(std::string text) {
    text = substitute(text, "%filltext:", fillField);
    text = substitute(text, "%fillarea:", fillField);
    text = substitute(text, "%fillpopup:", fillPopup);
    text = replaceAll(text, "%clipboard", "{clipboard}");
    return replaceAll(text, "%|", "{cursor}");
}

bool hasTextExpanderMacro(std::string_view text) {
    for (std::size_t at = text.find('%'); at != std::string_view::npos;
         at = text.find('%', at + 1)) {
        if (at + 1 < text.size() && isAsciiLetter(text[at + 1])) {
            return true;
        }
    }
    return false;
}

Result textExpander(const json& list) {
    Result result;
    for (const json& item : list.is_array() ? list : json::array()) {
        const std::string abbreviation = stringOr(item, "abbreviation", "");
        const std::string name = abbreviation.empty() ? aSnippet : abbreviation;
        int kind = 0;
        if (item.is_object()) {
            auto it = item.find("snippetType");
            if (it != item.end() && it->is_number()) {
                kind = it->get<double>() > 1 ? 2 : static_cast<int>(it->get<double>());
            }
        }
        if (kind > 1 || kind < 0) {
            result.skipped.push_back(name + ": a script or picture snippet.");
            continue;
        }
        const std::string text = textExpanderText(stringOr(item, "plainText", ""));
        if (kind == 1) {
            result.notes.push_back(name + ": rich text came over as plain text.");
        }
        if (hasTextExpanderMacro(text)) {
            result.notes.push_back(name + ": TextExpander macros (like dates) kept as text.");
        }
        add(result, abbreviation, text);
    }
    return result;
}

// ---- Raycast ----

// Raycast's argument placeholders of text as fields. The closing brace found for one placeholder
// serves the ones before it, so a text of many unclosed placeholders is still read in one pass.
std::string raycastText(std::string_view text) {
    std::size_t close = 0;
    return substitute(text, "{argument ", [&](std::string_view rest) -> Match {
        if (!rest.starts_with("name=\"")) {
            return std::nullopt;
        }
        const std::size_t name = runUntil(rest.substr(6), "\"");
        const std::size_t quote = 6 + name;
        if (name == 0 || quote >= rest.size()) {
            return std::nullopt;
        }
        const auto from = static_cast<std::size_t>(rest.data() - text.data()) + quote + 1;
        if (close != std::string_view::npos && close < from) {
            close = text.find('}', from);
        }
        if (close == std::string_view::npos) {
            return std::nullopt;
        }
        return Match(
            {close + 1 - (from - quote - 1), "{field:" + std::string(rest.substr(6, name)) + "}"});
    });
}

bool hasRaycastOptions(std::string_view text) {
    for (std::string_view word : {"{date ", "{time ", "{clipboard "}) {
        for (std::size_t at = text.find(word); at != std::string_view::npos;
             at = text.find(word, at + 1)) {
            const std::size_t from = at + word.size();
            const std::size_t close = text.find('}', from);
            if (close == std::string_view::npos) {
                break; // nor after any later one
            }
            if (close > from) {
                return true;
            }
        }
    }
    return false;
}

Result raycast(const json& list) {
    Result result;
    for (const json& item : list) {
        const std::string keyword = stringOr(item, "keyword", "");
        if (keyword.empty()) {
            result.skipped.push_back(stringOr(item, "name", aSnippet) + ": no keyword in Raycast.");
            continue;
        }
        const std::string text = raycastText(*stringAt(item, "text"));
        if (hasRaycastOptions(text)) {
            result.notes.push_back(keyword + ": Raycast date or clipboard options kept as text.");
        }
        add(result, keyword, text);
    }
    return result;
}

// One Alfred snippet file's object; prefix and suffix come from its collection.
void alfredSnippet(const json& object, const std::string& prefix, const std::string& suffix,
                   Result& result) {
    auto it = object.is_object() ? object.find("alfredsnippet") : object.end();
    if (it == object.end() || !it->is_object()) {
        return;
    }
    const std::string keyword = stringOr(*it, "keyword", "");
    if (keyword.empty()) {
        result.skipped.push_back(stringOr(*it, "name", aSnippet) + ": no keyword in Alfred.");
        return;
    }
    add(result, prefix + keyword + suffix, stringOr(*it, "snippet", ""));
}

bool everyItemHas(const json& list, std::initializer_list<const char*> keys) {
    return list.is_array() && !list.empty() &&
           std::all_of(list.begin(), list.end(), [&](const json& item) {
               return std::all_of(keys.begin(), keys.end(),
                                  [&](const char* key) { return stringAt(item, key) != nullptr; });
           });
}

json parse(std::string_view bytes) {
    return json::parse(bytes.begin(), bytes.end(), nullptr, false);
}

} // namespace

Result Importers::espansoFile(std::string_view text) {
    Result result;
    std::vector<std::string_view> lines;
    for (std::size_t from = 0; from <= text.size();) {
        const std::size_t end = std::min(text.find('\n', from), text.size());
        lines.push_back(trimEnd(text.substr(from, end - from)));
        from = end + 1;
    }
    std::string section;
    constexpr std::size_t none = std::string_view::npos;
    std::size_t itemIndent = none;
    std::size_t keyColumn = 0;
    std::string_view lastKey;
    std::optional<EspansoMatch> match;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string_view line = lines[i];
        const std::size_t indent = indentOf(line);
        if (indent == line.size() || line[indent] == '#') {
            continue;
        }
        std::optional<KeyLine> k = keyLine(line);
        if (!k) {
            // An item of the list under the key above it.
            const std::size_t item = line.find_first_not_of(" \t", indent + 1);
            if (match && line[indent] == '-' && lastKey == "triggers" && item != line.npos) {
                match->triggers.push_back(scalar(line.substr(item)));
            }
            continue;
        }
        std::string value;
        if (isBlockMarker(k->value)) {
            // More-indented lines (and blank ones among them) make the value.
            std::vector<std::string_view> block;
            std::size_t common = std::string_view::npos;
            std::size_t j = i + 1;
            for (; j < lines.size(); ++j) {
                const std::size_t in = indentOf(lines[j]);
                if (in == lines[j].size()) {
                    block.push_back({});
                    continue;
                }
                if (in <= k->keyColumn) {
                    break;
                }
                block.push_back(lines[j]);
                common = std::min(common, in);
            }
            while (!block.empty() && block.back().empty()) {
                block.pop_back();
            }
            const bool folded = k->value[0] == '>';
            for (std::size_t b = 0; b < block.size(); ++b) {
                std::string_view part = block[b].empty() ? block[b] : block[b].substr(common);
                if (b > 0) {
                    value += folded && !part.empty() && !block[b - 1].empty() ? " " : "\n";
                }
                value += part;
            }
            i = j - 1;
        } else if (k->value.starts_with("[") && k->value.ends_with("]")) {
            value = std::string(k->value);
        } else {
            value = scalar(k->value);
        }

        if (!k->item && k->indent == 0) {
            finish(result, match);
            section = std::string(k->key);
            itemIndent = none;
            continue;
        }
        if (section != "matches") {
            continue;
        }
        if (k->item && (itemIndent == none || k->indent <= itemIndent)) {
            finish(result, match);
            match.emplace();
            itemIndent = k->indent;
            keyColumn = k->keyColumn;
        }
        if (!match) {
            continue;
        }
        if (k->key == "type" && (value == "shell" || value == "script")) {
            match->notText = true;
        }
        if (k->keyColumn != keyColumn) {
            continue;
        }
        lastKey = k->key;
        if (k->key == "trigger") {
            match->triggers = {value};
        } else if (k->key == "triggers") {
            match->triggers.clear();
            if (value.starts_with("[") && value.ends_with("]")) {
                std::string_view inner = std::string_view(value).substr(1, value.size() - 2);
                while (!inner.empty()) {
                    const std::size_t comma = std::min(inner.find(','), inner.size());
                    std::string_view part = inner.substr(0, comma);
                    part.remove_prefix(std::min(part.find_first_not_of(" \t"), part.size()));
                    if (!part.empty()) {
                        match->triggers.push_back(scalar(part));
                    }
                    inner.remove_prefix(std::min(comma + 1, inner.size()));
                }
            }
        } else if (k->key == "replace" || k->key == "form" || k->key == "markdown" ||
                   k->key == "html") {
            match->text = value;
            match->form = k->key == "form";
        } else if (k->key == "image_path") {
            match->notText = true;
        }
    }
    finish(result, match);
    return result;
}

Result Importers::aText(std::string_view bytes) {
    Result result;
    std::optional<std::string> content = decodeLz4Frame(bytes);
    if (!content) {
        return result;
    }
    json tree = parse(*content);
    content.reset();
    if (!tree.is_discarded()) {
        walkAText(tree, 0, result);
    }
    return result;
}

Result Importers::keyboardMaestro(std::string_view bytes) {
    Result result;
    std::optional<json> root = readPropertyList(bytes);
    if (!root) {
        return result;
    }
    std::size_t untriggered = 0;
    for (const json& group : listAt(*root, "MacroGroups")) {
        for (const json& macro : listAt(group, "Macros")) {
            const std::string* typed = nullptr;
            for (const json& trigger : listAt(macro, "Triggers")) {
                const std::string* kind = stringAt(trigger, "MacroTriggerType");
                if (kind != nullptr && *kind == "TypedString" &&
                    stringAt(trigger, "TypedString") != nullptr) {
                    typed = stringAt(trigger, "TypedString");
                    break;
                }
            }
            if (typed == nullptr) {
                ++untriggered;
                continue;
            }
            const json& actions = listAt(macro, "Actions");
            const std::string* type =
                actions.size() == 1 ? stringAt(actions[0], "MacroActionType") : nullptr;
            if (type == nullptr || *type != "InsertText") {
                result.skipped.push_back(stringOr(macro, "Name", aSnippet) +
                                         ": does more than insert text, so it stays a Keyboard "
                                         "Maestro macro.");
                continue;
            }
            if (stringOr(actions[0], "Action", "") == "ByPastingStyles") {
                result.notes.push_back(*typed + ": styled text came over as plain text.");
            }
            const std::string text = keyboardMaestroText(stringOr(actions[0], "Text", ""));
            if (hasKeyboardMaestroToken(text)) {
                result.notes.push_back(*typed + ": Keyboard Maestro tokens kept as text.");
            }
            add(result, *typed, text);
        }
    }
    if (untriggered > 0) {
        result.notes.push_back(std::to_string(untriggered) + " macro" +
                               (untriggered == 1 ? "" : "s") +
                               " without a typed-string trigger stayed in Keyboard Maestro.");
    }
    return result;
}

Result Importers::alfred(const std::filesystem::path& snippetsFolder) {
    Result result;
    std::error_code error;
    std::vector<std::filesystem::path> collections;
    for (const auto& entry : std::filesystem::directory_iterator(snippetsFolder, error)) {
        if (entry.is_directory(error)) {
            collections.push_back(entry.path());
        }
    }
    std::sort(collections.begin(), collections.end());
    for (const std::filesystem::path& folder : collections) {
        std::string prefix;
        std::string suffix;
        FileContent info = readFile(folder / "info.plist");
        if (info.status == ReadStatus::ok) {
            if (std::optional<json> plist = readPropertyList(info.bytes)) {
                prefix = stringOr(*plist, "snippetkeywordprefix", "");
                suffix = stringOr(*plist, "snippetkeywordsuffix", "");
            }
        }
        std::vector<std::filesystem::path> files;
        for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
            if (entry.path().extension() == ".json" && entry.is_regular_file(error)) {
                files.push_back(entry.path());
            }
        }
        std::sort(files.begin(), files.end());
        for (const std::filesystem::path& file : files) {
            FileContent snippet = readFile(file);
            if (snippet.status == ReadStatus::ok) {
                alfredSnippet(parse(snippet.bytes), prefix, suffix, result);
            }
        }
    }
    return result;
}

std::optional<Result> Importers::foreignJson(std::string_view bytes) {
    json document = parse(bytes);
    if (document.is_object() && document.contains("snippetsTE2")) {
        return textExpander(document["snippetsTE2"]);
    }
    if (everyItemHas(document, {"shortcut", "phrase"})) {
        Result result;
        for (const json& item : document) {
            add(result, *stringAt(item, "shortcut"), *stringAt(item, "phrase"));
        }
        return result;
    }
    if (everyItemHas(document, {"text"})) {
        return raycast(document);
    }
    if (document.is_object() && document.contains("alfredsnippet")) {
        Result result;
        alfredSnippet(document, "", "", result);
        return result;
    }
    return std::nullopt;
}

} // namespace quillet
