// SPDX-License-Identifier: Apache-2.0
// The road of frames through the frame source to its component.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/FrameSourceTest.h"
#include "support/NoMoreDescriptors.h"

namespace {

using android::Fence;
using android::INVALID_OPERATION;
using android::NAME_NOT_FOUND;
using android::OK;
using android::sp;
using android::UNKNOWN_ERROR;
using korvane::test::failedCheck;
using korvane::test::FrameSourceTest;
using korvane::test::LogLine;
using korvane::test::ManualFence;
using korvane::test::NoMoreDescriptors;
using testing::ElementsAre;
using testing::IsEmpty;

using KorBufferSourceFramesTest = FrameSourceTest;
using KorBufferSourceFramesDeathTest = FrameSourceTest;

TEST_F(KorBufferSourceFramesTest, LendsFramesInTheCodecBuffersInTheirOrder) {
    start(3);
    const int first = queueFrame(1001999);
    const int second = queueFrame(2 * kMs);
    ASSERT_GE(first, 0);
    ASSERT_GE(second, 0);
    EXPECT_THAT(submittedIds(), ElementsAre(0, 1));
    EXPECT_THAT(submittedTimes(), ElementsAre(1001, 2000));
    EXPECT_EQ(producer.buffer(first)->getId(), component->submissions()[0].buffer->getId());
    EXPECT_EQ(producer.buffer(second)->getId(), component->submissions()[1].buffer->getId());
    EXPECT_THAT(freeCodecBuffers(), ElementsAre(2));
    EXPECT_EQ(2, peer.outstandingAcquires());
    EXPECT_THAT(queue->releases(), IsEmpty());
}

TEST_F(KorBufferSourceFramesTest, AcquiresTheNextFrameWhateverItsTimeAndNumber) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_EQ(0, queue->presentWhen);
    EXPECT_EQ(0u, queue->maxFrameNumber);
}

TEST_F(KorBufferSourceFramesTest, LendsAFinishedFrameWithoutAFence) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_EQ(-1, component->submissions()[0].fence->get());
}

TEST_F(KorBufferSourceFramesTest, LendsAFrameThatComesWithoutAFenceOfItsOwn) {
    start(1);
    queue->onAcquired = [](android::BufferItem* item) { item->mFence.clear(); };
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_EQ(-1, component->submissions()[0].fence->get());
    EXPECT_EQ(OK, source->onInputBufferEmptied(0, -1));
}

TEST_F(KorBufferSourceFramesTest, LendsAnUnfinishedFrameWithADuplicateOfItsFence) {
    start(1);
    ManualFence manual;
    const sp<Fence> fence = manual.fence();
    ASSERT_GE(producer.queue({.timestampNs = kMs, .fence = fence}), 0);
    const int fd = component->submissions()[0].fence->get();
    ASSERT_GE(fd, 0);
    EXPECT_NE(fence->get(), fd);
    const sp<Fence> given = new Fence(dup(fd));
    EXPECT_EQ(-ETIME, given->wait(0));
    manual.signal();
    EXPECT_EQ(OK, given->wait(0));
}

TEST_F(KorBufferSourceFramesTest, LendsAnUnfinishedFrameWithoutAFenceWhenThereIsNoDescriptorForIt) {
    start(1);
    ManualFence manual;
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_GE(producer.queue({.timestampNs = 2 * kMs, .fence = manual.fence()}), 0);
    {
        const NoMoreDescriptors none;
        ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    }
    ASSERT_EQ(2u, component->submissions().size());
    EXPECT_EQ(-1, component->submissions()[1].fence->get());
}

TEST_F(KorBufferSourceFramesTest, AcquiresFramesAtOnceBeforeItIsStarted) {
    prepare(0);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_EQ(2u, queue->count("acquireBuffer"));
    EXPECT_EQ(2u, peer.availableBuffers().size());
    EXPECT_EQ(0, peer.unacquiredCount());
    EXPECT_EQ(2, peer.outstandingAcquires());
}

TEST_F(KorBufferSourceFramesTest, LeavesFramesInTheQueueWhileAllCodecBuffersAreLent) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    const int32_t generation = peer.repetition().generation();
    queue->clear();
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_THAT(queue->calls(), IsEmpty());
    EXPECT_EQ(1, peer.unacquiredCount());
    EXPECT_EQ(generation + 1, peer.repetition().generation());

    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(queue->calls(), ElementsAre("releaseBuffer", "acquireBuffer"));
    EXPECT_EQ(0, peer.unacquiredCount());
    EXPECT_THAT(submittedIds(), ElementsAre(0, 0));
    EXPECT_THAT(submittedTimes(), ElementsAre(1000, 2000));
}

TEST_F(KorBufferSourceFramesTest, RaisesTheRepeatGenerationWithEveryAcceptedFrame) {
    start(2);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_EQ(2, peer.repetition().generation());
}

TEST_F(KorBufferSourceFramesTest, GivesFramesBackWhileThereIsNoComponent) {
    ASSERT_EQ(OK, producer.connect());
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_EQ(1u, queue->releases().size());
    EXPECT_EQ(OK, queue->releases()[0].result);
    EXPECT_EQ(0, peer.outstandingAcquires());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(KorBufferSourceFramesTest, LogsThatAFrameCannotBeAcquired) {
    start(1);
    queue->setResult("acquireBuffer", INVALID_OPERATION);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{ANDROID_LOG_WARN, kTag, "acquireBuffer_l: failed with err=-38"},
                            LogLine{ANDROID_LOG_ERROR, kTag,
                                    "onFrameAvailable: acquireBuffer returned err=-38"}));
    EXPECT_EQ(1, peer.unacquiredCount());
    EXPECT_EQ(0, peer.outstandingAcquires());
}

TEST_F(KorBufferSourceFramesTest, LogsThatAnAnnouncedFrameIsNotThere) {
    start(1);
    source->onFrameAvailable(android::BufferItem());
    EXPECT_THAT(
            log.lines(kTag),
            ElementsAre(LogLine{ANDROID_LOG_WARN, kTag, "acquireBuffer_l: frame was not available"},
                        LogLine{ANDROID_LOG_ERROR, kTag,
                                "onFrameAvailable: acquireBuffer returned err=2"}));
}

TEST_F(KorBufferSourceFramesTest, LogsThatAWaitingFrameCannotBeAcquired) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_GE(queueFrame(2 * kMs), 0);
    queue->setResult("acquireBuffer", INVALID_OPERATION);
    log.clear();
    EXPECT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{ANDROID_LOG_WARN, kTag, "acquireBuffer_l: failed with err=-38"},
                            LogLine{ANDROID_LOG_ERROR, kTag,
                                    "fillCodecBuffer_l: failed to acquire available buffer"}));
    EXPECT_THAT(freeCodecBuffers(), ElementsAre(0));
}

TEST_F(KorBufferSourceFramesTest, LendsTheParkedFramesBeforeThoseInTheQueue) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    peer.state() = State::IDLE;
    ASSERT_GE(queueFrame(2 * kMs), 0);  // parked
    peer.state() = State::EXECUTING;
    ASSERT_GE(queueFrame(3 * kMs), 0);  // in the queue
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(submittedTimes(), ElementsAre(1000, 2000));
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(submittedTimes(), ElementsAre(1000, 2000, 3000));
}

// Dataspaces.

TEST_F(KorBufferSourceFramesTest, AnnouncesTheDataspaceOfTheFirstFrame) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "got buffer with new dataSpace #10c60000"));
    ASSERT_EQ(1u, component->dataSpaceChanges().size());
    const auto change = component->dataSpaceChanges()[0];
    EXPECT_EQ(kDataSpace, change.dataSpace);
    EXPECT_EQ(0, change.aspects);
    EXPECT_EQ(35, change.pixelFormat);
}

TEST_F(KorBufferSourceFramesTest, AnnouncesTheLowestDataspaceOfAFirstFrameToo) {
    start(1);
    ASSERT_GE(producer.queue({.timestampNs = 1 * kMs, .dataSpace = 1}), 0);
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "got buffer with new dataSpace #1"));
}

TEST_F(KorBufferSourceFramesTest, AnnouncesADataspaceOnlyWhenItChanges) {
    start(3);
    ASSERT_GE(producer.queue({.timestampNs = 1 * kMs}), 0);
    ASSERT_GE(producer.queue({.timestampNs = 2 * kMs}), 0);
    EXPECT_EQ(1u, component->dataSpaceChanges().size());
    ASSERT_GE(producer.queue({.timestampNs = 3 * kMs, .dataSpace = 0x101}), 0);
    ASSERT_EQ(2u, component->dataSpaceChanges().size());
    EXPECT_EQ(0x101u, component->dataSpaceChanges()[1].dataSpace);  // as the frame has it
}

TEST_F(KorBufferSourceFramesTest, KeepsADataspaceWithoutAspectsToItself) {
    start(2);
    for (int64_t ms : {1, 2}) {
        ASSERT_GE(producer.queue({.timestampNs = ms * kMs, .dataSpace = 0x1000}), 0);
    }
    EXPECT_EQ(1u, log.count(ANDROID_LOG_DEBUG, kTag, "got buffer with new dataSpace #1000"));
    EXPECT_THAT(component->dataSpaceChanges(), IsEmpty());
    EXPECT_EQ(2u, component->submissions().size());
}

TEST_F(KorBufferSourceFramesTest, DoesNotAnnounceTheDataspaceOfAFrameThatItsTimeRefuses) {
    start(2);
    ASSERT_GE(producer.queue({.timestampNs = 2 * kMs}), 0);
    ASSERT_GE(producer.queue({.timestampNs = 1 * kMs, .dataSpace = 0x101}), 0);
    EXPECT_EQ(1u, component->dataSpaceChanges().size());
    EXPECT_FALSE(logged(ANDROID_LOG_DEBUG, "got buffer with new dataSpace #101"));
}

// What the component refuses.

TEST_F(KorBufferSourceFramesTest, KeepsTheCodecBufferOfAFrameThatTheComponentRefuses) {
    start(2);
    ManualFence manual;
    const sp<Fence> fence = manual.fence();
    component->submitResult = UNKNOWN_ERROR;
    ASSERT_GE(producer.queue({.timestampNs = 1 * kMs, .fence = fence}), 0);
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, "WARNING: emptyGraphicBuffer failed: 0x80000000"));
    EXPECT_THAT(freeCodecBuffers(), ElementsAre(0, 1));
    ASSERT_EQ(1u, queue->releases().size());
    EXPECT_EQ(fence, queue->releases()[0].fence);
    EXPECT_EQ(-1, peer.lastFrameTimestampUs());

    component->submitResult = OK;
    ASSERT_GE(queueFrame(2 * kMs), 0);
    EXPECT_THAT(submittedIds(), ElementsAre(0, 0));
    EXPECT_EQ(2000, peer.lastFrameTimestampUs());
}

TEST_F(KorBufferSourceFramesTest, TellsWhyAFrameIsNotSubmitted) {
    prepare(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    component->submitResult = NAME_NOT_FOUND;
    EXPECT_EQ(NAME_NOT_FOUND, peer.submitBuffer(peer.availableBuffers().front()));
    EXPECT_EQ(UNKNOWN_ERROR, peer.submitBuffer(peer.availableBuffers().front()));  // not later
}

TEST_F(KorBufferSourceFramesTest, GoesOnToTheNextParkedFrameWhenStartingWithARefusedOne) {
    prepare(1);
    for (int64_t ms : {1, 2}) ASSERT_GE(queueFrame(ms * kMs), 0);
    component->submitResult = UNKNOWN_ERROR;
    ASSERT_EQ(OK, source->start());
    EXPECT_THAT(submittedTimes(), ElementsAre(1000, 2000));
    EXPECT_EQ(2u, queue->releases().size());
}

// A client out of order.

TEST_F(KorBufferSourceFramesTest, GivesBackAFrameWhoseGraphicBufferItNeverGot) {
    start(1);
    queue->onAcquired = [](android::BufferItem* item) { item->mGraphicBuffer = nullptr; };
    const int slot = queueFrame(1 * kMs);
    ASSERT_GE(slot, 0);
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{ANDROID_LOG_WARN, kTag,
                                    "acquireBuffer_l: no graphic buffer known for slot " +
                                            std::to_string(slot)},
                            LogLine{ANDROID_LOG_ERROR, kTag,
                                    "onFrameAvailable: acquireBuffer returned err=-2"}));
    ASSERT_EQ(1u, queue->releases().size());
    EXPECT_EQ(OK, queue->releases()[0].result);
    EXPECT_EQ(0, peer.outstandingAcquires());
    EXPECT_EQ(0, peer.unacquiredCount());
    EXPECT_THAT(component->submissions(), IsEmpty());
}

TEST_F(KorBufferSourceFramesTest, TakesFramesOfOldestAndFarthestTime) {
    start(4);
    ASSERT_GE(queueFrame(INT64_MIN), 0);
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, "Dropping frame that's going backward in time"));
    ASSERT_GE(queueFrame(INT64_MAX), 0);
    EXPECT_THAT(submittedTimes(), ElementsAre(INT64_MAX / 1000));
}

// Broken invariants.

TEST_F(KorBufferSourceFramesDeathTest, AbortsWhenFillingBeforeTheStart) {
    prepare(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_DEATH(peer.fillCodecBuffer(),
                 failedCheck(604, "mExecuting && haveAvailableBuffers_l()"));
}

TEST_F(KorBufferSourceFramesDeathTest, AbortsWhenFillingWithoutAFrame) {
    start(1);
    EXPECT_DEATH(peer.fillCodecBuffer(),
                 failedCheck(604, "mExecuting && haveAvailableBuffers_l()"));
}

TEST_F(KorBufferSourceFramesDeathTest, AbortsWhenSubmittingWithoutACodecBuffer) {
    prepare(0);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_DEATH(peer.submitBuffer(peer.availableBuffers().front()),
                 failedCheck(886, "!mFreeCodecBuffers.empty()"));
}

TEST_F(KorBufferSourceFramesDeathTest, AbortsWhenAFrameWaitsAfterTheEndOfStream) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_GE(producer.queue({.timestampNs = 2 * kMs, .dataSpace = 0x101}), 0);
    peer.state() = State::ENDED;
    EXPECT_DEATH(
            {
                __android_log_set_logger(__android_log_stderr_logger);
                (void)source->onInputBufferEmptied(0, -1);
            },
            testing::AllOf(failedCheck(572, "!mEndOfStreamSent"),
                           testing::Not(testing::HasSubstr("dataSpace"))));  // not lent before
}

TEST_F(KorBufferSourceFramesDeathTest, AbortsWhenAnEndIsSentThatNobodyAskedFor) {
    start(1);
    EXPECT_DEATH(peer.submitEndOfInputStream(), failedCheck(926, "mEndOfStream"));
}

}  // namespace
