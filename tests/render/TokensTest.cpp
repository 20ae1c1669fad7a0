#include "render/Tokens.h"

#include <chrono>
#include <gtest/gtest.h>

namespace quillet {
namespace {

using namespace std::chrono;
using Field = Tokens::Field;
using Piece = Tokens::Piece;
using KeyStroke = Tokens::KeyStroke;

Date utc(year_month_day day, hours h, minutes m = minutes(0)) {
    return Date::fromTimePoint(sys_days(day) + h + m);
}

// Saturday 14 November 2026, 5:51 PM in New York.
const Date saturday = utc(2026y / 11 / 14, 22h, 51min);
// Thursday 12 November 2026, 10:00 AM in New York; already Friday on Kiritimati (UTC+14).
const Date thursday = utc(2026y / 11 / 12, 15h);

RenderContext newYork(Date now, std::vector<std::string> clipboard = {}) {
    return {now, "en_US", "America/New_York", "gregorian", std::move(clipboard)};
}

std::string render(std::string_view text, const RenderContext& context) {
    return Tokens::render(text, context).text;
}

// The date a phrase names on the Thursday, or the token itself when it is not understood.
std::string onThursday(const std::string& phrase) {
    return render("{date:" + phrase + "}", newYork(thursday));
}

TEST(TokensDates, WrittenInTheLocaleZoneAndCalendarOfTheContext) {
    EXPECT_EQ(render("{date} at {time}", newYork(saturday)), "Nov 14, 2026 at 5:51\u202FPM");
    RenderContext far{saturday, "en_US", "Pacific/Kiritimati", "gregorian", {}};
    EXPECT_EQ(render("{date} {time}", far), "Nov 15, 2026 12:51\u202FPM");
    EXPECT_EQ(render("{date}", {saturday, "de_DE", "Europe/Berlin", "", {}}), "14.11.2026");
    EXPECT_EQ(render("{date}", {saturday, "en_US", "America/New_York", "buddhist", {}}),
              "Nov 14, 2569 BE");
    // An unknown zone falls back to the system's rather than silently to GMT; the date is
    // still written.
    EXPECT_FALSE(render("{date}", {saturday, "en_US", "Nowhere/Atlantis", "", {}}).empty());
}

TEST(TokensDates, ArithmeticUsesCalendarUnitsAndNeverWraps) {
    const auto ny = newYork(saturday);
    EXPECT_EQ(render("{date+1d}|{date-2w}|{date+3m}|{date+1y}", ny),
              "Nov 15, 2026|Oct 31, 2026|Feb 14, 2027|Nov 14, 2027");
    EXPECT_EQ(render("{date+0d}{time+2d}", ny), "Nov 14, 20265:51\u202FPM");

    const auto leapDay = newYork(utc(2028y / 2 / 29, 15h));
    EXPECT_EQ(render("{date-1y}", leapDay), "Feb 28, 2027");
    EXPECT_EQ(render("{date+4y}", leapDay), "Feb 29, 2032");
    EXPECT_EQ(render("{date+1m}", newYork(utc(2027y / 1 / 31, 15h))), "Feb 28, 2027");
}

TEST(TokensDates, AmountsBeyondReachRenderTheCurrentMoment) {
    const auto ny = newYork(saturday);
    for (const char* token : {"{date+99999999999999999999d}", "{date-9223372036854775808d}",
                              "{date+9223372036854775807y}", "{date+2147483648d}",
                              "{date-2147483647m}", "{date+5000001y}"}) {
        EXPECT_EQ(render(token, ny), "Nov 14, 2026") << token;
    }
    EXPECT_EQ(render("{date+4000000y}", ny), "Nov 14, 4002026");
}

TEST(TokensDates, MalformedTokensStayAsTyped) {
    const std::string text = "{date+1x}{date+d}{Date}{date +1d}{date:}{time:now}{date:someday}";
    EXPECT_EQ(render(text, newYork(saturday)), text);
}

TEST(TokensPhrases, SingleWordsAndTheWeekdayOfThisWeek) {
    EXPECT_EQ(onThursday("today"), "Nov 12, 2026");
    EXPECT_EQ(onThursday("tomorrow"), "Nov 13, 2026");
    EXPECT_EQ(onThursday("yesterday"), "Nov 11, 2026");
    EXPECT_EQ(onThursday("friday"), "Nov 13, 2026");
    EXPECT_EQ(onThursday("thursday"), "Nov 12, 2026");
    EXPECT_EQ(onThursday("wed"), "Nov 18, 2026");
    EXPECT_EQ(onThursday("thur"), "Nov 12, 2026");
    EXPECT_EQ(onThursday("someday"), "{date:someday}");
}

TEST(TokensPhrases, WeekdayArithmeticBothWays) {
    EXPECT_EQ(onThursday("next friday"), "Nov 13, 2026");
    EXPECT_EQ(onThursday("next thursday"), "Nov 19, 2026");
    EXPECT_EQ(onThursday("next wednesday"), "Nov 18, 2026");
    EXPECT_EQ(onThursday("this thursday"), "Nov 12, 2026");
    EXPECT_EQ(onThursday("this wednesday"), "Nov 18, 2026");
    EXPECT_EQ(onThursday("last thursday"), "Nov 5, 2026");
    EXPECT_EQ(onThursday("last wednesday"), "Nov 11, 2026");
    EXPECT_EQ(onThursday("last friday"), "Nov 6, 2026");
    EXPECT_EQ(onThursday("last sun"), "Nov 8, 2026");
    EXPECT_EQ(onThursday("this saturday"), "Nov 14, 2026");
    // The weekday is that of the context's zone: it is already Friday on Kiritimati.
    RenderContext far{thursday, "en_US", "Pacific/Kiritimati", "gregorian", {}};
    EXPECT_EQ(render("{date:friday}|{date:next friday}", far), "Nov 13, 2026|Nov 20, 2026");
}

TEST(TokensPhrases, CaseSpacingAndAbbreviatedWeekdays) {
    EXPECT_EQ(onThursday("Next Friday"), "Nov 13, 2026");
    EXPECT_EQ(onThursday("  next  friday "), "Nov 13, 2026");
    EXPECT_EQ(onThursday("next fri"), "Nov 13, 2026");
    EXPECT_EQ(onThursday("next fr"), "{date:next fr}");
    EXPECT_EQ(onThursday("this week"), "{date:this week}");
    EXPECT_EQ(onThursday("next\tfriday"), "{date:next\tfriday}");
}

TEST(TokensPhrases, CountedUnits) {
    EXPECT_EQ(onThursday("3 days ago"), "Nov 9, 2026");
    EXPECT_EQ(onThursday("in a week"), "Nov 19, 2026");
    EXPECT_EQ(onThursday("an hour ago"), "{date:an hour ago}");
    EXPECT_EQ(onThursday("in 2 months"), "Jan 12, 2027");
    EXPECT_EQ(onThursday("in 1 year"), "Nov 12, 2027");
    EXPECT_EQ(onThursday("last year"), "Nov 12, 2025");
    EXPECT_EQ(onThursday("next weeks"), "Nov 19, 2026");
    EXPECT_EQ(onThursday("in +2 days"), "Nov 14, 2026");
    EXPECT_EQ(onThursday("in -2 days"), "Nov 10, 2026");
    EXPECT_EQ(onThursday("-2 days ago"), "Nov 14, 2026");
    for (const char* phrase : {"in one week", "in 2 dayss", "in 2", "in 2 days ago", "2 days",
                               "in +-2 days", "in 2x days", "in + days", "a b c d"}) {
        EXPECT_EQ(onThursday(phrase), "{date:" + std::string(phrase) + "}");
    }
}

TEST(TokensPhrases, NumbersThatCannotBeReachedFail) {
    const auto ny = newYork(thursday);
    for (const char* phrase :
         {"-9223372036854775808 days ago", "9223372036854775807 days ago",
          "in 9223372036854775808 days", "in 2147483648 days", "in -9223372036854775808 years"}) {
        EXPECT_FALSE(Tokens::relativeDate(phrase, ny)) << phrase;
    }
}

TEST(TokensPhrases, RelativeDateKeepsTheTimeOfDay) {
    const auto ny = newYork(thursday);
    EXPECT_EQ(Tokens::relativeDate("today", ny), thursday);
    EXPECT_EQ(Tokens::relativeDate("tomorrow", ny), Date{thursday.seconds + 86400});
    EXPECT_FALSE(Tokens::relativeDate("", ny));
}

TEST(TokensClipboard, EntriesCountFromTheNewest) {
    const auto ny = newYork(saturday, {"newest", "older", "oldest"});
    EXPECT_EQ(render("{clipboard}|{clipboard:1}|{clipboard:2}|{clipboard:3}", ny),
              "newest|newest|older|oldest");
    EXPECT_EQ(render("[{clipboard:0}][{clipboard:5}]", ny), "[][]");
    EXPECT_EQ(render("{clipboard:99999999999999999999}", ny), "newest");
    EXPECT_EQ(render("{clipboard:}{clipboard:x}", ny), "{clipboard:}{clipboard:x}");
    EXPECT_EQ(render("[{clipboard}][{clipboard:1}][{clipboard:2}]", newYork(saturday)), "[][][]");
}

TEST(TokensRender, PassesRunInOrderEachOverThePreviousOutput) {
    // Clipboard text comes after the date passes, so its date tokens stay literal, while the
    // caret pass still sees its mark.
    auto rendered = Tokens::render("<{clipboard}>", newYork(saturday, {"{date} {cursor}x"}));
    EXPECT_EQ(rendered, (Tokens::Rendered{"<{date} x>", 2}));
    // A phrase token holding a clipboard token is not a phrase when the phrase pass runs.
    EXPECT_EQ(render("{date:{clipboard}}", newYork(saturday, {"tomorrow"})), "{date:tomorrow}");
}

TEST(TokensRender, CaretCountsCharactersAfterTheFirstMark) {
    const auto ny = newYork(saturday);
    EXPECT_EQ(Tokens::render("a{cursor}bc{cursor}", ny), (Tokens::Rendered{"abc{cursor}", 10}));
    EXPECT_EQ(Tokens::render("{cursor}\U0001F44D\U0001F3FD!", ny).cursorBack, 2);
    EXPECT_EQ(
        Tokens::render("x{cursor}\U0001F468\u200D\U0001F469\u200D\U0001F467e\u0301", ny).cursorBack,
        2);
    EXPECT_EQ(Tokens::render("end{cursor}", ny), (Tokens::Rendered{"end", 0}));
    EXPECT_EQ(Tokens::render("{Cursor} { cursor}", ny).cursorBack, 0);
    EXPECT_EQ(Tokens::render("{cursor}{date}", ny).cursorBack, 12);
}

TEST(TokensFields, OneFieldPerNameWithTheFirstOccurrencesOptions) {
    EXPECT_EQ(Tokens::fields("{field:Name} and {field:Name=Bob}"),
              (std::vector<Field>{{"Name", {}, false}}));
    EXPECT_EQ(Tokens::fields("{choice:Day=Mon||Tue|}{field:Day=Sun}"),
              (std::vector<Field>{{"Day", {"Mon", "Tue"}, false}}));
    EXPECT_EQ(Tokens::fields("{field:B=x}{choice:A:sorted=#H|b|a}{field: B }{choice:E=}"),
              (std::vector<Field>{{"B", {"x"}, false},
                                  {"A", {"#H", "b", "a"}, true},
                                  {" B ", {}, false},
                                  {"E", {}, false}}));
    EXPECT_EQ(Tokens::fields("{field:a:b}{field:c:sorted:d}"),
              (std::vector<Field>{{"a:b", {}, false}, {"c:sorted:d", {}, false}}));
    EXPECT_TRUE(Tokens::fields("{field:}{field=x}{Field:a}{choice:=a}").empty());
}

TEST(TokensFields, FillGivesEveryTokenOfANameItsValue) {
    const std::map<std::string, std::string> values{{"Name", "Ann"}, {"a:b", "{date}"}};
    EXPECT_EQ(
        Tokens::fill("{field:Name}/{choice:Name=Bo|Cy}/{field:Name:sorted}/{field:a:b}", values),
        "Ann/Ann/Ann/{date}");
    EXPECT_EQ(Tokens::fill("[{field:Other=x}][{choice:Day=Mon|Tue}]{field:}", values),
              "[][]{field:}");
}

TEST(TokensFields, ChoiceTokenReadsBackAsTheSameField) {
    EXPECT_EQ(Tokens::choiceToken("Day", {"Mon", "Tue"}, false), "{choice:Day=Mon|Tue}");
    EXPECT_EQ(Tokens::choiceToken("Day", {}, true), "{choice:Day:sorted=}");
    const Field field{"Time", {"#Morning", "9:00", "#Afternoon", "14:00"}, true};
    EXPECT_EQ(Tokens::fields(Tokens::choiceToken(field.name, field.options, field.sorted)),
              std::vector<Field>{field});
}

TEST(TokensPieces, SplitAtKeyTokensInTextOrder) {
    using enum Piece::Kind;
    EXPECT_EQ(
        Tokens::pieces("a{key:tab}{key:cmd+v}b{key:Tab}"),
        (std::vector<Piece>{{text, "a"}, {key, "tab"}, {key, "cmd+v"}, {text, "b{key:Tab}"}}));
    EXPECT_EQ(Tokens::pieces("{key:enter}"), (std::vector<Piece>{{key, "enter"}}));
    EXPECT_EQ(Tokens::pieces("plain"), (std::vector<Piece>{{text, "plain"}}));
    EXPECT_TRUE(Tokens::pieces("").empty());
}

TEST(TokensKeys, ModifiersThenOneKey) {
    constexpr auto cmd = Tokens::commandMask;
    constexpr auto shift = Tokens::shiftMask;
    EXPECT_EQ(Tokens::keyStroke("cmd+shift+k"), (KeyStroke{40, cmd | shift}));
    EXPECT_EQ(Tokens::keyStroke("ctrl+a"), (KeyStroke{0, Tokens::controlMask}));
    EXPECT_EQ(Tokens::keyStroke("shift+shift++return"), (KeyStroke{36, shift}));
    EXPECT_EQ(Tokens::keyStroke("opt+left"), Tokens::keyStroke("alt+left"));
    EXPECT_EQ(Tokens::keyStroke("super+9"), (KeyStroke{25, Tokens::superMask}));
    EXPECT_EQ(Tokens::keyStroke("+z"), (KeyStroke{6, 0}));
    for (const char* bad : {"cmd+", "enter", "", "+", "cmd+foo+a", "a+b", "f1", "A", "cmd+shift"}) {
        EXPECT_FALSE(Tokens::keyStroke(bad)) << bad;
    }
    // Super must never read as one of the modifiers macOS defines, all within 32 bits.
    EXPECT_EQ(Tokens::superMask & 0xFFFFFFFFu, 0u);
}

TEST(TokensKeys, EveryLetterAndDigitHasItsOwnCode) {
    std::set<std::uint16_t> codes;
    for (char c : std::string("abcdefghijklmnopqrstuvwxyz0123456789")) {
        auto stroke = Tokens::keyStroke(std::string(1, c));
        ASSERT_TRUE(stroke) << c;
        codes.insert(stroke->code);
    }
    EXPECT_EQ(codes.size(), 36u);
    EXPECT_EQ(Tokens::keyStroke("m")->code, 46);
    EXPECT_EQ(Tokens::keyStroke("0")->code, 29);
}

Snippet snippet(std::string abbreviation, std::string content) {
    Snippet s;
    s.abbreviation = std::move(abbreviation);
    s.content = std::move(content);
    return s;
}

TEST(TokensIncludes, NestedSnippetsStopAtFiveOnThePath) {
    std::vector<Snippet> chain;
    for (int i = 1; i <= 6; ++i) {
        chain.push_back(snippet(";" + std::to_string(i),
                                std::to_string(i) + "{snippet:;" + std::to_string(i + 1) + "}"));
    }
    EXPECT_EQ(Tokens::includes(chain[0].content, {";1"}, chain), "12345{snippet:;6}");
    EXPECT_EQ(Tokens::includes("{snippet:;1}", {}, chain), "12345{snippet:;6}");
    EXPECT_EQ(Tokens::includes("{snippet:;1}", {"a", "b", "c", "d", "e"}, chain), "{snippet:;1}");
}

TEST(TokensIncludes, CyclesStopAtTheFirstRepeatButSiblingsRepeatFreely) {
    const std::vector<Snippet> library{snippet(";a", "a{snippet:;b}"),
                                       snippet(";b", "b{snippet:;a}{snippet:;c}{snippet:;c}"),
                                       snippet(";c", "c"), snippet(";self", "{snippet:;self}")};
    EXPECT_EQ(Tokens::includes("{snippet:;a}", {";a"}, library), "{snippet:;a}");
    EXPECT_EQ(Tokens::includes("{snippet:;a}", {}, library), "ab{snippet:;a}cc");
    EXPECT_EQ(Tokens::includes("{snippet:;self}", {";self"}, library), "{snippet:;self}");
}

TEST(TokensIncludes, FirstPlainTextSnippetOfExactlyThatAbbreviation) {
    auto archived = snippet(";x", "archived");
    archived.archived = true;
    auto locked = snippet(";x", "locked");
    locked.locked = true;
    auto pattern = snippet(";x", "pattern");
    pattern.regex = true;
    auto script = snippet(";x", "script");
    script.kind = Snippet::Kind::shell;
    const std::vector<Snippet> library{archived,
                                       locked,
                                       pattern,
                                       script,
                                       snippet(";X", "upper"),
                                       snippet(";x", "first {field:F} {key:tab} {date}"),
                                       snippet(";x", "second")};
    EXPECT_EQ(Tokens::includes("<{snippet:;x}>{snippet: ;x}{snippet:;y}", {}, library),
              "<first {field:F} {key:tab} {date}>{snippet: ;x}{snippet:;y}");
    // Past a handful of lookups the library is indexed; the rule must not change.
    std::string many;
    std::string expected;
    for (int i = 0; i < 12; ++i) {
        many += "{snippet:;y}{snippet:;x}|";
        expected += "{snippet:;y}first {field:F} {key:tab} {date}|";
    }
    EXPECT_EQ(Tokens::includes(many, {}, library), expected);
}

TEST(TokensIncludes, IncludedTextStopsGrowingAtABound) {
    // Each level includes the next 64 times: unbounded, the text would hold 64^4 leaves.
    std::vector<Snippet> library;
    for (int level = 0; level < 4; ++level) {
        std::string content;
        for (int i = 0; i < 64; ++i) {
            content += "{snippet:;" + std::to_string(level + 1) + "}";
        }
        library.push_back(snippet(";" + std::to_string(level), content));
    }
    library.push_back(snippet(";4", "leaf"));
    std::string out = Tokens::includes(library[0].content, {}, library);
    EXPECT_LT(out.size(), std::size_t{2} << 20);
    EXPECT_NE(out.find("leaf"), std::string::npos);
    EXPECT_NE(out.find("{snippet:"), std::string::npos);
}

} // namespace
} // namespace quillet
