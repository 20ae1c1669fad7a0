#pragma once

#include "library/OwnerAuth.h"

#include <filesystem>
#include <string>
#include <vector>

namespace quillet {

/// Confirms the owner through PAM: the current user authenticates with whatever the system's
/// stack asks for (a password, a fingerprint), each question going to a prompt.
class PamOwnerAuth final : public OwnerAuth {
public:
    /// Which PAM service is used and where its configuration is looked for.
    struct Options {
        /// The first of these that has a configuration file is used; the last one otherwise.
        std::vector<std::string> services{"quillet", "login"};
        /// The folders PAM reads service files from.
        std::vector<std::filesystem::path> serviceFolders{"/etc/pam.d", "/usr/lib/pam.d"};
        /// The account to authenticate; empty for the user running the process.
        std::string user;
    };

    /// Authenticates the current user through prompt with the "quillet" service, else "login"
    /// (an empty prompt refuses every authentication).
    explicit PamOwnerAuth(AuthPrompt prompt);

    /// Authenticates through prompt as options say.
    PamOwnerAuth(AuthPrompt prompt, Options options);

    /// Runs the PAM authentication and account check; refused when the prompt cancels.
    AuthResult authenticate(std::string_view reason) override;

    /// The service authenticate() will use, following Options::services.
    std::string service() const;

private:
    AuthPrompt prompt_;
    Options options_;
};

} // namespace quillet
