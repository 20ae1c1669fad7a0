#include "entry/Overview.h"

#include "library/Text.h"

#include <algorithm>

namespace quillet {
namespace {

constexpr double secondsPerDay = 86'400;

std::string times(std::int64_t count) {
    return count == 1 ? "once" : std::to_string(count) + " times";
}

Overview::Line lineOf(const Snippet& snippet, std::string detail) {
    return {snippet.id, snippet.abbreviation, std::move(detail)};
}

std::string firstLineOf(const Snippet& snippet) {
    return snippet.locked ? "Locked" : text::clip(snippet.firstLine(), 60);
}

} // namespace

Overview::Overview(std::function<const std::vector<Snippet>&()> library,
                   std::function<const Usage*()> usage, std::string locale)
    : library_(std::move(library)), usage_(std::move(usage)), locale_(std::move(locale)) {}

const Usage& Overview::usage() const {
    const Usage* usage = usage_();
    return usage != nullptr ? *usage : none_;
}

std::string Overview::savedTitle() {
    return std::string(usageText::timeSavedTitle);
}

std::optional<std::string> Overview::saved() const {
    return usage().timeSaved(locale_);
}

std::string Overview::savedDetail() const {
    const Usage& counts = usage();
    if (counts.characters <= 0) {
        return std::string(usageText::nothingSavedHint);
    }
    return std::to_string(counts.characters) + std::string(usageText::charactersSuffix) + " in " +
           std::to_string(counts.expansions) +
           (counts.expansions == 1 ? " expansion." : " expansions.");
}

Overview::List Overview::mostUsed() const {
    const Usage& counts = usage();
    List list{"Most used", {}, "Nothing used yet", ""};
    for (const Snippet& snippet : counts.sorted(library_(), Usage::Order::mostUsed)) {
        auto use = counts.uses.find(snippet.id);
        if (list.lines.size() == mostUsedCount || use == counts.uses.end() ||
            use->second.count <= 0) {
            break;
        }
        if (!snippet.archived) {
            list.lines.push_back(lineOf(snippet, times(use->second.count)));
        }
    }
    return list;
}

Overview::List Overview::recent(Date now) const {
    const Usage& counts = usage();
    List list{usageText::recentTitle(recentDays), {}, "Nothing used lately", ""};
    const Date since{now.seconds - recentDays * secondsPerDay};
    for (const Snippet& snippet : counts.recent(library_(), since)) {
        list.lines.push_back(lineOf(snippet, firstLineOf(snippet)));
    }
    return list;
}

Overview::List Overview::stale(Date now) const {
    List list{std::string(usageText::staleTitle),
              {},
              std::string(usageText::nothingStaleTitle),
              std::string(usageText::nothingStaleDetail)};
    for (const Snippet& snippet :
         usage().stale(library_(), Date{now.seconds - staleAfterSeconds})) {
        list.lines.push_back(lineOf(snippet, firstLineOf(snippet)));
    }
    return list;
}

} // namespace quillet
