#include "transfer/SharedFolder.h"

#include "library/AtomicFile.h"
#include "transfer/Importers.h"
#include "transfer/Transfer.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string_view>

namespace quillet {
namespace {

namespace fs = std::filesystem;

// A team's snippet file is small; anything bigger is not one and is not read into memory.
constexpr std::uintmax_t maxFileSize = 16u << 20;

// 64-bit FNV-1a: the same on every machine and build, unlike std::hash.
std::uint64_t fnv(std::string_view text, std::uint64_t hash) {
    for (char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3ull;
    }
    return hash;
}

// The same identifier for the same snippet of the same file every time the folder is read:
// the pack then compares equal when nothing changed, and usage counts stay with the snippet.
Uuid stableId(std::string_view key) {
    const std::uint64_t halves[2] = {fnv(key, 0xCBF29CE484222325ull),
                                     fnv(key, 0x84222325CBF29CE4ull)};
    Uuid id;
    for (std::size_t i = 0; i < 16; ++i) {
        id.bytes[i] = static_cast<std::uint8_t>(halves[i / 8] >> (56 - 8 * (i % 8)));
    }
    id.bytes[6] = static_cast<std::uint8_t>((id.bytes[6] & 0x0F) | 0x80); // version 8: custom
    id.bytes[8] = static_cast<std::uint8_t>((id.bytes[8] & 0x3F) | 0x80);
    return id;
}

// The snippets of one file; none when it cannot be read or is not a snippet file. A JSON file
// that is neither an exchange file nor a list of snippets (a colleague's settings, say) is
// skipped rather than read as CSV, which would turn its lines into nonsense snippets.
std::vector<Snippet> readSnippets(const fs::path& file) {
    std::error_code error;
    if (!fs::is_regular_file(file, error) || fs::file_size(file, error) > maxFileSize || error) {
        return {};
    }
    FileContent content = readFile(file);
    if (content.status != ReadStatus::ok) {
        return {};
    }
    // Asked only once the text is neither an exchange file nor a list of entries.
    const bool json = Transfer::startsLikeJson(content.bytes);
    auto foreign = [json](std::string_view bytes) -> std::optional<Transfer::Foreign> {
        std::optional<Transfer::Foreign> read = Importers::foreignJson(bytes);
        return read || !json ? read : Transfer::Foreign{};
    };
    Transfer::Incoming incoming = Transfer::read(content.bytes, foreign);
    return std::move(incoming.snippets);
}

} // namespace

SnippetStore::SharedPack SharedFolder::load(const std::string& folder) {
    SnippetStore::SharedPack pack;
    pack.folder = folder;
    std::error_code error;
    std::vector<fs::path> files;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        if (!it->path().filename().string().starts_with('.')) {
            files.push_back(it->path());
        }
    }
    if (error) {
        pack.missing = true;
        return pack;
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
        std::vector<Snippet> snippets = readSnippets(file);
        const std::string key = folder + '\n' + file.filename().string() + '\n';
        for (std::size_t i = 0; i < snippets.size(); ++i) {
            Snippet& snippet = snippets[i];
            if (leavesOut(snippet)) {
                ++pack.leftOut;
                continue;
            }
            snippet.id = stableId(key + std::to_string(i));
            snippet.created.reset();
            pack.snippets.push_back(std::move(snippet));
        }
    }
    return pack;
}

bool SharedFolder::leavesOut(const Snippet& snippet) {
    return snippet.needsEditor() || snippet.firstLine().size() != snippet.content.size();
}

std::vector<std::string> SharedFolder::describe(const SnippetStore::SharedPack& pack) {
    if (pack.missing) {
        return {"This folder isn't shared any more.",
                "Add it again from Settings \u2192 Shared folders."};
    }
    std::vector<std::string> lines{"Read-only: change these in the folder's files. When one of "
                                   "yours has the same abbreviation, yours wins."};
    if (pack.leftOut > 0) {
        lines.push_back(std::to_string(pack.leftOut) +
                        " left out: they press keys, run scripts, use patterns or span lines, "
                        "which shared folders can't.");
    }
    return lines;
}

const std::string& SharedFolder::stopUsing() {
    static const std::string text = "Stop using this folder";
    return text;
}

} // namespace quillet
