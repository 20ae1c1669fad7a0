#include "engine/AbbreviationCheck.h"

#include "library/Text.h"

#include <algorithm>
#include <fstream>

namespace quillet {
namespace {

bool isAscii(std::string_view s) {
    for (unsigned char c : s) {
        if (c >= 0x80) {
            return false;
        }
    }
    return true;
}

// Lower case means lower-casing leaves the character alone and upper-casing changes it, which
// also rules out digits, punctuation and letters that have no case.
bool isLowercaseWord(std::string_view word) {
    if (isAscii(word)) {
        for (char c : word) {
            if (c < 'a' || c > 'z') {
                return false;
            }
        }
        return true;
    }
    for (std::string_view character : text::graphemes(word)) {
        if (text::toLower(character) != character || text::toUpper(character) == character) {
            return false;
        }
    }
    return true;
}

// True when byte offset lies between two characters of s, so that text cut there does not split
// a letter from its combining accent.
bool isCharacterBoundary(std::string_view s, std::size_t offset) {
    if (offset == 0 || offset == s.size() || isAscii(s)) {
        return true;
    }
    std::size_t at = 0;
    for (std::string_view character : text::graphemes(s)) {
        if (at >= offset) {
            return at == offset;
        }
        at += character.size();
    }
    return at == offset;
}

// Both texts canonically composed, as the matcher compares them.
bool endsWithCharacters(std::string_view whole, std::string_view suffix) {
    return whole.ends_with(suffix) && isCharacterBoundary(whole, whole.size() - suffix.size());
}

bool startsWithCharacters(std::string_view whole, std::string_view prefix) {
    return whole.starts_with(prefix) && isCharacterBoundary(whole, prefix.size());
}

// True when typing whole passes through part: the text typed so far ends in part before whole is
// complete, which is when the matcher would fire part if it fires instantly.
bool passesThrough(std::string_view whole, std::string_view part) {
    std::size_t end = 0;
    for (std::string_view character : text::graphemes(whole)) {
        end += character.size();
        if (end < whole.size() && endsWithCharacters(whole.substr(0, end), part)) {
            return true;
        }
    }
    return false;
}

} // namespace

WordList::WordList(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        // Some dictionaries are not UTF-8; their accented lines are of no use here.
        if (line.empty() || !text::isValidUtf8(line)) {
            continue;
        }
        std::string word = text::nfc(line);
        if (isLowercaseWord(word)) {
            std::size_t characters = text::graphemeCount(word);
            words_.push_back({std::move(word), characters});
        }
    }
}

WordList WordList::fromFile(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        lines.push_back(std::move(line));
    }
    return WordList(lines);
}

const WordList& WordList::standard() {
    static const WordList words = fromFile(standardPath);
    return words;
}

std::optional<std::string> WordList::shortestEndingWith(std::string_view suffix) const {
    const std::string composed = text::nfc(suffix);
    const std::size_t length = text::graphemeCount(composed);
    const Word* best = nullptr;
    for (const Word& word : words_) {
        if (word.characters > length && (best == nullptr || word.characters < best->characters) &&
            endsWithCharacters(word.text, composed)) {
            best = &word;
        }
    }
    if (best == nullptr) {
        return std::nullopt;
    }
    return best->text;
}

std::optional<std::string> wordExample(std::string_view abbreviation, const WordList& words) {
    if (abbreviation.empty()) {
        return std::nullopt;
    }
    // An abbreviation with a symbol in it can't turn up inside an ordinary word.
    for (std::string_view character : text::graphemes(abbreviation)) {
        if (!text::isLetter(character)) {
            return std::nullopt;
        }
    }
    return words.shortestEndingWith(text::toLower(abbreviation));
}

std::optional<std::string> wordExample(std::string_view abbreviation) {
    return wordExample(abbreviation, WordList::standard());
}

std::optional<std::string> abbreviationProblem(std::string_view abbreviation, std::string_view id,
                                               const std::vector<AbbreviationOwner>& others,
                                               const std::optional<std::string>& example) {
    if (abbreviation.empty()) {
        return std::nullopt;
    }
    const std::string start = text::nfc(abbreviation);
    const std::size_t length = text::graphemeCount(start);
    for (const AbbreviationOwner& other : others) {
        if (other.id == id) {
            continue;
        }
        // Typing the longer abbreviation passes through this one, which fires first.
        const std::string longer = text::nfc(other.abbreviation);
        if (length < text::graphemeCount(longer) && startsWithCharacters(longer, start)) {
            return "Typing " + other.abbreviation + " will expand " + std::string(abbreviation) +
                   " first. Pick a different start.";
        }
    }
    if (example) {
        return "Might expand inside words like \"" + *example +
               "\". Start it with ; or another symbol.";
    }
    return std::nullopt;
}

std::optional<std::string> freeAbbreviation(std::string_view proposed,
                                            const std::vector<TakenAbbreviation>& taken,
                                            bool instant) {
    const std::string base = text::nfc(proposed);
    std::vector<std::pair<std::string, bool>> others;
    others.reserve(taken.size());
    for (const TakenAbbreviation& t : taken) {
        if (!t.abbreviation.empty()) {
            others.emplace_back(text::nfc(t.abbreviation), t.instant);
        }
    }
    // A digit keeps the proposal recognisable; with a delimiter or Tab trigger it also keeps the
    // taken abbreviation it extends working.
    for (char digit = '1'; digit <= '9'; ++digit) {
        const std::string candidate = digit == '1' ? base : base + digit;
        const bool blocked = std::any_of(others.begin(), others.end(), [&](const auto& other) {
            const auto& [abbreviation, fires] = other;
            return abbreviation == candidate || (fires && passesThrough(candidate, abbreviation)) ||
                   (instant && passesThrough(abbreviation, candidate));
        });
        if (!blocked) {
            return candidate;
        }
    }
    return std::nullopt;
}

std::vector<TakenAbbreviation> takenAbbreviations(const std::vector<Snippet>& library,
                                                  TriggerMode global) {
    std::vector<TakenAbbreviation> taken;
    taken.reserve(library.size());
    for (const Snippet& snippet : library) {
        if (!snippet.regex) {
            taken.push_back(
                {snippet.abbreviation, snippet.trigger.value_or(global) == TriggerMode::instant});
        }
    }
    return taken;
}

} // namespace quillet
