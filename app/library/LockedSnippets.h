#pragma once

#include "library/OwnerAuth.h"
#include "library/SecretStore.h"
#include "library/Snippet.h"

#include <optional>
#include <string>
#include <string_view>

namespace quillet {

/// The reason shown when a locked snippet is to be pasted or expanded: paste “;abbreviation”.
std::string pasteReason(std::string_view abbreviation);

/// The outcome of unlocking a snippet for use.
struct Unlocked {
    /// How the unlock ended.
    enum class Outcome {
        ok,      ///< snippet holds the text to use
        refused, ///< the user did not authenticate, or could not be asked
        missing, ///< the secret store has no text for the snippet (e.g. synced from elsewhere)
        failed,  ///< the secret store failed
    };

    Outcome outcome = Outcome::refused;
    std::optional<Snippet> snippet; ///< set when ok
    std::string message;            ///< why not, for the log; empty when ok
};

/// The real text of locked snippets, kept in the secret store, one item per snippet: service
/// "com.quillet.app.locked", account the snippet's upper-case id.
class LockedSnippets {
public:
    /// The service under which every locked snippet's text is kept.
    static constexpr std::string_view service = "com.quillet.app.locked";

    /// How the editor and the lists name a locked snippet.
    static constexpr std::string_view label = "Locked";

    /// Uses secrets for the texts and auth for confirmation; both must outlive this object.
    LockedSnippets(SecretStore& secrets, OwnerAuth& auth);

    /// The snippet ready to expand: unchanged when not locked; otherwise, once the owner has
    /// confirmed with reason, with the stored text as its content.
    Unlocked unlockForUse(const Snippet& snippet, std::string_view reason);

    /// The stored text of the snippet with id, without asking the user.
    SecretResult readText(const Uuid& id);

    /// Stores text for the snippet with id, updating its one item.
    SecretResult writeText(const Uuid& id, std::string_view text);

    /// Deletes the stored text of the snippet with id; missing when there was none.
    SecretResult deleteText(const Uuid& id);

    /// Locks snippet: its content goes to the secret store and the record returned keeps the
    /// flag and an empty content. Nothing, with error set, when the text could not be stored;
    /// the caller then keeps the snippet as it was.
    std::optional<Snippet> lock(const Snippet& snippet, std::string& error);

private:
    SecretStore& secrets_;
    OwnerAuth& auth_;
};

} // namespace quillet
