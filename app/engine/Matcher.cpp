#include "engine/Matcher.h"

#include "library/Text.h"

#include <algorithm>
#include <unicode/regex.h>
#include <unicode/unistr.h>

namespace quillet {

struct Matcher::Compiled {
    std::string pattern;
    std::string replacement;
    std::shared_ptr<const icu::RegexPattern> regex;
    // A matcher carries search state, so copies of the Matcher never share one.
    std::unique_ptr<icu::RegexMatcher> matcher;

    Compiled(std::string p, std::string r, std::shared_ptr<const icu::RegexPattern> re)
        : pattern(std::move(p)), replacement(std::move(r)), regex(std::move(re)) {}
    Compiled(const Compiled& other)
        : pattern(other.pattern), replacement(other.replacement), regex(other.regex) {}
    Compiled& operator=(const Compiled& other) {
        if (this != &other) {
            pattern = other.pattern;
            replacement = other.replacement;
            regex = other.regex;
            matcher.reset();
        }
        return *this;
    }
    Compiled(Compiled&&) noexcept = default;
    Compiled& operator=(Compiled&&) noexcept = default;
    ~Compiled() = default;
};

namespace {

bool isSingleAsciiOtherThanCr(std::string_view s) {
    return s.size() == 1 && static_cast<unsigned char>(s[0]) < 0x80 && s[0] != '\r';
}

// Expands a replacement template for the current match: "$0" is the whole match, "$1"... the
// groups (as many digits as still name a group), "${name}" a named group, and a backslash takes
// the next character literally. A reference that names no group stays as written.
std::string fillIn(std::string_view replacement, icu::RegexMatcher& m) {
    std::string out;
    const int32_t groups = m.groupCount();
    auto group = [&](int32_t n) {
        UErrorCode s = U_ZERO_ERROR;
        icu::UnicodeString g = m.group(n, s);
        return U_SUCCESS(s) ? text::fromIcu(g) : std::string();
    };
    for (std::size_t i = 0; i < replacement.size();) {
        char c = replacement[i];
        if (c == '\\' && i + 1 < replacement.size()) {
            // Copy one whole code point, not one byte, after the backslash.
            std::size_t size = 1;
            auto lead = static_cast<unsigned char>(replacement[i + 1]);
            if (lead >= 0xF0) {
                size = 4;
            } else if (lead >= 0xE0) {
                size = 3;
            } else if (lead >= 0xC0) {
                size = 2;
            }
            out.append(replacement.substr(i + 1, size));
            i += 1 + size;
            continue;
        }
        if (c == '$' && i + 1 < replacement.size()) {
            char d = replacement[i + 1];
            if (d >= '0' && d <= '9' && d - '0' <= groups) {
                int32_t n = d - '0';
                std::size_t j = i + 2;
                while (j < replacement.size() && replacement[j] >= '0' && replacement[j] <= '9' &&
                       n * 10 + (replacement[j] - '0') <= groups) {
                    n = n * 10 + (replacement[j] - '0');
                    ++j;
                }
                out += group(n);
                i = j;
                continue;
            }
            if (d == '{') {
                auto close = replacement.find('}', i + 2);
                if (close != std::string_view::npos) {
                    auto name = text::toIcu(replacement.substr(i + 2, close - i - 2));
                    UErrorCode s = U_ZERO_ERROR;
                    int32_t n = m.pattern().groupNumberFromName(name, s);
                    if (U_SUCCESS(s)) {
                        out += group(n);
                        i = close + 1;
                        continue;
                    }
                }
            }
        }
        out += c;
        ++i;
    }
    return out;
}

} // namespace

Matcher::Matcher() = default;
Matcher::Matcher(const Matcher&) = default;
Matcher& Matcher::operator=(const Matcher&) = default;
Matcher::Matcher(Matcher&&) noexcept = default;
Matcher& Matcher::operator=(Matcher&&) noexcept = default;
Matcher::~Matcher() = default;

void Matcher::setSnippets(Table snippets, Modes modes) {
    Sorted sorted;
    sorted.reserve(snippets.size());
    while (!snippets.empty()) {
        auto node = snippets.extract(snippets.begin());
        sorted.emplace_back(std::move(node.key()), std::move(node.mapped()));
    }
    setAbbreviations(std::move(sorted), std::move(modes));
}

void Matcher::setAbbreviations(Sorted snippets, Modes modes) {
    std::sort(snippets.begin(), snippets.end());
    texts_.clear();
    const bool texts = std::any_of(snippets.begin(), snippets.end(),
                                   [](const auto& entry) { return !entry.second.empty(); });
    auto owned = std::make_shared<std::vector<std::string>>();
    owned->reserve(snippets.size());
    for (auto& [key, text] : snippets) {
        owned->push_back(std::move(key));
        if (texts) {
            texts_.push_back(std::move(text));
        }
    }
    keys_.assign(owned->begin(), owned->end());
    owned_ = std::move(owned);
    modes_ = std::move(modes);
    rebuildSnippetIndex();
    rebuildExtraIndex(); // shadowing depends on the user's abbreviations
}

void Matcher::setAbbreviationViews(std::vector<std::string_view> keys, Modes modes) {
    std::sort(keys.begin(), keys.end());
    keys_ = std::move(keys);
    owned_.reset();
    texts_.clear();
    modes_ = std::move(modes);
    rebuildSnippetIndex();
    rebuildExtraIndex(); // shadowing depends on the user's abbreviations
}

void Matcher::setPatterns(std::map<std::string, std::string> patterns) {
    patterns_ = std::move(patterns);
}

void Matcher::setCorrections(Table corrections) {
    corrections_ = std::move(corrections);
}

void Matcher::setExtras(Extras extras) {
    extras_ = std::move(extras);
    rebuildExtraIndex();
}

namespace {

// Entries in a fixed order so that keys that compare equal once composed resolve the same way
// every time.
template <typename Map> std::vector<std::string> sortedKeys(const Map& map) {
    std::vector<std::string> keys;
    keys.reserve(map.size());
    for (auto& [key, value] : map) {
        keys.push_back(key);
    }
    std::sort(keys.begin(), keys.end());
    return keys;
}

} // namespace

namespace {

// What a key's flags in the index mean: the trigger modes it fires in. A snippet without a
// trigger of its own follows the global mode, which may change between key strokes.
constexpr ReverseIndex::Flags followsGlobal = 1u << 3;

ReverseIndex::Flags flag(TriggerMode mode) {
    return static_cast<ReverseIndex::Flags>(1u << static_cast<unsigned>(mode));
}

} // namespace

void Matcher::rebuildSnippetIndex() {
    std::vector<std::string> composed;
    std::vector<ReverseIndex::Flags> flags;
    composed.reserve(keys_.size());
    flags.reserve(keys_.size());
    for (std::string_view key : keys_) {
        auto own = modes_.find(std::string(key));
        flags.push_back(own != modes_.end() ? flag(own->second) : followsGlobal);
        composed.push_back(text::nfc(key));
    }
    snippetIndex_.build(composed, flags);
}

void Matcher::rebuildExtraIndex() {
    extraEntries_.clear();
    std::vector<std::string> composed;
    std::vector<ReverseIndex::Flags> flags;
    for (auto& key : sortedKeys(extras_)) {
        const Extra& extra = extras_.at(key);
        // The user's own abbreviation of the same key wins: such an entry never fires.
        const bool shadowed = std::binary_search(keys_.begin(), keys_.end(), key);
        flags.push_back(shadowed ? 0 : flag(extra.mode));
        composed.push_back(text::nfc(key));
        extraEntries_.push_back(Entry{key, extra.text, !key.empty() && text::isLetterOrDigit(key)});
    }
    extraIndex_.build(composed, flags);
}

void Matcher::compile() {
    compiled_.clear();
    std::vector<std::string> sources;
    for (auto& [pattern, replacement] : patterns_) { // std::map: already in pattern order
        UErrorCode status = U_ZERO_ERROR;
        UParseError parseError{};
        std::shared_ptr<const icu::RegexPattern> regex(
            icu::RegexPattern::compile(text::toIcu("(?:" + pattern + ")$"), 0, parseError, status));
        if (U_FAILURE(status) || !regex) {
            continue;
        }
        compiled_.emplace_back(pattern, replacement, std::move(regex));
        sources.push_back(pattern);
    }
    filter_.build(sources);
    rescanLiterals();
}

void Matcher::rescanLiterals() {
    filter_.reset();
    filter_.append(raw_);
}

void Matcher::clear() {
    raw_.clear();
    rawStarts_.clear();
    nfc_.clear();
    nfcStarts_.clear();
    filter_.reset();
}

void Matcher::dropLast() {
    if (rawStarts_.empty()) {
        return;
    }
    raw_.resize(rawStarts_.back());
    rawStarts_.pop_back();
    nfc_.resize(nfcStarts_.back());
    nfcStarts_.pop_back();
    rescanLiterals(); // the literal filter only ever follows text forwards
}

void Matcher::append(std::string_view typed) {
    if (typed.empty()) {
        return;
    }
    // Common case: an ASCII key after an ASCII character always starts a new character.
    if (isSingleAsciiOtherThanCr(typed) &&
        (raw_.empty() || isSingleAsciiOtherThanCr(raw_.substr(raw_.size() - 1)))) {
        rawStarts_.push_back(static_cast<std::uint32_t>(raw_.size()));
        raw_ += typed;
        nfcStarts_.push_back(static_cast<std::uint32_t>(nfc_.size()));
        nfc_ += typed;
        filter_.append(typed);
        return;
    }
    // Otherwise the new text may join the last character (a combining mark, a second regional
    // indicator, a joiner): segment the last character together with it.
    std::string tail;
    if (!rawStarts_.empty()) {
        tail = raw_.substr(rawStarts_.back());
        raw_.resize(rawStarts_.back());
        rawStarts_.pop_back();
        nfc_.resize(nfcStarts_.back());
        nfcStarts_.pop_back();
    }
    tail += typed;
    for (std::string_view cluster : text::graphemes(tail)) {
        rawStarts_.push_back(static_cast<std::uint32_t>(raw_.size()));
        raw_ += cluster;
        nfcStarts_.push_back(static_cast<std::uint32_t>(nfc_.size()));
        nfc_ += text::nfc(cluster);
    }
    filter_.append(typed);
}

void Matcher::trimToLimit() {
    auto excess = static_cast<std::ptrdiff_t>(rawStarts_.size()) - limit_;
    if (excess <= 0) {
        return;
    }
    const std::uint32_t rawCut = rawStarts_[static_cast<std::size_t>(excess)];
    const std::uint32_t nfcCut = nfcStarts_[static_cast<std::size_t>(excess)];
    raw_.erase(0, rawCut);
    nfc_.erase(0, nfcCut);
    rawStarts_.erase(rawStarts_.begin(), rawStarts_.begin() + excess);
    nfcStarts_.erase(nfcStarts_.begin(), nfcStarts_.begin() + excess);
    for (auto& s : rawStarts_) {
        s -= rawCut;
    }
    for (auto& s : nfcStarts_) {
        s -= nfcCut;
    }
    filter_.dropFront(rawCut);
}

bool Matcher::atBoundary(std::size_t nfcOffset) const {
    return nfcOffset == nfc_.size() || std::binary_search(nfcStarts_.begin(), nfcStarts_.end(),
                                                          static_cast<std::uint32_t>(nfcOffset));
}

std::optional<std::uint32_t> Matcher::longestSuffix(const ReverseIndex& index, Mode trigger,
                                                    const std::vector<Entry>* wordStarts) const {
    const ReverseIndex::Flags wanted = flag(trigger) | (trigger == mode_ ? followsGlobal : 0);
    std::optional<std::uint32_t> best;
    std::size_t bestLength = 0;
    index.suffixes(nfc_, wanted, [&](std::uint32_t i, std::size_t length) {
        if (best && length <= bestLength) {
            return; // an equal key met earlier sorts first
        }
        const std::size_t start = nfc_.size() - length;
        if (!atBoundary(start)) {
            return; // the key ends inside one of the buffer's characters
        }
        if (wordStarts != nullptr && (*wordStarts)[i].letterLed && start > 0) {
            auto before = std::upper_bound(nfcStarts_.begin(), nfcStarts_.end(),
                                           static_cast<std::uint32_t>(start - 1));
            std::size_t from = *(before - 1);
            if (text::isLetterOrDigit(std::string_view(nfc_).substr(from, start - from))) {
                return; // a letter-led key must start a word
            }
        }
        best = i;
        bestLength = length;
    });
    return best;
}

Matcher::Match Matcher::finish(std::string abbreviation, std::string expansion,
                               std::string_view trailer, int onScreen,
                               std::optional<std::string> key) {
    clear();
    return Match{std::move(abbreviation), std::move(expansion), std::string(trailer), onScreen,
                 std::move(key)};
}

std::optional<Matcher::Match> Matcher::feed(std::string_view typed) {
    if (text::graphemeCount(typed) == 1 && text::isDelimiter(typed)) {
        if (auto m = fire(Mode::delimiter, typed)) {
            return m;
        }
        if (auto m = correct(typed)) {
            return m;
        }
    }
    append(typed);
    trimToLimit();
    return fire(Mode::instant, "");
}

std::optional<Matcher::Match> Matcher::fire(Mode trigger, std::string_view trailer) {
    if (auto i = longestSuffix(snippetIndex_, trigger, nullptr)) {
        const std::string key(keys_[*i]);
        const std::string text = texts_.empty() ? std::string() : texts_[*i];
        int count = static_cast<int>(text::graphemeCount(key));
        return finish(key, text, trailer, count - 1);
    }
    if (trigger == mode_ && !compiled_.empty()) {
        if (auto m = firePatterns(trailer)) {
            return m;
        }
    }
    if (auto i = longestSuffix(extraIndex_, trigger, &extraEntries_)) {
        const Entry& e = extraEntries_[*i];
        int count = static_cast<int>(text::graphemeCount(e.key));
        return finish(e.key, e.text, trailer, count - 1);
    }
    return std::nullopt;
}

std::optional<std::string> Matcher::patternProblem(std::string_view pattern) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError{};
    std::unique_ptr<icu::RegexPattern> regex(icu::RegexPattern::compile(
        text::toIcu("(?:" + std::string(pattern) + ")$"), 0, parseError, status));
    if (U_SUCCESS(status) && regex) { // compiled as the matcher compiles it
        return std::nullopt;
    }
    return "This pattern never fires: it isn't a valid regular expression.";
}

std::optional<std::string> Matcher::substitute(std::string_view pattern, std::string_view matched,
                                               std::string_view replacement) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError{};
    std::unique_ptr<icu::RegexPattern> regex(icu::RegexPattern::compile(
        text::toIcu("(?:" + std::string(pattern) + ")$"), 0, parseError, status));
    if (U_FAILURE(status) || !regex) {
        return std::nullopt;
    }
    const icu::UnicodeString input = text::toIcu(matched);
    std::unique_ptr<icu::RegexMatcher> m(regex->matcher(input, status));
    if (U_FAILURE(status) || !m || !m->find(0, status) || U_FAILURE(status)) {
        return std::nullopt;
    }
    return fillIn(replacement, *m);
}

std::optional<Matcher::Match> Matcher::firePatterns(std::string_view trailer) {
    thread_local std::vector<std::uint32_t> candidates;
    filter_.candidates(candidates);
    if (candidates.empty()) {
        return std::nullopt;
    }
    const icu::UnicodeString input = text::toIcu(raw_);
    for (std::uint32_t i : candidates) {
        Compiled& c = compiled_[i];
        UErrorCode status = U_ZERO_ERROR;
        if (!c.matcher) {
            c.matcher.reset(c.regex->matcher(status));
            if (U_FAILURE(status) || !c.matcher) {
                c.matcher.reset();
                continue;
            }
        }
        icu::RegexMatcher& m = *c.matcher;
        m.reset(input);
        if (!m.find(0, status) || U_FAILURE(status)) {
            continue;
        }
        int32_t start = m.start(status);
        int32_t end = m.end(status);
        if (U_FAILURE(status) || end <= start) {
            continue; // an empty match never fires
        }
        std::string matched = text::fromIcu(input.tempSubStringBetween(start, end));
        std::string expansion = fillIn(c.replacement, m);
        m.reset(icu::UnicodeString()); // drop the reference to input
        int count = static_cast<int>(text::graphemeCount(matched));
        return finish(std::move(matched), std::move(expansion), trailer, count - 1, c.pattern);
    }
    return std::nullopt;
}

bool Matcher::wouldFire(Mode trigger) const {
    if (longestSuffix(snippetIndex_, trigger, nullptr)) {
        return true;
    }
    if (trigger == mode_ && !compiled_.empty() && anyPatternMatches()) {
        return true;
    }
    return longestSuffix(extraIndex_, trigger, &extraEntries_).has_value();
}

bool Matcher::anyPatternMatches() const {
    thread_local std::vector<std::uint32_t> candidates;
    filter_.candidates(candidates);
    if (candidates.empty()) {
        return false;
    }
    // The cached matchers carry search state, so a question that changes nothing takes fresh ones.
    const icu::UnicodeString input = text::toIcu(raw_);
    for (std::uint32_t i : candidates) {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::RegexMatcher> m(compiled_[i].regex->matcher(input, status));
        if (U_FAILURE(status) || !m || !m->find(0, status) || U_FAILURE(status)) {
            continue;
        }
        int32_t start = m->start(status);
        int32_t end = m->end(status);
        if (U_SUCCESS(status) && end > start) {
            return true;
        }
    }
    return false;
}

std::optional<Matcher::Match> Matcher::correct(std::string_view trailer) {
    auto found = correction();
    if (!found) {
        return std::nullopt;
    }
    return finish(std::move(found->word), std::move(found->replacement), trailer, found->letters);
}

bool Matcher::wouldCorrect() const {
    return correction().has_value();
}

std::optional<Matcher::Correction> Matcher::correction() const {
    if (corrections_.empty()) {
        return std::nullopt; // asked on every key for the Return grab: no sets, no work
    }
    std::size_t first = rawStarts_.size();
    while (first > 0) {
        std::size_t from = rawStarts_[first - 1];
        std::size_t to = first < rawStarts_.size() ? rawStarts_[first] : raw_.size();
        if (!text::isLetter(std::string_view(raw_).substr(from, to - from))) {
            break;
        }
        --first;
    }
    const std::size_t letters = rawStarts_.size() - first;
    if (letters < 2) {
        return std::nullopt;
    }
    const std::string word = raw_.substr(rawStarts_[first]);
    auto found = corrections_.find(text::nfc(text::toLower(word)));
    if (found == corrections_.end()) {
        return std::nullopt;
    }
    std::string cased;
    if (word == text::toUpper(word)) {
        cased = text::toUpper(found->second);
    } else if (text::isUppercase(word)) {
        const std::string& right = found->second;
        std::size_t head = right.empty() ? 0 : text::graphemes(right).front().size();
        cased = text::toUpper(right.substr(0, head)) + right.substr(head);
    } else {
        cased = found->second;
    }
    if (cased == word) {
        return std::nullopt;
    }
    return Correction{word, std::move(cased), static_cast<int>(letters)};
}

} // namespace quillet
