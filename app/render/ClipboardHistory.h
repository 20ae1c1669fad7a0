#pragma once

#include "render/Pasteboard.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quillet {

/// The last ten texts the user copied, newest first, for the {clipboard} tokens. Password
/// managers' and other tools' private or transient content stays out, and so does what Quillet
/// itself puts on the clipboard when it pastes (its payloads are marked transient). Nothing is
/// ever written to disk: the history starts empty at every launch.
class ClipboardHistory {
public:
    static constexpr std::size_t capacity = 10;

    /// Starts from the clipboard's current state, which is not recorded: it was there before.
    explicit ClipboardHistory(const Pasteboard& pasteboard);

    /// The remembered texts, newest first, no two equal.
    const std::vector<std::string>& entries() const { return entries_; }

    /// Looks at the clipboard once; call it whenever the clipboard may have changed.
    void poll();

    /// True when content offered in these types must not be remembered.
    static bool isPrivate(const Pasteboard& pasteboard, const std::vector<std::string>& types);

private:
    const Pasteboard& pasteboard_;
    std::vector<std::string> entries_;
    std::int64_t seen_;
};

} // namespace quillet
