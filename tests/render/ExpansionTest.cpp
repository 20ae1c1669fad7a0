#include "render/Expansion.h"

#include <chrono>
#include <gtest/gtest.h>

namespace quillet {
namespace {

using namespace std::chrono;
using Step = Expansion::Step;
using Text = Expansion::Text;
using Key = Expansion::Key;
using Literal = Expansion::Literal;
using Values = Expansion::Values;

// Saturday 14 November 2026, 5:51 PM in New York.
RenderContext context() {
    return {Date::fromTimePoint(sys_days(2026y / 11 / 14) + 22h + 51min),
            "en_US",
            "America/New_York",
            "gregorian",
            {"copied"}};
}

Snippet snippet(std::string abbreviation, std::string content) {
    Snippet s;
    s.abbreviation = std::move(abbreviation);
    s.content = std::move(content);
    return s;
}

// Answers every form with fixed values and remembers the fields it was shown.
struct Form {
    std::optional<Values> answer;
    std::vector<std::vector<Tokens::Field>> asked;

    Expansion::AskValues ask() {
        return [this](const std::vector<Tokens::Field>& fields) {
            asked.push_back(fields);
            return answer;
        };
    }
};

TEST(Expansion, RunsEveryStageInOrder) {
    const std::vector<Snippet> library{snippet(";sig", "{field:Name}{key:return}Best"),
                                       snippet(";mail", "unused")};
    Form form{Values{{"Name", "Ann"}}, {}};
    auto steps =
        Expansion::plan("Hi {field:Name=Bo},{key:tab}{snippet:;sig} {date} {clipboard}{cursor}!"
                        "{key:enter}",
                        ";mail", library, form.ask(), context());
    ASSERT_TRUE(steps);
    EXPECT_EQ(*steps,
              (std::vector<Step>{Text{"Hi Ann,", 0}, Key{{48, 0}}, Text{"Ann", 0}, Key{{36, 0}},
                                 Text{"Best Nov 14, 2026 copied!", 1}, Literal{"{key:enter}"}}));
    // The included snippet's field is the same field; the form sees it once.
    ASSERT_EQ(form.asked.size(), 1u);
    EXPECT_EQ(form.asked[0], (std::vector<Tokens::Field>{{"Name", {"Bo"}, false}}));
}

TEST(Expansion, CommandLineTextFillsBeforeSplittingAndRendersOnce) {
    const std::vector<Snippet> library{snippet(";sig", "{field:Name}{key:return}Best")};
    // A value holding a key token is split away like one written in the template, and the caret
    // mark counts once for the whole text.
    EXPECT_EQ(Expansion::text("Hi {field:Name},{key:tab}{snippet:;sig}{cursor} {date}{key:enter}"
                              "{cursor}{field:Missing}.",
                              ";mail", library, {{"Name", "Ann{key:tab}"}}, context()),
              "Hi Ann,AnnBest Nov 14, 2026{cursor}.");
}

TEST(Expansion, ValuesAreFilledAfterTheSplitAtKeysAndThenRendered) {
    Form form{Values{{"v", "{key:tab}{date}"}}, {}};
    auto steps = Expansion::plan("{field:v}", ";x", {}, form.ask(), context());
    ASSERT_TRUE(steps);
    EXPECT_EQ(*steps, (std::vector<Step>{Text{"{key:tab}Nov 14, 2026", 0}}));
}

TEST(Expansion, FormIsAskedOnlyForFieldsAndMayCancel) {
    Form form{std::nullopt, {}};
    EXPECT_EQ(Expansion::plan("plain {key:tab}", ";x", {}, form.ask(), context()),
              (std::vector<Step>{Text{"plain ", 0}, Key{{48, 0}}}));
    EXPECT_TRUE(form.asked.empty());
    EXPECT_FALSE(Expansion::plan("{field:a}", ";x", {}, form.ask(), context()));
    EXPECT_EQ(form.asked.size(), 1u);
    // Without anyone to ask, a template with fields does not expand; one without does.
    EXPECT_FALSE(Expansion::plan("{choice:a=b}", ";x", {}, nullptr, context()));
    EXPECT_TRUE(Expansion::plan("no fields", ";x", {}, nullptr, context()));
}

TEST(Expansion, DefaultsTakeTheFirstOptionThatIsNotAHeading) {
    auto values = Expansion::defaults(
        Tokens::fields("{choice:Time=#Morning|9:00|10:00}{choice:Only=#Heading}{field:Name=Bob}"
                       "{field:Free}"));
    EXPECT_EQ(values, (Values{{"Time", "9:00"}, {"Only", ""}, {"Name", "Bob"}, {"Free", ""}}));
    auto steps = Expansion::plan("{choice:Day=Mon|Tue} {field:Free}.", ";x", {},
                                 Expansion::defaults, context());
    EXPECT_EQ(steps, (std::vector<Step>{Text{"Mon .", 0}}));
}

TEST(Expansion, OwnAbbreviationIsOnTheIncludePath) {
    const std::vector<Snippet> library{snippet(";me", "me{snippet:;me}")};
    EXPECT_EQ(Expansion::plan(library[0], library, nullptr, context()),
              (std::vector<Step>{Text{"me{snippet:;me}", 0}}));
    EXPECT_EQ(Expansion::plan(library[0].content, ";other", library, nullptr, context()),
              (std::vector<Step>{Text{"meme{snippet:;me}", 0}}));
}

TEST(Expansion, EmptyTextStepsAreLeftOut) {
    Form form{Values{}, {}};
    EXPECT_EQ(Expansion::plan("{field:a}{key:up}{clipboard:9}{key:nope}", ";x", {}, form.ask(),
                              context()),
              (std::vector<Step>{Key{{126, 0}}, Literal{"{key:nope}"}}));
    EXPECT_EQ(Expansion::plan("", ";x", {}, nullptr, context()), std::vector<Step>{});
}

} // namespace
} // namespace quillet
