#pragma once

#include "library/Snippet.h"
#include "library/Usage.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quillet {

/// What the overview page says of the library's use: the time saved, the snippets used most and
/// lately, and those not used in six months. Read fresh on every call.
class Overview {
public:
    /// One snippet in a list, with what the list says of it.
    struct Line {
        Uuid id;
        std::string abbreviation;
        std::string detail;
    };

    /// A list with its title, and what it says when empty.
    struct List {
        std::string title;
        std::vector<Line> lines;
        std::string emptyTitle;
        std::string emptyDetail;
    };

    /// How many days the recent list looks back.
    static constexpr int recentDays = 7;
    /// How many snippets the most-used list shows.
    static constexpr std::size_t mostUsedCount = 5;

    /// library gives the user's snippets, usage the counts (null while none are known).
    Overview(std::function<const std::vector<Snippet>&()> library,
             std::function<const Usage*()> usage, std::string locale = {});

    /// "Time saved with Quillet".
    static std::string savedTitle();
    /// The time saved ("1h 5m"); nothing before anything was saved.
    std::optional<std::string> saved() const;
    /// The characters not typed and the expansions, or the hint to start.
    std::string savedDetail() const;
    List mostUsed() const;
    /// Used in the last recentDays days, as of now.
    List recent(Date now = Date::now()) const;
    /// Not used in 6 months, as of now.
    List stale(Date now = Date::now()) const;

private:
    const Usage& usage() const;

    std::function<const std::vector<Snippet>&()> library_;
    std::function<const Usage*()> usage_;
    std::string locale_;
    Usage none_;
};

} // namespace quillet
