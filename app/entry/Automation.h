#pragma once

#include "library/LibraryLocation.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// The library as other programs reach it while Quillet runs (the session bus service): list,
/// search, expand and add, with the command-line tool's rules and messages. Nothing is kept
/// between calls: the settings and the library file are read afresh each time, so every call
/// sees what the tool, the window or a synced copy wrote last. Calls may come from any thread.
///
/// Locked snippets are listed as "Locked" and never expand here: the caller is another program,
/// and the owner's confirmation cannot reliably be asked for on its behalf, so their text never
/// leaves this way. Scripts run as in `snippets expand`: JavaScript always, shell scripts only
/// while "allowScripts" is on.
class Automation {
public:
    /// One snippet as callers see it.
    struct Entry {
        std::string id;           ///< the snippet's id, upper-case
        std::string abbreviation; ///< its abbreviation
        std::string subtitle;     ///< the first line of its text, or "Locked"

        friend bool operator==(const Entry&, const Entry&) = default;
    };

    /// A text to hand back, or a failure's message.
    struct Result {
        std::string text;
        bool failed = false;
    };

    /// Works on the library and settings of folders.
    explicit Automation(Folders folders = Folders::current());

    /// The snippets that can be expanded by name, in library order: not archived, not a regular
    /// expression, with an abbreviation. Empty when the library cannot be read.
    std::vector<Entry> list() const;

    /// Those listed whose abbreviation or subtitle holds text, ignoring case by the rules of the
    /// user's language; every listed one for an empty text.
    std::vector<Entry> search(std::string_view text) const;

    /// What the listed snippet with this id expands to, given the clipboard's text: includes from
    /// the same library, fields left empty, key presses left out. The failure says "Couldn't
    /// expand " and the abbreviation (the id when no snippet has it).
    Result expand(std::string_view id, const std::optional<std::string>& clipboard) const;

    /// Adds a snippet as `snippets add` does: "Added " and the abbreviation, or why not.
    Result add(std::string_view abbreviation, std::string text) const;

private:
    Folders folders_;
};

} // namespace quillet
