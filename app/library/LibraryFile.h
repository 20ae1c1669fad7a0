#pragma once

#include "library/Snippet.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// The library file's content for a list of snippets: one compact JSON array, in list order.
std::string encodeLibrary(const std::vector<Snippet>& snippets);

/// The snippets of a library file's content. One bad record refuses the whole file: nothing is
/// returned and error names the record (counted from 1) and the problem.
std::optional<std::vector<Snippet>> decodeLibrary(std::string_view bytes, std::string& error);

/// How reading the library file ended.
enum class LibraryStatus {
    missing,   ///< no file yet: an empty library
    ok,        ///< snippets hold the file's records
    damaged,   ///< the file is there but does not decode; it must not be overwritten unasked
    unreadable ///< the file cannot be read (permissions, a folder in its place, I/O)
};

/// The outcome of readLibrary.
struct LibraryRead {
    LibraryStatus status = LibraryStatus::missing;
    std::vector<Snippet> snippets;
    std::string message; ///< why the file was damaged or unreadable; empty otherwise
};

/// Reads and decodes the library file at path.
LibraryRead readLibrary(const std::filesystem::path& path);

/// Replaces the library file at path atomically (mode 0600), creating its folder (mode 0700) when
/// missing. False, with error set, when the old file was left as it was.
bool writeLibrary(const std::filesystem::path& path, const std::vector<Snippet>& snippets,
                  std::string& error);

} // namespace quillet
