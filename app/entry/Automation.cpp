#include "entry/Automation.h"

#include "entry/AddSnippet.h"
#include "entry/SnippetText.h"
#include "library/JsonPreferences.h"
#include "library/LibraryFile.h"
#include "library/LockedSnippets.h"
#include "library/Text.h"

#include <unicode/locid.h>

namespace quillet {
namespace {

bool listed(const Snippet& s) {
    return !s.abbreviation.empty() && !s.archived && !s.regex;
}

// Case goes by the user's language: a Turkish user's "I" is a dotless "ı".
std::string folded(std::string_view s) {
    icu::UnicodeString u = text::toIcu(text::nfc(s));
    u.toLower(icu::Locale::getDefault());
    return text::fromIcu(u);
}

} // namespace

Automation::Automation(Folders folders) : folders_(std::move(folders)) {}

std::vector<Automation::Entry> Automation::list() const {
    const JsonFilePreferences preferences(folders_.settingsFile(),
                                          JsonFilePreferences::Access::readOnly);
    const LibraryRead read = readLibrary(LibraryLocation(preferences, folders_).libraryFile());
    std::vector<Entry> entries;
    if (read.status != LibraryStatus::ok) {
        return entries;
    }
    for (const Snippet& s : read.snippets) {
        if (listed(s)) {
            entries.push_back(
                {s.id.text(), s.abbreviation,
                 s.locked ? std::string(LockedSnippets::label) : std::string(s.firstLine())});
        }
    }
    return entries;
}

std::vector<Automation::Entry> Automation::search(std::string_view text) const {
    std::vector<Entry> entries = list();
    const std::string wanted = folded(text);
    std::erase_if(entries, [&wanted](const Entry& e) {
        return folded(e.abbreviation).find(wanted) == std::string::npos &&
               folded(e.subtitle).find(wanted) == std::string::npos;
    });
    return entries;
}

Automation::Result Automation::expand(std::string_view id,
                                      const std::optional<std::string>& clipboard) const {
    const JsonFilePreferences preferences(folders_.settingsFile(),
                                          JsonFilePreferences::Access::readOnly);
    const LibraryRead read = readLibrary(LibraryLocation(preferences, folders_).libraryFile());
    const std::optional<Uuid> wanted = Uuid::parse(id);
    const Snippet* found = nullptr;
    for (const Snippet& s : read.snippets) {
        if (wanted && s.id == *wanted) {
            found = &s;
            break;
        }
    }
    const Result failure{"Couldn't expand " +
                             (found != nullptr ? found->abbreviation : std::string(id)) + ".",
                         true};
    if (read.status != LibraryStatus::ok || found == nullptr || !listed(*found) || found->locked) {
        return failure;
    }
    RenderContext context;
    if (clipboard) {
        context.clipboard.push_back(*clipboard);
    }
    std::optional<std::string> text = snippetText(*found, read.snippets, {}, context, preferences);
    return text ? Result{std::move(*text)} : failure;
}

Automation::Result Automation::add(std::string_view abbreviation, std::string text) const {
    const JsonFilePreferences preferences(folders_.settingsFile(),
                                          JsonFilePreferences::Access::readOnly);
    if (std::optional<std::string> refused =
            addSnippet(LibraryLocation(preferences, folders_), abbreviation, std::move(text))) {
        return {*refused, true};
    }
    return {"Added " + std::string(abbreviation) + "."};
}

} // namespace quillet
