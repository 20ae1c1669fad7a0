#pragma once

#include "transfer/Transfer.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// Brings snippets over from other text expanders: where they keep their data on this computer,
/// or a file or folder copied from another one. Every reader turns the foreign placeholders into
/// template tokens and says what it could not carry over; the caller merges what it read.
class Importers {
public:
    /// What a reader made of a foreign library: entries with an abbreviation and content only,
    /// the snippets it left out and those that came over with a loss.
    using Result = Transfer::Foreign;

    /// One expander found on this computer, and the reader of its data.
    struct Source {
        std::string name;
        std::function<Result()> read;
    };

    /// The expanders whose data is where this platform's builds keep it, in the order the import
    /// page lists them. Only Espanso runs here; the others' files are read from a copied path.
    static std::vector<Source> detect(const std::filesystem::path& home,
                                      const std::filesystem::path& configHome);

    /// What the import page and `snippets sources` say when detect found nothing.
    static const std::string& noneFound();

    /// The snippets of a file or folder another expander wrote, recognised by its content and
    /// shape; nothing when it is none of theirs.
    static std::optional<Result> readPath(const std::filesystem::path& path);

    /// The snippets of a file already read, recognised by its content (and, for Espanso, its
    /// name); nothing when it is none of theirs.
    static std::optional<Result> readContent(const std::filesystem::path& path,
                                             std::string_view bytes);

    /// A text-replacement database (SQLite), opened read-only.
    static Result textReplacements(const std::filesystem::path& database);

    /// Every match file under an Espanso match folder.
    static Result espanso(const std::filesystem::path& matchFolder);

    /// One Espanso match file's text.
    static Result espansoFile(std::string_view text);

    /// An Alfred snippets folder: one folder per collection.
    static Result alfred(const std::filesystem::path& snippetsFolder);

    /// An aText data file: an LZ4 frame holding the node tree as JSON.
    static Result aText(std::string_view bytes);

    /// A Keyboard Maestro macros property list, binary or XML.
    static Result keyboardMaestro(std::string_view bytes);

    /// Another expander's JSON export; nothing when it has none of the shapes they write.
    static std::optional<Result> foreignJson(std::string_view bytes);

    /// The snippets a reader's entries make, with its lines, ready for the merge.
    static Transfer::Incoming incoming(Result result);

    /// The snippets of a file or folder the user chose to import: another expander's, or else
    /// an exchange, JSON or CSV file. Nothing, with error set, when it cannot be read.
    static std::optional<Transfer::Incoming> readImport(const std::filesystem::path& path,
                                                        std::string& error);

    /// The snippets of the source named name among found. Nothing, with error set, when none
    /// has that name.
    static std::optional<Transfer::Incoming>
    readSource(const std::string& name, const std::vector<Source>& found, std::string& error);
};

} // namespace quillet
