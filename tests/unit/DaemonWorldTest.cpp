// SPDX-License-Identifier: Apache-2.0
// The daemon's scripted world on a machine that has none to give.
#include "support/DaemonWorld.h"

#include <cerrno>

#include <gmock/gmock.h>

extern "C" int __wrap_unshare(int flags);
extern "C" int __wrap_unshare(int) {
    errno = EPERM;
    return -1;
}

namespace korvane::test {
namespace {

TEST(DaemonWorldTest, SaysWhyItCannotBeMade) {
    const DaemonWorld world;
    EXPECT_FALSE(world.available());
    EXPECT_THAT(world.whyNot(), testing::HasSubstr("Operation not permitted"));
}

}  // namespace
}  // namespace korvane::test
