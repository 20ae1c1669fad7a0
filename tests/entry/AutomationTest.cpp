// Automation's operations on a real library and settings file in a temporary home.
#include "entry/Automation.h"

#include "library/LibraryFile.h"
#include "support/Snippets.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>
#include <thread>

namespace quillet {
namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

class AutomationTest : public ::testing::Test {
protected:
    testing::TempFolder home;
    Folders folders = Folders::forHome(home.path(), "", "");
    Automation automation{folders};
    std::vector<Snippet> library;

    AutomationTest() { library.reserve(16); } // the cases keep references to their snippets

    Snippet& add(std::string abbreviation, std::string content) {
        return library.emplace_back(testing::snippet(std::move(abbreviation), std::move(content)));
    }
    void save(const std::filesystem::path& folder) {
        std::string error;
        ASSERT_TRUE(writeLibrary(folder / "snippets.json", library, error)) << error;
    }
    void save() { save(folders.data); }
    void setting(const std::string& json) { testing::writeText(folders.settingsFile(), json); }

    static Pairs pairs(const std::vector<Automation::Entry>& entries) {
        Pairs out;
        for (const auto& e : entries) {
            out.emplace_back(e.abbreviation, e.subtitle);
        }
        return out;
    }
    void expectExpand(const Snippet& s, const std::string& text, bool failed,
                      const std::optional<std::string>& clipboard = std::nullopt) {
        Automation::Result r = automation.expand(s.id.text(), clipboard);
        EXPECT_EQ(r.text, text) << s.abbreviation;
        EXPECT_EQ(r.failed, failed) << s.abbreviation;
    }
};

TEST_F(AutomationTest, ListsWhatCanBeExpandedByNameAndSearchesItIgnoringCase) {
    add(";a", "first\u2028second");
    add(";b", "");
    add(";c", "gone").archived = true;
    add(";d", "secret text").locked = true;
    add("#(\\d+)", "Issue $1").regex = true;
    add("", "no abbreviation");
    add(";sig", "Best\vwishes");
    add(";f", "tab\there\rnext");
    add(";g", "x\u0085y\fz");
    add(";h", "p\u2029q\nr");
    save();
    const std::vector<Automation::Entry> listed = automation.list();
    EXPECT_EQ(pairs(listed), (Pairs{{";a", "first"},
                                    {";b", ""},
                                    {";d", "Locked"},
                                    {";sig", "Best"},
                                    {";f", "tab\there"},
                                    {";g", "x"},
                                    {";h", "p"}}));
    EXPECT_EQ(listed[0].id, library[0].id.text());

    const std::vector<std::pair<std::string, Pairs>> searches = {
        {"SIG", {{";sig", "Best"}}},
        {"bEsT", {{";sig", "Best"}}},
        {"LOCKED", {{";d", "Locked"}}},
        {"secret", {}}, // a locked snippet's text is never searched
        {"gone", {}},
        {"issue", {}},
        {"wishes", {}}, // only the first line counts
    };
    for (const auto& [text, found] : searches) {
        EXPECT_EQ(pairs(automation.search(text)), found) << text;
    }
    EXPECT_EQ(automation.search("").size(), listed.size());

    // The library follows the sync setting, read at every call.
    library = {testing::snippet(";synced", "there")};
    save(home / "Sync" / "Quillet");
    setting(R"({"sync": true, "syncFolder": "~/Sync"})");
    EXPECT_EQ(pairs(automation.list()), (Pairs{{";synced", "there"}}));
    setting("{}");
    EXPECT_EQ(automation.list().size(), listed.size());
}

TEST_F(AutomationTest, ExpandRendersWithTheClipboardAndIncludesButNeverALockedText) {
    const Snippet& clip = add(";clip", "Paste {clipboard} to {field:Name}{key:tab}{snippet:;inc}");
    add(";inc", "and include");
    const Snippet& archived = add(";old", "old");
    library.back().archived = true;
    const Snippet& locked = add(";pin", "1234");
    library.back().locked = true;
    const Snippet& js = add(";js", "return 1 + 2");
    library.back().kind = Snippet::Kind::javascript;
    const Snippet& shell = add(";sh", "printf hi");
    library.back().kind = Snippet::Kind::shell;
    save();
    expectExpand(clip, "Paste board to and include", false, "board");
    expectExpand(clip, "Paste  to and include", false);
    expectExpand(archived, "Couldn't expand ;old.", true);
    expectExpand(locked, "Couldn't expand ;pin.", true);
    expectExpand(js, "3", false);
    expectExpand(shell, "Couldn't expand ;sh.", true); // shell scripts are off
    setting(R"({"allowScripts": true})");
    expectExpand(shell, "hi", false);

    const std::string gone = Uuid::random().text();
    EXPECT_EQ(automation.expand(gone, "x").text, "Couldn't expand " + gone + ".");
    std::filesystem::remove(folders.data / "snippets.json");
    expectExpand(clip, "Couldn't expand " + clip.id.text() + ".", true);
    EXPECT_TRUE(automation.list().empty());
}

TEST_F(AutomationTest, AddSharesTheCommandLinesRulesAndConcurrentAddsAllLand) {
    EXPECT_EQ(automation.add(";x", "y").text, "Open Quillet once first.");
    add(";old", "archived").archived = true;
    save();
    const std::vector<std::tuple<std::string, std::string, std::string, bool>> adds = {
        {" ;new ", "New text\n", "Added  ;new .", false},
        {";new", "again", "\u201C;new\u201D is already a snippet.", true},
        {";old", "again", "\u201C;old\u201D is already a snippet.", true},
        {"  ", "text", "Give it an abbreviation and some text.", true},
        {";e", "", "Give it an abbreviation and some text.", true},
        {";c", "{clipboard}",
         "Snippets with {key:\u2026}, {clipboard} or {snippet:\u2026} are added in Quillet's "
         "editor only.",
         true},
    };
    for (const auto& [abbreviation, text, message, failed] : adds) {
        Automation::Result r = automation.add(abbreviation, text);
        EXPECT_EQ(r.text, message) << abbreviation;
        EXPECT_EQ(r.failed, failed) << abbreviation;
    }
    EXPECT_EQ(pairs(automation.list()), (Pairs{{";new", "New text"}}));

    std::vector<std::thread> writers;
    for (int t = 0; t < 4; ++t) {
        writers.emplace_back([this, t] {
            for (int i = 0; i < 5; ++i) {
                automation.add(";t" + std::to_string(t) + "-" + std::to_string(i), "x");
            }
        });
    }
    for (std::thread& w : writers) {
        w.join();
    }
    EXPECT_EQ(automation.list().size(), 21u);
}

} // namespace
} // namespace quillet
