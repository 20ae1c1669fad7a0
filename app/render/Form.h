#pragma once

#include "render/Expansion.h"
#include "render/Tokens.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// The fill-in form without its window: the values being edited, the focused field, what each
/// row shows and what each key does. A view draws rows(), forwards every key and click here and
/// redraws; it decides nothing itself. An option beginning with "#" is a heading: a section
/// label that is never selected and never becomes a value.
class Form {
public:
    /// One line of a choice row as shown.
    struct Line {
        std::string text;     ///< the option, or the heading's label without its "#"
        bool heading = false; ///< a section label, never selectable

        friend bool operator==(const Line&, const Line&) = default;
    };

    /// How one field is shown.
    struct Row {
        enum class Kind {
            text,   ///< a text input, prefilled when the field has a lone default
            choice, ///< a list of lines to pick one option from
        };
        std::string name;
        Kind kind = Kind::text;
        std::vector<Line> lines; ///< a choice's options and headings in shown order

        friend bool operator==(const Row&, const Row&) = default;
    };

    /// The keys the form answers to.
    enum class Key { enter, tab, escape, up, down };

    /// What a key press left the form in.
    enum class Outcome {
        editing,   ///< still open
        done,      ///< completed: values() is the answer
        cancelled, ///< the user declined
    };

    /// A footer hint: the key and what it does.
    struct Hint {
        Key key;
        std::string label;

        friend bool operator==(const Hint&, const Hint&) = default;
    };

    /// A form for the fields of a template, in their order; choices marked sorted are collated
    /// in locale (an ICU id; empty for the user's LC_ALL, LC_COLLATE or LANG).
    explicit Form(std::vector<Tokens::Field> fields, std::string_view locale = {});

    /// One row per field, in field order.
    const std::vector<Row>& rows() const { return rows_; }

    /// The focused row; 0 when there are no rows.
    std::size_t focus() const { return focus_; }

    /// Moves the focus to a row, as a click into it does; out-of-range rows are ignored.
    void setFocus(std::size_t row);

    /// The text a text row shows: what was typed, else its default.
    std::string text(std::size_t row) const;

    /// Records what the user typed into a text row.
    void setText(std::size_t row, std::string text);

    /// The line a choice row shows as picked: the user's pick, else the option Return would
    /// take; nothing when the row has no selectable line.
    std::optional<std::size_t> selected(std::size_t row) const;

    /// Picks a line of a choice row, as a click does; a heading or a line not in the row is
    /// ignored.
    void select(std::size_t row, std::size_t line);

    /// Applies a key: Return completes, Tab moves to the next row, Escape cancels, the arrows
    /// move the focused choice's pick.
    Outcome press(Key key);

    /// The completed answer: for each field, what the user gave, else its first option that is
    /// not a heading, else empty text.
    Expansion::Values values() const;

    /// The footer hints; "next" only when there is another row to move to.
    std::vector<Hint> hints() const;

private:
    void move(int step);

    std::vector<Tokens::Field> fields_;
    std::vector<Row> rows_;
    // Per row, what the user typed or the line they picked; empty until they do.
    std::vector<std::optional<std::string>> typed_;
    std::vector<std::optional<std::size_t>> picked_;
    std::size_t focus_ = 0;
};

} // namespace quillet
