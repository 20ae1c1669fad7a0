#pragma once

#include "library/Preferences.h"
#include "library/Snippet.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <future>
#include <optional>
#include <string>

// Script snippets: turning a snippet's kind and content into the text to insert. Scripts never
// report errors; whatever goes wrong (not allowed, launch failure, exception, non-zero exit,
// undecodable output, time-out) gives no text.
namespace quillet {

/// The text a script produced, or nothing.
using ScriptResult = std::optional<std::string>;

/// How long a script may take.
struct ScriptLimits {
    std::chrono::milliseconds process{5000}; ///< a shell script's processes are killed after this
    std::chrono::milliseconds call{6000};    ///< the caller gets nothing after this; JavaScript
                                             ///< still running is then interrupted
};

/// Hands done the output of a snippet exactly once: right away on the calling thread for text
/// (the content itself) and for shell and AppleScript while the setting allowScripts is off
/// (nothing), otherwise later on a background thread. The setting is read at every call.
void scriptOutput(Snippet::Kind kind, std::string content, const Preferences& preferences,
                  std::function<void(ScriptResult)> done, ScriptLimits limits = {});

/// The same, as a future for callers that wait for the result.
std::future<ScriptResult> scriptOutput(Snippet::Kind kind, std::string content,
                                       const Preferences& preferences, ScriptLimits limits = {});

/// How many script runs are still going on, counting those whose caller already got nothing at
/// the time limit.
std::size_t runningScripts();

/// Waits up to limit until no script run is going on; false when some still are. A process calls
/// it before it exits so that no interpreter or child is torn down halfway.
bool waitForScripts(std::chrono::milliseconds limit);

} // namespace quillet
