#include "library/TriggerMode.h"

namespace quillet {

std::string_view rawValue(TriggerMode mode) {
    switch (mode) {
    case TriggerMode::instant:
        return "instant";
    case TriggerMode::delimiter:
        return "delimiter";
    case TriggerMode::tab:
        return "tab";
    }
    return "instant";
}

std::optional<TriggerMode> triggerModeFromRaw(std::string_view raw) {
    for (auto mode : {TriggerMode::instant, TriggerMode::delimiter, TriggerMode::tab}) {
        if (rawValue(mode) == raw) {
            return mode;
        }
    }
    return std::nullopt;
}

std::string_view label(TriggerMode mode) {
    switch (mode) {
    case TriggerMode::instant:
        return "Instantly";
    case TriggerMode::delimiter:
        return "After a space";
    case TriggerMode::tab:
        return "On Tab";
    }
    return "Instantly";
}

} // namespace quillet
