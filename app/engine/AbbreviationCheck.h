#pragma once

#include "library/Snippet.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The snippet editor's warnings about an abbreviation: one that another abbreviation passes
// through while it is typed, and one that hides at the end of ordinary words. Both follow from
// how the matcher fires: without a word-boundary test, as soon as the buffer ends in it.
namespace quillet {

/// Another snippet's abbreviation, with the snippet's id as text.
struct AbbreviationOwner {
    std::string id;
    std::string abbreviation;
};

/// The dictionary's words made entirely of lower-case characters, in file order, so that examples
/// are ordinary words rather than names, possessives or abbreviations.
class WordList {
public:
    /// The system dictionary, read on first use.
    static constexpr const char* standardPath = "/usr/share/dict/words";

    WordList() = default;

    /// Keeps the lines made entirely of lower-case characters; empty lines are dropped.
    explicit WordList(const std::vector<std::string>& lines);

    /// The words of a file, one a line; a missing or unreadable file gives an empty list.
    static WordList fromFile(const std::filesystem::path& path);

    /// The words of standardPath, read once on first use (safe from any thread).
    static const WordList& standard();

    /// The number of words kept.
    std::size_t size() const { return words_.size(); }

    /// The shortest word with more characters than suffix that ends with it; the first of
    /// equals in file order. suffix must already be lower case.
    std::optional<std::string> shortestEndingWith(std::string_view suffix) const;

private:
    struct Word {
        std::string text;       // canonically composed
        std::size_t characters; // grapheme clusters
    };

    std::vector<Word> words_;
};

/// An ordinary word the abbreviation would fire inside, or nothing: abbreviations with anything
/// but letters never warn.
std::optional<std::string> wordExample(std::string_view abbreviation, const WordList& words);

/// wordExample over the system dictionary.
std::optional<std::string> wordExample(std::string_view abbreviation);

/// The editor's warning for an abbreviation of the snippet with the given id, or nothing.
/// others is the library in order (the snippet itself may be among them and is skipped);
/// example is wordExample's answer for the abbreviation.
std::optional<std::string> abbreviationProblem(std::string_view abbreviation, std::string_view id,
                                               const std::vector<AbbreviationOwner>& others,
                                               const std::optional<std::string>& example);

/// An abbreviation of the library as freeAbbreviation weighs it.
struct TakenAbbreviation {
    std::string abbreviation;
    bool instant = false; ///< fires on its last character, not on a following delimiter or Tab
};

/// The library's plain abbreviations, each firing instantly when its own trigger or, without
/// one, global says so.
std::vector<TakenAbbreviation> takenAbbreviations(const std::vector<Snippet>& library,
                                                  TriggerMode global);

/// The first of proposed, then proposed followed by 2 to 9, that can join the library: none of
/// taken is the same, none of those firing instantly completes on the way through it, and it
/// (firing instantly when instant) completes on the way through none of them. Nothing when every
/// one is in the way.
std::optional<std::string> freeAbbreviation(std::string_view proposed,
                                            const std::vector<TakenAbbreviation>& taken,
                                            bool instant);

} // namespace quillet
