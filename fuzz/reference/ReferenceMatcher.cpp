#include "reference/ReferenceMatcher.h"

#include "library/Text.h"

#include <unicode/regex.h>

namespace quillet {

struct ReferenceMatcher::Compiled {
    std::string pattern, replacement;
    std::unique_ptr<icu::RegexPattern> regex;
};

ReferenceMatcher::ReferenceMatcher() = default;
ReferenceMatcher::~ReferenceMatcher() = default;

void ReferenceMatcher::compile() {
    compiled_.clear();
    for (auto& [pattern, replacement] : patterns) {
        UErrorCode status = U_ZERO_ERROR;
        UParseError where{};
        std::unique_ptr<icu::RegexPattern> regex(
            icu::RegexPattern::compile(text::toIcu("(?:" + pattern + ")$"), 0, where, status));
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
    const std::size_t offset = buffer_.size() - keyChars.size();
    for (std::size_t i = 0; i < keyChars.size(); ++i) {
        if (text::nfc(buffer_[offset + i]) != text::nfc(keyChars[i])) {
            return false;
        }
    }
    if (start != nullptr) {
        *start = offset;
    }
    return true;
}

std::optional<ReferenceMatcher::Match> ReferenceMatcher::take(const std::string& key,
                                                              const std::string& expansion,
                                                              std::string_view trailer) {
    buffer_.clear();
    return Match{key, expansion, std::string(trailer),
                 static_cast<int>(text::graphemeCount(key)) - 1, std::nullopt};
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
    const std::string joined = buffer() + std::string(typed);
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
    // The longest key the buffer ends in, of those accepted; the smaller of equally long ones.
    auto longest = [&](const auto& table, auto accepted) -> const std::string* {
        const std::string* best = nullptr;
        for (auto& [key, value] : table) {
            std::size_t start = 0;
            if (!endsWith(key, &start) || !accepted(key, value, start)) {
                continue;
            }
            const std::size_t count = text::graphemeCount(key);
            const std::size_t bestCount = best ? text::graphemeCount(*best) : 0;
            if (!best || count > bestCount || (count == bestCount && key < *best)) {
                best = &key;
            }
        }
        return best;
    };

    // Stage 1: the user's abbreviations.
    if (auto* key = longest(snippets, [&](const std::string& abbreviation, auto&, std::size_t) {
            auto own = modes.find(abbreviation);
            return (own != modes.end() ? own->second : mode) == trigger;
        })) {
        return take(*key, snippets.at(*key), trailer);
    }

    // Stage 2: regular expressions in pattern order, the first non-empty match.
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
            auto match =
                take(text::fromIcu(input.tempSubStringBetween(m->start(status), m->end(status))),
                     text::fromIcu(expanded.tempSubString(m->start(status))), trailer);
            match->key = c->pattern;
            return match;
        }
    }

    // Stage 3: symbol and correction entries that fire like abbreviations, a letter-led one only
    // at a word's start.
    if (auto* key = longest(
            extras, [&](const std::string& k, const Matcher::Extra& extra, std::size_t start) {
                return snippets.count(k) == 0 && extra.mode == trigger &&
                       !(text::isLetterOrDigit(k) && start > 0 &&
                         text::isLetterOrDigit(buffer_[start - 1]));
            })) {
        return take(*key, extras.at(*key).text, trailer);
    }
    return std::nullopt;
}

std::optional<ReferenceMatcher::Match> ReferenceMatcher::correct(std::string_view trailer) {
    std::size_t first = buffer_.size();
    while (first > 0 && text::isLetter(buffer_[first - 1])) {
        --first;
    }
    std::string word;
    for (std::size_t i = first; i < buffer_.size(); ++i) {
        word += buffer_[i];
    }
    auto found = corrections.find(text::nfc(text::toLower(word)));
    if (buffer_.size() - first < 2 || found == corrections.end()) {
        return std::nullopt;
    }
    // The typed case: all capitals, or a capital first letter.
    std::string cased = found->second;
    if (word == text::toUpper(word)) {
        cased = text::toUpper(cased);
    } else if (text::isUppercase(word)) {
        const auto chars = text::graphemes(cased);
        cased = chars.empty() ? cased : text::toUpper(chars[0]) + cased.substr(chars[0].size());
    }
    if (cased == word) {
        return std::nullopt;
    }
    Match m{word, cased, std::string(trailer), static_cast<int>(buffer_.size() - first),
            std::nullopt};
    buffer_.clear();
    return m;
}

} // namespace quillet
