#include "library/LibraryLock.h"

#include "library/AtomicFile.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>

namespace quillet {
namespace {

namespace fs = std::filesystem;

// FNV-1a: the name must be the same in every process and every build that writes the library,
// which std::hash does not promise.
std::uint64_t fingerprint(const std::string& bytes) {
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    for (unsigned char byte : bytes) {
        hash = (hash ^ byte) * 0x100000001b3ULL;
    }
    return hash;
}

// Older versions locked a file beside the library, which a synced folder then carried to every
// computer. Nothing locks it any more, so it can simply go.
void removeOldLockFile(const fs::path& libraryFile) {
    std::error_code ec;
    fs::remove(libraryFile.parent_path() / ".snippets.lock", ec);
}

} // namespace

fs::path LibraryLock::lockFile(const fs::path& libraryFile, const fs::path& lockFolder) {
    // The application and the command-line tool may reach the library through different links
    // or relative paths; they must still meet on one lock.
    std::error_code ec;
    fs::path resolved = fs::weakly_canonical(fs::absolute(libraryFile, ec), ec);
    if (ec) {
        resolved = fs::absolute(libraryFile, ec).lexically_normal();
    }
    char name[40];
    std::snprintf(name, sizeof name, ".library-%016llx.lock",
                  static_cast<unsigned long long>(fingerprint(resolved.string())));
    return lockFolder / name;
}

LibraryLock::LibraryLock(const fs::path& libraryFile, const fs::path& lockFolder) {
    // A separate lock file, because the library file itself is replaced by rename on every
    // write and a lock on the old file would not stop a writer of the new one.
    const fs::path file = lockFile(libraryFile, lockFolder);
    std::string error;
    if (!createFolders(lockFolder, 0700, error)) {
        return;
    }
    fd_ = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd_ < 0) {
        return;
    }
    while (::flock(fd_, LOCK_EX) != 0) {
        if (errno != EINTR) {
            ::close(fd_);
            fd_ = -1;
            return;
        }
    }
    removeOldLockFile(libraryFile);
}

LibraryLock::~LibraryLock() {
    if (fd_ >= 0) {
        ::flock(fd_, LOCK_UN);
        ::close(fd_);
    }
}

} // namespace quillet
