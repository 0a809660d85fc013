// SPDX-License-Identifier: Apache-2.0
// What ends the daemon: its poll thread, and who destroys the controller while that runs.

#include "uvc/UvcGadgetHandler.h"

#include <cerrno>
#include <csignal>

#include <gtest/gtest.h>

#include "support/DaemonWorld.h"
#include "support/KeepForGood.h"

namespace korvane::test {
namespace {

TEST(UvcGadgetHandlerDeathTest, AFunctionThatCannotBeReadEndsTheProcess) {
    DaemonWorld world;
    if (!world.available()) GTEST_SKIP() << world.whyNot();
    world.function.remove("streaming_maxpacket");
    EXPECT_DEATH(
            {
                world.create();
                world.node.waitForCalls("VIDIOC_S_FMT", 1);
            },
            "terminate called.*invalid_argument");
}

TEST(UvcGadgetHandlerDeathTest, EndsTheProcessWhenItIsDestroyedWhileItPolls) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    DaemonWorld world;
    if (!world.available()) GTEST_SKIP() << world.whyNot();
    ::android::sp<DaemonWorld::Controller> handler = new DaemonWorld::Controller();
    // The node is looked at after the point of no return.
    ASSERT_TRUE(world.node.waitForCalls("VIDIOC_S_FMT", 1));
    EXPECT_EXIT(handler.clear(), testing::KilledBySignal(SIGABRT), "terminate called");
    keepForGood(handler);
    world.node.fail("select", EINTR);
    EXPECT_TRUE(world.waitLog(ANDROID_LOG_ERROR, "select failed"));
}

}  // namespace
}  // namespace korvane::test
