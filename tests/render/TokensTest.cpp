#include "render/Tokens.h"

#include "support/Snippets.h"

#include <chrono>
#include <gtest/gtest.h>

namespace quillet {
namespace {

using namespace std::chrono;
using testing::snippet;

// Saturday 14 November 2026, 5:51 PM in New York.
const Date saturday = Date::fromTimePoint(sys_days(2026y / 11 / 14) + 22h + 51min);
// Thursday 12 November 2026, 10:00 AM in New York; already Friday on Kiritimati (UTC+14).
const Date thursday = Date::fromTimePoint(sys_days(2026y / 11 / 12) + 15h);

RenderContext at(Date now, std::vector<std::string> clipboard = {},
                 const char* zone = "America/New_York") {
    return {now, "en_US", zone, "gregorian", std::move(clipboard)};
}

TEST(TokensRender, DatesClipboardAndCaretInTheContext) {
    const auto copied = at(saturday, {"newest", "older", "oldest"});
    // Tokens that mean nothing, including phrases naming no day a calendar reaches, stay as typed.
    const std::string unresolved =
        "{date+1x}{date+d}{Date}{date +1d}{date:}{time:now}{clipboard:}{Cursor}{date:someday}"
        "{date:next fr}{date:this week}{date:in one week}{date:in 2 days ago}{date:in +-2 days}"
        "{date:-9223372036854775808 days ago}{date:in 9223372036854775808 days}";
    const std::tuple<RenderContext, std::string, std::string> cases[] = {
        // Dates and weekdays are those of the context's zone: it is already Friday on Kiritimati.
        {at(thursday, {}, "Pacific/Kiritimati"), "{date} {time}|{date:friday}|{date:next friday}",
         "Nov 13, 2026 5:00\u202FAM|Nov 13, 2026|Nov 20, 2026"},
        {{saturday, "de_DE", "Europe/Berlin", "", {}}, "{date}", "14.11.2026"},
        // Amounts the calendar cannot reach give the current moment rather than wrapping.
        {at(saturday),
         "{date+99999999999999999999d}|{date-9223372036854775808d}|{date+2147483648d}|"
         "{date-2147483647m}|{date+5000001y}",
         "Nov 14, 2026|Nov 14, 2026|Nov 14, 2026|Nov 14, 2026|Nov 14, 2026"},
        {at(saturday), "{date} at {time}|{date+1d}|{date-2w}|{date+3m}|{date+1y}|{date+4000000y}",
         "Nov 14, 2026 at 5:51\u202FPM|Nov 15, 2026|Oct 31, 2026|Feb 14, 2027|Nov 14, 2027|"
         "Nov 14, 4002026"},
        {at(Date::fromTimePoint(sys_days(2028y / 2 / 29) + 15h)), "{date-1y}|{date+4y}",
         "Feb 28, 2027|Feb 29, 2032"},
        {at(Date::fromTimePoint(sys_days(2027y / 1 / 31) + 15h)), "{date+1m}", "Feb 28, 2027"},
        {copied, "{clipboard}|{clipboard:1}|{clipboard:3}|{clipboard:99999999999999999999}",
         "newest|newest|oldest|newest"},
        {copied, "[{clipboard:0}][{clipboard:5}]" + unresolved, "[][]" + unresolved},
        {at(saturday), "[{clipboard}][{clipboard:1}][{clipboard:2}]", "[][][]"},
        // Clipboard text comes after the date and phrase passes, so its tokens stay literal.
        {at(saturday, {"{date}"}), "<{clipboard}>", "<{date}>"},
        {at(saturday, {"tomorrow"}), "{date:{clipboard}}", "{date:tomorrow}"},
    };
    for (const auto& [context, text, expected] : cases) {
        EXPECT_EQ(Tokens::render(text, context).text, expected) << text;
    }

    // The caret counts grapheme clusters after the first mark, wherever the mark came from.
    const auto marked = at(saturday, {"{cursor}x"});
    EXPECT_EQ(Tokens::render("a{cursor}bc{cursor}", marked), (Tokens::Rendered{"abc{cursor}", 10}));
    EXPECT_EQ(Tokens::render("<{clipboard}>", marked), (Tokens::Rendered{"<x>", 2}));
    EXPECT_EQ(Tokens::render("end{cursor}", marked), (Tokens::Rendered{"end", 0}));
    // A skin-toned thumb, a family joined by zero-width joiners, and e with a combining accent.
    const char* clusters =
        "{cursor}\U0001F44D\U0001F3FD\U0001F468\u200D\U0001F469\u200D\U0001F467e\u0301";
    EXPECT_EQ(Tokens::render(clusters, marked).cursorBack, 3);
}

TEST(TokensRender, PhrasesCountWholeDaysFromTheContextsDay) {
    // Days from the Thursday; New York keeps standard time throughout, so a day is 86400 s.
    const std::pair<int, std::vector<std::string>> cases[] = {
        {0, {"today", "thursday", "thur", "this thursday"}},
        {1, {"tomorrow", "friday", "next friday", "Next  Friday", " next fri "}},
        {-1, {"yesterday", "last wednesday"}},
        {6, {"wed", "next wednesday", "this wednesday"}},
        {7, {"next thursday", "in a week", "next weeks"}},
        {2, {"this saturday", "in +2 days", "-2 days ago"}},
        {-3, {"3 days ago", "in -3 days"}},
        {-7, {"last thursday"}},
        {-365, {"last year"}},
    };
    for (const auto& [days, phrases] : cases) {
        const Date day{thursday.seconds + days * 86400};
        for (const auto& said : phrases) {
            EXPECT_EQ(Tokens::relativeDate(said, at(thursday)), day) << said;
        }
    }
}

TEST(TokensFields, OneFieldPerNameReadBackFromItsToken) {
    EXPECT_EQ(Tokens::fields("{field:Name}{field:Name=Bob}{choice:Day=Mon||Tue|}{field:Day=Sun}"
                             "{choice:A:sorted=#H|b|a}{choice:E=}{field: c:sorted:d }"
                             "{field:}{field=x}{Field:a}{choice:=a}"),
              (std::vector<Tokens::Field>{{"Name", {}, false},
                                          {"Day", {"Mon", "Tue"}, false},
                                          {"A", {"#H", "b", "a"}, true},
                                          {"E", {}, false},
                                          {" c:sorted:d ", {}, false}}));
    const Tokens::Field field{"Time", {"#Morning", "9:00", "#Afternoon", "14:00"}, true};
    EXPECT_EQ(Tokens::fields(Tokens::choiceToken(field.name, field.options, field.sorted)),
              std::vector<Tokens::Field>{field});
}

// Which key each name stands for shows where the keys are typed (the typer's test).
TEST(TokensKeys, ModifiersThenOneKey) {
    EXPECT_EQ(Tokens::keyStroke("shift+shift++return"), Tokens::keyStroke("shift+return"));
    EXPECT_EQ(Tokens::keyStroke("opt+left"), Tokens::keyStroke("alt+left"));
    for (const char* bad : {"cmd+", "enter", "", "+", "cmd+foo+a", "a+b", "f1", "A", "cmd+shift"}) {
        EXPECT_FALSE(Tokens::keyStroke(bad)) << bad;
    }
}

TEST(TokensIncludes, FirstPlainSnippetOfThatAbbreviationFiveDeepNoRepeatsBoundedSize) {
    std::vector<Snippet> library(4, snippet(";x", "hidden"));
    library[0].archived = true;
    library[1].locked = true;
    library[2].regex = true;
    library[3].kind = Snippet::Kind::shell;
    library.insert(library.end(),
                   {snippet(";X", "upper"), snippet(";x", "first {key:tab} {date}"),
                    snippet(";x", "second"), snippet(";6", "6"), snippet(";a", "a{snippet:;b}"),
                    snippet(";c", "c"), snippet(";b", "b{snippet:;a}{snippet:;c}{snippet:;c}")});
    for (int i = 1; i <= 5; ++i) {
        auto n = std::to_string(i);
        library.push_back(snippet(";" + n, n + "{snippet:;" + std::to_string(i + 1) + "}"));
    }
    EXPECT_EQ(Tokens::includes("{snippet:;1}", {}, library), "12345{snippet:;6}");
    EXPECT_EQ(Tokens::includes("{snippet:;1}", {"a", "b", "c", "d", "e"}, library), "{snippet:;1}");
    EXPECT_EQ(Tokens::includes("{snippet:;a}", {";a"}, library), "{snippet:;a}");
    // Siblings may repeat freely; only the path may not.
    EXPECT_EQ(Tokens::includes("{snippet:;a}", {}, library), "ab{snippet:;a}cc");
    // Past a handful of lookups the library is indexed; the rule must not change.
    std::string many, expected;
    for (int i = 0; i < 12; ++i) {
        many += "<{snippet:;x}>{snippet: ;x}{snippet:;y}";
        expected += "<first {key:tab} {date}>{snippet: ;x}{snippet:;y}";
    }
    EXPECT_EQ(Tokens::includes(many, {}, library), expected);

    // Each level includes the next 64 times: unbounded, the text would hold 64^4 leaves.
    library = {snippet(";w4", "leaf")};
    for (int level = 3; level >= 0; --level) {
        std::string content = "{snippet:;w" + std::to_string(level + 1) + "}";
        for (int doubling = 0; doubling < 6; ++doubling) {
            content += content;
        }
        library.push_back(snippet(";w" + std::to_string(level), content));
    }
    std::string out = Tokens::includes(library.back().content, {}, library);
    EXPECT_LT(out.size(), std::size_t{2} << 20);
    EXPECT_NE(out.find("leaf"), std::string::npos);
    EXPECT_NE(out.find("{snippet:"), std::string::npos);
}

TEST(TokensIncludes, EitherNormalFormOfAnAccentNamesTheSameSnippet) {
    const std::string composed = "caf\u00e9", decomposed = "cafe\u0301";
    for (const auto& [stored, named] : {std::pair(composed, decomposed), {decomposed, composed}}) {
        // It includes itself through the other form: the path must see the loop.
        const std::string self = "{snippet:" + named + "}";
        std::vector<Snippet> library{snippet("Caf\u00e9", "upper"),
                                     snippet(stored, "coffee" + self)};
        // Past a handful of lookups the library is indexed; the rule must not change.
        std::string many, expected;
        for (int i = 0; i < 10; ++i) {
            many += self;
            expected += "coffee" + self;
        }
        EXPECT_EQ(Tokens::includes(many, {}, library), expected) << stored;
        EXPECT_EQ(Tokens::includes(self, {stored}, library), self) << stored;
    }
}

} // namespace
} // namespace quillet
