#include "platform/fake/FakeOwnerAuth.h"

namespace quillet {

AuthResult FakeOwnerAuth::authenticate(std::string_view reason) {
    reasons.emplace_back(reason);
    switch (answer) {
    case AuthResult::Outcome::ok:
        return {answer, {}};
    case AuthResult::Outcome::refused:
        return {answer, "The user cancelled."};
    case AuthResult::Outcome::unavailable:
        return {answer, "No authentication is available."};
    }
    return {answer, {}};
}

} // namespace quillet
