#include "library/SnippetSearch.h"

#include "library/Text.h"

#include <algorithm>
#include <string>

namespace quillet {
namespace {

std::string folded(std::string_view s) {
    return text::toLower(text::nfc(s));
}

std::vector<std::string> words(std::string_view query) {
    std::vector<std::string> out;
    std::string current;
    for (char c : folded(query)) {
        if (c == ' ' || c == '\t' || c == '\n') {
            if (!current.empty()) {
                out.push_back(std::move(current));
                current.clear();
            }
        } else {
            current += c;
        }
    }
    if (!current.empty()) {
        out.push_back(std::move(current));
    }
    return out;
}

} // namespace

SnippetQuery::SnippetQuery(std::string_view query) : words_(words(query)) {}

bool SnippetQuery::matches(const Snippet& snippet) const {
    if (words_.empty()) {
        return true;
    }
    const std::string key = folded(snippet.abbreviation);
    const std::string body = snippet.locked ? std::string() : folded(snippet.content);
    return std::all_of(words_.begin(), words_.end(), [&](const std::string& word) {
        return key.find(word) != std::string::npos || body.find(word) != std::string::npos;
    });
}

std::vector<const Snippet*> searchSnippets(const std::vector<Snippet>& snippets,
                                           std::string_view query, const Usage& usage,
                                           std::size_t limit) {
    const SnippetQuery wanted(query);
    struct Found {
        const Snippet* snippet;
        std::int64_t uses;
        std::string key; // the abbreviation, folded, for the order
    };
    std::vector<Found> found;
    for (const Snippet& snippet : snippets) {
        if (snippet.archived || snippet.regex || !wanted.matches(snippet)) {
            continue;
        }
        auto use = usage.uses.find(snippet.id);
        found.push_back({&snippet, use != usage.uses.end() ? use->second.count : 0,
                         folded(snippet.abbreviation)});
    }
    std::stable_sort(found.begin(), found.end(), [](const Found& a, const Found& b) {
        return a.uses != b.uses ? a.uses > b.uses : a.key < b.key;
    });
    std::vector<const Snippet*> out;
    for (std::size_t i = 0; i < found.size() && i < limit; ++i) {
        out.push_back(found[i].snippet);
    }
    return out;
}

} // namespace quillet
