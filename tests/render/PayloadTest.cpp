#include "render/Payload.h"

#include "platform/fake/FakePasteboard.h"
#include "render/ClipboardHistory.h"
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
    PayloadMake() : location_(preferences_, Folders::forHome(home_.path(), "", "")) {
        std::filesystem::create_directories(location_.imagesFolder());
    }

    std::filesystem::path addImage(const std::string& name, const std::string& bytes) {
        const std::filesystem::path file = location_.imagesFolder() / name;
        testing::writeText(file, bytes);
        return file;
    }

    static Snippet snippet(bool markdown, std::optional<std::string> image = std::nullopt) {
        Snippet s = Snippet::make();
        s.markdown = markdown;
        s.image = std::move(image);
        return s;
    }

    TempFolder home_;
    MemoryPreferences preferences_;
    LibraryLocation location_;
};

TEST_F(PayloadMake, AMarkdownSnippetWithAPicturePastesOnlyThePicture) {
    addImage("logo.png", png);
    const Snippet withImage = snippet(true, "logo.png");
    const Payload payload = Payload::make("**bold** text", &withImage, location_);
    EXPECT_EQ(payload.text, "**bold** text");
    EXPECT_FALSE(payload.styled);
    ASSERT_TRUE(payload.image);
    EXPECT_EQ(payload.items(), (Items{{"image/png", png}, hint, transient}));

    FakePasteboard board;
    payload.write(board);
    EXPECT_EQ(board.data("image/png"), png);
    EXPECT_FALSE(board.text());
    EXPECT_FALSE(board.data("text/html"));
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
        std::string bytes;
        std::string type;
        QSize size; // of the PNG, empty for none
        QRgb pixel;
    } cases[] = {
        {"photo.jpg", encoded(wide, "jpeg"), "image/jpeg", {6, 2}, qRgb(200, 40, 60)},
        {"scan.bmp", encoded(wide, "bmp"), "image/bmp", {6, 2}, qRgb(200, 40, 60)},
        {"dot.gif", gif, "image/gif", {1, 1}, qRgb(255, 0, 0)},
        {"art.webp", encoded(wide, "webp"), "image/webp", {6, 2}, qRgb(200, 40, 60)},
        {"fax.tiff", encoded(wide, "tiff"), "image/tiff", {6, 2}, qRgb(200, 40, 60)},
        // The PNG shows the photograph as viewers do, upright.
        {"turned.jpg", turnedJpeg(wide), "image/jpeg", {2, 6}, qRgb(200, 40, 60)},
        // What Qt cannot decode is still offered as it is.
        {"broken.jpg", "\xFF\xD8\xFF\xE0 not really a photograph"s, "image/jpeg", {}, 0},
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
        // JPEG and WebP are lossy; a flat colour comes back within a few steps.
        const QRgb seen = decoded.pixel(decoded.width() - 1, decoded.height() - 1);
        EXPECT_NEAR(qRed(seen), qRed(c.pixel), 4);
        EXPECT_NEAR(qGreen(seen), qGreen(c.pixel), 4);
        EXPECT_NEAR(qBlue(seen), qBlue(c.pixel), 4);
    }
}

TEST_F(PayloadMake, APictureThatCannotBeUsedLeavesTheText) {
    addImage("notes.png", "just some text, whatever the name says");
    std::filesystem::create_directories(location_.imagesFolder() / "folder.png");
    for (const char* name : {"missing.png", "notes.png", "folder.png", "../logo.png"}) {
        const Snippet s = snippet(true, name);
        const Payload payload = Payload::make("*hi*", &s, location_);
        EXPECT_FALSE(payload.image) << name;
        EXPECT_EQ(payload.styled, "<em>hi</em>") << name;
        EXPECT_EQ(payload.text, "*hi*") << name;
    }
}

TEST_F(PayloadMake, APictureWithoutReadPermissionLeavesTheText) {
    const std::filesystem::path file = addImage("private.png", png);
    std::filesystem::permissions(home_.path(), std::filesystem::perms::others_exec,
                                 std::filesystem::perm_options::add);
    for (auto folder = location_.imagesFolder(); folder != home_.path();
         folder = folder.parent_path()) {
        std::filesystem::permissions(folder, std::filesystem::perms::others_exec,
                                     std::filesystem::perm_options::add);
    }
    std::filesystem::permissions(file, std::filesystem::perms::owner_read);
    const Snippet s = snippet(false, "private.png");
    EXPECT_EQ(testing::asNobody([&] {
                  const Payload payload = Payload::make("text", &s, location_);
                  // The file is found, only its content is out of reach.
                  if (!std::filesystem::exists(file)) {
                      return 2;
                  }
                  return !payload.image && payload.items() == plainItems("text") ? 0 : 1;
              }),
              0);
}

TEST_F(PayloadMake, StyledTextOnlyForMarkdownSnippets) {
    const Snippet plain = snippet(false);
    const Snippet markdown = snippet(true);
    EXPECT_EQ(Payload::make("**a**", nullptr, location_), (Payload{"**a**", {}, {}}));
    EXPECT_EQ(Payload::make("**a**", &plain, location_), (Payload{"**a**", {}, {}}));
    EXPECT_EQ(Payload::make("**a**", &markdown, location_),
              (Payload{"**a**", "<strong>a</strong>", {}}));
    // Text that is no valid UTF-8 cannot be parsed and pastes as it is.
    EXPECT_EQ(Payload::make("a\xC3(", &markdown, location_), (Payload{"a\xC3(", {}, {}}));
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

TEST(PayloadWrite, TheClipboardHistoryLeavesPastedPayloadsOut) {
    FakePasteboard board;
    ClipboardHistory history(board);
    board.copyText("copied by the user");
    history.poll();
    for (const Payload& payload : {Payload{"plain", {}, {}}, Payload{"*s*", "<em>s</em>", {}},
                                   Payload{"", {}, Payload::Image{"image/gif", "GIF89a", png}}}) {
        payload.write(board);
        history.poll();
    }
    EXPECT_EQ(history.entries(), std::vector<std::string>{"copied by the user"});
}

TEST(PayloadImageType, KnowsPictureFormatsByTheirContent) {
    const std::pair<std::string, std::optional<std::string>> cases[] = {
        {png, "image/png"},
        {"\xFF\xD8\xFF\xE0\0\x10JFIF"s, "image/jpeg"},
        {"GIF89a\x01\0\x01\0"s, "image/gif"},
        {"RIFF\x24\0\0\0WEBPVP8 "s, "image/webp"},
        {"II*\0\x08\0\0\0"s, "image/tiff"},
        {"BM" + std::string(40, '\0'), "image/bmp"},
        {"<?xml version=\"1.0\"?>\n<svg xmlns=\"http://www.w3.org/2000/svg\"/>", "image/svg+xml"},
        {"RIFF\x24\0\0\0WAVEfmt "s, std::nullopt},
        {"\x89PN", std::nullopt},
        {"a text file mentioning <svg", std::nullopt},
    };
    for (const auto& [bytes, type] : cases) {
        EXPECT_EQ(Payload::imageType(bytes), type) << bytes;
    }
}

// Markdown rendering: what the parser reports, written out as the HTML fragment a paste needs.
// The parser's own rules (delimiter runs, link syntax) are its business; these cases check how
// its spans, text and attributes are written.
TEST(PayloadMarkdown, SpansTextAndAttributesAreWrittenAsHtml) {
    const std::string code = "<code style=\"font-family: monospace;\">";
    const std::pair<std::string, std::string> cases[] = {
        // Emphasis, nested and left as text where it does not close.
        {"*foo bar*", "<em>foo bar</em>"},
        {"a * foo bar*", "a * foo bar*"},
        {"snake_case_name and foo_bar_", "snake_case_name and foo_bar_"},
        {"*foo **bar** baz*", "<em>foo <strong>bar</strong> baz</em>"},
        {"*café 🎉*", "<em>café 🎉</em>"},
        // Escapes and character references: the HTML reader resolves references, so they pass
        // through; others are text, and a NUL is replaced.
        {"\\*not emphasized*", "*not emphasized*"},
        {"&copy; &#35; &#x22;", "&copy; &#35; &#x22;"},
        {"&copy \\&copy;", "&amp;copy &amp;copy;"},
        {std::string("a\0b", 3), "a\xEF\xBF\xBD"
                                 "b"},
        // Code spans, with their text escaped.
        {"`` foo ` bar ``", code + "foo ` bar</code>"},
        {"`<a href=\"x\">` `&copy;`",
         code + "&lt;a href=&quot;x&quot;&gt;</code> " + code + "&amp;copy;</code>"},
        // Links: destinations percent-encoded and escaped, titles escaped, spans inside kept.
        {"[link](/uri \"title\")", "<a href=\"/uri\" title=\"title\">link</a>"},
        {"[link](</my uri>)", "<a href=\"/my%20uri\">link</a>"},
        {"[a](/ü?x=1&y=2)", "<a href=\"/%C3%BC?x=1&amp;y=2\">a</a>"},
        {"[a](<x\"y>)", "<a href=\"x%22y\">a</a>"},
        {"[a](/u 'say \"<hi>\" & go')",
         "<a href=\"/u\" title=\"say &quot;&lt;hi&gt;&quot; &amp; go\">a</a>"},
        {"[link *foo **bar** `#`*](/uri)",
         "<a href=\"/uri\">link <em>foo <strong>bar</strong> " + code + "#</code></em></a>"},
        {"[foo][bar] [foo] [foo][]", "[foo][bar] [foo] [foo][]"}, // no definitions
        // A pasted document must not fetch pictures: an image is its description.
        {"![the *moon*](moon.jpg)", "the moon"},
        {"<https://example.com/a?b=1&c=2>",
         "<a href=\"https://example.com/a?b=1&amp;c=2\">https://example.com/a?b=1&amp;c=2</a>"},
        {"<ada@example.com>", "<a href=\"mailto:ada@example.com\">ada@example.com</a>"},
        // Block syntax stays literal, and tags in the text are text.
        {"# Title", "# Title"},
        {"- one\n+ two\n* three", "- one<br>+ two<br>* three"},
        {"> quoted", "&gt; quoted"},
        {"    indented", "&nbsp;&nbsp;&nbsp;&nbsp;indented"},
        {"[foo]: /url\n[foo]", "[foo]: /url<br>[foo]"},
        {"<div>\nhi\n</div>", "&lt;div&gt;<br>hi<br>&lt;/div&gt;"},
        {"<script>alert(\"x\")</script> & 'q'",
         "&lt;script&gt;alert(&quot;x&quot;)&lt;/script&gt; &amp; 'q'"},
        {"```\nx = 1\n```", code + "<br>x = 1<br></code>"}, // a fence makes a code span
        // Line breaks and spaces stay as written.
        {"a  b", "a &nbsp;b"},
        {"  leading", "&nbsp;&nbsp;leading"},
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
