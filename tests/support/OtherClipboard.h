#pragma once

#include "library/RunLoop.h"
#include "platform/x11/X11Clipboard.h"

#include <future>
#include <memory>
#include <thread>

namespace quillet::testing {

// Another application: a clipboard on its own connection with its own main thread, so that it
// answers while the test's thread waits for it and the other way round.
class OtherApp {
public:
    explicit OtherApp(RunLoop& main) : main_(main) {
        std::promise<void> ready;
        thread_ = std::thread([this, &ready] {
            RunLoop loop;
            std::string error;
            clipboard_ = X11Clipboard::open("", loop, error);
            loop_ = &loop;
            ready.set_value();
            loop.run();
            clipboard_.reset();
        });
        ready.get_future().wait();
    }

    ~OtherApp() {
        loop_->quit();
        thread_.join();
    }

    bool opened() const { return clipboard_ != nullptr; }

    /// Runs f(clipboard) on the other application's thread and wakes the test's loop after it.
    template <class F> auto call(F f) {
        using Result = decltype(f(std::declval<X11Clipboard&>()));
        auto task = std::make_shared<std::packaged_task<Result()>>(
            [this, f = std::move(f)]() mutable { return f(*clipboard_); });
        auto future = task->get_future();
        loop_->post([task, &main = main_] {
            (*task)();
            main.post([] {});
        });
        return future;
    }

private:
    RunLoop& main_;
    RunLoop* loop_ = nullptr;
    std::unique_ptr<X11Clipboard> clipboard_;
    std::thread thread_;
};

} // namespace quillet::testing
