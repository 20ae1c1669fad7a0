#include "transfer/Importers.h"

#include "library/AtomicFile.h"
#include "transfer/PropertyList.h"

#include <algorithm>
#include <memory>
#include <sqlite3.h>

namespace quillet {
namespace {

namespace fs = std::filesystem;

bool isFolder(const fs::path& path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

bool isMatchFile(const fs::path& path) {
    return path.extension() == ".yml" || path.extension() == ".yaml";
}

// The match files under folder, its subfolders included, in name order.
std::vector<fs::path> matchFiles(const fs::path& folder) {
    std::vector<fs::path> files;
    std::error_code error;
    for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end;
         it.increment(error)) {
        if (isMatchFile(it->path()) && it->is_regular_file(error)) {
            files.push_back(it->path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

// A folder of collections, each a folder of snippet files.
bool isAlfredSnippetsFolder(const fs::path& folder) {
    std::error_code error;
    for (const auto& collection : fs::directory_iterator(folder, error)) {
        if (!collection.is_directory(error)) {
            continue;
        }
        for (const auto& file : fs::directory_iterator(collection.path(), error)) {
            if (file.path().extension() == ".json" || file.path().filename() == "info.plist") {
                return true;
            }
        }
    }
    return false;
}

} // namespace

std::vector<Importers::Source> Importers::detect(const fs::path& home, const fs::path& configHome) {
    std::vector<Source> sources;
    // Typinator is asked through AppleScript, and the other programs keep their data where only
    // a Mac has it; here Espanso is the one to find in place.
    for (const fs::path& match : {configHome / "espanso/match", home / ".config/espanso/match"}) {
        if (isFolder(match)) {
            sources.push_back({"Espanso", [match] { return espanso(match); }});
            break;
        }
    }
    return sources;
}

const std::string& Importers::noneFound() {
    static const std::string text = "No other expanders found on this computer";
    return text;
}

std::optional<Importers::Result> Importers::readPath(const fs::path& path) {
    if (isFolder(path)) {
        if (isFolder(path / "snippets")) {
            return alfred(path / "snippets");
        }
        if (isAlfredSnippetsFolder(path)) {
            return alfred(path);
        }
        if (!matchFiles(path).empty()) {
            return espanso(path);
        }
        return std::nullopt;
    }
    FileContent file = readFile(path);
    if (file.status != ReadStatus::ok) {
        return std::nullopt;
    }
    return readContent(path, file.bytes);
}

std::optional<Importers::Result> Importers::readContent(const fs::path& path,
                                                        std::string_view bytes) {
    if (bytes.starts_with(std::string_view("SQLite format 3\0", 16))) {
        return textReplacements(path);
    }
    if (bytes.starts_with("\x04\x22\x4D\x18")) {
        return aText(bytes);
    }
    if (looksLikePropertyList(bytes)) {
        return keyboardMaestro(bytes);
    }
    if (isMatchFile(path)) {
        return espansoFile(bytes);
    }
    return std::nullopt;
}

Importers::Result Importers::textReplacements(const fs::path& database) {
    Result result;
    sqlite3* raw = nullptr;
    const int opened = sqlite3_open_v2(database.c_str(), &raw, SQLITE_OPEN_READONLY, nullptr);
    std::unique_ptr<sqlite3, decltype(&sqlite3_close)> db(raw, &sqlite3_close);
    if (opened != SQLITE_OK) {
        return result;
    }
    sqlite3_stmt* rawStatement = nullptr;
    if (sqlite3_prepare_v2(db.get(),
                           "SELECT ZSHORTCUT, ZPHRASE FROM ZTEXTREPLACEMENTENTRY WHERE "
                           "ZWASDELETED = 0",
                           -1, &rawStatement, nullptr) != SQLITE_OK) {
        return result;
    }
    std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> statement(rawStatement,
                                                                         &sqlite3_finalize);
    auto column = [&](int i) {
        const auto* text = sqlite3_column_text(statement.get(), i);
        return text == nullptr ? std::string()
                               : std::string(reinterpret_cast<const char*>(text),
                                             static_cast<std::size_t>(
                                                 sqlite3_column_bytes(statement.get(), i)));
    };
    while (sqlite3_step(statement.get()) == SQLITE_ROW) {
        Transfer::Entry entry;
        entry.abbreviation = column(0);
        entry.content = column(1);
        result.entries.push_back(std::move(entry));
    }
    if (!result.entries.empty()) {
        result.notes.push_back("macOS still runs its own Text Replacements. Remove them in System "
                               "Settings \u2192 Keyboard, or they'll fire twice.");
    }
    return result;
}

Importers::Result Importers::espanso(const fs::path& matchFolder) {
    Result result;
    for (const fs::path& file : matchFiles(matchFolder)) {
        FileContent content = readFile(file);
        if (content.status != ReadStatus::ok) {
            continue;
        }
        Result one = espansoFile(content.bytes);
        std::move(one.entries.begin(), one.entries.end(), std::back_inserter(result.entries));
        std::move(one.skipped.begin(), one.skipped.end(), std::back_inserter(result.skipped));
        std::move(one.notes.begin(), one.notes.end(), std::back_inserter(result.notes));
    }
    return result;
}

Transfer::Incoming Importers::incoming(Result result) {
    Transfer::Incoming in;
    in.snippets.reserve(result.entries.size());
    for (const Transfer::Entry& entry : result.entries) {
        in.snippets.push_back(entry.snippet());
    }
    in.skipped = std::move(result.skipped);
    in.notes = std::move(result.notes);
    return in;
}

std::optional<Transfer::Incoming> Importers::readImport(const fs::path& path, std::string& error) {
    if (isFolder(path)) {
        std::optional<Result> read = readPath(path);
        if (!read) {
            error = "Couldn't read the file: " + path.string() +
                    " is a folder that holds no Espanso matches or Alfred snippets.";
            return std::nullopt;
        }
        return incoming(std::move(*read));
    }
    FileContent file = readFile(path);
    if (file.status != ReadStatus::ok) {
        error = "Couldn't read the file: " + file.error;
        return std::nullopt;
    }
    // What no other expander wrote is one of this program's own formats, or CSV.
    std::optional<Result> read = readContent(path, file.bytes);
    return read ? incoming(std::move(*read)) : Transfer::read(file.bytes, foreignJson);
}

std::optional<Transfer::Incoming> Importers::readSource(const std::string& name,
                                                        const std::vector<Source>& found,
                                                        std::string& error) {
    auto source =
        std::find_if(found.begin(), found.end(), [&](const Source& s) { return s.name == name; });
    if (source == found.end()) {
        error = "\u201C" + name + "\u201D isn't among the expanders found on this computer.";
        return std::nullopt;
    }
    return incoming(source->read());
}

} // namespace quillet
