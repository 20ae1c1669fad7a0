#include "render/Form.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using Key = Form::Key;
using Kind = Form::Row::Kind;

const Tokens::Field day{"Day", {"Monday", "Tuesday"}};
const Tokens::Field name{"Name", {}};
const Tokens::Field time{"Time", {"#Morning", "9:00", "10:00", "#Afternoon", "14:00"}};

Form::Outcome pressAll(Form& form, const std::vector<Key>& keys) {
    Form::Outcome outcome = Form::Outcome::editing;
    for (Key key : keys) {
        outcome = form.press(key);
    }
    return outcome;
}

TEST(Form, UntouchedFormGivesEveryFieldItsDefaultAndEscapeCancelsWhateverWasEntered) {
    Form edited({day, name});
    edited.setText(1, "Ann");
    EXPECT_EQ(pressAll(edited, {Key::down, Key::tab, Key::escape}), Form::Outcome::cancelled);

    Form form({day, name, {"Greeting", {"Hello"}}, {"Only", {"#Nothing to pick"}}, time});
    EXPECT_EQ(form.press(Key::enter), Form::Outcome::done);
    EXPECT_EQ(form.values(), (Expansion::Values{{"Day", "Monday"},
                                                {"Name", ""},
                                                {"Greeting", "Hello"},
                                                {"Only", ""},
                                                {"Time", "9:00"}}));
}

TEST(Form, ArrowsMoveAChoiceBetweenOptionsOnly) {
    // Down skips the heading; neither arrow wraps.
    Form form({time});
    std::vector<std::string> seen;
    for (Key key : {Key::up, Key::down, Key::down, Key::down, Key::up, Key::up, Key::up}) {
        form.press(key);
        ASSERT_FALSE(form.rows()[0].lines[*form.selected(0)].heading);
        seen.push_back(form.values().at("Time"));
    }
    EXPECT_EQ(seen, (std::vector<std::string>{"9:00", "10:00", "14:00", "14:00", "10:00", "9:00",
                                              "9:00"}));

    // Rows with nothing to select ignore the arrows; a click on a heading picks nothing.
    Form others({name, {"Only", {"#Heading", "#Another"}}, time});
    EXPECT_EQ(pressAll(others, {Key::down, Key::tab, Key::down, Key::up}), Form::Outcome::editing);
    EXPECT_EQ(others.selected(1), std::nullopt);
    others.select(2, 3);
    others.select(2, 2);
    EXPECT_EQ(others.values(), (Expansion::Values{{"Name", ""}, {"Only", ""}, {"Time", "10:00"}}));
}

TEST(Form, TabWrapsAndNextIsHintedOnlyWithSeveralFields) {
    using Hints = std::vector<Form::Hint>;
    Form single({name});
    EXPECT_EQ(single.hints(), (Hints{{Key::enter, "continue"}, {Key::escape, "cancel"}}));
    single.press(Key::tab);
    EXPECT_EQ(single.focus(), 0U);

    Form three({day, name, time});
    EXPECT_EQ(three.hints(),
              (Hints{{Key::enter, "continue"}, {Key::tab, "next"}, {Key::escape, "cancel"}}));
    std::vector<std::size_t> focus;
    for (int i = 0; i < 4; ++i) {
        three.press(Key::tab);
        focus.push_back(three.focus());
    }
    EXPECT_EQ(focus, (std::vector<std::size_t>{1, 2, 0, 1}));
}

TEST(Form, SortedChoicesAreCollatedUnderEachHeadingInTheLocale) {
    const Tokens::Field drinks{
        "Drink", {"tea", "Öl", "zider", "#Cold", "water", "Eistee", "apfelsaft"}, true};
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"de_DE", {"Öl", "tea", "zider", "Cold", "apfelsaft", "Eistee", "water"}},
        {"sv_SE", {"tea", "zider", "Öl", "Cold", "apfelsaft", "Eistee", "water"}},
    };
    for (const auto& [locale, expected] : cases) {
        Form form({drinks}, locale);
        std::vector<std::string> shown;
        for (const Form::Line& line : form.rows()[0].lines) {
            shown.push_back(line.text);
        }
        EXPECT_EQ(shown, expected) << locale;
        EXPECT_TRUE(form.rows()[0].lines[3].heading);
        // The default is still the first option written, wherever sorting put it.
        EXPECT_EQ(form.rows()[0].lines[*form.selected(0)].text, "tea") << locale;
    }
    Form form({drinks}, "de_DE");
    form.press(Key::down);
    EXPECT_EQ(form.values().at("Drink"), "zider");
}

TEST(Form, LoneDefaultIsAPrefilledTextField) {
    Form form({{"Name", {"Bob"}}, {"Pick", {"Bob"}, true}, day});
    EXPECT_EQ(form.rows()[0], (Form::Row{"Name", Kind::text, {}}));
    EXPECT_EQ(form.rows()[2].kind, Kind::choice);
    EXPECT_EQ(form.text(0), "Bob");
    form.setText(0, "");
    form.setText(1, "Ann");
    form.setText(2, "ignored");
    EXPECT_EQ(form.text(0), "");
    EXPECT_EQ(form.values(), (Expansion::Values{{"Name", ""}, {"Pick", "Ann"}, {"Day", "Monday"}}));
}

} // namespace
} // namespace quillet
