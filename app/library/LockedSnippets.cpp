#include "library/LockedSnippets.h"

namespace quillet {

std::string pasteReason(std::string_view abbreviation) {
    return "paste \u201c" + std::string(abbreviation) + "\u201d";
}

LockedSnippets::LockedSnippets(SecretStore& secrets, OwnerAuth& auth)
    : secrets_(secrets), auth_(auth) {}

Unlocked LockedSnippets::unlockForUse(const Snippet& snippet, std::string_view reason) {
    Unlocked result;
    if (!snippet.locked) {
        result.outcome = Unlocked::Outcome::ok;
        result.snippet = snippet;
        return result;
    }
    AuthResult auth = auth_.authenticate(reason);
    if (!auth.ok()) {
        result.outcome = Unlocked::Outcome::refused;
        result.message = auth.message.empty() ? "Not confirmed." : auth.message;
        return result;
    }
    // Read only after the confirmation, so a refused unlock never has the text in memory.
    SecretResult text = readText(snippet.id);
    switch (text.status) {
    case SecretStatus::ok:
        result.outcome = Unlocked::Outcome::ok;
        result.snippet = snippet;
        result.snippet->content = std::move(text.text);
        return result;
    case SecretStatus::missing:
        result.outcome = Unlocked::Outcome::missing;
        result.message = "No text is stored for the locked snippet " + snippet.id.text() + ".";
        return result;
    case SecretStatus::failed:
        result.outcome = Unlocked::Outcome::failed;
        result.message = std::move(text.error);
        return result;
    }
    return result;
}

SecretResult LockedSnippets::readText(const Uuid& id) {
    return secrets_.read(service, id.text());
}

SecretResult LockedSnippets::writeText(const Uuid& id, std::string_view text) {
    return secrets_.write(service, id.text(), text);
}

SecretResult LockedSnippets::deleteText(const Uuid& id) {
    return secrets_.remove(service, id.text());
}

std::optional<Snippet> LockedSnippets::lock(const Snippet& snippet, std::string& error) {
    SecretResult stored = writeText(snippet.id, snippet.content);
    if (!stored.ok()) {
        error = stored.error;
        return std::nullopt;
    }
    Snippet locked = snippet;
    locked.locked = true;
    locked.content.clear();
    return locked;
}

} // namespace quillet
