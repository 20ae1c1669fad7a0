#pragma once

#include <string>
#include <string_view>

namespace quillet {

/// How a secret store operation ended.
enum class SecretStatus {
    ok,      ///< done; for a read, text holds the secret
    missing, ///< there is no item with that service and account
    failed,  ///< the store could not be reached or refused; error says why
};

/// The outcome of a secret store operation. Never thrown: the caller decides what to tell the user.
struct SecretResult {
    SecretStatus status = SecretStatus::failed;
    std::string text;  ///< the secret read; empty for other operations
    std::string error; ///< why it failed, for the log; empty otherwise

    /// True when the operation succeeded.
    bool ok() const { return status == SecretStatus::ok; }
};

/// The platform's store of secrets (a keychain or the Secret Service). An item is identified by
/// its service and account; there is at most one item for each pair.
class SecretStore {
public:
    virtual ~SecretStore() = default;

    /// The secret kept under service and account, as UTF-8 text.
    virtual SecretResult read(std::string_view service, std::string_view account) = 0;

    /// Keeps text under service and account, replacing the secret of an existing item rather
    /// than adding a second one.
    virtual SecretResult write(std::string_view service, std::string_view account,
                               std::string_view text) = 0;

    /// Deletes the item under service and account; missing when there was none.
    virtual SecretResult remove(std::string_view service, std::string_view account) = 0;
};

} // namespace quillet
