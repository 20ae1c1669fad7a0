#include "library/LibraryLock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace quillet {

LibraryLock::LibraryLock(const std::filesystem::path& folder) {
    // A separate lock file, because the library file itself is replaced by rename on every
    // write and a lock on the old file would not stop a writer of the new one.
    const std::filesystem::path file = folder / ".snippets.lock";
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
}

LibraryLock::~LibraryLock() {
    if (fd_ >= 0) {
        ::flock(fd_, LOCK_UN);
        ::close(fd_);
    }
}

} // namespace quillet
