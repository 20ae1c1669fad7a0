#pragma once

#include <functional>
#include <string>
#include <vector>

namespace quillet {

/// Which application has the keyboard focus, for snippets limited to some applications. The id
/// is what snippets' app lists hold on this platform: the WM_CLASS class on X11.
class FrontApplication {
public:
    virtual ~FrontApplication() = default;

    /// The id of the application in front; empty when none is known.
    virtual std::string id() const = 0;

    /// The ids of the applications that have a window open now, sorted, each once; for picking
    /// a snippet's applications.
    virtual std::vector<std::string> running() const = 0;

    /// Calls changed on the main thread whenever the application in front may have changed;
    /// an empty function stops the calls.
    virtual void setOnChange(std::function<void()> changed) = 0;
};

} // namespace quillet
