// SPDX-License-Identifier: Apache-2.0
// One thread's commands to the driver and back: in order, once, and never past what has come.
#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../../platform/libhidlbase/hwbinder/BinderDriver.h"
#include "../../platform/libhidlbase/hwbinder/DriverChannel.h"
#include "support/ScriptedBinder.h"

namespace korvane::test {
namespace {

using android::OK;
using android::hardware::BinderDriver;
using android::hardware::DriverChannel;
using testing::ElementsAre;

constexpr char kPath[] = "/dev/scripted";

class HwDriverChannelTest : public testing::Test {
  protected:
    size_t exchanges() { return mBinder.kernel().calls("BINDER_WRITE_READ").size(); }

    ScriptedBinder mBinder{kPath};
    BinderDriver mDriver{kPath};
    DriverChannel mChannel{mDriver};
};

TEST_F(HwDriverChannelTest, HandsCommandsOverInTheirOrder) {
    mChannel.out().write(BC_ACQUIRE, uint32_t{3});
    mChannel.out().write(BC_ENTER_LOOPER);
    EXPECT_EQ(OK, mChannel.flush());
    const auto taken = mBinder.take();
    ASSERT_EQ(2u, taken.size());
    EXPECT_EQ(BC_ACQUIRE, taken[0].number);
    EXPECT_EQ(3u, taken[0].as<uint32_t>());
    EXPECT_EQ(static_cast<uint32_t>(BC_ENTER_LOOPER), taken[1].number);
    EXPECT_TRUE(mChannel.out().isEmpty());
}

TEST_F(HwDriverChannelTest, AsksNothingOfTheDriverWithNothingToSay) {
    EXPECT_EQ(OK, mChannel.flush());
    EXPECT_EQ(0u, exchanges());
}

TEST_F(HwDriverChannelTest, WhatTheDriverDidNotTakeGoesWithTheNextExchange) {
    mChannel.out().write(BC_ACQUIRE, uint32_t{3});
    mChannel.out().write(BC_RELEASE, uint32_t{4});
    mBinder.takeNoMoreThan(8);
    EXPECT_EQ(OK, mChannel.flush());
    EXPECT_THAT(mBinder.takeNumbers(), ElementsAre(BC_ACQUIRE));
    EXPECT_EQ(8u, mChannel.out().size());
    EXPECT_EQ(OK, mChannel.flush());
    EXPECT_THAT(mBinder.takeNumbers(), ElementsAre(BC_RELEASE));
}

TEST_F(HwDriverChannelTest, WhatTheDriverRefusesIsNotTriedAgain) {
    mChannel.out().write(BC_ACQUIRE, uint32_t{3});
    mBinder.kernel().fail("BINDER_WRITE_READ", EINVAL);
    EXPECT_EQ(-EINVAL, mChannel.flush());
    EXPECT_TRUE(mChannel.out().isEmpty());
    mChannel.out().write(BC_RELEASE, uint32_t{4});
    EXPECT_EQ(OK, mChannel.flush());
    EXPECT_THAT(mBinder.takeNumbers(), ElementsAre(BC_RELEASE));
}

TEST_F(HwDriverChannelTest, AsksForMoreOnceAllIsRead) {
    mBinder.give({BinderCommand(BR_NOOP), BinderCommand(BR_OK)});
    mBinder.give({BinderCommand(BR_NOOP)});
    uint32_t command;
    EXPECT_EQ(OK, mChannel.receive());
    EXPECT_TRUE(mChannel.in().read(&command));
    EXPECT_EQ(OK, mChannel.receive());
    EXPECT_EQ(1u, exchanges());
    EXPECT_TRUE(mChannel.in().read(&command));
    EXPECT_EQ(static_cast<uint32_t>(BR_OK), command);
    EXPECT_TRUE(mChannel.in().isExhausted());
    EXPECT_EQ(OK, mChannel.receive());
    EXPECT_EQ(2u, exchanges());
    EXPECT_FALSE(mChannel.in().isExhausted());
}

TEST_F(HwDriverChannelTest, AReadTakesWhatIsToBeSaidAlong) {
    mChannel.out().write(BC_ENTER_LOOPER);
    mBinder.give({BinderCommand(BR_NOOP)});
    EXPECT_EQ(OK, mChannel.receive());
    EXPECT_EQ(1u, exchanges());
    EXPECT_THAT(mBinder.takeNumbers(), ElementsAre(static_cast<uint32_t>(BC_ENTER_LOOPER)));
}

TEST_F(HwDriverChannelTest, AReadThatFailsLeavesNothingToRead) {
    EXPECT_EQ(-EIO, mChannel.receive());
    EXPECT_TRUE(mChannel.in().isExhausted());
}

TEST_F(HwDriverChannelTest, WhatIsCutOffIsNotRead) {
    mBinder.giveBytes({1, 2, 3, 4, 5, 6});
    EXPECT_EQ(OK, mChannel.receive());
    uint64_t whole = 99;
    EXPECT_FALSE(mChannel.in().read(&whole));
    EXPECT_EQ(99u, whole);
    EXPECT_TRUE(mChannel.in().isExhausted());
}

TEST_F(HwDriverChannelTest, OnlyWhatIsThereCanBePassedOver) {
    mBinder.giveBytes({1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_EQ(OK, mChannel.receive());
    EXPECT_TRUE(mChannel.in().skip(4));
    uint16_t next;
    EXPECT_TRUE(mChannel.in().read(&next));
    EXPECT_EQ(0x0605, next);
    EXPECT_FALSE(mChannel.in().skip(3));
    EXPECT_TRUE(mChannel.in().isExhausted());
}

TEST_F(HwDriverChannelTest, NoMoreIsReadThanThereIsRoomFor) {
    mChannel.in().refill(1 << 20);
    EXPECT_TRUE(mChannel.in().skip(mChannel.in().capacity()));
    EXPECT_TRUE(mChannel.in().isExhausted());
    EXPECT_FALSE(mChannel.in().skip(1));
}

}  // namespace
}  // namespace korvane::test
