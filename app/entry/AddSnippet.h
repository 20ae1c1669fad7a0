#pragma once

#include "library/LibraryLocation.h"

#include <optional>
#include <string>
#include <string_view>

namespace quillet {

/// Adds a plain snippet at the end of the library, as `snippets add` and automation do: the
/// abbreviation trimmed of blanks and line breaks, refused when empty, taken (archived snippets
/// included), or needing the editor. The library is read and written under its lock, so adds
/// from several processes at once all land. Returns nothing when added, else why not.
std::optional<std::string> addSnippet(const LibraryLocation& location,
                                      std::string_view abbreviation, std::string content);

} // namespace quillet
