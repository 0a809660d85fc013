// SPDX-License-Identifier: Apache-2.0
// The times that the frame source lends frames with, and its rates.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/FrameSourceTest.h"

namespace {

using android::BAD_VALUE;
using android::Fence;
using android::FrameDropper;
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
    start(2);
    peer.prevFrameUs() = INT64_MIN;
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
    EXPECT_THAT(peer.freeCodecBuffers(), ElementsAre(1, 2));
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
    peer.inputTimeOffsetUs() = -500;
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(500));
    EXPECT_EQ(1000, peer.lastFrameTimestampUs());  // without the offset
}

TEST_F(KorBufferSourcePacingTest, SkipsFramesBeforeATimeAndCountsFromThere) {
    start(3);
    peer.skipFramesBeforeNs() = 10 * kMs;
    ASSERT_GE(queueFrame(10 * kMs - 1), 0);
    EXPECT_THAT(component->submissions(), IsEmpty());
    EXPECT_EQ(1u, queue->releases().size());
    ASSERT_GE(queueFrame(12 * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(2000));
    EXPECT_EQ(12000, peer.lastFrameTimestampUs());  // unadjusted
}

TEST_F(KorBufferSourcePacingTest, RepeatsAFrameByTheTimeThatItIsCountedTo) {
    start(1);
    peer.skipFramesBeforeNs() = 10 * kMs;
    peer.repeatIntervalUs() = 1000000;
    ASSERT_GE(queueFrame(12 * kMs), 0);
    EXPECT_EQ(1002 * kMs, peer.latestBuffer().mTimestampNs);
}

TEST_F(KorBufferSourcePacingTest, DoesNotCountFramesThatArePausedOrSkipped) {
    start(3);
    ASSERT_GE(queueFrame(11 * kMs), 0);
    ASSERT_EQ(11000, peer.lastFrameTimestampUs());
    peer.skipFramesBeforeNs() = 20 * kMs;
    ASSERT_GE(queueFrame(12 * kMs), 0);
    EXPECT_EQ(11000, peer.lastFrameTimestampUs());
    peer.skipFramesBeforeNs() = -1;
    ASSERT_EQ(OK, source->setSuspend(true, 13000));  // with the frame that it takes effect with
    ASSERT_GE(queueFrame(13 * kMs), 0);
    EXPECT_EQ(11000, peer.lastFrameTimestampUs());
    EXPECT_EQ(2u, queue->releases().size());
}

TEST_F(KorBufferSourcePacingTest, GoesOnBehindSkippedFramesWhenStarted) {
    prepare(2);
    for (int64_t ms : {1, 2, 12}) ASSERT_GE(queueFrame(ms * kMs), 0);
    peer.skipFramesBeforeNs() = 10 * kMs;
    ASSERT_EQ(OK, source->start());
    EXPECT_THAT(submittedTimes(), ElementsAre(2000));
}

TEST_F(KorBufferSourcePacingTest, CountsFromTheVeryFirstNanosecond) {
    start(1);
    peer.skipFramesBeforeNs() = 1;
    ASSERT_GE(queueFrame(2000), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(1));
}

TEST_F(KorBufferSourcePacingTest, SkipsFramesBeforeTimeZero) {
    start(2);
    peer.skipFramesBeforeNs() = 0;
    peer.prevFrameUs() = INT64_MIN;
    ASSERT_GE(queueFrame(-1000), 0);
    EXPECT_THAT(component->submissions(), IsEmpty());
    ASSERT_GE(queueFrame(0), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(0));
}

// The maximum rate.

TEST_F(KorBufferSourcePacingTest, LogsTheMaximumRateWithoutItsFraction) {
    EXPECT_EQ(OK, source->setMaxFps(29.97f));
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{ANDROID_LOG_DEBUG, kTag, "setMaxFps: maxFps=29"}));
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

TEST_F(KorBufferSourcePacingTest, JudgesTheRateByTimesBelowZeroCutTowardsIt) {
    prepare(4);
    ASSERT_EQ(OK, source->setMaxFps(10));
    peer.prevFrameUs() = INT64_MIN;
    ASSERT_EQ(OK, source->start());
    for (int64_t ns : {-100000000, -2001000, -2000999}) ASSERT_GE(queueFrame(ns), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(-100000, -2000));
}

TEST_F(KorBufferSourcePacingTest, ComparesTimesWithTheLastFrameThatKeptToTheRate) {
    prepare(4);
    ASSERT_EQ(OK, source->setMaxFps(30));
    ASSERT_EQ(OK, source->start());
    for (int64_t ms : {1000, 1016}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_EQ(1000000, peer.prevFrameUs());
    peer.frameDropper().clear();
    ASSERT_GE(queueFrame(1010 * kMs), 0);  // before the one that was dropped
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
    peer.repeatIntervalUs() = 1000000;
    ASSERT_GE(queueFrame(1000 * kMs), 0);
    ASSERT_GE(queueFrame(1016 * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(1000000));
    EXPECT_EQ(1016000, peer.lastFrameTimestampUs());
    EXPECT_EQ(2016 * kMs, peer.latestBuffer().mTimestampNs);
}

TEST_F(KorBufferSourcePacingTest, JudgesTheRateByTheTimeThatFramesAreSkippedTo) {
    start(4);
    peer.frameDropper() = new FrameDropper;
    ASSERT_EQ(OK, peer.frameDropper()->setMaxFrameRate(1000));
    peer.skipFramesBeforeNs() = 100 * kMs;
    ASSERT_GE(queueFrame(101 * kMs), 0);
    // The dropper has seen 1000, not 101000: what lies before 2000 less 2000 it would drop.
    EXPECT_FALSE(peer.frameDropper()->shouldDrop(3000));
    EXPECT_THAT(submittedTimes(), ElementsAre(1000));
}

TEST_F(KorBufferSourcePacingTest, DropsNoFramesAfterAMaximumRateOfZero) {
    ASSERT_EQ(OK, source->setMaxFps(30));
    EXPECT_EQ(BAD_VALUE, source->setMaxFps(0));
    EXPECT_EQ(nullptr, peer.frameDropper());
}

TEST_F(KorBufferSourcePacingTest, StartsAnewWithEachMaximumRate) {
    ASSERT_EQ(OK, source->setMaxFps(30));
    const sp<FrameDropper> first = peer.frameDropper();
    ASSERT_EQ(OK, source->setMaxFps(30));
    EXPECT_NE(first, peer.frameDropper());
}

TEST_F(KorBufferSourcePacingTest, RefusesAMaximumRateOnceStarted) {
    prepare(1);
    ASSERT_EQ(OK, source->setMaxFps(30));
    const sp<FrameDropper> dropper = peer.frameDropper();
    ASSERT_EQ(OK, source->start());
    log.clear();
    EXPECT_EQ(INVALID_OPERATION, source->setMaxFps(15));
    EXPECT_EQ(dropper, peer.frameDropper());
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "setMaxFps: maxFps=15"));
}

// Time-lapse and slow motion.

class TimeLapseTest : public FrameSourceTest {
  protected:
    void startTimeLapse(double captureFps, double fps) {
        start(4);
        peer.captureFps() = captureFps;
        peer.fps() = fps;
    }

    void queueTimes(std::initializer_list<int64_t> times) {
        for (int64_t us : times) ASSERT_GE(queueFrame(us * 1000), 0);
    }
};

TEST_F(TimeLapseTest, PutsFramesOfASlowCaptureAtTheFasterRate) {
    startTimeLapse(1, 30);
    peer.frameCount() = 7;  // of an earlier series
    queueTimes({3000000, 4000000, 5100000});
    // The first: 3 s * 1 / 30. Then a frame for each second captured.
    EXPECT_THAT(submittedTimes(), ElementsAre(100000, 133333, 166667));
    EXPECT_EQ(3000000, peer.baseCaptureUs());
    EXPECT_EQ(5000000, peer.prevCaptureUs());  // on the grid of the capture
    EXPECT_EQ(2, peer.frameCount());
}

TEST_F(TimeLapseTest, PutsFramesOfAFastCaptureAtTheSlowerRate) {
    startTimeLapse(120, 30);
    queueTimes({0, 8333, 16667});
    EXPECT_THAT(submittedTimes(), ElementsAre(0, 33333, 66667));
}

TEST_F(TimeLapseTest, CountsTheFramesThatWereMissed) {
    startTimeLapse(1, 30);
    queueTimes({0, 3000000});
    EXPECT_THAT(submittedTimes(), ElementsAre(0, 100000));
}

TEST_F(TimeLapseTest, SkipsFramesThatComeMuchTooSoon) {
    startTimeLapse(1, 30);
    queueTimes({0, 449999, 450000});
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "skipping frame, timeUs 449999"));
    EXPECT_EQ(0u, log.count(ANDROID_LOG_DEBUG, kTag, "skipping frame, timeUs 450000"));
    EXPECT_THAT(submittedTimes(), ElementsAre(0, 33333));  // and a little too soon counts as one
    EXPECT_EQ(1000000, peer.prevCaptureUs());
}

TEST_F(TimeLapseTest, RoundsHalvesAwayFromZero) {
    startTimeLapse(1, 4);
    queueTimes({2, 1000002, 3500002});
    EXPECT_EQ(1, submittedTimes()[0]);                // 0.5
    EXPECT_EQ(250001, submittedTimes()[1]);           // one frame
    EXPECT_EQ(250001 + 750000, submittedTimes()[2]);  // 2.5 frames are three
}

TEST_F(TimeLapseTest, RoundsHalvesBelowZeroAwayFromIt) {
    startTimeLapse(1, 4);
    queueTimes({-2});
    EXPECT_THAT(submittedTimes(), ElementsAre(-1));
}

TEST_F(TimeLapseTest, AppliesOnlyToRatesMoreThanTwiceApart) {
    startTimeLapse(15, 30);
    queueTimes({1000000});
    EXPECT_THAT(submittedTimes(), ElementsAre(1000000));
    EXPECT_EQ(-1, peer.prevCaptureUs());
    peer.fps() = 30.1;
    queueTimes({2000000});
    EXPECT_EQ(2000000, peer.prevCaptureUs());
}

TEST_F(TimeLapseTest, DoesNotApplyToACaptureOfNoRate) {
    startTimeLapse(0, 30);
    queueTimes({1000000});
    EXPECT_THAT(submittedTimes(), ElementsAre(1000000));
}

TEST_F(TimeLapseTest, DoesNotApplyToACaptureOfJustTwiceTheRate) {
    startTimeLapse(60, 30);
    queueTimes({1000000});
    EXPECT_THAT(submittedTimes(), ElementsAre(1000000));
    EXPECT_EQ(-1, peer.prevCaptureUs());
    peer.captureFps() = 60.1;
    queueTimes({2000000});
    EXPECT_EQ(2000000, peer.prevCaptureUs());
}

TEST_F(TimeLapseTest, ScalesTimesWhenItDoesNotSnap) {
    startTimeLapse(1, 4);
    peer.snapTimestamps() = false;
    queueTimes({4000000, 4000002, 5000000});
    EXPECT_THAT(submittedTimes(), ElementsAre(1000000, 1000001, 1250000));
    EXPECT_EQ(5000000, peer.prevCaptureUs());
}

TEST_F(TimeLapseTest, DropsBackwardFramesWhenItDoesNotSnap) {
    startTimeLapse(1, 4);
    peer.snapTimestamps() = false;
    queueTimes({4000000, 4000000});
    EXPECT_THAT(submittedTimes(), ElementsAre(1000000));
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, kDroppingBackward));
}

TEST_F(TimeLapseTest, KeepsBackwardFramesWhenDroppingIsDisabledAndItDoesNotSnap) {
    startTimeLapse(1, 4);
    peer.snapTimestamps() = false;
    peer.frameDropper() = new FrameDropper;
    ASSERT_EQ(OK, peer.frameDropper()->setMaxFrameRate(-1));
    queueTimes({4000000, 3000000});
    EXPECT_THAT(submittedTimes(), ElementsAre(1000000, 750000));
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, kReceivedBackward));
    EXPECT_EQ(3000000, peer.prevCaptureUs());
    queueTimes({3500000});  // forward from there
    EXPECT_EQ(1u, log.count(ANDROID_LOG_WARN, kTag, kReceivedBackward));
    EXPECT_THAT(submittedTimes(), ElementsAre(1000000, 750000, 875000));
}

// A capture below zero is none that a frame could be counted from.
TEST_F(TimeLapseTest, BeginsAnewWithEachFrameUntilOneWasCapturedAtZeroOrLater) {
    startTimeLapse(1, 4);
    queueTimes({-3300000, -4, 0, 1000000});
    EXPECT_THAT(submittedTimes(), ElementsAre(-825000, -1, 0, 250000));
    EXPECT_EQ(0, peer.baseCaptureUs());
    EXPECT_EQ(1, peer.frameCount());
}

}  // namespace
