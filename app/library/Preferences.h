#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace quillet {

/// The user's settings: one flat object of preference keys ("triggerMode", "typo.common", ...).
/// Readers ask every time they need a value, so a change takes effect without a restart.
class Preferences {
public:
    virtual ~Preferences() = default;

    /// The value stored under key, or a null value when the key is absent.
    virtual nlohmann::json value(std::string_view key) const = 0;

    /// Stores value under key; a null value removes the key. False when it could not be kept.
    virtual bool setValue(std::string_view key, nlohmann::json value) = 0;

    /// Every key with its value, as one object: what a change of the settings is told by.
    virtual nlohmann::json values() const = 0;

    /// The boolean under key; nothing when absent or not a boolean.
    std::optional<bool> boolean(std::string_view key) const;

    /// True only when a boolean true is stored under key.
    bool isOn(std::string_view key) const { return boolean(key).value_or(false); }

    /// The text under key; nothing when absent or not text.
    std::optional<std::string> text(std::string_view key) const;
};

/// Settings held in memory only: for tests and for processes that must not write.
class MemoryPreferences final : public Preferences {
public:
    MemoryPreferences() = default;
    explicit MemoryPreferences(nlohmann::json object);

    nlohmann::json value(std::string_view key) const override;
    bool setValue(std::string_view key, nlohmann::json value) override;
    nlohmann::json values() const override;

private:
    std::map<std::string, nlohmann::json, std::less<>> values_;
};

} // namespace quillet
