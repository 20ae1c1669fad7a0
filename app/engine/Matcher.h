#pragma once

#include "engine/PatternFilter.h"
#include "engine/ReverseIndex.h"
#include "library/TriggerMode.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace quillet {

/// Keeps the last characters the user typed and decides when they end in something to replace:
/// a user abbreviation, a regular-expression abbreviation, a symbol-set entry or a misspelt word.
/// A value with no platform calls; the keyboard engine owns one and carries out its matches.
///
/// Every answer equals that of a linear scan over the tables, but the cost of a key stroke does
/// not grow with the library: abbreviations live in reversed tries walked from the buffer's end,
/// and regular expressions are only run when the buffer holds a literal that every match needs.
class Matcher {
public:
    using Mode = TriggerMode;

    /// One decided replacement.
    struct Match {
        std::string abbreviation; ///< what matched, as it stands in the buffer or table
        std::string expansion;    ///< what to insert (a template, not yet rendered)
        std::string trailer;      ///< the delimiter to type again afterwards; empty for instant/tab
        int onScreen = 0;         ///< characters of abbreviation to erase (see the matcher's rules)
        std::optional<std::string> key; ///< the pattern of a regular-expression match

        bool operator==(const Match&) const = default;
    };

    /// A symbol-set or correction entry that fires like an abbreviation.
    struct Extra {
        std::string text;
        Mode mode = Mode::instant;

        bool operator==(const Extra&) const = default;
    };

    using Table = std::unordered_map<std::string, std::string>;
    /// Abbreviations with their expansions, sorted by abbreviation.
    using Sorted = std::vector<std::pair<std::string, std::string>>;
    using Modes = std::unordered_map<std::string, Mode>;
    using Extras = std::unordered_map<std::string, Extra>;

    static constexpr int defaultLimit = 64;

    Matcher();
    Matcher(const Matcher&);
    Matcher& operator=(const Matcher&);
    Matcher(Matcher&&) noexcept;
    Matcher& operator=(Matcher&&) noexcept;
    ~Matcher();

    /// Replaces the abbreviations that may fire now, with the snippets' own triggers.
    void setSnippets(Table snippets, Modes modes = {});
    /// As setSnippets, from a list of abbreviations and expansions in any order, each once.
    void setAbbreviations(Sorted snippets, Modes modes = {});
    /// As setAbbreviations, without expansions (Match::expansion comes back empty), from views
    /// into text the caller keeps unchanged until the next call: a large library's
    /// abbreviations are then held once, by their snippets.
    void setAbbreviationViews(std::vector<std::string_view> keys, Modes modes = {});
    /// Replaces the regular-expression abbreviations; call compile() afterwards.
    void setPatterns(std::map<std::string, std::string> patterns);
    /// Rebuilds the compiled expressions from the patterns; invalid ones are left out.
    void compile();
    /// Sets the global trigger mode.
    void setMode(Mode mode) { mode_ = mode; }
    /// Replaces the word-end corrections (lower-case misspelling to correct word).
    void setCorrections(Table corrections);
    /// Replaces the entries that fire like abbreviations.
    void setExtras(Extras extras);

    /// The abbreviations that may fire, in key order.
    const std::vector<std::string_view>& abbreviations() const { return keys_; }
    const Modes& modes() const { return modes_; }
    const std::map<std::string, std::string>& patterns() const { return patterns_; }
    const Table& corrections() const { return corrections_; }
    const Extras& extras() const { return extras_; }
    Mode mode() const { return mode_; }
    int limit() const { return limit_; }

    /// The typed buffer, oldest character first.
    std::string buffer() const { return raw_; }
    /// The number of characters in the buffer.
    int bufferLength() const { return static_cast<int>(rawStarts_.size()); }
    /// Empties the buffer: the typing context broke.
    void clear();
    /// Drops the buffer's last character, if any: the user erased it.
    void dropLast();

    /// Adds the text of one typed key and answers the match it completes, if any.
    std::optional<Match> feed(std::string_view text);
    /// Looks for a match in one trigger mode without typing anything.
    std::optional<Match> fire(Mode trigger, std::string_view trailer);
    /// Word-end correction of the buffer's last word.
    std::optional<Match> correct(std::string_view trailer);
    /// True when fire(trigger, ...) would answer a match now; the buffer is left as it is.
    bool wouldFire(Mode trigger) const;
    /// True when correct(...) would answer a match now; the buffer is left as it is.
    bool wouldCorrect() const;

    /// Why a pattern abbreviation never fires because it does not compile; nothing when it does.
    static std::optional<std::string> patternProblem(std::string_view pattern);

    /// replacement with the groups of pattern as it matches the end of matched ("$1", "${n}"):
    /// for a template that was not at hand when the match was made (a locked snippet's).
    /// Nothing when pattern does not compile or match.
    static std::optional<std::string> substitute(std::string_view pattern, std::string_view matched,
                                                 std::string_view replacement);

private:
    struct Compiled;
    struct Entry {
        std::string key;
        std::string text;
        bool letterLed = false; // starts with a letter or digit, so must start a word (extras)
    };

    void append(std::string_view text);
    void trimToLimit();
    bool atBoundary(std::size_t nfcOffset) const;
    std::optional<std::uint32_t> longestSuffix(const ReverseIndex& index, Mode trigger,
                                               const std::vector<Entry>* wordStarts) const;
    std::optional<Match> firePatterns(std::string_view trailer);
    struct Correction {
        std::string word;
        std::string replacement;
        int letters = 0;
    };
    std::optional<Correction> correction() const;
    bool anyPatternMatches() const;
    void rebuildSnippetIndex();
    void rebuildExtraIndex();
    void rescanLiterals();
    Match finish(std::string abbreviation, std::string expansion, std::string_view trailer,
                 int onScreen, std::optional<std::string> key = std::nullopt);

    // The abbreviations in key order; the index's entry i is keys_[i]. They view owned_ or
    // the caller's text. The engine looks expansions up itself, so texts_ stays empty unless
    // a caller gave texts: an empty string per abbreviation would cost a library's worth.
    std::vector<std::string_view> keys_;
    std::shared_ptr<const std::vector<std::string>> owned_; // shared by copies, which view it
    std::vector<std::string> texts_;
    Modes modes_;
    std::map<std::string, std::string> patterns_;
    Table corrections_;
    Extras extras_;
    Mode mode_ = Mode::instant;
    int limit_ = defaultLimit;

    // The buffer as typed, and its canonical composition that abbreviations are compared with.
    // Both are kept with the byte offsets where their characters start.
    std::string raw_;
    std::vector<std::uint32_t> rawStarts_;
    std::string nfc_;
    std::vector<std::uint32_t> nfcStarts_;

    ReverseIndex snippetIndex_;
    std::vector<Entry> extraEntries_;
    ReverseIndex extraIndex_;

    std::vector<Compiled> compiled_; // sorted by pattern
    PatternFilter filter_;
};

} // namespace quillet
