#pragma once

#include "engine/SecureInput.h"

#include <functional>
#include <string>
#include <utility>

namespace quillet {

/// Another application holding the keyboard, as the test says.
class FakeSecureInput final : public SecureInput {
public:
    void start(std::function<void()> changed) override { changed_ = std::move(changed); }
    void stop() override {
        changed_ = {};
        active_ = false;
    }
    bool active() const override { return active_; }
    std::string holder() const override { return active_ ? holder_ : std::string(); }

    /// Lets holder take the keyboard (active) or give it back, and says so when started.
    void set(bool active, std::string holder = {}) {
        active_ = active;
        holder_ = std::move(holder);
        if (changed_) {
            changed_();
        }
    }

private:
    bool active_ = false;
    std::string holder_;
    std::function<void()> changed_;
};

} // namespace quillet
