#include "library/Snippet.h"

#include <array>
#include <cmath>
#include <utility>

namespace quillet {
namespace {

using nlohmann::json;

constexpr std::array allScopes{Snippet::Scope::everywhere, Snippet::Scope::only,
                               Snippet::Scope::except};
constexpr std::array allKinds{Snippet::Kind::text, Snippet::Kind::javascript, Snippet::Kind::shell,
                              Snippet::Kind::applescript};

std::string inQuotes(std::string_view key) {
    return "\"" + std::string(key) + "\"";
}

// Reads the keys of one record, remembering the first problem. Optional keys holding null count
// as absent: hand-edited and generated files often spell an absent value that way.
class Reader {
public:
    explicit Reader(const json& object) : object_(object) {}

    const std::string& error() const { return error_; }
    bool failed() const { return !error_.empty(); }

    // The value under a required key; null after recording the problem when it is missing.
    const json* required(std::string_view key) {
        auto it = object_.find(key);
        if (it == object_.end()) {
            fail(inQuotes(key) + " is missing");
            return nullptr;
        }
        return &*it;
    }

    // The value under an optional key, or null when absent.
    const json* optional(std::string_view key) const {
        auto it = object_.find(key);
        if (it == object_.end() || it->is_null()) {
            return nullptr;
        }
        return &*it;
    }

    void text(std::string_view key, const json* value, std::string& out) {
        if (value == nullptr) {
            return;
        }
        if (!value->is_string()) {
            fail(inQuotes(key) + " is not text");
            return;
        }
        out = value->get<std::string>();
    }

    void flag(std::string_view key, bool& out) {
        const json* value = optional(key);
        if (value == nullptr) {
            return;
        }
        if (!value->is_boolean()) {
            fail(inQuotes(key) + " is not true or false");
            return;
        }
        out = value->get<bool>();
    }

    void list(std::string_view key, std::vector<std::string>& out) {
        const json* value = optional(key);
        if (value == nullptr) {
            return;
        }
        if (!value->is_array()) {
            fail(inQuotes(key) + " is not a list");
            return;
        }
        std::vector<std::string> items;
        items.reserve(value->size());
        for (const auto& item : *value) {
            if (!item.is_string()) {
                fail(inQuotes(key) + " holds an entry that is not text");
                return;
            }
            items.push_back(item.get<std::string>());
        }
        out = std::move(items);
    }

    // An enumeration stored by its text value; fromRaw maps the text to the case.
    template <typename E, typename FromRaw>
    void enumeration(std::string_view key, std::optional<E>& out, FromRaw fromRaw) {
        const json* value = optional(key);
        if (value == nullptr) {
            return;
        }
        if (!value->is_string()) {
            fail(inQuotes(key) + " is not text");
            return;
        }
        const auto& raw = value->get_ref<const std::string&>();
        auto parsed = fromRaw(raw);
        if (!parsed) {
            fail(inQuotes(key) + " has an unknown value " + inQuotes(raw));
            return;
        }
        out = *parsed;
    }

    void fail(std::string message) {
        if (error_.empty()) {
            error_ = std::move(message);
        }
    }

private:
    const json& object_;
    std::string error_;
};

bool isLineBreak(std::string_view s, std::size_t i, std::size_t& length) {
    auto byte = static_cast<unsigned char>(s[i]);
    if (byte == '\n' || byte == '\r' || byte == '\v' || byte == '\f') {
        length = 1;
        return true;
    }
    // U+0085 NEXT LINE, U+2028 LINE SEPARATOR, U+2029 PARAGRAPH SEPARATOR.
    if (byte == 0xC2 && i + 1 < s.size() && static_cast<unsigned char>(s[i + 1]) == 0x85) {
        length = 2;
        return true;
    }
    if (byte == 0xE2 && i + 2 < s.size() && static_cast<unsigned char>(s[i + 1]) == 0x80 &&
        (static_cast<unsigned char>(s[i + 2]) == 0xA8 ||
         static_cast<unsigned char>(s[i + 2]) == 0xA9)) {
        length = 3;
        return true;
    }
    return false;
}

void combine(std::size_t& seed, std::size_t value) {
    seed ^= value + 0x9E3779B97F4A7C15ULL + (seed << 6) + (seed >> 2);
}

} // namespace

Snippet Snippet::make() {
    Snippet snippet;
    snippet.id = Uuid::random();
    snippet.created = Date::now();
    return snippet;
}

bool Snippet::isBlank() const {
    bool blankAbbreviation = abbreviation.find_first_not_of(" \t") == std::string::npos;
    return blankAbbreviation && content.empty() && !image && !locked;
}

bool Snippet::needsEditor() const {
    if (regex || kind != Kind::text) {
        return true;
    }
    for (std::string_view token : {"{key:", "{clipboard", "{snippet:"}) {
        if (content.find(token) != std::string::npos) {
            return true;
        }
    }
    return false;
}

std::string_view Snippet::firstLine() const {
    std::string_view s = content;
    for (std::size_t i = 0; i < s.size(); ++i) {
        std::size_t length = 0;
        if (isLineBreak(s, i, length)) {
            return s.substr(0, i);
        }
    }
    return s;
}

std::string_view rawValue(Snippet::Scope scope) {
    switch (scope) {
    case Snippet::Scope::everywhere:
        return "everywhere";
    case Snippet::Scope::only:
        return "only";
    case Snippet::Scope::except:
        return "except";
    }
    return "everywhere";
}

std::optional<Snippet::Scope> scopeFromRaw(std::string_view raw) {
    for (auto scope : allScopes) {
        if (rawValue(scope) == raw) {
            return scope;
        }
    }
    return std::nullopt;
}

std::string_view rawValue(Snippet::Kind kind) {
    switch (kind) {
    case Snippet::Kind::text:
        return "text";
    case Snippet::Kind::javascript:
        return "javascript";
    case Snippet::Kind::shell:
        return "shell";
    case Snippet::Kind::applescript:
        return "applescript";
    }
    return "text";
}

std::optional<Snippet::Kind> kindFromRaw(std::string_view raw) {
    for (auto kind : allKinds) {
        if (rawValue(kind) == raw) {
            return kind;
        }
    }
    return std::nullopt;
}

json toJson(const Snippet& snippet) {
    json object = {
        {"id", snippet.id.text()},        {"abbreviation", snippet.abbreviation},
        {"content", snippet.content},     {"scope", rawValue(snippet.scope)},
        {"apps", snippet.apps},           {"sites", snippet.sites},
        {"markdown", snippet.markdown},   {"regex", snippet.regex},
        {"kind", rawValue(snippet.kind)}, {"archived", snippet.archived},
        {"locked", snippet.locked},
    };
    if (snippet.image) {
        object["image"] = *snippet.image;
    }
    if (snippet.trigger) {
        object["trigger"] = rawValue(*snippet.trigger);
    }
    // JSON has no infinity or NaN; such a date would be written as null and then read as absent,
    // so it is left out right away.
    if (snippet.created && std::isfinite(snippet.created->seconds)) {
        object["created"] = snippet.created->seconds;
    }
    return object;
}

std::optional<Snippet> snippetFromJson(const json& object, std::string& error) {
    if (!object.is_object()) {
        error = "the record is not a JSON object";
        return std::nullopt;
    }
    Reader reader(object);
    Snippet snippet;

    if (const json* id = reader.required("id")) {
        std::string text;
        reader.text("id", id, text);
        if (!reader.failed()) {
            if (auto parsed = Uuid::parse(text)) {
                snippet.id = *parsed;
            } else {
                reader.fail("\"id\" is not a UUID: " + inQuotes(text));
            }
        }
    }
    reader.text("abbreviation", reader.required("abbreviation"), snippet.abbreviation);
    reader.text("content", reader.required("content"), snippet.content);

    std::optional<Snippet::Scope> scope;
    reader.enumeration("scope", scope, scopeFromRaw);
    snippet.scope = scope.value_or(Snippet::Scope::everywhere);
    reader.list("apps", snippet.apps);
    reader.list("sites", snippet.sites);
    reader.flag("markdown", snippet.markdown);
    if (const json* image = reader.optional("image")) {
        std::string name;
        reader.text("image", image, name);
        snippet.image = std::move(name);
    }
    reader.flag("regex", snippet.regex);
    std::optional<Snippet::Kind> kind;
    reader.enumeration("kind", kind, kindFromRaw);
    snippet.kind = kind.value_or(Snippet::Kind::text);
    reader.flag("archived", snippet.archived);
    reader.flag("locked", snippet.locked);
    reader.enumeration("trigger", snippet.trigger, triggerModeFromRaw);
    if (const json* created = reader.optional("created")) {
        if (created->is_number()) {
            snippet.created = Date{created->get<double>()};
        } else {
            reader.fail("\"created\" is not a number");
        }
    }

    if (reader.failed()) {
        error = reader.error();
        return std::nullopt;
    }
    return snippet;
}

} // namespace quillet

std::size_t std::hash<quillet::Snippet>::operator()(const quillet::Snippet& s) const noexcept {
    using quillet::combine;
    std::hash<std::string> text;
    std::size_t seed = std::hash<quillet::Uuid>{}(s.id);
    combine(seed, text(s.abbreviation));
    combine(seed, text(s.content));
    combine(seed, static_cast<std::size_t>(s.scope));
    for (const auto& app : s.apps) {
        combine(seed, text(app));
    }
    combine(seed, s.apps.size());
    for (const auto& site : s.sites) {
        combine(seed, text(site));
    }
    combine(seed, s.sites.size());
    combine(seed, s.image ? text(*s.image) + 1 : 0);
    combine(seed, static_cast<std::size_t>(s.kind));
    combine(seed, (s.markdown ? 1U : 0U) | (s.regex ? 2U : 0U) | (s.archived ? 4U : 0U) |
                      (s.locked ? 8U : 0U));
    combine(seed, s.trigger ? static_cast<std::size_t>(*s.trigger) + 1 : 0);
    // Adding 0.0 turns -0.0 into 0.0: the two compare equal and must hash alike.
    combine(seed, s.created ? std::hash<double>{}(s.created->seconds + 0.0) + 1 : 0);
    return seed;
}
