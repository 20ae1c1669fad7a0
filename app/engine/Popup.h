#pragma once

#include "engine/Caret.h"
#include "engine/Matcher.h"
#include "library/Snippet.h"
#include "library/Usage.h"

#include <cstddef>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

namespace quillet {

/// The panel at the caret that lists the snippets the typed text is leading to, so one can be
/// picked with the keyboard before its abbreviation is finished. The engine decides what it
/// lists and applies its keys; a view draws it. It never takes the focus or a click.
class MatchPopup {
public:
    /// Told on the main thread whether the panel is up: false when the caret could not be found.
    using Shown = std::function<void(bool visible)>;

    virtual ~MatchPopup() = default;

    /// Shows candidates next to the caret with the first selected and tells shown; a show still
    /// waiting for the caret is dropped (its shown is never called).
    virtual void show(const std::vector<Matcher::Match>& candidates, Shown shown) = 0;
    /// Highlights the candidate at index.
    virtual void select(std::size_t index) = 0;
    /// Takes the panel down and drops a show still waiting for the caret.
    virtual void hide() = 0;
};

/// The candidates and the selection, as the engine keeps them while the panel is up.
class PopupModel {
public:
    /// The most candidates listed.
    static constexpr std::size_t limit = 6;
    /// The fewest characters of a word that bring candidates up.
    static constexpr int minimumTyped = 2;

    /// The snippets the typed buffer leads to. The rule: take the longest tail of the buffer's
    /// last word (the characters after its last white space), at least minimumTyped characters
    /// long, that some abbreviation begins with (exactly, case included); every abbreviation of
    /// the active set (sorted by abbreviation) that begins with that tail is a candidate, the
    /// most used first (ties by abbreviation), at most limit of them. Each erases the tail
    /// (onScreen, in characters). An abbreviation with white space in it never comes up.
    static std::vector<Matcher::Match>
    candidates(std::string_view buffer,
               const std::vector<std::pair<std::string_view, const Snippet*>>& active,
               const Usage& usage);

    /// Replaces the candidates and selects the first; false when they are the same as before.
    bool set(std::vector<Matcher::Match> candidates);
    /// Forgets the candidates.
    void clear() { set({}); }
    /// Moves the selection by step (+1 down, -1 up), wrapping round at either end.
    void move(int step);

    const std::vector<Matcher::Match>& candidates() const { return candidates_; }
    std::size_t selectedIndex() const { return selected_; }
    /// The selected candidate; null when there are none.
    const Matcher::Match* selected() const;

private:
    std::vector<Matcher::Match> candidates_;
    std::size_t selected_ = 0;
};

/// One screen of the desktop: its whole frame and the part windows may use (without panels and
/// docks), both in desktop pixels from the top left.
struct ScreenArea {
    ScreenRect frame;
    ScreenRect visible;
};

/// Where to put the top-left corner of a width × height panel for a caret at caret, gap pixels
/// off the caret line. The screen is the first of screens whose frame, grown by 1 on every side,
/// holds the caret, else primary (an index into screens), else a screen of the panel's own size
/// at the origin. The panel goes above the line, or below it when it would stick out at the top
/// of the visible area; then it is kept 8 pixels inside that area. When it is larger than the
/// area, its right edge and its top edge are the ones kept inside.
std::pair<int, int> popupOrigin(const ScreenRect& caret, int width, int height, int gap,
                                const std::vector<ScreenArea>& screens, std::size_t primary = 0);

} // namespace quillet
