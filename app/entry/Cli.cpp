#include "entry/Cli.h"

#include "entry/AddSnippet.h"
#include "entry/BrowserBridge.h"
#include "entry/CliExpand.h"
#include "library/JsonPreferences.h"
#include "library/LibraryFile.h"
#include "library/LibraryLocation.h"
#include "library/LibraryLock.h"
#include "platform/linux/DBusSiteSink.h"
#include "transfer/Importers.h"
#include "transfer/Transfer.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <unistd.h>

namespace quillet {
namespace {

const std::string noLibrary = "No snippets yet. Open Quillet once first, or wait for your synced "
                              "folder to finish downloading them.";

int fail(const std::string& message) {
    std::cerr << message << '\n' << std::flush;
    return 1;
}

// The settings are only read: the tool never changes them.
struct Context {
    JsonFilePreferences preferences{Folders::current().settingsFile(),
                                    JsonFilePreferences::Access::readOnly};
    LibraryLocation location{preferences};
};

std::optional<std::vector<Snippet>> readSnippets(const Context& context) {
    LibraryRead read = readLibrary(context.location.libraryFile());
    if (read.status != LibraryStatus::ok) {
        return std::nullopt;
    }
    return std::move(read.snippets);
}

int list(const std::vector<Snippet>& snippets) {
    std::string out;
    for (const Snippet& s : snippets) {
        if (s.abbreviation.empty() || s.archived) {
            continue;
        }
        out += s.abbreviation;
        out += '\t';
        if (s.locked) {
            out += "Locked";
        } else {
            out += s.firstLine();
        }
        out += '\n';
    }
    std::cout << out << std::flush;
    return 0;
}

int add(const Context& context, const std::vector<std::string>& args) {
    if (args.size() < 2) {
        return fail(CLI::usage());
    }
    const std::string& typed = args[1];
    std::string content;
    if (args.size() > 2) {
        for (std::size_t i = 2; i < args.size(); ++i) {
            content += (i > 2 ? " " : "") + args[i];
        }
    } else {
        content.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    }
    if (std::optional<std::string> refused = addSnippet(context.location, typed, content)) {
        return fail(*refused);
    }
    std::cout << "Added " << typed << ".\n" << std::flush;
    return 0;
}

std::vector<Importers::Source> detectedSources() {
    const Folders& folders = Folders::current();
    return Importers::detect(folders.home, folders.config.parent_path());
}

int sources() {
    std::vector<Importers::Source> found = detectedSources();
    if (found.empty()) {
        std::cout << Importers::noneFound() << '\n' << std::flush;
        return 0;
    }
    for (const Importers::Source& source : found) {
        std::cout << source.name << '\n';
    }
    std::cout << std::flush;
    return 0;
}

// The same steps as the window's "Import a file…" and "Bring snippets over…": read, warn about
// risky snippets, merge.
int importFile(const Context& context, const std::vector<std::string>& args) {
    bool trust = false;
    std::optional<std::string> sourceName;
    std::vector<std::string> paths;
    for (std::size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--trust") {
            trust = true;
        } else if (args[i] == "--source" && i + 1 < args.size() && !sourceName) {
            sourceName = args[++i];
        } else {
            paths.push_back(args[i]);
        }
    }
    if (paths.size() != (sourceName ? 0 : 1)) {
        return fail(CLI::usage());
    }
    std::string error;
    std::optional<Transfer::Incoming> incoming =
        sourceName ? Importers::readSource(*sourceName, detectedSources(), error)
                   : Importers::readImport(paths[0], error);
    if (!incoming) {
        return fail(error);
    }
    if (!trust) {
        if (std::optional<Transfer::Warning> warning = Transfer::trustWarning(incoming->snippets)) {
            return fail(warning->title + "\n\n" + warning->message);
        }
    }
    const std::filesystem::path libraryFile = context.location.libraryFile();
    LibraryLock lock(libraryFile, context.location.folders().data);
    std::optional<std::vector<Snippet>> snippets = readSnippets(context);
    if (!snippets) {
        return fail(noLibrary);
    }
    Transfer::Report report = Transfer::merge(std::move(*incoming), *snippets);
    if (!report.added.empty()) {
        snippets->insert(snippets->end(), std::make_move_iterator(report.added.begin()),
                         std::make_move_iterator(report.added.end()));
        if (!writeLibrary(libraryFile, *snippets, error)) {
            return fail("Couldn't save: " + error);
        }
    }
    std::cout << report.text() << '\n' << std::flush;
    return 0;
}

int exportFile(const std::vector<Snippet>& snippets, const std::vector<std::string>& args) {
    if (args.size() > 2) {
        return fail(CLI::usage());
    }
    if (args.size() < 2 || args[1] == "-") {
        std::cout << Transfer::exportFile(snippets) << std::flush;
        return 0;
    }
    std::string error;
    if (!Transfer::writeExport(args[1], snippets, error)) {
        return fail("Couldn't save the file: " + error);
    }
    std::cout << Transfer::exportMessage(snippets) << '\n' << std::flush;
    return 0;
}

// The native-messaging host: status 0 whichever way the input ends.
int serveBrowser() {
    DBusSiteSink sink;
    BrowserBridge::serve(STDIN_FILENO, BrowserBridge::callingBrowser(), sink);
    return 0;
}

int installBridge() {
    BrowserBridge::Installed installed =
        BrowserBridge::install(Folders::current(), BrowserBridge::ownExecutable());
    if (installed.browsers.empty()) {
        return fail(installed.message);
    }
    std::cout << installed.message << '\n' << std::flush;
    return 0;
}

} // namespace

const std::vector<std::string>& CLI::commands() {
    static const std::vector<std::string> words = {"list",   "expand", "add",  "import", "sources",
                                                   "export", "bridge", "help", "--help", "-h"};
    return words;
}

const std::string& CLI::usage() {
    static const std::string text =
        "usage: snippets list                                   your snippets and the first line "
        "of each\n"
        "       snippets expand <abbreviation> [name=value\u2026]    print what it expands to; "
        "name=value fills {field:name}\n"
        "       snippets add <abbreviation> [text\u2026]             add a snippet; the text is "
        "read from stdin when left out\n"
        "       snippets import <file> [--trust]                add the snippets of an exchange, "
        "JSON or CSV file,\n"
        "                                                       or of another expander's file or "
        "folder\n"
        "       snippets import --source <name> [--trust]       add the snippets of an expander "
        "found on this computer\n"
        "       snippets sources                                the expanders found on this "
        "computer\n"
        "       snippets export [file]                          write every snippet to an "
        "exchange file, or to stdout\n"
        "       snippets bridge install                         let Chrome, Chromium, Brave, "
        "Edge, Vivaldi and Firefox\n"
        "                                                       tell Quillet which website they "
        "show";
    return text;
}

std::optional<int> CLI::run(const std::vector<std::string>& arguments) {
    if (arguments.size() < 2) {
        return std::nullopt;
    }
    const std::vector<std::string> args(arguments.begin() + 1, arguments.end());
    const std::string& word = args[0];
    if (BrowserBridge::isHostCall(args)) {
        return serveBrowser();
    }
    const auto& known = commands();
    if (std::find(known.begin(), known.end(), word) == known.end()) {
        return std::nullopt;
    }
    if (word == "help" || word.starts_with("-")) {
        std::cout << usage() << '\n' << std::flush;
        return 0;
    }
    if (word == "sources") {
        return args.size() == 1 ? sources() : fail(usage());
    }
    if (word == "bridge") {
        return args.size() == 2 && args[1] == "install" ? installBridge() : fail(usage());
    }
    Context context;
    // One read serves list and export; add and import read again under the lock, and expand on
    // its own task.
    std::optional<std::vector<Snippet>> snippets = readSnippets(context);
    if (!snippets) {
        return fail(noLibrary);
    }
    if (word == "list") {
        return list(*snippets);
    }
    if (word == "add") {
        return add(context, args);
    }
    if (word == "import") {
        return importFile(context, args);
    }
    if (word == "export") {
        return exportFile(*snippets, args);
    }
    if (args.size() < 2) {
        return fail(usage());
    }
    std::optional<std::string> result =
        expandForCommandLine(context.preferences, context.location, args);
    if (!result) {
        return fail("No snippet \u201C" + args[1] + "\u201D, or its script failed.");
    }
    std::cout << *result << std::flush;
    return 0;
}

} // namespace quillet
