#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// One representation of clipboard content: a MIME type and its bytes.
struct ClipboardItem {
    std::string type;
    std::string data;

    bool operator==(const ClipboardItem&) const = default;
};

/// The system clipboard. Types are MIME types.
class Pasteboard {
public:
    virtual ~Pasteboard() = default;

    /// A number that changes whenever the clipboard gets new content.
    virtual std::int64_t changeCount() const = 0;

    /// The types the current content is offered in.
    virtual std::vector<std::string> types() const = 0;

    /// The current content in one type, or nothing when it is not offered in that type.
    virtual std::optional<std::string> data(std::string_view type) const = 0;

    /// The current content as plain UTF-8 text, or nothing when there is no text.
    virtual std::optional<std::string> text() const = 0;

    /// Replaces the content with these representations of one thing, in order of preference.
    virtual void write(std::vector<ClipboardItem> items) = 0;
};

} // namespace quillet
