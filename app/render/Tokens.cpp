#include "render/Tokens.h"

#include "library/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <initializer_list>
#include <limits>
#include <memory>
#include <unicode/calendar.h>
#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/regex.h>
#include <unicode/timezone.h>
#include <unicode/utext.h>
#include <unordered_map>

namespace quillet {
namespace {

// ---------------------------------------------------------------------------------------------
// Token patterns

// One match of a token pattern, as views into the matched text. A group that did not take part
// in the match is absent.
struct TokenMatch {
    std::string_view whole;
    std::array<std::optional<std::string_view>, 4> groups;

    std::optional<std::string_view> group(std::size_t number) const { return groups[number - 1]; }
};

// A token pattern, compiled once per process; a compiled RegexPattern may be shared between
// threads, each scan making its own RegexMatcher. The text is matched in place as UTF-8, so match
// offsets are byte offsets into it. Every token needs one of a few literals, which are checked
// first: most templates hold no tokens of a kind, and a substring search is far cheaper than
// setting up the regular-expression engine.
class TokenPattern {
public:
    TokenPattern(std::u16string_view source, std::initializer_list<std::string_view> literals)
        : literals_(literals) {
        UErrorCode status = U_ZERO_ERROR;
        UParseError where;
        pattern_.reset(icu::RegexPattern::compile(
            icu::UnicodeString(source.data(), static_cast<int32_t>(source.size())), 0, where,
            status));
        if (U_FAILURE(status)) {
            pattern_.reset();
        }
    }

    // Calls f(match) for each match in text, left to right.
    template <typename F> void scan(std::string_view text, F&& f) const {
        if (pattern_ == nullptr || std::none_of(literals_.begin(), literals_.end(), [&](auto l) {
                return text.find(l) != std::string_view::npos;
            })) {
            return;
        }
        UErrorCode status = U_ZERO_ERROR;
        UText* input =
            utext_openUTF8(nullptr, text.data(), static_cast<int64_t>(text.size()), &status);
        std::unique_ptr<icu::RegexMatcher> matcher(pattern_->matcher(status));
        if (U_SUCCESS(status)) {
            matcher->reset(input);
            const auto groupCount = std::min<std::size_t>(
                static_cast<std::size_t>(matcher->groupCount()), TokenMatch{}.groups.size());
            while (matcher->find(status) && U_SUCCESS(status)) {
                TokenMatch match;
                match.whole = slice(text, matcher->start64(status), matcher->end64(status));
                for (std::size_t g = 1; g <= groupCount; ++g) {
                    auto number = static_cast<int32_t>(g);
                    int64_t start = matcher->start64(number, status);
                    if (start >= 0) {
                        match.groups[g - 1] = slice(text, start, matcher->end64(number, status));
                    }
                }
                if (U_FAILURE(status)) {
                    break;
                }
                f(match);
            }
        }
        // The matcher holds a shallow clone of the UText; it must go before the text is closed.
        matcher.reset();
        utext_close(input);
    }

    // The text with each match replaced by replacement(match).
    template <typename F> std::string replace(std::string_view text, F&& replacement) const {
        std::string out;
        std::size_t done = 0;
        scan(text, [&](const TokenMatch& match) {
            auto begin = static_cast<std::size_t>(match.whole.data() - text.data());
            if (out.empty()) {
                out.reserve(text.size());
            }
            out.append(text.substr(done, begin - done));
            out.append(replacement(match));
            done = begin + match.whole.size();
        });
        out.append(text.substr(done));
        return out;
    }

private:
    static std::string_view slice(std::string_view text, int64_t start, int64_t end) {
        auto a = std::clamp<int64_t>(start, 0, static_cast<int64_t>(text.size()));
        auto b = std::clamp<int64_t>(end, a, static_cast<int64_t>(text.size()));
        return text.substr(static_cast<std::size_t>(a), static_cast<std::size_t>(b - a));
    }

    std::unique_ptr<icu::RegexPattern> pattern_;
    std::vector<std::string_view> literals_;
};

const TokenPattern& arithmeticPattern() {
    static const TokenPattern pattern(uR"(\{(date|time)(?:([+-])(\d+)([dwmy]))?\})",
                                      {"{date", "{time"});
    return pattern;
}

const TokenPattern& phrasePattern() {
    static const TokenPattern pattern(uR"(\{date:([^}]+)\})", {"{date:"});
    return pattern;
}

const TokenPattern& clipboardPattern() {
    static const TokenPattern pattern(uR"(\{clipboard(?::(\d+))?\})", {"{clipboard"});
    return pattern;
}

const TokenPattern& keyPattern() {
    static const TokenPattern pattern(uR"(\{key:([a-z0-9+]+)\})", {"{key:"});
    return pattern;
}

const TokenPattern& includePattern() {
    static const TokenPattern pattern(uR"(\{snippet:([^}]+)\})", {"{snippet:"});
    return pattern;
}

const TokenPattern& fieldPattern() {
    static const TokenPattern pattern(uR"(\{(?:field|choice):([^}=]+?)(:sorted)?(?:=([^}]*))?\})",
                                      {"{field:", "{choice:"});
    return pattern;
}

constexpr std::string_view caretMark = "{cursor}";

// ---------------------------------------------------------------------------------------------
// Words and numbers

// The parts of s between separators, leaving out empty ones.
std::vector<std::string_view> split(std::string_view s, char separator) {
    std::vector<std::string_view> parts;
    for (std::size_t at = 0; at < s.size();) {
        std::size_t end = std::min(s.find(separator, at), s.size());
        if (end > at) {
            parts.push_back(s.substr(at, end - at));
        }
        at = end + 1;
    }
    return parts;
}

bool allDigits(std::string_view s) {
    return !s.empty() &&
           std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// A base-10 integer of ASCII digits with an optional leading sign; nothing when anything else is
// in it or it does not fit.
std::optional<std::int64_t> parseInteger(std::string_view s, bool plusAllowed) {
    std::string_view digits = s;
    if (!digits.empty() && (digits[0] == '-' || (plusAllowed && digits[0] == '+'))) {
        digits.remove_prefix(1);
    }
    if (!allDigits(digits)) {
        return std::nullopt;
    }
    // from_chars reads "-" itself but not "+", so a plus sign is skipped before it.
    std::string_view number = !s.empty() && s[0] == '+' ? digits : s;
    std::int64_t value = 0;
    auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
    if (error != std::errc{} || end != number.data() + number.size()) {
        return std::nullopt;
    }
    return value;
}

// ---------------------------------------------------------------------------------------------
// Calendar

// 2001-01-01 00:00:00 UTC in ICU's milliseconds since 1970.
constexpr double referenceMillis = 978307200000.0;

// Moments beyond about 3,000 years either side of 2001 only come from damaged data; they are
// held at that edge so that calendar arithmetic stays far inside what ICU can compute.
constexpr double momentLimitSeconds = 1e11;

// ICU's calendars compute within about 5.8 million years either side of 1970, and some of their
// field arithmetic overflows beyond that. Amounts reaching further than five million years
// (counted generously per unit) are refused before ICU sees them.
constexpr std::int64_t reachYears = 5'000'000;

std::int64_t reach(UCalendarDateFields field) {
    switch (field) {
    case UCAL_YEAR:
        return reachYears;
    case UCAL_MONTH:
        return reachYears * 12;
    case UCAL_WEEK_OF_YEAR:
        return reachYears * 53;
    default:
        return reachYears * 366;
    }
}

UDate toUDate(Date date) {
    double seconds = std::isfinite(date.seconds) ? date.seconds : 0.0;
    seconds = std::clamp(seconds, -momentLimitSeconds, momentLimitSeconds);
    return seconds * 1000.0 + referenceMillis;
}

Date fromUDate(UDate moment) {
    return Date{(moment - referenceMillis) / 1000.0};
}

std::string toUtf8(const icu::UnicodeString& s) {
    std::string out;
    s.toUTF8String(out);
    return out;
}

icu::UnicodeString toUnicode(std::string_view s) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(s.data(), static_cast<int32_t>(s.size())));
}

// The locale the user asked dates to be written in: the POSIX variables in their order of
// precedence, whose encoding and modifier ICU has no use for. ICU's own default would ignore
// LC_TIME.
icu::Locale userLocale() {
    for (const char* variable : {"LC_ALL", "LC_TIME", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value == nullptr || *value == '\0') {
            continue;
        }
        std::string id(value);
        id.erase(std::min(id.find('.'), id.find('@')));
        if (id.empty() || id == "C" || id == "POSIX") {
            break;
        }
        return icu::Locale::createCanonical(id.c_str());
    }
    return icu::Locale::getDefault();
}

// The calendar, locale and zone of one render, set up when the first date token asks for them.
class Dates {
public:
    explicit Dates(const RenderContext& context) : context_(context) {}

    UDate now() const { return toUDate(context_.now); }

    // from plus amount units of field in calendar arithmetic; nothing when the calendar cannot
    // produce that date.
    std::optional<UDate> add(UDate from, UCalendarDateFields field, std::int64_t amount) {
        if (amount > reach(field) || amount < -reach(field) || calendar() == nullptr) {
            return std::nullopt;
        }
        UErrorCode status = U_ZERO_ERROR;
        calendar_->setTime(from, status);
        calendar_->add(field, static_cast<int32_t>(amount), status);
        UDate result = calendar_->getTime(status);
        if (U_FAILURE(status)) {
            return std::nullopt;
        }
        return result;
    }

    // The weekday of a moment, 1 for Sunday to 7 for Saturday.
    std::optional<int> weekday(UDate moment) {
        if (calendar() == nullptr) {
            return std::nullopt;
        }
        UErrorCode status = U_ZERO_ERROR;
        calendar_->setTime(moment, status);
        int32_t day = calendar_->get(UCAL_DAY_OF_WEEK, status);
        if (U_FAILURE(status) || day < UCAL_SUNDAY || day > UCAL_SATURDAY) {
            return std::nullopt;
        }
        return day;
    }

    // The moment in the abbreviated date style, without the time; nothing when ICU cannot.
    std::optional<std::string> date(UDate moment) { return format(dateFormat_, true, moment); }

    // The moment's time of day in the short style; nothing when ICU cannot.
    std::optional<std::string> time(UDate moment) { return format(timeFormat_, false, moment); }

private:
    icu::Calendar* calendar() {
        if (!prepared_) {
            prepared_ = true;
            prepare();
        }
        return calendar_.get();
    }

    void prepare() {
        locale_ = context_.locale.empty() ? userLocale()
                                          : icu::Locale::createCanonical(context_.locale.c_str());
        if (locale_.isBogus()) {
            locale_ = icu::Locale::getRoot();
        }
        if (!context_.calendar.empty()) {
            UErrorCode status = U_ZERO_ERROR;
            icu::Locale withCalendar = locale_;
            withCalendar.setKeywordValue("calendar", context_.calendar.c_str(), status);
            if (U_SUCCESS(status) && !withCalendar.isBogus()) {
                locale_ = withCalendar;
            }
        }
        std::unique_ptr<icu::TimeZone> zone;
        if (!context_.timeZone.empty()) {
            zone.reset(icu::TimeZone::createTimeZone(toUnicode(context_.timeZone)));
        }
        // An unknown zone id would silently give GMT; the system's zone is a better guess.
        if (zone == nullptr || *zone == icu::TimeZone::getUnknown()) {
            zone.reset(icu::TimeZone::createDefault());
        }
        UErrorCode status = U_ZERO_ERROR;
        calendar_.reset(icu::Calendar::createInstance(zone.release(), locale_, status));
        if (U_FAILURE(status)) {
            calendar_.reset();
        }
    }

    std::optional<std::string> format(std::unique_ptr<icu::DateFormat>& formatter, bool isDate,
                                      UDate moment) {
        if (calendar() == nullptr) {
            return std::nullopt;
        }
        if (formatter == nullptr) {
            formatter.reset(
                isDate ? icu::DateFormat::createDateInstance(icu::DateFormat::kMedium, locale_)
                       : icu::DateFormat::createTimeInstance(icu::DateFormat::kShort, locale_));
            if (formatter == nullptr) {
                return std::nullopt;
            }
            // The formatter computes in a copy of the render's calendar, zone included.
            formatter->setCalendar(*calendar_);
        }
        icu::UnicodeString out;
        formatter->format(moment, out);
        return toUtf8(out);
    }

    const RenderContext& context_;
    bool prepared_ = false;
    icu::Locale locale_;
    std::unique_ptr<icu::Calendar> calendar_;
    std::unique_ptr<icu::DateFormat> dateFormat_;
    std::unique_ptr<icu::DateFormat> timeFormat_;
};

// ---------------------------------------------------------------------------------------------
// Natural-language dates

std::optional<UCalendarDateFields> unitNamed(std::string_view word) {
    static constexpr std::array<std::pair<std::string_view, UCalendarDateFields>, 4> units{{
        {"day", UCAL_DATE},
        {"week", UCAL_WEEK_OF_YEAR},
        {"month", UCAL_MONTH},
        {"year", UCAL_YEAR},
    }};
    for (int attempt = 0; attempt < 2; ++attempt) {
        for (const auto& [name, field] : units) {
            if (word == name) {
                return field;
            }
        }
        if (!word.ends_with('s')) {
            break;
        }
        word.remove_suffix(1);
    }
    return std::nullopt;
}

// The weekday a word abbreviates (three letters at least), 1 for Sunday to 7 for Saturday.
std::optional<int> weekdayNamed(std::string_view word) {
    static constexpr std::array<std::string_view, 7> weekdays{
        "sunday", "monday", "tuesday", "wednesday", "thursday", "friday", "saturday"};
    if (word.size() < 3) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < weekdays.size(); ++i) {
        if (weekdays[i].starts_with(word)) {
            return static_cast<int>(i) + 1;
        }
    }
    return std::nullopt;
}

std::optional<std::int64_t> numberNamed(std::string_view word) {
    if (word == "a" || word == "an") {
        return 1;
    }
    return parseInteger(word, true);
}

std::optional<UDate> weekdayDate(std::string_view direction, int target, Dates& dates) {
    auto today = dates.weekday(dates.now());
    if (!today) {
        return std::nullopt;
    }
    int forward = (target - *today + 7) % 7;
    int backward = (*today - target + 7) % 7;
    int days = 0;
    if (direction == "this") {
        days = forward;
    } else if (direction == "next") {
        days = forward == 0 ? 7 : forward;
    } else if (direction == "last") {
        days = -(backward == 0 ? 7 : backward);
    } else {
        return std::nullopt;
    }
    return dates.add(dates.now(), UCAL_DATE, days);
}

std::optional<UDate> phraseDate(std::string_view phrase, Dates& dates) {
    const std::string lower = text::toLower(phrase);
    const std::vector<std::string_view> words = split(lower, ' ');
    const UDate now = dates.now();
    if (words.size() == 1) {
        std::string_view word = words[0];
        if (word == "today") {
            return now;
        }
        if (word == "tomorrow") {
            return dates.add(now, UCAL_DATE, 1);
        }
        if (word == "yesterday") {
            return dates.add(now, UCAL_DATE, -1);
        }
        if (auto day = weekdayNamed(word)) {
            return weekdayDate("this", *day, dates);
        }
        return std::nullopt;
    }
    if (words.size() == 2) {
        std::string_view direction = words[0];
        if (auto day = weekdayNamed(words[1]);
            day && (direction == "this" || direction == "next" || direction == "last")) {
            return weekdayDate(direction, *day, dates);
        }
        if (auto unit = unitNamed(words[1]); unit && (direction == "next" || direction == "last")) {
            return dates.add(now, *unit, direction == "next" ? 1 : -1);
        }
        return std::nullopt;
    }
    if (words.size() == 3) {
        if (words[0] == "in") {
            auto amount = numberNamed(words[1]);
            auto unit = unitNamed(words[2]);
            if (!amount || !unit) {
                return std::nullopt;
            }
            return dates.add(now, *unit, *amount);
        }
        if (words[2] == "ago") {
            auto amount = numberNamed(words[0]);
            auto unit = unitNamed(words[1]);
            if (!amount || !unit || *amount == std::numeric_limits<std::int64_t>::min()) {
                return std::nullopt;
            }
            return dates.add(now, *unit, -*amount);
        }
    }
    return std::nullopt;
}

// ---------------------------------------------------------------------------------------------
// Render passes

std::string renderArithmetic(std::string_view text, Dates& dates) {
    return arithmeticPattern().replace(text, [&](const TokenMatch& m) {
        const bool isDate = m.group(1) == "date";
        UDate moment = dates.now();
        auto sign = m.group(2);
        auto amount = m.group(3) ? parseInteger(*m.group(3), false) : std::nullopt;
        if (sign && amount) {
            static constexpr std::array<std::pair<char, UCalendarDateFields>, 4> units{{
                {'d', UCAL_DATE},
                {'w', UCAL_WEEK_OF_YEAR},
                {'m', UCAL_MONTH},
                {'y', UCAL_YEAR},
            }};
            char letter = m.group(4).value_or(" ").front();
            auto unit = std::find_if(units.begin(), units.end(),
                                     [&](const auto& u) { return u.first == letter; });
            if (unit != units.end()) {
                // The amount is read without a sign, so it can always be negated.
                moment = dates.add(moment, unit->second, *sign == "-" ? -*amount : *amount)
                             .value_or(moment);
            }
        }
        auto formatted = isDate ? dates.date(moment) : dates.time(moment);
        return formatted ? *formatted : std::string(m.whole);
    });
}

std::string renderPhrases(std::string_view text, Dates& dates) {
    return phrasePattern().replace(text, [&](const TokenMatch& m) {
        std::optional<std::string> formatted;
        if (auto moment = phraseDate(m.group(1).value_or(""), dates)) {
            formatted = dates.date(*moment);
        }
        return formatted ? *formatted : std::string(m.whole);
    });
}

std::string renderClipboard(std::string_view text, const std::vector<std::string>& clipboard) {
    return clipboardPattern().replace(text, [&](const TokenMatch& m) {
        std::optional<std::int64_t> index;
        if (auto digits = m.group(1)) {
            index = parseInteger(*digits, false);
        }
        const std::int64_t entry = index.value_or(1);
        if (entry < 1 || static_cast<std::uint64_t>(entry) > clipboard.size()) {
            return std::string();
        }
        return clipboard[static_cast<std::size_t>(entry - 1)];
    });
}

// ---------------------------------------------------------------------------------------------
// Includes

// Included text stops growing once this many bytes have been pasted in: without a bound, a few
// snippets that each include the next one many times would multiply beyond any memory.
constexpr std::size_t includeBudget = std::size_t{1} << 20;

class Includer {
public:
    explicit Includer(const std::vector<Snippet>& library) : library_(library) {}

    // path holds the open abbreviations in NFC, so a loop through the other form ends too.
    std::string expand(std::string_view text, std::vector<std::string>& path) {
        return includePattern().replace(text, [&](const TokenMatch& m) {
            // Composed or decomposed, an accent names the same snippet, as when typed.
            std::string name = text::nfc(m.group(1).value_or(""));
            const Snippet* snippet = nullptr;
            if (path.size() < Tokens::includeLimit &&
                std::find(path.begin(), path.end(), name) == path.end()) {
                snippet = find(name);
            }
            if (snippet == nullptr || snippet->content.size() > budget_) {
                return std::string(m.whole);
            }
            budget_ -= snippet->content.size();
            path.push_back(std::move(name));
            std::string included = expand(snippet->content, path);
            path.pop_back();
            return included;
        });
    }

private:
    static bool includable(const Snippet& s) {
        return s.kind == Snippet::Kind::text && !s.regex && !s.archived && !s.locked;
    }

    // Whether abbreviation, in NFC, is the one s has in whichever normal form.
    static bool named(const Snippet& s, std::string_view abbreviation) {
        return s.abbreviation == abbreviation ||
               (!text::isNfc(s.abbreviation) && text::nfc(s.abbreviation) == abbreviation);
    }

    // The first snippet in library order that may be included under this abbreviation (in NFC).
    // A few lookups scan the library; a template with many includes gets an index, so that the
    // cost stays linear in the library however many tokens there are.
    const Snippet* find(const std::string& abbreviation) {
        if (scans_ < scansBeforeIndex) {
            ++scans_;
            auto it = std::find_if(library_.begin(), library_.end(), [&](const Snippet& s) {
                return named(s, abbreviation) && includable(s);
            });
            if (scans_ == scansBeforeIndex) {
                for (const Snippet& s : library_) {
                    if (includable(s)) {
                        index_.try_emplace(text::nfc(s.abbreviation), &s);
                    }
                }
            }
            return it == library_.end() ? nullptr : &*it;
        }
        auto it = index_.find(abbreviation);
        return it == index_.end() ? nullptr : it->second;
    }

    static constexpr int scansBeforeIndex = 8;

    const std::vector<Snippet>& library_;
    std::size_t budget_ = includeBudget;
    int scans_ = 0;
    std::unordered_map<std::string, const Snippet*> index_;
};

// ---------------------------------------------------------------------------------------------
// Keys

struct NamedKey {
    std::string_view name;
    std::uint16_t code;
};

constexpr std::array<NamedKey, 9> namedKeys{{
    {"return", 36},
    {"tab", 48},
    {"space", 49},
    {"delete", 51},
    {"esc", 53},
    {"left", 123},
    {"right", 124},
    {"down", 125},
    {"up", 126},
}};

// The US ANSI layout's key codes of a to z and of 0 to 9.
constexpr std::array<std::uint16_t, 26> letterCodes{
    0, 11, 8, 2, 14, 3, 5, 4, 34, 38, 40, 37, 46, 45, 31, 35, 12, 15, 1, 17, 32, 9, 13, 7, 16, 6};
constexpr std::array<std::uint16_t, 10> digitCodes{29, 18, 19, 20, 21, 23, 22, 26, 28, 25};

std::optional<std::uint64_t> modifierNamed(std::string_view name) {
    static constexpr std::array<std::pair<std::string_view, std::uint64_t>, 6> modifiers{{
        {"cmd", Tokens::commandMask},
        {"shift", Tokens::shiftMask},
        {"opt", Tokens::optionMask},
        {"ctrl", Tokens::controlMask},
        {"alt", Tokens::optionMask},
        {"super", Tokens::superMask},
    }};
    for (const auto& [word, mask] : modifiers) {
        if (name == word) {
            return mask;
        }
    }
    return std::nullopt;
}

std::optional<std::uint16_t> keyNamed(std::string_view name) {
    for (const auto& key : namedKeys) {
        if (name == key.name) {
            return key.code;
        }
    }
    if (name.size() == 1 && name[0] >= 'a' && name[0] <= 'z') {
        return letterCodes[static_cast<std::size_t>(name[0] - 'a')];
    }
    if (name.size() == 1 && name[0] >= '0' && name[0] <= '9') {
        return digitCodes[static_cast<std::size_t>(name[0] - '0')];
    }
    return std::nullopt;
}

} // namespace

Tokens::Rendered Tokens::render(std::string_view text, const RenderContext& context) {
    Dates dates(context);
    std::string out = renderArithmetic(text, dates);
    out = renderPhrases(out, dates);
    out = renderClipboard(out, context.clipboard);
    Rendered rendered;
    if (auto mark = out.find(caretMark); mark != std::string::npos) {
        out.erase(mark, caretMark.size());
        rendered.cursorBack =
            static_cast<std::int64_t>(text::graphemeCount(std::string_view(out).substr(mark)));
    }
    rendered.text = std::move(out);
    return rendered;
}

std::optional<Date> Tokens::relativeDate(std::string_view phrase, const RenderContext& context) {
    Dates dates(context);
    auto moment = phraseDate(phrase, dates);
    if (!moment) {
        return std::nullopt;
    }
    return fromUDate(*moment);
}

std::string Tokens::includes(std::string_view text, const std::set<std::string>& visited,
                             const std::vector<Snippet>& library) {
    std::vector<std::string> path;
    for (const std::string& abbreviation : visited) {
        path.push_back(text::nfc(abbreviation));
    }
    return Includer(library).expand(text, path);
}

std::vector<Tokens::Field> Tokens::fields(std::string_view text) {
    std::vector<Field> out;
    fieldPattern().scan(text, [&](const TokenMatch& m) {
        std::string_view name = m.group(1).value_or("");
        if (std::any_of(out.begin(), out.end(), [&](const Field& f) { return f.name == name; })) {
            return;
        }
        Field field{std::string(name), {}, m.group(2).has_value()};
        for (std::string_view option : split(m.group(3).value_or(""), '|')) {
            field.options.emplace_back(option);
        }
        out.push_back(std::move(field));
    });
    return out;
}

std::string Tokens::fill(std::string_view text, const std::map<std::string, std::string>& values) {
    return fieldPattern().replace(text, [&](const TokenMatch& m) {
        auto it = values.find(std::string(m.group(1).value_or("")));
        return it == values.end() ? std::string() : it->second;
    });
}

std::vector<Tokens::Piece> Tokens::pieces(std::string_view text) {
    std::vector<Piece> out;
    std::size_t done = 0;
    keyPattern().scan(text, [&](const TokenMatch& m) {
        auto begin = static_cast<std::size_t>(m.whole.data() - text.data());
        if (begin > done) {
            out.push_back({Piece::Kind::text, std::string(text.substr(done, begin - done))});
        }
        out.push_back({Piece::Kind::key, std::string(m.group(1).value_or(""))});
        done = begin + m.whole.size();
    });
    if (done < text.size()) {
        out.push_back({Piece::Kind::text, std::string(text.substr(done))});
    }
    return out;
}

std::optional<Tokens::KeyStroke> Tokens::keyStroke(std::string_view name) {
    const std::vector<std::string_view> parts = split(name, '+');
    if (parts.empty()) {
        return std::nullopt;
    }
    KeyStroke stroke;
    for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
        auto mask = modifierNamed(parts[i]);
        if (!mask) {
            return std::nullopt;
        }
        stroke.mask |= *mask;
    }
    auto code = keyNamed(parts.back());
    if (!code) {
        return std::nullopt;
    }
    stroke.code = *code;
    return stroke;
}

std::string Tokens::choiceToken(std::string_view name, const std::vector<std::string>& options,
                                bool sorted) {
    std::string out = "{choice:";
    out += name;
    if (sorted) {
        out += ":sorted";
    }
    out += '=';
    for (std::size_t i = 0; i < options.size(); ++i) {
        if (i > 0) {
            out += '|';
        }
        out += options[i];
    }
    out += '}';
    return out;
}

std::string Tokens::renameChoice(std::string_view text, std::string_view name,
                                 std::string_view newName, const std::vector<std::string>& options,
                                 bool sorted) {
    const std::string replacement = choiceToken(newName, options, sorted);
    return fieldPattern().replace(text, [&](const TokenMatch& m) {
        const bool same = m.whole.starts_with("{choice:") && m.group(1) == name && m.group(3);
        return same ? replacement : std::string(m.whole);
    });
}

} // namespace quillet
