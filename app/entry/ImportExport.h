#pragma once

#include "library/LibraryLocation.h"
#include "library/Store.h"
#include "transfer/Transfer.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quillet {

/// What the import and export page does, without the toolkit: the expanders to bring snippets
/// over from, reading a file or one of them, the trust warning, the merge into the library and
/// the export file. The steps and messages are those of `snippets import` and `snippets export`.
class ImportExport {
public:
    /// What a read gave: the snippets, or why there are none.
    struct Read {
        std::optional<Transfer::Incoming> incoming;
        std::string error;
    };

    /// How a merge or an export ended: the message for the user, and whether it is a problem.
    struct Outcome {
        std::string text;
        bool failed = false;
        std::size_t added = 0; ///< snippets that went into the library
    };

    /// store and folders' home and config folder are where the library and the other
    /// expanders' data are; store must outlive the model.
    ImportExport(SnippetStore& store, Folders folders);

    /// The names of the other expanders found on this computer, in the order they are listed.
    std::vector<std::string> sources() const;
    /// What is said when sources() is empty.
    static const std::string& noneFound();

    /// Reads the file or folder at path. Touches no store, so it may run on another thread.
    Read readFile(const std::filesystem::path& path) const;
    /// Reads the expander named name. Touches no store, so it may run on another thread.
    Read readSource(const std::string& name) const;

    /// The warning to confirm before incoming is merged; nothing when none of it is risky.
    static std::optional<Transfer::Warning> warning(const Transfer::Incoming& incoming);

    /// Adds what incoming has that the library lacks and saves; the report, or why nothing was
    /// saved.
    Outcome merge(Transfer::Incoming incoming);

    /// The file name an export is offered under.
    static const std::string& exportName();
    /// Where an export is first offered: that name in the home folder.
    std::filesystem::path exportPath() const { return folders_.home / exportName(); }
    /// Writes every snippet to an exchange file at path.
    Outcome exportTo(const std::filesystem::path& path) const;

private:
    SnippetStore& store_;
    Folders folders_;
};

} // namespace quillet
