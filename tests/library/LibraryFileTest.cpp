#include "library/LibraryFile.h"

#include "library/AtomicFile.h"
#include "support/TempFolder.h"

#include <chrono>
#include <gtest/gtest.h>

namespace quillet {
namespace {

using namespace testing;

std::string record(const char* kind) {
    return R"({"id":")" + Uuid::random().text() +
           R"(","abbreviation":";a","content":"x","kind":")" + kind + R"("})";
}

TEST(LibraryEncoding, IsOneCompactArray) {
    std::vector<Snippet> library{Snippet::make(), Snippet::make()};
    library[0].content = "Main\nStreet\u00af\\_(\u30c4)_/\u00af";
    std::string bytes = encodeLibrary(library), error;
    // No blanks and no line break, not even a trailing one: the content's is escaped.
    EXPECT_EQ(bytes.find_first_of("\n "), std::string::npos);
    EXPECT_EQ(decodeLibrary(bytes, error), library) << error;
    EXPECT_EQ(decodeLibrary(" [ ]\n", error), std::vector<Snippet>{}) << error;
}

// The library is read straight from its text; a document of it must come to the same snippets
// and the same first problem: one bad record refuses the whole file.
TEST(LibraryEncoding, ReadsAsADocumentOfTheWholeFileWould) {
    auto viaDocument = [](const std::string& text, std::string& error) {
        std::optional<std::vector<Snippet>> out;
        nlohmann::json document;
        try {
            document = nlohmann::json::parse(text);
        } catch (const nlohmann::json::parse_error& e) {
            error = "The library file is not valid JSON (at byte " + std::to_string(e.byte) + ").";
            return out;
        }
        if (!document.is_array()) {
            error = "The library file does not hold a list of snippets.";
            return out;
        }
        out.emplace();
        for (std::size_t i = 0; i < document.size(); ++i) {
            if (auto snippet = snippetFromJson(document[i], error)) {
                out->push_back(std::move(*snippet));
            } else {
                error = "Snippet " + std::to_string(i + 1) +
                        " of the library file is damaged: " + error + ".";
                return decltype(out){};
            }
        }
        return out;
    };
    const std::string id = R"("id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F")";
    const std::string base = id + R"(,"abbreviation":";a","content":"x")";
    const std::string texts[] = {
        // Every field, escapes, characters beyond the basic plane, numbers of each kind.
        "[{" + base + R"(,"apps":["a\u00e9"],"sites":["\ud83d\ude00\/\t"],"scope":"only",)" +
            R"("markdown":true,"image":"p.png","regex":false,"kind":"shell","archived":false,)" +
            R"("locked":true,"trigger":"tab","created":-0,"more":{"x":[1,{"y":null}]}}])",
        "[{" + base + R"(,"created":18446744073709551616},{)" + base + R"(,"created":-1.5e-3}])",
        " \r\n\t[ {" + base + R"( , "created" : 12 } ] )",
        // The last of a repeated key counts; null stands for absent.
        "[{" + base + R"(,"apps":"a","apps":["b"],"image":null,"trigger":null}])",
        // The first bad record, by the checks' order within it.
        "[{" + base + "}, 3, {" + base + R"(,"kind":"cobol"}])",
        "[{" + base + R"(,"sites":["a",["b"]],"scope":7}])",
        R"([{"abbreviation":1,"kind":"perl"}])",
        "[{" + base + R"(,"content":{"a":"b"}}])",
        // Not a list, or not JSON: the text's own errors come before any record's.
        R"({"a":1})",
        "[{" + base + R"(,"kind":"cobol"}, tru])",
        "[\"\\ud800\"]",
        "[\"\x01\"]",
        "[\"\xC0\xAF\"]",
        "[01]",
        "[1,]",
        "\xEF\xBB\xBF[]",
        "[] []",
        "[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[",
    };
    for (const std::string& text : texts) {
        std::string expected, error;
        const auto document = viaDocument(text, expected);
        EXPECT_EQ(decodeLibrary(text, error), document) << text;
        EXPECT_EQ(error, document ? "" : expected) << text;
    }
    // A number beyond a double's range made the document's parser throw, not report.
    std::string error;
    EXPECT_FALSE(decodeLibrary("[{" + base + R"(,"created":1e999}])", error));
    EXPECT_EQ(error, "The library file is not valid JSON (at byte 95).");
}

TEST(LibraryFile, WritesPrivatelyAndReplacesAtomicallyThroughALink) {
    TempFolder temp;
    auto file = temp / "data" / "quillet" / "snippets.json";
    std::vector<Snippet> library{Snippet::make()};
    std::string error;
    ASSERT_TRUE(writeLibrary(file, library, error)) << error;
    EXPECT_EQ(modeOf(temp / "data"), 0700U);
    EXPECT_EQ(modeOf(file.parent_path()), 0700U);
    EXPECT_EQ(contentsOf(file), encodeLibrary(library));

    // A library kept in a synced folder is often reached through a link, which must survive.
    std::filesystem::create_symlink(file, temp / "link.json");
    std::filesystem::create_hard_link(file, temp / "old.json");
    ::chmod(file.c_str(), 0644);
    ASSERT_TRUE(writeLibrary(temp / "link.json", {}, error)) << error;
    // Replaced by rename, never rewritten in place: the old file is untouched.
    EXPECT_EQ(contentsOf(temp / "old.json"), encodeLibrary(library));
    EXPECT_EQ(contentsOf(file), "[]"); // through the link, so the link was kept
    EXPECT_EQ(modeOf(file), 0600U);
    EXPECT_EQ(entriesOf(file.parent_path()), std::vector<std::string>{"snippets.json"});
}

TEST(LibraryFile, TellsMissingDamagedAndUnreadableApartAndLeavesThemAlone) {
    TempFolder temp;
    std::string damaged = "[" + record("text") + "," + record("cobol") + "]", error;
    writeText(temp / "damaged.json", damaged);
    std::filesystem::create_directory(temp / "folder.json");
    const std::pair<const char*, LibraryStatus> cases[] = {
        {"nowhere/snippets.json", LibraryStatus::missing},
        {"damaged.json", LibraryStatus::damaged},
        {"folder.json", LibraryStatus::unreadable},
        {"damaged.json/snippets.json", LibraryStatus::unreadable},
    };
    for (const auto& [name, status] : cases) {
        LibraryRead read = readLibrary(temp / name);
        EXPECT_EQ(read.status, status) << name;
        EXPECT_TRUE(read.snippets.empty()) << name;
    }
    EXPECT_EQ(readLibrary(temp / "damaged.json").message,
              "Snippet 2 of the library file is damaged: \"kind\" has an unknown value \"cobol\".");

    EXPECT_FALSE(writeLibrary(temp / "folder.json", {}, error));
    EXPECT_NE(error.find("folder.json"), std::string::npos) << error;
    EXPECT_FALSE(writeLibrary(temp / "damaged.json" / "snippets.json", {}, error));
    EXPECT_NE(error.find("in the way"), std::string::npos) << error;
    EXPECT_TRUE(std::filesystem::is_directory(temp / "folder.json"));
    EXPECT_EQ(contentsOf(temp / "damaged.json"), damaged);
    EXPECT_EQ(entriesOf(temp.path()), (std::vector<std::string>{"damaged.json", "folder.json"}));

    ::chmod(temp.path().c_str(), 0755);
    ::chmod((temp / "damaged.json").c_str(), 0200);
    auto deniedAsNobody = [&] {
        LibraryRead read = readLibrary(temp / "damaged.json");
        return read.status != LibraryStatus::unreadable ||
               read.message.find("Permission denied") == std::string::npos;
    };
    EXPECT_EQ(asNobody(deniedAsNobody), 0);
}

// Another process writing the same file must never lose its temporary file to the clean-up.
TEST(AtomicFile, TheNextWriteOrStartRemovesOnlyWhatDeadWritersLeft) {
    const pid_t dead = ::fork();
    if (dead == 0) {
        ::_exit(0);
    }
    ::waitpid(dead, nullptr, 0);
    const std::string gone = std::to_string(dead), live = std::to_string(::getppid());
    const std::pair<std::string, bool> cases[] = {
        {".usage.json." + gone + ".Ab3dE9", false},
        {".usage.json." + live + ".Ab3dE9", true},
        {".usage.json." + live + ".Old123", false}, // older than any write takes
        {".usage.json.Fresh1", true},               // an older version's, not yet stale
        {".usage.json.bak", true},
        {".usage.json.x" + gone + ".Ab3dE9", true},
        {"usage.json." + gone + ".Ab3dE9", true},
        {".other.json." + gone + ".Ab3dE9", true},
    };
    for (bool start : {false, true}) {
        TempFolder temp;
        auto file = temp / "usage.json";
        std::vector<std::string> expected{"usage.json"};
        for (const auto& [name, kept] : cases) {
            writeText(temp / name, "x");
            if (kept) {
                expected.push_back(name);
            }
        }
        std::filesystem::last_write_time(temp / cases[2].first,
                                         std::filesystem::file_time_type::clock::now() -
                                             std::chrono::hours(1));
        // Links and folders under such names are not ours.
        std::filesystem::create_directory(temp / (".usage.json." + gone + ".Folder"));
        std::filesystem::create_symlink(file, temp / (".usage.json." + gone + ".Link12"));
        expected.push_back(".usage.json." + gone + ".Folder");
        expected.push_back(".usage.json." + gone + ".Link12");
        std::sort(expected.begin(), expected.end());

        std::string error;
        if (start) {
            writeText(file, "{}");
            removeLeftoverTemporaries(file);
        } else {
            ASSERT_TRUE(writeFileAtomically(file, "{}", 0600, error)) << error;
        }
        EXPECT_EQ(entriesOf(temp.path()), expected) << "at start: " << start;
    }
}

} // namespace
} // namespace quillet
