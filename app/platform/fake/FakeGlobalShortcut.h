#pragma once

#include "engine/GlobalShortcut.h"

#include <functional>
#include <string>

namespace quillet {

/// A shortcut the test presses; strokes in refused are taken by another application.
class FakeGlobalShortcut final : public GlobalShortcut {
public:
    bool bind(const std::string& stroke, std::function<void()> pressed,
              std::string& error) override {
        if (stroke == refused) {
            error = "Another application already uses " + stroke + ".";
            return false;
        }
        bound = stroke;
        pressed_ = std::move(pressed);
        return true;
    }
    void unbind() override {
        bound.clear();
        pressed_ = {};
    }
    /// Presses the bound stroke.
    void press() {
        if (pressed_) {
            pressed_();
        }
    }

    std::string bound;
    std::string refused;

private:
    std::function<void()> pressed_;
};

} // namespace quillet
