#include "platform/fake/FakeFileWatcher.h"

namespace quillet {

void FakeFileWatcher::setCallback(Callback callback) {
    callback_ = std::move(callback);
}

void FakeFileWatcher::watch(std::vector<std::filesystem::path> paths) {
    paths_ = std::move(paths);
    ++watchCount_;
}

void FakeFileWatcher::trigger() {
    // A copy, because the callback may replace itself (a store being destroyed clears it).
    if (Callback callback = callback_) {
        callback();
    }
}

} // namespace quillet
