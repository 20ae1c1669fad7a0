// Quillet as the user runs it, on a real X server with a window manager: abbreviations typed
// on the server's own keyboard device into a Qt editor are expanded there, and the user's
// clipboard is as it was afterwards.
#include <gtest/gtest.h>

// After gtest, whose headers use a name Xlib defines as a macro (None).
#include "support/DesktopHarness.h"

namespace quillet {
namespace {

using namespace std::chrono_literals;
using testing::QuilletProcess;
using testing::TextWindow;
using testing::Typist;

// A 2x1 PNG picture: one red and one blue pixel.
const std::string
    png("\x89PNG\r\n\x1a\n\x00\x00\x00\x0dIHDR\x00\x00\x00\x02\x00\x00\x00\x01\x08\x02\x00\x00"
        "\x00\x7b\x40\xe8\xdd\x00\x00\x00\x0dIDAT\x78\x9c\x63\xf8\xcf\x00\x04\xff\x01\x07\x00\x01"
        "\xff\xe2\x23\x9e\x59\x00\x00\x00\x00IEND\xae\x42\x60\x82",
        70);

using testing::snippet;

std::vector<Snippet> library() {
    return {
        snippet(";sig", "Best regards,\nAnn"),
        snippet(";hi", "Hello"),
        snippet(";A", "alpha"),
        snippet(";intl", "Grüße, café 🎉 — ok"),
        snippet("dlm", "delimited", [](Snippet& s) { s.trigger = TriggerMode::delimiter; }),
        snippet("tb", "tabbed", [](Snippet& s) { s.trigger = TriggerMode::tab; }),
        snippet(";keys", "one{key:return}two"),
        snippet(";cur", "<{cursor}>"),
        snippet(";md", "**bold** and *it*", [](Snippet& s) { s.markdown = true; }),
        snippet(";img", "picture", [](Snippet& s) { s.image = "dot.png"; }),
        snippet(";scoped", "in scope", testing::scoped({"ScopedApp"})),
    };
}

// Quillet, the editor it types into, and the user's keyboards, for the whole suite.
struct Session {
    Session() { testing::writeText(quillet.home() / "data/quillet/images/dot.png", png); }
    Typist keyboard, automation{Typist::Source::xtest};
    QuilletProcess quillet{library()};
    TextWindow editor;
};

// Every case runs with keys from the server's own keyboard and from XTEST's virtual one.
class EndToEnd : public ::testing::TestWithParam<Typist::Source> {
protected:
    static void SetUpTestSuite() {
        setenv("QUILLET_TRACE", "1", 1); // Quillet says when it heard of a new front window
        session = std::make_unique<Session>();
    }
    static void TearDownTestSuite() { session.reset(); }
    void SetUp() override {
        ASSERT_TRUE(testing::xlibThreads); // the clipboard case's other client has a thread
        ASSERT_TRUE(quillet->listening()) << quillet->log();
        ASSERT_TRUE(editor->ready());
        editor->focus();
        editor->clear();
        // Quillet learns of a change of the active window from the window manager's property
        // change, which nothing here can wait for; typing before it arrives would be cut off
        // as typing in the window left behind.
        std::this_thread::sleep_for(150ms);
    }
    void TearDown() override {
        if (HasFailure()) {
            std::cerr << "Quillet's log:\n" << quillet->log() << '\n';
        }
    }

    // The typist of this run's key source.
    Typist* typist() const {
        return GetParam() == Typist::Source::xtest ? &session->automation : &session->keyboard;
    }

    // Types keys and expects the editor's text to become text.
    void typeSee(std::string_view keys, const std::string& text,
                 std::chrono::milliseconds patience = 5s) {
        typist()->type(keys);
        EXPECT_EQ(editor->waitFor(text, patience), text) << "after typing " << keys;
    }

    static inline std::unique_ptr<Session> session;
    QuilletProcess* const quillet = &session->quillet;
    TextWindow* const editor = &session->editor;
};

TEST_P(EndToEnd, EachTriggerModeExpandsAndLeavesNothingOfTheAbbreviation) {
    typeSee(";sig", "Best regards,\nAnn");
    editor->clear();
    typeSee("dlm ", "delimited ");
    typeSee("dlm,", "delimited delimited,");
    typeSee("dl m ", "delimited delimited,dl m "); // not the abbreviation
    // Return is held back while it would fire, and pressed again after the expansion.
    typeSee("dlm\n", "delimited delimited,dl m delimited\n");
    // Tab fires and never reaches the editor; a Tab after anything else does.
    editor->clear();
    typeSee("tb\t", "tabbed");
    typeSee(" x\t", "tabbed x\t");
}

TEST_P(EndToEnd, EscapeRightAfterwardsTakesTheExpansionBack) {
    typeSee("a ;hi", "a Hello");
    typist()->tap(XK_Escape);
    EXPECT_EQ(editor->waitFor("a ;hi"), "a ;hi");
    // Only right after: a key in between and Escape is the editor's again.
    typeSee(" ;hi", "a ;hi Hello");
    typist()->type("!");
    typist()->tap(XK_Escape);
    typeSee("x", "a ;hi Hello!x");
}

TEST_P(EndToEnd, ASettingsChangeTakesEffectAtOnceAndABrokenFileIsReported) {
    std::size_t from = quillet->log().size();
    quillet->writeSettings("{\"typo.html\": tru");
    EXPECT_TRUE(quillet->waitForLog("does not hold a JSON object", from));
    from = quillet->log().size();
    quillet->writeSettings(R"({"typo.html": true})");
    ASSERT_TRUE(quillet->waitForLog("settings changed", from));
    typeSee("<p>", "<p></p>");

    from = quillet->log().size();
    quillet->writeSettings("{}");
    ASSERT_TRUE(quillet->waitForLog("settings changed", from));
    typeSee("x <p>y", "<p>x <p>y</p>", 1s); // at the caret, left between the tags
}

TEST_P(EndToEnd, TextKeysCaretMarkdownAndPicturesArriveAsWritten) {
    for (auto [abbreviation, text] : {std::pair{";intl", "Grüße, café 🎉 — ok"},
                                      {";keys", "one\ntwo"},
                                      {";img", "[image 2x1]"},
                                      {";cur", "<>"},
                                      {";md", "bold and it"}}) {
        editor->clear();
        typeSee(abbreviation, text);
    }
    const std::string html = editor->html();
    EXPECT_NE(html.find("font-weight:700;\">bold</span>"), std::string::npos) << html;
    EXPECT_NE(html.find("font-style:italic;\">it</span>"), std::string::npos) << html;
    // A key typed right after the caret moved lands at the mark.
    editor->clear();
    typeSee(";cur", "<>");
    typeSee("x", "<x>");
}

TEST_P(EndToEnd, TheUsersClipboardIsAsItWasAfterwards) {
    const std::vector<ClipboardItem> copied{{"text/plain;charset=utf-8", "copied text"},
                                            {"text/html", "<b>copied</b>"},
                                            {"image/png", png}};
    // The application the user copied from keeps serving its clipboard on a thread of its own.
    RunLoop loop;
    testing::OtherApp owner(loop);
    ASSERT_TRUE(owner.opened());
    owner.call([&](X11Clipboard& c) { return (c.write(copied), true); }).wait();
    auto reader = testing::openOwn<X11Clipboard>(loop);
    std::optional<X11Clipboard::Snapshot> before;
    loop.runUntil(
        [&] {
            before = reader->snapshot();
            return before && !before->items.empty();
        },
        10s);
    ASSERT_TRUE(before && !before->items.empty());
    EXPECT_EQ(reader->text(), "copied text");

    for (auto [abbreviation, expected] :
         {std::pair{";hi", "Hello"}, {";md", "bold and it"}, {";img", "[image 2x1]"}}) {
        editor->clear();
        typeSee(abbreviation, expected);
        std::optional<X11Clipboard::Snapshot> after;
        loop.runUntil(
            [&] {
                after = reader->snapshot();
                return after && after->items == before->items;
            },
            3s);
        ASSERT_TRUE(after);
        EXPECT_EQ(after->items, before->items) << "after " << abbreviation;
    }
}

TEST_P(EndToEnd, TerminalsGetControlShiftV) {
    TextWindow terminal({"--class", "XTerm", "--terminal"});
    ASSERT_TRUE(terminal.ready());
    terminal.focus();
    typist()->type("$ ;hi");
    EXPECT_EQ(terminal.waitFor("$ Hello"), "$ Hello");
    editor->focus();
}

TEST_P(EndToEnd, ShiftStillHeldAtTheTriggerDoesNotSpoilThePaste) {
    typist()->tap(XK_semicolon);
    typist()->key(XK_Shift_L, true);
    typist()->tap(XK_a); // 'A' completes ";A" while Shift is still down
    typist()->tap(XK_b); // held by the expansion, then replayed with the Shift it was typed with
    std::this_thread::sleep_for(100ms);
    typist()->key(XK_Shift_L, false);
    EXPECT_EQ(editor->waitFor("alphaB"), "alphaB");
}

TEST_P(EndToEnd, TypingOnRightAfterTheTriggerKeepsTheOrder) {
    typist()->type(";hi there, ;sig and on", 8ms);
    const std::string expected = "Hello there, Best regards,\nAnn and on";
    EXPECT_EQ(editor->waitFor(expected), expected);
}

TEST_P(EndToEnd, ScopedSnippetsFireOnlyInTheirApplication) {
    typist()->type(";scoped ");
    EXPECT_EQ(editor->waitFor(";scoped ", 1s), ";scoped ");
    TextWindow scoped({"--class", "ScopedApp"});
    ASSERT_TRUE(scoped.ready());
    const std::size_t before = quillet->log().size();
    scoped.focus();
    // The keys and the window manager's word of the new window reach Quillet on different
    // connections: the scope is only known once it has heard.
    ASSERT_TRUE(quillet->waitForLog("trace: front ScopedApp", before)) << quillet->log();
    typist()->type(";scoped");
    EXPECT_EQ(scoped.waitFor("in scope"), "in scope");
    editor->focus();
}

TEST_P(EndToEnd, ExpandsEveryTimeOverAHundredRuns) {
    std::vector<std::string> failures;
    for (int i = 0; i < 100; ++i) {
        editor->clear();
        if (i % 2 == 0) {
            // Each key pressed before the last one is let go, as a quick hand rolls them: the
            // keys after the trigger are caught by the hold, some just as it ends.
            const std::string keys = ";hixyz";
            for (std::size_t k = 0; k <= keys.size(); ++k) {
                if (k < keys.size()) {
                    typist()->key(static_cast<KeySym>(keys[k]), true);
                }
                if (k > 0) {
                    typist()->key(static_cast<KeySym>(keys[k - 1]), false);
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(i % 4));
            }
        } else {
            typist()->type("dlm ");
        }
        const std::string expected = i % 2 == 0 ? "Helloxyz" : "delimited ";
        if (std::string seen = editor->waitFor(expected); seen != expected) {
            failures.push_back(std::to_string(i) + ": " + seen);
        }
    }
    EXPECT_EQ(failures, std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(KeySources, EndToEnd,
                         ::testing::Values(Typist::Source::keyboard, Typist::Source::xtest),
                         [](const ::testing::TestParamInfo<Typist::Source>& source) {
                             return source.param == Typist::Source::xtest ? "Xtest" : "Keyboard";
                         });

} // namespace
} // namespace quillet
