// The command-line tool as users run it: the real executable, a temporary home folder, real
// standard input, output and error.
#include "library/LibraryFile.h"
#include "library/RunLoop.h"
#include "library/Store.h"
#include "platform/fake/FakeFileWatcher.h"
#include "support/ChildProcess.h"
#include "support/Snippets.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>
#include <thread>

namespace quillet {
namespace {

using testing::ProcessResult;

const std::string noLibrary = "No snippets yet. Open Quillet once first, or wait for your synced "
                              "folder to finish downloading them.\n";

class CliTest : public ::testing::Test {
protected:
    testing::TempFolder home;
    std::filesystem::path libraryFile = home / ".local/share/quillet/snippets.json";

    ProcessResult run(std::vector<std::string> args, const std::string& input = {},
                      bool withoutTerminal = false) {
        args.insert(args.begin(), QUILLET_EXECUTABLE);
        return testing::runProcess(args, {input,
                                          {{"HOME", home.path().string()},
                                           {"XDG_DATA_HOME", ""},
                                           {"XDG_CONFIG_HOME", ""},
                                           {"LANG", "en_US.UTF-8"},
                                           {"TZ", "UTC"},
                                           {"DISPLAY", ""},
                                           {"WAYLAND_DISPLAY", ""}},
                                          withoutTerminal});
    }

    // One run of the tool and what it must give: the exit status, standard output, and text
    // standard error holds (nothing when empty).
    struct Run {
        std::vector<std::string> args;
        int status;
        std::string out, err, input = {};
        bool withoutTerminal = false;
    };
    void expect(const std::vector<Run>& runs) {
        for (const Run& c : runs) {
            ProcessResult r = run(c.args, c.input, c.withoutTerminal);
            const std::string what = c.args.empty() ? "" : c.args.back();
            EXPECT_EQ(r.status, c.status) << what << ": " << r.err;
            EXPECT_EQ(r.out, c.out) << what;
            EXPECT_TRUE(c.err.empty() ? r.err.empty() : r.err.find(c.err) != r.err.npos) << r.err;
        }
    }

    Snippet& add(std::string abbreviation, std::string content) {
        return library.emplace_back(testing::snippet(std::move(abbreviation), std::move(content)));
    }

    void save() {
        std::string error;
        ASSERT_TRUE(writeLibrary(libraryFile, library, error)) << error;
    }

    std::vector<Snippet> saved() {
        auto read = readLibrary(libraryFile);
        EXPECT_EQ(read.status, LibraryStatus::ok) << read.message;
        return read.snippets;
    }

    void setting(const std::string& json) {
        testing::writeText(home / ".config/quillet/settings.json", json);
    }

    std::vector<Snippet> library;
};

TEST_F(CliTest, UnknownWordsGoToTheApplicationAndAMissingOrDamagedLibraryIsLeftAlone) {
    for (const char* word : {"help", "--help", "-h"}) {
        ProcessResult r = run({word});
        EXPECT_EQ(r.status, 0) << word;
        EXPECT_TRUE(r.out.starts_with("usage: snippets list      ")) << r.out;
        EXPECT_TRUE(r.out.ends_with("which website they show\n"));
        EXPECT_EQ(r.err, "");
    }
    testing::writeText(home / "in.csv", "a,b");
    const std::string csv = (home / "in.csv").string();
    expect({{{"list"}, 1, "", noLibrary},
            {{"expand"}, 1, "", noLibrary},
            {{"add", ";x", "y"}, 1, "", noLibrary},
            {{"import", csv}, 1, "", noLibrary},
            {{"export"}, 1, "", noLibrary}});
    testing::writeText(libraryFile, "[{\"id\": broken");
    expect({{{"add", ";x", "y"}, 1, "", noLibrary}, {{"import", csv}, 1, "", noLibrary}});
    EXPECT_EQ(testing::contentsOf(libraryFile), "[{\"id\": broken");
    // Any other word starts the application, which says why it cannot listen without a display.
    const std::string noDisplay = "There is no X11 display to listen to";
    expect({{{"-psn_0_123"}, 1, "", noDisplay},
            {{"--foo"}, 1, "", noDisplay},
            {{"List"}, 1, "", noDisplay}});
}

TEST_F(CliTest, ListShowsFirstLinesAndHidesArchivedAndLocked) {
    add(";a", "first\u2028second");
    add(";b", "");
    add(";c", "gone").archived = true;
    add(";d", "secret").locked = true;
    add("#(\\d+)", "Issue $1").regex = true;
    add(";e", "return 1\nmore").kind = Snippet::Kind::javascript;
    add("", "no abbreviation");
    add(";f", "tab\there\rnext");
    save();
    ProcessResult r = run({"list"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              ";a\tfirst\n;b\t\n;d\tLocked\n#(\\d+)\tIssue $1\n;e\treturn 1\n;f\ttab\there\n");

    for (Snippet& s : library) {
        s.archived = true;
    }
    save();
    r = run({"list"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
}

TEST_F(CliTest, ExpandFillsFieldsIncludesAndRunsScriptsWhereAllowed) {
    add(";sig", "Hi {field:Name}, {field:a}{choice:Day=Mon|Tue}!{cursor}");
    add(";a", "archived").archived = true;
    add(";a", "pattern").regex = true;
    add(";a", "live {snippet:;b}");
    add(";b", "included {key:tab}{date:no such day}");
    add(";pin", "").locked = true;
    add(";js", "return 1 + 2").kind = Snippet::Kind::javascript;
    add(";sh", "printf 'two\\nlines\\n\\n'").kind = Snippet::Kind::shell;
    save();
    const std::string none = "No snippet \u201C;A\u201D, or its script failed.\n";
    expect({
        // The last value of a name counts; no line end; the unfilled choice is empty.
        {{"expand", ";sig", "Name=Ann", "Name=Bo", "junk", "a=b=c"}, 0, "Hi Bo, b=c!", ""},
        {{"expand"}, 1, "", "usage: snippets"},
        // Archived and pattern snippets are passed over; keys go, unknown dates stay.
        {{"expand", ";a"}, 0, "live included {date:no such day}", ""},
        {{"expand", ";A"}, 1, "", none},
        // A locked snippet needs a terminal to ask for the password on.
        {{"expand", ";pin"},
         1,
         "",
         "No snippet \u201C;pin\u201D, or its script failed.\n",
         "",
         true},
        {{"expand", ";js"}, 0, "3", ""},
        {{"expand", ";sh"}, 1, "", "No snippet \u201C;sh\u201D"}, // shell scripts are off
    });
    setting(R"({"allowScripts": true})");
    expect({{{"expand", ";sh"}, 0, "two\nlines\n", ""}});
}

TEST_F(CliTest, AddKeepsTheTextAsGivenOrRefusesAndWritesNothing) {
    add(";old", "x").archived = true;
    add("caf\u00e9", "coffee");
    save();
    const std::string blank = "Give it an abbreviation and some text.\n",
                      editorOnly = "Snippets with {key:\u2026}, {clipboard} or {snippet:\u2026} "
                                   "are added in Quillet's editor only.\n";
    expect({
        {{"add", " ;x "}, 0, "Added  ;x .\n", "", "hi\n"},
        {{"add", ";bad"}, 0, "Added ;bad.\n", "", "caf\xE9!"},
        {{"add", ";w", "two", "words"}, 0, "Added ;w.\n", ""},
        {{"add"}, 1, "", "usage: snippets"},
        {{"add", " \n"}, 1, "", blank, "text"},
        {{"add", ";e"}, 1, "", blank},
        {{"add", ";old", "y"}, 1, "", "\u201C;old\u201D is already a snippet.\n"},
        {{"add", "cafe\u0301", "y"}, 1, "", "\u201Ccafe\u0301\u201D is already a snippet.\n"},
        {{"add", ";c", "{clipboard:2}"}, 1, "", editorOnly},
        {{"add", ";s"}, 1, "", editorOnly, "a {snippet:;b"},
    });
    auto snippets = saved();
    ASSERT_EQ(snippets.size(), 5u);
    EXPECT_EQ(snippets[2].abbreviation, ";x");
    EXPECT_EQ(snippets[2].content, "hi\n");
    EXPECT_TRUE(snippets[2].created.has_value());
    EXPECT_EQ(snippets[3].content, "caf\uFFFD!");
    EXPECT_EQ(snippets[4].content, "two words");
}

TEST_F(CliTest, ConcurrentAddsLoseNothingAndLockNothingInTheSyncedFolder) {
    setting(R"({"sync": true, "syncFolder": "~/Sync"})");
    libraryFile = home / "Sync/Quillet/snippets.json";
    save();
    testing::writeText(libraryFile.parent_path() / ".snippets.lock", ""); // an older version's
    constexpr int perWriter = 25;
    auto writer = [&](const std::string& prefix) {
        for (int i = 0; i < perWriter; ++i) {
            run({"add", prefix + std::to_string(i), "text"});
        }
    };
    std::thread a(writer, ";a");
    std::thread b(writer, ";b");
    a.join();
    b.join();
    EXPECT_EQ(saved().size(), 2u * perWriter);
    EXPECT_EQ(testing::entriesOf(libraryFile.parent_path()),
              std::vector<std::string>{"snippets.json"});
}

TEST_F(CliTest, AdditionsSurviveTheApplicationsNextSave) {
    add(";gone", "deleted in the application");
    save();
    MemoryPreferences preferences;
    FakeFileWatcher watcher; // no reload: the application has not noticed the addition yet
    RunLoop loop;
    SnippetStore store(preferences, watcher, loop, Folders::forHome(home.path(), "", ""));
    ASSERT_EQ(run({"add", ";cli", "from the tool"}).status, 0);

    store.setSnippets({testing::snippet(";app", "")});
    EXPECT_EQ(testing::pairsOf(saved()), (testing::Pairs{{";app", ""}, {";cli", "from the tool"}}));
}

TEST_F(CliTest, ImportMergesFilesAndWarnsBeforeAddingRiskyOnes) {
    add(";a", "x");
    save();
    auto file = [&](const std::string& name, const std::string& bytes) {
        testing::writeText(home / name, bytes);
        return (home / name).string();
    };
    const std::string pack =
        file("pack.json", R"({"version": 1, "snippets": [{"abbreviation": ";a", "content": "y"},
                              {"abbreviation": "b", "content": "z", "markdown": true}]})");
    const std::string csv = file("list.csv", "\xEF\xBB\xBFKeyword,Phrase\r\nx,\"1,2\"\r\n!y,3\r\n");
    const std::string risky = file("risky.csv", "k,a{key:tab}b\nc,{clipboard}\n");
    const std::string binary = file("picture.png", "\x89PNG\r\n\x1A\n\xFF");
    const std::string warning = "Some of these press keys, paste your clipboard or run scripts\n"
                                "\n;k, ;c\n\nImport them only if you trust where they came "
                                "from.\n";
    const std::string note = "\n\nWorth a look:\n\u2022 ;k: presses keys, pastes your clipboard, "
                             "includes another snippet or runs a script.\n\u2022 ;c: presses "
                             "keys, pastes your clipboard, includes another snippet or runs a "
                             "script.\n";
    expect({
        {{"import", pack}, 0, "Added 1 snippet. Left out:\n\u2022 ;a: you already have one.\n", ""},
        {{"import", csv}, 0, "Added 2 snippets.\n", ""},
        {{"import", risky}, 1, "", warning},
        {{"import", "--trust", risky}, 0, "Added 2 snippets." + note, ""},
        {{"import", binary}, 0, "Added 0 snippets. Left out:\n\u2022 This file isn't text.\n", ""},
        {{"import", (home / "missing.csv").string()}, 1, "", "Couldn't read the file: "},
        {{"import", home.path().string()}, 1, "", "Couldn't read the file: "},
        {{"import"}, 1, "", "usage: snippets"},
        {{"import", csv, pack}, 1, "", "usage: snippets"},
    });
    const testing::Pairs merged{{";a", "x"},           {"b", "z"},
                                {";x", "1,2"},         {";y", "3"},
                                {";k", "a{key:tab}b"}, {";c", "{clipboard}"}};
    EXPECT_EQ(testing::pairsOf(saved()), merged);
}

TEST_F(CliTest, ImportReadsOtherExpandersFoundHereOrCopiedFromElsewhere) {
    add(";a", "x");
    save();
    const std::string none = "No other expanders found on this computer\n";
    const std::string matches = "matches:\n  - trigger: \";a\"\n    replace: A\n"
                                "  - trigger: \";b\"\n    replace: \"B {{date}}\"\n";
    testing::writeText(home / "copy/match/base.yml", matches);
    testing::writeText(home / "te.json",
                       R"({"snippetsTE2": [{"abbreviation": "te", "snippetType": 0,
                                             "plainText": "%clipboard"}]})");
    const std::string added = "Added 1 snippet. Left out:\n\u2022 ;a: you already have one.\n\n"
                              "Worth a look:\n\u2022 ;b: Espanso variables kept as text.\n";
    expect({{{"sources"}, 0, none, ""},
            {{"import", "--source", "Espanso"}, 1, "", "isn't among the expanders found"},
            {{"import", (home / "copy/match").string()}, 0, added, ""},
            {{"import", "--trust", (home / "te.json").string()},
             0,
             "Added 1 snippet.\n\nWorth a look:\n\u2022 ;te: presses keys, pastes your clipboard, "
             "includes another snippet or runs a script.\n",
             ""}});

    std::filesystem::create_directories(home / ".config/espanso");
    std::filesystem::rename(home / "copy/match", home / ".config/espanso/match");
    expect({{{"sources"}, 0, "Espanso\n", ""},
            {{"import", "--source", "Espanso"},
             0,
             "Added 0 snippets. Left out:\n\u2022 ;a: you already have one.\n\u2022 ;b: you "
             "already have one.\n\nWorth a look:\n\u2022 ;b: Espanso variables kept as text.\n",
             ""},
            {{"sources", "x"}, 1, "", "usage: snippets"}});
}

TEST_F(CliTest, ExportWritesTheFileOrStandardOutputOnly) {
    add(";a", "x");
    add(";s", "").locked = true;
    add("", "no abbreviation");
    save();
    const std::string file = (home / "out/quillet-snippets.json").string();
    std::filesystem::create_directories(home / "out");
    expect({
        {{"export", file},
         0,
         "Exported 2 snippets. Images stay behind. Locked snippets are exported without their "
         "text.\n",
         ""},
        {{"export", (home / "no/folder.json").string()}, 1, "", "Couldn't save the file: "},
        {{"export", file, "more"}, 1, "", "usage: snippets"},
    });
    const std::string written = testing::contentsOf(file);
    EXPECT_TRUE(written.starts_with("{\n  \"snippets\": [\n")) << written;
    expect({{{"export", "-"}, 0, written, ""},
            {{"export"}, 0, written, ""},
            {{"import", file},
             0,
             "Added 0 snippets. Left out:\n\u2022 ;a: you already have one.\n\u2022 ;s: you "
             "already have one.\n",
             ""}});
}

TEST_F(CliTest, BridgeInstallSetsUpTheBrowsersFoundForThisExecutable) {
    expect({{{"bridge", "install"}, 1, "", "No Chrome, Brave, Edge, Vivaldi or Chromium found.\n"},
            {{"bridge"}, 1, "", "usage: snippets"}});
    std::filesystem::create_directories(home / ".config/google-chrome");
    expect({{{"bridge", "install"},
             0,
             "Set up for Google Chrome. Now add the Quillet extension: open the extensions page, "
             "turn on Developer mode, choose Load unpacked and pick the app/ChromeExtension folder "
             "in the Quillet source. Then a snippet set to \u201COnly in\u2026\u201D a website "
             "expands only there.\n",
             ""}});
    const std::string manifest = testing::contentsOf(
        home / ".config/google-chrome/NativeMessagingHosts/com.quillet.site.json");
    // The link `snippets` resolved: the browser starts the executable itself.
    const std::string executable = std::filesystem::canonical(QUILLET_EXECUTABLE).string();
    EXPECT_NE(manifest.find("\"path\": \"" + executable + "\""), std::string::npos) << manifest;
}

} // namespace
} // namespace quillet
