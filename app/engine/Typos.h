#pragma once

#include "engine/Matcher.h"
#include "library/Preferences.h"

#include <string>
#include <utility>
#include <vector>

namespace quillet {

/// The built-in correction and symbol sets. They are fixed tables, each off until the user
/// switches it on under the preference "typo." + id; the switched-on ones become the matcher's
/// corrections and extras. They never enter the library, exports or search.
struct Typos {
    /// How the entries of a set fire.
    struct Fires {
        enum class Kind {
            like,     ///< each entry is an abbreviation firing like a snippet in `mode`
            wordEnds, ///< each entry is a misspelt word, replaced when the word ends
        };

        Kind kind = Kind::wordEnds;
        Matcher::Mode mode = Matcher::Mode::instant; ///< only meaningful for `like`

        /// Entries that fire like abbreviations in the given mode.
        static constexpr Fires like(Matcher::Mode m) { return {Kind::like, m}; }
        /// Entries that correct a whole word when it ends.
        static constexpr Fires wordEnds() { return {Kind::wordEnds, Matcher::Mode::instant}; }

        bool operator==(const Fires&) const = default;
    };

    /// One set, with its entries in the order they are listed.
    struct Set {
        std::string id;   ///< stable; names the preference "typo." + id
        std::string name; ///< the label beside the set's switch
        Fires fires;
        std::vector<std::pair<std::string, std::string>> words; ///< key -> replacement
    };

    Typos() = delete;

    /// The nine sets: five word-end correction sets, then symbols, emoji, HTML and CSS.
    static const std::vector<Set>& all();

    /// The sets switched on in the preferences, in the order of all(); they point into all().
    static std::vector<const Set*> on(const Preferences& preferences);

    /// The preference key of a set's switch: "typo." + id.
    static std::string key(std::string_view id);

    /// Misspelling -> correct word from the switched-on word-end sets; an earlier set wins a key.
    static Matcher::Table corrections(const Preferences& preferences);

    /// Key -> (replacement, mode) from the switched-on sets that fire like abbreviations; an
    /// earlier set wins a key.
    static Matcher::Extras extras(const Preferences& preferences);

    /// A group switch reads as on when any of its sets is on.
    static bool groupIsOn(const Preferences& preferences, const std::vector<std::string>& ids);

    /// Switching a group on turns on its first set only; switching it off turns all of them off.
    /// False when a value could not be kept.
    static bool setGroup(Preferences& preferences, const std::vector<std::string>& ids, bool value);

    /// The "Fix typos as I type" group: the five word-end sets, "common" first.
    static const std::vector<std::string>& typoGroup();

    /// The ":smile: or ->" group: "symbols" first, then "emoji".
    static const std::vector<std::string>& symbolGroup();
};

} // namespace quillet
