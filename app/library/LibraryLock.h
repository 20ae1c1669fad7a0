#pragma once

#include <filesystem>

namespace quillet {

/// An exclusive advisory lock on a library folder, held for one read-change-write of the library
/// file, so that two processes appending at the same moment never lose each other's snippet.
/// Readers need no lock: every write is an atomic replace.
class LibraryLock {
public:
    /// Waits until the lock on folder is free and takes it; creates the folder's lock file.
    explicit LibraryLock(const std::filesystem::path& folder);
    LibraryLock(const LibraryLock&) = delete;
    LibraryLock& operator=(const LibraryLock&) = delete;
    /// Releases the lock.
    ~LibraryLock();

    /// False when the lock file could not be opened (a read-only folder): the change then goes
    /// ahead unlocked, as it would have without this lock.
    bool held() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

} // namespace quillet
