// SPDX-License-Identifier: Apache-2.0
// A streaming device, the frames that it is given, and what became of them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <sys/select.h>

#include <gtest/gtest.h>
#include <ui/BufferLayoutOptions.h>
#include <ui/GraphicBuffer.h>

#include "support/UvcDeviceTest.h"
#include "support/UvcFrames.h"

namespace korvane::test {

using android::BufferLayoutOptions;
using android::GraphicBuffer;
using android::sp;
using Bytes = std::vector<uint8_t>;

/** Queues frames, lets the host take them, and checks their locks and what was sent. */
class UvcBufferOutputTest : public UvcDeviceTest {
  protected:
    ~UvcBufferOutputTest() override { setBufferLayoutOptions(BufferLayoutOptions()); }

    static constexpr uint32_t kYuyvLength = 640 * 480 * 2;
    static constexpr uint32_t kBlobLength = 10000;

    static LogLine tooLarge() {
        return warning("Size too large for buffer allocated, drop frame!");
    }
    static LogLine noHeader(int width) {
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

    // Releases all locks of a buffer and returns how many there were: an unlock too many is logged.
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

    // What an NV12 stream sends for a picture: luma and chroma with the rows' padding.
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

}  // namespace korvane::test
