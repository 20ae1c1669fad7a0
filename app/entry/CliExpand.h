#pragma once

#include "library/LibraryLocation.h"
#include "library/Preferences.h"

#include <optional>
#include <string>
#include <vector>

namespace quillet {

/// What `snippets expand <abbreviation> [name=value…]` prints, or nothing when there is no such
/// snippet, its unlock was refused or its script failed. args starts with the word "expand".
std::optional<std::string> expandForCommandLine(const Preferences& preferences,
                                                const LibraryLocation& location,
                                                const std::vector<std::string>& args);

} // namespace quillet
