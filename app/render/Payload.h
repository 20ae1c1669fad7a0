#pragma once

#include "library/LibraryLocation.h"
#include "library/Snippet.h"
#include "render/Pasteboard.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// What one paste puts on the clipboard: the rendered text, optionally a styled version of it
/// made from Markdown, and optionally a picture that is pasted instead of the text.
struct Payload {
    /// A picture as its file's bytes and the MIME type they are in, with a PNG copy when the
    /// file is in another format, since many applications paste PNG only.
    struct Image {
        std::string type; ///< "image/png", "image/jpeg", ...
        std::string data;
        std::optional<std::string> png; ///< the same picture, when type is another that decodes

        bool operator==(const Image&) const = default;
    };

    std::string text;                  ///< the rendered text, unchanged
    std::optional<std::string> styled; ///< an HTML fragment: the Markdown rendering of text
    std::optional<Image> image;        ///< the snippet's picture

    /// The payload for text rendered from snippet (may be null, as for a plain piece of a
    /// template split at key presses): its picture when it names a readable one in the images
    /// folder (converted to PNG here, once, rather than at each request), else styled text when
    /// it is marked Markdown.
    static Payload make(std::string text, const Snippet* snippet, const LibraryLocation& location);

    /// The inline Markdown of text (emphasis, strong emphasis, code spans, links) as an HTML
    /// fragment with line breaks and runs of spaces kept; block syntax stays literal. Nothing
    /// when the text cannot be parsed.
    static std::optional<std::string> markdown(std::string_view text);

    /// The picture type of a file's bytes, or nothing when they are no picture format that
    /// applications paste.
    static std::optional<std::string> imageType(std::string_view bytes);

    /// The clipboard representations, in order of preference, each marked as transient so that
    /// clipboard managers leave it out.
    std::vector<ClipboardItem> items() const;

    /// Replaces the clipboard's content with items().
    void write(Pasteboard& pasteboard) const { pasteboard.write(items()); }

    bool operator==(const Payload&) const = default;
};

} // namespace quillet
