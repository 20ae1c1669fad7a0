#include "render/Expansion.h"

namespace quillet {

std::optional<Expansion::Values> Expansion::defaults(const std::vector<Tokens::Field>& fields) {
    Values values;
    for (const Tokens::Field& field : fields) {
        std::string& value = values[field.name];
        for (const std::string& option : field.options) {
            if (!option.starts_with('#')) {
                value = option;
                break;
            }
        }
    }
    return values;
}

std::optional<std::vector<Expansion::Step>> Expansion::plan(std::string_view content,
                                                            std::string_view abbreviation,
                                                            const std::vector<Snippet>& library,
                                                            const AskValues& ask,
                                                            const RenderContext& context) {
    const std::string text = Tokens::includes(content, {std::string(abbreviation)}, library);

    Values values;
    if (auto fields = Tokens::fields(text); !fields.empty()) {
        std::optional<Values> given = ask ? ask(fields) : std::nullopt;
        if (!given) {
            return std::nullopt;
        }
        values = std::move(*given);
    }

    std::vector<Step> steps;
    for (Tokens::Piece& piece : Tokens::pieces(text)) {
        if (piece.kind == Tokens::Piece::Kind::key) {
            if (auto stroke = Tokens::keyStroke(piece.text)) {
                steps.emplace_back(Key{*stroke});
            } else {
                steps.emplace_back(Literal{"{key:" + piece.text + "}"});
            }
            continue;
        }
        Tokens::Rendered rendered = Tokens::render(Tokens::fill(piece.text, values), context);
        if (!rendered.text.empty()) {
            steps.emplace_back(Text{std::move(rendered.text), rendered.cursorBack});
        }
    }
    return steps;
}

std::optional<std::vector<Expansion::Step>> Expansion::plan(const Snippet& snippet,
                                                            const std::vector<Snippet>& library,
                                                            const AskValues& ask,
                                                            const RenderContext& context) {
    return plan(snippet.content, snippet.abbreviation, library, ask, context);
}

std::string Expansion::text(std::string_view content, std::string_view abbreviation,
                            const std::vector<Snippet>& library, const Values& values,
                            const RenderContext& context) {
    // The command line fills before splitting, keeps only the text between key tokens and
    // renders it as one text: a caret mark counts once for the whole text.
    const std::string filled =
        Tokens::fill(Tokens::includes(content, {std::string(abbreviation)}, library), values);
    std::string joined;
    for (const Tokens::Piece& piece : Tokens::pieces(filled)) {
        if (piece.kind == Tokens::Piece::Kind::text) {
            joined += piece.text;
        }
    }
    return Tokens::render(joined, context).text;
}

} // namespace quillet
