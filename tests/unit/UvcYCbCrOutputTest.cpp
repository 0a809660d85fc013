// SPDX-License-Identifier: Apache-2.0
// Pictures on their way to the host: copied as NV12, converted to YUYV.

#include <utility>

#include <gmock/gmock.h>

#include "support/UvcBufferOutputTest.h"

using namespace korvane::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class UvcYCbCrOutputTest : public UvcBufferOutputTest {
  protected:
    static sp<GraphicBuffer> makeUnreadablePicture() {
        return new GraphicBuffer(640, 480, HAL_PIXEL_FORMAT_YCbCr_420_888, 1,
                                 GraphicBuffer::USAGE_HW_TEXTURE);
    }
};

// --- YCbCr ---

TEST_F(UvcYCbCrOutputTest, AnNv12StreamCopiesThePlanes) {
    streamNv12();
    const auto picture = makePicture(640, 480);
    EXPECT_TRUE(queue(1, picture, {1, 2}));
    EXPECT_EQ(640u * 480 * 3 / 2, queued().bytesused);
    EXPECT_EQ(1, queued().timestamp.tv_sec);
    EXPECT_EQ(2, queued().timestamp.tv_usec);
    EXPECT_EQ(nv12Of(picture), lastFrame());
    EXPECT_THAT(mLog.lines(), IsEmpty());
    EXPECT_EQ(1, takeLocks(picture));
}

TEST_F(UvcYCbCrOutputTest, AnNv12StreamKeepsTheFramesStrides) {
    setLayout(BufferLayoutOptions::Chroma::NV12, 256, 32, 100);
    streamNv12(1000000);
    const auto picture = makePicture(640, 470);
    EXPECT_TRUE(queue(0, picture));
    EXPECT_EQ(768u * 470 * 3 / 2, queued().bytesused);
    EXPECT_EQ(nv12Of(picture), lastFrame());
}

TEST_F(UvcYCbCrOutputTest, ALargeNv12FrameHasThreeHalvesOfItsPixels) {
    makeDevice("NV12");
    stream(kUncompressed, kLargeFrame, 1382400);
    EXPECT_TRUE(queue(0, makePicture(1280, 720)));
    EXPECT_EQ(1382400u, queued().bytesused);
}

TEST_F(UvcYCbCrOutputTest, AnNv12FrameOfAnOddHeightStaysWithinItsMemory) {
    streamNv12();
    const auto picture = makePicture(62, 33);
    ASSERT_EQ(0, picture->initCheck());
    EXPECT_TRUE(queue(0, picture));
    EXPECT_EQ(64u * 33 + 64 * 33 / 2, queued().bytesused);
    EXPECT_EQ(nv12Of(picture), lastFrame());
}

// 128x64 fills whole pages: with cr first, one byte more would be read from beyond the mapping.
TEST_F(UvcYCbCrOutputTest, AnNv12StreamReadsNothingAfterAFrameWithCrFirst) {
    setLayout(BufferLayoutOptions::Chroma::NV21);
    streamNv12();
    mKernel.fillBuffers(0xCD);
    const auto picture = makePicture(128, 64);
    EXPECT_TRUE(queue(0, picture));
    EXPECT_EQ(128u * 96, queued().bytesused);
    Bytes frame = lastFrame();
    EXPECT_EQ(lumaAt(127, 63), frame[128 * 64 - 1]);
    EXPECT_EQ(cbAt(0, 0), frame[128 * 64]);
    EXPECT_EQ(0xCD, frame.back());
}

TEST_F(UvcYCbCrOutputTest, AYuyvStreamConvertsEveryLayout) {
    streamYuyv();
    for (auto chroma : {BufferLayoutOptions::Chroma::NV12, BufferLayoutOptions::Chroma::NV21,
                        BufferLayoutOptions::Chroma::I420}) {
        for (uint32_t align : {16, 512}) {
            setLayout(chroma, align, 16, 48);
            mKernel.fillBuffers(0xCD);
            EXPECT_TRUE(queue(0, makePicture(640, 480)));
            EXPECT_TRUE(pictureAsYuyv(640, 480) == lastFrame())
                    << static_cast<int>(chroma) << ' ' << align;
            sendOne();
        }
    }
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(UvcYCbCrOutputTest, AYuyvFrameHasTwoBytesAPixel) {
    stream(kUncompressed, kLargeFrame, 1843200);
    const auto picture = makePicture(1280, 720);
    EXPECT_TRUE(queue(0, picture));
    EXPECT_EQ(1843200u, queued().bytesused);
    EXPECT_TRUE(pictureAsYuyv(1280, 720) == lastFrame());
    EXPECT_EQ(1, takeLocks(picture));
}

TEST_F(UvcYCbCrOutputTest, TheFramesOwnSizeCountsNotTheNegotiatedOne) {
    streamYuyv();
    EXPECT_TRUE(queue(0, makePicture(64, 32)));
    EXPECT_EQ(64u * 32 * 2, queued().bytesused);
    EXPECT_EQ(pictureAsYuyv(64, 32), lastFrame());
}

TEST_F(UvcYCbCrOutputTest, ALaterLargerFrameIsConvertedWhole) {
    streamYuyv();
    queue(0, makePicture(64, 32));
    sendOne();
    EXPECT_TRUE(queue(0, makePicture(640, 480)));
    EXPECT_TRUE(pictureAsYuyv(640, 480) == lastFrame());
}

TEST_F(UvcYCbCrOutputTest, OddSizesAreConvertedWithoutAByteTooMany) {
    streamYuyv(4096);
    for (const auto& [width, height] : {std::pair{5, 3}, {17, 8}, {16, 9}, {63, 31}}) {
        mKernel.fillBuffers(0xCD);
        const auto picture = makePicture(width, height);
        ASSERT_EQ(0, picture->initCheck());
        EXPECT_TRUE(queue(0, picture));
        EXPECT_EQ(pictureAsYuyv(width, height), lastFrame()) << width;
        const Bytes buffer = mKernel.bufferContents(0);
        EXPECT_EQ(0xCD, buffer[width * height * 2]) << width;
        sendOne();
    }
}

// The driver is offered such a frame all the same, and refuses it.
TEST_F(UvcYCbCrOutputTest, ATooLargeYuyvFrameIsOfferedWithItsSize) {
    streamYuyv(kYuyvLength - 1);
    mKernel.fillBuffers(0xCD);
    const auto picture = makePicture(640, 480);
    EXPECT_FALSE(queue(0, picture));
    EXPECT_THAT(mLog.lines(kTag), ElementsAre(tooLarge(), error("Failed queue for buffer: 0")));
    EXPECT_EQ(kYuyvLength, queued().bytesused);
    EXPECT_EQ(Bytes(kYuyvLength - 1, 0xCD), mKernel.bufferContents(0));
    EXPECT_EQ(2, picture->getStrongCount());
    EXPECT_EQ(0, takeLocks(picture));
}

TEST_F(UvcYCbCrOutputTest, ATooLargeNv12FrameIsOfferedWithItsSize) {
    const uint32_t size = 640 * 480 * 3 / 2;
    streamNv12(size - 1);
    mKernel.fillBuffers(0xCD);
    const auto picture = makePicture(640, 480);
    EXPECT_FALSE(queue(0, picture));
    EXPECT_THAT(mLog.lines(kTag), ElementsAre(tooLarge(), error("Failed queue for buffer: 0")));
    EXPECT_EQ(size, queued().bytesused);
    EXPECT_EQ(Bytes(size - 1, 0xCD), mKernel.bufferContents(0));
    EXPECT_EQ(0, takeLocks(picture));
}

TEST_F(UvcYCbCrOutputTest, AFailedFrameStillComesBack) {
    streamYuyv();
    queue(2, makeUnreadablePicture(), {0, 0}, 5);
    sendOne();
    ASSERT_EQ(1u, mListener.emptied.size());
    EXPECT_EQ(2u, mListener.emptied[0].index);
    EXPECT_EQ(5, mListener.emptied[0].fenceFd);
}

TEST_F(UvcYCbCrOutputTest, APictureThatTheCpuMayNotSeeIsStillQueuedEmpty) {
    streamYuyv();
    const auto picture = makeUnreadablePicture();
    ASSERT_EQ(0, picture->initCheck());
    EXPECT_TRUE(queue(1, picture));
    EXPECT_THAT(mLog.lines(kTag), ElementsAre(error("null ptr for ycbcr dequeued")));
    EXPECT_EQ(0u, queued().bytesused);
    EXPECT_EQ(1u, queued().index);
}

TEST_F(UvcYCbCrOutputTest, AnMjpegStreamQueuesAPictureWithoutWritingIt) {
    streamJpeg(kYuyvLength);
    mKernel.fillBuffers(0xCD);
    const auto picture = makePicture(640, 480);
    EXPECT_TRUE(queue(0, picture));
    EXPECT_EQ(0u, queued().bytesused);
    EXPECT_EQ(0xCD, mKernel.bufferContents(0)[0]);
    EXPECT_THAT(mLog.lines(), IsEmpty());
    EXPECT_EQ(1, takeLocks(picture));
}

TEST_F(UvcYCbCrOutputTest, AFormatCommittedWhileStreamingCountsForTheNextFrame) {
    streamYuyv();
    select(kCommit, kMjpeg, kSmallFrame);
    queue(0, makePicture(640, 480));
    EXPECT_EQ(0u, queued().bytesused);
}

}  // namespace
