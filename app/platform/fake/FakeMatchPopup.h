#pragma once

#include "engine/Popup.h"

#include <string>
#include <vector>

namespace quillet {

/// A popup that records what the engine asked of it and answers at once, found or not.
class FakeMatchPopup final : public MatchPopup {
public:
    void show(const std::vector<Matcher::Match>& candidates, Shown shown) override {
        std::string line = "show";
        for (const Matcher::Match& candidate : candidates) {
            line += " " + candidate.abbreviation;
        }
        calls.push_back(line);
        listed = candidates;
        if (shown) {
            shown(caretFound);
        }
    }
    void select(std::size_t index) override { calls.push_back("select " + std::to_string(index)); }
    void hide() override {
        calls.push_back("hide");
        listed.clear();
    }

    /// Whether a show finds the caret.
    bool caretFound = true;
    /// Every call, in order: "show ;a ;b", "select 1", "hide".
    std::vector<std::string> calls;
    /// What the last show listed, until hidden.
    std::vector<Matcher::Match> listed;
};

} // namespace quillet
