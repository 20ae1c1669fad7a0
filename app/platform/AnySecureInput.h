#pragma once

#include "engine/SecureInput.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace quillet {

/// Several ways of telling that typing is kept from Quillet, seen as one: active while any of
/// them is, named by the first that is. Changes are passed on only when the sum changes, so two
/// sources noticing the same password prompt say so once.
class AnySecureInput final : public SecureInput {
public:
    /// Combines sources, which must outlive this; null entries are left out.
    explicit AnySecureInput(std::vector<SecureInput*> sources) {
        for (SecureInput* source : sources) {
            if (source != nullptr) {
                sources_.push_back(source);
            }
        }
    }
    ~AnySecureInput() override { stop(); }
    AnySecureInput(const AnySecureInput&) = delete;
    AnySecureInput& operator=(const AnySecureInput&) = delete;

    void start(std::function<void()> changed) override {
        changed_ = std::move(changed);
        for (SecureInput* source : sources_) {
            source->start([this] { update(); });
        }
        update();
    }

    void stop() override {
        changed_ = {};
        for (SecureInput* source : sources_) {
            source->stop();
        }
        active_ = false;
        holder_.clear();
    }

    bool active() const override { return active_; }
    std::string holder() const override { return holder_; }

private:
    void update() {
        bool active = false;
        std::string holder;
        for (SecureInput* source : sources_) {
            if (source->active()) {
                active = true;
                holder = source->holder();
                break;
            }
        }
        if (active == active_ && holder == holder_) {
            return;
        }
        active_ = active;
        holder_ = std::move(holder);
        if (changed_) {
            changed_();
        }
    }

    std::vector<SecureInput*> sources_;
    std::function<void()> changed_;
    bool active_ = false;
    std::string holder_;
};

} // namespace quillet
