#pragma once

#include "library/FileWatcher.h"
#include "library/Scheduler.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace quillet {

/// A file watcher over inotify. A background thread reads the events and gathers them into
/// batches; each batch is handed to the scheduler, which calls the callback on the main thread.
/// The thread is there because a scheduler runs tasks and timers but cannot wait on a file
/// descriptor, and it keeps the batch timing exact whatever the main thread is busy with.
///
/// Folders are watched rather than files, so a file replaced by renaming a new one over it (as
/// editors, sync tools and atomic writers do) stays watched. A path that does not exist yet is
/// waited for at its nearest existing parent, and a watched folder that is moved away or deleted
/// is looked for again at its path, so the watch always follows the path and not the inode.
class InotifyWatcher final : public FileWatcher {
public:
    /// A watcher reporting through scheduler, which must outlive it, batching for batchTime.
    explicit InotifyWatcher(Scheduler& scheduler,
                            std::chrono::milliseconds batchTime = FileWatcher::latency);
    ~InotifyWatcher() override;
    InotifyWatcher(const InotifyWatcher&) = delete;
    InotifyWatcher& operator=(const InotifyWatcher&) = delete;

    void setCallback(Callback callback) override;
    void watch(std::vector<std::filesystem::path> paths) override;

    /// Why inotify could not be used or a path could not be watched; empty when all is well.
    std::string error() const;

private:
    // One asked-for path and the folder whose watch serves it.
    struct Target {
        std::filesystem::path path;
        int descriptor = -1;
        // Empty when path itself is the watched folder; otherwise the entry of the watched
        // folder that leads to path (the file itself, or the next folder still to appear).
        std::string entry;
    };

    // What the main thread's delivery task looks at; gone once the watcher is destroyed.
    struct Delivery {
        Callback callback;
    };

    int watchFolder(const std::filesystem::path& folder);
    void resolve(Target& target, int depth = 0);
    void dropUnusedWatches();
    bool handleEvents(const char* buffer, std::size_t size);
    void readLoop();

    Scheduler& scheduler_;
    std::chrono::milliseconds batchTime_;
    int inotify_ = -1;
    int wakeup_ = -1;
    std::shared_ptr<Delivery> delivery_;

    mutable std::mutex mutex_; // guards everything below
    std::vector<Target> targets_;
    std::vector<int> descriptors_;
    std::string error_;

    std::thread reader_;
};

} // namespace quillet
