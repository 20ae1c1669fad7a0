#pragma once

#include "library/Date.h"
#include "library/TriggerMode.h"
#include "library/Uuid.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// One snippet of the user's library. A plain value: equality covers every field, while lists
/// identify a snippet by its id.
struct Snippet {
    /// Where a snippet may fire.
    enum class Scope {
        everywhere, ///< in every application and site
        only,       ///< only in the listed applications and sites
        except,     ///< everywhere but in the listed applications and sites
    };

    /// What the content is: a template, or a script in one of the supported languages.
    enum class Kind { text, javascript, shell, applescript };

    // The small fields come last, together: a large library holds a record per snippet, and
    // spread between the larger ones each would take a padded word of its own.
    Uuid id;
    std::string abbreviation;           ///< what the user types; a regular expression when regex
    std::string content;                ///< the template, or the script source
    std::vector<std::string> apps;      ///< application ids that scope refers to
    std::vector<std::string> sites;     ///< site hosts that scope refers to
    std::optional<std::string> image;   ///< file name of a picture in the images folder
    std::optional<Date> created;        ///< creation time, absent for records that never had one
    Scope scope = Scope::everywhere;    ///< where it fires, together with apps and sites
    Kind kind = Kind::text;             ///< template or script language
    std::optional<TriggerMode> trigger; ///< own trigger; absent means the global setting
    bool markdown = false;              ///< content is Markdown and pastes as styled text
    bool regex = false;                 ///< abbreviation is a regular expression
    bool archived = false;              ///< kept, but never expands and is never listed
    bool locked = false;                ///< real content is kept in the secret store

    /// A fresh record: a new random id, created now, every other field at its default.
    static Snippet make();

    /// True for an untouched entry: no abbreviation beyond blanks and tabs, no content, no image,
    /// not locked.
    bool isBlank() const;

    /// True when only the application's editor can expand it: a pattern, a script, or content
    /// with key presses, clipboard or nested snippets.
    bool needsEditor() const;

    /// The content up to its first line break.
    std::string_view firstLine() const;

    friend bool operator==(const Snippet&, const Snippet&) = default;
};

/// A list of snippets shared by every part that reads it (the store, the engine), so that a
/// large library is held once. Never changed once made: a change makes a new list.
using SnippetList = std::shared_ptr<const std::vector<Snippet>>;

/// The stored text of a scope: "everywhere", "only" or "except".
std::string_view rawValue(Snippet::Scope scope);

/// The scope stored as text, or nothing for an unknown word.
std::optional<Snippet::Scope> scopeFromRaw(std::string_view raw);

/// The stored text of a kind: "text", "javascript", "shell" or "applescript".
std::string_view rawValue(Snippet::Kind kind);

/// The kind stored as text, or nothing for an unknown word.
std::optional<Snippet::Kind> kindFromRaw(std::string_view raw);

/// The record as a JSON object: every field, leaving out image, trigger and created when absent.
nlohmann::json toJson(const Snippet& snippet);

/// The record a JSON object describes; nothing, with error saying which key and why, when the
/// object is not a valid record.
std::optional<Snippet> snippetFromJson(const nlohmann::json& json, std::string& error);

/// How reading the records of a JSON array from its text ended.
struct RecordsRead {
    enum class Outcome {
        ok,          ///< snippets hold every record, in order
        invalidJson, ///< the text is not JSON; byte tells where it broke
        notAList,    ///< the text is JSON but not an array
        badRecord,   ///< record (counted from 1) is the first that is not valid; problem says why
    };

    Outcome outcome = Outcome::ok;
    std::vector<Snippet> snippets;
    std::size_t byte = 0;
    std::size_t record = 0;
    std::string problem; ///< what snippetFromJson says of the record
};

/// The records of a JSON array's text, each decoded as snippetFromJson would, and judged as
/// parsing the whole text first would judge it (the text's own errors come first), but read
/// straight from the text: no document of a large library is ever built.
RecordsRead snippetsFromJsonText(std::string_view text);

} // namespace quillet

template <> struct std::hash<quillet::Snippet> {
    std::size_t operator()(const quillet::Snippet& snippet) const noexcept;
};
