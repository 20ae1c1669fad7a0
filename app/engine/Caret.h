#pragma once

#include <functional>
#include <optional>

namespace quillet {

/// A rectangle on the desktop in pixels, the origin at the top left of the first screen and y
/// growing downward, as X11 and Qt count.
struct ScreenRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    int right() const { return x + width; }
    int bottom() const { return y + height; }

    bool operator==(const ScreenRect&) const = default;
};

/// Where the text caret of the focused application is on screen, as its accessibility interface
/// tells it.
class Caret {
public:
    /// Called on the main thread with the caret's rectangle, or with nothing.
    using Found = std::function<void(std::optional<ScreenRect>)>;

    virtual ~Caret() = default;

    /// Asks where the caret is and calls found once: nothing when no text has the focus or its
    /// application did not answer in time. Never waits on the calling thread.
    virtual void locate(Found found) = 0;
};

} // namespace quillet
