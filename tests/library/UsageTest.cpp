#include "library/Usage.h"

#include "library/LibraryLocation.h"
#include "support/TempFolder.h"

#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quillet {
namespace {

using testing::asNobody;
using testing::contentsOf;
using testing::entriesOf;
using testing::modeOf;
using testing::TempFolder;
using testing::writeText;

constexpr double day = 86400;
const Date now{760000000};

Snippet snippet(const char* abbreviation) {
    Snippet s = Snippet::make();
    s.abbreviation = abbreviation;
    s.content = std::string("text of ") + abbreviation;
    return s;
}

std::vector<std::string> abbreviations(const std::vector<Snippet>& snippets) {
    std::vector<std::string> result;
    for (const auto& s : snippets) {
        result.push_back(s.abbreviation);
    }
    return result;
}

using Names = std::vector<std::string>;

TEST(UsageCounting, RecordAndUndoKeepTotalsAndCounts) {
    Usage usage;
    Uuid a = Uuid::random();
    Uuid b = Uuid::random();

    usage.record(a, 12, now);
    EXPECT_EQ(usage.uses.at(a), (Usage::Use{1, now})); // a first record counts 1, not 0
    usage.record(a, 8, Date{now.seconds + 60});
    usage.record(b, -5, now); // a negative count spares nothing
    EXPECT_EQ(usage.expansions, 3);
    EXPECT_EQ(usage.characters, 20);
    EXPECT_EQ(usage.uses.at(a), (Usage::Use{2, Date{now.seconds + 60}}));
    EXPECT_EQ(usage.uses.at(b).count, 1);

    Usage before = usage;
    usage.record(a, 30, Date{now.seconds + 120});
    usage.undo(a, 30);
    EXPECT_EQ(usage.expansions, before.expansions);
    EXPECT_EQ(usage.characters, before.characters);
    EXPECT_EQ(usage.uses.at(a).count, 2);
    EXPECT_EQ(usage.uses.at(a).last, Date{now.seconds + 120}); // an undo leaves last alone
}

TEST(UsageCounting, UndoWithoutARecordGoesNegativeAndAddsNoEntry) {
    Usage usage;
    Uuid id = Uuid::random();
    usage.undo(id, 40);
    usage.undo(id, -3);
    EXPECT_EQ(usage.expansions, -2);
    EXPECT_EQ(usage.characters, -40);
    EXPECT_TRUE(usage.uses.empty());

    usage.seed({id}, now);
    usage.undo(id, 0);
    EXPECT_EQ(usage.uses.at(id).count, -1);
}

TEST(UsageCounting, SeedStartsAgeingOnlyForNewIds) {
    Usage usage;
    Uuid used = Uuid::random();
    Uuid fresh = Uuid::random();
    usage.record(used, 5, now);
    usage.seed({used, fresh, fresh}, Date{now.seconds + day});
    EXPECT_EQ(usage.uses.at(used), (Usage::Use{1, now}));
    EXPECT_EQ(usage.uses.at(fresh), (Usage::Use{0, Date{now.seconds + day}}));
    EXPECT_EQ(usage.expansions, 1);
}

TEST(UsageLists, StaleMeansLiveAbbreviatedAndUnusedSinceTheCutOff) {
    Snippet recent = snippet(";recent");
    Snippet old = snippet(";old");
    Snippet seededLongAgo = snippet(";seeded");
    Snippet unknown = snippet(";unknown");
    Snippet archived = snippet(";archived");
    archived.archived = true;
    Snippet unnamed = snippet("");
    std::vector<Snippet> library{recent, old, seededLongAgo, unknown, archived, unnamed};

    Usage usage;
    usage.record(recent.id, 3, Date{now.seconds - 181 * day});
    usage.record(old.id, 3, Date{now.seconds - 200 * day});
    usage.seed({seededLongAgo.id, archived.id, unnamed.id}, Date{now.seconds - 183 * day});

    Date cutOff{now.seconds - staleAfterSeconds};
    EXPECT_EQ(abbreviations(usage.stale(library, cutOff)), (Names{";old", ";seeded"}));
    // Exactly at the cut-off is not before it.
    usage.uses[old.id].last = cutOff;
    EXPECT_EQ(abbreviations(usage.stale(library, cutOff)), (Names{";seeded"}));
}

TEST(UsageLists, RecentIsUsedSinceLatestFirstWithTiesInLibraryOrder) {
    Snippet a = snippet(";a");
    Snippet b = snippet(";b");
    Snippet c = snippet(";c");
    Snippet d = snippet(";d");
    Snippet seeded = snippet(";seeded");
    std::vector<Snippet> library{a, b, c, d, seeded};

    Usage usage;
    Date since{now.seconds - 7 * day};
    usage.record(a.id, 1, Date{now.seconds - 2 * day});
    usage.record(b.id, 1, Date{now.seconds - 8 * day}); // too old
    usage.record(c.id, 1, now);
    usage.record(d.id, 1, Date{now.seconds - 2 * day});
    usage.record(b.id, 1, since); // the boundary counts
    usage.seed({seeded.id}, now);

    EXPECT_EQ(abbreviations(usage.recent(library, since)), (Names{";c", ";a", ";d", ";b"}));
    usage.undo(c.id, 1); // back to count 0: no longer "used"
    EXPECT_EQ(abbreviations(usage.recent(library, since)), (Names{";a", ";d", ";b"}));
}

TEST(UsageLists, SortedOrdersAreStableAmongEquals) {
    Snippet zeta = snippet("Zeta");
    Snippet alpha = snippet("alpha");
    Snippet alphaUpper = snippet("ALPHA");
    Snippet beta = snippet("beta");
    Snippet undated = snippet("undated");
    zeta.created = Date{300};
    alpha.created = Date{100};
    alphaUpper.created = Date{300};
    beta.created = Date{200};
    undated.created.reset();
    std::vector<Snippet> library{zeta, alpha, undated, alphaUpper, beta};

    Usage usage;
    for (int i = 0; i < 3; ++i) {
        usage.record(beta.id, 1, now);
    }
    usage.record(alpha.id, 1, now);
    usage.record(zeta.id, 1, now);
    usage.seed({undated.id}, now);

    EXPECT_EQ(abbreviations(usage.sorted(library, Usage::Order::mostUsed)),
              (Names{"beta", "Zeta", "alpha", "undated", "ALPHA"}));
    EXPECT_EQ(abbreviations(usage.sorted(library, Usage::Order::newest)),
              (Names{"Zeta", "ALPHA", "beta", "alpha", "undated"}));
    EXPECT_EQ(abbreviations(usage.sorted(library, Usage::Order::alphabetical)),
              (Names{"alpha", "ALPHA", "beta", "undated", "Zeta"}));

    for (auto order : {Usage::Order::mostUsed, Usage::Order::newest, Usage::Order::alphabetical}) {
        EXPECT_EQ(orderFromRaw(rawValue(order)), order);
    }
    EXPECT_EQ(rawValue(Usage::Order::mostUsed), "mostUsed");
    EXPECT_EQ(orderFromRaw("MostUsed"), std::nullopt);
}

TEST(UsageTimeSaved, IsTypingTimeInAtMostTwoAbbreviatedUnits) {
    Usage usage;
    EXPECT_EQ(usage.timeSaved("en_US"), std::nullopt); // the hint is shown instead
    usage.characters = 300;
    EXPECT_EQ(usage.timeSaved("en_US"), "1m 30s");
    usage.characters = -10;
    EXPECT_EQ(usage.timeSaved("en_US"), std::nullopt);

    EXPECT_EQ(typingSeconds(1), 0); // 0.3 s
    EXPECT_EQ(typingSeconds(2), 1); // 0.6 s
    EXPECT_EQ(typingSeconds(10), 3);
    EXPECT_EQ(typingSeconds(1'000'000), 300'000);

    EXPECT_EQ(formatDuration(0, "en_US"), "0s");
    EXPECT_EQ(formatDuration(59, "en_US"), "59s");
    EXPECT_EQ(formatDuration(3600, "en_US"), "1h");
    EXPECT_EQ(formatDuration(3900, "en_US"), "1h 5m");
    EXPECT_EQ(formatDuration(3605, "en_US"), "1h");      // seconds are below the two units shown
    EXPECT_EQ(formatDuration(3725, "en_US"), "1h 2m");   // and are dropped, not rounded
    EXPECT_EQ(formatDuration(90061, "en_US"), "25h 1m"); // hours are the largest unit
    EXPECT_EQ(formatDuration(-5, "en_US"), "0s");
    EXPECT_EQ(formatDuration(90, "en-US"), "1m 30s");
    EXPECT_EQ(formatDuration(90, "fr_FR"), "1min 30s");
}

TEST(UsageEncoding, UsesAlternateIdentifierAndRecord) {
    Usage usage;
    Uuid id = *Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    usage.record(id, 42, Date{725760000.5});
    usage.record(id, 0, Date{725760001.5});
    EXPECT_EQ(encodeUsage(usage),
              R"({"characters":42,"expansions":2,"uses":["E621E1F8-C36C-495A-93FC-0C247A3E6E5F",)"
              R"({"count":2,"last":725760001.5}]})");
    EXPECT_EQ(encodeUsage(Usage{}), R"({"characters":0,"expansions":0,"uses":[]})");

    Usage many;
    for (int i = 0; i < 50; ++i) {
        many.record(Uuid::random(), i, Date{now.seconds + i});
    }
    many.undo(Uuid::random(), 1000);
    std::string error;
    EXPECT_EQ(decodeUsage(encodeUsage(many), error), many) << error;
}

TEST(UsageEncoding, ReadsWhatOtherEncodersWrite) {
    std::string error;
    auto usage = decodeUsage(R"({ "uses" : [ "e621e1f8-c36c-495a-93fc-0c247a3e6e5f",
        {"last": 725760000, "count": 3.0, "extra": true} ], "expansions": 3.0,
        "characters": -12, "version": 2 })",
                             error);
    ASSERT_TRUE(usage) << error;
    EXPECT_EQ(usage->expansions, 3);
    EXPECT_EQ(usage->characters, -12);
    EXPECT_EQ(usage->uses.at(*Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F")),
              (Usage::Use{3, Date{725760000}}));
}

TEST(UsageEncoding, RefusesDamagedContentWithAReason) {
    const std::string id = R"("E621E1F8-C36C-495A-93FC-0C247A3E6E5F")";
    struct Case {
        std::string bytes;
        std::string reason;
    };
    const Case cases[] = {
        {R"({"uses":[],"expansions":1,"charac)", "not valid JSON"},
        {"[]", "does not hold a JSON object"},
        {R"({"uses":[],"expansions":1})", "no \"characters\""},
        {R"({"expansions":1,"characters":2})", "no \"uses\""},
        {R"({"uses":[],"expansions":"1","characters":2})", "\"expansions\" is not a whole number"},
        {R"({"uses":[],"expansions":1.5,"characters":2})", "\"expansions\" is not a whole number"},
        {R"({"uses":[],"expansions":1,"characters":1e300})", "\"characters\" is not a whole"},
        {R"({"uses":{},"expansions":1,"characters":2})", "not a list"},
        {R"({"uses":[)" + id + R"(],"expansions":1,"characters":2})", "not a list"},
        {R"({"uses":["nope",{"count":1,"last":0}],"expansions":1,"characters":2})",
         "Entry 1 of the usage file has no valid snippet identifier"},
        {R"({"uses":[)" + id + R"(,{"last":0}],"expansions":1,"characters":2})",
         "has no \"count\""},
        {R"({"uses":[)" + id + R"(,{"count":1}],"expansions":1,"characters":2})",
         "has no \"last\""},
        {R"({"uses":[)" + id + R"(,{"count":1,"last":"today"}],"expansions":1,"characters":2})",
         "\"last\" that is not a number"},
    };
    for (const auto& c : cases) {
        std::string error;
        EXPECT_FALSE(decodeUsage(c.bytes, error)) << c.bytes;
        EXPECT_NE(error.find(c.reason), std::string::npos) << c.bytes << "\n" << error;
    }
}

class UsageFileTest : public ::testing::Test {
protected:
    TempFolder temp;
    std::filesystem::path file = temp / "data" / "quillet" / "usage.json";

    static Usage sample() {
        Usage usage;
        usage.record(Uuid::random(), 300, now);
        usage.seed({Uuid::random()}, now);
        return usage;
    }
};

TEST_F(UsageFileTest, SaveCreatesPrivateFileThatLoadsBack) {
    UsageFile usageFile(file);
    EXPECT_EQ(usageFile.load(), Usage{});
    EXPECT_EQ(usageFile.status(), UsageFile::Status::missing);

    Usage usage = sample();
    ASSERT_TRUE(usageFile.save(usage)) << usageFile.lastError();
    EXPECT_EQ(modeOf(temp / "data"), 0700U);
    EXPECT_EQ(modeOf(file), 0600U);
    EXPECT_EQ(contentsOf(file), encodeUsage(usage));
    EXPECT_EQ(entriesOf(file.parent_path()), Names{"usage.json"});

    UsageFile reopened(file);
    EXPECT_EQ(reopened.load(), usage);
    EXPECT_EQ(reopened.status(), UsageFile::Status::ok);
}

TEST_F(UsageFileTest, StaysLocalWhenTheLibraryIsSynced) {
    MemoryPreferences preferences(
        nlohmann::json{{"sync", true}, {"syncFolder", (temp / "Sync").string()}});
    LibraryLocation location(preferences,
                             Folders::forHome(temp / "home", (temp / "data").string(), ""));
    ASSERT_TRUE(location.isSynced());

    UsageFile usageFile(location.usageFile());
    usageFile.load();
    ASSERT_TRUE(usageFile.save(sample())) << usageFile.lastError();
    EXPECT_TRUE(std::filesystem::exists(file));
    EXPECT_FALSE(std::filesystem::exists(temp / "Sync"));
}

TEST_F(UsageFileTest, NothingIsWrittenBeforeTheFileWasRead) {
    std::filesystem::create_directories(file.parent_path());
    writeText(file, encodeUsage(sample()));
    UsageFile usageFile(file);
    EXPECT_FALSE(usageFile.save(Usage{}));
    EXPECT_NE(usageFile.lastError().find("not read yet"), std::string::npos);
    EXPECT_NE(contentsOf(file), encodeUsage(Usage{}));
}

TEST_F(UsageFileTest, DamagedFilesAreMovedAsideAndNeverOverwritten) {
    std::filesystem::create_directories(file.parent_path());
    const std::string truncated = encodeUsage(sample()).substr(0, 30);
    const std::string wrongType = R"({"uses":[],"expansions":"many","characters":0})";

    writeText(file, truncated);
    UsageFile usageFile(file);
    EXPECT_EQ(usageFile.load(), Usage{});
    EXPECT_EQ(usageFile.status(), UsageFile::Status::setAside);
    EXPECT_EQ(usageFile.setAsidePath(), file.string() + ".damaged");
    EXPECT_NE(usageFile.lastError().find("not valid JSON"), std::string::npos);
    EXPECT_NE(usageFile.lastError().find("usage.json.damaged"), std::string::npos);
    Usage fresh = sample();
    ASSERT_TRUE(usageFile.save(fresh)) << usageFile.lastError();

    writeText(file, wrongType);
    EXPECT_EQ(usageFile.load(), Usage{});
    EXPECT_EQ(usageFile.setAsidePath(), file.string() + ".damaged-2");

    EXPECT_EQ(entriesOf(file.parent_path()), (Names{"usage.json.damaged", "usage.json.damaged-2"}));
    EXPECT_EQ(contentsOf(file.string() + ".damaged"), truncated);
    EXPECT_EQ(contentsOf(file.string() + ".damaged-2"), wrongType);
}

TEST_F(UsageFileTest, AFolderInTheWayIsLeftAlone) {
    std::filesystem::create_directories(file / "inside");
    UsageFile usageFile(file);
    EXPECT_EQ(usageFile.load(), Usage{});
    EXPECT_EQ(usageFile.status(), UsageFile::Status::unreadable);
    EXPECT_NE(usageFile.lastError().find("folder"), std::string::npos) << usageFile.lastError();
    EXPECT_FALSE(usageFile.save(sample()));
    EXPECT_TRUE(std::filesystem::is_directory(file / "inside"));
}

TEST_F(UsageFileTest, AFileThatCannotBeReadIsNeverReplaced) {
    // The folder lets anyone replace entries, so only the refusal protects the file.
    std::filesystem::create_directories(file.parent_path());
    for (const auto& folder : {temp.path(), temp / "data", file.parent_path()}) {
        ::chmod(folder.c_str(), 0777);
    }
    const std::string original = encodeUsage(sample());
    writeText(file, original);
    ::chmod(file.c_str(), 0000);

    int result = asNobody([&] {
        UsageFile usageFile(file);
        if (usageFile.load() != Usage{} || usageFile.status() != UsageFile::Status::unreadable) {
            return 1;
        }
        if (usageFile.save(Usage{})) {
            return 2;
        }
        return usageFile.lastError().find("left as it is") == std::string::npos ? 3 : 0;
    });
    EXPECT_EQ(result, 0);
    ::chmod(file.c_str(), 0600);
    EXPECT_EQ(contentsOf(file), original);
}

TEST_F(UsageFileTest, AWriteThatFailsMidwayKeepsTheOldFile) {
    UsageFile usageFile(file);
    usageFile.load();
    Usage small = sample();
    ASSERT_TRUE(usageFile.save(small)) << usageFile.lastError();
    Usage large = small;
    for (int i = 0; i < 200; ++i) {
        large.record(Uuid::random(), i, now);
    }

    // A file size limit makes the write stop partway, as a full disk would.
    pid_t child = ::fork();
    if (child == 0) {
        ::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{1024, 1024};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        bool saved = usageFile.save(large);
        ::_exit(saved ? 1 : usageFile.lastError().empty() ? 2 : 0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(contentsOf(file), encodeUsage(small));
    EXPECT_EQ(entriesOf(file.parent_path()), Names{"usage.json"});
}

} // namespace
} // namespace quillet
