// The import and export model over a real store in a temporary folder. Whatever the window
// reports after an import must be what `snippets import` prints for the same file, so every
// case is run through the real command-line tool too, on a copy of the same library.
#include "entry/ImportExport.h"

#include "library/LibraryFile.h"
#include "library/RunLoop.h"
#include "support/ChildProcess.h"
#include "support/CoordinatorHarness.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace quillet {
namespace {

using testing::contentsOf;
using testing::pairsOf;
using testing::writeText;

struct ModelHarness : testing::CoordinatorHarness<RunLoop> {
    SnippetStore& store() { return coordinator->store(); }
    std::vector<Snippet> onDisk() { return readLibrary(store().location().libraryFile()).snippets; }

    // Runs the tool in a home of its own, whose library starts as library.
    testing::ProcessResult cli(std::vector<std::string> args, const std::vector<Snippet>& library) {
        std::string error;
        EXPECT_TRUE(writeLibrary(cliLibrary, library, error)) << error;
        args.insert(args.begin(), QUILLET_EXECUTABLE);
        return testing::runProcess(args, {{},
                                          {{"HOME", (temp / "cli").string()},
                                           {"XDG_DATA_HOME", ""},
                                           {"XDG_CONFIG_HOME", ""},
                                           {"LANG", "en_US.UTF-8"},
                                           {"DISPLAY", ""},
                                           {"WAYLAND_DISPLAY", ""}},
                                          false});
    }

    std::filesystem::path cliLibrary = temp / "cli/.local/share/quillet/snippets.json";
    ImportExport model{store(), folders};
};

TEST(ImportExport, ImportReportsWhatTheCommandLineToolPrints) {
    ModelHarness h;
    EXPECT_EQ(h.model.sources(), std::vector<std::string>());
    const std::string matches = "matches:\n  - trigger: \";a\"\n    replace: A\n"
                                "  - trigger: \";b\"\n    replace: \"B {{date}}\"\n";
    for (const std::filesystem::path& home : {h.folders.home, h.temp / "cli"}) {
        writeText(home / ".config/espanso/match/base.yml", matches);
    }
    EXPECT_EQ(h.model.sources(), std::vector<std::string>{"Espanso"});

    // A file to write and import, or (source set) an expander found here; a read that fails
    // gives error, a risky one the warning.
    struct Case {
        std::string path, bytes, source = {};
        bool risky = false;
        std::string error = {};
    };
    const std::vector<Case> cases = {
        {"pack.json", R"({"version": 1, "snippets": [{"abbreviation": ";a", "content": "y"},
                          {"abbreviation": "b", "content": "z", "markdown": true}]})"},
        {"list.csv", "\xEF\xBB\xBFKeyword,Phrase\r\nx,\"1,2\"\r\n!y,3\r\nx,again\r\n"},
        {"risky.csv", "k,a{key:tab}b\nc,{clipboard}\n", {}, true},
        {"picture.png", "\x89PNG\r\n\x1A\n\xFF"},
        {"copy/match/base.yml", matches},
        {"", "", "Espanso"},
        {"", "", "Elsewhere", false, "\u201CElsewhere\u201D isn't among the expanders found"},
        {"missing.csv", "", {}, false, "Couldn't read the file: "},
        {"empty", "", {}, false, "Couldn't read the file: "},
    };
    const std::vector<Snippet> library = {testing::snippet(";a", "x")};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path + c.source);
        ASSERT_TRUE(h.store().setSnippets(library));
        std::vector<std::string> args = {"import", "--source", c.source};
        ImportExport::Read read;
        if (c.source.empty()) {
            std::filesystem::path path = h.temp / "files" / c.path;
            if (c.path == "empty") {
                path = h.temp / "files/empty";
                std::filesystem::create_directories(path);
            } else if (c.path != "missing.csv") {
                writeText(path, c.bytes);
            }
            if (path.filename() == "base.yml") {
                path = path.parent_path(); // the folder, as copied from another computer
            }
            args = {"import", path.string()};
            read = h.model.readFile(path);
        } else {
            read = h.model.readSource(c.source);
        }
        testing::ProcessResult wary = h.cli(args, library);
        if (!c.error.empty()) {
            EXPECT_FALSE(read.incoming);
            EXPECT_TRUE(read.error.starts_with(c.error)) << read.error;
            EXPECT_EQ(wary.err, read.error + "\n");
            continue;
        }
        ASSERT_TRUE(read.incoming) << read.error;
        const std::optional<Transfer::Warning> warning = ImportExport::warning(*read.incoming);
        EXPECT_EQ(warning.has_value(), c.risky);
        if (warning) {
            EXPECT_EQ(wary.err, warning->title + "\n\n" + warning->message + "\n");
        }
        args.push_back("--trust");
        const testing::ProcessResult trusting = h.cli(args, library);
        const ImportExport::Outcome outcome = h.model.merge(std::move(*read.incoming));
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(trusting.out, outcome.text + "\n");
        EXPECT_EQ(pairsOf(h.onDisk()), pairsOf(readLibrary(h.cliLibrary).snippets));
        EXPECT_EQ(outcome.added, h.onDisk().size() - library.size());
    }
}

TEST(ImportExport, ExportImportsBackAndAnUnreadableLibraryIsLeftAlone) {
    ModelHarness h;
    ASSERT_TRUE(
        h.store().setSnippets({testing::snippet(";a", "x"),
                               testing::snippet(";s", "", [](Snippet& s) { s.locked = true; }),
                               testing::snippet("", "no abbreviation")}));
    EXPECT_EQ(h.model.exportPath(), h.folders.home / ImportExport::exportName());
    const std::filesystem::path file = h.temp / ImportExport::exportName();
    const ImportExport::Outcome exported = h.model.exportTo(file);
    EXPECT_FALSE(exported.failed);
    EXPECT_EQ(exported.text, Transfer::exportMessage(h.store().snippets()));
    const mode_t mask = ::umask(0);
    ::umask(mask);
    EXPECT_EQ(testing::modeOf(file), 0666 & ~mask);
    ImportExport::Read back = h.model.readFile(file);
    ASSERT_TRUE(back.incoming) << back.error;
    EXPECT_EQ(pairsOf(back.incoming->snippets), (testing::Pairs{{";a", "x"}, {";s", ""}}));
    const ImportExport::Outcome nowhere = h.model.exportTo(h.temp / "no/folder/x.json");
    EXPECT_TRUE(nowhere.failed);
    EXPECT_TRUE(nowhere.text.starts_with("Couldn't save the file: ")) << nowhere.text;

    // A library file that cannot be read is never written, even to add snippets to it.
    const std::filesystem::path libraryFile = h.store().location().libraryFile();
    writeText(libraryFile, "[{");
    SnippetStore broken(h.preferences, h.watcher, h.loop, h.folders);
    ImportExport refusing(broken, h.folders);
    writeText(h.temp / "new.csv", "n,new\n");
    ImportExport::Read read = refusing.readFile(h.temp / "new.csv");
    ASSERT_TRUE(read.incoming);
    const ImportExport::Outcome refused = refusing.merge(std::move(*read.incoming));
    EXPECT_TRUE(refused.failed);
    EXPECT_EQ(refused.added, 0u);
    EXPECT_TRUE(refused.text.starts_with("Couldn't save: the library file can't be read"))
        << refused.text;
    EXPECT_EQ(contentsOf(libraryFile), "[{");
}

} // namespace
} // namespace quillet
