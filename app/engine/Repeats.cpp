#include "engine/Repeats.h"

#include "library/Text.h"

namespace quillet {
namespace {

// True when part occurs in whole as whole words. Phrases are words joined by single spaces and
// words hold no whitespace, so a space or an end on both sides marks a word boundary.
bool containsWords(std::string_view whole, std::string_view part) {
    if (part.size() >= whole.size()) {
        return false;
    }
    for (std::size_t at = whole.find(part); at != std::string_view::npos;
         at = whole.find(part, at + 1)) {
        std::size_t end = at + part.size();
        if ((at == 0 || whole[at - 1] == ' ') && (end == whole.size() || whole[end] == ' ')) {
            return true;
        }
    }
    return false;
}

} // namespace

void Repeats::feed(std::string_view text) {
    for (std::string_view character : text::graphemes(text)) {
        if (text::isWhitespace(character)) {
            endWord();
        } else {
            word_ += character;
        }
    }
}

void Repeats::backspace() {
    if (word_.empty()) {
        // The caret went back over a space into text we no longer know: the next word does not
        // follow the run.
        run_.clear();
        runLengths_.clear();
        seen_.clear();
        return;
    }
    word_.resize(word_.size() - text::lastGraphemeSize(word_));
}

void Repeats::endWord() {
    if (word_.empty()) {
        return;
    }
    runLengths_.push_back(text::graphemeCount(word_));
    run_.push_back(std::move(word_));
    word_.clear();
    if (run_.size() > maxRun) {
        auto drop = static_cast<std::ptrdiff_t>(run_.size() - maxRun);
        run_.erase(run_.begin(), run_.begin() + drop);
        runLengths_.erase(runLengths_.begin(), runLengths_.begin() + drop);
    }

    std::size_t total = run_.size() - 1; // the joining spaces
    for (std::size_t length : runLengths_) {
        total += length;
    }
    if (run_.size() < 2 || total < minLength) {
        return;
    }

    // Every phrase is a suffix of the run joined by spaces, so one string serves them all.
    std::string joined;
    std::vector<std::size_t> starts;
    for (const std::string& w : run_) {
        if (!joined.empty()) {
            joined += ' ';
        }
        starts.push_back(joined.size());
        joined += w;
    }
    std::size_t length = runLengths_.back();
    for (std::size_t i = run_.size() - 1; i-- > 0;) {
        length += 1 + runLengths_[i];
        if (length >= minLength) {
            countPhrase(std::string_view(joined).substr(starts[i]));
        }
    }
    if (counts_.size() > maxPhrases) {
        prune();
    }
}

void Repeats::countPhrase(std::string_view phrase) {
    if (seen_.contains(phrase)) {
        return;
    }
    seen_.emplace(phrase);
    if (auto it = counts_.find(phrase); it != counts_.end()) {
        ++it->second;
    } else {
        counts_.emplace(phrase, 1);
    }
}

void Repeats::prune() {
    std::erase_if(counts_, [](const auto& entry) { return entry.second == 1; });
    // Keeps seen within counts, so a run typed for hours without a break stays bounded too.
    std::erase_if(seen_, [this](const std::string& phrase) { return !counts_.contains(phrase); });
}

std::optional<std::string> Repeats::best() {
    endWord();
    const std::string* chosen = nullptr;
    std::size_t chosenLength = 0;
    for (const auto& [phrase, n] : counts_) {
        if (n < times) {
            continue;
        }
        std::size_t length = text::graphemeCount(phrase);
        if (chosen == nullptr || length > chosenLength ||
            (length == chosenLength && phrase < *chosen)) {
            chosen = &phrase;
            chosenLength = length;
        }
    }
    std::optional<std::string> answer;
    if (chosen != nullptr) {
        answer = *chosen;
    }
    run_.clear();
    runLengths_.clear();
    seen_.clear();
    return answer;
}

std::optional<Repeats::Suggestion> Repeats::take() {
    std::optional<std::string> phrase = best();
    if (!phrase) {
        return std::nullopt;
    }
    Suggestion suggestion{proposedAbbreviation(*phrase), *phrase, count(*phrase)};
    remove(*phrase);
    return suggestion;
}

void Repeats::remove(std::string_view phrase) {
    auto found = counts_.find(phrase);
    if (found == counts_.end()) {
        return;
    }
    int used = found->second;
    counts_.erase(found);
    if (auto s = seen_.find(phrase); s != seen_.end()) {
        seen_.erase(s);
    }
    for (auto it = counts_.begin(); it != counts_.end();) {
        if (containsWords(phrase, it->first)) {
            it->second -= used;
            if (it->second <= 0) {
                if (auto s = seen_.find(it->first); s != seen_.end()) {
                    seen_.erase(s);
                }
                it = counts_.erase(it);
                continue;
            }
        }
        ++it;
    }
}

void Repeats::breakRun() {
    run_.clear();
    runLengths_.clear();
    word_.clear();
    seen_.clear();
}

void Repeats::forget() {
    counts_.clear();
    run_.clear();
    runLengths_.clear();
    word_.clear();
    seen_.clear();
}

std::string Repeats::proposedAbbreviation(std::string_view phrase) {
    std::string abbreviation = ";";
    int letters = 0;
    bool wordHasLetter = false;
    for (std::string_view character : text::graphemes(phrase)) {
        if (text::isWhitespace(character)) {
            wordHasLetter = false;
        } else if (!wordHasLetter && text::isLetter(character)) {
            // Each letter is lower-cased alone: together they would be read as one word, and a
            // capital sigma at the end would become a final sigma.
            abbreviation += text::toLower(character);
            wordHasLetter = true;
            if (++letters == 5) {
                break;
            }
        }
    }
    return abbreviation;
}

int Repeats::count(std::string_view phrase) const {
    auto it = counts_.find(phrase);
    return it == counts_.end() ? 0 : it->second;
}

} // namespace quillet
