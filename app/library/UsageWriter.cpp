#include "library/UsageWriter.h"

#include "library/FreeMemory.h"

#include <utility>

namespace quillet {

UsageWriter::UsageWriter(UsageFile& file, Usage& usage, Scheduler& scheduler,
                         std::chrono::milliseconds delay)
    : file_(file), usage_(usage), scheduler_(scheduler), delay_(delay),
      worker_([this] { work(); }) {}

UsageWriter::~UsageWriter() {
    flush();
    {
        std::lock_guard lock(mutex_);
        quit_ = true;
    }
    wake_.notify_all();
    worker_.join();
}

void UsageWriter::changed() {
    dirty_ = true;
    if (timer_ == 0) {
        // Timers run on the main thread, as does the destructor that cancels this one.
        timer_ = scheduler_.postAfter(delay_, [this] {
            timer_ = 0;
            handOver();
        });
    }
}

void UsageWriter::flush() {
    if (timer_ != 0) {
        scheduler_.cancel(timer_);
        timer_ = 0;
    }
    handOver();
    std::unique_lock lock(mutex_);
    wake_.wait(lock, [this] { return !queued_ && !writing_; });
}

void UsageWriter::handOver() {
    if (!std::exchange(dirty_, false)) {
        return;
    }
    // Merging with a file that could not be read at load changes the record, so it happens
    // here, on the main thread that owns it; a refused save waits for the next change, as the
    // counts stay in the record.
    if (!file_.prepare(usage_)) {
        return;
    }
    Usage copy = usage_;
    {
        std::lock_guard lock(mutex_);
        queued_ = std::move(copy); // a copy still waiting is older: this one replaces it
    }
    wake_.notify_all();
}

void UsageWriter::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return quit_ || queued_; });
        if (!queued_) {
            return;
        }
        Usage usage = std::move(*queued_);
        queued_.reset();
        writing_ = true;
        lock.unlock();
        std::string error;
        // A failed write keeps the counts in the record, for the next change to write.
        UsageFile::write(file_.path(), usage, error);
        usage = {};
        // The file's text for a large library is megabytes this thread's heap would keep.
        returnFreeMemory();
        lock.lock();
        writing_ = false;
        wake_.notify_all();
    }
}

} // namespace quillet
