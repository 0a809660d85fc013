// SPDX-License-Identifier: Apache-2.0
// The frame source's view of the queue's slots, and the release of frames to it.
#include <cstdio>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/FrameSourceTest.h"

namespace {

using android::BAD_VALUE;
using android::OK;
using korvane::test::FrameSourceTest;
using korvane::test::LogLine;
using korvane::test::ManualFence;
using korvane::test::trespass;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using KorBufferSourceSlotsTest = FrameSourceTest;
using KorBufferSourceSlotsDeathTest = FrameSourceTest;

TEST_F(KorBufferSourceSlotsTest, RemembersTheGraphicBufferOfASlot) {
    start(1);
    ASSERT_EQ(0, queueFrame(1 * kMs));
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    bool withoutBuffer = false;
    queue->onAcquired = [&](android::BufferItem* item) {
        withoutBuffer = item->mGraphicBuffer == nullptr;
    };
    // The queue takes free buffers before empty slots.
    ASSERT_EQ(0, queueFrame(2 * kMs));
    EXPECT_TRUE(withoutBuffer);
    ASSERT_EQ(2u, component->submissions().size());
    EXPECT_EQ(component->submissions()[0].buffer, component->submissions()[1].buffer);
}

TEST_F(KorBufferSourceSlotsTest, ReplacesTheGraphicBufferOfASlot) {
    start(1);
    ASSERT_EQ(0, queueFrame(1 * kMs));
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    ASSERT_EQ(0, producer.queue({.timestampNs = 2 * kMs, .width = 128, .height = 64}));
    ASSERT_EQ(2u, component->submissions().size());
    EXPECT_EQ(128u, component->submissions()[1].buffer->getWidth());
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    ASSERT_EQ(2u, queue->releases().size());
    EXPECT_EQ(OK, queue->releases()[1].result);
    EXPECT_EQ(0, peer.outstandingAcquires());
}

TEST_F(KorBufferSourceSlotsTest, DoesNotReleaseTheFrameOfABufferThatWasReplaced) {
    start(2);
    ASSERT_EQ(0, queueFrame(1 * kMs));
    // The queue fills the slot anew although its frame is lent.
    queue->onAcquired = [](android::BufferItem* item) { item->mSlot = 0; };
    ASSERT_EQ(1, queueFrame(2 * kMs));
    EXPECT_EQ(1, peer.outstandingAcquires());
    EXPECT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(queue->releases(), IsEmpty());
    EXPECT_EQ(OK, source->onInputBufferEmptied(1, -1));
    ASSERT_EQ(1u, queue->releases().size());
    EXPECT_EQ(0, queue->releases()[0].slot);
    EXPECT_EQ(2u, queue->releases()[0].frameNumber);
    EXPECT_EQ(0, peer.outstandingAcquires());
}

TEST_F(KorBufferSourceSlotsTest, LogsReleasedSlotsThatItNeverSaw) {
    queue->lessReleased = ~uint64_t{0x88};
    source->onBuffersReleased();  // a new queue says that all are
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{ANDROID_LOG_WARN, kTag, "released unpopulated slots: [3, 7]"}));
}

TEST_F(KorBufferSourceSlotsTest, KeepsQuietWhenNoUnknownSlotIsReleased) {
    queue->lessReleased = ~uint64_t{0};
    source->onBuffersReleased();
    EXPECT_THAT(log.lines(), IsEmpty());
}

std::string numbersTo63From(int first) {
    std::string result = std::to_string(first);
    for (int i = first + 1; i < 64; ++i) result += ", " + std::to_string(i);
    return result;
}

TEST_F(KorBufferSourceSlotsTest, TakesAllSlotsForReleasedWhenTheQueueDoesNotSay) {
    start(2);
    ASSERT_EQ(0, queueFrame(1 * kMs));
    queue->setResult("getReleasedBuffers", BAD_VALUE);
    log.clear();
    source->onBuffersReleased();
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{ANDROID_LOG_WARN, kTag,
                                    "onBuffersReleased: unable to get released buffer set"},
                            LogLine{ANDROID_LOG_WARN, kTag,
                                    "released unpopulated slots: [" + numbersTo63From(1) + "]"}));
    EXPECT_EQ(0, peer.outstandingAcquires());
}

TEST_F(KorBufferSourceSlotsTest, ForgetsAReleasedSlotOnce) {
    start(1);
    ASSERT_EQ(0, queueFrame(1 * kMs));
    queue->moreReleased = 1;
    queue->lessReleased = ~uint64_t{1};
    log.clear();
    source->onBuffersReleased();
    EXPECT_THAT(log.lines(), IsEmpty());
    source->onBuffersReleased();
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, "released unpopulated slots: [0]"));
}

TEST_F(KorBufferSourceSlotsTest, KeepsAParkedFrameWhoseSlotIsReleased) {
    prepare(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_EQ(OK, producer.disconnect());
    EXPECT_EQ(0, peer.outstandingAcquires());
    ASSERT_EQ(OK, source->start());
    EXPECT_THAT(submittedTimes(), ElementsAre(1000));
    EXPECT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(queue->releases(), IsEmpty());  // the queue has forgotten it
    EXPECT_EQ(0, peer.outstandingAcquires());
}

TEST_F(KorBufferSourceSlotsTest, LeavesTheCountAloneWhenAReleasedSlotsBufferIsFree) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    ASSERT_EQ(OK, producer.disconnect());
    EXPECT_EQ(0, peer.outstandingAcquires());
}

TEST_F(KorBufferSourceSlotsTest, LendsTheFramesThatAProducerLeftInTheQueue) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_GE(queueFrame(2 * kMs), 0);
    ASSERT_EQ(OK, producer.disconnect());
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(submittedTimes(), ElementsAre(1000, 2000));
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    ASSERT_EQ(1u, queue->releases().size());
    EXPECT_EQ(1, queue->releases()[0].result);  // stale, which does no harm
    EXPECT_EQ(0, peer.outstandingAcquires());
}

TEST_F(KorBufferSourceSlotsTest, ServesTheProducerThatConnectsNext) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_EQ(OK, producer.disconnect());
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    ASSERT_EQ(OK, producer.connect());
    ASSERT_GE(queueFrame(2 * kMs), 0);
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(submittedTimes(), ElementsAre(1000, 2000));
    ASSERT_EQ(1u, queue->releases().size());
    EXPECT_EQ(OK, queue->releases()[0].result);
}

TEST_F(KorBufferSourceSlotsTest, DoesNotReleaseAFrameWhoseSlotTheNextProducerUses) {
    start(2);
    ASSERT_EQ(0, queueFrame(1 * kMs));
    ASSERT_EQ(OK, producer.disconnect());
    ASSERT_EQ(OK, producer.connect(4));
    ASSERT_EQ(0, queueFrame(2 * kMs));
    EXPECT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(queue->releases(), IsEmpty());
    EXPECT_EQ(OK, source->onInputBufferEmptied(1, -1));
    ASSERT_EQ(1u, queue->releases().size());
    EXPECT_EQ(OK, queue->releases()[0].result);
    EXPECT_EQ(0, peer.outstandingAcquires());
}

TEST_F(KorBufferSourceSlotsDeathTest, AbortsWhenAFenceComesForABufferThatTheQueueForgot) {
    start(1);
    ManualFence manual;
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_EQ(OK, producer.disconnect());
    EXPECT_DEATH((void)source->onInputBufferEmptied(0, manual.dup()), trespass(259));
}

TEST_F(KorBufferSourceSlotsDeathTest, AbortsWhenAFrameIsLetGoWithoutTheLock) {
    prepare(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    queue->onReleased = [] { fputs("given back", stderr); };
    EXPECT_DEATH(peer.availableBuffers().clear(),
                 AllOf(trespass(992), Not(HasSubstr("given back"))));
    queue->onReleased = [] {};
}

}  // namespace
