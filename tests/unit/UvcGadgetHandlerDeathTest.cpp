// SPDX-License-Identifier: Apache-2.0
// What ends the daemon from within its poll thread.

#include "uvc/UvcGadgetHandler.h"

#include <gtest/gtest.h>

#include "support/DaemonWorld.h"

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

}  // namespace
}  // namespace korvane::test
