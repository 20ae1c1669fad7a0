#pragma once

#include "library/FileWatcher.h"
#include "library/LibraryLocation.h"
#include "library/Preferences.h"
#include "library/Scheduler.h"
#include "library/Snippet.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quillet {

/// Tells one version of a file from another without reading it.
struct FileStamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t size = 0;
    std::int64_t seconds = 0;     ///< last modified
    std::int64_t nanoseconds = 0; ///< last modified

    friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

/// The one owner of the user's snippet list in the running application. It loads the library
/// file, saves every change, reads the file again when it changes on disk, moves the library in
/// and out of the synced folder and keeps the read-only shared folders. Main thread only.
///
/// A library file that exists but cannot be read or decoded at start is never written over: the
/// store starts empty with canSave() false and stays so, whatever is edited, until the file reads
/// again. One that breaks later, while the store holds a list, does not stop saving: an edit
/// then writes the list, and the broken file is first copied to the local data folder.
///
/// The settings file is watched with the library: a change of the synced folder moves the
/// library there (merged with one found there), and the settings callback tells the others.
class SnippetStore {
public:
    /// The snippets of one shared folder.
    struct SharedPack {
        std::string folder;            ///< the path as listed under "sharedFolders"
        std::vector<Snippet> snippets; ///< in file order, then in each file's order
        int leftOut = 0;               ///< snippets found but not taken: only the editor runs them
        bool missing = false;          ///< the folder could not be listed (moved or deleted)

        friend bool operator==(const SharedPack&, const SharedPack&) = default;
    };

    /// Reads one shared folder into a pack. Given by whoever knows the exchange-file format.
    using SharedFolderLoader = std::function<SharedPack(const std::string& folder)>;

    /// Told the effective list (own snippets, then shared ones whose abbreviation is free).
    using ChangeCallback = std::function<void(const SnippetList& effective)>;

    /// Loads the library and starts watching. preferences, watcher and scheduler must outlive
    /// the store; without a loader, shared folders are watched but yield no packs.
    SnippetStore(Preferences& preferences, FileWatcher& watcher, Scheduler& scheduler,
                 Folders folders = Folders::current(), SharedFolderLoader loader = {});
    ~SnippetStore();
    SnippetStore(const SnippetStore&) = delete;
    SnippetStore& operator=(const SnippetStore&) = delete;

    /// The user's snippets, in their order.
    const std::vector<Snippet>& snippets() const { return *snippets_; }

    /// Replaces the user's snippets, saves them and reports the effective list; false when they
    /// were not written (as save()).
    bool setSnippets(std::vector<Snippet> snippets);

    /// One pack per folder under "sharedFolders", in that order; none without a loader.
    const std::vector<SharedPack>& shared() const { return shared_; }

    /// The user's snippets followed by the shared ones whose abbreviation none of them has;
    /// the user's own list itself when no shared one is added.
    SnippetList effectiveSnippets() const;

    /// Sets the change callback and calls it at once with the current effective list; it is
    /// called again whenever the user's snippets or the shared packs change.
    void setOnChange(ChangeCallback callback);

    /// Writes the list to the library file atomically; false when it was not written (canSave
    /// is false, or the disk refused; the list stays in memory for the next change).
    bool save();

    /// Reads the library file again and takes it when it differs from the list, then reloads
    /// the shared folders; follows the library when the settings moved it. A file that does not
    /// decode leaves everything as it is. Called from another thread, it runs later on the main
    /// thread.
    void reload();

    /// Sets what is called, after the store took them in, when the settings file changed.
    void setOnSettingsChange(std::function<void()> callback);

    /// Loads every folder under "sharedFolders" again, and watches the current set of folders.
    void reloadShared();

    /// The folders under "sharedFolders", in the order they were added; entries that are not
    /// text are passed over.
    std::vector<std::string> sharedFolders() const;

    /// Stops using a shared folder: removes every entry equal to folder from "sharedFolders".
    void removeSharedFolder(const std::string& folder);

    /// Moves the library into the synced folder (on) or back to this computer (off), merging it
    /// with a library already there. Returns the message for the user, or nothing when there
    /// was nothing to do or the setting could not be stored.
    std::optional<std::string> setSync(bool on);

    /// True when this start found no library and seeded one.
    bool isNew() const { return isNew_; }

    /// True when the library lives in the synced folder.
    bool isSynced() const { return location_.isSynced(); }

    /// False while an existing library file cannot be read: it is then never written.
    bool canSave() const { return canSave_; }

    /// Why the library file could not be read; empty once it reads.
    const std::string& problem() const { return problem_; }

    /// Where the library is now.
    const LibraryLocation& location() const { return location_; }

private:
    void load();
    bool readAgain();
    bool follow();
    bool loadShared();
    void notify();
    std::vector<std::filesystem::path> watchedPaths() const;
    void watchAgain();
    void rememberOnDisk(const std::vector<Snippet>& list);

    Preferences& preferences_;
    FileWatcher& watcher_;
    Scheduler& scheduler_;
    LibraryLocation location_;
    SharedFolderLoader loader_;

    // Shared with whoever was told it, so replaced whole, never changed in place.
    SnippetList snippets_ = std::make_shared<const std::vector<Snippet>>();
    std::vector<SharedPack> shared_;
    ChangeCallback onChange_;
    std::function<void()> onSettingsChange_;
    nlohmann::json settings_; // the settings as last seen, to tell a change of them
    bool isNew_ = false;
    bool canSave_ = true;
    std::string problem_;
    std::vector<std::filesystem::path> watched_;
    // The ids of the list this store last read from or wrote to knownFile_, so that a save can
    // tell snippets another process added since (the command-line tool) from ones deleted here.
    std::vector<Uuid> knownOnDisk_; // sorted
    std::filesystem::path knownFile_;
    // The library file as the last reload read it, while the list still equals its content.
    std::optional<std::pair<std::filesystem::path, FileStamp>> readStamp_;
    // Lets work handed to the scheduler find out that the store is gone.
    std::shared_ptr<bool> alive_;
};

} // namespace quillet
