#include "library/JsonPreferences.h"

#include "library/AtomicFile.h"

#include <cerrno>
#include <chrono>
#include <sys/stat.h>
#include <system_error>

namespace quillet {
namespace {

constexpr std::int64_t racyWindow = 1'000'000'000; // nanoseconds

std::int64_t nanoseconds(const timespec& time) {
    return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

} // namespace

JsonFilePreferences::JsonFilePreferences(std::filesystem::path file, Access access)
    : file_(std::move(file)), access_(access) {}

void JsonFilePreferences::refresh() const {
    Stamp now;
    struct stat info {};
    if (::stat(file_.c_str(), &info) == 0) {
        now.exists = true;
        now.device = static_cast<std::uint64_t>(info.st_dev);
        now.inode = static_cast<std::uint64_t>(info.st_ino);
        now.size = static_cast<std::int64_t>(info.st_size);
        now.modified = nanoseconds(info.st_mtim);
        now.changed = nanoseconds(info.st_ctim);
    } else if (errno != ENOENT) {
        // Cannot even look at it (a folder on the way without search permission): keep nothing
        // cached so that the next call tries again.
        state_ = State::unreadable;
        stamp_ = Stamp{};
        values_ = nlohmann::json::object();
        error_ = "Could not examine \"" + file_.string() +
                 "\": " + std::generic_category().message(errno);
        return;
    }
    if (state_ != State::unknown && state_ != State::unreadable && !racy_ && now == stamp_) {
        return;
    }

    stamp_ = now;
    // File times advance in clock ticks of a few milliseconds, so a second edit of the same size
    // within the tick of the one just read leaves the stamp unchanged. A file modified that
    // recently is read again next time instead of being trusted.
    auto readAt = std::chrono::duration_cast<std::chrono::nanoseconds>(
                      std::chrono::system_clock::now().time_since_epoch())
                      .count();
    racy_ = now.exists && readAt - now.modified < racyWindow;
    values_ = nlohmann::json::object();
    error_.clear();
    if (!now.exists) {
        state_ = State::missing;
        return;
    }
    FileContent content = readFile(file_);
    switch (content.status) {
    case ReadStatus::missing:
        state_ = State::missing;
        return;
    case ReadStatus::unreadable:
        state_ = State::unreadable;
        error_ = std::move(content.error);
        return;
    case ReadStatus::ok:
        break;
    }
    auto parsed = nlohmann::json::parse(content.bytes, nullptr, false);
    if (parsed.is_discarded() || !parsed.is_object()) {
        state_ = State::damaged;
        error_ = "The settings file \"" + file_.string() + "\" does not hold a JSON object.";
        return;
    }
    state_ = State::ok;
    values_ = std::move(parsed);
}

nlohmann::json JsonFilePreferences::value(std::string_view key) const {
    std::lock_guard lock(mutex_);
    refresh();
    auto it = values_.find(key);
    return it == values_.end() ? nlohmann::json() : *it;
}

bool JsonFilePreferences::setValue(std::string_view key, nlohmann::json value) {
    std::lock_guard lock(mutex_);
    if (access_ == Access::readOnly) {
        error_ = "The settings are open for reading only.";
        return false;
    }
    // Start from what is on disk now so that an outside edit made since the last read survives.
    refresh();
    if (state_ == State::damaged || state_ == State::unreadable) {
        // The user's file is kept as it is; writing would throw away whatever it holds.
        return false;
    }

    nlohmann::json updated = values_;
    if (value.is_null()) {
        if (auto it = updated.find(key); it != updated.end()) {
            updated.erase(it);
        }
    } else {
        updated[std::string(key)] = std::move(value);
    }
    if (updated == values_) {
        return true;
    }

    // People edit this file by hand, so it is indented and ends with a line break.
    std::string bytes =
        updated.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    std::string error;
    if (!createFolders(file_.parent_path(), 0700, error) ||
        !writeFileAtomically(file_, bytes, 0600, error)) {
        error_ = std::move(error);
        return false;
    }
    // The next read sees a new stamp and parses what was just written, which also picks up what
    // the replacement dropped (invalid text repaired).
    state_ = State::unknown;
    error_.clear();
    return true;
}

nlohmann::json JsonFilePreferences::values() const {
    std::lock_guard lock(mutex_);
    refresh();
    return state_ == State::damaged || state_ == State::unreadable ? nlohmann::json() : values_;
}

bool JsonFilePreferences::isDamaged() const {
    std::lock_guard lock(mutex_);
    refresh();
    return state_ == State::damaged;
}

std::string JsonFilePreferences::lastError() const {
    std::lock_guard lock(mutex_);
    return error_;
}

} // namespace quillet
