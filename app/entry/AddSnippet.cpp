#include "entry/AddSnippet.h"

#include "library/LibraryFile.h"
#include "library/LibraryLock.h"
#include "library/Text.h"

#include <algorithm>
#include <iterator>
#include <unicode/uchar.h>

namespace quillet {
namespace {

// Blanks and line breaks at either end go, as anywhere the user names an abbreviation.
std::string trimmed(std::string_view s) {
    auto parts = text::graphemes(s);
    auto blank = [](std::string_view c) {
        return u_isUWhiteSpace(static_cast<UChar32>(text::firstCodePoint(c))) != 0;
    };
    auto first = std::find_if_not(parts.begin(), parts.end(), blank);
    auto last = std::find_if_not(parts.rbegin(), std::make_reverse_iterator(first), blank).base();
    if (first == last) {
        return {};
    }
    const char* begin = first->data();
    const char* end = (last - 1)->data() + (last - 1)->size();
    return std::string(begin, end);
}

} // namespace

std::optional<std::string> addSnippet(const LibraryLocation& location,
                                      std::string_view abbreviation, std::string content) {
    content = text::repairUtf8(content);
    const std::filesystem::path file = location.libraryFile();
    // Held from the read to the write, so a concurrent add cannot slip in between and be lost.
    LibraryLock lock(file, location.folders().data);
    LibraryRead read = readLibrary(file);
    if (read.status != LibraryStatus::ok) {
        return "Open Quillet once first.";
    }
    std::vector<Snippet>& snippets = read.snippets;
    const std::string trimmedAbbreviation = trimmed(abbreviation);
    if (trimmedAbbreviation.empty() || content.empty()) {
        return "Give it an abbreviation and some text.";
    }
    // The same abbreviation typed with a composed or a decomposed accent is the same one: the
    // keyboard engine could never tell them apart.
    const std::string composed = text::nfc(trimmedAbbreviation);
    for (const Snippet& s : snippets) {
        if (text::nfc(s.abbreviation) == composed) {
            return "\u201C" + trimmedAbbreviation + "\u201D is already a snippet.";
        }
    }
    Snippet snippet = Snippet::make();
    snippet.abbreviation = trimmedAbbreviation;
    snippet.content = std::move(content);
    if (snippet.needsEditor()) {
        return "Snippets with {key:\u2026}, {clipboard} or {snippet:\u2026} are added in "
               "Quillet's editor only.";
    }
    snippets.push_back(std::move(snippet));
    std::string error;
    if (!writeLibrary(file, snippets, error)) {
        return "Couldn't save: " + error;
    }
    return std::nullopt;
}

} // namespace quillet
