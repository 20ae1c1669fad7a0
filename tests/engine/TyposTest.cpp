#include "engine/Typos.h"

#include "engine/Matcher.h"
#include "library/Preferences.h"
#include "library/Text.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using nlohmann::json;
using Fires = Typos::Fires;
using Match = Matcher::Match;

std::optional<Match> type(Matcher& matcher, std::string_view typed) {
    std::optional<Match> last;
    for (std::string_view character : text::graphemes(typed)) {
        last = matcher.feed(character);
    }
    return last;
}

TEST(Typos, EveryKeyCanBeTyped) {
    // Typed words are looked up lower-cased and composed: any other key could never fire.
    for (const auto& set : Typos::all()) {
        for (const auto& [key, replacement] : set.words) {
            EXPECT_TRUE(text::isNfc(key) && text::isNfc(replacement)) << set.id << " " << key;
            EXPECT_TRUE(set.fires.kind == Fires::Kind::like || text::toLower(key) == key) << key;
        }
    }
}

TEST(Typos, GroupOnTurnsOnTheFirstSetOnlyAndOffTurnsAllOff) {
    const auto& group = Typos::typoGroup();
    MemoryPreferences preferences(json{{"typo.common", false}, {"typo.emoji", "yes"}});
    EXPECT_TRUE(Typos::on(preferences).empty()) << "off, or not a boolean";
    EXPECT_TRUE(Typos::corrections(preferences).empty() && Typos::extras(preferences).empty());
    EXPECT_FALSE(Typos::groupIsOn(preferences, group));
    EXPECT_TRUE(Typos::setGroup(preferences, group, true));
    EXPECT_EQ(Typos::on(preferences).size(), 1u);
    EXPECT_TRUE(preferences.isOn("typo.common"));

    // A later set switched on by itself is enough for the group to read as on.
    MemoryPreferences later(json{{"typo.spanish", true}, {"typo.emoji", true}});
    EXPECT_TRUE(Typos::groupIsOn(later, group));
    EXPECT_TRUE(Typos::setGroup(later, group, false));
    EXPECT_FALSE(Typos::groupIsOn(later, group));
    for (const auto& id : group) {
        EXPECT_EQ(later.boolean(Typos::key(id)), false) << id;
    }
    EXPECT_TRUE(later.isOn("typo.emoji")) << "another group's set is left alone";
}

TEST(Typos, EverySetOnKeepsItsEntriesAndModeThroughTheMatcher) {
    MemoryPreferences preferences;
    for (const auto& set : Typos::all()) {
        preferences.setValue(Typos::key(set.id), true);
    }
    // Only "addresse" is in two sets (French comes first); any other key repeated across sets
    // would shadow an entry.
    auto corrections = Typos::corrections(preferences);
    auto extras = Typos::extras(preferences);
    std::size_t entries = 0;
    for (const auto& set : Typos::all()) {
        entries += set.words.size();
    }
    EXPECT_EQ(corrections.size() + extras.size(), entries - 1);
    EXPECT_EQ(corrections.at("addresse"), "adresse");

    // Corrections and Tab entries through the engine are its event table's cases.
    Matcher matcher;
    matcher.setCorrections(corrections);
    matcher.setExtras(extras);
    EXPECT_EQ(type(matcher, "x df "), std::nullopt); // a Tab entry
    EXPECT_EQ(type(matcher, "ok:+1:"), (Match{":+1:", "👍", "", 3, std::nullopt}));
    type(matcher, "(c)");
    EXPECT_EQ(matcher.feed(" "), (Match{"(c)", "©", " ", 2, std::nullopt}));
}

} // namespace
} // namespace quillet
