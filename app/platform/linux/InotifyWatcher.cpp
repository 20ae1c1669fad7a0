#include "platform/linux/InotifyWatcher.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <system_error>
#include <unistd.h>

namespace quillet {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// Everything that can change what a reader of the folder would see. IN_ATTRIB counts because a
// permission change can make an unreadable library readable.
constexpr std::uint32_t watchMask = IN_CREATE | IN_DELETE | IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB |
                                    IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF |
                                    IN_ONLYDIR;

// Events saying the watched folder itself is gone from where it was.
constexpr std::uint32_t selfMask = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT;

// Events after which an entry may have turned into something else (a file into a folder, a
// missing folder into a present one), so the watch that serves a path must be worked out again.
constexpr std::uint32_t entryMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;

// Folders created below a watched one while it is being resolved are followed this deep.
constexpr int maxDepth = 64;

fs::path tidy(const fs::path& path) {
    fs::path result = path.lexically_normal();
    // "a/b/" names the folder b; its empty last component would match no entry.
    if (!result.has_filename() && result.has_parent_path() && result != result.root_path()) {
        result = result.parent_path();
    }
    return result;
}

bool isFolder(const fs::path& path) {
    std::error_code ec;
    return fs::is_directory(path, ec);
}

} // namespace

InotifyWatcher::InotifyWatcher(Scheduler& scheduler, std::chrono::milliseconds batchTime)
    : scheduler_(scheduler), batchTime_(batchTime), delivery_(std::make_shared<Delivery>()) {
    inotify_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (inotify_ < 0) {
        error_ = std::string("Could not start watching files: ") + std::strerror(errno);
        return;
    }
    wakeup_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (wakeup_ < 0) {
        error_ = std::string("Could not start watching files: ") + std::strerror(errno);
        return;
    }
    reader_ = std::thread([this] { readLoop(); });
}

InotifyWatcher::~InotifyWatcher() {
    if (reader_.joinable()) {
        const std::uint64_t one = 1;
        [[maybe_unused]] ssize_t written = ::write(wakeup_, &one, sizeof one);
        reader_.join();
    }
    // Batches already handed to the scheduler find nothing to call.
    delivery_.reset();
    if (wakeup_ >= 0) {
        ::close(wakeup_);
    }
    if (inotify_ >= 0) {
        ::close(inotify_);
    }
}

void InotifyWatcher::setCallback(Callback callback) {
    delivery_->callback = std::move(callback);
}

void InotifyWatcher::watch(std::vector<fs::path> paths) {
    std::lock_guard lock(mutex_);
    if (inotify_ < 0) {
        return;
    }
    error_.clear();
    for (int descriptor : descriptors_) {
        ::inotify_rm_watch(inotify_, descriptor);
    }
    descriptors_.clear();
    targets_.clear();
    for (auto& path : paths) {
        Target target;
        target.path = tidy(path);
        resolve(target);
        targets_.push_back(std::move(target));
    }
}

std::string InotifyWatcher::error() const {
    std::lock_guard lock(mutex_);
    return error_;
}

int InotifyWatcher::watchFolder(const fs::path& folder) {
    int descriptor = ::inotify_add_watch(inotify_, folder.c_str(), watchMask);
    if (descriptor < 0) {
        if (errno == ENOSPC) {
            error_ = "Could not watch \"" + folder.string() +
                     "\": the system's limit of watched folders is reached "
                     "(fs.inotify.max_user_watches)";
        } else {
            error_ = "Could not watch \"" + folder.string() + "\": " + std::strerror(errno);
        }
        return -1;
    }
    // Watching a folder twice yields the same descriptor, which the two paths then share.
    if (std::find(descriptors_.begin(), descriptors_.end(), descriptor) == descriptors_.end()) {
        descriptors_.push_back(descriptor);
    }
    return descriptor;
}

void InotifyWatcher::resolve(Target& target, int depth) {
    target.descriptor = -1;
    target.entry.clear();
    if (isFolder(target.path)) {
        target.descriptor = watchFolder(target.path);
        if (target.descriptor >= 0) {
            return;
        }
    }
    // A file, or something not there yet: watch the nearest folder above it, minding only the
    // entry on the way down to it.
    fs::path child = target.path;
    fs::path folder = child.parent_path();
    while (!folder.empty()) {
        if (isFolder(folder)) {
            target.descriptor = watchFolder(folder);
            if (target.descriptor >= 0) {
                target.entry = child.filename().string();
                // The next folder down may have appeared before the watch was in place (mkdir -p
                // is quick), and its creation would then never be reported: look again.
                if (isFolder(child) && depth < maxDepth) {
                    resolve(target, depth + 1);
                }
                return;
            }
        }
        if (folder == folder.parent_path()) {
            break;
        }
        child = folder;
        folder = folder.parent_path();
    }
}

void InotifyWatcher::dropUnusedWatches() {
    std::erase_if(descriptors_, [&](int descriptor) {
        bool used = std::any_of(targets_.begin(), targets_.end(), [&](const Target& target) {
            return target.descriptor == descriptor;
        });
        if (!used) {
            ::inotify_rm_watch(inotify_, descriptor);
        }
        return !used;
    });
}

bool InotifyWatcher::handleEvents(const char* buffer, std::size_t size) {
    std::lock_guard lock(mutex_);
    bool changed = false;
    bool resolved = false;
    for (std::size_t offset = 0; offset + sizeof(inotify_event) <= size;) {
        inotify_event event{};
        std::memcpy(&event, buffer + offset, sizeof event);
        std::string_view name;
        if (event.len > 0) {
            const char* text = buffer + offset + sizeof(inotify_event);
            name = std::string_view(text, ::strnlen(text, event.len));
        }
        offset += sizeof(inotify_event) + event.len;

        if ((event.mask & IN_Q_OVERFLOW) != 0) {
            // Events were lost: anything may have happened anywhere.
            changed = true;
            for (Target& target : targets_) {
                resolve(target);
            }
            resolved = true;
            continue;
        }
        const bool self = (event.mask & selfMask) != 0;
        // Removing watches ourselves also sends IN_IGNORED; those descriptors are forgotten.
        if (std::find(descriptors_.begin(), descriptors_.end(), event.wd) == descriptors_.end()) {
            continue;
        }
        for (Target& target : targets_) {
            if (target.descriptor != event.wd) {
                continue;
            }
            if (self) {
                changed = true;
                resolve(target);
                resolved = true;
            } else if (target.entry.empty()) {
                changed = true;
            } else if (name == target.entry) {
                changed = true;
                if ((event.mask & entryMask) != 0) {
                    resolve(target);
                    resolved = true;
                }
            }
        }
    }
    if (resolved) {
        dropUnusedWatches();
    }
    return changed;
}

void InotifyWatcher::readLoop() {
    alignas(inotify_event) char buffer[64 * 1024];
    bool pending = false;
    Clock::time_point deadline;
    for (;;) {
        int timeout = -1;
        if (pending) {
            auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            timeout = static_cast<int>(std::max<std::chrono::milliseconds::rep>(0, left.count()));
        }
        pollfd fds[2] = {{inotify_, POLLIN, 0}, {wakeup_, POLLIN, 0}};
        if (::poll(fds, 2, timeout) < 0 && errno != EINTR) {
            return;
        }
        if (fds[1].revents != 0) {
            return;
        }
        if ((fds[0].revents & POLLIN) != 0) {
            bool changed = false;
            for (;;) {
                ssize_t got = ::read(inotify_, buffer, sizeof buffer);
                if (got <= 0) {
                    break;
                }
                changed = handleEvents(buffer, static_cast<std::size_t>(got)) || changed;
            }
            // The batch time runs from its first change, with no extension for later ones, so a
            // file that keeps changing is still reported every batchTime.
            if (changed && !pending) {
                pending = true;
                deadline = Clock::now() + batchTime_;
            }
        }
        if (pending && Clock::now() >= deadline) {
            pending = false;
            scheduler_.post([delivery = std::weak_ptr<Delivery>(delivery_)] {
                if (auto alive = delivery.lock()) {
                    // A copy: the callback may replace itself.
                    if (Callback callback = alive->callback) {
                        callback();
                    }
                }
            });
        }
    }
}

} // namespace quillet
