#pragma once

#include <chrono>
#include <deque>

namespace quillet {

/// The key events Quillet's own typing is about to cause on X11. RECORD marks no event as
/// synthetic, and XTEST events look like the keyboard's, so the typer announces each event
/// before it sends it and the listener drops exactly those, in order; everything else is the
/// user's, even when it arrives in the middle of an expansion. Main thread only.
class OwnKeys {
public:
    using Clock = std::chrono::steady_clock;

    /// How long an announced event may take to come back before it is given up.
    static constexpr Clock::duration patience = std::chrono::seconds(2);

    /// Announces that a press (or release) of keycode is about to be sent.
    void expect(unsigned keycode, bool press, Clock::time_point now = Clock::now());

    /// True, and forgets it, when this event is the next one announced: it is Quillet's own.
    bool consume(unsigned keycode, bool press, Clock::time_point now = Clock::now());

    /// Announces that Quillet is about to change the keyboard mapping (a spare keycode bound to
    /// a character the layout lacks).
    void expectMappingChange(Clock::time_point now = Clock::now());

    /// True, and forgets it, when a mapping change was announced: it is Quillet's own.
    bool consumeMappingChange(Clock::time_point now = Clock::now());

    /// True while announced events have not come back.
    bool pending(Clock::time_point now = Clock::now());

private:
    struct Expected {
        unsigned keycode;
        bool press;
        Clock::time_point at;
    };

    void expire(Clock::time_point now);

    std::deque<Expected> keys_;
    std::deque<Clock::time_point> mappings_;
};

} // namespace quillet
