#include "render/Payload.h"

#include "image/PngImage.h"
#include "library/AtomicFile.h"
#include "library/Text.h"

#include <array>
#include <md4c.h>

namespace quillet {
namespace {

// Plain text goes out under the names UTF-8 readers ask for: the MIME type with its charset,
// X11's own UTF8_STRING, and bare text/plain, which toolkits today read as UTF-8 and some
// programs ask for alone.
constexpr std::array<std::string_view, 3> plainTextTypes = {"text/plain;charset=utf-8",
                                                            "UTF8_STRING", "text/plain"};

// Password managers' convention, honoured by Linux clipboard managers; the second is the
// cross-platform one, which the clipboard history also skips.
constexpr std::string_view passwordHintType = "x-kde-passwordManagerHint";
constexpr std::string_view transientType = "org.nspasteboard.TransientType";

constexpr std::string_view pngType = "image/png";

// The parser sees the text as one line between two vertical tabs, with every line break turned
// into a vertical tab too. Block syntax only exists at the start of a line, so none is found,
// while a vertical tab is whitespace to the inline rules just as a line break is. The parser also
// keeps whitespace inside a line that it would strip at line starts and ends, and its text
// pointers lead back to the original characters.
constexpr char lineStandIn = '\v';

constexpr std::string_view replacementCharacter = "\xEF\xBF\xBD";

bool isUrlSafe(unsigned char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
        return true;
    }
    // Reserved and unreserved URL characters, and '%' so that existing escapes stay as written.
    return std::string_view("-_.!~*'();/?:@&=+$,#%").find(static_cast<char>(c)) !=
           std::string_view::npos;
}

void appendEscaped(std::string& out, char c) {
    switch (c) {
    case '<':
        out += "&lt;";
        break;
    case '>':
        out += "&gt;";
        break;
    case '&':
        out += "&amp;";
        break;
    case '"':
        out += "&quot;";
        break;
    default:
        out += c;
    }
}

void appendUrlEscaped(std::string& out, std::string_view s) {
    static constexpr char hex[] = "0123456789ABCDEF";
    for (char c : s) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '&') {
            out += "&amp;";
        } else if (isUrlSafe(byte)) {
            out += c;
        } else {
            out += '%';
            out += hex[byte >> 4];
            out += hex[byte & 0xF];
        }
    }
}

// Builds the HTML fragment from the parser's callbacks.
class HtmlWriter {
public:
    HtmlWriter(std::string_view original, std::string_view document)
        : original_(original), document_(document) {}

    std::string take() { return std::move(out_); }

    int enterBlock(MD_BLOCKTYPE type) {
        // Anything but the one paragraph would mean block syntax was read: give up rather than
        // paste something other than what was written.
        return type == MD_BLOCK_DOC || type == MD_BLOCK_P ? 0 : -1;
    }

    int enterSpan(MD_SPANTYPE type, const void* detail) {
        if (inImage_ > 0) {
            // An image's description is its text; no markup inside it.
            inImage_ += type == MD_SPAN_IMG ? 1 : 0;
            return 0;
        }
        switch (type) {
        case MD_SPAN_EM:
            out_ += "<em>";
            break;
        case MD_SPAN_STRONG:
            out_ += "<strong>";
            break;
        case MD_SPAN_CODE:
            out_ += "<code style=\"font-family: monospace;\">";
            break;
        case MD_SPAN_A: {
            const auto* link = static_cast<const MD_SPAN_A_DETAIL*>(detail);
            out_ += "<a href=\"";
            appendAttribute(link->href, true);
            out_ += '"';
            if (link->title.size > 0) {
                out_ += " title=\"";
                appendAttribute(link->title, false);
                out_ += '"';
            }
            out_ += '>';
            break;
        }
        case MD_SPAN_IMG:
            // Pasted HTML must not fetch anything, so a picture stays its description.
            ++inImage_;
            break;
        default:
            return -1; // an extension that is switched off
        }
        return 0;
    }

    int leaveSpan(MD_SPANTYPE type) {
        if (inImage_ > 0) {
            inImage_ -= type == MD_SPAN_IMG ? 1 : 0;
            return 0;
        }
        switch (type) {
        case MD_SPAN_EM:
            out_ += "</em>";
            break;
        case MD_SPAN_STRONG:
            out_ += "</strong>";
            break;
        case MD_SPAN_CODE:
            out_ += "</code>";
            break;
        case MD_SPAN_A:
            out_ += "</a>";
            break;
        default:
            break;
        }
        return 0;
    }

    int text(MD_TEXTTYPE type, const MD_CHAR* text, MD_SIZE size) {
        switch (type) {
        case MD_TEXT_NULLCHAR:
            appendCharacter(replacementCharacter);
            break;
        case MD_TEXT_ENTITY:
            // The parser has checked the reference's syntax; the HTML reader resolves it.
            appendCharacter(std::string_view(text, size));
            break;
        case MD_TEXT_BR:
        case MD_TEXT_SOFTBR:
            appendLineBreak();
            break;
        default:
            appendText(text, size);
            break;
        }
        return 0;
    }

private:
    // Where in the original text a character the parser reports stands, if it is one of them.
    std::optional<std::size_t> indexOf(const char* c) const {
        const char* begin = document_.data();
        if (c <= begin || c >= begin + document_.size() - 1) {
            return std::nullopt; // outside, or one of the stand-ins around the text
        }
        return static_cast<std::size_t>(c - begin) - 1;
    }

    // The parser copies some attributes; their line breaks can only be guessed back.
    char originalOf(const char* c) const {
        const std::optional<std::size_t> index = indexOf(c);
        return index ? original_[*index] : *c == lineStandIn ? '\n' : *c;
    }

    void appendText(const char* text, std::size_t size) {
        const char* begin = document_.data();
        const bool inDocument = text >= begin && text + size <= begin + document_.size();
        for (std::size_t i = 0; i < size; ++i) {
            if (!inDocument) {
                appendByte(text[i], false);
                continue;
            }
            const std::optional<std::size_t> index = indexOf(text + i);
            if (!index) {
                continue;
            }
            const char c = original_[*index];
            if (c == '\r' && *index + 1 < original_.size() && original_[*index + 1] == '\n') {
                continue; // one break for CR LF
            }
            appendByte(c, true);
        }
    }

    void appendByte(char c, bool fromText) {
        switch (c) {
        case '\n':
        case '\r':
        case '\v':
        case '\f':
            if (fromText) {
                appendLineBreak();
            } else {
                appendSpace(); // a code span's line ending, as the parser reports it
            }
            return;
        case ' ':
            appendSpace();
            return;
        case '\t':
            out_ += '\t';
            afterSpace_ = true;
            return;
        default:
            appendEscaped(out_, c);
            afterSpace_ = false;
        }
    }

    // HTML collapses runs of spaces and drops them at line starts; a no-break space does
    // neither, while single spaces between words stay breakable.
    void appendSpace() {
        out_ += afterSpace_ ? "&nbsp;" : " ";
        afterSpace_ = true;
    }

    void appendLineBreak() {
        out_ += "<br>";
        afterSpace_ = true;
    }

    void appendCharacter(std::string_view s) {
        out_ += s;
        afterSpace_ = false;
    }

    void appendAttribute(const MD_ATTRIBUTE& attribute, bool isUrl) {
        for (std::size_t i = 0; attribute.substr_offsets[i] < attribute.size; ++i) {
            const std::string_view part(attribute.text + attribute.substr_offsets[i],
                                        attribute.substr_offsets[i + 1] -
                                            attribute.substr_offsets[i]);
            switch (attribute.substr_types[i]) {
            case MD_TEXT_ENTITY:
                out_ += part;
                break;
            case MD_TEXT_NULLCHAR:
                if (isUrl) {
                    appendUrlEscaped(out_, replacementCharacter);
                } else {
                    out_ += replacementCharacter;
                }
                break;
            default: {
                // A destination or title may span lines; put the line breaks back.
                std::string written;
                for (const char& c : part) {
                    written += originalOf(&c);
                }
                if (isUrl) {
                    appendUrlEscaped(out_, written);
                } else {
                    for (char c : written) {
                        appendEscaped(out_, c);
                    }
                }
            }
            }
        }
    }

    std::string_view original_;
    std::string_view document_;
    std::string out_;
    bool afterSpace_ = true;
    int inImage_ = 0;
};

HtmlWriter& writerOf(void* userdata) {
    return *static_cast<HtmlWriter*>(userdata);
}

// Clipboard readers take a fragment with its character set declared, as browsers copy it; the
// style keeps tabs for readers that apply it, the no-break spaces keep the rest for all others.
std::string htmlDocument(const std::string& fragment) {
    return "<meta http-equiv=\"content-type\" content=\"text/html; charset=utf-8\">"
           "<span style=\"white-space: pre-wrap;\">" +
           fragment + "</span>";
}

} // namespace

Payload Payload::make(std::string text, const Snippet* snippet, const LibraryLocation& location) {
    Payload payload;
    payload.text = std::move(text);
    if (snippet == nullptr) {
        return payload;
    }
    if (std::optional<std::filesystem::path> file = location.imageFile(*snippet)) {
        FileContent content = readFile(*file);
        if (content.status == ReadStatus::ok) {
            if (std::optional<std::string> type = imageType(content.bytes)) {
                // A file that does not decode is still offered as it is: the application
                // pasting it may read it better than Qt does.
                std::optional<std::string> png =
                    *type == pngType ? std::nullopt : toPng(content.bytes);
                payload.image = Image{std::move(*type), std::move(content.bytes), std::move(png)};
            }
        }
    }
    if (snippet->markdown && !payload.image) {
        payload.styled = markdown(payload.text);
    }
    return payload;
}

std::optional<std::string> Payload::markdown(std::string_view text) {
    if (!text::isValidUtf8(text)) {
        return std::nullopt;
    }
    std::string document;
    document.reserve(text.size() + 2);
    document += lineStandIn;
    for (char c : text) {
        document += c == '\n' || c == '\r' ? lineStandIn : c;
    }
    document += lineStandIn;

    HtmlWriter writer(text, document);
    MD_PARSER parser{};
    parser.abi_version = 0;
    parser.flags = MD_FLAG_NOHTML; // tags in the text are text
    parser.enter_block = [](MD_BLOCKTYPE type, void*, void* userdata) {
        return writerOf(userdata).enterBlock(type);
    };
    parser.leave_block = [](MD_BLOCKTYPE, void*, void*) { return 0; };
    parser.enter_span = [](MD_SPANTYPE type, void* detail, void* userdata) {
        return writerOf(userdata).enterSpan(type, detail);
    };
    parser.leave_span = [](MD_SPANTYPE type, void*, void* userdata) {
        return writerOf(userdata).leaveSpan(type);
    };
    parser.text = [](MD_TEXTTYPE type, const MD_CHAR* chars, MD_SIZE size, void* userdata) {
        return writerOf(userdata).text(type, chars, size);
    };
    if (md_parse(document.data(), static_cast<MD_SIZE>(document.size()), &parser, &writer) != 0) {
        return std::nullopt;
    }
    return writer.take();
}

std::optional<std::string> Payload::imageType(std::string_view bytes) {
    auto startsWith = [&](std::string_view magic) { return bytes.starts_with(magic); };
    if (startsWith("\x89PNG\r\n\x1A\n")) {
        return std::string(pngType);
    }
    if (startsWith("\xFF\xD8\xFF")) {
        return "image/jpeg";
    }
    if (startsWith("GIF87a") || startsWith("GIF89a")) {
        return "image/gif";
    }
    if (bytes.size() >= 12 && startsWith("RIFF") && bytes.substr(8, 4) == "WEBP") {
        return "image/webp";
    }
    if (startsWith(std::string_view("II*\0", 4)) || startsWith(std::string_view("MM\0*", 4))) {
        return "image/tiff";
    }
    if (bytes.size() >= 26 && startsWith("BM")) {
        return "image/bmp";
    }
    const std::size_t start = bytes.find_first_not_of(" \t\r\n");
    if (start != std::string_view::npos && bytes[start] == '<' &&
        bytes.substr(0, 4096).find("<svg") != std::string_view::npos) {
        return "image/svg+xml";
    }
    return std::nullopt;
}

std::vector<ClipboardItem> Payload::items() const {
    std::vector<ClipboardItem> items;
    if (image) {
        // The file's own bytes first: an application that takes the first type it knows gets
        // the original (animation, the photograph's smaller encoding), one that reads only PNG
        // still finds it.
        items.push_back({image->type, image->data});
        if (image->png) {
            items.push_back({std::string(pngType), *image->png});
        }
    } else {
        if (styled) {
            items.push_back({"text/html", htmlDocument(*styled)});
        }
        for (std::string_view type : plainTextTypes) {
            items.push_back({std::string(type), text});
        }
    }
    items.push_back({std::string(passwordHintType), "secret"});
    items.push_back({std::string(transientType), ""});
    return items;
}

} // namespace quillet
