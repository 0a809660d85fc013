// SPDX-License-Identifier: Apache-2.0
// The frame source paused, resumed and stopped, at once or from a frame on.
#include <optional>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <utils/Timers.h>

#include "support/FrameSourceTest.h"

namespace {

using android::BAD_VALUE;
using android::FrameActions;
using android::FrameTimes;
using android::INVALID_OPERATION;
using android::OK;
using android::UNKNOWN_ERROR;
using korvane::test::fatalLine;
using korvane::test::FrameSourceTest;
using korvane::test::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;

// What the source takes for now; nothing set is the clock's time.
std::optional<nsecs_t> gNow;

}  // namespace

extern "C" nsecs_t __real_systemTime(int clock);

extern "C" nsecs_t __wrap_systemTime(int clock) {
    EXPECT_EQ(SYSTEM_TIME_MONOTONIC, clock);
    return gNow.has_value() ? *gNow : __real_systemTime(clock);
}

namespace {

using KorBufferSourceActionsTest = FrameSourceTest;
using KorBufferSourceActionsDeathTest = FrameSourceTest;

constexpr int PAUSE = 0;
constexpr int RESUME = 1;
constexpr int STOP = 2;

// Pause and resume at once.

TEST_F(KorBufferSourceActionsTest, GivesAllWaitingFramesBackWhenPaused) {
    prepare(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);  // lent
    ASSERT_GE(queueFrame(2 * kMs), 0);  // parked
    ASSERT_EQ(OK, source->start());
    ASSERT_GE(queueFrame(3 * kMs), 0);  // in the queue
    ASSERT_GE(queueFrame(4 * kMs), 0);
    log.clear();
    EXPECT_EQ(OK, source->setSuspend(true, -1));
    EXPECT_THAT(log.lines(kTag), IsEmpty());
    EXPECT_EQ(3u, queue->releases().size());
    EXPECT_EQ(0, peer.unacquiredCount());
    EXPECT_EQ(1, peer.outstandingAcquires());
}

TEST_F(KorBufferSourceActionsTest, StopsGivingBackWhenAFrameCannotBeAcquired) {
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

TEST_F(KorBufferSourceActionsTest, GivesFramesBackAtOnceWhilePaused) {
    start(1);
    ASSERT_EQ(OK, source->setSuspend(true, -1));
    for (int64_t ms : {1, 2}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_EQ(2u, queue->releases().size());
    EXPECT_THAT(component->submissions(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(KorBufferSourceActionsTest, GivesFramesBackWhilePausedEvenWithAllCodecBuffersLent) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_EQ(OK, source->setSuspend(true, -1));
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_EQ(1u, queue->releases().size());
    EXPECT_EQ(0, peer.unacquiredCount());
}

TEST_F(KorBufferSourceActionsTest, LendsFramesAgainOnceResumed) {
    start(1);
    ASSERT_EQ(OK, source->setSuspend(true, -1));
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_EQ(OK, source->setSuspend(false, -1));
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(2000));
}

TEST_F(KorBufferSourceActionsTest, CanBePausedBeforeItIsStarted) {
    prepare(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_EQ(OK, source->setSuspend(true, -1));
    EXPECT_EQ(1u, queue->releases().size());
    EXPECT_EQ(OK, source->start());
    EXPECT_THAT(component->submissions(), IsEmpty());
    EXPECT_TRUE(peer.actions().isSuspended());
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_EQ(2u, queue->releases().size());
    EXPECT_THAT(component->submissions(), IsEmpty());
}

TEST_F(KorBufferSourceActionsTest, CanBeResumedBeforeItIsStarted) {
    prepare(2);
    ASSERT_EQ(OK, source->setSuspend(true, -1));
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_EQ(OK, source->setSuspend(false, -1));
    ASSERT_GE(queueFrame(2 * kMs), 0);  // parked
    EXPECT_EQ(OK, source->start());
    ASSERT_GE(queueFrame(3 * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(2000, 3000));
}

// Pause and resume at a time.

TEST_F(KorBufferSourceActionsTest, RefusesATimeThatIsYetToCome) {
    gNow = 5000999;
    EXPECT_EQ(INVALID_OPERATION, source->setSuspend(true, 5001));
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{
                        ANDROID_LOG_ERROR, kTag,
                        "setSuspend failed. 5001 is larger than current system time 5000 us"}));
    EXPECT_EQ(OK, source->setSuspend(true, 5000));
    gNow.reset();
}

TEST_F(KorBufferSourceActionsTest, RefusesATimeBeforeThatOfTheLastAction) {
    EXPECT_EQ(OK, source->setSuspend(true, 5000));
    EXPECT_EQ(INVALID_OPERATION, source->setSuspend(false, 4999));
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{
                        ANDROID_LOG_ERROR, kTag,
                        "setSuspend failed. 4999 is smaller than last action time 5000 us"}));
    EXPECT_EQ(OK, source->setSuspend(false, 5000));
}

TEST_F(KorBufferSourceActionsTest, LeavesScheduledActionsAloneWhenPausedAndResumedAtOnce) {
    start(4);
    ASSERT_EQ(OK, source->setSuspend(true, 5000));
    for (bool suspend : {true, false}) EXPECT_EQ(OK, source->setSuspend(suspend, -1));
    for (int64_t ms : {4, 5}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(4000));
}

TEST_F(KorBufferSourceActionsTest, RefusesToPauseOrResumeWhileAStopIsPending) {
    peer.actions() = FrameActions(0);
    EXPECT_EQ(INVALID_OPERATION, source->setSuspend(true, -1));
    EXPECT_EQ(INVALID_OPERATION, source->setSuspend(false, -1));
    EXPECT_EQ(INVALID_OPERATION, source->setSuspend(true, INT64_MAX));
    EXPECT_EQ(3u,
              log.count(ANDROID_LOG_ERROR, kTag, "setSuspend failed as STOP action is pending"));
    EXPECT_EQ(3u, log.lines().size());
    EXPECT_FALSE(peer.actions().isSuspended());
}

TEST_F(KorBufferSourceActionsTest, PausesWithTheFirstFrameFromTheTimeOn) {
    start(4);
    ASSERT_EQ(OK, source->setSuspend(true, 2000));
    for (int64_t ms : {1, 2, 3}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(1000));
    EXPECT_EQ(2u, queue->releases().size());
    EXPECT_TRUE(peer.actions().isDiscarding());  // nothing is queued any more
}

TEST_F(KorBufferSourceActionsTest, ResumesWithTheFirstFrameFromTheTimeOn) {
    start(4);
    ASSERT_EQ(OK, source->setSuspend(true, -1));
    ASSERT_EQ(OK, source->setSuspend(false, 2000));
    for (int64_t ms : {1, 2, 3}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(2000, 3000));
    EXPECT_FALSE(peer.actions().isSuspended());
}

TEST_F(KorBufferSourceActionsTest, KeepsFramesForAScheduledResumeWhileAllCodecBuffersAreLent) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_EQ(OK, source->setSuspend(true, -1));
    ASSERT_EQ(OK, source->setSuspend(false, 2000));
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_EQ(1, peer.unacquiredCount());
}

TEST_F(KorBufferSourceActionsTest, GoesOnWithAFrameKeptForAResumeOnceACodecBufferIsFree) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_EQ(OK, source->setSuspend(true, -1));
    ASSERT_EQ(OK, source->setSuspend(false, 3000));
    for (int64_t ms : {2, 3}) ASSERT_GE(queueFrame(ms * kMs), 0);
    ASSERT_EQ(2, peer.unacquiredCount());
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_EQ(1, peer.unacquiredCount());
    EXPECT_EQ(2u, queue->releases().size());  // the one that was lent, and one from before the time
    EXPECT_THAT(submittedTimes(), ElementsAre(1000));
    EXPECT_TRUE(peer.actions().isSuspended());

    ASSERT_GE(queueFrame(4 * kMs), 0);  // sets the next one going, which resumes
    EXPECT_THAT(submittedTimes(), ElementsAre(1000, 3000));
    EXPECT_FALSE(peer.actions().isSuspended());
    EXPECT_EQ(2u, queue->releases().size());
}

TEST_F(KorBufferSourceActionsTest, ResumesWithTheFrameThatACodecBufferComesBackFor) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_EQ(OK, source->setSuspend(true, -1));
    ASSERT_EQ(OK, source->setSuspend(false, 2000));
    ASSERT_GE(queueFrame(2 * kMs), 0);
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(submittedTimes(), ElementsAre(1000, 2000));
}

TEST_F(KorBufferSourceActionsTest, AppliesActionsByTheTimeCutTowardsZero) {
    start(4);
    peer.times() = FrameTimes(stats, {.inputTimeOffsetUs = 10});
    peer.actions().append({PAUSE, -1});
    ASSERT_GE(queueFrame(-2000), 0);
    ASSERT_GE(queueFrame(-1999), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(8));
    EXPECT_TRUE(peer.actions().isSuspended());
}

TEST_F(KorBufferSourceActionsTest, AppliesTheLastOfSeveralActionsThatAreDue) {
    start(4);
    for (auto [suspend, time] : {std::pair(true, 1000), {false, 2000}, {true, 3000}}) {
        ASSERT_EQ(OK, source->setSuspend(suspend, time));
    }
    ASSERT_GE(queueFrame(2500000), 0);  // past pause and resume
    EXPECT_THAT(submittedTimes(), ElementsAre(2500));
    ASSERT_GE(queueFrame(3 * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(2500));
}

TEST_F(KorBufferSourceActionsTest, AppliesAllActionsOfTheSameTimeWithTheFrameOfThatTime) {
    start(4);
    ASSERT_EQ(OK, source->setSuspend(true, 2000));
    ASSERT_EQ(OK, source->setSuspend(false, 2000));
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(2000));
}

TEST_F(KorBufferSourceActionsTest, GoesOnAfterTheFramesOfAPauseWhenStarted) {
    prepare(3);
    for (int64_t ms : {1, 2, 3}) ASSERT_GE(queueFrame(ms * kMs), 0);
    ASSERT_EQ(OK, source->setSuspend(true, 1000));
    ASSERT_EQ(OK, source->setSuspend(false, 3000));
    ASSERT_EQ(OK, source->start());
    EXPECT_THAT(submittedTimes(), ElementsAre(3000));
}

TEST_F(KorBufferSourceActionsTest, AppliesActionsByTheTimeWithoutOffset) {
    start(4);
    peer.times() = FrameTimes(stats, {.inputTimeOffsetUs = 5000});
    ASSERT_EQ(OK, source->setSuspend(true, 2000));
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(6000));
}

TEST_F(KorBufferSourceActionsDeathTest, AbortsOnAnUnknownAction) {
    start(1);
    peer.actions().append({3, 0});
    EXPECT_DEATH(queueFrame(1 * kMs), fatalLine(691, "Should not be here. Unknown action type"));
}

// Stop.

TEST_F(KorBufferSourceActionsTest, EndsTheStreamWithAStop) {
    start(2);
    peer.actions().append({STOP, 2000});
    const int32_t generation = peer.repetition().generation();
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_THAT(component->endsOfStream(), ElementsAre(0));
    EXPECT_THAT(component->submissions(), IsEmpty());
    EXPECT_EQ(State::ENDED, peer.state());
    EXPECT_THAT(freeCodecBuffers(), ElementsAre(1));
    EXPECT_EQ(1u, queue->releases().size());
    EXPECT_EQ(generation + 2, peer.repetition().generation());  // for the frame and for the end
}

TEST_F(KorBufferSourceActionsTest, StaysPausedWithAStop) {
    start(2);
    peer.actions().append({STOP, 2000});
    ASSERT_EQ(OK, source->setSuspend(true, -1));
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_THAT(component->endsOfStream(), ElementsAre(0));
    EXPECT_TRUE(peer.actions().isSuspended());
}

TEST_F(KorBufferSourceActionsTest, IsDoneWithAFrameThatStops) {
    prepare(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    peer.actions().append({STOP, 0});
    peer.state() = State::EXECUTING;
    EXPECT_TRUE(peer.fillCodecBuffer());
}

TEST_F(KorBufferSourceActionsTest, GivesAllWaitingFramesBackWithAStop) {
    prepare(1);
    for (int64_t ms : {1, 2, 3}) ASSERT_GE(queueFrame(ms * kMs), 0);
    peer.actions().append({STOP, 0});
    peer.actions().append({PAUSE, 0});
    ASSERT_EQ(OK, source->start());
    EXPECT_EQ(3u, queue->releases().size());
    EXPECT_FALSE(peer.actions().isSuspended());
    EXPECT_THAT(component->endsOfStream(), ElementsAre(0));  // sent once
}

TEST_F(KorBufferSourceActionsTest, LooksAtNoActionAfterAStop) {
    start(2);
    peer.actions().append({PAUSE, 0});
    peer.actions().append({STOP, 0});
    peer.actions().append({RESUME, 0});
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_THAT(component->endsOfStream(), ElementsAre(0));
    EXPECT_THAT(component->submissions(), IsEmpty());
}

TEST_F(KorBufferSourceActionsTest, IgnoresFramesAfterTheEndOfTheStream) {
    start(2);
    peer.actions().append({STOP, 0});
    for (int64_t ms : {1, 2}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_THAT(log.lines(kTag), ElementsAre(LogLine{ANDROID_LOG_WARN, kTag,
                                                     "onFrameAvailable: EOS is sent, ignoring "
                                                     "frame"}));
    EXPECT_EQ(2u, queue->releases().size());
    EXPECT_THAT(component->submissions(), IsEmpty());
}

TEST_F(KorBufferSourceActionsTest, GivesFramesAfterTheEndBackEvenWithAllCodecBuffersLent) {
    start(1);
    peer.actions().append({STOP, 0});
    for (int64_t ms : {1, 2}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_THAT(freeCodecBuffers(), IsEmpty());
    EXPECT_EQ(2u, queue->releases().size());
    EXPECT_EQ(0, peer.unacquiredCount());
}

TEST_F(KorBufferSourceActionsTest, StillLendsFramesBeforeTheEndIsSent) {
    start(2);
    component->eosResult = UNKNOWN_ERROR;
    peer.actions().append({STOP, 0});
    ASSERT_GE(queueFrame(1 * kMs), 0);  // asks for the end, which is refused
    ASSERT_EQ(State::ENDING, peer.state());
    log.clear();
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(2000));
    EXPECT_EQ(0u,
              log.count(ANDROID_LOG_WARN, kTag, "onFrameAvailable: EOS is sent, ignoring frame"));
}

TEST_F(KorBufferSourceActionsTest, LeavesFramesInTheQueueBeforeTheEndIsSent) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    peer.state() = State::ENDING;
    const int32_t generation = peer.repetition().generation();
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_EQ(1, peer.unacquiredCount());
    EXPECT_EQ(generation + 1, peer.repetition().generation());
    EXPECT_THAT(peer.availableBuffers(), IsEmpty());
}

TEST_F(KorBufferSourceActionsTest, ReturnsTheCodecBufferOfTheEndWithAnErrorButQuietly) {
    start(1);
    peer.actions().append({STOP, 0});
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_EQ(BAD_VALUE, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(freeCodecBuffers(), ElementsAre(0));
    EXPECT_THAT(component->endsOfStream(), ElementsAre(0));
}

TEST_F(KorBufferSourceActionsTest, SendsTheEndOnlyOnce) {
    start(2);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    peer.actions().append({STOP, 0});
    ASSERT_GE(queueFrame(2 * kMs), 0);
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(component->endsOfStream(), ElementsAre(1));
    EXPECT_THAT(freeCodecBuffers(), ElementsAre(0));
}

TEST_F(KorBufferSourceActionsTest, SendsTheEndOnceACodecBufferIsFree) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    peer.state() = State::ENDING;
    EXPECT_THAT(component->endsOfStream(), IsEmpty());
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(component->endsOfStream(), ElementsAre(0));
}

TEST_F(KorBufferSourceActionsTest, WaitsWithTheEndWhileAStopTimeIsSet) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    peer.state() = State::ENDING;
    peer.actions() = FrameActions(0);
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(component->endsOfStream(), IsEmpty());
}

TEST_F(KorBufferSourceActionsTest, TriesAnEndAgainThatWasRefusedWhileItWasStarted) {
    prepare(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    peer.actions().append({STOP, 0});
    component->eosResult = UNKNOWN_ERROR;
    ASSERT_EQ(OK, source->start());
    EXPECT_THAT(component->endsOfStream(), ElementsAre(0, 0));
    EXPECT_EQ(State::ENDING, peer.state());
}

TEST_F(KorBufferSourceActionsTest, SendsNoEndWhenStartedWithoutAStop) {
    prepare(1);
    ASSERT_EQ(OK, source->start());
    EXPECT_THAT(component->endsOfStream(), IsEmpty());
    EXPECT_EQ(State::EXECUTING, peer.state());
}

TEST_F(KorBufferSourceActionsTest, SendsNoEndAgainWhenStartedWhileAFrameWaits) {
    prepare(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    queue->setResult("acquireBuffer", INVALID_OPERATION);
    ASSERT_GE(queueFrame(2 * kMs), 0);
    peer.actions().append({STOP, 0});
    component->eosResult = UNKNOWN_ERROR;
    ASSERT_EQ(OK, source->start());
    EXPECT_EQ(1, peer.unacquiredCount());
    EXPECT_THAT(component->endsOfStream(), ElementsAre(0));
}

TEST_F(KorBufferSourceActionsTest, SendsNoEndAgainWhenStartedWithAStopTime) {
    prepare(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    peer.actions() = FrameActions(0);
    peer.actions().append({STOP, 0});
    component->eosResult = UNKNOWN_ERROR;
    ASSERT_EQ(OK, source->start());
    EXPECT_THAT(component->endsOfStream(), ElementsAre(0));
}

TEST_F(KorBufferSourceActionsTest, TriesTheEndAgainWhenTheComponentRefusesIt) {
    start(2);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    component->eosResult = UNKNOWN_ERROR;
    peer.actions().append({STOP, 0});
    log.clear();
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_THAT(log.lines(kTag), ElementsAre(LogLine{ANDROID_LOG_WARN, kTag,
                                                     "emptyDirectBuffer EOS failed: 0x80000000"}));
    EXPECT_EQ(State::ENDING, peer.state());
    EXPECT_THAT(freeCodecBuffers(), ElementsAre(1));

    component->eosResult = OK;
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(component->endsOfStream(), ElementsAre(1, 1));
    EXPECT_EQ(State::ENDED, peer.state());
}

}  // namespace
