#include "library/Preferences.h"

namespace quillet {

std::optional<bool> Preferences::boolean(std::string_view key) const {
    auto v = value(key);
    if (v.is_boolean()) {
        return v.get<bool>();
    }
    return std::nullopt;
}

std::optional<std::string> Preferences::text(std::string_view key) const {
    auto v = value(key);
    if (v.is_string()) {
        return v.get<std::string>();
    }
    return std::nullopt;
}

MemoryPreferences::MemoryPreferences(nlohmann::json object) {
    if (!object.is_object()) {
        return;
    }
    for (auto& [key, v] : object.items()) {
        values_[key] = v;
    }
}

nlohmann::json MemoryPreferences::value(std::string_view key) const {
    auto it = values_.find(key);
    return it == values_.end() ? nlohmann::json() : it->second;
}

bool MemoryPreferences::setValue(std::string_view key, nlohmann::json value) {
    if (value.is_null()) {
        if (auto it = values_.find(key); it != values_.end()) {
            values_.erase(it);
        }
    } else {
        values_.insert_or_assign(std::string(key), std::move(value));
    }
    return true;
}

nlohmann::json MemoryPreferences::values() const {
    nlohmann::json object = nlohmann::json::object();
    for (const auto& [key, v] : values_) {
        object[key] = v;
    }
    return object;
}

} // namespace quillet
