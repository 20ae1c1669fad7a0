#include "library/RunLoop.h"

namespace quillet {

RunLoop::RunLoop() : owner_(std::this_thread::get_id()) {}

void RunLoop::post(Task task) {
    schedule(Clock::now(), std::move(task));
}

Scheduler::TimerId RunLoop::postAfter(Duration delay, Task task) {
    return schedule(Clock::now() + delay, std::move(task));
}

Scheduler::TimerId RunLoop::schedule(Clock::time_point due, Task task) {
    TimerId id = 0;
    {
        std::lock_guard lock(mutex_);
        id = tasks_.add(due, std::move(task));
    }
    wake_.notify_one();
    return id;
}

bool RunLoop::cancel(TimerId timer) {
    std::lock_guard lock(mutex_);
    return tasks_.cancel(timer);
}

bool RunLoop::isMainThread() const {
    return owner_.load() == std::this_thread::get_id();
}

void RunLoop::run() {
    loop(nullptr, nullptr);
}

void RunLoop::runFor(Duration duration) {
    const auto deadline = Clock::now() + duration;
    loop(nullptr, &deadline);
}

bool RunLoop::runUntil(const std::function<bool()>& done, Duration timeout) {
    const auto deadline = Clock::now() + timeout;
    return loop(&done, &deadline);
}

void RunLoop::quit() {
    {
        std::lock_guard lock(mutex_);
        quit_ = true;
    }
    wake_.notify_all();
}

bool RunLoop::loop(const std::function<bool()>* done, const Clock::time_point* deadline) {
    owner_ = std::this_thread::get_id();
    std::unique_lock lock(mutex_);
    for (;;) {
        if (quit_) {
            quit_ = false;
            return false;
        }
        if (done != nullptr) {
            // The condition usually reads state that tasks change; it may post, so no lock.
            lock.unlock();
            const bool finished = (*done)();
            lock.lock();
            if (finished) {
                return true;
            }
        }
        const auto now = Clock::now();
        // Tasks that fall due after the deadline wait for the next call, so a task that keeps
        // posting itself cannot hold a bounded run open.
        if (auto task =
                tasks_.takeDue(now, deadline != nullptr ? *deadline : Clock::time_point::max())) {
            lock.unlock();
            (*task)();
            lock.lock();
            continue;
        }
        if (deadline != nullptr && now >= *deadline) {
            return false;
        }
        auto wakeAt = tasks_.nextDue().value_or(Clock::time_point::max());
        if (deadline != nullptr && *deadline < wakeAt) {
            wakeAt = *deadline;
        }
        if (wakeAt == Clock::time_point::max()) {
            wake_.wait(lock);
        } else {
            wake_.wait_until(lock, wakeAt);
        }
    }
}

} // namespace quillet
