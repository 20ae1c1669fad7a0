// Quillet as the user runs it: asking for a snippet's values in its form (the values land in
// the window the abbreviation was typed in, Escape leaves it erased), and listing matching
// snippets at the caret of an accessible editor. Keys come from a keyboard device and from
// XTEST. Runs under a window manager, on a private session bus.
#include <gtest/gtest.h>

// After gtest, whose headers use a name Xlib defines as a macro (None).
#include "support/DesktopHarness.h"

#include <X11/keysym.h>
#include <cstdlib>
#include <thread>

namespace quillet {
namespace {

using testing::QuilletProcess;
using testing::snippet;
using testing::TextWindow;
using testing::Typist;
using testing::X11Windows;

TEST(ShellEndToEnd, TheFormsValuesLandInTheWindowTypedInAndEscapeLeavesItErased) {
    QuilletProcess quillet({snippet(";form", "Dear {field:Name}, see you {choice:Day=Mon|Tue}.")});
    ASSERT_TRUE(quillet.listening()) << quillet.log();
    TextWindow editor;
    X11Windows windows;
    ASSERT_TRUE(editor.ready());
    for (auto source : {Typist::Source::keyboard, Typist::Source::xtest}) {
        SCOPED_TRACE(source == Typist::Source::xtest ? "XTEST" : "keyboard");
        Typist typist(source);
        editor.focus();
        editor.clear();
        std::size_t from = quillet.log().size();
        typist.type(";form");
        ASSERT_TRUE(quillet.waitForLog("asking for 2 field values", from)) << quillet.log();
        ASSERT_TRUE(windows.waitForFocus(editor.window(), false));
        typist.type("Bob\t");
        typist.tap(XK_Down);
        typist.tap(XK_Return);
        EXPECT_EQ(editor.waitFor("Dear Bob, see you Tue."), "Dear Bob, see you Tue.");

        editor.clear();
        from = quillet.log().size();
        typist.type(";form");
        ASSERT_TRUE(quillet.waitForLog("asking for 2 field values", from)) << quillet.log();
        ASSERT_TRUE(windows.waitForFocus(editor.window(), false));
        typist.tap(XK_Escape);
        ASSERT_TRUE(windows.waitForFocus(editor.window(), true));
        typist.type("x"); // the abbreviation is gone
        EXPECT_EQ(editor.waitFor("x"), "x");
    }
}

TEST(ShellEndToEnd, ThePopupListsMatchesAtTheCaretAndItsKeysPickOne) {
    setenv("QUILLET_TRACE", "1", 1); // Quillet says when it found the editor's focused field
    QuilletProcess quillet({snippet(";addr", "1 Main Street"), snippet(";add", "Add")},
                           R"({"matchPopup": true})");
    ASSERT_TRUE(quillet.listening()) << quillet.log();
    TextWindow editor({"--accessible"});
    X11Windows windows;
    ASSERT_TRUE(editor.ready());
    // The editor joins the accessibility bus in its own time, and the panel needs its caret.
    editor.focus();
    ASSERT_TRUE(quillet.waitForLog("trace: accessible focus known", 0)) << quillet.log();
    const std::string title = "Matching snippets";
    for (auto source : {Typist::Source::keyboard, Typist::Source::xtest}) {
        SCOPED_TRACE(source == Typist::Source::xtest ? "XTEST" : "keyboard");
        Typist typist(source);
        editor.focus();
        editor.clear();
        typist.type(";ad");
        const auto panel = windows.waitForTitled(title, true);
        ASSERT_TRUE(panel.has_value()) << quillet.log();
        // At the caret: the start of the editor's first line, above or below it.
        Window child = 0;
        int editorX = 0, editorY = 0;
        XTranslateCoordinates(typist.display(), editor.window(),
                              XDefaultRootWindow(typist.display()), 0, 0, &editorX, &editorY,
                              &child);
        EXPECT_GE(panel->x, editorX);
        EXPECT_LT(panel->x, editorX + 80);
        EXPECT_LT(std::abs(panel->y - editorY), panel->height + 60);
        typist.tap(XK_Tab); // the first: both unused, so by abbreviation
        EXPECT_EQ(editor.waitFor("Add"), "Add");
        EXPECT_FALSE(windows.waitForTitled(title, false).has_value());

        typist.type(" ;ad");
        ASSERT_TRUE(windows.waitForTitled(title, true).has_value());
        typist.tap(XK_Down);
        typist.tap(XK_Down);
        typist.tap(XK_Up); // wraps round to the second
        typist.tap(XK_Return);
        EXPECT_EQ(editor.waitFor("Add 1 Main Street"), "Add 1 Main Street");

        // Escape takes it down and leaves the text alone.
        typist.type(" ;ad");
        ASSERT_TRUE(windows.waitForTitled(title, true).has_value());
        typist.tap(XK_Escape);
        EXPECT_FALSE(windows.waitForTitled(title, false).has_value());
        typist.type("x");
        EXPECT_EQ(editor.waitFor("Add 1 Main Street ;adx"), "Add 1 Main Street ;adx");
    }
}

TEST(ShellEndToEnd, ThePickerPastesTheChosenSnippetIntoTheWindowThatWasInFront) {
    QuilletProcess quillet({snippet(";addr", "1 Main Street"), snippet(";sig", "Best regards"),
                            snippet("", "Kind regards, Ann")});
    ASSERT_TRUE(quillet.listening()) << quillet.log();
    ASSERT_TRUE(quillet.waitForLog("search and paste: super+period", 0)) << quillet.log();
    TextWindow editor;
    X11Windows windows;
    ASSERT_TRUE(editor.ready());
    for (auto source : {Typist::Source::keyboard, Typist::Source::xtest}) {
        SCOPED_TRACE(source == Typist::Source::xtest ? "XTEST" : "keyboard");
        Typist typist(source);
        editor.focus();
        editor.clear();
        typist.type("Dear ");
        typist.key(XK_Super_L, true);
        typist.tap(XK_period);
        typist.key(XK_Super_L, false);
        ASSERT_TRUE(windows.waitForFocus(editor.window(), false)) << quillet.log();
        typist.type("kind");
        typist.tap(XK_Return);
        EXPECT_EQ(editor.waitFor("Dear Kind regards, Ann"), "Dear Kind regards, Ann")
            << quillet.log();

        // Escape gives the focus back and inserts nothing.
        typist.key(XK_Super_L, true);
        typist.tap(XK_period);
        typist.key(XK_Super_L, false);
        ASSERT_TRUE(windows.waitForFocus(editor.window(), false)) << quillet.log();
        typist.tap(XK_Escape);
        ASSERT_TRUE(windows.waitForFocus(editor.window(), true));
        typist.type("!");
        EXPECT_EQ(editor.waitFor("Dear Kind regards, Ann!"), "Dear Kind regards, Ann!");
    }
}

TEST(ShellEndToEnd, ASnippetWrittenInTheWindowExpandsAtOnce) {
    QuilletProcess quillet({});
    ASSERT_TRUE(quillet.listening()) << quillet.log();
    TextWindow editor;
    X11Windows windows;
    ASSERT_TRUE(editor.ready());
    editor.focus();
    // Launching it again brings the running one's window up, where typing searches.
    const testing::ProcessResult again = quillet.launchAgain();
    EXPECT_EQ(again.status, 0);
    EXPECT_NE(again.err.find("already running"), std::string::npos) << again.err;
    ASSERT_TRUE(windows.waitForFocus(editor.window(), false)) << quillet.log();
    Typist keys(Typist::Source::keyboard);
    keys.chord({XK_Control_L, XK_n});
    keys.type(";e2e\nWritten in the window"); // Return goes on to the content
    const auto library = quillet.home() / "data" / "quillet" / "snippets.json";
    // Saved once typing pauses.
    auto saved = [&] {
        return testing::contentsOf(library).find("Written in the window") != std::string::npos;
    };
    for (int tries = 0; tries < 200 && !saved(); ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    ASSERT_TRUE(saved()) << testing::contentsOf(library) << quillet.log();
    for (auto source : {Typist::Source::keyboard, Typist::Source::xtest}) {
        SCOPED_TRACE(source == Typist::Source::xtest ? "XTEST" : "keyboard");
        editor.focus();
        ASSERT_TRUE(windows.waitForFocus(editor.window(), true));
        editor.clear();
        Typist(source).type(";e2e");
        EXPECT_EQ(editor.waitFor("Written in the window"), "Written in the window");
    }
}

// A snippet limited to a website expands there, told by the browser bridge's signal, and only
// while the window in front is the reporting browser's.
TEST(ShellEndToEnd, ASiteScopedSnippetExpandsOnlyOnTheSiteTheBrowserReports) {
    setenv("QUILLET_TRACE", "1", 1);
    QuilletProcess quillet({snippet(";web", "On the site", testing::scoped({}, {"example.com"}))});
    ASSERT_TRUE(quillet.listening()) << quillet.log();
    TextWindow browser({"--class", "Chromium"});
    ASSERT_TRUE(browser.ready());
    browser.focus();
    ASSERT_TRUE(quillet.waitForLog("trace: front Chromium", 0)) << quillet.log();
    auto report = [&](const std::string& notice) {
        const std::size_t from = quillet.log().size();
        const auto sent = testing::runProcess({"/usr/bin/gdbus", "emit", "--session",
                                               "--object-path", "/com/quillet/Site", "--signal",
                                               "com.quillet.Site.Changed", "'" + notice + "'"});
        ASSERT_EQ(sent.status, 0) << sent.err;
        ASSERT_TRUE(quillet.waitForLog("trace: site " + notice, from)) << quillet.log();
    };
    const struct {
        std::string notice; // the latest report
        std::string typed, shown;
    } cases[] = {
        {"Chromium mail.example.com", ";web", "On the site"},
        {"Chromium example.org", ";web.", ";web."},
        {"firefox mail.example.com", ";web.", ";web."}, // another browser's site
        {"Chromium ", ";web.", ";web."},                // a tab without a site
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.notice);
        report(c.notice);
        browser.clear();
        Typist(Typist::Source::xtest).type(c.typed);
        EXPECT_EQ(browser.waitFor(c.shown), c.shown);
    }
}

} // namespace
} // namespace quillet
