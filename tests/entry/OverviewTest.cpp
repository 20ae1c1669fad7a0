#include "entry/Overview.h"

#include "support/Snippets.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using testing::snippet;

std::vector<std::string> abbreviations(const Overview::List& list) {
    std::vector<std::string> out;
    for (const auto& line : list.lines) {
        out.push_back(line.abbreviation + " " + line.detail);
    }
    return out;
}

TEST(Overview, FiguresAndListsFollowTheCountsWithTheirEmptyTexts) {
    std::vector<Snippet> library;
    for (const char* name : {";a", ";b", ";c", ";d", ";e", ";f", ";g"}) {
        library.push_back(snippet(name, std::string("text of ") + name + "\nsecond line"));
    }
    library[6].archived = true;
    library[5].locked = true;
    Usage usage;
    Overview overview([&]() -> const std::vector<Snippet>& { return library; },
                      [&] { return &usage; }, "en_US");
    EXPECT_EQ(overview.saved(), std::nullopt);
    EXPECT_EQ(overview.savedDetail(), "Type an abbreviation anywhere and it counts here.");
    EXPECT_EQ(overview.mostUsed().lines.size(), 0u);
    EXPECT_EQ(overview.stale().emptyTitle, "Everything's in use");
    EXPECT_EQ(overview.stale().emptyDetail, "You've used every snippet in the last 6 months.");

    const Date now{800'000'000};
    const double day = 86'400;
    usage.seed({library[4].id, library[5].id}, Date{now.seconds - 183 * day});
    usage.record(library[0].id, 150, Date{now.seconds - 8 * day});
    for (int i = 0; i < 3; ++i) {
        usage.record(library[1].id, 50, Date{now.seconds - 1 * day});
    }
    usage.record(library[2].id, 0, Date{now.seconds - 2 * day});
    usage.record(library[3].id, 0, Date{now.seconds - 181 * day});
    for (int i = 0; i < 5; ++i) {
        usage.record(library[6].id, 0, Date{now.seconds});
    }
    EXPECT_EQ(overview.saved(), "1m 30s");
    EXPECT_EQ(overview.savedDetail(), "300 characters you didn't type in 11 expansions.");
    EXPECT_EQ(abbreviations(overview.mostUsed()),
              (std::vector<std::string>{";b 3 times", ";a once", ";c once", ";d once"}))
        << "archived ones left out";
    EXPECT_EQ(overview.recent(now).title, "Used in the last 7 days, latest first");
    EXPECT_EQ(abbreviations(overview.recent(now)),
              (std::vector<std::string>{";g text of ;g", ";b text of ;b", ";c text of ;c"}));
    EXPECT_EQ(abbreviations(overview.stale(now)),
              (std::vector<std::string>{";e text of ;e", ";f Locked"}))
        << "181 days is not stale; never used since seeded 183 days ago is";
}

} // namespace
} // namespace quillet
