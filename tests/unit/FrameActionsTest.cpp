// SPDX-License-Identifier: Apache-2.0
#include "uvc/FrameActions.h"

#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/FrameSourceTest.h"

namespace korvane::test {
namespace {

using android::ActionItem;
using android::FrameActions;
using android::INVALID_OPERATION;
using android::OK;
using testing::ElementsAre;

constexpr char kTag[] = "KorBufferSource";
constexpr int64_t kNow = 5000;

class FrameActionsTest : public testing::Test {
  protected:
    LogRecorder log;
    FrameActions actions;
};

using FrameActionsDeathTest = FrameActionsTest;

TEST_F(FrameActionsTest, GoesOnUntilItIsPaused) {
    EXPECT_FALSE(actions.isSuspended());
    EXPECT_FALSE(actions.isStopPending());
    EXPECT_FALSE(actions.apply(INT64_MAX));
    EXPECT_FALSE(actions.isSuspended());
}

TEST_F(FrameActionsTest, PausesAndResumesAtOnce) {
    actions.setSuspended(true);
    EXPECT_TRUE(actions.isSuspended());
    actions.setSuspended(false);
    EXPECT_FALSE(actions.isSuspended());
}

TEST_F(FrameActionsTest, DiscardsFramesWhilePausedWithNothingQueued) {
    EXPECT_FALSE(actions.isDiscarding());
    actions.setSuspended(true);
    EXPECT_TRUE(actions.isDiscarding());
    ASSERT_EQ(OK, actions.schedule(false, 1, kNow));
    EXPECT_FALSE(actions.isDiscarding());
    EXPECT_FALSE(actions.apply(1));
    EXPECT_FALSE(actions.isDiscarding());
}

TEST_F(FrameActionsTest, HasAStopPendingFromTimeZeroOn) {
    EXPECT_TRUE(FrameActions(0).isStopPending());
    EXPECT_FALSE(FrameActions(-1).isStopPending());
}

TEST_F(FrameActionsTest, TakesNoTimeThatIsYetToCome) {
    EXPECT_EQ(INVALID_OPERATION, actions.schedule(true, kNow + 1, kNow));
    EXPECT_THAT(log.lines(),
                ElementsAre(LogLine{
                        ANDROID_LOG_ERROR, kTag,
                        "setSuspend failed. 5001 is larger than current system time 5000 us"}));
    EXPECT_FALSE(actions.apply(INT64_MAX));
    EXPECT_FALSE(actions.isSuspended());
    EXPECT_EQ(OK, actions.schedule(true, kNow, kNow));
}

TEST_F(FrameActionsTest, TakesNoTimeBeforeThatOfTheLastAction) {
    ASSERT_EQ(OK, actions.schedule(true, 10, kNow));
    EXPECT_EQ(INVALID_OPERATION, actions.schedule(false, 9, kNow));
    EXPECT_THAT(
            log.lines(),
            ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag,
                                "setSuspend failed. 9 is smaller than last action time 10 us"}));
    EXPECT_FALSE(actions.apply(INT64_MAX));
    EXPECT_TRUE(actions.isSuspended());
    EXPECT_EQ(OK, actions.schedule(false, 10, kNow));
}

TEST_F(FrameActionsTest, TakesAnyPastTimeForTheFirstAction) {
    EXPECT_EQ(OK, actions.schedule(true, -5, kNow));
    EXPECT_EQ(INVALID_OPERATION, actions.schedule(true, -6, kNow));
}

TEST_F(FrameActionsTest, AppliesAnActionFromItsTimeOn) {
    ASSERT_EQ(OK, actions.schedule(true, 2000, kNow));
    EXPECT_FALSE(actions.apply(1999));
    EXPECT_FALSE(actions.isSuspended());
    EXPECT_FALSE(actions.apply(2000));
    EXPECT_TRUE(actions.isSuspended());
}

TEST_F(FrameActionsTest, AppliesAnActionOnce) {
    ASSERT_EQ(OK, actions.schedule(true, 2000, kNow));
    EXPECT_FALSE(actions.apply(2000));
    actions.setSuspended(false);
    EXPECT_FALSE(actions.apply(2001));
    EXPECT_FALSE(actions.isSuspended());
}

TEST_F(FrameActionsTest, AppliesTheLastOfThoseThatAreDue) {
    for (auto [suspend, timeUs] : {std::pair(true, 1000), {false, 2000}, {true, 3000}}) {
        ASSERT_EQ(OK, actions.schedule(suspend, timeUs, kNow));
    }
    EXPECT_FALSE(actions.apply(2999));
    EXPECT_FALSE(actions.isSuspended());
    EXPECT_FALSE(actions.apply(3000));
    EXPECT_TRUE(actions.isSuspended());
}

TEST_F(FrameActionsTest, AppliesTheLastOfOneTime) {
    ASSERT_EQ(OK, actions.schedule(true, 1000, kNow));
    ASSERT_EQ(OK, actions.schedule(false, 1000, kNow));
    EXPECT_FALSE(actions.apply(1000));
    EXPECT_FALSE(actions.isSuspended());
    actions.setSuspended(true);
    EXPECT_TRUE(actions.isDiscarding());  // nothing is left
}

TEST_F(FrameActionsTest, StopsAndForgetsWhatIsQueued) {
    actions.append({ActionItem::PAUSE, 0});
    actions.append({ActionItem::STOP, 0});
    actions.append({ActionItem::PAUSE, 0});
    EXPECT_TRUE(actions.apply(0));
    EXPECT_FALSE(actions.isSuspended());  // only the last counts, which is the stop
    EXPECT_FALSE(actions.apply(INT64_MAX));
    EXPECT_FALSE(actions.isSuspended());
}

TEST_F(FrameActionsTest, StaysPausedWithAStop) {
    actions.setSuspended(true);
    actions.append({ActionItem::STOP, 0});
    EXPECT_TRUE(actions.apply(0));
    EXPECT_TRUE(actions.isSuspended());
}

TEST_F(FrameActionsTest, ForgetsAllButTheLastTimeWithAReset) {
    actions = FrameActions(0);
    actions.setSuspended(true);
    ASSERT_EQ(OK, actions.schedule(true, 10, kNow));
    actions.reset();
    EXPECT_FALSE(actions.isSuspended());
    EXPECT_FALSE(actions.isStopPending());
    EXPECT_FALSE(actions.apply(INT64_MAX));
    EXPECT_FALSE(actions.isSuspended());
    EXPECT_EQ(INVALID_OPERATION, actions.schedule(true, 9, kNow));
}

TEST_F(FrameActionsDeathTest, AbortsOnAnUnknownAction) {
    actions.append({3, 0});
    EXPECT_DEATH((void)actions.apply(0), fatalLine(691, "Should not be here. Unknown action type"));
}

}  // namespace
}  // namespace korvane::test
