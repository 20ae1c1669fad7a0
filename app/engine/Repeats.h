#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace quillet {

/// Spots phrases the user keeps retyping so that one can be offered as a snippet. It sees the
/// characters of each key, keeps the last few words and a count per phrase, all in memory only;
/// nothing here is ever written anywhere. The keyboard engine feeds it and calls take() each time
/// the typing context breaks.
///
/// A phrase is 2 to 8 consecutive words (split at Unicode whitespace; punctuation belongs to the
/// word) of at least minLength characters, spaces included. Two rules keep the offers to what a
/// user would call "something I keep typing":
/// - A phrase counts at most once per run of words: `seen` holds the phrases counted since the run
///   began. The window slides by one word at a time, so without this "ha ha ha ha ha ha ha ha ha"
///   or a line typed twice in one stretch would reach the threshold without three occasions.
/// - Handing a phrase out uses up the typings of the phrases inside it: each part's count drops by
///   the offered phrase's count. Every typing of the whole also counted its parts, so otherwise
///   the next break would offer "you very soon then" right after "see you very soon then". A part
///   comes back once it has been typed `times` times on its own, like the offered phrase itself.
class Repeats {
public:
    /// A phrase to offer: the proposed abbreviation, the phrase and how often it was typed.
    struct Suggestion {
        std::string abbreviation;
        std::string expansion;
        int typed = 0;

        bool operator==(const Suggestion&) const = default;
    };

    // Lets the maps be searched with a string_view, without a copy per lookup.
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view s) const noexcept {
            return std::hash<std::string_view>{}(s);
        }
    };
    using Counts = std::unordered_map<std::string, int, Hash, std::equal_to<>>;
    using Seen = std::unordered_set<std::string, Hash, std::equal_to<>>;

    static constexpr int times = 3;                  ///< typings before a phrase is offered
    static constexpr std::size_t minLength = 15;     ///< fewest characters of a phrase
    static constexpr std::size_t maxRun = 8;         ///< words kept, so the longest phrase
    static constexpr std::size_t maxPhrases = 20000; ///< beyond this, one-off phrases are dropped

    /// Takes the characters of one key: whitespace ends the word, anything else joins it.
    void feed(std::string_view text);
    /// Undoes one character of the word; with no word under way, starts a new run instead.
    void backspace();
    /// Ends the word and starts a new run; answers the longest phrase typed `times` times (the
    /// first in sort order among equally long ones), if any. Leaves the counts alone, so the same
    /// phrase would come again at the next break: the engine calls take() instead.
    std::optional<std::string> best();
    /// best(), with the answer removed as by remove(), so that it is offered once.
    std::optional<Suggestion> take();
    /// Forgets a phrase and uses its typings up from the phrases inside it.
    void remove(std::string_view phrase);
    /// Forgets everything typed and counted.
    void forget();
    /// Starts a new run, dropping the word under way uncounted.
    void breakRun();

    /// The abbreviation offered for a phrase: ";" and the first letter of its first five words
    /// that have one, lower-cased.
    static std::string proposedAbbreviation(std::string_view phrase);

    /// How many times the phrase was counted (0 when it is not).
    int count(std::string_view phrase) const;
    const Counts& counts() const { return counts_; }
    /// The last words ended, oldest first.
    const std::vector<std::string>& run() const { return run_; }
    /// The word being typed.
    const std::string& word() const { return word_; }
    const Seen& seen() const { return seen_; }

private:
    void endWord();
    void countPhrase(std::string_view phrase);
    void prune();

    Counts counts_;
    std::vector<std::string> run_;
    std::vector<std::size_t> runLengths_; // characters of each word of run_, counted once
    std::string word_;
    Seen seen_;
};

} // namespace quillet
