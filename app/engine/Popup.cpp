#include "engine/Popup.h"

#include "library/Text.h"

#include <algorithm>

namespace quillet {
namespace {

using Active = std::vector<std::pair<std::string_view, const Snippet*>>;

// The abbreviations of active that begin with prefix, as a range of the sorted list.
std::pair<Active::const_iterator, Active::const_iterator> startingWith(const Active& active,
                                                                       std::string_view prefix) {
    auto first =
        std::lower_bound(active.begin(), active.end(), prefix,
                         [](const auto& entry, std::string_view key) { return entry.first < key; });
    auto last = first;
    while (last != active.end() && last->first.starts_with(prefix)) {
        ++last;
    }
    return {first, last};
}

} // namespace

std::vector<Matcher::Match> PopupModel::candidates(std::string_view buffer, const Active& active,
                                                   const Usage& usage) {
    const std::vector<std::string_view> characters = text::graphemes(buffer);
    std::size_t wordStart = characters.size();
    while (wordStart > 0 && !text::isWhitespace(characters[wordStart - 1])) {
        --wordStart;
    }
    // The longest tail first: "Hello;th" offers ";thanks" through ";th" before "th".
    for (std::size_t start = wordStart; start + minimumTyped <= characters.size(); ++start) {
        const std::size_t offset =
            static_cast<std::size_t>(characters[start].data() - buffer.data());
        const std::string_view tail = buffer.substr(offset);
        auto [first, last] = startingWith(active, tail);
        std::vector<const Snippet*> found;
        for (auto it = first; it != last; ++it) {
            const std::string_view abbreviation = it->first;
            if (std::none_of(abbreviation.begin(), abbreviation.end(),
                             [](char c) { return c == ' ' || c == '\t' || c == '\n'; })) {
                found.push_back(it->second);
            }
        }
        if (found.empty()) {
            continue;
        }
        const auto uses = [&usage](const Snippet* snippet) {
            auto use = usage.uses.find(snippet->id);
            return use != usage.uses.end() ? use->second.count : 0;
        };
        std::stable_sort(found.begin(), found.end(), [&](const Snippet* a, const Snippet* b) {
            return uses(a) > uses(b); // the list is in abbreviation order already
        });
        found.resize(std::min(found.size(), limit));
        std::vector<Matcher::Match> out;
        for (const Snippet* snippet : found) {
            out.push_back(Matcher::Match{snippet->abbreviation, snippet->content, "",
                                         static_cast<int>(characters.size() - start),
                                         std::nullopt});
        }
        return out;
    }
    return {};
}

bool PopupModel::set(std::vector<Matcher::Match> candidates) {
    if (candidates == candidates_) {
        return false;
    }
    candidates_ = std::move(candidates);
    selected_ = 0;
    return true;
}

void PopupModel::move(int step) {
    if (candidates_.empty()) {
        return;
    }
    const auto count = static_cast<long>(candidates_.size());
    selected_ =
        static_cast<std::size_t>(((static_cast<long>(selected_) + step) % count + count) % count);
}

const Matcher::Match* PopupModel::selected() const {
    return selected_ < candidates_.size() ? &candidates_[selected_] : nullptr;
}

std::pair<int, int> popupOrigin(const ScreenRect& caret, int width, int height, int gap,
                                const std::vector<ScreenArea>& screens, std::size_t primary) {
    constexpr int margin = 8;
    const auto holds = [&caret](const ScreenRect& frame) {
        return caret.x >= frame.x - 1 && caret.y >= frame.y - 1 &&
               caret.right() <= frame.right() + 1 && caret.bottom() <= frame.bottom() + 1;
    };
    ScreenRect visible{0, 0, width, height};
    auto screen = std::find_if(screens.begin(), screens.end(),
                               [&](const ScreenArea& area) { return holds(area.frame); });
    if (screen != screens.end()) {
        visible = screen->visible;
    } else if (primary < screens.size()) {
        visible = screens[primary].visible;
    }
    int y = caret.y - gap - height; // above the caret line
    if (y < visible.y) {
        y = caret.bottom() + gap;
    }
    int x = std::max(caret.x, visible.x + margin);
    x = std::min(x, visible.right() - width - margin);
    y = std::min(y, visible.bottom() - height - margin);
    y = std::max(y, visible.y + margin);
    return {x, y};
}

} // namespace quillet
