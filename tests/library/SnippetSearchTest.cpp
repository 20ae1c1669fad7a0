#include "library/SnippetSearch.h"

#include "support/Snippets.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using testing::snippet;

TEST(SnippetSearch, EveryWordMustBeInTheAbbreviationOrTextAndTheMostUsedComeFirst) {
    const std::vector<Snippet> library = {
        snippet(";addr", "1 Main Street, Springfield"),
        snippet(";Sig", "Best regards, Ann"),
        snippet("", "Meeting notes template"), // no abbreviation: found by its text
        snippet(";old", "Main office", [](Snippet& s) { s.archived = true; }),
        snippet("#(\\d+)", "Issue $1", [](Snippet& s) { s.regex = true; }),
        snippet(";pin", "Main 1234", [](Snippet& s) { s.locked = true; }),
        snippet(";cafe", "Caf\u00e9 du Monde"),
    };
    Usage usage;
    usage.record(library[1].id, 5, Date::now());
    const struct {
        const char* query;
        std::vector<std::string> found; // abbreviations, in order
    } cases[] = {
        {"", {";Sig", "", ";addr", ";cafe", ";pin"}},
        {"main", {";addr"}},        // not the archived one, not the locked one's text
        {"SIG", {";Sig"}},          // case
        {"main spring", {";addr"}}, // every word
        {"main ann", {}},
        {"notes", {""}},
        {"pin", {";pin"}},         // a locked one by its abbreviation
        {"cafe\u0301", {";cafe"}}, // an accent typed as a combining mark
        {"issue", {}},             // patterns cannot be inserted as they stand
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.query);
        std::vector<std::string> found;
        for (const Snippet* s : searchSnippets(library, c.query, usage)) {
            found.push_back(s->abbreviation);
        }
        EXPECT_EQ(found, c.found);
    }
    EXPECT_EQ(searchSnippets(library, "", usage, 2).size(), 2u);
}

} // namespace
} // namespace quillet
