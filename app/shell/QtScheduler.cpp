#include "shell/QtScheduler.h"

#include <QMetaObject>

namespace quillet {

QtScheduler::QtScheduler() : owner_(std::this_thread::get_id()) {
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer_, &QTimer::timeout, &context_, [this] { runDue(); });
}

QtScheduler::~QtScheduler() {
    timer_.stop();
}

void QtScheduler::post(Task task) {
    schedule(TaskQueue::Clock::now(), std::move(task));
}

Scheduler::TimerId QtScheduler::postAfter(Duration delay, Task task) {
    return schedule(TaskQueue::Clock::now() + delay, std::move(task));
}

Scheduler::TimerId QtScheduler::schedule(TaskQueue::Clock::time_point due, Task task) {
    TimerId id = 0;
    {
        const std::lock_guard lock(mutex_);
        id = tasks_.add(due, std::move(task));
    }
    // One wake-up call in flight is enough: it runs everything due and re-arms the timer.
    if (!wakePending_.exchange(true)) {
        QMetaObject::invokeMethod(
            &context_,
            [this] {
                wakePending_ = false;
                runDue();
            },
            Qt::QueuedConnection);
    }
    return id;
}

bool QtScheduler::cancel(TimerId timer) {
    const std::lock_guard lock(mutex_);
    return tasks_.cancel(timer);
}

bool QtScheduler::isMainThread() const {
    return std::this_thread::get_id() == owner_;
}

void QtScheduler::runDue() {
    // Only what is due now: a task that posts itself again waits for the next turn of Qt's
    // loop, so windows keep being painted.
    const auto now = TaskQueue::Clock::now();
    for (;;) {
        std::optional<Task> task;
        {
            const std::lock_guard lock(mutex_);
            task = tasks_.takeDue(now);
        }
        if (!task) {
            break;
        }
        (*task)();
    }
    arm();
}

void QtScheduler::arm() {
    std::optional<TaskQueue::Clock::time_point> due;
    {
        const std::lock_guard lock(mutex_);
        due = tasks_.nextDue();
    }
    if (!due) {
        timer_.stop();
        return;
    }
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(*due - TaskQueue::Clock::now());
    timer_.start(static_cast<int>(std::max<std::int64_t>(wait.count(), 0)));
}

} // namespace quillet
