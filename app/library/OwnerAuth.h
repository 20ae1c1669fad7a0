#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace quillet {

/// One step of an authentication conversation, put to the person at the computer.
struct AuthQuestion {
    /// What is asked for.
    enum class Kind {
        secret,  ///< an answer that must not be shown while typed (a password)
        visible, ///< an answer that may be shown (a user name, a code)
        notice,  ///< information to show; no answer expected
        error,   ///< a problem to show; no answer expected
    };

    Kind kind = Kind::secret;
    std::string reason; ///< why the application asks, e.g. paste “;bank”
    std::string text;   ///< the authentication service's own words, e.g. "Password: "
};

/// Puts a question to the user and returns the answer; nothing when the user cancels or nobody
/// can be asked. For notices and errors the answer is ignored, but nothing still cancels.
using AuthPrompt = std::function<std::optional<std::string>(const AuthQuestion&)>;

/// How an authentication ended.
struct AuthResult {
    enum class Outcome {
        ok,         ///< the user proved to be the account's owner
        refused,    ///< a wrong answer, a cancellation, or nobody to ask
        unavailable ///< the system could not authenticate at all
    };

    Outcome outcome = Outcome::refused;
    std::string message; ///< why it was refused or unavailable, for the log; empty on success

    /// True when the user was authenticated.
    bool ok() const { return outcome == Outcome::ok; }
};

/// Confirms that the person at the computer is the owner of the user account (a password, a
/// fingerprint, whatever the system offers) before something protected is released.
class OwnerAuth {
public:
    virtual ~OwnerAuth() = default;

    /// Asks the user to authenticate, showing reason; blocks until answered, so an interactive
    /// caller runs it away from its event loop or from a modal dialog.
    virtual AuthResult authenticate(std::string_view reason) = 0;
};

} // namespace quillet
