#include "library/Snippet.h"

#include "library/JsonScanner.h"

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

// The keys a record may have, in the order they are checked, so that a record with several
// problems is always reported by the same one.
enum class Field {
    id,
    abbreviation,
    content,
    scope,
    apps,
    sites,
    markdown,
    image,
    regex,
    kind,
    archived,
    locked,
    trigger,
    created,
    count
};

constexpr std::array<std::string_view, static_cast<std::size_t>(Field::count)> fieldNames{
    "id",    "abbreviation", "content", "scope",    "apps",   "sites",   "markdown",
    "image", "regex",        "kind",    "archived", "locked", "trigger", "created"};

std::optional<Field> fieldNamed(std::string_view name) {
    for (std::size_t i = 0; i < fieldNames.size(); ++i) {
        if (fieldNames[i] == name) {
            return static_cast<Field>(i);
        }
    }
    return std::nullopt;
}

// What a record read from the text, without a document, keeps of the value of one of its keys:
// enough to answer what the checks ask of a json value, and to hand text over without a copy.
struct Value {
    enum class Type { null, boolean, number, string, array, object };

    Type type = Type::null;
    bool flag = false;
    double number = 0;
    std::string text;
    std::vector<std::string> items; // an array's text entries
    bool allText = true;            // false once an array held an entry that is not text
};

// The questions the checks ask of a value, for a document's values and for streamed ones.
bool isNull(const json& v) {
    return v.is_null();
}
bool isNull(const Value& v) {
    return v.type == Value::Type::null;
}
bool isText(const json& v) {
    return v.is_string();
}
bool isText(const Value& v) {
    return v.type == Value::Type::string;
}
bool isFlag(const json& v) {
    return v.is_boolean();
}
bool isFlag(const Value& v) {
    return v.type == Value::Type::boolean;
}
bool isList(const json& v) {
    return v.is_array();
}
bool isList(const Value& v) {
    return v.type == Value::Type::array;
}
bool isNumber(const json& v) {
    return v.is_number();
}
bool isNumber(const Value& v) {
    return v.type == Value::Type::number;
}
const std::string& textOf(const json& v) {
    return v.get_ref<const std::string&>();
}
const std::string& textOf(const Value& v) {
    return v.text;
}
void take(const json& v, std::string& out) {
    out = v.get<std::string>();
}
void take(Value& v, std::string& out) {
    out = std::move(v.text);
}
bool flagOf(const json& v) {
    return v.get<bool>();
}
bool flagOf(const Value& v) {
    return v.flag;
}
double numberOf(const json& v) {
    return v.get<double>();
}
double numberOf(const Value& v) {
    return v.number;
}

// The entries of a list when every one is text.
bool takeTexts(const json& v, std::vector<std::string>& out) {
    std::vector<std::string> items;
    items.reserve(v.size());
    for (const auto& item : v) {
        if (!item.is_string()) {
            return false;
        }
        items.push_back(item.get<std::string>());
    }
    out = std::move(items);
    return true;
}
bool takeTexts(Value& v, std::vector<std::string>& out) {
    if (!v.allText) {
        return false;
    }
    out = std::move(v.items);
    return true;
}

// A record held as a document.
class JsonRecord {
public:
    explicit JsonRecord(const json& object) : object_(object) {}
    const json* find(Field field) const {
        auto it = object_.find(fieldNames[static_cast<std::size_t>(field)]);
        return it == object_.end() ? nullptr : &*it;
    }

private:
    const json& object_;
};

// A record streamed from the text: the last value of each key, as a document keeps it.
using Slots = std::array<std::optional<Value>, static_cast<std::size_t>(Field::count)>;

class StreamedRecord {
public:
    explicit StreamedRecord(Slots& slots) : slots_(slots) {}
    Value* find(Field field) const {
        auto& slot = slots_[static_cast<std::size_t>(field)];
        return slot ? &*slot : nullptr;
    }

private:
    Slots& slots_;
};

// Reads the keys of one record, remembering the first problem. Optional keys holding null count
// as absent: hand-edited and generated files often spell an absent value that way.
template <typename Record> class Reader {
public:
    explicit Reader(Record record) : record_(record) {}

    const std::string& error() const { return error_; }
    bool failed() const { return !error_.empty(); }

    // The value under a required key; null after recording the problem when it is missing.
    auto* required(Field key) {
        auto* value = record_.find(key);
        if (value == nullptr) {
            fail(inQuotes(name(key)) + " is missing");
        }
        return value;
    }

    // The value under an optional key, or null when absent.
    auto* optional(Field key) const {
        auto* value = record_.find(key);
        return value == nullptr || isNull(*value) ? nullptr : value;
    }

    template <typename V> void text(Field key, V* value, std::string& out) {
        if (value == nullptr) {
            return;
        }
        if (!isText(*value)) {
            fail(inQuotes(name(key)) + " is not text");
            return;
        }
        take(*value, out);
    }

    void flag(Field key, bool& out) {
        const auto* value = optional(key);
        if (value == nullptr) {
            return;
        }
        if (!isFlag(*value)) {
            fail(inQuotes(name(key)) + " is not true or false");
            return;
        }
        out = flagOf(*value);
    }

    void list(Field key, std::vector<std::string>& out) {
        auto* value = optional(key);
        if (value == nullptr) {
            return;
        }
        if (!isList(*value)) {
            fail(inQuotes(name(key)) + " is not a list");
            return;
        }
        if (!takeTexts(*value, out)) {
            fail(inQuotes(name(key)) + " holds an entry that is not text");
        }
    }

    // An enumeration stored by its text value; fromRaw maps the text to the case.
    template <typename E, typename FromRaw>
    void enumeration(Field key, std::optional<E>& out, FromRaw fromRaw) {
        const auto* value = optional(key);
        if (value == nullptr) {
            return;
        }
        if (!isText(*value)) {
            fail(inQuotes(name(key)) + " is not text");
            return;
        }
        const std::string& raw = textOf(*value);
        auto parsed = fromRaw(raw);
        if (!parsed) {
            fail(inQuotes(name(key)) + " has an unknown value " + inQuotes(raw));
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
    static std::string_view name(Field key) { return fieldNames[static_cast<std::size_t>(key)]; }

    Record record_;
    std::string error_;
};

// The one set of checks, for a document's record and for a streamed one.
template <typename Record> std::optional<Snippet> decodeRecord(Record record, std::string& error) {
    Reader<Record> reader(record);
    Snippet snippet;

    if (auto* id = reader.required(Field::id)) {
        std::string text;
        reader.text(Field::id, id, text);
        if (!reader.failed()) {
            if (auto parsed = Uuid::parse(text)) {
                snippet.id = *parsed;
            } else {
                reader.fail("\"id\" is not a UUID: " + inQuotes(text));
            }
        }
    }
    reader.text(Field::abbreviation, reader.required(Field::abbreviation), snippet.abbreviation);
    reader.text(Field::content, reader.required(Field::content), snippet.content);

    std::optional<Snippet::Scope> scope;
    reader.enumeration(Field::scope, scope, scopeFromRaw);
    snippet.scope = scope.value_or(Snippet::Scope::everywhere);
    reader.list(Field::apps, snippet.apps);
    reader.list(Field::sites, snippet.sites);
    reader.flag(Field::markdown, snippet.markdown);
    if (auto* image = reader.optional(Field::image)) {
        std::string name;
        reader.text(Field::image, image, name);
        snippet.image = std::move(name);
    }
    reader.flag(Field::regex, snippet.regex);
    std::optional<Snippet::Kind> kind;
    reader.enumeration(Field::kind, kind, kindFromRaw);
    snippet.kind = kind.value_or(Snippet::Kind::text);
    reader.flag(Field::archived, snippet.archived);
    reader.flag(Field::locked, snippet.locked);
    reader.enumeration(Field::trigger, snippet.trigger, triggerModeFromRaw);
    if (const auto* created = reader.optional(Field::created)) {
        if (isNumber(*created)) {
            snippet.created = Date{numberOf(*created)};
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

// Follows the parser's events through a JSON array of records, decoding each record as its
// object closes, so that no document of the whole text is ever built. Depth 1 is inside the
// array, 2 inside a record, 3 inside the value of one of its keys.
class RecordStream final : public nlohmann::json_sax<json> {
public:
    explicit RecordStream(RecordsRead& out) : out_(out) {}

    bool null() override { return scalar(Value{}); }
    bool boolean(bool b) override {
        Value v;
        v.type = Value::Type::boolean;
        v.flag = b;
        return scalar(std::move(v));
    }
    bool number_integer(number_integer_t n) override { return number(static_cast<double>(n)); }
    bool number_unsigned(number_unsigned_t n) override { return number(static_cast<double>(n)); }
    bool number_float(number_float_t n, const string_t&) override { return number(n); }
    bool string(string_t& s) override {
        Value v;
        v.type = Value::Type::string;
        v.text = std::move(s);
        return scalar(std::move(v));
    }
    bool binary(binary_t&) override { return scalar(Value{}); } // JSON text has none
    bool start_object(std::size_t) override { return open(Value::Type::object); }
    bool start_array(std::size_t) override { return open(Value::Type::array); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool key(string_t& name) override {
        if (depth_ == 2 && decoding()) {
            slot_ = fieldNamed(name);
        }
        return true;
    }
    bool parse_error(std::size_t byte, const std::string&,
                     const nlohmann::detail::exception&) override {
        out_.outcome = RecordsRead::Outcome::invalidJson;
        out_.byte = byte;
        return false;
    }

    // Called once the whole text parsed: the first problem after the text's own.
    void finish() {
        if (notList_) {
            out_.outcome = RecordsRead::Outcome::notAList;
        } else if (out_.record != 0) {
            out_.outcome = RecordsRead::Outcome::badRecord;
        } else {
            out_.outcome = RecordsRead::Outcome::ok;
        }
    }

private:
    // Once the outcome is known to be a failure, the rest is only checked for valid JSON.
    bool decoding() const { return !notList_ && out_.record == 0; }

    void bad(std::string problem) {
        out_.record = records_;
        out_.problem = std::move(problem);
        out_.snippets.clear();
    }

    bool number(double n) {
        Value v;
        v.type = Value::Type::number;
        v.number = n;
        return scalar(std::move(v));
    }

    bool scalar(Value v) {
        if (depth_ == 0) {
            notList_ = true;
        } else if (depth_ == 1) {
            ++records_;
            if (decoding()) {
                bad("the record is not a JSON object");
            }
        } else if (depth_ == 2 && slot_ && decoding()) {
            slots_[static_cast<std::size_t>(*slot_)] = std::move(v);
        } else if (depth_ == 3 && collecting_) {
            Value& list = *slots_[static_cast<std::size_t>(*slot_)];
            if (v.type == Value::Type::string) {
                list.items.push_back(std::move(v.text));
            } else {
                list.allText = false;
            }
        }
        return true;
    }

    bool open(Value::Type type) {
        if (depth_ == 0) {
            notList_ = type != Value::Type::array;
        } else if (depth_ == 1) {
            ++records_;
            if (type != Value::Type::object) {
                if (decoding()) {
                    bad("the record is not a JSON object");
                }
            } else if (decoding()) {
                slots_ = {};
                slot_.reset();
            }
        } else if (depth_ == 2 && slot_ && decoding()) {
            Value v;
            v.type = type;
            slots_[static_cast<std::size_t>(*slot_)] = std::move(v);
            collecting_ = type == Value::Type::array;
        } else if (depth_ == 3 && collecting_) {
            slots_[static_cast<std::size_t>(*slot_)]->allText = false;
        }
        ++depth_;
        return true;
    }

    bool close() {
        --depth_;
        if (depth_ == 2) {
            collecting_ = false;
        } else if (depth_ == 1 && decoding()) {
            // An element that is not an object is a problem already, so this is a record.
            std::string problem;
            if (auto snippet = decodeRecord(StreamedRecord(slots_), problem)) {
                out_.snippets.push_back(std::move(*snippet));
            } else {
                bad(std::move(problem));
            }
        }
        return true;
    }

    RecordsRead& out_;
    int depth_ = 0;
    std::size_t records_ = 0;
    bool notList_ = false;
    Slots slots_;
    std::optional<Field> slot_;
    bool collecting_ = false;
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
    return decodeRecord(JsonRecord(object), error);
}

RecordsRead snippetsFromJsonText(std::string_view text) {
    RecordsRead out;
    {
        RecordStream stream(out);
        if (scanJson(text, stream)) {
            stream.finish();
            // A library is kept as long as it is in use: without the slack of its growth.
            out.snippets.shrink_to_fit();
            return out;
        }
    }
    // Not read, or not JSON: json::sax_parse decides, and tells where the text broke.
    out = RecordsRead{};
    RecordStream stream(out);
    if (json::sax_parse(text.begin(), text.end(), &stream)) {
        stream.finish();
    }
    return out;
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
