#pragma once

#include "library/Scheduler.h"
#include "library/TaskQueue.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace quillet {

/// A scheduler whose main thread is whichever thread calls one of the run functions (before the
/// first run, the thread that made it). Serves tests, the command-line tool and any process
/// without a toolkit event loop. Tasks still queued when it is destroyed never run.
class RunLoop final : public Scheduler {
public:
    RunLoop();
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    void post(Task task) override;
    TimerId postAfter(Duration delay, Task task) override;
    bool cancel(TimerId timer) override;
    bool isMainThread() const override;

    /// Runs tasks as they fall due until quit is called.
    void run();

    /// Runs tasks as they fall due for duration (or until quit), then returns.
    void runFor(Duration duration);

    /// Runs tasks until done returns true, checked before waiting and after every task; false
    /// when timeout passed first or quit was called.
    bool runUntil(const std::function<bool()>& done, Duration timeout);

    /// Ends the current run call, or the next one at once when none is running; any thread.
    void quit();

private:
    using Clock = TaskQueue::Clock;

    bool loop(const std::function<bool()>* done, const Clock::time_point* deadline);
    TimerId schedule(Clock::time_point due, Task task);

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    TaskQueue tasks_;
    bool quit_ = false;
    std::atomic<std::thread::id> owner_;
};

} // namespace quillet
