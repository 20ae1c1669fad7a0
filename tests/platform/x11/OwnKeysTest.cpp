#include "platform/x11/OwnKeys.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using namespace std::chrono_literals;

TEST(OwnKeys, DropsAnnouncedEventsInOrderAndLeavesTheUsersInBetweenUntilTheyExpire) {
    OwnKeys own;
    const auto t = OwnKeys::Clock::now();
    own.expect(22, true, t);
    own.expect(22, false, t);
    own.expect(55, true, t);
    EXPECT_TRUE(own.pending(t));
    EXPECT_FALSE(own.consume(22, false, t)); // out of order: not ours
    EXPECT_TRUE(own.consume(22, true, t));
    EXPECT_FALSE(own.consume(38, true, t)); // the user's key between two of ours
    EXPECT_TRUE(own.consume(22, false, t));
    EXPECT_TRUE(own.consume(55, true, t));
    EXPECT_FALSE(own.consume(55, true, t)); // the user pressing the same key afterwards
    EXPECT_FALSE(own.pending(t));

    // Announcements that never came back expire.
    own.expect(22, true, t);
    own.expectMappingChange(t);
    const auto later = t + OwnKeys::patience + 1ms;
    EXPECT_FALSE(own.consume(22, true, later));
    EXPECT_FALSE(own.consumeMappingChange(later));
    EXPECT_FALSE(own.pending(later));

    own.expectMappingChange(later);
    EXPECT_TRUE(own.consumeMappingChange(later));
    EXPECT_FALSE(own.consumeMappingChange(later));
}

} // namespace
} // namespace quillet
