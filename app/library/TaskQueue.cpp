#include "library/TaskQueue.h"

namespace quillet {

Scheduler::TimerId TaskQueue::add(Clock::time_point due, Scheduler::Task task) {
    const Scheduler::TimerId id = ++lastId_;
    tasks_.emplace(Key{due, id}, std::move(task));
    dueTimes_.emplace(id, due);
    return id;
}

bool TaskQueue::cancel(Scheduler::TimerId id) {
    auto it = dueTimes_.find(id);
    if (it == dueTimes_.end()) {
        return false;
    }
    tasks_.erase(Key{it->second, id});
    dueTimes_.erase(it);
    return true;
}

std::optional<TaskQueue::Clock::time_point> TaskQueue::nextDue() const {
    if (tasks_.empty()) {
        return std::nullopt;
    }
    return tasks_.begin()->first.first;
}

std::optional<Scheduler::Task> TaskQueue::takeDue(Clock::time_point now, Clock::time_point limit) {
    if (tasks_.empty()) {
        return std::nullopt;
    }
    const auto due = tasks_.begin()->first.first;
    if (due > now || due > limit) {
        return std::nullopt;
    }
    auto node = tasks_.extract(tasks_.begin());
    dueTimes_.erase(node.key().second);
    return std::move(node.mapped());
}

} // namespace quillet
