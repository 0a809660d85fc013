// SPDX-License-Identifier: Apache-2.0
// Sent buffers come back and are handed to the listener, which may queue the next frame.

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <gmock/gmock.h>

#include "support/DescriptorZero.h"
#include "support/OpenDescriptors.h"
#include "support/UvcBufferOutputTest.h"

using namespace korvane::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class UvcBufferReturnTest : public UvcBufferOutputTest {};

// --- Getting buffers back ---

TEST_F(UvcBufferReturnTest, TakesABufferBackWithAZeroedBlock) {
    streamJpeg();
    queue(2, makeJpeg(100, 50));
    mKernel.clearCalls();
    sendOne();
    v4l2_buffer expected = {};
    expected.type = 2;
    expected.memory = V4L2_MEMORY_MMAP;
    ASSERT_THAT(mKernel.callNames(), ElementsAre("VIDIOC_DQBUF"));
    EXPECT_TRUE(mKernel.calls()[0].is(expected));
}

TEST_F(UvcBufferReturnTest, BuffersComeBackInTheOrderOfTheDriver) {
    streamJpeg();
    for (uint32_t index : {3, 1, 0, 2}) queue(index, makeJpeg(100, 50));
    for (int i = 0; i < 4; ++i) sendOne();
    std::vector<uint32_t> indices;
    for (const UvcBufInfo& record : mListener.emptied) indices.push_back(record.index);
    EXPECT_THAT(indices, ElementsAre(3, 1, 0, 2));
}

TEST_F(UvcBufferReturnTest, ABufferWithoutAFrameIsReportedToo) {
    streamJpeg();
    EXPECT_EQ(0, giveBack(3));
    ASSERT_EQ(1u, mListener.emptied.size());
    EXPECT_EQ(3u, mListener.emptied[0].index);
    EXPECT_EQ(nullptr, mListener.emptied[0].graphicBuffer);
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(UvcBufferReturnTest, AFailedWriteReportsNothing) {
    streamJpeg();
    const auto blob = makeJpeg(100, 50);
    queue(0, blob);
    mKernel.fail("VIDIOC_DQBUF", EIO);
    EXPECT_EQ(0, writable());
    EXPECT_THAT(mListener.events, IsEmpty());
    sendOne();
    EXPECT_THAT(mListener.events, ElementsAre("emptied"));
    EXPECT_EQ(0, takeLocks(blob));
}

TEST_F(UvcBufferReturnTest, AnIndexInventedByTheDriverIsAFailedWrite) {
    streamJpeg();
    for (int i = 0; i < 5; ++i) EXPECT_EQ(i < 4 ? 0 : -1, giveBack(4));
    EXPECT_THAT(mListener.events, ElementsAre("stop"));
}

TEST_F(UvcBufferReturnTest, AWriteBeforeAnyStreamIsAFailedWrite) {
    ASSERT_EQ(0, mCtrl->open());
    for (int i = 0; i < 5; ++i) EXPECT_EQ(i < 4 ? 0 : -1, giveBack(0));
    EXPECT_THAT(mListener.events, IsEmpty());
}

TEST_F(UvcBufferReturnTest, TheFencesOfFramesOnTheirWayAreClosedWhenTheStreamStops) {
    streamJpeg();
    const int fence = eventfd(0, EFD_CLOEXEC);
    queue(0, makeJpeg(100, 50), {0, 0}, fence);
    mCtrl->close();
    EXPECT_EQ(-1, fcntl(fence, F_GETFD));
}

TEST_F(UvcBufferReturnTest, TheFenceOfARefusedFrameStaysTheCallers) {
    streamJpeg();
    const int fence = eventfd(0, EFD_CLOEXEC);
    mKernel.fail("VIDIOC_QBUF", EINVAL);
    EXPECT_FALSE(queue(0, makeJpeg(100, 50), {0, 0}, fence));
    mCtrl->close();
    EXPECT_EQ(0, close(fence));
}

// As when a surface replaces another whose frame the driver still has.
TEST_F(UvcBufferReturnTest, ABufferThatIsStillOnItsWayGivesUpItsFenceToARefusedFrame) {
    streamJpeg();
    const auto refused = makeJpeg(100, 60);
    const int fence = eventfd(0, EFD_CLOEXEC);
    const int refusedFence = eventfd(0, EFD_CLOEXEC);
    EXPECT_TRUE(queue(0, makeJpeg(100, 50), {0, 0}, fence));
    EXPECT_FALSE(queue(0, refused, {0, 0}, refusedFence));
    EXPECT_EQ(-1, fcntl(fence, F_GETFD));
    EXPECT_EQ(0, close(refusedFence));
    sendOne();
    EXPECT_EQ(-1, mListener.emptied[0].fenceFd);
    EXPECT_EQ(refused, mListener.emptied[0].graphicBuffer);
    EXPECT_EQ(0, takeLocks(refused));
}

TEST_F(UvcBufferReturnTest, AFenceThatWasHandedOnIsLeftAlone) {
    streamJpeg();
    const int fence = eventfd(0, EFD_CLOEXEC);
    queue(0, makeJpeg(100, 50), {0, 0}, fence);
    sendOne();
    EXPECT_EQ(fence, mListener.emptied[0].fenceFd);
    mCtrl->close();
    EXPECT_EQ(0, close(fence));
}

TEST_F(UvcBufferReturnTest, AFenceIsHandedOnOnce) {
    streamJpeg();
    const int fence = eventfd(0, EFD_CLOEXEC);
    queue(0, makeJpeg(100, 50), {0, 0}, fence);
    sendOne();
    EXPECT_EQ(0, giveBack(0));
    ASSERT_EQ(2u, mListener.emptied.size());
    EXPECT_EQ(-1, mListener.emptied[1].fenceFd);
    EXPECT_EQ(0, close(fence));
}

TEST_F(UvcBufferReturnTest, AFenceOfDescriptorZeroIsClosedWhenTheStreamStops) {
    streamJpeg();
    const auto blob = makeJpeg(100, 50);
    const android::base::unique_fd event(eventfd(0, EFD_CLOEXEC));
    const DescriptorZero zero;
    ASSERT_EQ(0, dup(event.get()));
    queue(0, blob, {0, 0}, 0);
    mCtrl->close();
    EXPECT_EQ(-1, fcntl(0, F_GETFD));
}

TEST_F(UvcBufferReturnTest, ARecordKeepsItsIndexWhenTheListenerEndsTheStream) {
    streamJpeg();
    queue(2, makeJpeg(100, 50));
    uint32_t index = 0;
    mListener.onEmptied = [&](UvcBufInfo* record) {
        mCtrl->close();
        index = record->index;
    };
    sendOne();
    EXPECT_EQ(2u, index);
}

TEST_F(UvcBufferReturnTest, TheNextFrameMayBeQueuedFromWithinTheListener) {
    streamJpeg();
    const auto first = makeJpeg(100, 50);
    const auto next = makeJpeg(100, 60);
    const int fence = eventfd(0, EFD_CLOEXEC);
    queue(0, first);
    mListener.onEmptied = [&](UvcBufInfo* record) {
        EXPECT_TRUE(queue(record->index, next, {0, 0}, fence));
    };
    sendOne();
    mListener.onEmptied = nullptr;
    mListener.emptied.clear();
    EXPECT_EQ(1, first->getStrongCount());
    EXPECT_EQ(2, next->getStrongCount());

    sendOne();
    EXPECT_EQ(next, mListener.emptied.back().graphicBuffer);
    EXPECT_EQ(fence, mListener.emptied.back().fenceFd);
    EXPECT_EQ(0, close(fence));
    mListener.emptied.clear();
    EXPECT_EQ(1, next->getStrongCount());
    EXPECT_THAT(mLog.lines(), IsEmpty());
    EXPECT_EQ(0, takeLocks(first));
    EXPECT_EQ(0, takeLocks(next));
}

// A surface that replaces another may put its first frame into the buffer that is just coming back.
TEST_F(UvcBufferReturnTest, WhatCameBackStaysWhatItWasWhenItsBufferTakesTheNextFrame) {
    streamJpeg();
    const auto first = makeJpeg(100, 50);
    const auto next = makeJpeg(100, 60);
    const int fence = eventfd(0, EFD_CLOEXEC);
    const int nextFence = eventfd(0, EFD_CLOEXEC);
    queue(2, first, {0, 0}, fence);
    mListener.onEmptied = [&](UvcBufInfo* record) {
        EXPECT_TRUE(queue(2, next, {0, 0}, nextFence));
        EXPECT_EQ(2u, record->index);
        EXPECT_EQ(fence, record->fenceFd);
        EXPECT_EQ(first, record->graphicBuffer);
        EXPECT_EQ(0, close(record->fenceFd));
    };
    sendOne();
    mListener.onEmptied = nullptr;
    EXPECT_NE(-1, fcntl(nextFence, F_GETFD));
    mCtrl->close();
    EXPECT_EQ(-1, fcntl(nextFence, F_GETFD));
}

TEST_F(UvcBufferReturnTest, WhatCameBackStaysWhatItWasWhenTheStreamIsAnotherOne) {
    streamJpeg();
    const auto next = makeJpeg(100, 60);
    const int fence = eventfd(0, EFD_CLOEXEC);
    const int nextFence = eventfd(0, EFD_CLOEXEC);
    queue(1, makeJpeg(100, 50), {0, 0}, fence);
    mListener.onEmptied = [&](UvcBufInfo* record) {
        event(UVC_EVENT_STREAMOFF);
        event(UVC_EVENT_STREAMON);
        EXPECT_TRUE(queue(1, next, {0, 0}, nextFence));
        EXPECT_EQ(1u, record->index);
        EXPECT_EQ(fence, record->fenceFd);
    };
    sendOne();
    mListener.onEmptied = nullptr;
    EXPECT_EQ(0, close(fence));
    sendOne();
    EXPECT_EQ(nextFence, mListener.emptied.back().fenceFd);
    EXPECT_EQ(next, mListener.emptied.back().graphicBuffer);
    EXPECT_EQ(0, close(nextFence));
}

// Frames of one thread replace each other while the driver gives them back to another. A fence that
// was closed twice would take a descriptor away that has been given out anew meanwhile.
TEST_F(UvcBufferReturnTest, EveryFenceIsGivenBackOrClosedOnceWhileFramesReplaceEachOther) {
    streamJpeg();
    const std::vector blobs{makeJpeg(100, 50), makeJpeg(100, 60)};
    const android::base::unique_fd original(eventfd(0, EFD_CLOEXEC));
    const int descriptors = countOpenDescriptors();
    std::atomic<int> failures{0};
    mListener.onEmptied = [&](UvcBufInfo* record) {
        mListener.emptied.clear();
        mListener.events.clear();
        std::this_thread::yield();
        if (record->index != 0) ++failures;
        if (record->fenceFd >= 0 && close(record->fenceFd) != 0) ++failures;
    };
    std::atomic<bool> done{false};
    std::thread surfaces([&] {
        for (int i = 0; i < 20000; ++i) {
            const int fence = fcntl(original.get(), F_DUPFD_CLOEXEC, 0);
            if (!queue(0, blobs[i % 2], {0, 0}, fence) && close(fence) != 0) ++failures;
        }
        done = true;
    });
    while (!done) {
        if (mKernel.send()) writable();
    }
    surfaces.join();
    event(UVC_EVENT_STREAMOFF);
    EXPECT_EQ(0, failures);
    EXPECT_EQ(descriptors, countOpenDescriptors());
    for (const auto& blob : blobs) EXPECT_EQ(0, takeLocks(blob));
}

TEST_F(UvcBufferReturnTest, WithoutAListenerTheFenceIsClosed) {
    streamJpeg();
    const int fence = eventfd(0, EFD_CLOEXEC);
    queue(0, makeJpeg(100, 50), {0, 0}, fence);
    mCtrl->setEventListener(nullptr);
    sendOne();
    EXPECT_EQ(-1, fcntl(fence, F_GETFD));
}

TEST_F(UvcBufferReturnTest, TheSameFrameMayBeQueuedAgainFromWithinTheListener) {
    streamJpeg();
    const auto blob = makeJpeg(100, 50);
    queue(0, blob);
    mListener.onEmptied = [&](UvcBufInfo* record) { queue(record->index, blob); };
    sendOne();
    mListener.emptied.clear();
    EXPECT_EQ(2, blob->getStrongCount());
    EXPECT_THAT(mLog.lines(), IsEmpty());
    EXPECT_EQ(1, takeLocks(blob));
}

TEST_F(UvcBufferReturnTest, AFrameQueuedElsewhereFromWithinTheListenerLeavesTheReturnedOne) {
    streamJpeg();
    const auto first = makeJpeg(100, 50);
    const auto next = makeJpeg(100, 60);
    queue(0, first);
    mListener.onEmptied = [&](UvcBufInfo*) { queue(1, next); };
    sendOne();
    mListener.emptied.clear();
    EXPECT_EQ(1, first->getStrongCount());
    EXPECT_EQ(2, next->getStrongCount());
}

TEST_F(UvcBufferReturnTest, AStreamClosedFromWithinTheListenerUnlocksEachFrameOnce) {
    streamJpeg();
    const auto sent = makeJpeg(100, 50);
    const auto waiting = makeJpeg(100, 60);
    queue(0, sent);
    queue(1, waiting);
    mListener.onEmptied = [&](UvcBufInfo*) { mCtrl->close(); };
    sendOne();
    mListener.emptied.clear();
    EXPECT_THAT(mLog.lines(), IsEmpty());
    for (const auto& blob : {sent, waiting}) {
        EXPECT_EQ(0, takeLocks(blob));
    }
    EXPECT_EQ(0u, mKernel.openMappings());
}

TEST_F(UvcBufferReturnTest, AStreamClosedFromWithinTheListenerStartsAgain) {
    streamJpeg();
    queue(0, makeJpeg(100, 50));
    mListener.onEmptied = [&](UvcBufInfo*) { mCtrl->close(); };
    sendOne();
    mListener.onEmptied = nullptr;
    streamJpeg();
    const auto blob = makeJpeg(100, 50);
    EXPECT_TRUE(queue(0, blob));
    event(UVC_EVENT_STREAMOFF);
    EXPECT_EQ(0, takeLocks(blob));
}

TEST_F(UvcBufferReturnTest, DestructionDropsTheFramesItHeld) {
    streamJpeg();
    const auto blob = makeJpeg(100, 50);
    queue(0, blob);
    mCtrl.reset();
    EXPECT_EQ(1, blob->getStrongCount());
}

}  // namespace
