#include "library/Store.h"

#include "library/AtomicFile.h"
#include "library/LibraryFile.h"
#include "library/LibraryLock.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unordered_set>

namespace quillet {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view noSyncFolder = "Choose a synced folder first, in Settings → Sync.";
constexpr std::string_view syncedUnreadable =
    "The snippets in the synced folder can't be read, so nothing was moved. Try again once your "
    "sync tool has finished.";

std::vector<Snippet> seedSnippets() {
    Snippet omw = Snippet::make();
    omw.abbreviation = ";omw";
    omw.content = "On my way!";
    Snippet shrug = Snippet::make();
    shrug.abbreviation = ";shrug";
    shrug.content = "\u00af\\_(\u30c4)_/\u00af";
    return {omw, shrug};
}

// One version of a file, told apart without reading it: a replacement by rename brings a new
// inode, an edit in place a new size or modification time.
std::optional<FileStamp> stampOf(const fs::path& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) {
        return std::nullopt;
    }
    return FileStamp{static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino),
                     static_cast<std::int64_t>(st.st_size),
                     static_cast<std::int64_t>(st.st_mtim.tv_sec),
                     static_cast<std::int64_t>(st.st_mtim.tv_nsec)};
}

SnippetList listOf(std::vector<Snippet> snippets) {
    return std::make_shared<const std::vector<Snippet>>(std::move(snippets));
}

bool isFolder(const fs::path& path) {
    std::error_code ec;
    return fs::is_directory(path, ec);
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
    nlohmann::json values() const override {
        nlohmann::json all = base_.values();
        all["sync"] = sync_;
        return all;
    }

private:
    const Preferences& base_;
    bool sync_;
};

// The library of another place followed by the snippets of ours whose abbreviation it lacks:
// what the user expects when two computers' libraries meet in one synced folder.
std::vector<Snippet> merged(std::vector<Snippet> there, const std::vector<Snippet>& ours,
                            std::size_t& added) {
    std::unordered_set<std::string> taken;
    for (const Snippet& snippet : there) {
        taken.insert(snippet.abbreviation);
    }
    added = 0;
    for (const Snippet& snippet : ours) {
        if (!taken.contains(snippet.abbreviation)) {
            there.push_back(snippet);
            ++added;
        }
    }
    return there;
}

// Keeps the bytes of a library file that is about to be written over although it did not
// decode, in the local data folder (a copy beside it would travel with a synced folder), under
// the first free name of "snippets.json.damaged", "snippets.json.damaged-2", ...
void keepDamagedCopy(const fs::path& file, const fs::path& folder) {
    FileContent content = readFile(file);
    if (content.status != ReadStatus::ok) {
        return;
    }
    std::string error;
    createFolders(folder, 0700, error);
    for (int n = 1; n < 1000; ++n) {
        fs::path copy = folder / file.filename();
        copy += n == 1 ? ".damaged" : ".damaged-" + std::to_string(n);
        std::error_code ec;
        if (!fs::exists(fs::symlink_status(copy, ec))) {
            writeFileAtomically(copy, content.bytes, 0600, error);
            return;
        }
    }
}

} // namespace

SnippetStore::SnippetStore(Preferences& preferences, FileWatcher& watcher, Scheduler& scheduler,
                           Folders folders, SharedFolderLoader loader)
    : preferences_(preferences), watcher_(watcher), scheduler_(scheduler),
      location_(preferences, std::move(folders)), loader_(std::move(loader)),
      settings_(preferences.values()), alive_(std::make_shared<bool>(true)) {
    removeLeftoverTemporaries(location_.libraryFile());
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
    const fs::path file = location_.libraryFile();
    const std::optional<FileStamp> stamp = stampOf(file);
    LibraryRead read = readLibrary(file);
    switch (read.status) {
    case LibraryStatus::ok:
        if (stamp) {
            readStamp_.emplace(file, *stamp);
        }
        rememberOnDisk(read.snippets);
        snippets_ = listOf(std::move(read.snippets));
        isNew_ = false;
        canSave_ = true;
        problem_.clear();
        break;
    case LibraryStatus::missing:
        snippets_ = listOf(seedSnippets());
        isNew_ = true;
        canSave_ = true;
        problem_.clear();
        save();
        break;
    case LibraryStatus::damaged:
    case LibraryStatus::unreadable:
        // Perhaps still arriving through the sync tool, perhaps damaged: either way it is the
        // user's, and stays as it is until it reads.
        snippets_ = listOf({});
        isNew_ = false;
        canSave_ = false;
        problem_ = std::move(read.message);
        break;
    }
}

bool SnippetStore::setSnippets(std::vector<Snippet> snippets) {
    snippets_ = listOf(std::move(snippets));
    const bool saved = save();
    notify();
    return saved;
}

SnippetList SnippetStore::effectiveSnippets() const {
    if (std::all_of(shared_.begin(), shared_.end(),
                    [](const SharedPack& pack) { return pack.snippets.empty(); })) {
        return snippets_; // the common case: the user's own list, shared rather than copied
    }
    std::vector<Snippet> result = *snippets_;
    std::unordered_set<std::string_view> taken;
    for (const Snippet& snippet : *snippets_) {
        taken.insert(snippet.abbreviation);
    }
    for (const SharedPack& pack : shared_) {
        for (const Snippet& snippet : pack.snippets) {
            if (!taken.contains(snippet.abbreviation)) {
                result.push_back(snippet);
            }
        }
    }
    return listOf(std::move(result));
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
    readStamp_.reset(); // the list may differ from the file now, so the next reload reads it
    if (!canSave_) {
        return false;
    }
    const std::filesystem::path file = location_.libraryFile();
    // Held from the read to the write, as the command-line tool holds it for its additions.
    LibraryLock lock(file, location_.folders().data);
    std::vector<Snippet> adopted;
    if (file == knownFile_) {
        // Snippets another process added since this store last saw the file are kept, not
        // written over; one deleted here was known and stays deleted.
        LibraryRead disk = readLibrary(file);
        if (disk.status == LibraryStatus::damaged) {
            // Broken on disk since the last read (a hand edit gone wrong): the list in memory
            // wins, but what the user typed into the file is kept aside, not thrown away.
            keepDamagedCopy(file, location_.folders().data);
        }
        std::unordered_set<Uuid> ours;
        for (const Snippet& s : *snippets_) {
            ours.insert(s.id);
        }
        for (Snippet& snippet : disk.snippets) {
            if (!ours.contains(snippet.id) &&
                !std::binary_search(knownOnDisk_.begin(), knownOnDisk_.end(), snippet.id)) {
                ours.insert(snippet.id);
                adopted.push_back(std::move(snippet));
            }
        }
    }
    if (!adopted.empty()) {
        std::vector<Snippet> list = *snippets_;
        std::move(adopted.begin(), adopted.end(), std::back_inserter(list));
        snippets_ = listOf(std::move(list));
    }
    std::string error;
    const bool written = writeLibrary(file, *snippets_, error);
    if (written) {
        rememberOnDisk(*snippets_);
    }
    if (!adopted.empty()) {
        notify();
    }
    return written;
}

void SnippetStore::rememberOnDisk(const std::vector<Snippet>& list) {
    knownFile_ = location_.libraryFile();
    // Sorted, not hashed: a large library's ids are held all the time, and a third the size.
    knownOnDisk_.clear();
    knownOnDisk_.reserve(list.size());
    for (const Snippet& snippet : list) {
        knownOnDisk_.push_back(snippet.id);
    }
    std::sort(knownOnDisk_.begin(), knownOnDisk_.end());
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
    nlohmann::json settings = preferences_.values();
    const bool settingsChanged = settings != settings_;
    settings_ = std::move(settings);
    if (settingsChanged && !knownFile_.empty() && location_.libraryFile() != knownFile_) {
        changed = follow();
    } else {
        changed = readAgain();
    }
    changed = loadShared() || changed;
    watchAgain();
    if (changed) {
        notify();
    }
    if (settingsChanged && onSettingsChange_) {
        onSettingsChange_();
    }
}

bool SnippetStore::readAgain() {
    bool changed = false;
    const fs::path file = location_.libraryFile();
    // Every file in the library's folder wakes the watcher, the usage counts written while the
    // user types among them; reading a large library again for each would cost far more.
    const std::optional<FileStamp> stamp = stampOf(file);
    if (stamp && readStamp_ && *stamp == readStamp_->second && file == readStamp_->first) {
        return false;
    }
    LibraryRead read = readLibrary(file);
    switch (read.status) {
    case LibraryStatus::ok:
        if (stamp) {
            readStamp_.emplace(file, *stamp);
        }
        canSave_ = true;
        problem_.clear();
        rememberOnDisk(read.snippets);
        // The store's own saves come back here too; an equal list is what stops them looping.
        if (read.snippets != *snippets_) {
            snippets_ = listOf(std::move(read.snippets));
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
        // memory, and keep saving it, so an edit made now is not lost.
        problem_ = std::move(read.message);
        break;
    }
    return changed;
}

bool SnippetStore::follow() {
    const fs::path from = knownFile_.parent_path();
    const fs::path file = location_.libraryFile();
    LibraryRead there = readLibrary(file);
    switch (there.status) {
    case LibraryStatus::ok: {
        canSave_ = true;
        problem_.clear();
        rememberOnDisk(there.snippets);
        std::size_t added = 0;
        std::vector<Snippet> result = merged(std::move(there.snippets), *snippets_, added);
        const bool changed = result != *snippets_;
        snippets_ = listOf(std::move(result));
        copyImages(from / "images", location_.imagesFolder());
        if (added > 0) {
            save();
        }
        return changed;
    }
    case LibraryStatus::missing:
        if (canSave_) {
            std::string error;
            createFolders(location_.imagesFolder(), 0700, error);
            copyImages(from / "images", location_.imagesFolder());
            save();
        }
        return false;
    case LibraryStatus::damaged:
    case LibraryStatus::unreadable:
        // Someone else's library that does not read yet: never written over.
        knownFile_ = file;
        canSave_ = false;
        problem_ = std::move(there.message);
        return false;
    }
    return false;
}

void SnippetStore::setOnSettingsChange(std::function<void()> callback) {
    onSettingsChange_ = std::move(callback);
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
    std::vector<fs::path> paths{location_.folder(), location_.settingsFile()};
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
        snippets_ = listOf(std::move(read.snippets));
        notify();
        return message;
    }

    std::vector<Snippet> result = *snippets_;
    if (there.status == LibraryStatus::ok) {
        const std::size_t fromThere = there.snippets.size();
        std::size_t added = 0;
        result = merged(std::move(there.snippets), *snippets_, added);
        // Both counts, zeros included: "0 of yours were added" is exactly what the user needs to
        // hear when every abbreviation of theirs was already in the synced library.
        message = std::to_string(fromThere) + " came from the synced folder; " +
                  std::to_string(added) + " of yours were added to them.";
    }
    setSnippets(std::move(result));
    return message;
}

} // namespace quillet
