#pragma once

#include "library/SecretStore.h"

#include <memory>
#include <string>

namespace quillet {

/// Secrets kept by the freedesktop Secret Service (GNOME Keyring, KWallet, KeePassXC) through
/// libsecret. Items carry the attributes "service" and "account", so other tools find them too.
class SecretServiceStore final : public SecretStore {
public:
    /// A store keeping its items in the collection with this alias: "default" is the login
    /// keyring, "session" lives in memory only. Nothing is contacted before the first operation.
    explicit SecretServiceStore(std::string collection = "default");
    ~SecretServiceStore() override;
    SecretServiceStore(const SecretServiceStore&) = delete;
    SecretServiceStore& operator=(const SecretServiceStore&) = delete;

    SecretResult read(std::string_view service, std::string_view account) override;
    SecretResult write(std::string_view service, std::string_view account,
                       std::string_view text) override;
    SecretResult remove(std::string_view service, std::string_view account) override;

private:
    struct Connection;

    std::string collection_;
    std::unique_ptr<Connection> connection_;
};

} // namespace quillet
