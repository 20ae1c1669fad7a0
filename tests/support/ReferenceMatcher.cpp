#include "support/ReferenceMatcher.h"

#include "library/Text.h"

#include <unicode/regex.h>

namespace quillet::testing {

struct ReferenceMatcher::Compiled {
    std::string pattern;
    std::string replacement;
    std::unique_ptr<icu::RegexPattern> regex;
};

ReferenceMatcher::ReferenceMatcher() = default;
ReferenceMatcher::~ReferenceMatcher() = default;

void ReferenceMatcher::compile() {
    compiled_.clear();
    for (auto& [pattern, replacement] : patterns) {
        UErrorCode status = U_ZERO_ERROR;
        UParseError pe{};
        std::unique_ptr<icu::RegexPattern> regex(
            icu::RegexPattern::compile(text::toIcu("(?:" + pattern + ")$"), 0, pe, status));
        if (U_SUCCESS(status)) {
            compiled_.push_back(
                std::make_unique<Compiled>(Compiled{pattern, replacement, std::move(regex)}));
        }
    }
}

std::string ReferenceMatcher::buffer() const {
    std::string out;
    for (auto& c : buffer_) {
        out += c;
    }
    return out;
}

bool ReferenceMatcher::endsWith(const std::string& key, std::size_t* start) const {
    auto keyChars = text::graphemes(key);
    if (keyChars.size() > buffer_.size()) {
        return false;
    }
    std::size_t offset = buffer_.size() - keyChars.size();
    for (std::size_t i = 0; i < keyChars.size(); ++i) {
        if (text::nfc(buffer_[offset + i]) != text::nfc(keyChars[i])) {
            return false;
        }
    }
    if (start) {
        *start = offset;
    }
    return true;
}

std::optional<ReferenceMatcher::Match> ReferenceMatcher::feed(std::string_view typed) {
    if (text::graphemeCount(typed) == 1 && text::isDelimiter(typed)) {
        if (auto m = fire(Mode::delimiter, typed)) {
            return m;
        }
        if (auto m = correct(typed)) {
            return m;
        }
    }
    std::string joined = buffer() + std::string(typed);
    buffer_.clear();
    for (auto c : text::graphemes(joined)) {
        buffer_.emplace_back(c);
    }
    if (buffer_.size() > static_cast<std::size_t>(limit)) {
        buffer_.erase(buffer_.begin(), buffer_.end() - limit);
    }
    return fire(Mode::instant, "");
}

std::optional<ReferenceMatcher::Match> ReferenceMatcher::fire(Mode trigger,
                                                              std::string_view trailer) {
    // Stage 1: the user's abbreviations, longest suffix wins (ties only between keys that are
    // canonically equivalent; the smaller key wins then).
    const std::string* best = nullptr;
    std::size_t bestCount = 0;
    for (auto& [abbreviation, expansion] : snippets) {
        auto own = modes.find(abbreviation);
        Mode effective = own != modes.end() ? own->second : mode;
        if (effective != trigger || !endsWith(abbreviation)) {
            continue;
        }
        std::size_t count = text::graphemeCount(abbreviation);
        if (!best || count > bestCount || (count == bestCount && abbreviation < *best)) {
            best = &abbreviation;
            bestCount = count;
        }
    }
    if (best) {
        Match m{*best, snippets.at(*best), std::string(trailer), static_cast<int>(bestCount) - 1,
                std::nullopt};
        buffer_.clear();
        return m;
    }

    // Stage 2: regular expressions in pattern order, first non-empty match wins.
    if (trigger == mode) {
        icu::UnicodeString input = text::toIcu(buffer());
        for (auto& c : compiled_) {
            UErrorCode status = U_ZERO_ERROR;
            std::unique_ptr<icu::RegexMatcher> m(c->regex->matcher(input, status));
            if (!m->find(0, status) || m->end(status) <= m->start(status)) {
                continue;
            }
            icu::UnicodeString expanded;
            m->appendReplacement(expanded, text::toIcu(c->replacement), status);
            std::string matched =
                text::fromIcu(input.tempSubStringBetween(m->start(status), m->end(status)));
            std::string expansion = text::fromIcu(expanded.tempSubString(m->start(status)));
            int count = static_cast<int>(text::graphemeCount(matched));
            buffer_.clear();
            return Match{matched, expansion, std::string(trailer), count - 1, c->pattern};
        }
    }

    // Stage 3: symbol and correction entries that fire like abbreviations.
    const std::string* bestKey = nullptr;
    bestCount = 0;
    for (auto& [key, extra] : extras) {
        std::size_t start = 0;
        if (snippets.count(key) || extra.mode != trigger || !endsWith(key, &start)) {
            continue;
        }
        if (!key.empty() && text::isLetterOrDigit(key) && start > 0 &&
            text::isLetterOrDigit(buffer_[start - 1])) {
            continue;
        }
        std::size_t count = text::graphemeCount(key);
        if (!bestKey || count > bestCount || (count == bestCount && key < *bestKey)) {
            bestKey = &key;
            bestCount = count;
        }
    }
    if (bestKey) {
        Match m{*bestKey, extras.at(*bestKey).text, std::string(trailer),
                static_cast<int>(bestCount) - 1, std::nullopt};
        buffer_.clear();
        return m;
    }
    return std::nullopt;
}

std::optional<ReferenceMatcher::Match> ReferenceMatcher::correct(std::string_view trailer) {
    std::size_t first = buffer_.size();
    while (first > 0 && text::isLetter(buffer_[first - 1])) {
        --first;
    }
    if (buffer_.size() - first < 2) {
        return std::nullopt;
    }
    std::string word;
    for (std::size_t i = first; i < buffer_.size(); ++i) {
        word += buffer_[i];
    }
    auto found = corrections.find(text::nfc(text::toLower(word)));
    if (found == corrections.end()) {
        return std::nullopt;
    }
    std::string cased = found->second;
    if (word == text::toUpper(word)) {
        cased = text::toUpper(cased);
    } else if (text::isUppercase(word)) {
        auto chars = text::graphemes(cased);
        std::string rest = cased.substr(chars.empty() ? 0 : chars[0].size());
        cased = text::toUpper(chars.empty() ? "" : chars[0]) + rest;
    }
    if (cased == word) {
        return std::nullopt;
    }
    Match m{word, cased, std::string(trailer), static_cast<int>(buffer_.size() - first),
            std::nullopt};
    buffer_.clear();
    return m;
}

} // namespace quillet::testing
