#pragma once

#include "library/FileWatcher.h"

namespace quillet {

/// A watcher that watches nothing: it records what it was asked to watch, and a test reports a
/// batch of changes by calling trigger.
class FakeFileWatcher final : public FileWatcher {
public:
    void setCallback(Callback callback) override;
    void watch(std::vector<std::filesystem::path> paths) override;

    /// Reports one batch now, as the real watcher would on the main thread.
    void trigger();

    /// The paths of the last watch call.
    const std::vector<std::filesystem::path>& paths() const { return paths_; }

    /// How many times watch was called.
    int watchCount() const { return watchCount_; }

    /// True while a callback is set.
    bool hasCallback() const { return static_cast<bool>(callback_); }

private:
    Callback callback_;
    std::vector<std::filesystem::path> paths_;
    int watchCount_ = 0;
};

} // namespace quillet
