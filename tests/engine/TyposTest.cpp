#include "engine/Typos.h"

#include "engine/Matcher.h"
#include "library/Preferences.h"
#include "library/Text.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <stdexcept>

namespace quillet {
namespace {

using Mode = Matcher::Mode;
using Fires = Typos::Fires;

const Typos::Set& setNamed(std::string_view id) {
    const auto& sets = Typos::all();
    auto it = std::find_if(sets.begin(), sets.end(), [&](const auto& s) { return s.id == id; });
    if (it == sets.end()) {
        throw std::out_of_range("no set " + std::string(id));
    }
    return *it;
}

// The replacement of key in a set, or "(missing)".
std::string entry(std::string_view id, std::string_view key) {
    for (const auto& [k, replacement] : setNamed(id).words) {
        if (k == key) {
            return replacement;
        }
    }
    return "(missing)";
}

MemoryPreferences switchedOn(std::initializer_list<std::string_view> ids) {
    MemoryPreferences preferences;
    for (std::string_view id : ids) {
        preferences.setValue(Typos::key(id), true);
    }
    return preferences;
}

std::optional<Matcher::Match> type(Matcher& matcher, std::string_view typed) {
    std::optional<Matcher::Match> last;
    for (std::string_view character : text::graphemes(typed)) {
        last = matcher.feed(character);
    }
    return last;
}

TEST(TyposSets, AreTheNineInOrderWithTheirNamesModesAndSizes) {
    struct Expected {
        const char* id;
        const char* name;
        Fires fires;
        std::size_t entries;
    };
    const Expected expected[] = {
        {"common", "Common typos", Fires::wordEnds(), 19},
        {"accents", "Accented words", Fires::wordEnds(), 10},
        {"french", "French", Fires::wordEnds(), 28},
        {"german", "German", Fires::wordEnds(), 20},
        {"spanish", "Spanish", Fires::wordEnds(), 30},
        {"symbols", "Symbols: (c) → © on space", Fires::like(Mode::delimiter), 22},
        {"emoji", "Emoji: :smile: → 😄", Fires::like(Mode::instant), 46},
        {"html", "HTML: <p> closes itself", Fires::like(Mode::instant), 32},
        {"css", "CSS: df then Tab → display: flex;", Fires::like(Mode::tab), 41},
    };
    const auto& sets = Typos::all();
    ASSERT_EQ(sets.size(), std::size(expected));
    for (std::size_t i = 0; i < sets.size(); ++i) {
        SCOPED_TRACE(expected[i].id);
        EXPECT_EQ(sets[i].id, expected[i].id);
        EXPECT_EQ(sets[i].name, expected[i].name);
        EXPECT_EQ(sets[i].fires, expected[i].fires);
        EXPECT_EQ(sets[i].words.size(), expected[i].entries);
    }
    EXPECT_EQ(&Typos::all(), &sets) << "built once";
}

TEST(TyposSets, KeysAreUniqueAndSymbolSetsShareNone) {
    std::set<std::string> likeKeys;
    for (const auto& set : Typos::all()) {
        std::set<std::string> keys;
        for (const auto& [key, replacement] : set.words) {
            EXPECT_TRUE(keys.insert(key).second) << set.id << " repeats " << key;
            EXPECT_FALSE(replacement.empty()) << set.id << " " << key;
            if (set.fires.kind == Fires::Kind::like) {
                EXPECT_TRUE(likeKeys.insert(key).second) << key << " is in two symbol sets";
            }
        }
    }
}

// The matcher looks up the typed run of letters in lower case and compares composed text, so a
// key with a capital, a non-letter or a decomposed accent could never fire.
TEST(TyposSets, CorrectionKeysAreComposedLowerCaseWords) {
    for (const auto& set : Typos::all()) {
        for (const auto& [key, replacement] : set.words) {
            EXPECT_TRUE(text::isNfc(key) && text::isNfc(replacement)) << set.id << " " << key;
            if (set.fires.kind != Fires::Kind::wordEnds) {
                continue;
            }
            EXPECT_EQ(text::toLower(key), key) << set.id;
            for (std::string_view character : text::graphemes(key)) {
                EXPECT_TRUE(text::isLetter(character)) << set.id << " " << key;
            }
        }
    }
}

TEST(TyposSets, EntriesThatAreEasyToGetWrong) {
    EXPECT_EQ(entry("emoji", ":+1:"), "👍");
    EXPECT_EQ(entry("emoji", ":thumbsup:"), "👍");
    EXPECT_EQ(entry("emoji", ":heart:"), "\u2764\uFE0F");
    EXPECT_EQ(entry("emoji", ":warning:"), "\u26A0\uFE0F");

    EXPECT_EQ(entry("html", "<p>"), "<p>{cursor}</p>");
    EXPECT_EQ(entry("html", "<a>"), R"(<a href="{cursor}"></a>)");
    EXPECT_EQ(entry("html", "<img>"), R"(<img src="{cursor}" alt="">)");
    EXPECT_EQ(entry("html", "<!>"), "<!DOCTYPE html>");
    const auto& html = setNamed("html").words;
    EXPECT_EQ(html.front().first, "<p>");
    EXPECT_EQ(html[28].first, "<blockquote>");
    EXPECT_EQ(html.back().first, "<!>");

    EXPECT_EQ(entry("css", "df"), "display: flex;");
    EXPECT_EQ(entry("css", "mt"), "margin-top: {cursor};");
    EXPECT_EQ(entry("css", "bxz"), "box-sizing: border-box;");

    EXPECT_EQ(entry("symbols", "(c)"), "©");
    EXPECT_EQ(entry("symbols", "..."), "…");

    EXPECT_EQ(entry("german", "addresse"), "Adresse");
    EXPECT_EQ(entry("german", "tschüß"), "tschüss");
    EXPECT_EQ(entry("french", "addresse"), "adresse");
    EXPECT_EQ(entry("french", "aujourdhui"), "aujourd'hui");
    EXPECT_EQ(entry("spanish", "atravez"), "a través");
    EXPECT_EQ(entry("common", "alot"), "a lot");
}

TEST(TyposSwitches, NothingFiresUntilASetIsSwitchedOn) {
    MemoryPreferences none;
    EXPECT_TRUE(Typos::on(none).empty());
    EXPECT_TRUE(Typos::corrections(none).empty());
    EXPECT_TRUE(Typos::extras(none).empty());

    MemoryPreferences off = switchedOn({});
    off.setValue("typo.common", false);
    off.setValue("typo.emoji", "yes"); // not a boolean
    EXPECT_TRUE(Typos::on(off).empty());
}

TEST(TyposSwitches, OnlySwitchedOnSetsContributeInTableOrder) {
    auto preferences = switchedOn({"css", "common"});
    auto on = Typos::on(preferences);
    ASSERT_EQ(on.size(), 2u);
    EXPECT_EQ(on[0]->id, "common");
    EXPECT_EQ(on[1]->id, "css");

    auto corrections = Typos::corrections(preferences);
    EXPECT_EQ(corrections.size(), 19u);
    EXPECT_EQ(corrections.at("teh"), "the");
    EXPECT_FALSE(corrections.contains("cafe"));
    EXPECT_FALSE(corrections.contains("df"));

    auto extras = Typos::extras(preferences);
    EXPECT_EQ(extras.size(), 41u);
    EXPECT_EQ(extras.at("df"), (Matcher::Extra{"display: flex;", Mode::tab}));
    EXPECT_FALSE(extras.contains("teh"));
}

TEST(TyposSwitches, EverySetOnKeepsEachKindApartAndEachModeWithItsEntries) {
    MemoryPreferences preferences;
    for (const auto& set : Typos::all()) {
        preferences.setValue(Typos::key(set.id), true);
    }
    // "addresse" is in two sets, so one fewer than the sum.
    EXPECT_EQ(Typos::corrections(preferences).size(), 19u + 10 + 28 + 20 + 30 - 1);

    auto extras = Typos::extras(preferences);
    EXPECT_EQ(extras.size(), 22u + 46 + 32 + 41);
    EXPECT_EQ(extras.at("(c)"), (Matcher::Extra{"©", Mode::delimiter}));
    EXPECT_EQ(extras.at(":smile:"), (Matcher::Extra{"😄", Mode::instant}));
    EXPECT_EQ(extras.at("<p>"), (Matcher::Extra{"<p>{cursor}</p>", Mode::instant}));
    EXPECT_EQ(extras.at("mt"), (Matcher::Extra{"margin-top: {cursor};", Mode::tab}));
}

TEST(TyposSwitches, EarlierSetWinsASharedMisspelling) {
    EXPECT_EQ(Typos::corrections(switchedOn({"german", "french"})).at("addresse"), "adresse");
    EXPECT_EQ(Typos::corrections(switchedOn({"german"})).at("addresse"), "Adresse");
}

TEST(TyposGroups, HoldTheRightSets) {
    EXPECT_EQ(Typos::typoGroup(),
              (std::vector<std::string>{"common", "accents", "french", "german", "spanish"}));
    const auto& symbols = Typos::symbolGroup();
    ASSERT_FALSE(symbols.empty());
    EXPECT_EQ(symbols.front(), "symbols");
    EXPECT_NE(std::find(symbols.begin(), symbols.end(), "emoji"), symbols.end());
    for (const auto& id : symbols) {
        EXPECT_NO_THROW(setNamed(id));
    }
}

TEST(TyposGroups, OnTurnsOnTheFirstSetOnlyAndOffTurnsAllOff) {
    const auto& group = Typos::typoGroup();
    MemoryPreferences preferences;
    EXPECT_FALSE(Typos::groupIsOn(preferences, group));

    EXPECT_TRUE(Typos::setGroup(preferences, group, true));
    EXPECT_TRUE(Typos::groupIsOn(preferences, group));
    auto on = Typos::on(preferences);
    ASSERT_EQ(on.size(), 1u);
    EXPECT_EQ(on[0]->id, "common");

    // A later set switched on by itself is enough for the group to read as on.
    preferences.setValue("typo.common", false);
    preferences.setValue("typo.spanish", true);
    preferences.setValue("typo.emoji", true);
    EXPECT_TRUE(Typos::groupIsOn(preferences, group));

    EXPECT_TRUE(Typos::setGroup(preferences, group, false));
    EXPECT_FALSE(Typos::groupIsOn(preferences, group));
    for (const auto& id : group) {
        EXPECT_EQ(preferences.boolean(Typos::key(id)), false) << id;
    }
    EXPECT_TRUE(preferences.isOn("typo.emoji")) << "another group's set is left alone";
}

// The sets as the keyboard engine uses them: handed to a matcher.
TEST(TyposThroughMatcher, TypoGroupCorrectsCommonWordsOnly) {
    MemoryPreferences preferences;
    Typos::setGroup(preferences, Typos::typoGroup(), true);
    Matcher matcher;
    matcher.setCorrections(Typos::corrections(preferences));
    matcher.setExtras(Typos::extras(preferences));

    type(matcher, "Teh");
    EXPECT_EQ(matcher.feed(" "), (Matcher::Match{"Teh", "The", " ", 3, std::nullopt}));
    type(matcher, "cafe");
    EXPECT_EQ(matcher.feed(" "), std::nullopt);
}

TEST(TyposThroughMatcher, SymbolSetsFireInTheirOwnModes) {
    Matcher matcher;
    matcher.setExtras(Typos::extras(switchedOn({"css", "html", "emoji", "symbols"})));

    type(matcher, "x df");
    EXPECT_EQ(matcher.fire(Mode::tab, ""),
              (Matcher::Match{"df", "display: flex;", "", 1, std::nullopt}));
    EXPECT_EQ(type(matcher, "df "), std::nullopt);
    matcher.clear();

    EXPECT_EQ(type(matcher, "<p>"),
              (Matcher::Match{"<p>", "<p>{cursor}</p>", "", 2, std::nullopt}));
    EXPECT_EQ(type(matcher, "ok:+1:"), (Matcher::Match{":+1:", "👍", "", 3, std::nullopt}));
    type(matcher, "(c)");
    EXPECT_EQ(matcher.feed(" "), (Matcher::Match{"(c)", "©", " ", 2, std::nullopt}));
}

} // namespace
} // namespace quillet
