#include "render/Expansion.h"

#include <chrono>
#include <gtest/gtest.h>

namespace quillet {
namespace {

using namespace std::chrono;
using Step = Expansion::Step;
using Text = Expansion::Text;
using Key = Expansion::Key;
using Values = Expansion::Values;
using Asked = std::vector<std::vector<Tokens::Field>>;

// Saturday 14 November 2026, 5:51 PM in New York.
const RenderContext context{Date::fromTimePoint(sys_days(2026y / 11 / 14) + 22h + 51min),
                            "en_US",
                            "America/New_York",
                            "gregorian",
                            {"copied"}};

// A form that answers with fixed values and remembers the fields it was shown.
Expansion::AskValues form(std::optional<Values> answer, Asked& asked) {
    return [answer, &asked](const std::vector<Tokens::Field>& fields) {
        asked.push_back(fields);
        return answer;
    };
}

TEST(Expansion, RunsEveryStageInOrder) {
    std::vector<Snippet> library(2);
    library[0].abbreviation = ";sig";
    library[0].content = "{field:Name}{key:return}Best";
    library[1].abbreviation = ";me";
    library[1].content = "me{snippet:;me}";
    Asked asked;
    EXPECT_EQ(Expansion::plan("Hi {field:Name=Bo},{key:tab}{snippet:;sig} {date} {clipboard}"
                              "{cursor}!{key:enter}",
                              ";mail", library, form(Values{{"Name", "Ann"}}, asked), context),
              (std::vector<Step>{Text{"Hi Ann,", 0}, Key{{48, 0}}, Text{"Ann", 0}, Key{{36, 0}},
                                 Text{"Best Nov 14, 2026 copied!", 1},
                                 Expansion::Literal{"{key:enter}"}}));
    EXPECT_EQ(asked, (Asked{{{"Name", {"Bo"}, false}}})); // once, the included field being the same

    // Values are filled after the split at keys, and then rendered; empty text steps are left out.
    EXPECT_EQ(
        Expansion::plan("{field:x}{clipboard:9}{key:up}{field:v}{choice:v=a|b}", ";x", {},
                        form(Values{{"v", "{key:tab}{date}"}}, asked), context),
        (std::vector<Step>{Key{{126, 0}}, Text{"{key:tab}Nov 14, 2026{key:tab}Nov 14, 2026", 0}}));

    // The snippet's own abbreviation is on the include path from the start.
    EXPECT_EQ(Expansion::plan(library[1], library, nullptr, context),
              (std::vector<Step>{Text{"me{snippet:;me}", 0}}));
    EXPECT_EQ(Expansion::plan(library[1].content, ";other", library, nullptr, context),
              (std::vector<Step>{Text{"meme{snippet:;me}", 0}}));

    // The command-line tool fills before splitting, so a value holding a key token is split away
    // like one written in the template, and the caret mark counts once for the whole text.
    EXPECT_EQ(Expansion::text("Hi {field:Name},{key:tab}{snippet:;sig}{cursor} {date}{key:enter}"
                              "{cursor}{field:Missing}.",
                              ";mail", library, {{"Name", "Ann{key:tab}"}}, context),
              "Hi Ann,AnnBest Nov 14, 2026{cursor}.");
}

TEST(Expansion, FormIsAskedOnlyForFieldsAndMayCancelOrTakeTheDefaults) {
    Asked asked;
    EXPECT_EQ(Expansion::plan("plain {key:tab}", ";x", {}, form(std::nullopt, asked), context),
              (std::vector<Step>{Text{"plain ", 0}, Key{{48, 0}}}));
    EXPECT_FALSE(Expansion::plan("{field:a}", ";x", {}, form(std::nullopt, asked), context));
    EXPECT_EQ(asked.size(), 1u); // for the second template only
    EXPECT_FALSE(Expansion::plan("{choice:a=b}", ";x", {}, nullptr, context)); // nobody to ask
    // Defaults are each field's first option that is not a heading.
    EXPECT_EQ(Expansion::plan("{choice:Time=#Morning|9:00|10:00}|{choice:Only=#Heading}|"
                              "{field:Name=Bob}|{field:Free}.",
                              ";x", {}, Expansion::defaults, context),
              (std::vector<Step>{Text{"9:00||Bob|.", 0}}));
}

} // namespace
} // namespace quillet
