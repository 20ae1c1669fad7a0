// Random import files. Whatever the bytes, reading and merging them must not crash, CSV must read
// back what it would write, and whatever was imported must come back unchanged from an export.
// The same bytes also go to the readers of other expanders' files: their JSON exports, Espanso's
// match files, aText's LZ4 frames and property lists.
#include "transfer/Csv.h"
#include "transfer/Importers.h"
#include "transfer/Lz4Frame.h"
#include "transfer/PropertyList.h"
#include "transfer/Transfer.h"

#include <cstdlib>
#include <string>

namespace {

using quillet::Transfer;

// Every cell quoted, so that no cell's text can be taken for structure.
std::string writeCsv(const std::vector<std::vector<std::string>>& rows) {
    std::string out;
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            out += i == 0 ? "\"" : ",\"";
            for (char c : row[i]) {
                out += c == '"' ? "\"\"" : std::string(1, c);
            }
            out += '"';
        }
        out += "\r\n";
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);

    const auto rows = quillet::readCsv(bytes);
    for (const auto& row : rows) {
        if (row.empty() || (row.size() == 1 && row[0].empty())) {
            std::abort(); // blank lines are dropped, and every row has a cell
        }
    }
    if (quillet::readCsv(writeCsv(rows)) != rows) {
        std::abort();
    }

    (void)quillet::Importers::espansoFile(bytes);
    (void)quillet::Importers::aText(bytes);
    (void)quillet::Importers::keyboardMaestro(bytes);
    if (auto content = quillet::decodeLz4Frame(bytes, 1 << 16)) {
        if (content->size() > 1 << 16) {
            std::abort(); // the limit holds whatever the frame claims
        }
        (void)quillet::readPropertyList(*content);
    }

    Transfer::Incoming incoming = Transfer::read(bytes, quillet::Importers::foreignJson);
    const std::vector<quillet::Snippet> snippets = incoming.snippets;
    (void)Transfer::trustWarning(snippets);
    Transfer::Report report = Transfer::merge(std::move(incoming), {});
    (void)report.text();

    // An export of what came in reads back as the same snippets, abbreviations untouched.
    Transfer::Incoming again = Transfer::read(Transfer::exportFile(snippets));
    std::size_t next = 0;
    for (const quillet::Snippet& s : snippets) {
        if (s.abbreviation.empty()) {
            continue;
        }
        if (next >= again.snippets.size() || again.snippets[next].abbreviation != s.abbreviation ||
            again.snippets[next].content != s.content || again.snippets[next].sites != s.sites) {
            std::abort();
        }
        ++next;
    }
    if (next != again.snippets.size()) {
        std::abort();
    }
    return 0;
}
