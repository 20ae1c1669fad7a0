#include "render/Payload.h"

#include "support/TempFolder.h"

#include <QBuffer>
#include <QImage>
#include <gtest/gtest.h>

namespace quillet {
namespace {

using namespace std::string_literals;
using Items = std::vector<ClipboardItem>;
using testing::TempFolder;

const std::string png = "\x89PNG\r\n\x1A\n\0\0\0\rIHDRpicture bytes"s;

const ClipboardItem hint{"x-kde-passwordManagerHint", "secret"};
const ClipboardItem transient{"org.nspasteboard.TransientType", ""};

Items plainItems(const std::string& text) {
    return {{"text/plain;charset=utf-8", text},
            {"UTF8_STRING", text},
            {"text/plain", text},
            hint,
            transient};
}

// A library folder of its own, with the pictures the tests put there.
class PayloadMake : public ::testing::Test {
protected:
    PayloadMake() : location_(preferences_, Folders::forHome(home_.path(), "", "")) {}

    void addImage(const std::string& name, const std::string& bytes) {
        testing::writeText(location_.imagesFolder() / name, bytes);
    }

    static Snippet snippet(bool markdown, const char* image) {
        Snippet s = Snippet::make();
        s.markdown = markdown;
        s.image = image ? std::optional<std::string>(image) : std::nullopt;
        return s;
    }

    TempFolder home_;
    MemoryPreferences preferences_;
    LibraryLocation location_;
};

TEST_F(PayloadMake, MarkdownIsStyledUnlessAPictureIsPastedInstead) {
    addImage("logo.png", png);
    addImage("notes.png", "just some text, whatever the name says");
    std::filesystem::create_directories(location_.imagesFolder() / "folder.png");
    const struct {
        const char* image;
        bool markdown;
        std::string text;
        std::optional<std::string> styled;
        bool pictured = false;
    } cases[] = {
        {nullptr, false, "**a**", std::nullopt},
        {nullptr, true, "**a**", "<strong>a</strong>"},
        {nullptr, true, "a\xC3(", std::nullopt}, // not UTF-8: pasted as it is
        {"logo.png", true, "**a**", std::nullopt, true},
        // A picture that cannot be used leaves the text.
        {"missing.png", true, "*hi*", "<em>hi</em>"},
        {"notes.png", true, "*hi*", "<em>hi</em>"},
        {"folder.png", true, "*hi*", "<em>hi</em>"},
        {"../logo.png", true, "*hi*", "<em>hi</em>"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.image ? c.image : c.text);
        const Snippet s = snippet(c.markdown, c.image);
        const Payload payload = Payload::make(c.text, &s, location_);
        EXPECT_EQ(payload.text, c.text);
        EXPECT_EQ(payload.styled, c.styled);
        EXPECT_EQ(payload.image.has_value(), c.pictured);
    }
    EXPECT_EQ(Payload::make("**a**", nullptr, location_), (Payload{"**a**", {}, {}}));
    const Snippet logo = snippet(true, "logo.png"); // the picture alone, as it is
    EXPECT_EQ(Payload::make("**a**", &logo, location_).items(),
              (Items{{"image/png", png}, hint, transient}));
}

// A picture in format, encoded here with Qt.
std::string encoded(const QImage& image, const char* format) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    EXPECT_TRUE(image.save(&buffer, format)) << format;
    return bytes.toStdString();
}

// A JPEG file with an Exif block saying that viewers turn it a quarter clockwise (Qt's writer
// turns the pixels instead of writing the tag).
std::string turnedJpeg(const QImage& image) {
    const std::string exif = "\xFF\xE1\0\x22"          // APP1 and its length
                             "Exif\0\0MM\0*\0\0\0\x08" // big-endian TIFF, first directory
                             "\0\x01\x01\x12\0\x03\0\0\0\x01\0\x06\0\0" // Orientation = 6
                             "\0\0\0\0"s;
    return encoded(image, "jpeg").insert(2, exif);
}

TEST_F(PayloadMake, APictureInAnotherFormatIsAlsoOfferedAsPng) {
    QImage wide(6, 2, QImage::Format_RGB32);
    wide.fill(qRgb(200, 40, 60));
    // One red pixel on a one-colour palette, written out by hand: Qt cannot write GIF.
    const std::string gif =
        "GIF89a\x01\0\x01\0\x80\0\0\xFF\0\0\0\0\0,\0\0\0\0\x01\0\x01\0\0\x02\x02\x44\x01\0;"s;
    const struct {
        const char* file;
        std::string bytes, type;
        QSize size; // of the PNG, empty for none
    } cases[] = {
        {"photo.jpg", encoded(wide, "jpeg"), "image/jpeg", {6, 2}},
        {"scan.bmp", encoded(wide, "bmp"), "image/bmp", {6, 2}},
        {"dot.gif", gif, "image/gif", {1, 1}},
        {"art.webp", encoded(wide, "webp"), "image/webp", {6, 2}},
        {"fax.tiff", encoded(wide, "tiff"), "image/tiff", {6, 2}},
        // The PNG shows the photograph as viewers do, upright.
        {"turned.jpg", turnedJpeg(wide), "image/jpeg", {2, 6}},
        // What Qt cannot decode is still offered as it is.
        {"broken.jpg", "\xFF\xD8\xFF\xE0 not really a photograph"s, "image/jpeg", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        addImage(c.file, c.bytes);
        const Snippet s = snippet(false, c.file);
        const Items items = Payload::make("text", &s, location_).items();
        ASSERT_EQ(items.size(), c.size.isEmpty() ? 3u : 4u);
        EXPECT_EQ(items[0], (ClipboardItem{c.type, c.bytes}));
        EXPECT_EQ(Items(items.end() - 2, items.end()), (Items{hint, transient}));
        if (c.size.isEmpty()) {
            continue;
        }
        EXPECT_EQ(items[1].type, "image/png");
        QImage decoded;
        ASSERT_TRUE(decoded.loadFromData(QByteArray::fromStdString(items[1].data), "png"));
        EXPECT_EQ(decoded.size(), c.size);
    }
}

TEST(PayloadItems, PlainTextIsOneSetOfTextTypesAndTheMarkersAfterStyledTextAsADocument) {
    EXPECT_EQ((Payload{"Grüße 👋\nline two", {}, {}}.items()), plainItems("Grüße 👋\nline two"));
    const Items items = Payload{"**a**  b", "<strong>a</strong> &nbsp;b", {}}.items();
    ASSERT_EQ(items.size(), 6u);
    EXPECT_EQ(items[0].type, "text/html");
    EXPECT_EQ(items[0].data,
              "<meta http-equiv=\"content-type\" content=\"text/html; charset=utf-8\">"
              "<span style=\"white-space: pre-wrap;\"><strong>a</strong> &nbsp;b</span>");
    EXPECT_EQ(Items(items.begin() + 1, items.end()), plainItems("**a**  b"));
}

// Markdown rendering: what the parser reports, written out as the HTML fragment a paste needs.
// The parser's own rules (delimiter runs, link syntax) are its business; these cases check how
// its spans, text and attributes are written, and that no block syntax is read.
TEST(PayloadMarkdown, SpansTextAndAttributesAreWrittenAsHtml) {
    const std::string code = "<code style=\"font-family: monospace;\">";
    const std::pair<std::string, std::string> cases[] = {
        // Character references pass through for the HTML reader; other text is escaped, and a
        // NUL is replaced.
        {"&copy; &#35; &#x22; &copy \\&copy;", "&copy; &#35; &#x22; &amp;copy &amp;copy;"},
        {std::string("a\0b", 3), "a\xEF\xBF\xBD"
                                 "b"},
        {"`<a href=\"x\">` `&copy;`",
         code + "&lt;a href=&quot;x&quot;&gt;</code> " + code + "&amp;copy;</code>"},
        // Links: destinations percent-encoded and escaped, titles escaped, spans inside kept.
        {"[a](</ü x?x=1&y=2> 'say \"<hi>\" & go')",
         "<a href=\"/%C3%BC%20x?x=1&amp;y=2\" title=\"say &quot;&lt;hi&gt;&quot; &amp; go\">a</a>"},
        {"[a](<x\"y>)", "<a href=\"x%22y\">a</a>"},
        {"[link *foo **bar** `#`*](/uri)",
         "<a href=\"/uri\">link <em>foo <strong>bar</strong> " + code + "#</code></em></a>"},
        // A pasted document must not fetch pictures: an image is its description.
        {"![the *moon*](moon.jpg)", "the moon"},
        {"<https://example.com/a?b=1&c=2>",
         "<a href=\"https://example.com/a?b=1&amp;c=2\">https://example.com/a?b=1&amp;c=2</a>"},
        // Block syntax stays literal, and tags in the text are text.
        {"# Title", "# Title"},
        {"- one\n+ two\n* three", "- one<br>+ two<br>* three"},
        {"> quoted", "&gt; quoted"},
        {"    indented", "&nbsp;&nbsp;&nbsp;&nbsp;indented"},
        {"[foo]: /url\n[foo]", "[foo]: /url<br>[foo]"},
        {"<script>alert(\"x\")</script> & 'q'",
         "&lt;script&gt;alert(&quot;x&quot;)&lt;/script&gt; &amp; 'q'"},
        {"```\nx = 1\n```", code + "<br>x = 1<br></code>"}, // a fence makes a code span
        // Line breaks and spaces stay as written.
        {"a  b", "a &nbsp;b"},
        {"one\r\ntwo\rthree", "one<br>two<br>three"},
        {"\none\n\n\ntwo\n", "<br>one<br><br><br>two<br>"},
        {"x  \n  y", "x &nbsp;<br>&nbsp;&nbsp;y"},
        {"*a\nb*", "<em>a<br>b</em>"},
    };
    for (const auto& [markdown, html] : cases) {
        EXPECT_EQ(Payload::markdown(markdown), html) << markdown;
    }
    // Text that is not UTF-8 has no styled form.
    EXPECT_FALSE(Payload::markdown("caf\xE9"));
    EXPECT_FALSE(Payload::markdown("*a* \xF0\x9F"));
}

} // namespace
} // namespace quillet
