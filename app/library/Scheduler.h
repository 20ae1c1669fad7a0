#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace quillet {

/// The core's one main thread, seen from the work that must run on it. Watchers, timers and
/// background helpers hand their results over through a scheduler so that everything that
/// touches the library runs on that thread, in order, without locks.
class Scheduler {
public:
    /// A piece of work for the main thread.
    using Task = std::function<void()>;

    /// Time until a delayed task is due.
    using Duration = std::chrono::steady_clock::duration;

    /// Names a delayed task so that it can be cancelled; never 0, so 0 can mean "none".
    using TimerId = std::uint64_t;

    virtual ~Scheduler() = default;

    /// Queues task to run on the main thread after the tasks already due; safe from any thread.
    virtual void post(Task task) = 0;

    /// Runs task on the main thread once delay has passed; safe from any thread.
    virtual TimerId postAfter(Duration delay, Task task) = 0;

    /// Drops a delayed task that has not started; false when it already ran or was cancelled.
    virtual bool cancel(TimerId timer) = 0;

    /// True when the caller runs on the main thread.
    virtual bool isMainThread() const = 0;
};

} // namespace quillet
