#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <vector>

namespace quillet {

/// Tells when something changed in a set of folders or files, so that the library and the shared
/// folders can be read again. Changes are gathered for 0.3 seconds from the first one and then
/// reported together; a batch in which nothing relevant happened is never reported.
class FileWatcher {
public:
    /// Called on the main thread once per batch of changes.
    using Callback = std::function<void()>;

    /// The time from the first change of a batch until the batch is reported.
    static constexpr auto latency = std::chrono::milliseconds(300);

    virtual ~FileWatcher() = default;

    /// Sets the function called for each batch; an empty function stops the reports. Main thread.
    virtual void setCallback(Callback callback) = 0;

    /// Stops watching what was watched before, then watches paths: folders (their entries, not
    /// recursively) or files, including paths that do not exist yet. Main thread.
    virtual void watch(std::vector<std::filesystem::path> paths) = 0;
};

} // namespace quillet
