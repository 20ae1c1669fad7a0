#pragma once

#include <functional>
#include <string>

namespace quillet {

/// Whether another application keeps what the user types to itself (a password prompt, a screen
/// locker, a password field), so that the keyboard engine must not look at it.
class SecureInput {
public:
    virtual ~SecureInput() = default;

    /// Starts following; changed runs on the main thread whenever active() or holder() changes.
    virtual void start(std::function<void()> changed) = 0;

    /// Stops following: nothing is called any more and active() is false.
    virtual void stop() = 0;

    /// True while the user's typing is kept from Quillet.
    virtual bool active() const = 0;

    /// The name of the application keeping it while active(); empty when it cannot be told.
    virtual std::string holder() const = 0;
};

} // namespace quillet
