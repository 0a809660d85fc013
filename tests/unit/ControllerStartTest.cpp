// SPDX-License-Identifier: Apache-2.0
#include "uvc/ControllerStart.h"

#include <chrono>

#include <gtest/gtest.h>

#include "support/PendingCall.h"

namespace korvane::test {
namespace {

using namespace std::chrono_literals;
using ::korvane::hardware::camera::desktop::V2_0::implementation::ControllerStart;

TEST(ControllerStartTest, GoesOnWhenItsTimeIsUp) {
    ControllerStart start;
    EXPECT_TRUE(start.wait(0s));
    EXPECT_TRUE(start.wait(1ms));
    EXPECT_TRUE(start.beginPolling());
}

TEST(ControllerStartTest, CannotBeStoppedOnceItPolls) {
    ControllerStart start;
    ASSERT_TRUE(start.beginPolling());
    EXPECT_FALSE(start.stop());
    EXPECT_TRUE(start.beginPolling());
}

TEST(ControllerStartTest, DoesNotPollOnceItIsStopped) {
    ControllerStart start;
    EXPECT_TRUE(start.stop());
    EXPECT_FALSE(start.beginPolling());
    EXPECT_TRUE(start.stop());
}

TEST(ControllerStartTest, DoesNotWaitOnceItIsStopped) {
    ControllerStart start;
    ASSERT_TRUE(start.stop());
    EXPECT_FALSE(start.wait(24h));
}

TEST(ControllerStartTest, StopsAWait) {
    ControllerStart start;
    PendingCall<bool> waiting([&start] { return start.wait(24h); });
    EXPECT_TRUE(waiting.isHeldUp());
    EXPECT_TRUE(start.stop());
    EXPECT_FALSE(waiting.get());
}

}  // namespace
}  // namespace korvane::test
