#include "library/AtomicFile.h"

#include <cctype>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace quillet {
namespace {

namespace fs = std::filesystem;

std::string describe(int error) {
    return std::generic_category().message(error);
}

std::string quote(const fs::path& path) {
    return "\"" + path.string() + "\"";
}

// Closes a descriptor on every path out of a function unless released.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    int get() const { return fd_; }
    // Closes now and reports the result: close can be where a delayed write error surfaces.
    int close() {
        int result = ::close(fd_);
        fd_ = -1;
        return result;
    }

private:
    int fd_;
};

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// Renaming over a symbolic link would replace the link itself with a plain file and cut the file
// off from where the user keeps it, so the write goes to what the link points at.
fs::path resolvedTarget(const fs::path& path) {
    std::error_code ec;
    if (fs::is_symlink(fs::symlink_status(path, ec))) {
        auto target = fs::weakly_canonical(path, ec);
        if (!ec) {
            return target;
        }
    }
    return path;
}

// The random part mkostemp fills in.
constexpr std::size_t randomLength = 6;

// A live write takes seconds at most; a temporary file this old is abandoned whoever made it.
// This also covers names without a process id (from older versions) and process ids that mean
// nothing here (a file synced from another computer, a reused id).
constexpr std::time_t abandonedAfter = 10 * 60;

fs::path folderOf(const fs::path& target) {
    return target.parent_path().empty() ? fs::path(".") : target.parent_path();
}

// A hidden name beside the target keeps the rename on one file system and out of listings. The
// writer's process id in the name tells a later writer whether the file is still being written.
std::string temporaryPrefix(const fs::path& target) {
    return "." + target.filename().string() + ".";
}

bool isRandomPart(std::string_view part) {
    if (part.size() != randomLength) {
        return false;
    }
    for (char c : part) {
        if (std::isalnum(static_cast<unsigned char>(c)) == 0) {
            return false;
        }
    }
    return true;
}

// The process id in digits, or nothing when they are not one. Ids 0 and 1 would signal a group
// or init: never a writer's.
std::optional<pid_t> processId(std::string_view digits) {
    long pid = 0;
    auto [end, problem] = std::from_chars(digits.data(), digits.data() + digits.size(), pid);
    if (problem != std::errc() || end != digits.data() + digits.size() || pid <= 1 ||
        pid > INT_MAX) {
        return std::nullopt;
    }
    return static_cast<pid_t>(pid);
}

// EPERM means it exists under another user, so only ESRCH counts as gone.
bool processIsGone(pid_t pid) {
    return ::kill(pid, 0) != 0 && errno == ESRCH;
}

// True when name, in target's folder, is a temporary file of target's that nobody writes any
// more: ".<target>.<pid>.<random>" of a process that is gone, or any ".<target>.[<pid>.]<random>"
// older than a write could take.
bool isAbandoned(const std::string& name, const std::string& prefix, const struct stat& info) {
    if (!S_ISREG(info.st_mode) || !name.starts_with(prefix) ||
        name.size() < prefix.size() + randomLength) {
        return false;
    }
    std::string_view rest = std::string_view(name).substr(prefix.size());
    const std::string_view random = rest.substr(rest.size() - randomLength);
    rest.remove_suffix(randomLength);
    if (!isRandomPart(random)) {
        return false;
    }
    const bool old = std::time(nullptr) - info.st_mtime > abandonedAfter;
    if (rest.empty()) {
        return old;
    }
    if (rest.back() != '.') {
        return false;
    }
    rest.remove_suffix(1);
    const std::optional<pid_t> writer = processId(rest);
    return writer && (old || processIsGone(*writer));
}

void syncFolder(const fs::path& folder) {
    int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    // The rename has already happened; some file systems refuse fsync on folders, and the new
    // content is in place either way, so a failure here is not a failed write.
    ::fsync(fd);
    ::close(fd);
}

} // namespace

bool writeFileAtomically(const fs::path& path, std::string_view bytes, unsigned mode,
                         std::string& error) {
    const fs::path target = resolvedTarget(path);
    const fs::path folder = folderOf(target);
    // Before the write, as a full disk may be what killed the last writer.
    removeLeftoverTemporaries(target);

    std::string pattern =
        (folder / (temporaryPrefix(target) + std::to_string(::getpid()) + ".XXXXXX")).string();
    std::vector<char> temporary(pattern.begin(), pattern.end());
    temporary.push_back('\0');

    Descriptor fd(::mkostemp(temporary.data(), O_CLOEXEC));
    if (fd.get() < 0) {
        error = "Could not create a temporary file in " + quote(folder) + ": " + describe(errno);
        return false;
    }
    auto fail = [&](std::string what) {
        int code = errno;
        if (fd.get() >= 0) {
            fd.close();
        }
        ::unlink(temporary.data());
        error = what + " " + quote(target) + ": " + describe(code);
        return false;
    };

    if (!writeAll(fd.get(), bytes)) {
        return fail("Could not write");
    }
    if (::fchmod(fd.get(), static_cast<mode_t>(mode)) != 0) {
        return fail("Could not set the permissions of");
    }
    if (::fsync(fd.get()) != 0) {
        return fail("Could not flush");
    }
    if (fd.close() != 0) {
        return fail("Could not write");
    }
    if (::rename(temporary.data(), target.c_str()) != 0) {
        return fail("Could not replace");
    }
    syncFolder(folder);
    return true;
}

void removeLeftoverTemporaries(const fs::path& path) {
    const fs::path target = resolvedTarget(path);
    const fs::path folder = folderOf(target);
    const std::string prefix = temporaryPrefix(target);
    std::error_code ec;
    fs::directory_iterator it(folder, ec);
    for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
        const std::string name = it->path().filename().string();
        struct stat info {};
        // lstat: a link of that name is not ours to follow or remove.
        if (name.starts_with(prefix) && ::lstat(it->path().c_str(), &info) == 0 &&
            isAbandoned(name, prefix, info)) {
            ::unlink(it->path().c_str());
        }
    }
}

bool createFolders(const fs::path& folder, unsigned mode, std::string& error) {
    if (folder.empty()) {
        return true;
    }
    struct stat info {};
    if (::stat(folder.c_str(), &info) == 0) {
        if (S_ISDIR(info.st_mode)) {
            return true;
        }
        error = "Could not create the folder " + quote(folder) + ": a file is in the way";
        return false;
    }
    if (folder.has_parent_path() && folder.parent_path() != folder &&
        !createFolders(folder.parent_path(), mode, error)) {
        return false;
    }
    if (::mkdir(folder.c_str(), static_cast<mode_t>(mode)) != 0) {
        // Another process may have made it in the meantime.
        if (errno == EEXIST && ::stat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
            return true;
        }
        error = "Could not create the folder " + quote(folder) + ": " + describe(errno);
        return false;
    }
    // mkdir applies the umask; the folder must have exactly the mode asked for.
    ::chmod(folder.c_str(), static_cast<mode_t>(mode));
    return true;
}

FileContent readFile(const fs::path& path) {
    FileContent result;
    Descriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) {
        int code = errno;
        result.status = code == ENOENT ? ReadStatus::missing : ReadStatus::unreadable;
        result.error = "Could not open " + quote(path) + ": " + describe(code);
        return result;
    }
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0) {
        result.status = ReadStatus::unreadable;
        result.error = "Could not examine " + quote(path) + ": " + describe(errno);
        return result;
    }
    // Opening a folder read-only succeeds on Linux; only the read would fail.
    if (S_ISDIR(info.st_mode)) {
        result.status = ReadStatus::unreadable;
        result.error = "Could not read " + quote(path) + ": it is a folder";
        return result;
    }
    if (info.st_size > 0) {
        result.bytes.reserve(static_cast<std::size_t>(info.st_size));
    }
    char buffer[65536];
    for (;;) {
        ssize_t got = ::read(fd.get(), buffer, sizeof buffer);
        if (got == 0) {
            break;
        }
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            result.status = ReadStatus::unreadable;
            result.error = "Could not read " + quote(path) + ": " + describe(errno);
            result.bytes.clear();
            return result;
        }
        result.bytes.append(buffer, static_cast<std::size_t>(got));
    }
    result.status = ReadStatus::ok;
    return result;
}

} // namespace quillet
