// SPDX-License-Identifier: Apache-2.0
// Codec buffers that come back to the frame source, and the frames in them to the queue.
#include <memory>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/DescriptorZero.h"
#include "support/FrameSourceTest.h"

namespace {

using android::BAD_VALUE;
using android::Fence;
using android::OK;
using android::sp;
using korvane::test::DescriptorZero;
using korvane::test::FrameSourceTest;
using korvane::test::isClosed;
using korvane::test::LogLine;
using korvane::test::ManualFence;
using testing::ElementsAre;

class KorBufferSourceReturnsTest : public FrameSourceTest {
  protected:
    /** Makes the one codec buffer, which is lent, look like one without a frame. */
    void forgetFrame() {
        android::Mutex::Autolock lock(peer.mutex());
        std::shared_ptr<android::AcquiredBuffer> frame;
        ASSERT_TRUE(peer.codecBuffers().takeBack(0, &frame));
        peer.codecBuffers().lendNext(nullptr);
    }
};

TEST_F(KorBufferSourceReturnsTest, RefusesAnUnknownCodecBufferAndClosesItsFence) {
    start(1);
    ManualFence manual;
    const int fd = manual.dup();
    EXPECT_EQ(BAD_VALUE, source->onInputBufferEmptied(0, fd));  // free, not lent
    EXPECT_TRUE(isClosed(fd));
    EXPECT_EQ(BAD_VALUE, source->onInputBufferEmptied(7, -1));
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag,
                                    "onInputBufferEmptied: buffer not recognized (bufferId=0)"},
                            LogLine{ANDROID_LOG_ERROR, kTag,
                                    "onInputBufferEmptied: buffer not recognized (bufferId=7)"}));
    EXPECT_THAT(freeCodecBuffers(), ElementsAre(0));
}

TEST_F(KorBufferSourceReturnsTest, ClosesAFenceWhoseDescriptorIsZero) {
    ManualFence manual;
    const DescriptorZero zero;
    ASSERT_EQ(STDIN_FILENO, manual.dup());
    EXPECT_EQ(BAD_VALUE, source->onInputBufferEmptied(7, STDIN_FILENO));
    EXPECT_TRUE(isClosed(STDIN_FILENO));
}

TEST_F(KorBufferSourceReturnsTest, RefusesACodecBufferThatComesBackTwice) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    EXPECT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_EQ(BAD_VALUE, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(freeCodecBuffers(), ElementsAre(0));
}

TEST_F(KorBufferSourceReturnsTest, ReleasesAFrameThatWasReadWithoutAFence) {
    start(1);
    ManualFence manual;
    const int slot = producer.queue({.timestampNs = 1 * kMs, .fence = manual.fence()});
    ASSERT_GE(slot, 0);
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    ASSERT_EQ(1u, queue->releases().size());
    EXPECT_EQ(slot, queue->releases()[0].slot);
    EXPECT_EQ(1u, queue->releases()[0].frameNumber);
    EXPECT_EQ(Fence::NO_FENCE, queue->releases()[0].fence);
    EXPECT_EQ(OK, queue->releases()[0].result);
    EXPECT_EQ(0, peer.outstandingAcquires());
    EXPECT_THAT(freeCodecBuffers(), ElementsAre(0));
}

TEST_F(KorBufferSourceReturnsTest, ReleasesAFrameWithTheFenceThatItCameBackWith) {
    start(1);
    ManualFence manual;
    const int fd = manual.dup();
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, fd));
    ASSERT_EQ(1u, queue->releases().size());
    EXPECT_EQ(fd, queue->releases()[0].fence->get());
}

TEST_F(KorBufferSourceReturnsTest, ReleasesAFrameThatComesBackWhenNotExecutingWithItsOwnFence) {
    start(1);
    ManualFence acquire;
    ManualFence release;
    const sp<Fence> fence = acquire.fence();
    const int fd = release.dup();
    ASSERT_GE(producer.queue({.timestampNs = 1 * kMs, .fence = fence}), 0);
    ASSERT_EQ(OK, configure());  // ends the execution
    EXPECT_EQ(OK, source->onInputBufferEmptied(0, fd));
    ASSERT_EQ(1u, queue->releases().size());
    EXPECT_EQ(fence, queue->releases()[0].fence);
    EXPECT_TRUE(isClosed(fd));
    EXPECT_THAT(freeCodecBuffers(), ElementsAre(0));
}

TEST_F(KorBufferSourceReturnsTest, RefusesALentCodecBufferWithoutAFrame) {
    start(1);
    ManualFence manual;
    const int fd = manual.dup();
    ASSERT_GE(queueFrame(1 * kMs), 0);
    forgetFrame();
    log.clear();
    EXPECT_EQ(BAD_VALUE, source->onInputBufferEmptied(0, fd));
    EXPECT_THAT(log.lines(kTag),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag,
                                    "onInputBufferEmptied: non-EOS null buffer (bufferId=0)"}));
    EXPECT_TRUE(isClosed(fd));
    EXPECT_THAT(freeCodecBuffers(), ElementsAre(0));
}

TEST_F(KorBufferSourceReturnsTest, LogsALentCodecBufferWithoutAFrameUnlessItEndedTheStream) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    forgetFrame();
    peer.state() = State::ENDING;  // asked for, but not sent
    log.clear();
    EXPECT_EQ(BAD_VALUE, source->onInputBufferEmptied(0, -1));
    EXPECT_EQ(1u, log.lines(kTag).size());
}

TEST_F(KorBufferSourceReturnsTest, GivesAFrameBackWhoseCodecBufferIsLentAgain) {
    prepare(1);
    ASSERT_EQ(OK, source->onInputBufferAdded(0));  // which is there already
    ASSERT_EQ(OK, source->start());
    for (int64_t ms : {1, 2}) ASSERT_GE(queueFrame(ms * kMs), 0);
    EXPECT_THAT(submittedIds(), ElementsAre(0, 0));
    ASSERT_EQ(1u, queue->releases().size());
    EXPECT_EQ(1u, queue->releases()[0].frameNumber);
    EXPECT_EQ(OK, source->onInputBufferEmptied(0, -1));
    ASSERT_EQ(2u, queue->releases().size());
    EXPECT_EQ(2u, queue->releases()[1].frameNumber);
}

TEST_F(KorBufferSourceReturnsTest, ReusesACodecBufferAfterThoseThatAreFree) {
    start(2);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    ASSERT_GE(queueFrame(2 * kMs), 0);
    ASSERT_GE(queueFrame(3 * kMs), 0);
    EXPECT_THAT(submittedIds(), ElementsAre(0, 1, 0));
}

TEST_F(KorBufferSourceReturnsTest, GoesOnForManyFrames) {
    start(2);
    for (int i = 0; i < 100; ++i) {
        ASSERT_GE(queueFrame((i + 1) * kMs), 0);
        ASSERT_EQ(OK, source->onInputBufferEmptied(i % 2, -1));
    }
    EXPECT_EQ(100u, component->submissions().size());
    EXPECT_EQ(100u, queue->releases().size());
    EXPECT_EQ(0, peer.outstandingAcquires());
}

}  // namespace
