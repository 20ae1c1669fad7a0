#pragma once

#include "library/Snippet.h"
#include "render/Tokens.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace quillet {

/// Carries a template through every stage of expansion, in the one order that the keyboard
/// engine, the command-line tool and automation share: includes, fields, the split at key
/// tokens, key strokes, filling, rendering. The result is a list of portable steps that a
/// platform executor runs in order; nothing here knows how text or keys reach an application.
struct Expansion {
    using Values = std::map<std::string, std::string>;

    /// Text to insert; afterwards the caret moves cursorBack characters (grapheme clusters) left.
    struct Text {
        std::string text;
        std::int64_t cursorBack = 0;

        friend bool operator==(const Text&, const Text&) = default;
    };

    /// A key to press and release.
    struct Key {
        Tokens::KeyStroke stroke;

        friend bool operator==(const Key&, const Key&) = default;
    };

    /// A key token that names no key, typed exactly as it stands, such as "{key:enter}".
    struct Literal {
        std::string text;

        friend bool operator==(const Literal&, const Literal&) = default;
    };

    using Step = std::variant<Text, Key, Literal>;

    /// Gathers the values of a template's fields (a map from field name to text, the fields'
    /// order being that of the template); nothing cancels the expansion.
    using AskValues = std::function<std::optional<Values>(const std::vector<Tokens::Field>&)>;

    /// What an untouched form gives: each field's first option that is not a heading (an option
    /// beginning with "#"), else empty text. Serves as an AskValues where no form can be shown.
    static std::optional<Values> defaults(const std::vector<Tokens::Field>& fields);

    /// The steps a template expands to. abbreviation is the expanding snippet's own, which its
    /// includes may not bring back. ask is called only when the template has fields; nothing
    /// results when it declines, or when it is empty and values are needed. Text steps that
    /// render to nothing are left out.
    static std::optional<std::vector<Step>>
    plan(std::string_view content, std::string_view abbreviation,
         const std::vector<Snippet>& library, const AskValues& ask, const RenderContext& context);

    /// The steps a text snippet's content expands to, as plan above.
    static std::optional<std::vector<Step>> plan(const Snippet& snippet,
                                                 const std::vector<Snippet>& library,
                                                 const AskValues& ask,
                                                 const RenderContext& context);

    /// What the command-line tool prints: includes, then the given values (a field without one
    /// is empty), then the text between key tokens joined and rendered once; key presses and
    /// unknown key tokens are left out.
    static std::string text(std::string_view content, std::string_view abbreviation,
                            const std::vector<Snippet>& library, const Values& values,
                            const RenderContext& context);
};

} // namespace quillet
