// SPDX-License-Identifier: Apache-2.0
// Queueing frames: sequence, locks and references, the dump, frames against starts and stops.

#include "support/UvcBufferOutputTest.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <thread>

#include <sys/mman.h>
#include <unistd.h>

#include <gmock/gmock.h>

using namespace korvane::test;
using testing::IsEmpty;

namespace {

// --- Queueing ---

TEST_F(UvcBufferOutputTest, SequenceNumbersCountQueuedBuffersAndRestartWithTheStream) {
    streamJpeg();
    queue(0, makeJpeg(100, 50));
    queue(1, makeJpeg(kBlobLength * 2, kBlobLength * 2));  // dropped
    mKernel.fail("VIDIOC_QBUF", EIO);
    queue(2, makeJpeg(100, 50));
    queue(3, makeJpeg(100, 50));
    EXPECT_EQ(0u, queued(0).sequence);
    EXPECT_EQ(1u, queued(1).sequence);  // the one that failed
    EXPECT_EQ(1u, queued(2).sequence);

    event(UVC_EVENT_STREAMOFF);
    event(UVC_EVENT_STREAMON);
    mKernel.clearCalls();
    queue(0, makeJpeg(100, 50));
    EXPECT_EQ(0u, queued(0).sequence);
}

TEST_F(UvcBufferOutputTest, AQueuedFrameIsHeldLockedUntilItsBufferComesBack) {
    streamJpeg();
    const auto blob = makeJpeg(100, 50);
    queue(1, blob, {0, 0}, 77);
    EXPECT_EQ(2, blob->getStrongCount());
    mListener.onEmptied = [&](UvcBufInfo* record) {
        EXPECT_EQ(blob, record->graphicBuffer);
        EXPECT_EQ(0, takeLocks(blob));
    };
    sendOne();
    ASSERT_EQ(1u, mListener.emptied.size());
    EXPECT_EQ(1u, mListener.emptied[0].index);
    EXPECT_EQ(77, mListener.emptied[0].fenceFd);
    EXPECT_EQ(3u, mListener.emptied[0].kind);
    EXPECT_EQ(kBlobLength, mListener.emptied[0].length);
    mListener.emptied.clear();
    EXPECT_EQ(1, blob->getStrongCount());
}

TEST_F(UvcBufferOutputTest, AQueuedFrameHasJustOneLock) {
    streamJpeg();
    const auto blob = makeJpeg(100, 50);
    queue(1, blob);
    EXPECT_EQ(1, takeLocks(blob));
}

TEST_F(UvcBufferOutputTest, ARefusedBufferKeepsItsFrameUntilTheStreamStops) {
    streamJpeg();
    const auto blob = makeJpeg(100, 50);
    mKernel.fail("VIDIOC_QBUF", EINVAL);
    EXPECT_FALSE(queue(3, blob));
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, kTag, "Failed queue for buffer: 3"));
    EXPECT_EQ(2, blob->getStrongCount());
    mLog.clear();
    event(UVC_EVENT_STREAMOFF);
    EXPECT_EQ(1, blob->getStrongCount());
    EXPECT_THAT(mLog.lines(), IsEmpty());
    EXPECT_EQ(0, takeLocks(blob));
}

TEST_F(UvcBufferOutputTest, TheNextFrameReplacesOneThatTheDriverRefused) {
    streamJpeg();
    const auto refused = makeJpeg(100, 50);
    const auto next = makeJpeg(100, 60);
    mKernel.fail("VIDIOC_QBUF", EINVAL);
    queue(0, refused);
    EXPECT_TRUE(queue(0, next));
    EXPECT_EQ(1, refused->getStrongCount());
    EXPECT_EQ(2, next->getStrongCount());
    EXPECT_EQ(0, takeLocks(refused));
    EXPECT_EQ(1, takeLocks(next));
}

TEST_F(UvcBufferOutputTest, ARefusedFrameMayComeAgain) {
    streamJpeg();
    const auto blob = makeJpeg(100, 50);
    mKernel.fail("VIDIOC_QBUF", EINVAL);
    queue(0, blob);
    EXPECT_TRUE(queue(0, blob));
    EXPECT_EQ(1, takeLocks(blob));
}

TEST_F(UvcBufferOutputTest, StoppingUnlocksAndDropsEveryQueuedFrame) {
    streamJpeg();
    std::vector<sp<GraphicBuffer>> blobs;
    for (uint32_t i = 0; i < 4; ++i) {
        blobs.push_back(makeJpeg(100, 50));
        EXPECT_TRUE(queue(i, blobs.back()));
    }
    event(UVC_EVENT_STREAMOFF);
    EXPECT_THAT(mLog.lines(), IsEmpty());
    for (const auto& blob : blobs) {
        EXPECT_EQ(1, blob->getStrongCount());
        EXPECT_EQ(0, takeLocks(blob));
    }
    EXPECT_THAT(mListener.emptied, IsEmpty());
}

// --- The dump ---

class UvcDumpTest : public UvcBufferOutputTest {
  protected:
    ~UvcDumpTest() override { ::close(mDump); }

    void startDump() { ASSERT_TRUE(mCtrl->dumpFramesTo(fdopen(dup(mDump), "wb"))); }
    Bytes dumped() const {
        Bytes bytes(2000000);
        const ssize_t size = pread(mDump, bytes.data(), bytes.size(), 0);
        bytes.resize(std::max<ssize_t>(size, 0));
        return bytes;
    }

    const int mDump = memfd_create("dump", MFD_CLOEXEC);
};

TEST_F(UvcDumpTest, GetsEveryQueuedFrameAndIsClosedWithTheStream) {
    streamYuyv();
    startDump();
    const auto blob = makeJpeg(1000, 600);
    queue(0, blob);
    queue(1, makePicture(64, 32));
    event(UVC_EVENT_STREAMOFF);
    Bytes expected = blobBytes(blob, 600);
    const Bytes picture = pictureAsYuyv(64, 32);
    expected.insert(expected.end(), picture.begin(), picture.end());
    EXPECT_EQ(expected, dumped());

    event(UVC_EVENT_STREAMON);
    queue(0, makeJpeg(1000, 500));
    event(UVC_EVENT_STREAMOFF);
    EXPECT_EQ(expected, dumped());
}

TEST_F(UvcDumpTest, GetsNoMoreOfATooLargePictureThanTheBufferHolds) {
    streamYuyv(100);
    mKernel.fillBuffers(0xCD);
    startDump();
    queue(0, makePicture(640, 480));
    event(UVC_EVENT_STREAMOFF);
    EXPECT_EQ(Bytes(100, 0xCD), dumped());
}

TEST_F(UvcDumpTest, GetsNothingOfADroppedBlob) {
    streamJpeg();
    startDump();
    queue(0, makeJpeg(kBlobLength * 2, kBlobLength * 2));
    event(UVC_EVENT_STREAMOFF);
    EXPECT_THAT(dumped(), IsEmpty());
}

// --- Threads ---

TEST_F(UvcBufferOutputTest, FramesFromAnotherThreadMeetStartsAndStops) {
    ASSERT_EQ(0, mCtrl->open());
    select(kCommit, kUncompressed, kSmallFrame);
    mKernel.setBufferLength(64 * 32 * 2);
    mKernel.setAutoSend(true);
    std::vector<sp<GraphicBuffer>> pictures;
    for (int i = 0; i < 4; ++i) pictures.push_back(makePicture(64, 32));

    std::atomic<bool> done{false};
    std::atomic<int> taken{0};
    std::thread camera([&] {
        for (uint32_t i = 0; !done; ++i) {
            if (queue(i % 4, pictures[i % 4])) ++taken;
            mCtrl->isStreaming();
            mCtrl->getStreamSettings();
        }
    });
    for (int round = 0; round < 20; ++round) {
        const int before = taken;
        event(UVC_EVENT_STREAMON);
        while (taken < before + 5) {
            if (nodeIsWritable()) writable();
            select(kCommit, kUncompressed, round % 2 + 1);
        }
        event(UVC_EVENT_STREAMOFF);
    }
    done = true;
    camera.join();
    mCtrl->close();
    EXPECT_EQ(0u, mKernel.openMappings());
    EXPECT_EQ(0u, mKernel.openDescriptors());
    mListener.emptied.clear();
    for (const auto& picture : pictures) EXPECT_EQ(0, takeLocks(picture));
}

}  // namespace
