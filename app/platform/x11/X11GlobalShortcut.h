#pragma once

#include "engine/GlobalShortcut.h"
#include "platform/x11/X11Connection.h"

#include <memory>

namespace quillet {

/// A global shortcut on X11: a passive grab of the key with its modifiers on the root window,
/// on a connection of its own, taken with every combination of Num Lock and Caps Lock so that
/// they do not stand in the way. The key name is an X keysym name ("period", "space", "F12").
class X11GlobalShortcut final : public GlobalShortcut {
public:
    /// Grabs on connection, which it watches.
    explicit X11GlobalShortcut(X11Connection& connection);
    ~X11GlobalShortcut() override;
    X11GlobalShortcut(const X11GlobalShortcut&) = delete;
    X11GlobalShortcut& operator=(const X11GlobalShortcut&) = delete;

    bool bind(const std::string& stroke, std::function<void()> pressed,
              std::string& error) override;
    void unbind() override;

private:
    void drain();

    X11Connection& connection_;
    std::function<void()> pressed_;
    unsigned keycode_ = 0;
    unsigned modifiers_ = 0;
    std::shared_ptr<X11GlobalShortcut*> alive_;
};

} // namespace quillet
