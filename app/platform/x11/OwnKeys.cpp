#include "platform/x11/OwnKeys.h"

namespace quillet {

void OwnKeys::expect(unsigned keycode, bool press, Clock::time_point now) {
    keys_.push_back({keycode, press, now});
}

bool OwnKeys::consume(unsigned keycode, bool press, Clock::time_point now) {
    expire(now);
    // The server delivers XTEST events in the order they were sent, so only the oldest
    // announcement can match; a different key in between is the user's.
    if (keys_.empty() || keys_.front().keycode != keycode || keys_.front().press != press) {
        return false;
    }
    keys_.pop_front();
    return true;
}

void OwnKeys::expectMappingChange(Clock::time_point now) {
    mappings_.push_back(now);
}

bool OwnKeys::consumeMappingChange(Clock::time_point now) {
    expire(now);
    if (mappings_.empty()) {
        return false;
    }
    mappings_.pop_front();
    return true;
}

bool OwnKeys::pending(Clock::time_point now) {
    expire(now);
    return !keys_.empty() || !mappings_.empty();
}

void OwnKeys::expire(Clock::time_point now) {
    // An event that never came back (the server refused it) must not swallow the user's keys.
    while (!keys_.empty() && now - keys_.front().at > patience) {
        keys_.pop_front();
    }
    while (!mappings_.empty() && now - mappings_.front() > patience) {
        mappings_.pop_front();
    }
}

} // namespace quillet
