#pragma once

#include "library/Scheduler.h"

#include <chrono>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>

namespace quillet {

/// The tasks a scheduler holds, by due time; tasks due together come out in the order they went
/// in. Not synchronised: its scheduler guards it.
class TaskQueue {
public:
    using Clock = std::chrono::steady_clock;

    /// Adds task, due at due; its id, never 0.
    Scheduler::TimerId add(Clock::time_point due, Scheduler::Task task);
    /// Drops the task with id; false when it is no longer queued.
    bool cancel(Scheduler::TimerId id);
    /// When the earliest task falls due; nothing when none is queued.
    std::optional<Clock::time_point> nextDue() const;
    /// Takes out the earliest task if it is due at now and not after limit.
    std::optional<Scheduler::Task> takeDue(Clock::time_point now,
                                           Clock::time_point limit = Clock::time_point::max());

private:
    using Key = std::pair<Clock::time_point, Scheduler::TimerId>;

    std::map<Key, Scheduler::Task> tasks_;
    std::unordered_map<Scheduler::TimerId, Clock::time_point> dueTimes_;
    Scheduler::TimerId lastId_ = 0;
};

} // namespace quillet
