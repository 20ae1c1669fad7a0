#include "engine/Expander.h"

#include "library/RunLoop.h"
#include "platform/fake/FakeExecutor.h"
#include "platform/fake/FakeFrontApplication.h"
#include "platform/fake/FakeKeySource.h"
#include "platform/fake/FakeMatchPopup.h"
#include "platform/fake/FakeOwnerAuth.h"
#include "platform/fake/FakePasteboard.h"
#include "platform/fake/FakeSecretStore.h"
#include "platform/fake/FakeSecureInput.h"
#include "support/Snippets.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Key = KeyEvent::Key;
using Lines = std::vector<std::string>;
using testing::snippet;

// One engine over fakes and real files: a keyboard that swallows keys (an input method) or one
// that cannot (X11), an executor that records, settings in memory, usage in a temporary folder.
struct Harness {
    explicit Harness(bool swallows = false, nlohmann::json settings = nlohmann::json::object())
        : preferences(std::move(settings)), keys(swallows) {
        engine = std::make_unique<Expander>(
            Expander::Platform{keys, executor, front, loop, &secure},
            Expander::Services{preferences, location, &usageFile, &lockedSnippets, &history});
        keys.holding = [this] { return executor.holding; };
        std::string error;
        EXPECT_TRUE(engine->start(error)) << error;
        testing::writeText(location.imagesFolder() / "logo.png", "\x89PNG\r\n\x1A\nrest");
    }

    // Waits until the engine has nothing under way.
    void settle() {
        ASSERT_TRUE(loop.runUntil([&] { return engine->idle(); }, 10s));
    }

    // Does act and answers the intentions it led to.
    Lines after(const std::function<void()>& act) {
        executor.steps.clear();
        act();
        settle();
        return executor.described();
    }
    Lines typed(std::string_view text) {
        return after([&] { keys.type(text); });
    }

    // Completes the intentions one at a time, as a slow platform would; all of them so far.
    Lines completeEach() {
        while (executor.completeNext()) {
            loop.runFor(1ms);
        }
        settle();
        return executor.described();
    }

    // A locked snippet whose text is in the secret store.
    Snippet locked(std::string abbreviation, std::string text, bool regex = false) {
        Snippet s = snippet(std::move(abbreviation), "", [&](Snippet& x) {
            x.locked = true;
            x.regex = regex;
        });
        secrets.items[{std::string(LockedSnippets::service), s.id.text()}] = std::move(text);
        return s;
    }

    testing::TempFolder temp;
    Folders folders = Folders::forHome(temp / "home", "", "");
    MemoryPreferences preferences;
    LibraryLocation location{preferences, folders};
    UsageFile usageFile{folders.data / "usage.json"};
    FakeKeySource keys;
    FakeExecutor executor;
    FakeFrontApplication front{"Gedit"};
    FakeSecureInput secure;
    RunLoop loop;
    FakeSecretStore secrets;
    FakeOwnerAuth auth;
    LockedSnippets lockedSnippets{secrets, auth};
    FakePasteboard pasteboard;
    ClipboardHistory history{pasteboard};
    std::unique_ptr<Expander> engine;
};

std::string joined(const Lines& steps) {
    std::string out;
    for (const std::string& step : steps) {
        out += (out.empty() ? "" : " | ") + step;
    }
    return out;
}

// On X11 the key that completed the first match reached the application too, so that erase
// takes one more character, unless the key was a Tab or Return held back by a grab.
std::string onX11(std::string steps, bool held) {
    if (!held && steps.starts_with("erase ")) {
        const std::size_t end = steps.find(' ', 6);
        steps.replace(6, end - 6, std::to_string(std::stoi(steps.substr(6)) + 1));
    }
    return steps;
}

// The event table: what a run of keys leads to, for a keyboard that swallows keys (an input
// method) and for one that cannot (X11).
TEST(ExpanderEvents, EachKeySequenceLeadsToItsIntentions) {
    const Snippet sig = snippet(";sig", "Best, Ann");
    const Snippet brb =
        snippet("brb", "be right back", [](Snippet& s) { s.trigger = TriggerMode::delimiter; });
    const Snippet tabbed =
        snippet(";t", "Tabbed", [](Snippet& s) { s.trigger = TriggerMode::tab; });
    const Snippet archived = snippet(";sig", "Best, Ann", [](Snippet& s) { s.archived = true; });
    const Snippet issue = snippet("#(\\d+)", "Issue $1", [](Snippet& s) { s.regex = true; });
    const Snippet dear =
        snippet("hi", "Dear {cursor},", [](Snippet& s) { s.trigger = TriggerMode::delimiter; });
    const Snippet md = snippet(";m", "**hi**", [](Snippet& s) { s.markdown = true; });
    const Snippet keys = snippet(";k", "a{key:cmd+shift+k}b{key:enter}");
    const Snippet fields = snippet(";f", "Hi {field:Name=Bob}{choice:Day=#Pick|Mon|Tue}");
    const Snippet mark = snippet(";c", "x{cursor}y{key:tab}z");
    const Snippet js = snippet(";js", "'sum ' + (1 + 1) + '{cursor}!'",
                               [](Snippet& s) { s.kind = Snippet::Kind::javascript; });
    const Snippet sh = snippet(";sh", "echo hi", [](Snippet& s) { s.kind = Snippet::Kind::shell; });
    const Snippet logo = snippet(";logo", "", [](Snippet& s) { s.image = "logo.png"; });
    const Snippet two = snippet(";two", "a{key:tab}b", [](Snippet& s) { s.image = "logo.png"; });
    const char* delimiter = R"({"triggerMode": "delimiter"})";
    const struct {
        const char* keys;
        std::vector<Snippet> library;
        const char* settings;
        const char* steps; // as a swallowing keyboard sees them
        bool held = false;
    } cases[] = {
        {"x;sig", {sig}, "{}", R"(erase 3 | insert "Best, Ann" | finish)"},
        // A delimiter is typed again after the text.
        {"brb,", {brb}, "{}", R"(erase 3 | insert "be right back" | type "," | finish)"},
        {";sig ", {sig}, delimiter, R"(erase 4 | insert "Best, Ann" | type " " | finish)"},
        {"Teh ", {}, R"({"typo.common": true})", R"(erase 3 | insert "The" | type " " | finish)"},
        {"a:smile:",
         {},
         R"({"typo.emoji": true})",
         "erase 6 | insert \"\xF0\x9F\x98\x84\" | finish"},
        // Symbol-set entries are templates: the caret lands between the tags.
        {"<p>mt\t",
         {},
         R"({"typo.html": true, "typo.css": true})",
         R"(erase 2 | insert "<p></p>" | left 4 | finish | )"
         R"(erase 2 | insert "margin-top: ;" | left 1 | finish)"},
        // Tab fires while grabbed and is swallowed; a space does not fire a Tab abbreviation.
        {";t\t", {tabbed}, "{}", R"(erase 2 | insert "Tabbed" | finish)", true},
        {";t ", {tabbed}, "{}", ""},
        // Return is held while it would fire, and pressed again after the expansion.
        {"brb\rteh\r",
         {brb},
         R"({"typo.common": true})",
         R"(erase 3 | insert "be right back" | type "\r" | finish | )"
         R"(erase 3 | insert "the" | type "\r" | finish)",
         true},
        {";sx\big", {sig}, "{}", R"(erase 3 | insert "Best, Ann" | finish)"}, // Backspace
        {";sig", {archived}, "{}", ""},
        {"see #42 ", {issue}, delimiter, R"(erase 3 | insert "Issue 42" | type " " | finish)"},
        // The trailer is typed before the caret moves back.
        {"hi ", {dear}, "{}", R"(erase 2 | insert "Dear ," | type " " | left 2 | finish)"},
        // Keys between text pieces; unknown keys typed as written.
        {";k",
         {keys},
         "{}",
         R"(erase 1 | insert "a" | press cmd+shift+k | insert "b" | type "{key:enter}" | finish)"},
        // Fields take their defaults without a form; the keyboard is free while one asks.
        {";f", {fields}, "{}", R"(erase 1 | finish | insert "Hi BobMon" | finish)"},
        // A key press loses the caret mark before it.
        {";c", {mark}, "{}", R"(erase 1 | insert "xy" | press tab | insert "z" | finish)"},
        {";m", {md}, "{}", R"(erase 1 | insert "**hi**" +html | finish)"},
        // A script's output is a template; shell scripts run only when allowed.
        {";js", {js}, "{}", R"(erase 2 | insert "sum 2!" | left 1 | finish)"},
        {";sh", {sh}, "{}", ""},
        {";sh", {sh}, R"({"allowScripts": true})", R"(erase 2 | insert "hi" | finish)"},
        // A picture is pasted once, even without text.
        {";logo", {logo}, "{}", "erase 4 | insert image/png | finish"},
        {";two", {two}, "{}", R"(erase 3 | insert image/png | press tab | insert "b" | finish)"},
    };
    for (const auto& c : cases) {
        for (bool swallows : {false, true}) {
            SCOPED_TRACE(std::string(c.keys) + (swallows ? " (swallowing)" : " (X11)"));
            Harness h(swallows, nlohmann::json::parse(c.settings));
            h.engine->update(c.library);
            EXPECT_EQ(joined(h.typed(c.keys)), swallows ? c.steps : onX11(c.steps, c.held));
            EXPECT_TRUE(!swallows || h.keys.grabs.empty()) << "a swallowing keyboard never grabs";
        }
    }
}

TEST(ExpanderEvents, ContextBreaksEmptyTheBufferButShiftDoesNot) {
    Harness h;
    h.engine->update({snippet(";sig", "S"), snippet(";SIG", "Loud")});
    const Lines fired{"erase 4", "insert \"S\"", "finish"};
    auto between = [&](const std::function<void()>& act) {
        return h.after([&] {
            h.keys.type(";si");
            act();
            h.keys.type("g");
        });
    };
    EXPECT_EQ(between([&] { h.keys.click(); }), Lines{});
    EXPECT_EQ(between([&] { h.keys.reset(); }), Lines{});
    EXPECT_EQ(between([&] { h.keys.press({Key::other, "a", {.control = true}}); }), Lines{});
    EXPECT_EQ(between([&] { h.keys.press({Key::other, "k", {.super = true}}); }), Lines{});
    EXPECT_EQ(between([&] { h.keys.press(Key::left); }), Lines{});
    EXPECT_EQ(between([&] { h.keys.press(Key::modifier, {.shift = true}); }), fired);
    EXPECT_EQ(between([&] { h.keys.press(Key::escape); }), fired); // types nothing
    EXPECT_EQ(between([&] { h.front.switchTo("Firefox"); }), Lines{});

    EXPECT_EQ(h.after([&] { h.keys.type(";"), h.keys.type("SIG", {.shift = true}); }),
              (Lines{"erase 4", "insert \"Loud\"", "finish"}));
    // Alt chords are shortcuts here (menus, window switching); AltGr levels come as text.
    EXPECT_EQ(h.typed(";si"), Lines{});
    EXPECT_EQ(h.after([&] { h.keys.press({Key::other, "g", {.alt = true}}); }), Lines{});
}

TEST(ExpanderEvents, TheCompletingKeyIsSwallowedOnlyWhenAMatchTookIt) {
    for (bool swallows : {false, true}) {
        Harness h(swallows);
        h.engine->update({snippet(";sig", "S")});
        EXPECT_EQ(h.keys.type(";si"), Verdict::pass);
        EXPECT_EQ(h.keys.type("g"), Verdict::swallow);
        h.settle();
        EXPECT_EQ(h.keys.press(Key::escape), Verdict::swallow); // the undo
        EXPECT_EQ(h.keys.press(Key::escape), Verdict::pass);
    }
}

TEST(ExpanderGrabs, TabIsGrabbedExactlyWhileTheTextEndsInATabAbbreviation) {
    Harness h(false, {{"typo.css", true}});
    h.engine->update(
        {snippet(";t", "T", [](Snippet& s) { s.trigger = TriggerMode::tab; }), snippet(";i", "I")});
    // Backspace brings it back.
    for (auto [typed, grabbed] : {std::pair{";", false}, {"t", true}, {"x", false}, {"\b", true}}) {
        h.keys.type(typed);
        EXPECT_EQ(h.keys.tabGrabbed, grabbed) << typed;
    }
    h.keys.click();
    EXPECT_FALSE(h.keys.tabGrabbed);
    h.keys.type(" df"); // a symbol set entry that fires on Tab
    EXPECT_TRUE(h.keys.tabGrabbed);
    EXPECT_EQ(h.typed("\t"), (Lines{"erase 2", "insert \"display: flex;\"", "finish"}));
    EXPECT_FALSE(h.keys.tabGrabbed);
    EXPECT_EQ(h.keys.grabs, (Lines{"grab tab", "release tab", "grab tab", "release tab", "grab tab",
                                   "release tab", "grab escape"}));

    // A global Tab mode makes every abbreviation wait for Tab.
    h.preferences.setValue("triggerMode", "tab");
    h.keys.type(";i");
    EXPECT_TRUE(h.keys.tabGrabbed);
    // A Tab still grabbed from before is handed back, never taken as a delimiter.
    h.preferences.setValue("triggerMode", "delimiter");
    h.keys.click();
    h.keys.type(";i");
    h.keys.tabGrabbed = true;
    EXPECT_EQ(h.typed("\t"), Lines{});
    EXPECT_EQ(h.keys.verdicts.back(), Verdict::pass);

    h.preferences.setValue("triggerMode", "tab");
    h.keys.type(";i");
    // A Tab that slipped past the grab reached the application: nothing is answered.
    h.keys.tabGrabbed = false;
    EXPECT_EQ(h.typed("\t"), Lines{});
    EXPECT_EQ(h.keys.verdicts.back(), Verdict::pass);
    EXPECT_EQ(h.typed("\t"), Lines{}); // nor later: the buffer was emptied

    // Return likewise, exactly while something would fire on it as a delimiter.
    h.preferences.setValue("triggerMode", "delimiter");
    h.preferences.setValue("typo.common", true);
    h.engine->preferencesChanged();
    for (auto [typed, grabbed] :
         {std::pair{";", false}, {"i", true}, {"x", false}, {" teh", true}, {"\b", false}}) {
        h.keys.type(typed);
        EXPECT_EQ(h.keys.returnGrabbed, grabbed) << typed;
    }
}

// The panel at the caret: what it lists, and its keys, which never reach the application.
TEST(ExpanderPopup, ItListsWhatTheWordLeadsToAndItsKeysPickOrDismiss) {
    for (bool swallows : {false, true}) {
        SCOPED_TRACE(swallows ? "swallowing" : "X11");
        Harness h(swallows, {{"matchPopup", true}});
        FakeMatchPopup popup;
        h.engine->setPopup(&popup);
        h.engine->update(
            {snippet(";addr", "1 Main St"), snippet(";add", "Add"), snippet(";x", "X")});

        h.keys.type(";");
        EXPECT_EQ(popup.calls, Lines{}) << "one character is not enough";
        h.keys.type("a");
        h.keys.type("d"); // shown again at the caret that moved on
        EXPECT_EQ(popup.calls, (Lines{"show ;add ;addr", "show ;add ;addr"}));
        EXPECT_TRUE(swallows || (h.keys.arrowsGrabbed && h.keys.tabGrabbed &&
                                 h.keys.returnGrabbed && h.keys.escapeGrabbed));
        popup.calls.clear();
        EXPECT_EQ(h.keys.press(Key::down), Verdict::drop);
        EXPECT_EQ(h.keys.press(Key::down), Verdict::drop);
        EXPECT_EQ(h.keys.press(Key::up), Verdict::drop);
        EXPECT_EQ(h.typed("\t"), (Lines{"erase 3", "insert \"1 Main St\"", "finish"}));
        EXPECT_EQ(h.keys.verdicts.back(), Verdict::swallow);
        EXPECT_EQ(popup.calls, (Lines{"select 1", "select 0", "select 1", "hide"}));
        EXPECT_TRUE(swallows || !h.keys.arrowsGrabbed) << "grabbed only while it is up";

        // Now the most used comes first. Escape takes the panel down and forgets the word;
        // Return picks as Tab does.
        popup.calls.clear();
        h.keys.type(";ad");
        EXPECT_EQ(h.keys.press(Key::escape), Verdict::drop);
        EXPECT_EQ(h.typed("d"), Lines{});
        EXPECT_EQ(h.typed(" ;ad\r"), (Lines{"erase 3", "insert \"1 Main St\"", "finish"}));
        EXPECT_EQ(popup.calls[1], "show ;addr ;add");
        // A click, or a word the library has nothing for, takes it down.
        popup.calls.clear();
        h.keys.type(";a");
        h.keys.click();
        EXPECT_EQ(popup.calls, (Lines{"show ;addr ;add", "hide"}));
        h.keys.type(";aq");
        EXPECT_EQ(popup.calls.back(), "hide");
    }
}

TEST(ExpanderPopup, WithoutACaretOrWithTheSettingOffNothingIsGrabbedOrListed) {
    Harness h(false, {{"matchPopup", true}});
    FakeMatchPopup popup;
    popup.caretFound = false;
    h.engine->setPopup(&popup);
    h.engine->update({snippet(";addr", "1 Main St")});
    h.keys.type(";ad");
    EXPECT_FALSE(h.keys.arrowsGrabbed);
    EXPECT_EQ(h.keys.press(Key::down), Verdict::pass);
    EXPECT_EQ(h.typed(";ad\t"), Lines{});

    Harness off;
    off.engine->setPopup(&popup);
    off.engine->update({snippet(";addr", "1 Main St")});
    popup.calls.clear();
    off.keys.type(";ad");
    EXPECT_EQ(popup.calls, Lines{});
}

TEST(ExpanderInsert, AChosenSnippetIsInsertedWithNothingErasedWhateverItsScope) {
    Harness h;
    const Snippet elsewhere =
        snippet(";w", "Hi {field:Name=Bob}{cursor}!", testing::scoped({"Firefox"}));
    const Snippet nameless = snippet("", "No abbreviation");
    const Snippet archived = snippet(";a", "A", [](Snippet& s) { s.archived = true; });
    h.engine->update({elsewhere, nameless, archived});
    h.keys.type(";");
    EXPECT_EQ(h.after([&] { EXPECT_TRUE(h.engine->insert(elsewhere.id)); }),
              (Lines{"finish", "insert \"Hi Bob!\"", "left 1", "finish"}));
    EXPECT_EQ(h.after([&] { EXPECT_TRUE(h.engine->insert(nameless.id)); }),
              (Lines{"insert \"No abbreviation\"", "finish"}));
    EXPECT_FALSE(h.engine->insert(archived.id));
    EXPECT_FALSE(h.engine->insert(Uuid::random()));
}

TEST(ExpanderUndo, EscapeRightAfterAnExpansionRestoresWhatWasTyped) {
    Harness h;
    const Snippet dear =
        snippet("dear", "Dear {cursor},", [](Snippet& s) { s.trigger = TriggerMode::delimiter; });
    h.engine->update({dear});
    EXPECT_EQ(h.typed("dear "),
              (Lines{"erase 5", "insert \"Dear ,\"", "type \" \"", "left 2", "finish"}));
    EXPECT_EQ(h.engine->pendingUndo(), (Expander::Undo{"dear ", 7, 2}));
    EXPECT_TRUE(h.keys.escapeGrabbed);
    EXPECT_EQ(h.engine->usage().uses.at(dear.id).count, 1);
    EXPECT_EQ(h.engine->usage().characters, 2); // "Dear ," for "dear"

    EXPECT_EQ(h.typed("\x1b"), (Lines{"right 2", "erase 7", "type \"dear \"", "finish"}));
    EXPECT_EQ(h.keys.verdicts.back(), Verdict::swallow);
    EXPECT_FALSE(h.keys.escapeGrabbed);
    EXPECT_EQ(h.engine->usage().uses.at(dear.id).count, 0);
    EXPECT_EQ(h.engine->usage().characters, 0);
    EXPECT_EQ(h.engine->usage().expansions, 0);
    h.engine->saveUsageNow();
    EXPECT_EQ(UsageFile(h.usageFile.path()).load(), h.engine->usage()); // saved as well

    // Any other key or a click first, and Escape is the application's.
    for (const std::function<void()>& between :
         std::vector<std::function<void()>>{[&] { h.keys.type("x"); }, [&] { h.keys.click(); }}) {
        h.typed("dear ");
        between();
        EXPECT_FALSE(h.keys.escapeGrabbed);
        EXPECT_EQ(h.typed("\x1b"), Lines{});
    }
    EXPECT_EQ(h.engine->usage().uses.at(dear.id).count, 2);

    // No undo after a key press, which leaves the screen unknown, or when the user typed on
    // while the plan ran: the key landed somewhere in it.
    h.engine->update({dear, snippet(";k", "a{key:return}b")});
    h.typed(";k");
    EXPECT_FALSE(h.engine->pendingUndo());
    EXPECT_TRUE(h.engine->counted() == std::nullopt);
    h.executor.completeAtOnce = false;
    h.keys.type("dear ");
    h.executor.completeNext(); // the keyboard is held
    h.loop.runFor(1ms);
    ASSERT_TRUE(h.engine->pendingUndo());
    h.keys.type("x");
    EXPECT_FALSE(h.engine->pendingUndo());
    h.completeEach();
}

TEST(ExpanderSteps, EachIntentionWaitsForThePreviousOneAndExpansionsQueue) {
    Harness h;
    h.engine->update({snippet(";a", "A{key:tab}B"), snippet(";b", "Bee")});
    h.executor.completeAtOnce = false;
    h.keys.type(";a");
    h.executor.completeNext(); // the keyboard is held
    h.keys.type(";b");
    h.loop.runFor(5ms);
    EXPECT_EQ(h.executor.described(), Lines{"erase 2"});
    EXPECT_FALSE(h.engine->idle());
    while (h.executor.waiting() > 0) {
        EXPECT_LE(h.executor.waiting(), 2u); // one intention, and the next expansion's hold
        h.executor.completeNext();
        h.loop.runFor(1ms);
    }
    // ";b" was typed while the keyboard was held: only its ';' reached the application.
    EXPECT_EQ(h.completeEach(), (Lines{"erase 2", "insert \"A\"", "press tab", "insert \"B\"",
                                       "finish", "erase 1", "insert \"Bee\"", "finish"}));
}

TEST(ExpanderScope, TheActiveSetFollowsTheFrontApplicationAndSite) {
    Harness h;
    using testing::scoped;
    const auto except = Snippet::Scope::except;
    h.engine->update({snippet(";only", "x", scoped({"gedit"})),
                      snippet(";except", "x", scoped({"Gedit"}, {}, except)),
                      snippet(";mail", "x", scoped({}, {"https://Example.com/inbox"})),
                      snippet(";nomail", "x", scoped({"Xterm"}, {"example.com"}, except))});
    auto active = [&] {
        const auto& keys = h.engine->matcher().abbreviations();
        return std::vector<std::string>(keys.begin(), keys.end());
    };
    EXPECT_EQ(active(), (Lines{";nomail", ";only"})); // app ids compare ignoring case
    h.front.switchTo("firefox");
    EXPECT_EQ(active(), (Lines{";except", ";nomail"}));
    h.engine->setSite(Expander::Site{"firefox", "mail.example.com"});
    EXPECT_EQ(active(), (Lines{";except", ";mail"}));
    h.front.switchTo("Xterm"); // the site belongs to the browser, not to whatever is in front
    EXPECT_EQ(active(), (Lines{";except"}));
    // A switch not yet announced is noticed at the next key.
    h.front.switchQuietly("gedit");
    h.keys.type("x");
    EXPECT_EQ(active(), (Lines{";nomail", ";only"}));
}

TEST(ExpanderScope, SiteEntriesCoverTheirSubdomainsOnly) {
    const Snippet s = snippet(";s", "x", testing::scoped({}, {"example.com", "not a site"}));
    auto at = [&](std::string host) {
        return Expander::admits(s, "chromium", Expander::Site{"Chromium", std::move(host)});
    };
    EXPECT_TRUE(at("example.com"));
    EXPECT_TRUE(at("a.b.example.com"));
    EXPECT_FALSE(at("badexample.com"));
    EXPECT_FALSE(at("example.com.evil.net"));
    EXPECT_FALSE(Expander::admits(s, "", Expander::Site{"", "example.com"}));
    // The bridge's notices: a browser without a site, or a site without a browser, is none.
    EXPECT_EQ(Expander::Site::fromNotice("Chromium mail.example.com"),
              (Expander::Site{"Chromium", "mail.example.com"}));
    for (std::string_view notice : {"Chromium ", " example.com", "", "Chromium"}) {
        EXPECT_EQ(Expander::Site::fromNotice(notice), std::nullopt) << notice;
    }
}

TEST(ExpanderAsync, LockedSnippetsExpandOnlyOnceTheOwnerConfirms) {
    Harness h;
    // A locked pattern fills in its groups once its text is known.
    h.engine->update(
        {h.locked(";bank", "IBAN {cursor}X"), h.locked("#(\\d+)!", "Ticket $1", true)});
    EXPECT_EQ(h.typed(";bank"), (Lines{"erase 5", "insert \"IBAN X\"", "left 1", "finish"}));
    EXPECT_EQ(h.auth.reasons, Lines{pasteReason(";bank")});
    EXPECT_EQ(h.typed("#42!"), (Lines{"erase 4", "insert \"Ticket 42\"", "finish"}));

    h.auth.answer = AuthResult::Outcome::refused;
    EXPECT_EQ(h.typed(";bank"), Lines{}); // nothing erased either
    EXPECT_FALSE(h.engine->pendingUndo());
}

TEST(ExpanderAsync, KeysThatReachedTheApplicationBeforeTheHoldAreTypedAgainAtTheCaret) {
    const struct {
        const char* keys;
        Lines steps;
    } cases[] = {
        {";px", {"erase 3", "insert \"<p></p>\"", "left 4", "type \"x\"", "finish"}},
        {";pxy\b", {"erase 3", "insert \"<p></p>\"", "left 4", "type \"x\"", "finish"}},
        {";p\b", {"erase 1", "insert \"<p></p>\"", "left 4", "finish"}},
    };
    for (const auto& c : cases) {
        Harness h;
        h.engine->update({snippet(";p", "<p>{cursor}</p>")});
        h.executor.completeAtOnce = false; // the hold comes after the keys, as on X11
        h.keys.type(c.keys);
        EXPECT_EQ(h.completeEach(), c.steps) << c.keys;
    }
}

TEST(ExpanderAsync, KeysTypedWhileAnUnlockIsAskedAreSteppedOverOrStopIt) {
    const struct {
        std::function<void(Harness&)> meanwhile;
        Lines steps;
    } cases[] = {
        {[](Harness& h) { h.keys.type("xy"); },
         {"left 2", "erase 5", "insert \"IBAN X\"", "right 2", "finish"}},
        {[](Harness& h) { h.keys.type("x\b\b"); }, // back into the abbreviation
         {"erase 4", "insert \"IBAN X\"", "left 1", "finish"}},
        {[](Harness& h) { h.keys.click(); }, {}},
        {[](Harness& h) { h.keys.press(Key::left); }, {}},
        {[](Harness& h) {
             h.keys.press({Key::other, "z", {.control = true}});
         },
         {}},
    };
    for (const auto& c : cases) {
        Harness h;
        h.engine->update({h.locked(";bank", "IBAN {cursor}X")});
        // The answer is handed back through the loop, which runs only once the keys are in.
        h.keys.type(";bank");
        c.meanwhile(h);
        h.settle();
        EXPECT_EQ(h.executor.described(), c.steps);
    }
}

TEST(ExpanderAsync, TheFormGivesTheValuesOrCancels) {
    Harness h;
    h.engine->update({snippet(";f", "Hi {field:Name}")});
    std::vector<Tokens::Field> asked;
    Expander::FormDone answer;
    h.engine->setAskForm([&](const std::vector<Tokens::Field>& fields, Expander::FormDone done) {
        asked = fields;
        answer = std::move(done);
    });
    h.keys.type(";f");
    h.loop.runFor(5ms);
    EXPECT_EQ(asked, (std::vector<Tokens::Field>{{"Name", {}, false}}));
    // Erased, and the keyboard let go, before the form shows.
    EXPECT_EQ(h.executor.described(), (Lines{"erase 2", "finish"}));
    answer(Expansion::Values{{"Name", "Zoë"}});
    h.settle();
    EXPECT_EQ(h.executor.described(), (Lines{"erase 2", "finish", "insert \"Hi Zoë\"", "finish"}));

    EXPECT_TRUE(h.engine->pendingUndo());

    // A key typed while the form was open rules out taking the expansion back.
    h.keys.type(";f");
    h.keys.type("x");
    answer(Expansion::Values{{"Name", "Al"}});
    h.settle();
    EXPECT_FALSE(h.engine->pendingUndo());
    EXPECT_EQ(h.engine->usage().expansions, 2);

    h.executor.steps.clear();
    h.keys.type(";f");
    answer(std::nullopt); // cancelled: the abbreviation stays erased, nothing is counted
    h.settle();
    EXPECT_EQ(h.executor.described(), (Lines{"erase 2", "finish"}));
    EXPECT_EQ(h.engine->usage().expansions, 2);
}

TEST(ExpanderUsage, UsesAreCountedWithTheCharactersSavedAndSeededOnUpdate) {
    Harness h(false, {{"typo.common", true}});
    const Snippet sig = snippet(";sig", "Best regards, Ann");
    const Snippet idle = snippet(";idle", "never used");
    h.engine->update({sig, idle});
    EXPECT_EQ(h.engine->usage().uses.at(idle.id).count, 0); // seeded: starts ageing now
    h.typed(";sig");
    h.typed(";sig");
    EXPECT_EQ(h.engine->counted(), (Expander::Counted{sig.id, 13}));
    EXPECT_EQ(h.typed("teh "), (Lines{"erase 4", "insert \"the\"", "type \" \"", "finish"}));
    EXPECT_FALSE(h.engine->counted()); // a correction is no snippet: nothing counted
    EXPECT_EQ(h.engine->usage().uses.at(sig.id).count, 2);
    EXPECT_EQ(h.engine->usage().expansions, 2);
    EXPECT_EQ(h.engine->usage().characters, 2 * (17 - 4));
    h.engine->saveUsageNow();
    EXPECT_EQ(UsageFile(h.usageFile.path()).load(), h.engine->usage());
}

TEST(ExpanderRepeats, ARetypedPhraseIsOfferedAtAContextBreakButNothingWhileTheKeyboardIsHeld) {
    Harness h(false, {{"suggestions", true}});
    const Snippet sig = snippet(";sig", "Best, Ann");
    h.engine->update({sig});
    std::vector<Repeats::Suggestion> offered;
    h.engine->setOnRepeat([&](const Repeats::Suggestion& s) { offered.push_back(s); });

    // While another application holds the keyboard, nothing is matched, counted or remembered.
    h.keys.type("see you ");
    h.secure.set(true, "Pinentry");
    EXPECT_TRUE(h.engine->paused());
    EXPECT_EQ(h.engine->pausedBy(), "Pinentry");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(h.typed("very soon then ;sig"), Lines{});
        h.keys.click();
    }
    EXPECT_TRUE(offered.empty());
    EXPECT_TRUE(h.engine->repeats().counts().empty());
    EXPECT_EQ(h.engine->usage().uses.at(sig.id).count, 0);
    h.secure.set(false);
    EXPECT_FALSE(h.engine->paused());
    EXPECT_EQ(h.engine->pausedBy(), "");
    EXPECT_EQ(h.typed(";sig"), (Lines{"erase 4", "insert \"Best, Ann\"", "finish"}));
    h.keys.click();

    auto control = [&] { h.keys.press({Key::other, "a", {.control = true}}); };
    const std::vector<std::function<void()>> breaks{[&] { h.keys.click(); },
                                                    [&] { h.keys.reset(); }, control};
    for (const auto& breaking : breaks) {
        h.keys.type("see you very soonx\b");
        breaking();
    }
    ASSERT_EQ(offered.size(), 1u);
    EXPECT_EQ(offered[0].expansion, "see you very soon");
    EXPECT_EQ(offered[0].abbreviation, ";syvs");
    h.keys.type("see you very soon");
    control();
    EXPECT_EQ(offered.size(), 1u); // offered once, then counted afresh

    h.preferences.setValue("suggestions", false);
    h.engine->preferencesChanged();
    for (int i = 0; i < 3; ++i) {
        h.keys.type("another phrase typed here ");
        h.keys.click();
    }
    EXPECT_EQ(offered.size(), 1u);
}

} // namespace
} // namespace quillet
