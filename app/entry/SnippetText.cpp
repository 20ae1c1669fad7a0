#include "entry/SnippetText.h"

#include "render/ScriptOutput.h"

namespace quillet {

std::optional<std::string> snippetText(const Snippet& snippet, const std::vector<Snippet>& library,
                                       const Expansion::Values& values,
                                       const RenderContext& context,
                                       const Preferences& preferences) {
    if (snippet.kind != Snippet::Kind::text) {
        return scriptOutput(snippet.kind, snippet.content, preferences).get();
    }
    return Expansion::text(snippet.content, snippet.abbreviation, library, values, context);
}

} // namespace quillet
