#include "library/Usage.h"

#include "library/AtomicFile.h"
#include "library/Text.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <system_error>
#include <unicode/locid.h>
#include <unicode/measfmt.h>
#include <unicode/measunit.h>
#include <unicode/measure.h>

namespace quillet {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// 200 characters a minute; the same double the figure has always been computed with, so the
// rounding of borderline counts does not change between versions.
constexpr double charactersPerSecond = 3.3333333333333335;

constexpr std::string_view orderNames[] = {"mostUsed", "newest", "alphabetical"};

std::string quote(const fs::path& path) {
    return "\"" + path.string() + "\"";
}

// A JSON number that is a whole value in the 64-bit range. Whole-valued floats ("3.0") are taken
// too: other encoders write them that way.
std::optional<std::int64_t> wholeNumber(const json& value) {
    if (value.is_number_integer() && !value.is_number_unsigned()) {
        return value.get<std::int64_t>();
    }
    if (value.is_number_unsigned()) {
        auto n = value.get<std::uint64_t>();
        if (n <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            return static_cast<std::int64_t>(n);
        }
        return std::nullopt;
    }
    if (value.is_number_float()) {
        double d = value.get<double>();
        // 2^63 is exactly representable; anything below it converts without overflow.
        if (std::isfinite(d) && d == std::trunc(d) && d >= -9223372036854775808.0 &&
            d < 9223372036854775808.0) {
            return static_cast<std::int64_t>(d);
        }
    }
    return std::nullopt;
}

std::optional<Usage::Use> useFromJson(const json& object, std::string& error) {
    if (!object.is_object()) {
        error = "is not a JSON object";
        return std::nullopt;
    }
    auto count = object.find("count");
    auto last = object.find("last");
    if (count == object.end()) {
        error = "has no \"count\"";
        return std::nullopt;
    }
    if (last == object.end()) {
        error = "has no \"last\"";
        return std::nullopt;
    }
    auto n = wholeNumber(*count);
    if (!n) {
        error = "has a \"count\" that is not a whole number";
        return std::nullopt;
    }
    if (!last->is_number()) {
        error = "has a \"last\" that is not a number";
        return std::nullopt;
    }
    return Usage::Use{*n, Date{last->get<double>()}};
}

icu::Locale icuLocale(const std::string& name) {
    if (name.empty()) {
        return icu::Locale::getDefault();
    }
    if (name.find('-') != std::string::npos) {
        UErrorCode status = U_ZERO_ERROR;
        icu::Locale locale = icu::Locale::forLanguageTag(name, status);
        if (U_SUCCESS(status)) {
            return locale;
        }
    }
    return icu::Locale(name.c_str());
}

// The last resort when ICU cannot format: the English abbreviations.
std::string plainDuration(const std::vector<std::pair<std::int64_t, char>>& parts) {
    std::string out;
    for (const auto& [value, unit] : parts) {
        if (!out.empty()) {
            out += ' ';
        }
        out += std::to_string(value);
        out += unit;
    }
    return out;
}

// Where to keep a usage file that does not decode: the first free name of "usage.json.damaged",
// "usage.json.damaged-2", ... A hard link claims the name only if nobody has it, so an older
// damaged copy is never replaced.
bool setAside(const fs::path& path, fs::path& aside, std::string& error) {
    std::error_code ec;
    for (int n = 1; n < 1000; ++n) {
        aside = path;
        aside += n == 1 ? ".damaged" : ".damaged-" + std::to_string(n);
        fs::create_hard_link(path, aside, ec);
        if (ec == std::errc::file_exists) {
            continue;
        }
        if (ec) {
            // Some file systems have no hard links; fall back to a rename onto a free name.
            if (fs::exists(fs::symlink_status(aside, ec))) {
                continue;
            }
            fs::rename(path, aside, ec);
            if (ec) {
                error = "it could not be moved aside: " + ec.message();
                return false;
            }
            return true;
        }
        fs::remove(path, ec);
        return true;
    }
    error = "it could not be moved aside: too many damaged copies beside it";
    return false;
}

} // namespace

void Usage::record(const Uuid& id, std::int64_t spared, Date at) {
    expansions += 1;
    characters += std::max<std::int64_t>(spared, 0);
    Use& use = uses.try_emplace(id, Use{0, at}).first->second;
    use.count += 1;
    use.last = at;
}

void Usage::undo(const Uuid& id, std::int64_t spared) {
    expansions -= 1;
    characters -= std::max<std::int64_t>(spared, 0);
    if (auto it = uses.find(id); it != uses.end()) {
        it->second.count -= 1;
    }
}

void Usage::seed(const std::vector<Uuid>& ids, Date at) {
    uses.insertMissing(ids, Use{0, at});
}

std::vector<Snippet> Usage::stale(const std::vector<Snippet>& snippets, Date before) const {
    std::vector<Snippet> result;
    for (const auto& snippet : snippets) {
        if (snippet.archived || snippet.abbreviation.empty()) {
            continue;
        }
        auto it = uses.find(snippet.id);
        if (it != uses.end() && it->second.last < before) {
            result.push_back(snippet);
        }
    }
    return result;
}

std::vector<Snippet> Usage::recent(const std::vector<Snippet>& snippets, Date since) const {
    std::vector<std::pair<Date, const Snippet*>> found;
    for (const auto& snippet : snippets) {
        auto it = uses.find(snippet.id);
        if (it != uses.end() && it->second.count > 0 && it->second.last >= since) {
            found.emplace_back(it->second.last, &snippet);
        }
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    std::vector<Snippet> result;
    result.reserve(found.size());
    for (const auto& entry : found) {
        result.push_back(*entry.second);
    }
    return result;
}

std::vector<Snippet> Usage::sorted(const std::vector<Snippet>& snippets, Order order) const {
    std::vector<std::size_t> positions(snippets.size());
    for (std::size_t i = 0; i < positions.size(); ++i) {
        positions[i] = i;
    }
    switch (order) {
    case Order::mostUsed: {
        std::vector<std::int64_t> counts;
        counts.reserve(snippets.size());
        for (const auto& snippet : snippets) {
            auto it = uses.find(snippet.id);
            counts.push_back(it == uses.end() ? 0 : it->second.count);
        }
        std::stable_sort(positions.begin(), positions.end(),
                         [&](std::size_t a, std::size_t b) { return counts[a] > counts[b]; });
        break;
    }
    case Order::newest:
        // Records that never had a creation date go last.
        std::stable_sort(positions.begin(), positions.end(), [&](std::size_t a, std::size_t b) {
            const auto& x = snippets[a].created;
            const auto& y = snippets[b].created;
            return x && (!y || *x > *y);
        });
        break;
    case Order::alphabetical: {
        std::vector<std::string> keys;
        keys.reserve(snippets.size());
        for (const auto& snippet : snippets) {
            keys.push_back(text::toLower(snippet.abbreviation));
        }
        std::stable_sort(positions.begin(), positions.end(),
                         [&](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
        break;
    }
    }
    std::vector<Snippet> result;
    result.reserve(snippets.size());
    for (std::size_t i : positions) {
        result.push_back(snippets[i]);
    }
    return result;
}

std::optional<std::string> Usage::timeSaved(const std::string& locale) const {
    if (characters <= 0) {
        return std::nullopt;
    }
    return formatDuration(typingSeconds(characters), locale);
}

std::string_view rawValue(Usage::Order order) {
    return orderNames[static_cast<std::size_t>(order)];
}

std::optional<Usage::Order> orderFromRaw(std::string_view raw) {
    for (std::size_t i = 0; i < std::size(orderNames); ++i) {
        if (orderNames[i] == raw) {
            return static_cast<Usage::Order>(i);
        }
    }
    return std::nullopt;
}

std::int64_t typingSeconds(std::int64_t characters) {
    return std::llround(static_cast<double>(characters) / charactersPerSecond);
}

std::string formatDuration(std::int64_t seconds, const std::string& locale) {
    seconds = std::max<std::int64_t>(seconds, 0);
    const std::int64_t values[] = {seconds / 3600, seconds / 60 % 60, seconds % 60};
    const char symbols[] = {'h', 'm', 's'};

    // The largest unit that is not zero and the one below it; zero units are left out.
    std::size_t first = 0;
    while (first < 2 && values[first] == 0) {
        ++first;
    }
    std::vector<std::pair<std::int64_t, char>> parts;
    for (std::size_t i = first; i < std::min<std::size_t>(first + 2, 3); ++i) {
        if (values[i] != 0 || parts.empty()) {
            parts.emplace_back(values[i], symbols[i]);
        }
    }
    // "0s" rather than nothing: the single part of a zero duration is its seconds.
    if (parts.size() == 1 && parts[0].first == 0) {
        parts[0].second = 's';
    }

    UErrorCode status = U_ZERO_ERROR;
    // The narrow width is the one that reads "1m 30s" in English.
    icu::MeasureFormat format(icuLocale(locale), UMEASFMT_WIDTH_NARROW, status);
    std::vector<icu::Measure> measures;
    measures.reserve(parts.size());
    for (const auto& [value, symbol] : parts) {
        icu::MeasureUnit* unit = symbol == 'h'   ? icu::MeasureUnit::createHour(status)
                                 : symbol == 'm' ? icu::MeasureUnit::createMinute(status)
                                                 : icu::MeasureUnit::createSecond(status);
        // The measure takes ownership of the unit.
        measures.emplace_back(icu::Formattable(static_cast<int64_t>(value)), unit, status);
    }
    if (U_FAILURE(status)) {
        return plainDuration(parts);
    }
    icu::UnicodeString out;
    icu::FieldPosition position(icu::FieldPosition::DONT_CARE);
    format.formatMeasures(measures.data(), static_cast<int32_t>(measures.size()), out, position,
                          status);
    if (U_FAILURE(status)) {
        return plainDuration(parts);
    }
    std::string result;
    out.toUTF8String(result);
    return result;
}

std::string usageText::recentTitle(int days) {
    return "Used in the last " + std::to_string(days) + " days, latest first";
}

void Usage::add(const Usage& other) {
    expansions += other.expansions;
    characters += other.characters;
    for (const auto& [id, use] : other.uses) {
        auto [it, inserted] = uses.try_emplace(id, use);
        if (inserted || use.count == 0) {
            continue; // a seed says nothing about an entry that already ages from its own date
        }
        it->second.count += use.count;
        if (it->second.last < use.last) {
            it->second.last = use.last;
        }
    }
}

std::string encodeUsage(const Usage& usage) {
    // Written straight out rather than through a document: the record has an entry per snippet,
    // and a document of a large library would take several times the file's size in memory.
    // The bytes are those the document would give (keys in order, numbers as it prints them).
    std::string out;
    out.reserve(64 + usage.uses.size() * 76);
    out += "{\"characters\":";
    out += std::to_string(usage.characters);
    out += ",\"expansions\":";
    out += std::to_string(usage.expansions);
    out += ",\"uses\":[";
    bool first = true;
    for (const auto& [id, use] : usage.uses) {
        out += first ? "\"" : ",\"";
        first = false;
        out += id.text();
        out += "\",{\"count\":";
        out += std::to_string(use.count);
        out += ",\"last\":";
        // A date that is not a number would be written as null and make the whole file
        // undecodable next time.
        out += json(std::isfinite(use.last.seconds) ? use.last.seconds : 0.0).dump();
        out += '}';
    }
    out += "]}";
    return out;
}

std::optional<Usage> decodeUsage(std::string_view bytes, std::string& error) {
    json document;
    try {
        document = json::parse(bytes);
    } catch (const json::parse_error& e) {
        error = "The usage file is not valid JSON (at byte " + std::to_string(e.byte) + ").";
        return std::nullopt;
    } catch (const json::exception&) {
        error = "The usage file holds a number too large to read."; // such as 1e999
        return std::nullopt;
    }
    if (!document.is_object()) {
        error = "The usage file does not hold a JSON object.";
        return std::nullopt;
    }
    Usage usage;
    for (const char* key : {"expansions", "characters"}) {
        auto it = document.find(key);
        if (it == document.end()) {
            error = std::string("The usage file has no \"") + key + "\".";
            return std::nullopt;
        }
        auto n = wholeNumber(*it);
        if (!n) {
            error = std::string("The usage file's \"") + key + "\" is not a whole number.";
            return std::nullopt;
        }
        (std::string_view(key) == "expansions" ? usage.expansions : usage.characters) = *n;
    }
    auto uses = document.find("uses");
    if (uses == document.end()) {
        error = "The usage file has no \"uses\".";
        return std::nullopt;
    }
    if (!uses->is_array() || uses->size() % 2 != 0) {
        error = "The usage file's \"uses\" is not a list of identifiers and records.";
        return std::nullopt;
    }
    for (std::size_t i = 0; i < uses->size(); i += 2) {
        const json& key = (*uses)[i];
        std::optional<Uuid> id;
        if (key.is_string()) {
            id = Uuid::parse(key.get_ref<const std::string&>());
        }
        if (!id) {
            error = "Entry " + std::to_string(i / 2 + 1) +
                    " of the usage file has no valid snippet identifier.";
            return std::nullopt;
        }
        std::string problem;
        auto use = useFromJson((*uses)[i + 1], problem);
        if (!use) {
            error = "Entry " + std::to_string(i / 2 + 1) + " of the usage file " + problem + ".";
            return std::nullopt;
        }
        usage.uses[*id] = *use;
    }
    return usage;
}

UsageFile::UsageFile(fs::path path) : path_(std::move(path)) {}

Usage UsageFile::load() {
    error_.clear();
    aside_.clear();
    FileContent file = readFile(path_);
    switch (file.status) {
    case ReadStatus::missing:
        status_ = Status::missing;
        return {};
    case ReadStatus::unreadable:
        status_ = Status::unreadable;
        error_ = std::move(file.error);
        return {};
    case ReadStatus::ok:
        break;
    }
    std::string problem;
    if (auto usage = decodeUsage(file.bytes, problem)) {
        status_ = Status::ok;
        return *usage;
    }
    fs::path aside;
    std::string why;
    if (setAside(path_, aside, why)) {
        status_ = Status::setAside;
        aside_ = aside;
        error_ = problem + " It was moved to " + quote(aside) + ".";
    } else {
        status_ = Status::damaged;
        error_ = problem + " " + why + ".";
    }
    return {};
}

bool UsageFile::save(Usage& usage) {
    if (!prepare(usage)) {
        return false;
    }
    std::string error;
    if (!write(path_, usage, error)) {
        error_ = std::move(error);
        return false;
    }
    error_.clear();
    return true;
}

bool UsageFile::prepare(Usage& usage) {
    switch (status_) {
    case Status::notLoaded:
        error_ = "The usage file " + quote(path_) + " was not read yet, so it is left as it is.";
        return false;
    case Status::unreadable:
    case Status::damaged: {
        // What was counted since the failed load is a delta on top of whatever the file holds.
        Usage disk = load();
        if (status_ == Status::unreadable || status_ == Status::damaged) {
            error_ = "The usage file " + quote(path_) +
                     " could not be read or set aside, so it is left as it is.";
            return false;
        }
        disk.add(usage);
        usage = std::move(disk);
        break;
    }
    case Status::missing:
    case Status::ok:
    case Status::setAside:
        break;
    }
    return true;
}

bool UsageFile::write(const fs::path& path, const Usage& usage, std::string& error) {
    return createFolders(path.parent_path(), 0700, error) &&
           writeFileAtomically(path, encodeUsage(usage), 0600, error);
}

} // namespace quillet
