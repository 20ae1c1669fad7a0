#include "transfer/Transfer.h"

#include "support/Snippets.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using testing::Pairs;
using testing::pairsOf;
using testing::scoped;
using testing::snippet;

TEST(TransferTest, ReadFindsTheFormatAndItsSnippets) {
    const std::string bom = "\xEF\xBB\xBF";
    const struct {
        std::string bytes;
        Pairs snippets;
        std::vector<std::string> skipped = {};
    } cases[] = {
        // This program's own files keep abbreviations exactly as written.
        {R"({"version": 1, "extra": 0, "snippets": [{"abbreviation": "sig",
             "content": "Best", "kind": null}]})",
         {{"sig", "Best"}}},
        {bom + R"({"version": 1.0, "snippets": []})", {}}, // an integral float version
        {R"( [{"abbreviation": "!x", "content": ""}])", {{"!x", ""}}},
        // CSV without a header imports its first row.
        {"sig,Best regards\n!addr,\"1 Main St\nTown\"\n",
         {{";sig", "Best regards"}, {";addr", "1 Main St\nTown"}}},
        // Header names in any case, with blanks, in either order; the first of each kind wins,
        // and without a content name the other column is the content.
        {" Trigger ,\tEXPANSION\nhi,Hello", {{";hi", "Hello"}}},
        {"Snippet,Shortcut\nHello,hi", {{";hi", "Hello"}}},
        {"note,keyword,phrase,abbreviation,text\nn,k,p,a,t", {{";k", "p"}}},
        {"Name,AutoText\nHello,hi\n", {{";hi", "Hello"}}},
        {"keyword,x\nhi,Hello", {{";hi", "Hello"}}},
        // Short rows are counted after the header.
        {"content,abbreviation\nonly one\n\nHello,hi\n,",
         {{";hi", "Hello"}, {"", ""}},
         {"Row 1: needs an abbreviation and its text."}},
        // A pack with a bad entry is not a pack; what is left is read as CSV.
        {R"({"version": 1, "snippets": [{"abbreviation": "x", "content": 1}]})",
         {{";version\": 1", " \"snippets\": [{\"abbreviation\": \"x\""}}},
        {"a,\xFF\xFE", {}, {"This file isn't text."}},
    };
    for (const auto& c : cases) {
        Transfer::Incoming in = Transfer::read(c.bytes);
        EXPECT_EQ(pairsOf(in.snippets), c.snippets) << c.bytes;
        EXPECT_EQ(in.skipped, c.skipped) << c.bytes;
        EXPECT_TRUE(in.notes.empty()) << c.bytes;
    }
}

TEST(TransferTest, EntriesDecodeOnlyWithTheRightTypes) {
    const char* refused[] = {
        R"([])",
        R"({"content": "x"})",
        R"({"abbreviation": "a", "content": "x", "markdown": "yes"})",
        R"({"abbreviation": "a", "content": "x", "scope": "sometimes"})",
        R"({"abbreviation": "a", "content": "x", "apps": [1]})",
    };
    for (const char* text : refused) {
        EXPECT_FALSE(Transfer::Entry::fromJson(nlohmann::json::parse(text))) << text;
    }
    auto entry = Transfer::Entry::fromJson(nlohmann::json::parse(
        R"({"abbreviation": "a", "content": "x", "scope": "only", "apps": ["mail"],
            "sites": ["Mail.Example.com/inbox ", "localhost"], "markdown": true, "regex": false,
            "kind": "shell"})"));
    ASSERT_TRUE(entry);
    Snippet s = entry->snippet();
    EXPECT_EQ(s.scope, Snippet::Scope::only);
    EXPECT_EQ(s.apps, std::vector<std::string>{"mail"});
    EXPECT_EQ(s.sites, std::vector<std::string>{"mail.example.com"});
    EXPECT_TRUE(s.markdown);
    EXPECT_FALSE(s.regex);
    EXPECT_EQ(s.kind, Snippet::Kind::shell);
    EXPECT_TRUE(s.created && !s.trigger && !s.image && !s.locked && !s.archived);
    EXPECT_NE(s.id, entry->snippet().id);
}

TEST(TransferTest, AbbreviationsGetTheSemicolonHabit) {
    const std::pair<const char*, const char*> cases[] = {
        {"sig", ";sig"},
        {"!sig", ";sig"},
        {";;sig", ";sig"},
        {";;", ";"},
        {"::", ";::"},
        {"", ""},
        {"-\u00e9t\u00e9", ";\u00e9t\u00e9"},
        {"..42", ";42"},
        {"\u00bfqu\u00e9?", ";qu\u00e9?"},
    };
    for (auto [typed, expected] : cases) {
        EXPECT_EQ(Transfer::withSemicolon(typed), expected) << typed;
    }
}

TEST(TransferTest, ForeignReadersGetTheSemicolonHabitAndKeepTheirLines) {
    Transfer::ForeignReader reader = [](std::string_view bytes) {
        std::optional<Transfer::Foreign> found;
        if (bytes.starts_with("{\"foreign\"")) {
            const Snippet pattern =
                snippet("#(\\d+)", "Issue $1", [](Snippet& s) { s.regex = true; });
            found = Transfer::Foreign{
                {Transfer::Entry::from(snippet("!sig", "Best")), Transfer::Entry::from(pattern)},
                {"x: skipped"},
                {"y: a note"}};
        }
        return found;
    };
    Transfer::Incoming in = Transfer::read("{\"foreign\": 1}", reader);
    EXPECT_EQ(pairsOf(in.snippets), (Pairs{{";sig", "Best"}, {"#(\\d+)", "Issue $1"}}));
    Transfer::Report report = Transfer::merge(std::move(in), {});
    EXPECT_EQ(report.skipped, std::vector<std::string>{"x: skipped"});
    EXPECT_EQ(report.notes,
              (std::vector<std::string>{"y: a note", "#(\\d+): presses keys, pastes your "
                                                     "clipboard, includes another snippet or "
                                                     "runs a script."}));
    // Nothing it knows: on to CSV.
    EXPECT_EQ(pairsOf(Transfer::read("a,b", reader).snippets), (Pairs{{";a", "b"}}));
}

TEST(TransferTest, MergeSkipsWhatTheLibraryAlreadyHasWhereItFires) {
    std::vector<Snippet> library = {
        snippet(";a"),
        snippet(";b", "text", testing::scoped({"mail", "chat"})),
        snippet("caf\u00e9"),
    };
    Transfer::Incoming in{{
                              snippet(";a", "other text"), // same abbreviation and scope
                              snippet(";A"),               // case counts
                              snippet(";b", "x", scoped({"mail", "chat"})), // same apps
                              snippet(";b", "x", scoped({"chat", "mail"})), // their order counts
                              snippet(";b", "x", scoped({"mail", "chat"}, {"a.com"})),
                              snippet("cafe\u0301"), // the same abbreviation, decomposed
                              snippet(""), snippet(";new"),
                              snippet(";new", "again"), // the file's own duplicate
                          },
                          {},
                          {}};
    Transfer::Report report = Transfer::merge(std::move(in), library);
    EXPECT_EQ(pairsOf(report.added),
              (Pairs{{";A", "text"}, {";b", "x"}, {";b", "x"}, {";new", "text"}}));
    EXPECT_EQ(report.skipped,
              (std::vector<std::string>{";a: you already have one.", ";b: you already have one.",
                                        "cafe\u0301: you already have one.",
                                        "A snippet with no abbreviation.",
                                        ";new: you already have one."}));
    EXPECT_TRUE(report.notes.empty());
}

TEST(TransferTest, RiskySnippetsAreNamedBeforeAndNotedWhenAdded) {
    std::vector<Snippet> incoming = {
        snippet(";plain", "Hello {field:Name} {date}"),
        snippet(";k", "a{key:tab}b"),
        snippet(";c", "{clipboard:2}"),
        snippet(";i", "{snippet:;sig}"),
        snippet(";js", "1", [](Snippet& s) { s.kind = Snippet::Kind::javascript; }),
        snippet("\\d+", "n", [](Snippet& s) { s.regex = true; }),
    };
    EXPECT_FALSE(Transfer::trustWarning({incoming[0]}));
    auto warning = Transfer::trustWarning(incoming);
    ASSERT_TRUE(warning);
    EXPECT_EQ(warning->title, "Some of these press keys, paste your clipboard or run scripts");
    EXPECT_EQ(warning->message,
              ";k, ;c, ;i, ;js, \\d+\n\nImport them only if you trust where they came from.");
    Transfer::Report report = Transfer::merge({incoming, {}, {}}, {snippet(";k")});
    EXPECT_EQ(report.notes.size(), 4u); // the one already there is not added
}

TEST(TransferTest, ExportCarriesWhatImportRestores) {
    std::vector<Snippet> library = {
        snippet(";plain", "Hi\n\"there\""),
        snippet(";full", "**x**",
                [](Snippet& s) {
                    s.markdown = true;
                    s.scope = Snippet::Scope::except;
                    s.apps = {"term"};
                    s.sites = {"mail.example.com"};
                    s.archived = true;
                    s.trigger = TriggerMode::tab;
                    s.image = "a.png";
                }),
        snippet("^x(\\d)$", "echo",
                [](Snippet& s) {
                    s.regex = true;
                    s.kind = Snippet::Kind::shell;
                }),
        snippet(";secret", "kept elsewhere", [](Snippet& s) { s.locked = true; }),
        snippet("", "no abbreviation"),
    };
    const std::string file = Transfer::exportFile(library);
    EXPECT_TRUE(file.starts_with(R"({
  "snippets": [
    {
      "abbreviation": ";plain",
      "content": "Hi\n\"there\""
    },
    {
      "abbreviation": ";full",
      "apps": [
        "term"
      ],
      "content": "**x**",
      "markdown": true,
      "scope": "except",)"))
        << file;
    EXPECT_TRUE(file.ends_with("\n  ],\n  \"version\": 1\n}\n"));
    EXPECT_EQ(Transfer::exportMessage({library[0], library[4]}),
              "Exported 1 snippets. Images stay behind.");

    Transfer::Incoming in = Transfer::read(file);
    ASSERT_EQ(in.snippets.size(), 4u);
    for (std::size_t i = 0; i < 3; ++i) {
        Snippet expected = library[i];
        expected.id = in.snippets[i].id;
        expected.created = in.snippets[i].created;
        expected.archived = false;
        expected.trigger.reset();
        expected.image.reset();
        EXPECT_EQ(in.snippets[i], expected) << i;
    }
    EXPECT_EQ(in.snippets[3].content, "");
    EXPECT_FALSE(in.snippets[3].locked);

    // A second import of the same file adds nothing.
    Transfer::Report again = Transfer::merge(std::move(in), library);
    EXPECT_TRUE(again.added.empty());
    EXPECT_EQ(again.skipped.size(), 4u);
}

} // namespace
} // namespace quillet
