#pragma once

#include "library/Snippet.h"

#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// Exchange files: writing the library as this program's own JSON file, and reading that file, a
/// bare JSON list of entries, other expanders' JSON exports and two-column CSV into snippets that
/// one merge step adds to the library. Importing goes read, trust warning, merge; the window and
/// the command line take the same steps.
class Transfer {
public:
    /// One snippet as it travels in a file: absent fields take the library's defaults.
    struct Entry {
        std::string abbreviation;
        std::string content;
        std::optional<bool> markdown;
        std::optional<Snippet::Scope> scope;
        std::optional<std::vector<std::string>> apps;
        std::optional<std::vector<std::string>> sites;
        std::optional<bool> regex;
        std::optional<Snippet::Kind> kind;

        /// The entry that carries snippet: no id, image, trigger, dates or flags of the library;
        /// defaults and empty lists left out.
        static Entry from(const Snippet& snippet);

        /// A new library snippet for the entry: fresh id, created now, sites reduced to their
        /// hosts (entries without one dropped).
        Snippet snippet() const;

        /// The entry as a JSON object, with only the keys that differ from the defaults.
        nlohmann::json toJson() const;

        /// The entry a JSON object describes; nothing when a key is missing, of the wrong type or
        /// holds an unknown scope or kind.
        static std::optional<Entry> fromJson(const nlohmann::json& json);

        friend bool operator==(const Entry&, const Entry&) = default;
    };

    /// The exchange file: a format version and the entries.
    struct Pack {
        int version = 1;
        std::vector<Entry> snippets;

        /// The file as JSON: {"snippets": [...], "version": N}.
        nlohmann::json toJson() const;

        /// The pack a JSON value describes; nothing unless it is an object with an integer
        /// "version" and a list of valid entries under "snippets".
        static std::optional<Pack> fromJson(const nlohmann::json& json);
    };

    /// The outcome of one import.
    struct Report {
        std::vector<Snippet> added;       ///< what went into the library, in file order
        std::vector<std::string> skipped; ///< one line per snippet or row left out, with why
        std::vector<std::string> notes;   ///< what came over with a loss or needs a look

        /// The message shown after the import: the count added, then what was left out and
        /// what is worth a look, as bulleted lists.
        std::string text() const;
    };

    /// What another expander's export holds, as the reader of such files makes it.
    struct Foreign {
        std::vector<Entry> entries;
        std::vector<std::string> skipped;
        std::vector<std::string> notes;
    };

    /// Reads other expanders' JSON exports; nothing when the bytes are none it knows.
    using ForeignReader = std::function<std::optional<Foreign>(std::string_view bytes)>;

    /// A file's snippets before the merge, with the lines its reading already produced.
    struct Incoming {
        std::vector<Snippet> snippets;
        std::vector<std::string> skipped;
        std::vector<std::string> notes;
    };

    /// The warning shown before risky snippets are added.
    struct Warning {
        std::string title;
        std::string message;
    };

    /// The name an export file is offered under.
    static const std::string& exportName();

    /// The exchange file for the library: every snippet with an abbreviation, archived ones
    /// too, locked ones without their text; pretty-printed, keys sorted, ending in a line feed.
    static std::string exportFile(const std::vector<Snippet>& library);

    /// What the user is told once exportFile's text was saved.
    static std::string exportMessage(const std::vector<Snippet>& library);

    /// Writes exportFile's text to path atomically, with the permissions any new file of the
    /// user's gets; false, with error set, when it was not written.
    static bool writeExport(const std::filesystem::path& path, const std::vector<Snippet>& library,
                            std::string& error);

    /// The snippets of an import file's bytes, trying in turn the exchange file, a bare list of
    /// entries, foreign JSON (when a reader is given) and CSV.
    static Incoming read(std::string_view bytes, const ForeignReader& foreign = {});

    /// True when the text (after a byte-order mark and blanks) opens a JSON object or list.
    static bool startsLikeJson(std::string_view bytes);

    /// The abbreviation with the ";" habit: leading punctuation replaced by one ";" (sig, !sig
    /// and ;;sig give ;sig; ;; gives ;). Applied to what other programs wrote, never to
    /// exchange files.
    static std::string withSemicolon(std::string_view abbreviation);

    /// True for a snippet that presses keys, pastes the clipboard, includes another snippet,
    /// runs a script or is a pattern: the user must trust its source before it is added.
    static bool isRisky(const Snippet& snippet);

    /// The warning for the risky ones among incoming; nothing when none is.
    static std::optional<Warning> trustWarning(const std::vector<Snippet>& incoming);

    /// Adds incoming to library in order, leaving out snippets without an abbreviation and
    /// those that library (or an earlier one of incoming) already has with the same
    /// abbreviation, scope, apps and sites. The report's added snippets are to be appended to
    /// the library; library itself is not changed.
    static Report merge(Incoming incoming, const std::vector<Snippet>& library);
};

} // namespace quillet
