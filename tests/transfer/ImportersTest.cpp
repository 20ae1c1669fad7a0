// Other expanders' libraries, each sample built here the way that program stores it.
#include "transfer/Importers.h"

#include "support/Snippets.h"
#include "support/TempFolder.h"
#include "transfer/Lz4Frame.h"
#include "transfer/PropertyList.h"

#include <gtest/gtest.h>
#include <lz4frame.h>
#include <plist/plist.h>
#include <sqlite3.h>

namespace quillet {
namespace {

using nlohmann::json;
using Lines = std::vector<std::string>;
using testing::Pairs;
using testing::writeText;
namespace fs = std::filesystem;

// What a reader made, flattened for one comparison: entries, what it skipped, its notes.
using Read = std::tuple<Pairs, Lines, Lines>;

Read flat(const Importers::Result& result) {
    Read r{{}, result.skipped, result.notes};
    for (const Transfer::Entry& e : result.entries) {
        std::get<0>(r).emplace_back(e.abbreviation, e.content);
    }
    return r;
}

plist_t toPlist(const json& value) {
    if (value.is_object()) {
        plist_t dict = plist_new_dict();
        for (const auto& [key, item] : value.items()) {
            plist_dict_set_item(dict, key.c_str(), toPlist(item));
        }
        return dict;
    }
    if (value.is_array()) {
        plist_t array = plist_new_array();
        for (const json& item : value) {
            plist_array_append_item(array, toPlist(item));
        }
        return array;
    }
    if (value.is_boolean()) {
        return plist_new_bool(value.get<bool>() ? 1 : 0);
    }
    if (value.is_number()) {
        return plist_new_uint(value.get<std::uint64_t>());
    }
    return plist_new_string(value.get<std::string>().c_str());
}

std::string plistBytes(const json& value, bool binary) {
    plist_t root = toPlist(value);
    char* bytes = nullptr;
    std::uint32_t length = 0;
    binary ? plist_to_bin(root, &bytes, &length) : plist_to_xml(root, &bytes, &length);
    std::string out(bytes, length);
    binary ? plist_to_bin_free(bytes) : plist_to_xml_free(bytes);
    plist_free(root);
    return out;
}

std::string lz4Frame(const std::string& content) {
    std::string out(LZ4F_compressFrameBound(content.size(), nullptr), '\0');
    out.resize(LZ4F_compressFrame(out.data(), out.size(), content.data(), content.size(), nullptr));
    return out;
}

TEST(ImportersTest, TextReplacementsComeFromTheDatabaseWithOneNote) {
    testing::TempFolder folder;
    const fs::path file = folder / "TextReplacements.db";
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db,
                           "CREATE TABLE ZTEXTREPLACEMENTENTRY (Z_PK INTEGER PRIMARY KEY, "
                           "ZSHORTCUT VARCHAR, ZPHRASE VARCHAR, ZWASDELETED INTEGER);"
                           "INSERT INTO ZTEXTREPLACEMENTENTRY VALUES (1, 'omw', 'On my way!', 0),"
                           "(2, 'gone', 'Deleted', 1), (3, ';addr', '1 Main St\nTown', 0);",
                           nullptr, nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(db);
    const Read expected{{{"omw", "On my way!"}, {";addr", "1 Main St\nTown"}},
                        {},
                        {"macOS still runs its own Text Replacements. Remove them in System "
                         "Settings \u2192 Keyboard, or they'll fire twice."}};
    EXPECT_EQ(flat(Importers::textReplacements(file)), expected);
    EXPECT_EQ(flat(*Importers::readPath(file)), expected);

    ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
    sqlite3_exec(db, "DELETE FROM ZTEXTREPLACEMENTENTRY", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    EXPECT_EQ(flat(Importers::textReplacements(file)), Read{});
    EXPECT_EQ(flat(Importers::textReplacements(folder / "missing.db")), Read{});
}

TEST(ImportersTest, EspansoFilesReadMatches) {
    const std::pair<std::string, Read> cases[] = {
        // Scalars quoted or plain, with comments.
        {"# mine\nmatches:\n  - trigger: \":hi\"\n    replace: \"Hi\\n\\u00e9 \\\"x\\\"\"\n"
         "  - trigger: ':it''s'\n    replace: it's # comment\n",
         {{{":hi", "Hi\n\u00e9 \"x\""}, {":it's", "it's"}}, {}, {}}},
        // Triggers in both list styles, and block values.
        {"matches:\n  - triggers:\n      - :a\n      - \":b\"\n    replace: |\n"
         "      one $|$\n\n        two {{clipboard}}\n\n  - triggers: [x, \"y\"]\n"
         "    replace: >-\n      folded\n      line\n",
         {{{":a", "one {cursor}\n\n  two {clipboard}"},
           {":b", "one {cursor}\n\n  two {clipboard}"},
           {"x", "folded line"},
           {"y", "folded line"}},
          {},
          {}}},
        // Forms, variables, images and scripts.
        {"global_vars:\n  - name: g\n    type: shell\nmatches:\n"
         "  - trigger: :f\n    form: \"Dear [[name]], [[ x ]]\"\n"
         "  - trigger: :d\n    replace: \"{{today}} {{today}}\"\n    vars:\n"
         "      - name: today\n        type: date\n"
         "  - trigger: :img\n    image_path: \"$CONFIG/a.png\"\n"
         "  - trigger: :sh\n    replace: \"{{out}}\"\n    vars:\n"
         "      - name: out\n        type: shell\n        params:\n"
         "          cmd: |\n            echo - trigger: no\n",
         {{{":f", "Dear {field:name}, [[ x ]]"}, {":d", "{{today}} {{today}}"}},
          {":img: an image or script, not text.", ":sh: an image or script, not text."},
          {":d: Espanso variables kept as text."}}}};
    for (const auto& [text, read] : cases) {
        EXPECT_EQ(flat(Importers::espansoFile(text)), read) << text;
    }
}

TEST(ImportersTest, EspansoFoldersAlfredFoldersAndDetection) {
    testing::TempFolder home;
    writeText(home / ".config/espanso/match/base.yml",
              "matches:\n  - trigger: :a\n    replace: A\n");
    writeText(home / ".config/espanso/match/more/b.yaml",
              "matches:\n- trigger: :b\n  replace: B\n");
    writeText(home / ".config/espanso/match/notes.txt", "matches:\n- trigger: :c\n  replace: C\n");
    const Read espanso{{{":a", "A"}, {":b", "B"}}, {}, {}};
    EXPECT_EQ(flat(*Importers::readPath(home / ".config/espanso/match")), espanso);

    // XDG_CONFIG_HOME comes first; a source reads when asked, not when found.
    auto sources = Importers::detect(home.path(), home / "elsewhere");
    ASSERT_EQ(sources.size(), 1u);
    EXPECT_EQ(sources[0].name, "Espanso");
    writeText(home / "elsewhere/espanso/match/x.yml", "matches:\n- trigger: :x\n  replace: X\n");
    EXPECT_EQ(flat(sources[0].read()), espanso);
    EXPECT_EQ(flat(Importers::detect(home.path(), home / "elsewhere")[0].read()),
              (Read{{{":x", "X"}}, {}, {}}));
    EXPECT_TRUE(Importers::detect(home / "nobody", home / "nobody").empty());

    const fs::path prefs = home / "Alfred.alfredpreferences";
    writeText(prefs / "snippets/Work/info.plist",
              plistBytes({{"snippetkeywordprefix", ";"}, {"snippetkeywordsuffix", "!"}}, false));
    writeText(prefs / "snippets/Work/a.json",
              R"({"alfredsnippet": {"keyword": "sig", "name": "Sig", "snippet": "Best"}})");
    writeText(prefs / "snippets/Work/b.json",
              R"({"alfredsnippet": {"keyword": "", "name": "Draft", "snippet": "x"}})");
    writeText(prefs / "snippets/Plain/c.json",
              R"({"alfredsnippet": {"keyword": "c", "snippet": "C"}})");
    writeText(prefs / "snippets/Plain/broken.json", "{");
    const Read alfred{{{"c", "C"}, {";sig!", "Best"}}, {"Draft: no keyword in Alfred."}, {}};
    EXPECT_EQ(flat(*Importers::readPath(prefs)), alfred);
    EXPECT_EQ(flat(*Importers::readPath(prefs / "snippets")), alfred);
    fs::create_directories(home / "empty");
    EXPECT_FALSE(Importers::readPath(home / "empty"));
    EXPECT_FALSE(Importers::readPath(home / "missing"));
}

TEST(ImportersTest, ATextNodesBecomeOneSnippetPerAbbreviation) {
    const json tree = json::parse(R"({"99": 1, "13": [
        {"1": ["sig", "sg"], "2": "Signature", "4": "Best"},
        {"13": [{"1": "rt", "3": "r", "4": "Rich"}, {"2": "Nameless", "4": "x"}]},
        {"1": "js", "3": "s", "4": "run"},
        {"1": "empty", "4": ""},
        {"4": "no name"}]})");
    const Read expected{{{"sig", "Best"}, {"sg", "Best"}, {"rt", "Rich"}},
                        {"Nameless: no abbreviation in aText.", "js: a script or picture snippet.",
                         "empty: a script or picture snippet.",
                         "A snippet: no abbreviation in aText."},
                        {"rt: rich text came over as plain text."}};
    const std::string frame = lz4Frame(tree.dump());
    EXPECT_EQ(flat(Importers::aText(frame)), expected);
    testing::TempFolder folder;
    writeText(folder / "Data.atext", frame);
    EXPECT_EQ(flat(*Importers::readPath(folder / "Data.atext")), expected);
    EXPECT_EQ(flat(Importers::aText(frame.substr(0, frame.size() - 6))), Read{});
    EXPECT_EQ(flat(Importers::aText(lz4Frame("{not json"))), Read{});
}

TEST(ImportersTest, LzFramesStopAtTheLimitWhateverTheyClaim) {
    const std::string content(100'000, 'a');
    EXPECT_EQ(decodeLz4Frame(lz4Frame(content)), content);
    EXPECT_FALSE(decodeLz4Frame(lz4Frame(content), 99'999));
    EXPECT_FALSE(decodeLz4Frame("\x04\x22\x4D\x18 not a frame"));

    // A header claiming 4 GB, as a hostile file would write it, with a small stored block.
    LZ4F_preferences_t prefs{};
    prefs.frameInfo.contentSize = 4ull << 30;
    std::string header(LZ4F_HEADER_SIZE_MAX, '\0');
    LZ4F_cctx* context = nullptr;
    LZ4F_createCompressionContext(&context, LZ4F_VERSION);
    header.resize(LZ4F_compressBegin(context, header.data(), header.size(), &prefs));
    LZ4F_freeCompressionContext(context);
    const std::string frame = header + std::string("\x02\x00\x00\x80{}\0\0\0\0", 10);
    EXPECT_FALSE(decodeLz4Frame(frame));
    EXPECT_EQ(flat(Importers::aText(frame)), Read{});
}

TEST(ImportersTest, KeyboardMaestroTakesTypedStringMacrosThatOnlyInsertText) {
    const json macros = json::parse(R"({"MacroGroups": [
        {"Macros": [
            {"Name": "Sig", "Triggers": [{"MacroTriggerType": "HotKey"},
                {"MacroTriggerType": "TypedString", "TypedString": ";sig"}],
             "Actions": [{"MacroActionType": "InsertText", "Action": "ByTyping",
                "Text": "Best %|%%CurrentClipboard% %PastClipboard%2%"}]},
            {"Name": "Styled", "Triggers": [{"MacroTriggerType": "TypedString",
                "TypedString": ";st"}],
             "Actions": [{"MacroActionType": "InsertText", "Action": "ByPastingStyles",
                "Text": "Date %ICUDateTime%dd%"}]},
            {"Name": "Two steps", "Triggers": [{"MacroTriggerType": "TypedString",
                "TypedString": ";two"}],
             "Actions": [{"MacroActionType": "InsertText", "Text": "a"},
                {"MacroActionType": "InsertText", "Text": "b"}]},
            {"Name": "Hot key only", "Actions": [{"MacroActionType": "InsertText"}]}]},
        {"Macros": [{"Triggers": []}]}]})");
    const Read expected{
        {{";sig", "Best {cursor}{clipboard} {clipboard:2}"}, {";st", "Date %ICUDateTime%dd%"}},
        {"Two steps: does more than insert text, so it stays a Keyboard Maestro "
         "macro."},
        {";st: styled text came over as plain text.", ";st: Keyboard Maestro tokens kept as text.",
         "2 macros without a typed-string trigger stayed in Keyboard Maestro."}};
    testing::TempFolder folder;
    for (bool binary : {true, false}) {
        const std::string bytes = plistBytes(macros, binary);
        EXPECT_EQ(flat(Importers::keyboardMaestro(bytes)), expected) << binary;
        writeText(folder / "Keyboard Maestro Macros.plist", bytes);
        EXPECT_EQ(flat(*Importers::readPath(folder / "Keyboard Maestro Macros.plist")), expected);
    }
    const json one = json::parse(R"({"MacroGroups": [{"Macros": [{"Name": "x"}]}]})");
    EXPECT_EQ(
        flat(Importers::keyboardMaestro(plistBytes(one, false))),
        (Read{{}, {}, {"1 macro without a typed-string trigger stayed in Keyboard Maestro."}}));
}

// A binary property list of the given objects (each its encoded bytes), the first at the top.
std::string binaryPlist(const std::vector<std::string>& objects) {
    std::string out = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
        table += static_cast<char>(out.size());
        out += object;
    }
    const std::size_t tableAt = out.size();
    out += table + std::string(6, '\0') + "\x01\x01";
    for (std::uint64_t n : {std::uint64_t{objects.size()}, std::uint64_t{0}, tableAt}) {
        for (int shift = 56; shift >= 0; shift -= 8) {
            out += static_cast<char>(n >> shift & 0xFF);
        }
    }
    return out;
}

TEST(ImportersTest, HostilePropertyListsAreRefused) {
    EXPECT_EQ(readPropertyList(binaryPlist({"\xA1\x01", "\x10\x05"})), json::array({5}));
    // An array holding itself, and thirty arrays each holding the next one twice.
    EXPECT_FALSE(readPropertyList(binaryPlist({std::string("\xA1\x00", 2)})));
    std::vector<std::string> doubling;
    for (char i = 1; i <= 30; ++i) {
        doubling.push_back(std::string("\xA2") + i + i);
    }
    doubling.push_back("\x10\x05");
    EXPECT_FALSE(readPropertyList(binaryPlist(doubling)));
    // A dictionary whose key holds a NUL, as ASCII and as UTF-16, would abort the parser.
    EXPECT_EQ(readPropertyList(binaryPlist({"\xD1\x01\x02", "\x51k", "\x10\x05"})),
              json({{"k", 5}}));
    EXPECT_FALSE(
        readPropertyList(binaryPlist({"\xD1\x01\x02", std::string("\x52k\0", 3), "\x10\x05"})));
    EXPECT_FALSE(
        readPropertyList(binaryPlist({"\xD1\x01\x02", std::string("\x61\0\0", 3), "\x10\x05"})));
    std::string deep = "<?xml version=\"1.0\"?><plist>";
    for (int i = 0; i < 100'000; ++i) {
        deep += "<array>";
    }
    EXPECT_FALSE(readPropertyList(deep + "</plist>"));
    EXPECT_FALSE(readPropertyList("bplist00" + std::string(40, '\xFF')));
    EXPECT_EQ(flat(Importers::keyboardMaestro("<?xml version=\"1.0\"?><plist><dict>")), Read{});
}

// Through the import of a file, which gives every abbreviation the ";" habit.
TEST(ImportersTest, ForeignExportsReadThroughTheFileImport) {
    const std::pair<std::string, Read> cases[] = {
        {R"({"snippetsTE2": [
                      {"abbreviation": "dt", "snippetType": 0, "plainText": "%Y-%m-%d and %d"},
                      {"abbreviation": "f", "snippetType": 0, "plainText":
                        "%filltext:name=who:default=you%%fillarea:name=a b:width=3% %clipboard%|"},
                      {"abbreviation": "p", "snippetType": 1, "plainText":
                        "%fillpopup:name=size:S:default=M:L% %fillpopup:name=x:a% 100%"},
                      {"abbreviation": "js", "snippetType": 3, "plainText": "x"}]})",
         {{{";dt", "%Y-%m-%d and %d"},
           {";f", "{field:who}{field:a b} {clipboard}{cursor}"},
           {";p", "{choice:size=M|S|L} {choice:x=a} 100%"}},
          {"js: a script or picture snippet."},
          {"dt: TextExpander macros (like dates) kept as text.",
           "p: rich text came over as plain text."}}},
        {R"([{"shortcut": "omw", "phrase": "On my way"}])", {{{";omw", "On my way"}}, {}, {}}},
        {R"([{"name": "Greet", "keyword": "!hi", "text":
                           "Hi {argument name=\"who\" default=\"you\"} {clipboard}{cursor}"},
                         {"name": "Today", "keyword": "td", "text": "{date format=\"d\"}"},
                         {"name": "Loose", "text": "x"}])",
         {{{";hi", "Hi {field:who} {clipboard}{cursor}"}, {";td", "{date format=\"d\"}"}},
          {"Loose: no keyword in Raycast."},
          {"td: Raycast date or clipboard options kept as text."}}},
        {R"({"alfredsnippet": {"keyword": "ad", "name": "Address", "snippet": "1 St"}})",
         {{{";ad", "1 St"}}, {}, {}}},
        // None of them: on to CSV.
        {R"([{"phrase": "x"}])", {{}, {"Row 1: needs an abbreviation and its text."}, {}}}};
    for (const auto& [text, read] : cases) {
        Transfer::Incoming in = Transfer::read(text, Importers::foreignJson);
        EXPECT_EQ(Read(testing::pairsOf(in.snippets), in.skipped, in.notes), read) << text;
    }
}

TEST(ImportersTest, HugeLinesAndDeepTreesEndQuietly) {
    const std::string line =
        "matches:\n  - trigger: :x\n    replace: " + std::string(20'000'000, 'y') + "\n";
    EXPECT_EQ(Importers::espansoFile(line).entries.size(), 1u);
    std::string unclosed;
    for (int i = 0; i < 100'000; ++i) {
        unclosed += R"({argument name=\"a\" {date )";
    }
    auto raycast = Importers::foreignJson(R"([{"keyword": "k", "text": ")" + unclosed + R"("}])");
    ASSERT_TRUE(raycast);
    EXPECT_EQ(raycast->entries.at(0).content.size(), unclosed.size() - 200'000);
    const std::string deep = std::string(100'000, '[') + std::string(100'000, ']');
    EXPECT_EQ(flat(Importers::aText(lz4Frame(deep))), Read{});
}

} // namespace
} // namespace quillet
