#pragma once

#include "engine/Executor.h"
#include "engine/Expander.h"

#include <deque>
#include <string>
#include <vector>

namespace quillet {

/// Records the engine's intentions in order. Each completes at once, or, with completeAtOnce off,
/// when the test calls completeNext(), as a slow target would.
class FakeExecutor final : public Executor {
public:
    void hold(Done done) override {
        ++holds;
        Done held = [this, done = std::move(done)] {
            holding = true;
            done();
        };
        if (completeAtOnce) {
            held();
        } else {
            waiting_.push_back(std::move(held));
        }
    }
    void erase(std::int64_t count, Done done) override {
        record(Expander::Step::erase(count), std::move(done));
    }
    void insert(const Payload& payload, Done done) override {
        record(Expander::Step::insert(payload), std::move(done));
    }
    void press(const Tokens::KeyStroke& stroke, Done done) override {
        record(Expander::Step::press(stroke), std::move(done));
    }
    void moveLeft(std::int64_t count, Done done) override {
        record(Expander::Step::left(count), std::move(done));
    }
    void moveRight(std::int64_t count, Done done) override {
        record(Expander::Step::right(count), std::move(done));
    }
    void type(std::string_view text, Done done) override {
        record(Expander::Step::type(std::string(text)), std::move(done));
    }
    void finish(Done done) override { record(Expander::Step::finish(), std::move(done)); }

    /// Completes the oldest intention still waiting; false when none is.
    bool completeNext() {
        if (waiting_.empty()) {
            return false;
        }
        Done done = std::move(waiting_.front());
        waiting_.pop_front();
        done();
        return true;
    }

    /// How many intentions wait to be completed.
    std::size_t waiting() const { return waiting_.size(); }

    /// The intentions in words, in order (see Expander::describe).
    std::vector<std::string> described() const {
        std::vector<std::string> out;
        for (const Expander::Step& step : steps) {
            out.push_back(Expander::describe(step));
        }
        return out;
    }

    /// Whether intentions complete as soon as they are given.
    bool completeAtOnce = true;
    /// How many expansions were started ahead of their intentions.
    int holds = 0;
    /// True from an expansion's start (its hold or first intention) to its finish: the user's
    /// keys wait meanwhile, as X11's keyboard hold makes them.
    bool holding = false;
    /// Every intention given, in order.
    std::vector<Expander::Step> steps;

private:
    void record(Expander::Step step, Done done) {
        holding = step.kind != Expander::Step::Kind::finish;
        steps.push_back(std::move(step));
        if (completeAtOnce) {
            done();
        } else {
            waiting_.push_back(std::move(done));
        }
    }

    std::deque<Done> waiting_;
};

} // namespace quillet
