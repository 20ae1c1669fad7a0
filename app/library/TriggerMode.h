#pragma once

#include <optional>
#include <string_view>

namespace quillet {

/// When an abbreviation fires. The matcher calls it Matcher::Mode; it lives here because the
/// snippet record stores a per-snippet trigger and the library layer must not depend on the engine.
enum class TriggerMode {
    instant,   ///< on the abbreviation's last character
    delimiter, ///< when whitespace or punctuation follows
    tab,       ///< when the Tab key follows
};

/// The stored text of a mode: "instant", "delimiter" or "tab".
std::string_view rawValue(TriggerMode mode);

/// The mode stored as text, or nothing for an unknown word.
std::optional<TriggerMode> triggerModeFromRaw(std::string_view raw);

/// The label the settings show: "Instantly", "After a space" or "On Tab".
std::string_view label(TriggerMode mode);

} // namespace quillet
