#include "entry/CliExpand.h"

#include "entry/SnippetText.h"
#include "library/LibraryFile.h"
#include "library/LockedSnippets.h"
#include "library/Text.h"
#include "platform/linux/PamOwnerAuth.h"
#include "platform/linux/SecretServiceStore.h"
#include "platform/linux/TerminalPrompt.h"
#include "render/ScriptOutput.h"

#include <future>

namespace quillet {
namespace {

// name=value arguments after the abbreviation; the first "=" splits, a later name wins, and
// arguments without "=" are ignored.
Expansion::Values fieldValues(const std::vector<std::string>& args) {
    Expansion::Values values;
    for (std::size_t i = 2; i < args.size(); ++i) {
        auto equals = args[i].find('=');
        if (equals != std::string::npos) {
            values[args[i].substr(0, equals)] = args[i].substr(equals + 1);
        }
    }
    return values;
}

const Snippet* find(const std::vector<Snippet>& library, std::string_view abbreviation) {
    const std::string wanted = text::nfc(abbreviation);
    for (const Snippet& s : library) {
        if (!s.archived && !s.regex && text::nfc(s.abbreviation) == wanted) {
            return &s;
        }
    }
    return nullptr;
}

std::optional<std::string> expand(const Preferences& preferences, const LibraryLocation& location,
                                  const std::vector<std::string>& args) {
    const std::string& abbreviation = args[1];
    LibraryRead read = readLibrary(location.libraryFile());
    if (read.status != LibraryStatus::ok) {
        return std::nullopt;
    }
    const Snippet* found = find(read.snippets, abbreviation);
    if (!found) {
        return std::nullopt;
    }
    Snippet snippet = *found;
    if (snippet.locked) {
        SecretServiceStore secrets;
        PamOwnerAuth auth{TerminalPrompt{}};
        LockedSnippets locked(secrets, auth);
        Unlocked unlocked = locked.unlockForUse(snippet, pasteReason(abbreviation));
        if (unlocked.outcome != Unlocked::Outcome::ok || !unlocked.snippet) {
            return std::nullopt;
        }
        snippet = std::move(*unlocked.snippet);
    }
    // Fields take the values given on the command line; no form, no defaults.
    return snippetText(snippet, read.snippets, fieldValues(args), RenderContext{}, preferences);
}

} // namespace

std::optional<std::string> expandForCommandLine(const Preferences& preferences,
                                                const LibraryLocation& location,
                                                const std::vector<std::string>& args) {
    // The work runs on a task of its own while this thread waits, as unlocking and scripts may
    // block for a while; the result comes back through the future.
    std::optional<std::string> result =
        std::async(std::launch::async, [&] { return expand(preferences, location, args); }).get();
    waitForScripts(std::chrono::seconds(1));
    return result;
}

} // namespace quillet
