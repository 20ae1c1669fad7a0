#pragma once

#include "library/Preferences.h"

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>

namespace quillet {

/// Settings kept in a JSON file holding one object of preference keys. The file is read again
/// whenever it changed on disk, so edits made outside the application count from the next read.
class JsonFilePreferences final : public Preferences {
public:
    /// Whether setValue may write the file.
    enum class Access { readWrite, readOnly };

    /// Settings backed by file; nothing is read until the first value is asked for.
    explicit JsonFilePreferences(std::filesystem::path file, Access access = Access::readWrite);

    /// The value under key as the file holds it now; null when absent, the file is missing or it
    /// does not parse.
    nlohmann::json value(std::string_view key) const override;

    /// Stores value (null removes the key) and rewrites the file atomically. False when read-only,
    /// or when the file exists but could not be read or parsed: it is never overwritten then.
    bool setValue(std::string_view key, nlohmann::json value) override;

    /// The whole object as the file holds it now: empty when missing, null when it cannot be
    /// used, so that a file breaking counts as a change.
    nlohmann::json values() const override;

    /// True when the file exists but does not hold a JSON object.
    bool isDamaged() const;

    /// Why the last read or write went wrong; empty when it did not.
    std::string lastError() const;

    /// The settings file.
    const std::filesystem::path& file() const { return file_; }

private:
    // What identifies one version of the file on disk without reading it.
    struct Stamp {
        bool exists = false;
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        std::int64_t size = 0;
        std::int64_t modified = 0; // nanoseconds
        std::int64_t changed = 0;  // nanoseconds
        friend bool operator==(const Stamp&, const Stamp&) = default;
    };

    enum class State { unknown, missing, ok, damaged, unreadable };

    void refresh() const;

    std::filesystem::path file_;
    Access access_;
    mutable std::mutex mutex_;
    mutable State state_ = State::unknown;
    mutable Stamp stamp_;
    mutable bool racy_ = false;
    mutable nlohmann::json values_ = nlohmann::json::object();
    mutable std::string error_;
};

} // namespace quillet
