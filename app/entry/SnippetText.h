#pragma once

#include "library/Preferences.h"
#include "library/Snippet.h"
#include "render/Expansion.h"

#include <optional>
#include <string>
#include <vector>

namespace quillet {

/// What an unlocked snippet gives where nothing can be typed or asked (the command line,
/// automation): a script's output, shell scripts only while "allowScripts" is on, or its template
/// as Expansion::text renders it with includes from library. Nothing when its script fails.
std::optional<std::string> snippetText(const Snippet& snippet, const std::vector<Snippet>& library,
                                       const Expansion::Values& values,
                                       const RenderContext& context,
                                       const Preferences& preferences);

} // namespace quillet
