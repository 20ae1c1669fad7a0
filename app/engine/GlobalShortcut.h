#pragma once

#include <functional>
#include <string>

namespace quillet {

/// A key stroke that calls Quillet from any application, such as the one that opens the
/// search-and-paste picker. The stroke is written as modifiers and a key joined by "+", as
/// "super+period" or "ctrl+alt+space": modifiers are ctrl, alt, shift and super; the key is the
/// platform's name for it.
class GlobalShortcut {
public:
    virtual ~GlobalShortcut() = default;

    /// Calls pressed on the main thread whenever stroke is pressed, instead of the application
    /// in front getting it; replaces an earlier binding. False, with error in the user's words,
    /// when stroke cannot be read or another application has it.
    virtual bool bind(const std::string& stroke, std::function<void()> pressed,
                      std::string& error) = 0;

    /// Lets the bound stroke go to applications again.
    virtual void unbind() = 0;
};

} // namespace quillet
