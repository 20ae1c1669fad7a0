#pragma once

#include "library/Scheduler.h"
#include "library/TaskQueue.h"

#include <QObject>
#include <QTimer>
#include <atomic>
#include <mutex>
#include <thread>

namespace quillet {

/// The core's main thread as Qt's: tasks run from the event loop of the thread that made the
/// scheduler (the GUI thread), between the toolkit's own events, in the order a RunLoop runs
/// them. One timer is armed for the earliest delayed task. Tasks still queued when it is
/// destroyed never run.
class QtScheduler final : public Scheduler {
public:
    QtScheduler();
    ~QtScheduler() override;
    QtScheduler(const QtScheduler&) = delete;
    QtScheduler& operator=(const QtScheduler&) = delete;

    void post(Task task) override;
    TimerId postAfter(Duration delay, Task task) override;
    bool cancel(TimerId timer) override;
    bool isMainThread() const override;

private:
    TimerId schedule(TaskQueue::Clock::time_point due, Task task);
    void runDue();
    void arm();

    std::mutex mutex_;
    TaskQueue tasks_;
    std::atomic<bool> wakePending_{false};
    QObject context_; // lives on the main thread; queued calls to it run there
    QTimer timer_;
    std::thread::id owner_;
};

} // namespace quillet
