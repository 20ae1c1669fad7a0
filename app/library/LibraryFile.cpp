#include "library/LibraryFile.h"

#include "library/AtomicFile.h"

namespace quillet {

std::string encodeLibrary(const std::vector<Snippet>& snippets) {
    nlohmann::json array = nlohmann::json::array();
    for (const auto& snippet : snippets) {
        array.push_back(toJson(snippet));
    }
    // Invalid UTF-8 in a field must not make the whole save throw; it is written as U+FFFD.
    return array.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::optional<std::vector<Snippet>> decodeLibrary(std::string_view bytes, std::string& error) {
    RecordsRead read = snippetsFromJsonText(bytes);
    switch (read.outcome) {
    case RecordsRead::Outcome::ok:
        return std::move(read.snippets);
    case RecordsRead::Outcome::invalidJson:
        error = "The library file is not valid JSON (at byte " + std::to_string(read.byte) + ").";
        break;
    case RecordsRead::Outcome::notAList:
        error = "The library file does not hold a list of snippets.";
        break;
    case RecordsRead::Outcome::badRecord:
        error = "Snippet " + std::to_string(read.record) +
                " of the library file is damaged: " + read.problem + ".";
        break;
    }
    return std::nullopt;
}

LibraryRead readLibrary(const std::filesystem::path& path) {
    LibraryRead result;
    FileContent file = readFile(path);
    switch (file.status) {
    case ReadStatus::missing:
        result.status = LibraryStatus::missing;
        return result;
    case ReadStatus::unreadable:
        result.status = LibraryStatus::unreadable;
        result.message = std::move(file.error);
        return result;
    case ReadStatus::ok:
        break;
    }
    std::string error;
    if (auto snippets = decodeLibrary(file.bytes, error)) {
        result.status = LibraryStatus::ok;
        result.snippets = std::move(*snippets);
    } else {
        result.status = LibraryStatus::damaged;
        result.message = std::move(error);
    }
    return result;
}

bool writeLibrary(const std::filesystem::path& path, const std::vector<Snippet>& snippets,
                  std::string& error) {
    if (!createFolders(path.parent_path(), 0700, error)) {
        return false;
    }
    return writeFileAtomically(path, encodeLibrary(snippets), 0600, error);
}

} // namespace quillet
