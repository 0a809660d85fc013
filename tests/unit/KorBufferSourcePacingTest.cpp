// SPDX-License-Identifier: Apache-2.0
// The times that the frame source lends frames with, and its rates.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/FrameSourceTest.h"

namespace {

using android::Fence;
using android::FrameRepetition;
using android::FrameTimes;
using android::INVALID_OPERATION;
using android::OK;
using android::sp;
using korvane::test::FrameSourceTest;
using korvane::test::LogLine;
using korvane::test::ManualFence;
using testing::ElementsAre;
using testing::IsEmpty;

using KorBufferSourcePacingTest = FrameSourceTest;

constexpr char kDroppingBackward[] = "Dropping frame that's going backward in time";
constexpr char kReceivedBackward[] = "Received frame that's going backward in time";

// Times.

TEST_F(KorBufferSourcePacingTest, CutsNanosecondsToMicroseconds) {
    start(2);
    ASSERT_GE(queueFrame(1999), 0);
    ASSERT_GE(queueFrame(2000), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(1, 2));
}

TEST_F(KorBufferSourcePacingTest, CutsTimesBelowZeroTowardsIt) {
    prepare(2);
    ASSERT_EQ(OK, source->setMaxFps(-1));  // takes frames of any time
    ASSERT_EQ(OK, source->start());
    ASSERT_GE(queueFrame(-2999), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(-2));
    EXPECT_EQ(-2, peer.lastFrameTimestampUs());
}

TEST_F(KorBufferSourcePacingTest, DropsAFrameOfTheSameTime) {
    start(3);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    log.clear();
    ASSERT_GE(queueFrame(1 * kMs + 999), 0);  // within the same microsecond
    EXPECT_THAT(log.lines(kTag), ElementsAre(LogLine{ANDROID_LOG_WARN, kTag, kDroppingBackward}));
    EXPECT_THAT(submittedTimes(), ElementsAre(1000));
    EXPECT_EQ(1u, queue->releases().size());
    EXPECT_THAT(freeCodecBuffers(), ElementsAre(1, 2));
}

TEST_F(KorBufferSourcePacingTest, DropsAFrameOfAnEarlierTimeAndTakesThoseThatCatchUp) {
    start(3);
    for (int64_t ms : {5, 3, 4, 6}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(5000, 6000));
    EXPECT_EQ(2u, log.count(ANDROID_LOG_WARN, kTag, kDroppingBackward));
    EXPECT_EQ(6000, peer.lastFrameTimestampUs());
}

TEST_F(KorBufferSourcePacingTest, ReleasesADroppedFrameWithItsOwnFence) {
    start(1);
    ManualFence manual;
    const sp<Fence> fence = manual.fence();
    ASSERT_GE(producer.queue({.timestampNs = -kMs, .fence = fence}), 0);
    ASSERT_EQ(1u, queue->releases().size());
    EXPECT_EQ(fence, queue->releases()[0].fence);
}

TEST_F(KorBufferSourcePacingTest, KeepsBackwardFramesWhenDroppingIsDisabled) {
    prepare(3);
    ASSERT_EQ(OK, source->setMaxFps(-1));
    ASSERT_EQ(OK, source->start());
    ASSERT_GE(queueFrame(5 * kMs), 0);
    ASSERT_GE(queueFrame(3 * kMs), 0);
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, kReceivedBackward));
    EXPECT_THAT(submittedTimes(), ElementsAre(5000, 3000));
    ASSERT_GE(queueFrame(4 * kMs), 0);  // forward from there
    EXPECT_EQ(1u, log.count(ANDROID_LOG_WARN, kTag, kReceivedBackward));
}

TEST_F(KorBufferSourcePacingTest, DropsBackwardFramesUnderARateThatDropsNone) {
    prepare(3);
    ASSERT_EQ(OK, source->setMaxFps(2e6f));
    ASSERT_EQ(OK, source->start());
    for (int64_t ms : {5, 3}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, kDroppingBackward));
    EXPECT_THAT(submittedTimes(), ElementsAre(5000));
}

TEST_F(KorBufferSourcePacingTest, AddsTheTimeOffsetToEveryFrame) {
    start(2);
    peer.times() = FrameTimes(stats, {.inputTimeOffsetUs = -500});
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(500));
    EXPECT_EQ(1000, peer.lastFrameTimestampUs());  // without the offset
}

TEST_F(KorBufferSourcePacingTest, SkipsFramesBeforeATimeAndCountsFromThere) {
    start(3);
    peer.times() = FrameTimes(stats, {.skipFramesBeforeNs = 10 * kMs});
    ASSERT_GE(queueFrame(10 * kMs - 1), 0);
    EXPECT_THAT(component->submissions(), IsEmpty());
    EXPECT_EQ(1u, queue->releases().size());
    ASSERT_GE(queueFrame(12 * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(2000));
    EXPECT_EQ(12000, peer.lastFrameTimestampUs());  // unadjusted
}

TEST_F(KorBufferSourcePacingTest, RepeatsAFrameByTheTimeThatItIsCountedTo) {
    start(1);
    peer.times() = FrameTimes(stats, {.skipFramesBeforeNs = 10 * kMs});
    peer.repetition() = FrameRepetition(1000000);
    ASSERT_GE(queueFrame(12 * kMs), 0);
    EXPECT_EQ(1002 * kMs, peer.repetition().latest().mTimestampNs);
}

TEST_F(KorBufferSourcePacingTest, DoesNotCountFramesThatArePausedOrSkipped) {
    start(3);
    ASSERT_GE(queueFrame(11 * kMs), 0);
    ASSERT_EQ(11000, peer.lastFrameTimestampUs());
    peer.times() = FrameTimes(stats, {.skipFramesBeforeNs = 20 * kMs});
    ASSERT_GE(queueFrame(12 * kMs), 0);
    EXPECT_EQ(11000, peer.lastFrameTimestampUs());
    peer.times() = FrameTimes(stats, {.skipFramesBeforeNs = -1});
    ASSERT_EQ(OK, source->setSuspend(true, 13000));  // with the frame that it takes effect with
    ASSERT_GE(queueFrame(13 * kMs), 0);
    EXPECT_EQ(11000, peer.lastFrameTimestampUs());
    EXPECT_EQ(2u, queue->releases().size());
}

TEST_F(KorBufferSourcePacingTest, GoesOnAfterSkippedFramesWhenStarted) {
    prepare(2);
    for (int64_t ms : {1, 2, 12}) ASSERT_GE(queueFrame(ms * kMs), 0);
    peer.times() = FrameTimes(stats, {.skipFramesBeforeNs = 10 * kMs});
    ASSERT_EQ(OK, source->start());
    EXPECT_THAT(submittedTimes(), ElementsAre(2000));
}

// The maximum rate.

TEST_F(KorBufferSourcePacingTest, LogsTheMaximumRateWithoutItsFraction) {
    EXPECT_EQ(OK, source->setMaxFps(29.97f));
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{ANDROID_LOG_DEBUG, kTag, "setMaxFps: maxFps=29"}));
}

TEST_F(KorBufferSourcePacingTest, LogsAMaximumRateBeyondAllIntegersAsTheLastOfThem) {
    constexpr float kLargestBelow = 9223371487098961920.0f;
    for (const float rate : {kLargestBelow, 0x1p63f, 1e38f, -0x1p63f, -1e38f}) {
        EXPECT_EQ(OK, source->setMaxFps(rate));
    }
    const auto loggedTimes = [this](const char* rate) {
        return log.count(ANDROID_LOG_DEBUG, kTag, std::string("setMaxFps: maxFps=") + rate);
    };
    EXPECT_EQ(1u, loggedTimes("9223371487098961920"));
    EXPECT_EQ(2u, loggedTimes("9223372036854775807"));
    EXPECT_EQ(2u, loggedTimes("-9223372036854775808"));
}

TEST_F(KorBufferSourcePacingTest, DropsFramesBeyondTheMaximumRate) {
    prepare(4);
    ASSERT_EQ(OK, source->setMaxFps(30));
    ASSERT_EQ(OK, source->start());
    for (int64_t ms : {1000, 1016, 1033}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(1000000, 1033000));
    EXPECT_EQ(1u, queue->releases().size());
}

// A frame may be 2 ms too soon.
TEST_F(KorBufferSourcePacingTest, JudgesTheRateToTheMicrosecond) {
    prepare(4);
    ASSERT_EQ(OK, source->setMaxFps(10));
    ASSERT_EQ(OK, source->start());
    for (int64_t us : {0, 97999, 98000}) ASSERT_GE(queueFrame(us * 1000), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(0, 98000));
}

TEST_F(KorBufferSourcePacingTest, ComparesTimesWithTheLastFrameThatKeptToTheRate) {
    prepare(4);
    ASSERT_EQ(OK, source->setMaxFps(30));
    ASSERT_EQ(OK, source->start());
    for (int64_t ms : {1000, 1016}) ASSERT_GE(queueFrame(ms * kMs), 0);
    ASSERT_EQ(OK, peer.times().setMaxFps(2e6f));  // which drops none
    ASSERT_GE(queueFrame(1010 * kMs), 0);         // before the one that was dropped
    EXPECT_THAT(submittedTimes(), ElementsAre(1000000, 1010000));
}

TEST_F(KorBufferSourcePacingTest, JudgesTheRateOfAFrameBeforeItsDirection) {
    prepare(4);
    ASSERT_EQ(OK, source->setMaxFps(30));
    ASSERT_EQ(OK, source->start());
    ASSERT_GE(queueFrame(1000 * kMs), 0);
    log.clear();
    ASSERT_GE(queueFrame(990 * kMs), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(990000, peer.lastFrameTimestampUs());  // too soon, which counts as handled
    EXPECT_THAT(submittedTimes(), ElementsAre(1000000));
}

TEST_F(KorBufferSourcePacingTest, CountsAFrameBeyondTheRateAsHandled) {
    prepare(4);
    ASSERT_EQ(OK, source->setMaxFps(30));
    ASSERT_EQ(OK, source->start());
    peer.repetition() = FrameRepetition(1000000);
    ASSERT_GE(queueFrame(1000 * kMs), 0);
    ASSERT_GE(queueFrame(1016 * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(1000000));
    EXPECT_EQ(1016000, peer.lastFrameTimestampUs());
    EXPECT_EQ(2016 * kMs, peer.repetition().latest().mTimestampNs);
}

TEST_F(KorBufferSourcePacingTest, JudgesTheRateByTheTimeThatFramesAreSkippedTo) {
    start(4);
    peer.times() = FrameTimes(stats, {.skipFramesBeforeNs = 100 * kMs});
    ASSERT_EQ(OK, peer.times().setMaxFps(100));
    ASSERT_GE(queueFrame(101 * kMs), 0);
    EXPECT_TRUE(peer.times().isTooSoon(8 * kMs));    // 10 ms after 1 ms, less 2: judged by 1 ms,
    EXPECT_FALSE(peer.times().isTooSoon(11 * kMs));  // not by 101
    EXPECT_THAT(submittedTimes(), ElementsAre(1000));
}

TEST_F(KorBufferSourcePacingTest, RefusesAMaximumRateOnceStarted) {
    prepare(1);
    ASSERT_EQ(OK, source->setMaxFps(30));
    ASSERT_EQ(OK, source->start());
    EXPECT_FALSE(peer.times().isTooSoon(0));
    log.clear();
    EXPECT_EQ(INVALID_OPERATION, source->setMaxFps(15));
    EXPECT_FALSE(peer.times().isTooSoon(33 * kMs));  // as before
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "setMaxFps: maxFps=15"));
}

// Time-lapse.

TEST_F(KorBufferSourcePacingTest, LendsFramesOfATimeLapseWithTheirScaledTimes) {
    start(4);
    peer.times() = FrameTimes(stats, {.captureFps = 1, .fps = 30});
    for (int64_t ms : {3000, 4000, 4449, 5100}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(100000, 133333, 166667));
    EXPECT_EQ(5100000, peer.lastFrameTimestampUs());
    EXPECT_EQ(1u, queue->releases().size());  // the one that came much too soon
}

}  // namespace
