#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <grp.h>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace quillet::testing {

/// A fresh, empty folder under the temporary folder, removed with its content afterwards.
class TempFolder {
public:
    TempFolder() {
        std::string pattern = std::filesystem::temp_directory_path() / "quillet-test-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        path_ = pattern;
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    ~TempFolder() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

inline std::string contentsOf(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// Rewrites a file in place (same inode), as an editor might; makes its folders when missing.
inline void writeText(const std::filesystem::path& path, std::string_view bytes) {
    std::error_code ignored;
    std::filesystem::create_directories(path.parent_path(), ignored);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

inline unsigned modeOf(const std::filesystem::path& path) {
    struct stat info {};
    ::stat(path.c_str(), &info);
    return info.st_mode & 07777;
}

inline std::vector<std::string> entriesOf(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// Runs body in a forked child and returns its exit status, or 128 + the signal that ended it.
inline int inChild(const std::function<int()>& body) {
    pid_t pid = ::fork();
    if (pid == 0) {
        ::alarm(30); // never outlive a stuck test
        ::_exit(body());
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// Runs body in a forked child without root's power to read and write everything: as "nobody"
/// when the tests run as root. Returns the child's exit status; 90 when privileges could not be
/// dropped.
inline int asNobody(const std::function<int()>& body) {
    return inChild([&] {
        if (::geteuid() == 0 &&
            (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)) {
            return 90;
        }
        return body();
    });
}

} // namespace quillet::testing
