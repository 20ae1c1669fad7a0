#include "library/LibraryFile.h"

#include "library/AtomicFile.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace quillet {
namespace {

using testing::contentsOf;
using testing::entriesOf;
using testing::modeOf;
using testing::TempFolder;
using testing::writeText;

std::vector<Snippet> sampleLibrary() {
    Snippet first = Snippet::make();
    first.abbreviation = ";addr";
    first.content = "1 Main Street\nSpringfield";
    first.created = Date{725760000.5};
    Snippet second;
    second.id = Uuid::random();
    second.abbreviation = ";shrug";
    second.content = "\u00af\\_(\u30c4)_/\u00af";
    second.trigger = TriggerMode::delimiter;
    second.sites = {"example.com"};
    Snippet third = Snippet::make();
    third.abbreviation = ";a";
    third.content = "first match wins";
    return {first, second, third};
}

std::string record(const char* abbreviation, const char* kind) {
    return std::string(R"({"id":")") + Uuid::random().text() + R"(","abbreviation":")" +
           abbreviation + R"(","content":"x","kind":")" + kind + R"("})";
}

TEST(LibraryEncoding, IsOneCompactArrayInListOrder) {
    auto library = sampleLibrary();
    std::string bytes = encodeLibrary(library);
    EXPECT_EQ(bytes.front(), '[');
    EXPECT_EQ(bytes.back(), ']');
    EXPECT_EQ(bytes.find('\n'), std::string::npos); // the content's line break is escaped
    EXPECT_EQ(bytes.find("\": "), std::string::npos);
    EXPECT_EQ(bytes.find(", "), std::string::npos);
    EXPECT_EQ(encodeLibrary({}), "[]");

    std::string error;
    auto back = decodeLibrary(bytes, error);
    ASSERT_TRUE(back) << error;
    EXPECT_EQ(*back, library);
}

TEST(LibraryEncoding, OneBadRecordRefusesTheWholeFile) {
    std::string bytes =
        "[" + record(";a", "text") + "," + record(";b", "shell") + "," + record(";c", "perl") + "]";
    std::string error;
    EXPECT_FALSE(decodeLibrary(bytes, error));
    EXPECT_EQ(error, "Snippet 3 of the library file is damaged: \"kind\" has an unknown value "
                     "\"perl\".");

    EXPECT_FALSE(
        decodeLibrary(R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","content":""}])", error));
    EXPECT_EQ(error, "Snippet 1 of the library file is damaged: \"abbreviation\" is missing.");
}

TEST(LibraryEncoding, RefusesTextThatIsNoListOfRecords) {
    std::string error;
    EXPECT_FALSE(decodeLibrary("", error));
    EXPECT_NE(error.find("not valid JSON"), std::string::npos) << error;
    EXPECT_FALSE(decodeLibrary("[" + record(";a", "text"), error));
    EXPECT_NE(error.find("not valid JSON"), std::string::npos) << error;
    EXPECT_FALSE(decodeLibrary(record(";a", "text"), error));
    EXPECT_EQ(error, "The library file does not hold a list of snippets.");
    EXPECT_FALSE(decodeLibrary("[1]", error));
    EXPECT_EQ(error, "Snippet 1 of the library file is damaged: the record is not a JSON object.");

    auto empty = decodeLibrary(" [ ]\n", error);
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->empty());
}

class LibraryFileTest : public ::testing::Test {
protected:
    TempFolder temp;
};

TEST_F(LibraryFileTest, WriteCreatesPrivateFolderAndFileThatReadBack) {
    auto file = temp / "data" / "quillet" / "snippets.json";
    auto library = sampleLibrary();
    std::string error;
    ASSERT_TRUE(writeLibrary(file, library, error)) << error;

    EXPECT_EQ(modeOf(temp / "data"), 0700U);
    EXPECT_EQ(modeOf(file.parent_path()), 0700U);
    EXPECT_EQ(modeOf(file), 0600U);
    EXPECT_EQ(contentsOf(file), encodeLibrary(library));
    EXPECT_NE(contentsOf(file).back(), '\n');
    EXPECT_EQ(entriesOf(file.parent_path()), std::vector<std::string>{"snippets.json"});

    LibraryRead read = readLibrary(file);
    EXPECT_EQ(read.status, LibraryStatus::ok);
    EXPECT_EQ(read.snippets, library);
    EXPECT_EQ(read.message, "");
}

TEST_F(LibraryFileTest, RewriteReplacesTheFileAndLeavesNoTemporaryFiles) {
    auto file = temp / "snippets.json";
    writeText(file, "old content that is longer than the new one");
    ::chmod(file.c_str(), 0644);
    struct stat before {};
    ::stat(file.c_str(), &before);

    std::string error;
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(writeLibrary(file, {}, error)) << error;
    }
    EXPECT_EQ(contentsOf(file), "[]");
    EXPECT_EQ(modeOf(file), 0600U);
    struct stat after {};
    ::stat(file.c_str(), &after);
    EXPECT_NE(after.st_ino, before.st_ino); // replaced by rename, never rewritten in place
    EXPECT_EQ(entriesOf(temp.path()), std::vector<std::string>{"snippets.json"});
}

TEST_F(LibraryFileTest, WriteThroughASymbolicLinkKeepsTheLink) {
    std::filesystem::create_directory(temp / "synced");
    auto real = temp / "synced" / "snippets.json";
    auto link = temp / "snippets.json";
    writeText(real, "[]");
    std::filesystem::create_symlink(real, link);

    auto library = sampleLibrary();
    std::string error;
    ASSERT_TRUE(writeLibrary(link, library, error)) << error;
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(contentsOf(real), encodeLibrary(library));
    EXPECT_EQ(entriesOf(temp / "synced"), std::vector<std::string>{"snippets.json"});
}

TEST_F(LibraryFileTest, FailedWriteKeepsTheOldFileAndCleansUp) {
    // A folder where the file should be: the rename fails after the temporary file was written.
    auto file = temp / "snippets.json";
    std::filesystem::create_directory(file);
    std::string error;
    EXPECT_FALSE(writeLibrary(file, sampleLibrary(), error));
    EXPECT_NE(error.find("snippets.json"), std::string::npos) << error;
    EXPECT_EQ(entriesOf(temp.path()), std::vector<std::string>{"snippets.json"});
    EXPECT_TRUE(std::filesystem::is_directory(file));

    // A file where the folder should be.
    writeText(temp / "data", "not a folder");
    error.clear();
    EXPECT_FALSE(writeLibrary(temp / "data" / "snippets.json", {}, error));
    EXPECT_NE(error.find("in the way"), std::string::npos) << error;
    EXPECT_EQ(contentsOf(temp / "data"), "not a folder");
}

TEST_F(LibraryFileTest, ReadTellsMissingDamagedAndUnreadableApart) {
    LibraryRead missing = readLibrary(temp / "snippets.json");
    EXPECT_EQ(missing.status, LibraryStatus::missing);
    EXPECT_TRUE(missing.snippets.empty());
    EXPECT_EQ(readLibrary(temp / "nowhere" / "snippets.json").status, LibraryStatus::missing);

    auto damaged = temp / "damaged.json";
    writeText(damaged, "[" + record(";a", "text") + "," + record(";b", "cobol") + "]");
    LibraryRead read = readLibrary(damaged);
    EXPECT_EQ(read.status, LibraryStatus::damaged);
    EXPECT_TRUE(read.snippets.empty());
    EXPECT_NE(read.message.find("Snippet 2"), std::string::npos) << read.message;
    EXPECT_NE(read.message.find("\"cobol\""), std::string::npos) << read.message;

    auto folder = temp / "folder.json";
    std::filesystem::create_directory(folder);
    read = readLibrary(folder);
    EXPECT_EQ(read.status, LibraryStatus::unreadable);
    EXPECT_NE(read.message.find("folder"), std::string::npos) << read.message;

    writeText(temp / "file", "");
    EXPECT_EQ(readLibrary(temp / "file" / "snippets.json").status, LibraryStatus::unreadable);
}

TEST_F(LibraryFileTest, FileWithoutReadPermissionIsUnreadable) {
    auto file = temp / "snippets.json";
    std::string error;
    ASSERT_TRUE(writeLibrary(file, sampleLibrary(), error)) << error;
    ::chmod(temp.path().c_str(), 0755);
    ::chmod(file.c_str(), 0200);
    int status = testing::asNobody([&] {
        LibraryRead read = readLibrary(file);
        return read.status == LibraryStatus::unreadable &&
                       read.message.find("Permission denied") != std::string::npos
                   ? 0
                   : 1;
    });
    EXPECT_EQ(status, 0);
}

TEST_F(LibraryFileTest, AtomicWriteAndReadKeepExactBytesAndMode) {
    std::string bytes("a\0b\xff\n", 5);
    std::string error;
    ASSERT_TRUE(writeFileAtomically(temp / "one", bytes, 0640, error)) << error;
    EXPECT_EQ(modeOf(temp / "one"), 0640U);
    FileContent one = readFile(temp / "one");
    EXPECT_EQ(one.status, ReadStatus::ok);
    EXPECT_EQ(one.bytes, bytes);
}

} // namespace
} // namespace quillet
