#pragma once

#include "library/Store.h"

#include <string>
#include <vector>

namespace quillet {

/// Reads a team's shared folder: the snippet files lying directly in it, never written to. Its
/// snippets follow the user's own, and an own snippet with the same abbreviation wins.
class SharedFolder {
public:
    /// The folder's pack: every file not starting with "." read in name order as an exchange,
    /// JSON or CSV file, unreadable and unparsable ones skipped without a word. Snippets only
    /// the editor may run (and those spanning lines) are left out and counted. A folder that
    /// cannot be listed gives an empty pack marked missing. Ids stay the same from one reading
    /// to the next, so usage counts follow a shared snippet.
    static SnippetStore::SharedPack load(const std::string& folder);

    /// True for a snippet a shared folder cannot bring: one that presses keys, reads the
    /// clipboard, includes another snippet, runs a script, is a pattern or spans lines.
    static bool leavesOut(const Snippet& snippet);

    /// The lines shown under a pack: why it is empty when missing, otherwise the read-only
    /// note and, when some were left out, how many and why.
    static std::vector<std::string> describe(const SnippetStore::SharedPack& pack);

    /// The button that takes the folder off the list.
    static const std::string& stopUsing();
};

} // namespace quillet
