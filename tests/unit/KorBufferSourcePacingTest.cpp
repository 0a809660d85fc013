// SPDX-License-Identifier: Apache-2.0
// The frame source's rules of time: rates, pauses, time-lapse, the end of the stream.
#include <cmath>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <utils/Timers.h>

#include "support/FrameSourceTest.h"

namespace {

using android::BAD_VALUE;
using android::Fence;
using android::FrameDropper;
using android::INVALID_OPERATION;
using android::OK;
using android::sp;
using android::UNKNOWN_ERROR;
using korvane::test::fatalLine;
using korvane::test::FrameSourceTest;
using korvane::test::LogLine;
using korvane::test::ManualFence;
using testing::ElementsAre;
using testing::IsEmpty;

using KorBufferSourcePacingTest = FrameSourceTest;
using KorBufferSourcePacingDeathTest = FrameSourceTest;

constexpr char kDroppingBackward[] = "Dropping frame that's going backward in time";
constexpr char kReceivedBackward[] = "Received frame that's going backward in time";

enum { PAUSE, RESUME, STOP };

int64_t nowUs() {
    return systemTime(SYSTEM_TIME_MONOTONIC) / 1000;
}

// Times.

TEST_F(KorBufferSourcePacingTest, CutsNanosecondsToMicroseconds) {
    start(2);
    ASSERT_GE(queueFrame(1999), 0);
    ASSERT_GE(queueFrame(2000), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(1, 2));
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

// Pause and resume at once.

TEST_F(KorBufferSourcePacingTest, GivesAllWaitingFramesBackWhenPaused) {
    prepare(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);  // lent
    ASSERT_GE(queueFrame(2 * kMs), 0);  // parked
    ASSERT_EQ(OK, source->start());
    ASSERT_GE(queueFrame(3 * kMs), 0);  // in the queue
    EXPECT_EQ(OK, source->setSuspend(true, -1));
    EXPECT_EQ(2u, queue->releases().size());
    EXPECT_EQ(0, peer.unacquiredCount());
    EXPECT_EQ(1, peer.outstandingAcquires());
}

TEST_F(KorBufferSourcePacingTest, StopsGivingBackWhenAFrameCannotBeAcquired) {
    start(1);
    for (int64_t ms : {1, 2, 3}) ASSERT_GE(queueFrame(ms * kMs), 0);
    queue->setResult("acquireBuffer", INVALID_OPERATION);
    queue->clear();
    log.clear();
    EXPECT_EQ(OK, source->setSuspend(true, -1));
    EXPECT_THAT(queue->calls(), ElementsAre("acquireBuffer"));
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{ANDROID_LOG_WARN, kTag, "acquireBuffer_l: failed with err=-38"},
                            LogLine{ANDROID_LOG_WARN, kTag,
                                    "releaseAllAvailableBuffers: failed to acquire available "
                                    "unacquired buffer"}));
    EXPECT_EQ(2, peer.unacquiredCount());
}

TEST_F(KorBufferSourcePacingTest, GivesFramesBackAtOnceWhilePaused) {
    start(1);
    ASSERT_EQ(OK, source->setSuspend(true, -1));
    for (int64_t ms : {1, 2}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_EQ(2u, queue->releases().size());
    EXPECT_THAT(component->submissions(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(KorBufferSourcePacingTest, GivesFramesBackWhilePausedEvenWithAllCodecBuffersLent) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_EQ(OK, source->setSuspend(true, -1));
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_EQ(1u, queue->releases().size());
    EXPECT_EQ(0, peer.unacquiredCount());
}

TEST_F(KorBufferSourcePacingTest, LendsFramesAgainOnceResumed) {
    start(1);
    ASSERT_EQ(OK, source->setSuspend(true, -1));
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_EQ(OK, source->setSuspend(false, -1));
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(2000));
}

TEST_F(KorBufferSourcePacingTest, CanBePausedBeforeItIsStarted) {
    prepare(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_EQ(OK, source->setSuspend(true, -1));
    EXPECT_EQ(1u, queue->releases().size());
    EXPECT_EQ(OK, source->start());
    EXPECT_THAT(component->submissions(), IsEmpty());
}

// Pause and resume at a time.

TEST_F(KorBufferSourcePacingTest, RefusesATimeThatIsYetToCome) {
    const int64_t before = nowUs();
    const int64_t later = before + 10000000;
    EXPECT_EQ(INVALID_OPERATION, source->setSuspend(true, later));
    const auto lines = log.lines(kTag);
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(ANDROID_LOG_ERROR, lines[0].priority);
    const std::string start =
            "setSuspend failed. " + std::to_string(later) + " is larger than current system time ";
    ASSERT_EQ(0u, lines[0].message.find(start));
    size_t length = 0;
    const int64_t now = std::stoll(lines[0].message.substr(start.size()), &length);
    EXPECT_EQ(" us", lines[0].message.substr(start.size() + length));
    EXPECT_GE(now, before);
    EXPECT_LE(now, nowUs());
    EXPECT_THAT(peer.actionQueue(), IsEmpty());
    EXPECT_EQ(-1, peer.lastActionTimeUs());
}

TEST_F(KorBufferSourcePacingTest, RefusesATimeBeforeThatOfTheLastAction) {
    EXPECT_EQ(OK, source->setSuspend(true, 5000));
    EXPECT_EQ(INVALID_OPERATION, source->setSuspend(false, 4999));
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{
                        ANDROID_LOG_ERROR, kTag,
                        "setSuspend failed. 4999 is smaller than last action time 5000 us"}));
    EXPECT_EQ(OK, source->setSuspend(false, 5000));
    ASSERT_EQ(2u, peer.actionQueue().size());
    EXPECT_EQ(PAUSE, peer.actionQueue().front().mAction);
    EXPECT_EQ(5000, peer.actionQueue().front().mActionTimeUs);
    EXPECT_EQ(RESUME, peer.actionQueue().back().mAction);
}

TEST_F(KorBufferSourcePacingTest, RefusesToPauseOrResumeWhileAStopIsPending) {
    peer.stopTimeUs() = 0;
    EXPECT_EQ(INVALID_OPERATION, source->setSuspend(true, -1));
    EXPECT_EQ(INVALID_OPERATION, source->setSuspend(false, -1));
    EXPECT_EQ(INVALID_OPERATION, source->setSuspend(true, INT64_MAX));
    EXPECT_EQ(3u,
              log.count(ANDROID_LOG_ERROR, kTag, "setSuspend failed as STOP action is pending"));
    EXPECT_EQ(3u, log.lines().size());
    EXPECT_FALSE(peer.suspended());
}

TEST_F(KorBufferSourcePacingTest, PausesWithTheFirstFrameFromTheTimeOn) {
    start(4);
    ASSERT_EQ(OK, source->setSuspend(true, 2000));
    for (int64_t ms : {1, 2, 3}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(1000));
    EXPECT_EQ(2u, queue->releases().size());
    EXPECT_TRUE(peer.suspended());
    EXPECT_THAT(peer.actionQueue(), IsEmpty());
}

TEST_F(KorBufferSourcePacingTest, ResumesWithTheFirstFrameFromTheTimeOn) {
    start(4);
    ASSERT_EQ(OK, source->setSuspend(true, -1));
    ASSERT_EQ(OK, source->setSuspend(false, 2000));
    for (int64_t ms : {1, 2, 3}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(2000, 3000));
    EXPECT_FALSE(peer.suspended());
}

TEST_F(KorBufferSourcePacingTest, KeepsFramesForAScheduledResumeWhileAllCodecBuffersAreLent) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_EQ(OK, source->setSuspend(true, -1));
    ASSERT_EQ(OK, source->setSuspend(false, 2000));
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_EQ(1, peer.unacquiredCount());
}

TEST_F(KorBufferSourcePacingTest, AppliesTheLastOfSeveralActionsThatAreDue) {
    start(4);
    for (auto [suspend, time] : {std::pair(true, 1000), {false, 2000}, {true, 3000}}) {
        ASSERT_EQ(OK, source->setSuspend(suspend, time));
    }
    ASSERT_GE(queueFrame(2500000), 0);  // past pause and resume
    EXPECT_THAT(submittedTimes(), ElementsAre(2500));
    EXPECT_EQ(1u, peer.actionQueue().size());
    ASSERT_GE(queueFrame(3 * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(2500));
}

TEST_F(KorBufferSourcePacingTest, AppliesActionsByTheTimeWithoutOffset) {
    start(4);
    peer.inputTimeOffsetUs() = 5000;
    ASSERT_EQ(OK, source->setSuspend(true, 2000));
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(6000));
}

TEST_F(KorBufferSourcePacingDeathTest, AbortsOnAnUnknownAction) {
    start(1);
    peer.actionQueue().push_back({3, 0});
    EXPECT_DEATH(queueFrame(1 * kMs), fatalLine(691, "Should not be here. Unknown action type"));
}

// Stop.

TEST_F(KorBufferSourcePacingTest, EndsTheStreamWithAStop) {
    start(2);
    peer.actionQueue().push_back({STOP, 2000});
    const int32_t generation = peer.repeatGeneration();
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_THAT(component->endsOfStream(), ElementsAre(0));
    EXPECT_THAT(component->submissions(), IsEmpty());
    EXPECT_TRUE(peer.endOfStream());
    EXPECT_TRUE(peer.endOfStreamSent());
    EXPECT_THAT(peer.freeCodecBuffers(), ElementsAre(1));
    EXPECT_EQ(1u, queue->releases().size());
    EXPECT_EQ(generation + 2, peer.repeatGeneration());  // for the frame and for the end
}

TEST_F(KorBufferSourcePacingTest, GivesAllWaitingFramesBackWithAStop) {
    prepare(1);
    for (int64_t ms : {1, 2, 3}) ASSERT_GE(queueFrame(ms * kMs), 0);
    peer.actionQueue().push_back({STOP, 0});
    peer.actionQueue().push_back({PAUSE, 0});
    ASSERT_EQ(OK, source->start());
    EXPECT_EQ(3u, queue->releases().size());
    EXPECT_THAT(peer.actionQueue(), IsEmpty());
    EXPECT_FALSE(peer.suspended());
    EXPECT_THAT(component->endsOfStream(), ElementsAre(0));  // sent once
}

TEST_F(KorBufferSourcePacingTest, LooksAtNoActionBehindAStop) {
    start(2);
    peer.actionQueue().push_back({PAUSE, 0});
    peer.actionQueue().push_back({STOP, 0});
    peer.actionQueue().push_back({RESUME, 0});
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_THAT(component->endsOfStream(), ElementsAre(0));
    EXPECT_THAT(component->submissions(), IsEmpty());
}

TEST_F(KorBufferSourcePacingTest, IgnoresFramesBehindTheEndOfTheStream) {
    start(2);
    peer.actionQueue().push_back({STOP, 0});
    for (int64_t ms : {1, 2}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_THAT(log.lines(kTag), ElementsAre(LogLine{ANDROID_LOG_WARN, kTag,
                                                     "onFrameAvailable: EOS is sent, ignoring "
                                                     "frame"}));
    EXPECT_EQ(2u, queue->releases().size());
    EXPECT_THAT(component->submissions(), IsEmpty());
}

TEST_F(KorBufferSourcePacingTest, ReturnsTheCodecBufferOfTheEndWithAnErrorButQuietly) {
    start(1);
    peer.actionQueue().push_back({STOP, 0});
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_EQ(BAD_VALUE, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(peer.freeCodecBuffers(), ElementsAre(0));
    EXPECT_THAT(component->endsOfStream(), ElementsAre(0));
}

TEST_F(KorBufferSourcePacingTest, SendsTheEndOnceACodecBufferIsFree) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    peer.endOfStream() = true;
    EXPECT_THAT(component->endsOfStream(), IsEmpty());
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(component->endsOfStream(), ElementsAre(0));
}

TEST_F(KorBufferSourcePacingTest, WaitsWithTheEndWhileAStopTimeIsSet) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    peer.endOfStream() = true;
    peer.stopTimeUs() = 0;
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(component->endsOfStream(), IsEmpty());
}

TEST_F(KorBufferSourcePacingTest, SendsTheEndWhenStartedBehindIt) {
    prepare(1);
    peer.endOfStream() = true;
    ASSERT_EQ(OK, source->start());
    EXPECT_THAT(component->endsOfStream(), ElementsAre(0));
}

TEST_F(KorBufferSourcePacingTest, SendsNoEndWhenStartedWithAStopTime) {
    prepare(1);
    peer.endOfStream() = true;
    peer.stopTimeUs() = 0;
    ASSERT_EQ(OK, source->start());
    EXPECT_THAT(component->endsOfStream(), IsEmpty());
}

TEST_F(KorBufferSourcePacingTest, TriesTheEndAgainWhenTheComponentRefusesIt) {
    start(2);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    component->eosResult = UNKNOWN_ERROR;
    peer.actionQueue().push_back({STOP, 0});
    log.clear();
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_THAT(log.lines(kTag), ElementsAre(LogLine{ANDROID_LOG_WARN, kTag,
                                                     "emptyDirectBuffer EOS failed: 0x80000000"}));
    EXPECT_FALSE(peer.endOfStreamSent());
    EXPECT_THAT(peer.freeCodecBuffers(), ElementsAre(1));

    component->eosResult = OK;
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(component->endsOfStream(), ElementsAre(1, 1));
    EXPECT_TRUE(peer.endOfStreamSent());
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

TEST_F(TimeLapseTest, AppliesOnlyToRatesMoreThanTwiceApart) {
    startTimeLapse(15, 30);
    queueTimes({1000000});
    EXPECT_THAT(submittedTimes(), ElementsAre(1000000));
    EXPECT_EQ(-1, peer.prevCaptureUs());
    peer.fps() = 30.1;
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
}

}  // namespace
