#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace quillet {

/// Replaces the file at path with bytes so that readers see either the old or the new content,
/// never a mix, even after a crash. False, with error set, when the file was left as it was.
/// Leftovers of writers killed mid-write beside path are removed first.
bool writeFileAtomically(const std::filesystem::path& path, std::string_view bytes, unsigned mode,
                         std::string& error);

/// Removes the temporary files that writeFileAtomically left beside path when its process died
/// mid-write: those whose writing process is gone, and any older than a live write could be.
/// Another writer's temporary file in flight is kept.
void removeLeftoverTemporaries(const std::filesystem::path& path);

/// Creates folder and any missing parents, each new one with mode. False, with error set, when a
/// folder could not be made or something else is in the way.
bool createFolders(const std::filesystem::path& folder, unsigned mode, std::string& error);

/// How a read ended.
enum class ReadStatus {
    ok,        ///< bytes hold the whole file
    missing,   ///< there is no file at the path
    unreadable ///< something is there but cannot be read (permissions, a folder, an I/O error)
};

/// The outcome of readFile.
struct FileContent {
    ReadStatus status = ReadStatus::missing;
    std::string bytes;
    std::string error; ///< why it was missing or unreadable, for logs and messages
};

/// The whole content of the file at path.
FileContent readFile(const std::filesystem::path& path);

} // namespace quillet
