#include "engine/Popup.h"

#include "support/Snippets.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using testing::snippet;

std::string listed(const std::vector<Matcher::Match>& candidates) {
    std::string out;
    for (const Matcher::Match& c : candidates) {
        out += (out.empty() ? "" : " ") + c.abbreviation + "/" + std::to_string(c.onScreen);
    }
    return out;
}

TEST(PopupCandidates, TheLongestTypedTailThatStartsAnAbbreviationListsTheMostUsedFirst) {
    std::vector<Snippet> library = {
        snippet(";addr"), snippet(";add"), snippet(";adx"), snippet(";sig"),      snippet("sig2"),
        snippet("a b"),   snippet(";t1"),  snippet(";t2"),  snippet(";t3"),       snippet(";t4"),
        snippet(";t5"),   snippet(";t6"),  snippet(";t7"),  snippet("caf\u00e9"),
    };
    std::sort(library.begin(), library.end(),
              [](const Snippet& a, const Snippet& b) { return a.abbreviation < b.abbreviation; });
    std::vector<std::pair<std::string_view, const Snippet*>> active;
    for (const Snippet& s : library) {
        active.emplace_back(s.abbreviation, &s);
    }
    Usage usage;
    const auto idOf = [&](std::string_view abbreviation) {
        return std::find_if(library.begin(), library.end(),
                            [&](const Snippet& s) { return s.abbreviation == abbreviation; })
            ->id;
    };
    for (const char* used : {";adx", ";adx", ";addr", ";t7"}) {
        usage.record(idOf(used), 3, Date::now());
    }

    const std::pair<const char*, const char*> cases[] = {
        {";ad", ";adx/3 ;addr/3 ;add/3"}, // most used, then by abbreviation
        {"Hello;ad", ";adx/3 ;addr/3 ;add/3"},
        {";", ""},           // one character is not enough
        {"x;sig", ";sig/4"}, // the longest tail that starts something
        {"si", "sig2/2"},
        {"some si", "sig2/2"},                         // only the last word counts
        {";sig ", ""},                                 // a space ends the word
        {";t", ";t7/2 ;t1/2 ;t2/2 ;t3/2 ;t4/2 ;t5/2"}, // at most six
        {"a", ""},
        {"caf\u00e9", "caf\u00e9/4"}, // characters, not bytes
        {";zz", ""},
    };
    for (const auto& [buffer, expected] : cases) {
        EXPECT_EQ(listed(PopupModel::candidates(buffer, active, usage)), expected) << buffer;
    }
}

std::vector<Matcher::Match> named(std::initializer_list<const char*> abbreviations) {
    std::vector<Matcher::Match> out;
    for (const char* a : abbreviations) {
        out.push_back(Matcher::Match{a, "", "", 1, std::nullopt});
    }
    return out;
}

TEST(PopupModel, TheSelectionStartsFirstAndWrapsRound) {
    PopupModel model;
    EXPECT_EQ(model.selected(), nullptr);
    model.move(1); // nothing to move over
    // Moving and wrapping round are the engine's popup test's.
    EXPECT_TRUE(model.set(named({"a", "b", "c"})));
    model.move(-1);
    EXPECT_FALSE(model.set(named({"a", "b", "c"}))) << "the same list keeps its selection";
    EXPECT_EQ(model.selected()->abbreviation, "c");
    EXPECT_TRUE(model.set(named({"a", "d"})));
    EXPECT_EQ(model.selectedIndex(), 0u);
}

TEST(PopupOrigin, ThePanelSitsAboveTheCaretLineAndStaysOnItsScreen) {
    // Two screens side by side; the first has a 30-pixel panel at its top.
    const std::vector<ScreenArea> screens = {
        {{0, 0, 1920, 1080}, {0, 30, 1920, 1050}},
        {{1920, 0, 1280, 1024}, {1920, 0, 1280, 1024}},
    };
    const int w = 300, h = 120, gap = 4;
    const struct {
        const char* what;
        ScreenRect caret;
        int x, y;
    } cases[] = {
        {"above the line", {500, 600, 2, 18}, 500, 600 - gap - h},
        {"near the top: below the line", {500, 100, 2, 18}, 500, 118 + gap},
        {"near the right edge", {1900, 600, 2, 18}, 1920 - w - 8, 600 - gap - h},
        {"left of the visible area", {2, 600, 2, 18}, 8, 600 - gap - h},
        {"on the second screen", {3100, 500, 2, 18}, 3200 - w - 8, 500 - gap - h},
        {"off every screen: the primary", {5000, 500, 2, 18}, 1920 - w - 8, 500 - gap - h},
        {"on the seam, within a pixel", {1919, 500, 1, 18}, 1920 - w - 8, 500 - gap - h},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(popupOrigin(c.caret, w, h, gap, screens), std::make_pair(c.x, c.y));
    }
    // Larger than the area: its right and top edges stay inside.
    EXPECT_EQ(popupOrigin({500, 600, 2, 18}, 2000, 1100, gap, screens),
              std::make_pair(1920 - 2000 - 8, 30 + 8));
}

} // namespace
} // namespace quillet
