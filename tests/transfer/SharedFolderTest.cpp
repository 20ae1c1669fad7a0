#include "transfer/SharedFolder.h"

#include "support/Snippets.h"
#include "support/TempFolder.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace quillet {
namespace {

using testing::TempFolder;
using testing::writeText;

TEST(SharedFolderTest, ReadsTheVisibleSnippetFilesInNameOrderAndLeavesOutWhatOnlyTheEditorRuns) {
    TempFolder temp;
    const std::string folder = (temp / "team").string();
    std::filesystem::create_directories(temp / "team" / "sub");
    writeText(temp / "team" / ".team.json",
              R"({"version": 1, "snippets": [{"abbreviation": ";hidden", "content": "x"}]})");
    writeText(temp / "team" / "b.json", R"({"version": 1, "snippets": [
        {"abbreviation": ";sig", "content": "Best, Ann"},
        {"abbreviation": ";clip", "content": "{clipboard:2}"},
        {"abbreviation": ";addr", "content": "1 Main St\nSpringfield"},
        {"abbreviation": ";run", "content": "1+1", "kind": "javascript"},
        {"abbreviation": ";\\d+", "content": "n", "regex": true}]})");
    writeText(temp / "team" / "a.csv", ";hi,Hello\n;date,{date}\n");
    // Files that are not snippet files: no nonsense snippets come from them.
    writeText(temp / "team" / "c-settings.json", "{\"theme\": \"dark\",\n\"size\": 3}\n");
    writeText(temp / "team" / "d-broken.json", R"({"version": 1, "snippets": [)");
    writeText(temp / "team" / "e.png", std::string("\x89PNG\r\n\x1a\n\0\0\xff,\xfe", 13));
    writeText(temp / "team" / "sub" / "deeper.csv", ";deep,not read\n");

    const SnippetStore::SharedPack pack = SharedFolder::load(folder);
    EXPECT_EQ(testing::pairsOf(pack.snippets),
              (testing::Pairs{{";hi", "Hello"}, {";date", "{date}"}, {";sig", "Best, Ann"}}));
    EXPECT_EQ(pack.leftOut, 4);
    EXPECT_FALSE(pack.missing);
    EXPECT_EQ(SharedFolder::describe(pack),
              (std::vector<std::string>{
                  "Read-only: change these in the folder's files. When one of yours has the same "
                  "abbreviation, yours wins.",
                  "4 left out: they press keys, run scripts, use patterns or span lines, which "
                  "shared folders can't."}));

    // Read again unchanged, the pack is equal (ids included), so nobody is told of a change;
    // each snippet has its own id and none carries a creation date.
    EXPECT_EQ(SharedFolder::load(folder), pack);
    EXPECT_NE(pack.snippets[0].id, pack.snippets[1].id);
    EXPECT_FALSE(pack.snippets[2].created);
    EXPECT_NE(SharedFolder::load((temp / "team" / "..").string() + "/team").snippets[0].id,
              pack.snippets[0].id)
        << "the folder as listed is part of the id";
}

TEST(SharedFolderTest, AFolderThatCannotBeListedGivesAnEmptyPackThatSaysSo) {
    TempFolder temp;
    writeText(temp / "plain-file", ";a,b\n");
    for (const std::string& folder : {(temp / "gone").string(), (temp / "plain-file").string()}) {
        const SnippetStore::SharedPack pack = SharedFolder::load(folder);
        EXPECT_EQ(pack, (SnippetStore::SharedPack{folder, {}, 0, true}));
        EXPECT_EQ(SharedFolder::describe(pack),
                  (std::vector<std::string>{"This folder isn't shared any more.",
                                            "Add it again from Settings \u2192 Shared folders."}));
    }
    std::filesystem::create_directory(temp / "empty");
    EXPECT_EQ(SharedFolder::load((temp / "empty").string()),
              (SnippetStore::SharedPack{(temp / "empty").string(), {}, 0, false}));
}

} // namespace
} // namespace quillet
