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
    nlohmann::json document;
    try {
        document = nlohmann::json::parse(bytes);
    } catch (const nlohmann::json::parse_error& e) {
        error = "The library file is not valid JSON (at byte " + std::to_string(e.byte) + ").";
        return std::nullopt;
    }
    if (!document.is_array()) {
        error = "The library file does not hold a list of snippets.";
        return std::nullopt;
    }
    std::vector<Snippet> snippets;
    snippets.reserve(document.size());
    for (std::size_t i = 0; i < document.size(); ++i) {
        std::string problem;
        auto snippet = snippetFromJson(document[i], problem);
        if (!snippet) {
            error = "Snippet " + std::to_string(i + 1) +
                    " of the library file is damaged: " + problem + ".";
            return std::nullopt;
        }
        snippets.push_back(std::move(*snippet));
    }
    return snippets;
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
