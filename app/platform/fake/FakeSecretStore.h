#pragma once

#include "library/SecretStore.h"

#include <map>
#include <optional>
#include <string>
#include <utility>

namespace quillet {

/// A secret store in memory, for unit tests.
class FakeSecretStore final : public SecretStore {
public:
    SecretResult read(std::string_view service, std::string_view account) override;
    SecretResult write(std::string_view service, std::string_view account,
                       std::string_view text) override;
    SecretResult remove(std::string_view service, std::string_view account) override;

    /// The items, by service and account.
    std::map<std::pair<std::string, std::string>, std::string> items;

    /// When set, every operation fails with this message, as an unreachable store would.
    std::optional<std::string> failure;

    /// How many reads were made, to check that nothing is read before a confirmation.
    int reads = 0;
};

} // namespace quillet
