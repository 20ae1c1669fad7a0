#include "library/Usage.h"

#include "library/LibraryLocation.h"
#include "library/RunLoop.h"
#include "library/UsageWriter.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using namespace std::chrono_literals;
using List = std::vector<Snippet>;

const Date now{760000000};

Date daysAgo(double days) {
    return Date{now.seconds - days * 86400};
}

Snippet snippet(const char* abbreviation, std::optional<Date> created = std::nullopt) {
    Snippet s = Snippet::make();
    s.abbreviation = abbreviation;
    s.created = created;
    return s;
}

TEST(Usage, RecordUndoAndSeedKeepCountsTotalsAgesAndTheTimeSaved) {
    Usage usage;
    const Uuid a = Uuid::random(), b = Uuid::random(), fresh = Uuid::random();
    usage.record(a, 12, now); // a first record counts 1, not 0
    usage.record(a, 8, daysAgo(-1));
    usage.record(b, -5, now);                      // a negative count spares nothing
    usage.undo(a, 30);                             // leaves the last use alone
    usage.undo(Uuid::random(), 40);                // adds no entry; totals may go below zero
    usage.seed({a, b, fresh, fresh}, daysAgo(-2)); // only new ids start ageing
    EXPECT_EQ(usage.expansions, 1);
    EXPECT_EQ(usage.characters, -50);
    EXPECT_EQ(usage.uses, (FlatMap<Uuid, Usage::Use>{
                              {a, {1, daysAgo(-1)}}, {b, {1, now}}, {fresh, {0, daysAgo(-2)}}}));

    EXPECT_EQ(usage.timeSaved("en_US"), std::nullopt); // none spared: a hint is shown instead
    usage.characters = 300;
    EXPECT_EQ(usage.timeSaved("en_US"), "1m 30s");
    EXPECT_EQ(usage.timeSaved("fr_FR"), "1min 30s");
    // Seconds below the two units shown are dropped, not rounded; hours are the largest unit.
    const std::pair<std::int64_t, const char*> durations[] = {
        {0, "0s"}, {3605, "1h"}, {3725, "1h 2m"}, {90061, "25h 1m"}};
    for (const auto& [seconds, text] : durations) {
        EXPECT_EQ(formatDuration(seconds, "en_US"), text) << seconds;
    }
}

TEST(Usage, StaleRecentAndSortedListsKeepLibraryOrderAmongEquals) {
    Snippet zeta = snippet("Zeta", Date{300}), alpha = snippet("alpha", Date{100}),
            seeded = snippet("seeded"), alphaUpper = snippet("ALPHA", Date{300}),
            beta = snippet("beta", Date{200}), archived = snippet("archived"),
            unnamed = snippet(""), unknown = snippet("unknown");
    archived.archived = true;
    const List library{zeta, alpha, seeded, alphaUpper, beta, archived, unnamed, unknown};
    Usage usage;
    usage.record(zeta.id, 1, now);
    usage.undo(zeta.id, 1); // back to 0: no longer used
    usage.record(alpha.id, 1, daysAgo(7));
    usage.record(alphaUpper.id, 1, daysAgo(7));
    usage.record(beta.id, 1, daysAgo(200));
    usage.record(beta.id, 1, daysAgo(2));
    usage.seed({seeded.id, archived.id, unnamed.id}, daysAgo(183));

    // Live, with an abbreviation, and last used before the cut-off (exactly at it is not).
    EXPECT_EQ(usage.stale(library, daysAgo(7)), List{seeded});
    EXPECT_EQ(usage.stale(library, daysAgo(1)), (List{alpha, seeded, alphaUpper, beta}));
    EXPECT_EQ(usage.recent(library, daysAgo(7)), (List{beta, alpha, alphaUpper}));
    EXPECT_EQ(usage.sorted(library, Usage::Order::mostUsed),
              (List{beta, alpha, alphaUpper, zeta, seeded, archived, unnamed, unknown}));
    EXPECT_EQ(usage.sorted(library, Usage::Order::newest),
              (List{zeta, alphaUpper, beta, alpha, seeded, archived, unnamed, unknown}));
    EXPECT_EQ(usage.sorted(library, Usage::Order::alphabetical),
              (List{unnamed, alpha, alphaUpper, archived, beta, seeded, unknown, zeta}));
}

TEST(Usage, EncodingAlternatesIdentifierAndRecordAndRefusesAnythingElse) {
    const std::string id = R"("E621E1F8-C36C-495A-93FC-0C247A3E6E5F")";
    Usage usage;
    usage.record(*Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f"), 42, Date{725760001.5});
    usage.undo(Uuid::random(), 50);
    EXPECT_EQ(encodeUsage(usage), R"({"characters":-8,"expansions":0,"uses":[)" + id +
                                      R"(,{"count":1,"last":725760001.5}]})");
    std::string error;
    EXPECT_EQ(decodeUsage(encodeUsage(usage), error), usage) << error;
    // Other encoders write whole numbers as floats, lower-case identifiers and more keys.
    const std::string other = R"({"uses":["e621e1f8-c36c-495a-93fc-0c247a3e6e5f",{"count":1.0,)"
                              R"("last":725760001.5,"x":1}],"expansions":0.0,"characters":-8})";
    EXPECT_EQ(decodeUsage(other, error), usage) << error;

    const std::string refused[] = {
        R"({"uses":[],"expansions":1,"charac)",
        R"({"uses":[],"expansions":1.5,"characters":2})",
        R"({"uses":[],"expansions":1,"characters":1e300})",
        R"({"uses":{},"expansions":1,"characters":2})",
        R"({"uses":[)" + id + R"(],"expansions":1,"characters":2})",
        R"({"uses":["nope",{"count":1,"last":0}],"expansions":1,"characters":2})",
    };
    for (const std::string& bytes : refused) {
        EXPECT_FALSE(decodeUsage(bytes, error)) << bytes;
    }
}

TEST(UsageFile, IsPrivateStaysHereWhileSyncedAndIsNeverLostOrOverwritten) {
    testing::TempFolder temp;
    const std::filesystem::path file = temp / "data" / "quillet" / "usage.json";
    MemoryPreferences preferences(
        nlohmann::json{{"sync", true}, {"syncFolder", (temp / "Sync").string()}});
    LibraryLocation location(preferences,
                             Folders::forHome(temp.path(), (temp / "data").string(), ""));
    ASSERT_TRUE(location.isSynced());
    UsageFile usageFile(location.usageFile());
    Usage saved;
    saved.record(Uuid::random(), 300, now);
    EXPECT_FALSE(usageFile.save(saved)) << "nothing is written before the file was read";
    EXPECT_EQ(usageFile.load(), Usage{});
    ASSERT_TRUE(usageFile.save(saved)) << usageFile.lastError();
    EXPECT_EQ(testing::modeOf(file), 0600U);
    // A write that stops partway is the atomic write's case (the store's crash test).

    // One that does not decode is set aside first, under a numbered name when it is taken.
    const std::string truncated = encodeUsage(saved).substr(0, 30);
    const std::string wrongType = R"({"uses":[],"expansions":"many","characters":0})";
    const std::string huge = R"({"uses":[],"expansions":1e999,"characters":0})";
    for (const std::string& bad : {truncated, wrongType, huge}) {
        testing::writeText(file, bad);
        UsageFile damaged(file);
        EXPECT_EQ(damaged.load(), Usage{});
        EXPECT_EQ(damaged.status(), UsageFile::Status::setAside);
        EXPECT_TRUE(damaged.save(saved)) << damaged.lastError();
    }
    EXPECT_EQ(testing::contentsOf(file.string() + ".damaged"), truncated);
    EXPECT_EQ(testing::contentsOf(file.string() + ".damaged-2"), wrongType);
    EXPECT_EQ(testing::contentsOf(file.string() + ".damaged-3"), huge);

    // One it cannot read stays, though the folders would let anyone replace it.
    for (const auto& folder : {temp.path(), temp / "data", file.parent_path()}) {
        std::filesystem::permissions(folder, std::filesystem::perms::all);
    }
    std::filesystem::permissions(file, std::filesystem::perms::none);
    const int status = testing::asNobody([&] {
        UsageFile unreadable(file);
        Usage none;
        return unreadable.load() != Usage{} ||
               unreadable.status() != UsageFile::Status::unreadable || unreadable.save(none);
    });
    EXPECT_EQ(status, 0);
    // Once it reads again, what the session counted meanwhile is added: see below.
}

TEST(UsageWriter, WritesAfterTheDelayFromTheMainThreadsRecordAndWhatIsLeftAtTheEnd) {
    testing::TempFolder temp;
    const std::filesystem::path path = temp / "usage.json";
    const Uuid id = Uuid::random();
    RunLoop loop;
    UsageFile file(path);
    Usage usage = file.load();
    {
        UsageWriter writer(file, usage, loop, 50ms);
        usage.seed({id}, now);
        writer.changed();
        usage.record(id, 10, now);
        writer.changed();
        EXPECT_FALSE(std::filesystem::exists(path)) << "never written on the caller's path";
        // The worker tells the loop nothing, so the file is looked at now and then.
        for (int i = 0; i < 250 && UsageFile(path).load() != usage; ++i) {
            loop.runFor(20ms);
        }
        ASSERT_EQ(UsageFile(path).load(), usage);

        // A change the timer has not written yet is written when the writer goes.
        usage.record(id, 5, now);
        writer.changed();
    }
    EXPECT_EQ(UsageFile(path).load(), usage);
    EXPECT_EQ(usage.uses.at(id).count, 2);
}

TEST(UsageWriter, AddsTheFilesRecordOnceItReadsAgain) {
    testing::TempFolder temp;
    const std::filesystem::path path = temp / "usage.json";
    std::filesystem::create_directory(path); // in the way: the file cannot be read
    RunLoop loop;
    UsageFile file(path);
    Usage usage = file.load();
    ASSERT_EQ(file.status(), UsageFile::Status::unreadable);
    UsageWriter writer(file, usage, loop);

    const Uuid id = Uuid::random();
    usage.record(id, 3, now);
    writer.changed();
    writer.flush(); // refused: the record stays in memory
    EXPECT_TRUE(std::filesystem::is_directory(path));

    std::filesystem::remove(path);
    Usage before;
    before.record(id, 4, now);
    std::string error;
    ASSERT_TRUE(UsageFile::write(path, before, error)) << error;
    usage.record(id, 1, now);
    writer.changed();
    writer.flush();
    EXPECT_EQ(usage.uses.at(id).count, 3); // the file's one and the session's two
    EXPECT_EQ(usage.characters, 8);
    EXPECT_EQ(UsageFile(path).load(), usage);
}

} // namespace
} // namespace quillet
