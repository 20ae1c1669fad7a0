#pragma once

#include "engine/FrontApplication.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace quillet {

/// The application in front, as the test sets it.
class FakeFrontApplication final : public FrontApplication {
public:
    explicit FakeFrontApplication(std::string id = {}) : id_(std::move(id)) {}

    std::string id() const override { return id_; }
    void setOnChange(std::function<void()> changed) override { changed_ = std::move(changed); }
    std::vector<std::string> running() const override { return running_; }

    /// Sets the applications that have a window open.
    void setRunning(std::vector<std::string> ids) { running_ = std::move(ids); }

    /// Brings another application to the front and says so.
    void switchTo(std::string id) {
        id_ = std::move(id);
        if (changed_) {
            changed_();
        }
    }

    /// Brings another application to the front without saying so yet, as when the notice is
    /// still on its way.
    void switchQuietly(std::string id) { id_ = std::move(id); }

private:
    std::string id_;
    std::vector<std::string> running_;
    std::function<void()> changed_;
};

} // namespace quillet
