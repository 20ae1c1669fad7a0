#pragma once

#include <filesystem>

namespace quillet {

/// An exclusive advisory lock on one library file, held for one read-change-write of it, so that
/// two processes appending at the same moment never lose each other's snippet. Readers need no
/// lock: every write is an atomic replace.
class LibraryLock {
public:
    /// Waits until the lock on libraryFile is free and takes it. The lock file is made in
    /// lockFolder (local and per user), named after the library file's resolved path, so that
    /// nothing of it travels with a synced library folder.
    LibraryLock(const std::filesystem::path& libraryFile, const std::filesystem::path& lockFolder);
    LibraryLock(const LibraryLock&) = delete;
    LibraryLock& operator=(const LibraryLock&) = delete;
    /// Releases the lock.
    ~LibraryLock();

    /// The lock file that every writer of libraryFile locks, whatever path it was reached by.
    static std::filesystem::path lockFile(const std::filesystem::path& libraryFile,
                                          const std::filesystem::path& lockFolder);

    /// False when the lock file could not be opened (a read-only folder): the change then goes
    /// ahead unlocked, as it would have without this lock.
    bool held() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

} // namespace quillet
