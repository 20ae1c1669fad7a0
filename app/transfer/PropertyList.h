#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

namespace quillet {

/// A property list (binary or XML) as JSON: dictionaries become objects, arrays lists, strings,
/// numbers and booleans themselves, dates seconds since 2001, data and other values null.
/// Nothing when the bytes are no property list, nest too deep or would expand beyond memory.
std::optional<nlohmann::json> readPropertyList(std::string_view bytes);

/// True when bytes begin like a binary or XML property list.
bool looksLikePropertyList(std::string_view bytes);

} // namespace quillet
