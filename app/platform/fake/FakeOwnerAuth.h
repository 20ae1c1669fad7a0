#pragma once

#include "library/OwnerAuth.h"

#include <string>
#include <vector>

namespace quillet {

/// An owner check that answers as told, for unit tests.
class FakeOwnerAuth final : public OwnerAuth {
public:
    AuthResult authenticate(std::string_view reason) override;

    /// The answer every authentication gets.
    AuthResult::Outcome answer = AuthResult::Outcome::ok;

    /// The reasons asked with, in order.
    std::vector<std::string> reasons;
};

} // namespace quillet
