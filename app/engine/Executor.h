#pragma once

#include "render/Payload.h"
#include "render/Tokens.h"

#include <cstdint>
#include <functional>
#include <string_view>

namespace quillet {

/// Carries out the engine's intentions in the application that has the keyboard focus: X11
/// with synthetic keys and the clipboard, an input method by deleting and committing text.
/// Each intention completes asynchronously and calls done on the main thread once the target has
/// taken it in (for a paste: once the application fetched the clipboard), so the engine runs the
/// next one only then and never sleeps. done is called exactly once, also when the intention
/// could not be carried out: what still can be done goes on. Counts are in user-perceived
/// characters (grapheme clusters).
class Executor {
public:
    /// Called when an intention is over.
    using Done = std::function<void()>;

    /// The preference mapping application ids to the key stroke that pastes there.
    static constexpr std::string_view pasteShortcutsKey = "pasteShortcuts";

    virtual ~Executor() = default;

    /// Starts an expansion ahead of its first intention: from now until finish the user's keys
    /// wait and land after it; done once every key that reached the application before has been
    /// reported to the key source's observer.
    virtual void hold(Done done) = 0;

    /// Erases the count characters before the caret.
    virtual void erase(std::int64_t count, Done done) = 0;

    /// Inserts the payload at the caret (pasting it, or committing its text).
    virtual void insert(const Payload& payload, Done done) = 0;

    /// Presses and releases one key stroke, its modifiers exactly as given.
    virtual void press(const Tokens::KeyStroke& stroke, Done done) = 0;

    /// Moves the caret count characters to the left.
    virtual void moveLeft(std::int64_t count, Done done) = 0;

    /// Moves the caret count characters to the right.
    virtual void moveRight(std::int64_t count, Done done) = 0;

    /// Types text at the caret as if from the keyboard, without touching the clipboard.
    virtual void type(std::string_view text, Done done) = 0;

    /// Ends one expansion: gives back what its insertions borrowed, such as the user's clipboard.
    virtual void finish(Done done) = 0;
};

} // namespace quillet
