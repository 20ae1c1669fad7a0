#include "library/Store.h"

#include "library/AtomicFile.h"
#include "library/LibraryFile.h"
#include "library/LibraryLock.h"

#include <algorithm>
#include <chrono>
#include <string_view>
#include <system_error>
#include <unordered_set>

namespace quillet {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view noSyncFolder = "Choose a synced folder first, in Settings → Sync.";
constexpr std::string_view syncedUnreadable =
    "The snippets in the synced folder can't be read, so nothing was moved. Try again once your "
    "sync tool has finished.";

// A writer that was killed between creating its temporary file and renaming it leaves the file
// behind. A live writer's is at most seconds old, so only older ones are removed.
constexpr auto staleAfter = std::chrono::minutes(10);

// The length of the random part that writeFileAtomically gives its temporary files.
constexpr std::size_t temporarySuffix = 6;

std::vector<Snippet> seedSnippets() {
    Snippet omw = Snippet::make();
    omw.abbreviation = ";omw";
    omw.content = "On my way!";
    Snippet shrug = Snippet::make();
    shrug.abbreviation = ";shrug";
    shrug.content = "\u00af\\_(\u30c4)_/\u00af";
    return {omw, shrug};
}

bool isFolder(const fs::path& path) {
    std::error_code ec;
    return fs::is_directory(path, ec);
}

void removeStaleTemporaries(const fs::path& libraryFile) {
    const std::string prefix = "." + libraryFile.filename().string() + ".";
    const auto now = fs::file_time_type::clock::now();
    std::error_code ec;
    fs::directory_iterator it(libraryFile.parent_path(), ec);
    for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
        const std::string name = it->path().filename().string();
        if (name.size() != prefix.size() + temporarySuffix || !name.starts_with(prefix)) {
            continue;
        }
        std::error_code entryError;
        if (!it->is_regular_file(entryError) || it->is_symlink(entryError)) {
            continue;
        }
        auto modified = it->last_write_time(entryError);
        if (!entryError && now - modified > staleAfter) {
            fs::remove(it->path(), entryError);
        }
    }
}

// Copies the pictures of one library folder into another, each write atomic. A picture already
// there stays unless the source's is newer: pictures are named uniquely, so a same-named file
// is the same picture, possibly edited since.
void copyImages(const fs::path& from, const fs::path& to) {
    std::error_code ec;
    fs::directory_iterator it(from, ec);
    for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
        std::error_code entryError;
        if (!it->is_regular_file(entryError)) {
            continue;
        }
        const fs::path target = to / it->path().filename();
        auto existing = fs::last_write_time(target, entryError);
        if (!entryError && existing >= it->last_write_time(entryError)) {
            continue;
        }
        FileContent content = readFile(it->path());
        std::string error;
        if (content.status == ReadStatus::ok) {
            writeFileAtomically(target, content.bytes, 0600, error);
        }
    }
}

// Settings that answer "sync" as told and pass every other key through, so that the library's
// location can be asked where the library would be with sync on or off.
class SyncOverride final : public Preferences {
public:
    SyncOverride(const Preferences& base, bool sync) : base_(base), sync_(sync) {}
    nlohmann::json value(std::string_view key) const override {
        return key == "sync" ? nlohmann::json(sync_) : base_.value(key);
    }
    bool setValue(std::string_view, nlohmann::json) override { return false; }

private:
    const Preferences& base_;
    bool sync_;
};

} // namespace

SnippetStore::SnippetStore(Preferences& preferences, FileWatcher& watcher, Scheduler& scheduler,
                           Folders folders, SharedFolderLoader loader)
    : preferences_(preferences), watcher_(watcher), scheduler_(scheduler),
      location_(preferences, std::move(folders)), loader_(std::move(loader)),
      alive_(std::make_shared<bool>(true)) {
    removeStaleTemporaries(location_.libraryFile());
    load();
    loadShared();
    watcher_.setCallback([this] { reload(); });
    watchAgain();
}

SnippetStore::~SnippetStore() {
    watcher_.setCallback({});
    watcher_.watch({});
}

void SnippetStore::load() {
    LibraryRead read = readLibrary(location_.libraryFile());
    switch (read.status) {
    case LibraryStatus::ok:
        rememberOnDisk(read.snippets);
        snippets_ = std::move(read.snippets);
        isNew_ = false;
        canSave_ = true;
        problem_.clear();
        break;
    case LibraryStatus::missing:
        snippets_ = seedSnippets();
        isNew_ = true;
        canSave_ = true;
        problem_.clear();
        save();
        break;
    case LibraryStatus::damaged:
    case LibraryStatus::unreadable:
        // Perhaps still arriving through the sync tool, perhaps damaged: either way it is the
        // user's, and stays as it is until it reads.
        snippets_.clear();
        isNew_ = false;
        canSave_ = false;
        problem_ = std::move(read.message);
        break;
    }
}

void SnippetStore::setSnippets(std::vector<Snippet> snippets) {
    snippets_ = std::move(snippets);
    save();
    notify();
}

std::vector<Snippet> SnippetStore::effectiveSnippets() const {
    std::vector<Snippet> result = snippets_;
    std::unordered_set<std::string_view> taken;
    for (const Snippet& snippet : snippets_) {
        taken.insert(snippet.abbreviation);
    }
    for (const SharedPack& pack : shared_) {
        for (const Snippet& snippet : pack.snippets) {
            if (!taken.contains(snippet.abbreviation)) {
                result.push_back(snippet);
            }
        }
    }
    return result;
}

void SnippetStore::setOnChange(ChangeCallback callback) {
    onChange_ = std::move(callback);
    notify();
}

void SnippetStore::notify() {
    if (onChange_) {
        onChange_(effectiveSnippets());
    }
}

bool SnippetStore::save() {
    if (!canSave_) {
        return false;
    }
    const std::filesystem::path file = location_.libraryFile();
    // Held from the read to the write, as the command-line tool holds it for its additions.
    LibraryLock lock(file.parent_path());
    bool adopted = false;
    if (file == knownFile_) {
        // Snippets another process added since this store last saw the file are kept, not
        // written over; one deleted here was known and stays deleted.
        LibraryRead disk = readLibrary(file);
        for (Snippet& snippet : disk.snippets) {
            bool ours = std::any_of(snippets_.begin(), snippets_.end(),
                                    [&](const Snippet& s) { return s.id == snippet.id; });
            if (!ours && knownOnDisk_.count(snippet.id) == 0) {
                snippets_.push_back(std::move(snippet));
                adopted = true;
            }
        }
    }
    std::string error;
    const bool written = writeLibrary(file, snippets_, error);
    if (written) {
        rememberOnDisk(snippets_);
    }
    if (adopted) {
        notify();
    }
    return written;
}

void SnippetStore::rememberOnDisk(const std::vector<Snippet>& list) {
    knownFile_ = location_.libraryFile();
    knownOnDisk_.clear();
    for (const Snippet& snippet : list) {
        knownOnDisk_.insert(snippet.id);
    }
}

void SnippetStore::reload() {
    if (!scheduler_.isMainThread()) {
        scheduler_.post([this, alive = std::weak_ptr<bool>(alive_)] {
            if (alive.lock()) {
                reload();
            }
        });
        return;
    }
    bool changed = false;
    LibraryRead read = readLibrary(location_.libraryFile());
    switch (read.status) {
    case LibraryStatus::ok:
        canSave_ = true;
        problem_.clear();
        rememberOnDisk(read.snippets);
        // The store's own saves come back here too; an equal list is what stops them looping.
        if (read.snippets != snippets_) {
            snippets_ = std::move(read.snippets);
            changed = true;
        }
        break;
    case LibraryStatus::missing:
        // Deleted behind our back: the list in memory is all there is, and the next change
        // writes it again.
        break;
    case LibraryStatus::damaged:
    case LibraryStatus::unreadable:
        // Half written by someone else, or broken by hand: keep working with the list in
        // memory, but do not write over what is there.
        canSave_ = false;
        problem_ = std::move(read.message);
        break;
    }
    changed = loadShared() || changed;
    watchAgain();
    if (changed) {
        notify();
    }
}

std::vector<std::string> SnippetStore::sharedFolders() const {
    std::vector<std::string> folders;
    nlohmann::json list = preferences_.value("sharedFolders");
    if (list.is_array()) {
        for (const auto& entry : list) {
            if (entry.is_string()) {
                folders.push_back(entry.get<std::string>());
            }
        }
    }
    return folders;
}

bool SnippetStore::loadShared() {
    std::vector<SharedPack> packs;
    if (loader_) {
        for (const std::string& folder : sharedFolders()) {
            packs.push_back(loader_(folder));
        }
    }
    if (packs == shared_) {
        return false;
    }
    shared_ = std::move(packs);
    return true;
}

void SnippetStore::reloadShared() {
    bool changed = loadShared();
    watchAgain();
    if (changed) {
        notify();
    }
}

void SnippetStore::removeSharedFolder(const std::string& folder) {
    nlohmann::json list = nlohmann::json::array();
    for (const std::string& entry : sharedFolders()) {
        if (entry != folder) {
            list.push_back(entry);
        }
    }
    preferences_.setValue("sharedFolders", std::move(list));
    reloadShared();
}

std::vector<fs::path> SnippetStore::watchedPaths() const {
    std::vector<fs::path> paths{location_.folder()};
    for (const std::string& folder : sharedFolders()) {
        // A relative path would depend on the working folder; the settings screen stores
        // absolute ones.
        if (fs::path(folder).is_absolute()) {
            paths.emplace_back(folder);
        }
    }
    return paths;
}

void SnippetStore::watchAgain() {
    auto paths = watchedPaths();
    if (paths != watched_) {
        watched_ = paths;
        watcher_.watch(std::move(paths));
    }
}

std::optional<std::string> SnippetStore::setSync(bool on) {
    const fs::path source = location_.folder();
    const fs::path local = location_.folders().data;
    SyncOverride asked(preferences_, on);
    const fs::path target = LibraryLocation(asked, location_.folders()).folder();
    if (on && (target == local || !isFolder(target.parent_path()))) {
        return std::string(noSyncFolder);
    }
    if (target == source) {
        // Nothing moves, but the setting should say what the user chose.
        if (preferences_.boolean("sync") != on) {
            preferences_.setValue("sync", on);
        }
        return std::nullopt;
    }

    // A library already in the synced folder (from another computer) is merged with this one.
    LibraryRead there;
    if (on) {
        there = readLibrary(target / "snippets.json");
        if (there.status == LibraryStatus::damaged || there.status == LibraryStatus::unreadable) {
            return std::string(syncedUnreadable);
        }
    }

    std::string error;
    createFolders(target / "images", 0700, error);
    copyImages(source / "images", target / "images");

    std::string message = on ? "Your snippets are in " + target.string() +
                                   ". Turn this on on your other computers too."
                             : "Your snippets are on this computer only now. The copy in the "
                               "synced folder stays until you delete it.";
    if (!preferences_.setValue("sync", on)) {
        return std::nullopt;
    }
    watchAgain();

    if (!canSave_) {
        // Nothing was loaded here, so there is nothing to carry over: take whatever the new place
        // holds, without seeding it.
        LibraryRead read = readLibrary(location_.libraryFile());
        canSave_ = read.status == LibraryStatus::ok || read.status == LibraryStatus::missing;
        problem_ = read.message;
        snippets_ = std::move(read.snippets);
        notify();
        return message;
    }

    std::vector<Snippet> result = snippets_;
    if (there.status == LibraryStatus::ok) {
        std::unordered_set<std::string> taken;
        for (const Snippet& snippet : there.snippets) {
            taken.insert(snippet.abbreviation);
        }
        const std::size_t fromThere = there.snippets.size();
        result = std::move(there.snippets);
        std::size_t added = 0;
        for (const Snippet& snippet : snippets_) {
            if (!taken.contains(snippet.abbreviation)) {
                result.push_back(snippet);
                ++added;
            }
        }
        // Both counts, zeros included: "0 of yours were added" is exactly what the user needs to
        // hear when every abbreviation of theirs was already in the synced library.
        message = std::to_string(fromThere) + " came from the synced folder; " +
                  std::to_string(added) + " of yours were added to them.";
    }
    setSnippets(std::move(result));
    return message;
}

} // namespace quillet
