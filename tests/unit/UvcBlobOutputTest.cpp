// SPDX-License-Identifier: Apache-2.0
// Blobs on their way to the host: how much of one is a JPEG, and what is refused.

#include <cstring>

#include <gmock/gmock.h>

#include "support/UvcBufferOutputTest.h"

using namespace korvane::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class UvcBlobOutputTest : public UvcBufferOutputTest {};

// --- Blobs ---

TEST_F(UvcBlobOutputTest, AFrameWithoutAStreamIsNotTaken) {
    ASSERT_EQ(0, mCtrl->open());
    mKernel.clearCalls();
    const auto blob = makeJpeg(100, 50);
    EXPECT_FALSE(queue(0, blob));
    EXPECT_THAT(mLog.lines(), ElementsAre(warning("Not streaming, quit early")));
    EXPECT_THAT(mKernel.calls(), IsEmpty());
    EXPECT_EQ(0, takeLocks(blob));
    EXPECT_EQ(1, blob->getStrongCount());
}

TEST_F(UvcBlobOutputTest, AJpegIsCopiedUpToItsSizeAndQueued) {
    streamJpeg();
    const auto blob = makeJpeg(1000, 600);
    const Bytes bytes = blobBytes(blob, 600);
    EXPECT_TRUE(queue(2, blob, {12, 345678}));
    EXPECT_EQ(bytes, lastFrame());
    EXPECT_EQ(0, mKernel.bufferContents(2)[600]);

    v4l2_buffer expected = {};
    expected.type = 2;
    expected.memory = V4L2_MEMORY_MMAP;
    expected.index = 2;
    expected.bytesused = 600;
    expected.timestamp = {12, 345678};
    ASSERT_THAT(mKernel.callNames(), ElementsAre("VIDIOC_QBUF"));
    EXPECT_TRUE(mKernel.calls()[0].is(expected));
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(UvcBlobOutputTest, AVendorsJpegIsOneToo) {
    streamJpeg();
    EXPECT_TRUE(queue(0, makeJpeg(1000, 600, 0xF0FF)));
    EXPECT_EQ(600u, queued().bytesused);
}

TEST_F(UvcBlobOutputTest, TheFootersSizeIsOverwrittenInTheCamerasBuffer) {
    streamJpeg();
    const auto blob = makeJpeg(1000, 600);
    queue(0, blob);
    const Bytes bytes = blobBytes(blob, 1000);
    uint32_t size;
    memcpy(&size, bytes.data() + 996, sizeof(size));
    EXPECT_EQ(1000u, size);
}

// Sent again as it is, the buffer now claims to be full.
TEST_F(UvcBlobOutputTest, AReadFooterSendsTheWholeCapacityTheNextTime) {
    streamJpeg();
    const auto blob = makeJpeg(1000, 600);
    queue(0, blob);
    queue(1, blob);
    EXPECT_EQ(1000u, queued(1).bytesused);
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(UvcBlobOutputTest, ABlobWithoutAFooterIsSentWhole) {
    streamJpeg();
    const auto blob = makeBlob(1000);
    EXPECT_TRUE(queue(0, blob));
    EXPECT_EQ(blobBytes(blob, 1000), lastFrame());
    EXPECT_THAT(mLog.lines(), ElementsAre(noHeader(1000)));
}

TEST_F(UvcBlobOutputTest, AFooterOfSizeZeroSendsTheWholeCapacity) {
    streamJpeg();
    EXPECT_TRUE(queue(0, makeJpeg(1000, 0)));
    EXPECT_EQ(1000u, queued().bytesused);
    EXPECT_THAT(mLog.lines(), ElementsAre(noHeader(1000)));
}

TEST_F(UvcBlobOutputTest, ABlobTooSmallForAFooterIsSentWhole) {
    streamJpeg();
    EXPECT_TRUE(queue(0, makeBlob(7)));
    EXPECT_EQ(7u, queued().bytesused);
    EXPECT_THAT(mLog.lines(), ElementsAre(noHeader(7)));
}

TEST_F(UvcBlobOutputTest, AJpegMayFillTheUvcBuffer) {
    streamJpeg();
    EXPECT_TRUE(queue(0, makeJpeg(kBlobLength + 100, kBlobLength)));
    EXPECT_EQ(kBlobLength, queued().bytesused);
}

TEST_F(UvcBlobOutputTest, AJpegLargerThanTheUvcBufferIsDropped) {
    streamJpeg();
    const auto blob = makeJpeg(kBlobLength + 100, kBlobLength + 1);
    EXPECT_FALSE(queue(0, blob));
    EXPECT_THAT(mLog.lines(), ElementsAre(tooLarge()));
    EXPECT_THAT(mKernel.calls(), IsEmpty());
    EXPECT_EQ(0, takeLocks(blob));
    EXPECT_EQ(1, blob->getStrongCount());
}

TEST_F(UvcBlobOutputTest, TheFooterOfADroppedJpegIsOverwrittenToo) {
    streamJpeg();
    const uint32_t capacity = kBlobLength + 100;
    const auto blob = makeJpeg(capacity, kBlobLength + 1);
    EXPECT_FALSE(queue(0, blob));
    const Bytes bytes = blobBytes(blob, capacity);
    uint32_t size;
    memcpy(&size, bytes.data() + capacity - sizeof(size), sizeof(size));
    EXPECT_EQ(capacity, size);
}

TEST_F(UvcBlobOutputTest, AJpegLargerThanItsOwnBlobIsDropped) {
    streamJpeg();
    for (uint32_t size : {1001u, kBlobLength, 0xFFFFFFFFu}) {
        mLog.clear();
        EXPECT_FALSE(queue(0, makeJpeg(1000, size)));
        EXPECT_THAT(mLog.lines(), ElementsAre(tooLarge()));
    }
    EXPECT_THAT(mKernel.calls(), IsEmpty());
}

TEST_F(UvcBlobOutputTest, ABlobThatTheCpuMayNotSeeIsRefused) {
    streamJpeg();
    sp<GraphicBuffer> blob =
            new GraphicBuffer(1000, 1, HAL_PIXEL_FORMAT_BLOB, 1, GraphicBuffer::USAGE_HW_TEXTURE);
    ASSERT_EQ(0, blob->initCheck());
    EXPECT_FALSE(queue(0, blob));
    EXPECT_THAT(mLog.lines(kTag), ElementsAre(error("null ptr for image dequeued")));
    EXPECT_THAT(mKernel.calls(), IsEmpty());
}

TEST_F(UvcBlobOutputTest, AnyOtherFormatIsTakenForABlobOfItsWidth) {
    streamJpeg();
    sp<GraphicBuffer> picture = new GraphicBuffer(640, 4, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage);
    EXPECT_TRUE(queue(0, picture));
    EXPECT_EQ(640u, queued().bytesused);
    EXPECT_THAT(mLog.lines(kTag), ElementsAre(noHeader(640)));
}

TEST_F(UvcBlobOutputTest, ABlobIsCopiedAsItIsIntoAnUncompressedStream) {
    streamYuyv();
    EXPECT_TRUE(queue(0, makeJpeg(1000, 600)));
    EXPECT_EQ(600u, queued().bytesused);
}

TEST_F(UvcBlobOutputTest, AnIndexBeyondTheBuffersIsRefused) {
    streamJpeg();
    const auto blob = makeJpeg(1000, 600);
    EXPECT_FALSE(queue(4, blob));
    EXPECT_FALSE(queue(0xFFFFFFFF, blob));
    EXPECT_THAT(mKernel.calls(), IsEmpty());
    EXPECT_THAT(mLog.lines(), ElementsAre(error("Failed queue for buffer: 4"),
                                          error("Failed queue for buffer: -1")));
    EXPECT_EQ(0, takeLocks(blob));
}

}  // namespace
