#include "entry/LibraryEditor.h"

#include "library/LibraryFile.h"
#include "library/RunLoop.h"
#include "support/CoordinatorHarness.h"
#include "support/Snippets.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using testing::contentsOf;
using testing::snippet;

struct EditorHarness : testing::CoordinatorHarness<RunLoop> {
    SnippetStore& store() { return coordinator->store(); }
    std::vector<Snippet> onDisk() {
        return snippetsFromJsonText(contentsOf(store().location().libraryFile())).snippets;
    }
    // Writes the file as another process (the command-line tool) would, and lets it be read.
    void writeUnderneath(const std::vector<Snippet>& list) {
        testing::writeText(store().location().libraryFile(), encodeLibrary(list));
        store().reload();
    }
    std::string secretOf(const Uuid& id) {
        auto it = secrets.items.find({std::string(LockedSnippets::service), id.text()});
        return it == secrets.items.end() ? "<none>" : it->second;
    }
    LibraryEditor editor{{coordinator->store(), preferences, coordinator->locked()}};
};

std::vector<std::string> abbreviations(const std::vector<LibraryEditor::Row>& rows) {
    std::vector<std::string> out;
    for (const auto& row : rows) {
        out.push_back(row.abbreviation);
    }
    return out;
}

TEST(LibraryEditor, EveryFieldReachesTheFileAndNoEditIsLostToAChangeUnderneath) {
    EditorHarness h;
    ASSERT_TRUE(h.store().setSnippets({}));
    std::string error;
    const Uuid id = h.editor.create(error).value();
    Snippet edited = *h.editor.find(id);
    EXPECT_TRUE(edited.isBlank());
    edited.abbreviation = ";addr";
    edited.content = "1 Main St\n{cursor}";
    edited.scope = Snippet::Scope::only;
    edited.apps = {"firefox"};
    edited.sites = {"mail.example.com"};
    edited.markdown = true;
    edited.kind = Snippet::Kind::javascript;
    edited.trigger = TriggerMode::tab;
    edited.regex = true;
    EXPECT_EQ(h.editor.update(edited), std::nullopt);
    EXPECT_EQ(h.onDisk().back(), edited);

    // The command-line tool adds a snippet while the editor is open: both are kept.
    std::vector<Snippet> theirs = h.onDisk();
    theirs.push_back(snippet(";cli", "from the terminal"));
    h.writeUnderneath(theirs);
    edited.content = "2 Main St";
    EXPECT_EQ(h.editor.update(edited), std::nullopt);
    EXPECT_EQ(testing::pairsOf(h.onDisk()),
              (testing::Pairs{{";addr", "2 Main St"}, {";cli", "from the terminal"}}));
    // Deleted by another process while being edited: the edit comes back at the end.
    h.writeUnderneath({theirs.back()});
    edited.content = "3 Main St";
    EXPECT_EQ(h.editor.update(edited), std::nullopt);
    EXPECT_EQ(testing::pairsOf(h.onDisk()),
              (testing::Pairs{{";cli", "from the terminal"}, {";addr", "3 Main St"}}));

    // An application picked from the open windows is added once; a snippet that fired
    // everywhere then fires only there, one kept out of some applications stays so.
    const Uuid cli = theirs.back().id;
    EXPECT_EQ(h.editor.addApplication(cli, "gedit"), std::nullopt);
    EXPECT_EQ(h.editor.addApplication(cli, "gedit"), std::nullopt);
    EXPECT_EQ(h.editor.find(cli)->apps, std::vector<std::string>{"gedit"});
    EXPECT_EQ(h.editor.find(cli)->scope, Snippet::Scope::only);
    edited.scope = Snippet::Scope::except;
    ASSERT_EQ(h.editor.update(edited), std::nullopt);
    EXPECT_EQ(h.editor.addApplication(id, "xterm"), std::nullopt);
    EXPECT_EQ(h.onDisk().back().apps, (std::vector<std::string>{"firefox", "xterm"}));
    EXPECT_EQ(h.onDisk().back().scope, Snippet::Scope::except);

    // A library file that cannot be read is never written: the edit is refused with why.
    testing::writeText(h.store().location().libraryFile(), "[{");
    SnippetStore broken(h.preferences, h.watcher, h.loop, h.folders);
    LibraryEditor refused({broken, h.preferences, h.coordinator->locked()});
    EXPECT_EQ(refused.create(error), std::nullopt);
    EXPECT_TRUE(error.starts_with("Couldn't save: the library file can't be read")) << error;
    EXPECT_EQ(contentsOf(h.store().location().libraryFile()), "[{");
}

TEST(LibraryEditor, RowsFollowSearchOrderAndArchiveWithBadgesSayingWhatIsSpecial) {
    EditorHarness h;
    Snippet older = snippet(";sig", "Best,\nAnn");
    older.created = Date(100);
    Snippet newer = snippet(";Addr", "1 Main St", [](Snippet& s) {
        s.scope = Snippet::Scope::only;
        s.apps = {"firefox", "thunderbird", "gedit"};
        s.created = Date(200);
    });
    Snippet locked = snippet(";pin", "", [](Snippet& s) {
        s.locked = true;
        s.created.reset(); // imported without a date: last among the newest
    });
    Snippet old = snippet(";old", "gone", [](Snippet& s) { s.archived = true; });
    ASSERT_TRUE(h.store().setSnippets({older, newer, locked, old}));
    Usage usage;
    usage.record(locked.id, 3, Date(300));
    usage.record(locked.id, 3, Date(300));
    usage.record(newer.id, 3, Date(300));
    LibraryEditor editor(
        {h.store(), h.preferences, h.coordinator->locked(), [&] { return &usage; }});
    using Order = LibraryEditor::Order;
    struct Case {
        std::string query;
        Order order;
        bool archived;
        std::vector<std::string> shown;
    };
    for (const Case& c : std::vector<Case>{
             {"", Order::library, false, {";sig", ";Addr", ";pin"}},
             {"", Order::library, true, {";sig", ";Addr", ";pin", ";old"}},
             {"", Order::mostUsed, false, {";pin", ";Addr", ";sig"}},
             {"", Order::newest, false, {";Addr", ";sig", ";pin"}},
             {"", Order::alphabetical, false, {";Addr", ";pin", ";sig"}},
             {"ANN best", Order::library, false, {";sig"}},
             {"main", Order::library, false, {";Addr"}},
             {"gone", Order::library, false, {}},
             {"gone", Order::library, true, {";old"}},
         }) {
        EXPECT_EQ(abbreviations(editor.rows(c.query, c.order, c.archived)), c.shown) << c.query;
    }
    const auto rows = editor.rows("", Order::library, true);
    EXPECT_EQ(rows[0].subtitle, "Best,");
    EXPECT_EQ(rows[1].badges, std::vector<std::string>{"Only in firefox, thunderbird +1"});
    EXPECT_EQ(rows[2].subtitle, "Locked");
    EXPECT_EQ(rows[3].badges, std::vector<std::string>{"Archived"});
}

TEST(LibraryEditor, DuplicateDeleteUndoAndLockKeepTheLockedTextWhereItBelongs) {
    EditorHarness h;
    ASSERT_TRUE(h.store().setSnippets({snippet(";sig", "Best, Ann"), snippet(";x", "x")}));
    const Uuid sig = h.store().snippets()[0].id;
    std::string error;

    EXPECT_EQ(h.editor.setLocked(sig, true), std::nullopt);
    EXPECT_EQ(h.onDisk()[0].content, "") << "the file never holds a locked text";
    EXPECT_EQ(h.secretOf(sig), "Best, Ann");
    Snippet edit = *h.editor.find(sig);
    edit.content = "leaked";
    h.editor.update(edit);
    EXPECT_EQ(h.onDisk()[0].content, "") << "a plain edit cannot put the text back in the file";

    const StarterSet& support = *starterSet("Support");
    EXPECT_FALSE(h.editor.hasStarterSet(support));
    EXPECT_EQ(h.editor.addStarterSet(support), "Added 4 snippets.");
    EXPECT_TRUE(h.editor.hasStarterSet(support));
    EXPECT_EQ(h.editor.addStarterSet(support).substr(0, 17), "Added 0 snippets.") << "no twins";
    std::vector<Snippet> list = h.store().snippets();
    list.resize(2);
    ASSERT_TRUE(h.store().setSnippets(list));

    const Uuid copy = h.editor.duplicate(sig, error).value();
    EXPECT_EQ(testing::pairsOf(h.onDisk()),
              (testing::Pairs{{";sig", ""}, {";sig2", ""}, {";x", "x"}}));
    EXPECT_EQ(h.secretOf(copy), "Best, Ann");

    EXPECT_EQ(h.editor.remove(sig), std::nullopt);
    EXPECT_EQ(h.editor.undoLabel(), "Undo deleting ;sig");
    EXPECT_EQ(h.secretOf(sig), "Best, Ann") << "kept while undo can bring it back";
    EXPECT_EQ(h.editor.undo(), std::nullopt);
    EXPECT_EQ(h.onDisk()[0].id, sig) << "back at its place";
    EXPECT_EQ(h.editor.undoLabel(), "");
    h.editor.remove(sig);
    h.editor.remove(copy);
    EXPECT_EQ(h.secretOf(sig), "<none>") << "gone once undo can no longer reach it";
    EXPECT_EQ(h.secretOf(copy), "Best, Ann");

    ASSERT_EQ(h.editor.undo(), std::nullopt);
    h.auth.answer = AuthResult::Outcome::refused;
    EXPECT_EQ(h.editor.setLocked(copy, false),
              "The text stays locked: you didn't confirm it's you.");
    h.auth.answer = AuthResult::Outcome::ok;
    EXPECT_EQ(h.editor.setLocked(copy, false), std::nullopt);
    EXPECT_EQ(h.editor.find(copy)->content, "Best, Ann");
    EXPECT_EQ(h.secretOf(copy), "<none>");
    EXPECT_EQ(h.auth.reasons.back(), "show \u201C;sig2\u201D");
}

TEST(LibraryEditor, WarningsNoticesPreviewSitesAndChoicesAsTheEditorShowsThem) {
    EditorHarness h;
    ASSERT_TRUE(h.store().setSnippets({snippet(";ab", "AB"), snippet(";b", "B")}));
    const std::vector<std::pair<Snippet, std::optional<std::string>>> warnings = {
        {snippet(";a", ""), "Typing ;ab will expand ;a first. Pick a different start."},
        {snippet(";c", ""), std::nullopt},
        {snippet("(\\d+", "", [](Snippet& s) { s.regex = true; }),
         "This pattern never fires: it isn't a valid regular expression."},
    };
    for (const auto& [s, warning] : warnings) {
        EXPECT_EQ(h.editor.abbreviationWarning(s), warning) << s.abbreviation;
    }

    EXPECT_EQ(h.editor.kindNotice(Snippet::Kind::shell), "Shell and AppleScript snippets are off.");
    h.preferences.setValue("allowScripts", true);
    EXPECT_EQ(h.editor.kindNotice(Snippet::Kind::shell), std::nullopt);
    EXPECT_EQ(h.editor.kindNotice(Snippet::Kind::applescript), "AppleScript runs on macOS only.");

    EXPECT_EQ(h.editor.preview(snippet(";p", "Hi {field:Name=Bob}, {snippet:;ab}{cursor}")),
              "Hi Bob, AB");
    // Markdown previews as it pastes: rendered after the template.
    const auto markdown = [](Snippet& s) { s.markdown = true; };
    EXPECT_EQ(h.editor.styledPreview(snippet(";m", "**{field:W=bold}**", markdown)),
              "<strong>bold</strong>");
    EXPECT_EQ(h.editor.styledPreview(snippet(";m", "**plain**")), std::nullopt);
    EXPECT_EQ(h.editor.picture(snippet(";i", "", [](Snippet& s) { s.image = "a.png"; })),
              h.store().location().imagesFolder() / "a.png");

    std::string problem;
    EXPECT_EQ(LibraryEditor::sites(" Mail.Example.com/inbox , https://x.org/a,, mail.example.com",
                                   problem),
              (std::vector<std::string>{"mail.example.com", "x.org"}));
    EXPECT_EQ(problem, "");
    EXPECT_EQ(LibraryEditor::sites("example.com, localhost", problem),
              std::vector<std::string>{"example.com"});
    EXPECT_EQ(problem, "\u201Clocalhost\u201D isn't a web address, such as example.com.");

    EXPECT_EQ(Tokens::renameChoice("{choice:Day=Mon|Tue} {choice:Day} {field:Day=Mon} "
                                   "{choice:Other=a}",
                                   "Day", "When", {"Tue", "Mon"}, true),
              "{choice:When:sorted=Tue|Mon} {choice:Day} {field:Day=Mon} {choice:Other=a}");
}

} // namespace
} // namespace quillet
