#include "library/StarterSets.h"

#include <array>

namespace quillet {
namespace {

// The texts are exact, including the blank a few of them end with: the user keeps typing right
// after the expansion.
constexpr std::array<StarterSnippet, 4> support{{
    {";thanks", "Hi {field:Name},\n\nThanks for getting in touch. "},
    {";sorry", "Hi {field:Name},\n\nI'm sorry about the trouble. Let me look into it and come back "
               "to you today."},
    {";fixed", "Hi {field:Name},\n\nThis is fixed now. Could you try again and tell me if it still "
               "happens?"},
    {";close", "Hi {field:Name},\n\nI'm closing this for now. Reply any time and it will reopen."},
}};

constexpr std::array<StarterSnippet, 4> sales{{
    {";intro", "Hi {field:Name},\n\nI'm {field:Your name} from {field:Company}. I'm reaching out "
               "because "},
    {";follow",
     "Hi {field:Name},\n\nJust checking in on my last note. Is this still on your radar?"},
    {";call",
     "Would {choice:Day=Monday|Tuesday|Wednesday|Thursday|Friday} work for a 20 minute call?"},
    {";quote",
     "Hi {field:Name},\n\nHere's the quote we talked about. It's valid until {date+14d}."},
}};

constexpr std::array<StarterSnippet, 4> student{{
    {";prof", "Dear Professor {field:Surname},\n\n"},
    {";ext", "Dear Professor {field:Surname},\n\nI'd like to ask for an extension on "
             "{field:Assignment}. "},
    {";ref", "{field:Author} ({field:Year}). {field:Title}. "},
    {";today", "{date}"},
}};

constexpr std::array<StarterSnippet, 4> freelancer{{
    {";invoice", "Hi {field:Name},\n\nInvoice for {field:Project} is attached. It's due "
                 "{date+14d}.\n\nThank you!"},
    {";late", "Hi {field:Name},\n\nA gentle reminder that the invoice for {field:Project} is now "
              "overdue. "},
    {";avail", "I'm free from {field:Start date}. Want me to pencil you in?"},
    {";scope", "That sounds outside the scope we agreed. I'm happy to quote it separately."},
}};

constexpr std::array<StarterSet, 4> sets{{
    {"Support", support},
    {"Sales", sales},
    {"Student", student},
    {"Freelancer", freelancer},
}};

} // namespace

std::span<const StarterSet> starterSets() {
    return sets;
}

const StarterSet* starterSet(std::string_view name) {
    for (const auto& set : sets) {
        if (set.name == name) {
            return &set;
        }
    }
    return nullptr;
}

std::vector<Snippet> makeSnippets(const StarterSet& set) {
    std::vector<Snippet> snippets;
    snippets.reserve(set.snippets.size());
    for (const auto& entry : set.snippets) {
        Snippet snippet = Snippet::make();
        snippet.abbreviation = entry.abbreviation;
        snippet.content = entry.content;
        snippets.push_back(std::move(snippet));
    }
    return snippets;
}

} // namespace quillet
