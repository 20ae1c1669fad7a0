#include "render/Form.h"

#include "library/Text.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <unicode/coll.h>
#include <unicode/locid.h>

namespace quillet {
namespace {

bool isHeading(const std::string& option) {
    return option.starts_with('#');
}

// A field with a lone default ("{field:Name=Bob}") reads as a text input the user may overwrite
// rather than as a list with a single thing to pick.
bool isText(const Tokens::Field& field) {
    return field.options.empty() || (field.options.size() == 1 && !isHeading(field.options[0]));
}

// The locale whose alphabetical order the user expects: the POSIX variables in their order of
// precedence, whose encoding and modifier ICU has no use for. ICU's own default would ignore
// LC_COLLATE.
icu::Locale collationLocale(std::string_view id) {
    std::string name(id);
    for (const char* variable : {"LC_ALL", "LC_COLLATE", "LANG"}) {
        const char* value = std::getenv(variable);
        if (name.empty() && value != nullptr && *value != '\0') {
            name = value;
            name.erase(std::min(name.find('.'), name.find('@')));
            if (name.empty() || name == "POSIX") {
                name = "C";
            }
        }
    }
    if (name.empty()) {
        return icu::Locale::getDefault();
    }
    icu::Locale locale = icu::Locale::createCanonical(name.c_str());
    return name == "C" || locale.isBogus() ? icu::Locale::getRoot() : locale;
}

// The lines of a choice; a sorted one has each run of options between headings in alphabetical
// order, so the headings still introduce the options written under them.
std::vector<Form::Line> linesOf(const Tokens::Field& field, const icu::Collator* collator) {
    std::vector<Form::Line> lines;
    for (const std::string& option : field.options) {
        if (isHeading(option)) {
            lines.push_back({option.substr(1), true});
        } else {
            lines.push_back({option, false});
        }
    }
    if (!field.sorted || collator == nullptr) {
        return lines;
    }
    auto before = [collator](const Form::Line& a, const Form::Line& b) {
        UErrorCode status = U_ZERO_ERROR;
        return collator->compare(text::toIcu(a.text), text::toIcu(b.text), status) == UCOL_LESS;
    };
    for (auto run = lines.begin(); run != lines.end();) {
        auto end = std::find_if(run, lines.end(), [](const Form::Line& l) { return l.heading; });
        std::stable_sort(run, end, before);
        run = end == lines.end() ? end : end + 1;
    }
    return lines;
}

} // namespace

Form::Form(std::vector<Tokens::Field> fields, std::string_view locale)
    : fields_(std::move(fields)), typed_(fields_.size()), picked_(fields_.size()) {
    std::unique_ptr<icu::Collator> collator;
    if (std::ranges::any_of(fields_, [](const Tokens::Field& f) { return f.sorted; })) {
        UErrorCode status = U_ZERO_ERROR;
        collator.reset(icu::Collator::createInstance(collationLocale(locale), status));
        if (U_FAILURE(status)) {
            collator.reset();
        }
    }
    for (const Tokens::Field& field : fields_) {
        if (isText(field)) {
            rows_.push_back({field.name, Row::Kind::text, {}});
        } else {
            rows_.push_back({field.name, Row::Kind::choice, linesOf(field, collator.get())});
        }
    }
}

void Form::setFocus(std::size_t row) {
    if (row < rows_.size()) {
        focus_ = row;
    }
}

std::string Form::text(std::size_t row) const {
    if (row >= rows_.size() || rows_[row].kind != Row::Kind::text) {
        return {};
    }
    if (typed_[row]) {
        return *typed_[row];
    }
    return fields_[row].options.empty() ? std::string() : fields_[row].options[0];
}

void Form::setText(std::size_t row, std::string text) {
    if (row < rows_.size() && rows_[row].kind == Row::Kind::text) {
        typed_[row] = std::move(text);
    }
}

std::optional<std::size_t> Form::selected(std::size_t row) const {
    if (row >= rows_.size() || rows_[row].kind != Row::Kind::choice) {
        return std::nullopt;
    }
    if (picked_[row]) {
        return picked_[row];
    }
    // The option Return would take is the first written one, which sorting may have moved.
    const std::string fallback = values().at(fields_[row].name);
    const std::vector<Line>& lines = rows_[row].lines;
    auto line = std::ranges::find_if(
        lines, [&](const Line& l) { return !l.heading && l.text == fallback; });
    if (line == lines.end()) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(line - lines.begin());
}

void Form::select(std::size_t row, std::size_t line) {
    if (row < rows_.size() && line < rows_[row].lines.size() && !rows_[row].lines[line].heading) {
        picked_[row] = line;
    }
}

Form::Outcome Form::press(Key key) {
    switch (key) {
    case Key::enter:
        return Outcome::done;
    case Key::escape:
        return Outcome::cancelled;
    case Key::tab:
        if (!rows_.empty()) {
            focus_ = (focus_ + 1) % rows_.size();
        }
        break;
    case Key::up:
        move(-1);
        break;
    case Key::down:
        move(1);
        break;
    }
    return Outcome::editing;
}

void Form::move(int step) {
    const std::optional<std::size_t> from = selected(focus_);
    if (!from) {
        return;
    }
    const std::vector<Line>& lines = rows_[focus_].lines;
    const auto count = static_cast<std::ptrdiff_t>(lines.size());
    for (auto line = static_cast<std::ptrdiff_t>(*from) + step; line >= 0 && line < count;
         line += step) {
        if (!lines[static_cast<std::size_t>(line)].heading) {
            picked_[focus_] = static_cast<std::size_t>(line);
            return;
        }
    }
    // Past the last option either way the pick stays, and an untouched default becomes a pick.
    picked_[focus_] = from;
}

Expansion::Values Form::values() const {
    Expansion::Values values = *Expansion::defaults(fields_);
    for (std::size_t row = 0; row < rows_.size(); ++row) {
        if (typed_[row]) {
            values[fields_[row].name] = *typed_[row];
        } else if (picked_[row]) {
            values[fields_[row].name] = rows_[row].lines[*picked_[row]].text;
        }
    }
    return values;
}

std::vector<Form::Hint> Form::hints() const {
    std::vector<Hint> hints{{Key::enter, "continue"}};
    if (rows_.size() >= 2) {
        hints.push_back({Key::tab, "next"});
    }
    hints.push_back({Key::escape, "cancel"});
    return hints;
}

} // namespace quillet
