#pragma once

#include "library/LockedSnippets.h"
#include "library/Preferences.h"
#include "library/Snippet.h"
#include "library/StarterSets.h"
#include "library/Store.h"
#include "library/Usage.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// What the snippets page lists and how its editor changes the library: the rows a search shows,
/// the warnings and notes beside each field, the preview, and every change, saved through the
/// store the moment it is made. The page itself holds no rule of its own.
class LibraryEditor {
public:
    /// How the list is ordered: the user's own order, or one of the usage orders.
    enum class Order { library, mostUsed, newest, alphabetical };

    /// One line of the list.
    struct Row {
        Uuid id;
        std::string abbreviation;
        std::string subtitle;            ///< the first line, "Locked", or what else it pastes
        std::vector<std::string> badges; ///< short words: scope, kind, "Archived"…
        bool archived = false;
    };

    /// A choice of a list, as the editor offers it.
    template <typename Value> struct Choice {
        Value value;
        std::string label;
    };

    /// What the editor reads besides the store; every part must outlive the editor.
    struct Parts {
        SnippetStore& store;
        Preferences& preferences;
        LockedSnippets& locked;
        /// The usage counts as they are now, for the usage orders; null when none are known.
        std::function<const Usage*()> usage = [] { return nullptr; };
        /// The clipboard texts the preview renders with, newest first.
        std::function<std::vector<std::string>()> clipboard = [] {
            return std::vector<std::string>();
        };
    };

    explicit LibraryEditor(Parts parts);
    /// Forgets what undo could bring back (a deleted locked snippet's text leaves the secret
    /// store only now).
    ~LibraryEditor();
    LibraryEditor(const LibraryEditor&) = delete;
    LibraryEditor& operator=(const LibraryEditor&) = delete;

    static const std::vector<Choice<Order>>& orders();
    static const std::vector<Choice<Snippet::Kind>>& kinds();
    static const std::vector<Choice<Snippet::Scope>>& scopes();
    /// "As in Settings" (no own trigger), then the three modes.
    static const std::vector<Choice<std::optional<TriggerMode>>>& triggers();

    /// The snippets the query finds, archived ones only when asked, in order.
    std::vector<Row> rows(std::string_view query, Order order, bool archived) const;
    /// The row of one snippet; nothing once it is gone.
    std::optional<Row> row(const Uuid& id) const;
    /// The snippet with id as stored now; nothing once it is gone.
    std::optional<Snippet> find(const Uuid& id) const;

    /// Adds a blank snippet at the end of the list and answers its id.
    std::optional<Uuid> create(std::string& error);
    /// Adds a copy after the snippet, under the next free abbreviation; answers the copy's id.
    std::optional<Uuid> duplicate(const Uuid& id, std::string& error);
    /// Stores the edited record over the one with its id, or at the end should that one have
    /// been deleted meanwhile (by another process): an edit is never lost. What went wrong, or
    /// nothing. A locked snippet's content is never written to the library file.
    std::optional<std::string> update(const Snippet& edited);
    std::optional<std::string> setArchived(const Uuid& id, bool archived);
    /// Deletes the snippet; undo() brings it back at its place until the next delete.
    std::optional<std::string> remove(const Uuid& id);
    /// What undo would do ("Undo deleting ;sig"); empty when there is nothing to undo.
    std::string undoLabel() const;
    std::optional<std::string> undo();
    /// The snippet undo would bring back.
    std::optional<Uuid> deletedId() const {
        return deleted_ ? std::optional<Uuid>(deleted_->snippet.id) : std::nullopt;
    }

    /// True when the library already has every abbreviation of the starter set.
    bool hasStarterSet(const StarterSet& set) const;
    /// Adds the starter set's snippets the library does not have yet; what was added, or why
    /// nothing could be.
    std::string addStarterSet(const StarterSet& set);

    /// Locks (the text moves into the secret store) or unlocks it (the owner confirms, and the
    /// text comes back into the library).
    std::optional<std::string> setLocked(const Uuid& id, bool locked);
    /// A locked snippet's text, once the owner confirmed; nothing when refused or missing.
    std::optional<std::string> lockedText(const Uuid& id, std::string& error);
    /// Stores a new text for a locked snippet.
    std::optional<std::string> setLockedText(const Uuid& id, const std::string& text);
    /// Copies a picture into the images folder under a fresh name with its extension and makes
    /// the snippet paste it; empty path takes the picture away.
    std::optional<std::string> setPicture(const Uuid& id, const std::filesystem::path& file);

    /// The warning under the abbreviation field: a clash with another abbreviation or a word it
    /// would fire inside; for a pattern, why it does not compile.
    std::optional<std::string> abbreviationWarning(const Snippet& snippet) const;
    /// The caption over the content: what the script gives, or nothing for a template.
    static std::optional<std::string> kindCaption(Snippet::Kind kind);
    /// A notice that the snippet will not run here ("Shell and AppleScript snippets are off.").
    std::optional<std::string> kindNotice(Snippet::Kind kind) const;
    /// The text the snippet would insert now, fields at their defaults; scripts are not run.
    std::string preview(const Snippet& snippet) const;
    /// For a Markdown snippet, the preview as it pastes styled (an HTML fragment); nothing for
    /// others.
    std::optional<std::string> styledPreview(const Snippet& snippet) const;
    /// The file of the snippet's picture in the images folder; nothing when it has none.
    std::optional<std::filesystem::path> picture(const Snippet& snippet) const;
    /// Adds an application to the snippet's list, once; a snippet that fires everywhere then
    /// fires only there.
    std::optional<std::string> addApplication(const Uuid& id, const std::string& app);
    /// The entries of a comma-separated list of sites, each normalised to its host; what is
    /// wrong with the first entry that has no host.
    static std::vector<std::string> sites(std::string_view written, std::string& problem);

private:
    struct Deleted {
        Snippet snippet;
        std::size_t index = 0;
    };

    std::optional<std::string> store(std::vector<Snippet> list);
    void forget();

    Parts parts_;
    std::optional<Deleted> deleted_;
};

} // namespace quillet
