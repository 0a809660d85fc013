// SPDX-License-Identifier: Apache-2.0
// The buffers of a stream: mapped, filled with frames, queued, sent, given back.

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

#include <sys/mman.h>
#include <sys/select.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <ui/BufferLayoutOptions.h>

#include "support/UvcDeviceTest.h"
#include "support/UvcFrames.h"

using android::BufferLayoutOptions;
using android::GraphicBuffer;
using android::sp;
using korvane::test::KernelMapping;
using korvane::test::LogLine;
using korvane::test::UvcBufInfo;
using korvane::test::UvcDeviceTest;
using namespace korvane::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kYuyvLength = 640 * 480 * 2;
constexpr uint32_t kBlobLength = 10000;

class UvcBufferOutputTest : public UvcDeviceTest {
  protected:
    ~UvcBufferOutputTest() override { setBufferLayoutOptions(BufferLayoutOptions()); }

    LogLine error(const std::string& text) const { return {ANDROID_LOG_ERROR, kTag, text}; }
    LogLine warning(const std::string& text) const { return {ANDROID_LOG_WARN, kTag, text}; }
    const LogLine tooLarge() const {
        return warning("Size too large for buffer allocated, drop frame!");
    }
    const LogLine noHeader(int width) const {
        return warning("getBlobSizeFromCamera: No JPEG header detected, defaulting to size=width=" +
                       std::to_string(width));
    }

    void streamJpeg(uint32_t length = kBlobLength) { stream(kMjpeg, kSmallFrame, length); }
    void streamYuyv(uint32_t length = kYuyvLength) { stream(kUncompressed, kSmallFrame, length); }
    void streamNv12(uint32_t length = kYuyvLength) {
        makeDevice("NV12");
        stream(kUncompressed, kSmallFrame, length);
    }

    bool queue(uint32_t index, const sp<GraphicBuffer>& buffer, timeval time = {0, 0},
               int fence = -1) {
        UvcBufInfo frame = makeFrame(index, buffer, time, fence);
        return mCtrl->queueBuffer(&frame);
    }
    // The host takes the oldest queued buffer, and the device takes it back.
    void sendOne() {
        ASSERT_TRUE(mKernel.send());
        EXPECT_EQ(0, writable());
    }

    bool nodeIsWritable() const {
        fd_set nodes;
        FD_ZERO(&nodes);
        FD_SET(mCtrl->fd, &nodes);
        timeval now = {0, 0};
        return ::select(mCtrl->fd + 1, nullptr, &nodes, nullptr, &now) > 0;
    }

    v4l2_buffer queued(size_t number = 0) const {
        const auto calls = mKernel.calls("VIDIOC_QBUF");
        return number < calls.size() ? calls[number].as<v4l2_buffer>() : v4l2_buffer{};
    }
    Bytes lastFrame() const {
        const auto frames = mKernel.sentFrames();
        return frames.empty() ? Bytes() : frames.back();
    }

    // Takes all locks of a buffer away and says how many there were: an unlock too many is logged.
    int takeLocks(const sp<GraphicBuffer>& buffer) {
        for (int locks = 0;; ++locks) {
            const size_t lines = mLog.lines().size();
            buffer->unlock();
            if (mLog.lines().size() > lines || locks > 10) return locks;
        }
    }

    static void setLayout(BufferLayoutOptions::Chroma chroma, uint32_t align = 16,
                          uint32_t heightAlign = 1, uint32_t gap = 0) {
        BufferLayoutOptions options;
        options.chroma = chroma;
        options.strideAlignment = align;
        options.heightAlignment = heightAlign;
        options.planeGap = gap;
        ASSERT_TRUE(setBufferLayoutOptions(options));
    }

    // What an NV12 stream sends of a picture: luma and chroma with the rows' padding.
    static Bytes nv12Of(const sp<GraphicBuffer>& picture) {
        android_ycbcr planes = {};
        picture->lockYCbCr(kCpuUsage, &planes);
        const auto* luma = static_cast<const uint8_t*>(planes.y);
        const auto* chroma = static_cast<const uint8_t*>(planes.cb);
        const uint32_t height = picture->getHeight();
        Bytes bytes(luma, luma + height * planes.ystride);
        bytes.insert(bytes.end(), chroma, chroma + planes.cstride * height / 2);
        picture->unlock();
        return bytes;
    }
};

// --- Mapping ---

TEST_F(UvcBufferOutputTest, RequestsFourBuffersAndMapsEach) {
    mCtrl->open();
    mKernel.setBufferLength(5000);
    event(UVC_EVENT_STREAMON);

    v4l2_requestbuffers request = {};
    request.count = 4;
    request.type = 2;
    request.memory = V4L2_MEMORY_MMAP;
    EXPECT_EQ(0, memcmp(&request, mKernel.calls("VIDIOC_REQBUFS")[0].argument.data(),
                        sizeof(request)));
    const auto queries = mKernel.calls("VIDIOC_QUERYBUF");
    const auto mappings = mKernel.calls("mmap");
    ASSERT_EQ(4u, queries.size());
    ASSERT_EQ(4u, mappings.size());
    for (uint32_t i = 0; i < 4; ++i) {
        v4l2_buffer query = {};
        query.type = 2;
        query.memory = V4L2_MEMORY_MMAP;
        query.index = i;
        EXPECT_EQ(0, memcmp(&query, queries[i].argument.data(), sizeof(query))) << i;
        const auto mapping = mappings[i].as<KernelMapping>();
        EXPECT_EQ(5000u, mapping.length);
        EXPECT_EQ(PROT_READ | PROT_WRITE, mapping.protection);
        EXPECT_EQ(MAP_SHARED, mapping.flags);
        EXPECT_EQ(static_cast<off_t>(8192 * i), mapping.offset);
        EXPECT_EQ(mCtrl->fd, mappings[i].fd);
    }
}

TEST_F(UvcBufferOutputTest, UnmapsWhatItMapped) {
    mCtrl->open();
    mKernel.setBufferLength(5000);
    event(UVC_EVENT_STREAMON);
    event(UVC_EVENT_STREAMOFF);
    EXPECT_EQ(0u, mKernel.openMappings());
    for (const auto& call : mKernel.calls("munmap")) EXPECT_EQ(5000u, call.as<size_t>());
    v4l2_requestbuffers release = {};
    release.type = 2;
    release.memory = V4L2_MEMORY_MMAP;
    EXPECT_EQ(0, memcmp(&release, mKernel.calls("VIDIOC_REQBUFS")[1].argument.data(),
                        sizeof(release)));
}

TEST_F(UvcBufferOutputTest, MoreBuffersThanAskedForAreNotUsed) {
    mKernel.setGrant(6);
    mCtrl->open();
    event(UVC_EVENT_STREAMON);
    EXPECT_TRUE(mCtrl->isStreaming());
    EXPECT_EQ(4u, mKernel.openMappings());
}

TEST_F(UvcBufferOutputTest, FewerBuffersThanAskedForAreNotEnough) {
    mKernel.setGrant(3);
    mCtrl->open();
    event(UVC_EVENT_STREAMON);
    EXPECT_FALSE(mCtrl->isStreaming());
    EXPECT_EQ(0u, mKernel.openMappings());
    EXPECT_THAT(mLog.lines(kTag),
                ElementsAre(error("failed to mmap all buffers"), error("Failed to alloc buffers")));
}

TEST_F(UvcBufferOutputTest, NoBuffersAreAFailedRequest) {
    mKernel.setGrant(0);
    mCtrl->open();
    event(UVC_EVENT_STREAMON);
    EXPECT_FALSE(mCtrl->isStreaming());
    EXPECT_TRUE(mKernel.calls("VIDIOC_QUERYBUF").empty());
    EXPECT_THAT(mLog.lines(),
                ElementsAre(error("request buffer failed"), error("Failed to alloc buffers")));
}

TEST_F(UvcBufferOutputTest, AFailingQueryReleasesTheBuffersMappedSoFar) {
    mCtrl->open();
    for (size_t i = 0; i < 4; ++i) {
        mKernel.clearCalls();
        mLog.clear();
        mKernel.fail("VIDIOC_QUERYBUF", EINVAL, static_cast<int>(i));
        event(UVC_EVENT_STREAMON);
        EXPECT_EQ(i, mKernel.calls("munmap").size());
        EXPECT_EQ(0u, mKernel.openMappings());
        // The driver's buffers are only freed when one of them had been mapped.
        EXPECT_EQ(i > 0 ? 2u : 1u, mKernel.calls("VIDIOC_REQBUFS").size());
        EXPECT_THAT(mLog.lines(kTag), ElementsAre(error("failed to mmap all buffers"),
                                                  error("Failed to alloc buffers")));
    }
}

TEST_F(UvcBufferOutputTest, AFailingMappingReleasesTheBuffersMappedSoFar) {
    mCtrl->open();
    for (size_t i = 0; i < 4; ++i) {
        mKernel.clearCalls();
        mLog.clear();
        mKernel.fail("mmap", ENOMEM, static_cast<int>(i));
        event(UVC_EVENT_STREAMON);
        EXPECT_EQ(i, mKernel.calls("munmap").size());
        EXPECT_EQ(0u, mKernel.openMappings());
        EXPECT_EQ(i > 0 ? 2u : 1u, mKernel.calls("VIDIOC_REQBUFS").size());
        EXPECT_THAT(mLog.lines(), ElementsAre(error("failed to mmap buffers, errno 12"),
                                              error("failed to mmap all buffers"),
                                              error("Failed to alloc buffers")));
    }
}

TEST_F(UvcBufferOutputTest, StreamOnQueuesNothing) {
    streamJpeg();
    EXPECT_THAT(mKernel.sentFrames(), IsEmpty());
}

// --- Blobs ---

TEST_F(UvcBufferOutputTest, AFrameWithoutAStreamIsNotTaken) {
    mCtrl->open();
    mKernel.clearCalls();
    const auto blob = makeJpeg(100, 50);
    EXPECT_FALSE(queue(0, blob));
    EXPECT_THAT(mLog.lines(), ElementsAre(warning("Not streaming, quit early")));
    EXPECT_THAT(mKernel.calls(), IsEmpty());
    EXPECT_EQ(0, takeLocks(blob));
    EXPECT_EQ(1, blob->getStrongCount());
}

TEST_F(UvcBufferOutputTest, AJpegIsCopiedUpToItsSizeAndQueued) {
    streamJpeg();
    const auto blob = makeJpeg(1000, 600);
    EXPECT_TRUE(queue(2, blob, {12, 345678}));
    EXPECT_EQ(blobBytes(blob, 600), lastFrame());
    EXPECT_EQ(0, mKernel.bufferContents(2)[600]);

    v4l2_buffer expected = {};
    expected.type = 2;
    expected.memory = V4L2_MEMORY_MMAP;
    expected.index = 2;
    expected.bytesused = 600;
    expected.timestamp = {12, 345678};
    ASSERT_THAT(mKernel.callNames(), ElementsAre("VIDIOC_QBUF"));
    EXPECT_EQ(0, memcmp(&expected, mKernel.calls()[0].argument.data(), sizeof(expected)));
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(UvcBufferOutputTest, AVendorsJpegIsOneToo) {
    streamJpeg();
    EXPECT_TRUE(queue(0, makeJpeg(1000, 600, 0xF0FF)));
    EXPECT_EQ(600u, queued().bytesused);
}

TEST_F(UvcBufferOutputTest, TheFootersSizeIsOverwrittenInTheCamerasBuffer) {
    streamJpeg();
    const auto blob = makeJpeg(1000, 600);
    queue(0, blob);
    const Bytes bytes = blobBytes(blob, 1000);
    uint32_t size;
    memcpy(&size, bytes.data() + 996, sizeof(size));
    EXPECT_EQ(1000u, size);
}

// Sent again as it is, the buffer now claims to be full.
TEST_F(UvcBufferOutputTest, AReadFooterSendsTheWholeCapacityTheNextTime) {
    streamJpeg();
    const auto blob = makeJpeg(1000, 600);
    queue(0, blob);
    queue(1, blob);
    EXPECT_EQ(1000u, queued(1).bytesused);
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(UvcBufferOutputTest, ABlobWithoutAFooterIsSentWhole) {
    streamJpeg();
    const auto blob = makeBlob(1000);
    EXPECT_TRUE(queue(0, blob));
    EXPECT_EQ(blobBytes(blob, 1000), lastFrame());
    EXPECT_THAT(mLog.lines(), ElementsAre(noHeader(1000)));
}

TEST_F(UvcBufferOutputTest, AFooterOfSizeZeroSendsTheWholeCapacity) {
    streamJpeg();
    EXPECT_TRUE(queue(0, makeJpeg(1000, 0)));
    EXPECT_EQ(1000u, queued().bytesused);
    EXPECT_THAT(mLog.lines(), ElementsAre(noHeader(1000)));
}

TEST_F(UvcBufferOutputTest, ABlobTooSmallForAFooterIsSentWhole) {
    streamJpeg();
    EXPECT_TRUE(queue(0, makeBlob(7)));
    EXPECT_EQ(7u, queued().bytesused);
    EXPECT_THAT(mLog.lines(), ElementsAre(noHeader(7)));
}

TEST_F(UvcBufferOutputTest, AJpegMayFillTheUvcBuffer) {
    streamJpeg();
    EXPECT_TRUE(queue(0, makeJpeg(kBlobLength + 100, kBlobLength)));
    EXPECT_EQ(kBlobLength, queued().bytesused);
}

TEST_F(UvcBufferOutputTest, AJpegLargerThanTheUvcBufferIsDropped) {
    streamJpeg();
    const auto blob = makeJpeg(kBlobLength + 100, kBlobLength + 1);
    EXPECT_FALSE(queue(0, blob));
    EXPECT_THAT(mLog.lines(), ElementsAre(tooLarge()));
    EXPECT_THAT(mKernel.calls(), IsEmpty());
    EXPECT_EQ(0, takeLocks(blob));
    EXPECT_EQ(1, blob->getStrongCount());
}

TEST_F(UvcBufferOutputTest, AJpegLargerThanItsOwnBlobIsDropped) {
    streamJpeg();
    for (uint32_t size : {1001u, kBlobLength, 0xFFFFFFFFu}) {
        mLog.clear();
        EXPECT_FALSE(queue(0, makeJpeg(1000, size)));
        EXPECT_THAT(mLog.lines(), ElementsAre(tooLarge()));
    }
    EXPECT_THAT(mKernel.calls(), IsEmpty());
}

TEST_F(UvcBufferOutputTest, ABlobThatTheCpuMayNotSeeIsRefused) {
    streamJpeg();
    sp<GraphicBuffer> blob =
            new GraphicBuffer(1000, 1, HAL_PIXEL_FORMAT_BLOB, 1, GraphicBuffer::USAGE_HW_TEXTURE);
    ASSERT_EQ(0, blob->initCheck());
    EXPECT_FALSE(queue(0, blob));
    EXPECT_THAT(mLog.lines(kTag), ElementsAre(error("null ptr for image dequeued")));
    EXPECT_THAT(mKernel.calls(), IsEmpty());
}

TEST_F(UvcBufferOutputTest, AnyOtherFormatIsTakenForABlobOfItsWidth) {
    streamJpeg();
    sp<GraphicBuffer> picture = new GraphicBuffer(640, 4, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage);
    EXPECT_TRUE(queue(0, picture));
    EXPECT_EQ(640u, queued().bytesused);
    EXPECT_THAT(mLog.lines(kTag), ElementsAre(noHeader(640)));
}

TEST_F(UvcBufferOutputTest, ABlobIsCopiedAsItIsIntoAnUncompressedStream) {
    streamYuyv();
    EXPECT_TRUE(queue(0, makeJpeg(1000, 600)));
    EXPECT_EQ(600u, queued().bytesused);
}

TEST_F(UvcBufferOutputTest, AnIndexBeyondTheBuffersIsRefused) {
    streamJpeg();
    const auto blob = makeJpeg(1000, 600);
    EXPECT_FALSE(queue(4, blob));
    EXPECT_FALSE(queue(0xFFFFFFFF, blob));
    EXPECT_THAT(mKernel.calls(), IsEmpty());
    EXPECT_THAT(mLog.lines(), ElementsAre(error("Failed queue for buffer: 4"),
                                          error("Failed queue for buffer: -1")));
    EXPECT_EQ(0, takeLocks(blob));
}

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

// --- YCbCr ---

TEST_F(UvcBufferOutputTest, AnNv12StreamCopiesThePlanes) {
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

TEST_F(UvcBufferOutputTest, AnNv12StreamKeepsTheFramesStrides) {
    setLayout(BufferLayoutOptions::Chroma::NV12, 256, 32, 100);
    streamNv12(1000000);
    const auto picture = makePicture(640, 470);
    EXPECT_TRUE(queue(0, picture));
    EXPECT_EQ(768u * 470 * 3 / 2, queued().bytesused);
    EXPECT_EQ(nv12Of(picture), lastFrame());
}

TEST_F(UvcBufferOutputTest, ALargeNv12FrameHasThreeHalvesOfItsPixels) {
    makeDevice("NV12");
    stream(kUncompressed, kLargeFrame, 1382400);
    EXPECT_TRUE(queue(0, makePicture(1280, 720)));
    EXPECT_EQ(1382400u, queued().bytesused);
}

TEST_F(UvcBufferOutputTest, AnNv12FrameOfAnOddHeightStaysWithinItsMemory) {
    streamNv12();
    const auto picture = makePicture(62, 33);
    ASSERT_EQ(0, picture->initCheck());
    EXPECT_TRUE(queue(0, picture));
    EXPECT_EQ(64u * 33 + 64 * 33 / 2, queued().bytesused);
    EXPECT_EQ(nv12Of(picture), lastFrame());
}

// 128x64 fills whole pages: with cr first, one byte more would be read from behind the mapping.
TEST_F(UvcBufferOutputTest, AnNv12StreamReadsNothingBehindAFrameWithCrFirst) {
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

TEST_F(UvcBufferOutputTest, AYuyvStreamConvertsEveryLayout) {
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

TEST_F(UvcBufferOutputTest, AYuyvFrameHasTwoBytesAPixel) {
    stream(kUncompressed, kLargeFrame, 1843200);
    const auto picture = makePicture(1280, 720);
    EXPECT_TRUE(queue(0, picture));
    EXPECT_EQ(1843200u, queued().bytesused);
    EXPECT_TRUE(pictureAsYuyv(1280, 720) == lastFrame());
    EXPECT_EQ(1, takeLocks(picture));
}

TEST_F(UvcBufferOutputTest, TheFramesOwnSizeCountsNotTheNegotiatedOne) {
    streamYuyv();
    EXPECT_TRUE(queue(0, makePicture(64, 32)));
    EXPECT_EQ(64u * 32 * 2, queued().bytesused);
    EXPECT_EQ(pictureAsYuyv(64, 32), lastFrame());
}

TEST_F(UvcBufferOutputTest, ALaterLargerFrameIsConvertedWhole) {
    streamYuyv();
    queue(0, makePicture(64, 32));
    sendOne();
    EXPECT_TRUE(queue(0, makePicture(640, 480)));
    EXPECT_TRUE(pictureAsYuyv(640, 480) == lastFrame());
}

TEST_F(UvcBufferOutputTest, OddSizesAreConvertedWithoutAByteTooMany) {
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

TEST_F(UvcBufferOutputTest, ATooLargeYuyvFrameIsStillQueuedWithItsSize) {
    streamYuyv(kYuyvLength - 1);
    mKernel.fillBuffers(0xCD);
    const auto picture = makePicture(640, 480);
    EXPECT_TRUE(queue(0, picture));
    EXPECT_THAT(mLog.lines(), ElementsAre(tooLarge()));
    EXPECT_EQ(kYuyvLength, queued().bytesused);
    EXPECT_EQ(Bytes(kYuyvLength - 1, 0xCD), mKernel.bufferContents(0));
    EXPECT_EQ(2, picture->getStrongCount());
    EXPECT_EQ(0, takeLocks(picture));
}

TEST_F(UvcBufferOutputTest, ATooLargeNv12FrameIsStillQueuedWithItsSize) {
    const uint32_t size = 640 * 480 * 3 / 2;
    streamNv12(size - 1);
    mKernel.fillBuffers(0xCD);
    const auto picture = makePicture(640, 480);
    EXPECT_TRUE(queue(0, picture));
    EXPECT_THAT(mLog.lines(), ElementsAre(tooLarge()));
    EXPECT_EQ(size, queued().bytesused);
    EXPECT_EQ(Bytes(size - 1, 0xCD), mKernel.bufferContents(0));
    EXPECT_EQ(0, takeLocks(picture));
}

TEST_F(UvcBufferOutputTest, AFailedFrameStillComesBack) {
    streamYuyv(100);
    queue(2, makePicture(640, 480), {0, 0}, 5);
    sendOne();
    ASSERT_EQ(1u, mListener.emptied.size());
    EXPECT_EQ(2u, mListener.emptied[0].index);
    EXPECT_EQ(5, mListener.emptied[0].fenceFd);
}

TEST_F(UvcBufferOutputTest, APictureThatTheCpuMayNotSeeIsStillQueuedEmpty) {
    streamYuyv();
    sp<GraphicBuffer> picture = new GraphicBuffer(640, 480, HAL_PIXEL_FORMAT_YCbCr_420_888, 1,
                                                  GraphicBuffer::USAGE_HW_TEXTURE);
    ASSERT_EQ(0, picture->initCheck());
    EXPECT_TRUE(queue(1, picture));
    EXPECT_THAT(mLog.lines(kTag), ElementsAre(error("null ptr for ycbcr dequeued")));
    EXPECT_EQ(0u, queued().bytesused);
    EXPECT_EQ(1u, queued().index);
}

TEST_F(UvcBufferOutputTest, AnMjpegStreamQueuesAPictureWithoutWritingIt) {
    streamJpeg(kYuyvLength);
    mKernel.fillBuffers(0xCD);
    const auto picture = makePicture(640, 480);
    EXPECT_TRUE(queue(0, picture));
    EXPECT_EQ(0u, queued().bytesused);
    EXPECT_EQ(0xCD, mKernel.bufferContents(0)[0]);
    EXPECT_THAT(mLog.lines(), IsEmpty());
    EXPECT_EQ(1, takeLocks(picture));
}

TEST_F(UvcBufferOutputTest, AFormatCommittedWhileStreamingCountsForTheNextFrame) {
    streamYuyv();
    select(kCommit, kMjpeg, kSmallFrame);
    queue(0, makePicture(640, 480));
    EXPECT_EQ(0u, queued().bytesused);
}

// --- Getting buffers back ---

TEST_F(UvcBufferOutputTest, TakesABufferBackWithAZeroedBlock) {
    streamJpeg();
    queue(2, makeJpeg(100, 50));
    mKernel.clearCalls();
    sendOne();
    v4l2_buffer expected = {};
    expected.type = 2;
    expected.memory = V4L2_MEMORY_MMAP;
    ASSERT_THAT(mKernel.callNames(), ElementsAre("VIDIOC_DQBUF"));
    EXPECT_EQ(0, memcmp(&expected, mKernel.calls()[0].argument.data(), sizeof(expected)));
}

TEST_F(UvcBufferOutputTest, BuffersComeBackInTheOrderOfTheDriver) {
    streamJpeg();
    for (uint32_t index : {3, 1, 0, 2}) queue(index, makeJpeg(100, 50));
    for (int i = 0; i < 4; ++i) sendOne();
    std::vector<uint32_t> indices;
    for (const UvcBufInfo& record : mListener.emptied) indices.push_back(record.index);
    EXPECT_THAT(indices, ElementsAre(3, 1, 0, 2));
}

TEST_F(UvcBufferOutputTest, ABufferWithoutAFrameIsReportedToo) {
    streamJpeg();
    mKernel.answerNext("VIDIOC_DQBUF", [](void* block) {
        static_cast<v4l2_buffer*>(block)->index = 3;
        return 0;
    });
    EXPECT_EQ(0, writable());
    ASSERT_EQ(1u, mListener.emptied.size());
    EXPECT_EQ(3u, mListener.emptied[0].index);
    EXPECT_EQ(nullptr, mListener.emptied[0].graphicBuffer);
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(UvcBufferOutputTest, AFailedWriteReportsNothing) {
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

TEST_F(UvcBufferOutputTest, AnIndexThatTheDriverMadeUpIsAFailedWrite) {
    streamJpeg();
    for (int i = 0; i < 5; ++i) {
        mKernel.answerNext("VIDIOC_DQBUF", [](void* block) {
            static_cast<v4l2_buffer*>(block)->index = 4;
            return 0;
        });
        EXPECT_EQ(i < 4 ? 0 : -1, writable());
    }
    EXPECT_THAT(mListener.events, ElementsAre("stop"));
}

TEST_F(UvcBufferOutputTest, AWriteBeforeAnyStreamIsAFailedWrite) {
    mCtrl->open();
    for (int i = 0; i < 5; ++i) {
        mKernel.answerNext("VIDIOC_DQBUF", [](void*) { return 0; });
        EXPECT_EQ(i < 4 ? 0 : -1, writable());
    }
    EXPECT_THAT(mListener.events, IsEmpty());
}

TEST_F(UvcBufferOutputTest, TheNextFrameMayBeQueuedFromWithinTheListener) {
    streamJpeg();
    const auto first = makeJpeg(100, 50);
    const auto next = makeJpeg(100, 60);
    queue(0, first);
    mListener.onEmptied = [&](UvcBufInfo* record) {
        EXPECT_TRUE(queue(record->index, next, {0, 0}, 9));
    };
    sendOne();
    mListener.onEmptied = nullptr;
    mListener.emptied.clear();
    EXPECT_EQ(1, first->getStrongCount());
    EXPECT_EQ(2, next->getStrongCount());

    sendOne();
    EXPECT_EQ(next, mListener.emptied.back().graphicBuffer);
    EXPECT_EQ(9, mListener.emptied.back().fenceFd);
    mListener.emptied.clear();
    EXPECT_EQ(1, next->getStrongCount());
    EXPECT_THAT(mLog.lines(), IsEmpty());
    EXPECT_EQ(0, takeLocks(first));
    EXPECT_EQ(0, takeLocks(next));
}

TEST_F(UvcBufferOutputTest, TheSameFrameMayBeQueuedAgainFromWithinTheListener) {
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

TEST_F(UvcBufferOutputTest, AFrameQueuedElsewhereFromWithinTheListenerLeavesTheReturnedOne) {
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

TEST_F(UvcBufferOutputTest, AStreamClosedFromWithinTheListenerUnlocksEachFrameOnce) {
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

TEST_F(UvcBufferOutputTest, AStreamClosedFromWithinTheListenerStartsAgain) {
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

TEST_F(UvcBufferOutputTest, DestructionDropsTheFramesItHeld) {
    streamJpeg();
    const auto blob = makeJpeg(100, 50);
    queue(0, blob);
    mCtrl.reset();
    EXPECT_EQ(1, blob->getStrongCount());
}

// --- The dump ---

class UvcDumpTest : public UvcBufferOutputTest {
  protected:
    ~UvcDumpTest() override { ::close(mDump); }

    void startDump() { mCtrl->dumpFramesTo(fdopen(dup(mDump), "wb")); }
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
