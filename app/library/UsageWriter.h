#pragma once

#include "library/Scheduler.h"
#include "library/Usage.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

namespace quillet {

/// Keeps a usage file up to date without making the main thread wait for it. The record has an
/// entry per snippet, so writing it costs time in proportion to the library; changes are
/// therefore gathered and written at most once per delay, from a copy, on a thread of its own.
/// A crash loses at most the last delay's counts; destruction writes what is still waiting.
/// Main thread only, but for the worker it owns.
class UsageWriter {
public:
    /// Writes usage (which must outlive the writer) to file once delay passed after a change.
    UsageWriter(UsageFile& file, Usage& usage, Scheduler& scheduler,
                std::chrono::milliseconds delay = std::chrono::seconds(1));
    /// Writes what is waiting and ends the worker.
    ~UsageWriter();
    UsageWriter(const UsageWriter&) = delete;
    UsageWriter& operator=(const UsageWriter&) = delete;

    /// Notes that the record changed; it is written within the delay.
    void changed();
    /// Writes what is waiting now and returns once it is on disk.
    void flush();

private:
    void handOver();
    void work();

    UsageFile& file_;
    Usage& usage_;
    Scheduler& scheduler_;
    std::chrono::milliseconds delay_;
    Scheduler::TimerId timer_ = 0;
    bool dirty_ = false;

    std::mutex mutex_;
    std::condition_variable wake_;
    std::optional<Usage> queued_; // the copy the worker writes next
    bool writing_ = false;
    bool quit_ = false;
    std::thread worker_;
};

} // namespace quillet
