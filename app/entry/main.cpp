// Until the keyboard engine and the application shell exist, `quillet` runs a console session of
// the matcher over the user's real library and settings, so abbreviations can be tried out.
#include "engine/Matcher.h"
#include "engine/Typos.h"
#include "entry/Cli.h"
#include "library/JsonPreferences.h"
#include "library/LibraryFile.h"
#include "library/LibraryLocation.h"
#include "library/Text.h"

#include <cstdio>
#include <iostream>
#include <string>
#include <unistd.h>

namespace quillet {
namespace {

// The abbreviations that may fire anywhere: archived snippets never do, and locked ones need the
// application to unlock them.
Matcher makeMatcher(const std::vector<Snippet>& snippets, const Preferences& preferences) {
    Matcher::Table table;
    Matcher::Modes modes;
    std::map<std::string, std::string> patterns;
    for (const Snippet& s : snippets) {
        if (s.archived || s.locked || s.abbreviation.empty()) {
            continue;
        }
        if (s.regex) {
            patterns.emplace(s.abbreviation, s.content);
            continue;
        }
        if (table.emplace(s.abbreviation, s.content).second && s.trigger) {
            modes.emplace(s.abbreviation, *s.trigger);
        }
    }
    Matcher m;
    m.setSnippets(std::move(table), std::move(modes));
    m.setPatterns(std::move(patterns));
    m.compile();
    m.setMode(triggerModeFromRaw(preferences.text("triggerMode").value_or(""))
                  .value_or(Matcher::Mode::instant));
    m.setCorrections(Typos::corrections(preferences));
    m.setExtras(Typos::extras(preferences));
    return m;
}

void show(const Matcher::Match& match) {
    std::cout << "  " << match.abbreviation << " -> \"" << match.expansion << '"';
    if (!match.trailer.empty() && match.trailer != " ") {
        std::cout << " then '" << match.trailer << '\'';
    }
    std::cout << '\n';
}

int console() {
    JsonFilePreferences preferences(Folders::current().settingsFile(),
                                    JsonFilePreferences::Access::readOnly);
    LibraryLocation location(preferences);
    LibraryRead library = readLibrary(location.libraryFile());
    const bool interactive = isatty(STDIN_FILENO) != 0;
    if (library.status == LibraryStatus::damaged || library.status == LibraryStatus::unreadable) {
        std::cerr << library.message << '\n';
        return 1;
    }
    Matcher matcher = makeMatcher(library.snippets, preferences);
    if (interactive) {
        std::cout << "Quillet " << QUILLET_VERSION
                  << ": the keyboard engine is not part of this build yet.\n"
                  << library.snippets.size() << " snippets from " << location.libraryFile().string()
                  << ". Type text to see what would expand; Ctrl+D ends.\n";
    }
    std::string line;
    while ((interactive && std::cout << "> " << std::flush), std::getline(std::cin, line)) {
        line = text::repairUtf8(line) + "\n";
        for (std::string_view key : text::graphemes(line)) {
            auto match = key == "\t" ? matcher.fire(Matcher::Mode::tab, "") : matcher.feed(key);
            if (match) {
                show(*match);
            }
        }
    }
    return 0;
}

} // namespace
} // namespace quillet

int main(int argc, char** argv) {
    if (auto status = quillet::CLI::run(std::vector<std::string>(argv, argv + argc))) {
        return *status;
    }
    return quillet::console();
}
