#pragma once

#include "library/Date.h"
#include "library/Snippet.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// What a template is rendered against. The moment is read once per expansion and handed in, so
/// every date token of one expansion agrees and tests can pin it. Empty texts stand for the
/// user's settings: the locale of LC_ALL, LC_TIME or LANG, the system time zone, the locale's
/// calendar.
struct RenderContext {
    Date now = Date::now();             ///< the moment the expansion happens
    std::string locale;                 ///< ICU locale id, such as "en_US"
    std::string timeZone;               ///< IANA zone id, such as "Europe/Paris"
    std::string calendar;               ///< ICU calendar type, such as "gregorian" or "buddhist"
    std::vector<std::string> clipboard; ///< clipboard texts, newest first
};

/// Finds and resolves the tokens of a snippet's template: dates, clipboard entries, the caret,
/// key presses, includes, fields and choices. Every operation is a pure function of its
/// arguments and never fails: a token that cannot be resolved stays as typed, or becomes empty
/// text where that is the rule (an unfilled field, a clipboard entry that does not exist).
struct Tokens {
    /// One fill-in field of a template. Fields and choices are read alike; a field with a default
    /// ("{field:Name=Bob}") has that default as its only option.
    struct Field {
        std::string name;                 ///< as written, not trimmed
        std::vector<std::string> options; ///< empty for a plain field
        bool sorted = false;              ///< ":sorted" was written after the name

        friend bool operator==(const Field&, const Field&) = default;
    };

    /// One step of a template split at its key tokens.
    struct Piece {
        enum class Kind {
            text, ///< literal template text, still to be filled and rendered
            key,  ///< a key name, the part between "{key:" and "}", not yet resolved
        };
        Kind kind = Kind::text;
        std::string text;

        friend bool operator==(const Piece&, const Piece&) = default;
    };

    /// A rendered template.
    struct Rendered {
        std::string text;
        /// Characters (grapheme clusters) to move the caret left after inserting text; 0 when
        /// the template has no caret mark.
        std::int64_t cursorBack = 0;

        friend bool operator==(const Rendered&, const Rendered&) = default;
    };

    /// A key press: a virtual key code of the US ANSI layout and a modifier mask, both in the
    /// values macOS uses; each platform's executor translates them to its own keys.
    struct KeyStroke {
        std::uint16_t code = 0;
        std::uint64_t mask = 0;

        friend bool operator==(const KeyStroke&, const KeyStroke&) = default;
    };

    static constexpr std::uint64_t commandMask = 0x100000;
    static constexpr std::uint64_t shiftMask = 0x20000;
    static constexpr std::uint64_t optionMask = 0x80000;
    static constexpr std::uint64_t controlMask = 0x40000;
    /// Super has no macOS counterpart. Bit 32 lies above every mask macOS defines (all of which
    /// fit in 32 bits, device-dependent bits included), so it cannot be mistaken for one.
    static constexpr std::uint64_t superMask = std::uint64_t{1} << 32;

    /// Abbreviations on the include path; at most this many may be open at once.
    static constexpr std::size_t includeLimit = 5;

    /// Resolves dates and times, natural-language dates, clipboard entries and the caret mark,
    /// in that order, each pass over the output of the one before.
    static Rendered render(std::string_view text, const RenderContext& context);

    /// The date a phrase such as "next friday", "in 2 weeks" or "3 days ago" names, counted from
    /// the context's moment in its calendar; nothing when the phrase is not understood or the
    /// calendar cannot reach the date.
    static std::optional<Date> relativeDate(std::string_view phrase, const RenderContext& context);

    /// The text with each include token replaced by the content of the first plain snippet of
    /// that abbreviation, itself expanded, as long as the path (starting with visited) stays
    /// within includeLimit abbreviations and does not repeat one.
    static std::string includes(std::string_view text, const std::set<std::string>& visited,
                                const std::vector<Snippet>& library);

    /// The fields of a template, one per distinct name, in order of first appearance.
    static std::vector<Field> fields(std::string_view text);

    /// The text with every field and choice token replaced by the value of its name, or by
    /// empty text when there is none.
    static std::string fill(std::string_view text,
                            const std::map<std::string, std::string>& values);

    /// The template split at its key tokens, in text order; empty text gives no pieces.
    static std::vector<Piece> pieces(std::string_view text);

    /// The key stroke a key name such as "cmd+shift+k" or "return" stands for; nothing for an
    /// unknown key or modifier. Besides cmd, shift, opt and ctrl, "alt" (Option) and "super"
    /// are accepted as modifiers.
    static std::optional<KeyStroke> keyStroke(std::string_view name);

    /// The token text of a choice: "{choice:name[:sorted]=option|option…}".
    static std::string choiceToken(std::string_view name, const std::vector<std::string>& options,
                                   bool sorted);

    /// The text with every choice token called name that lists options replaced by the token
    /// of a choice called newName with options; plain fields and other choices stay as written.
    static std::string renameChoice(std::string_view text, std::string_view name,
                                    std::string_view newName,
                                    const std::vector<std::string>& options, bool sorted);
};

} // namespace quillet
