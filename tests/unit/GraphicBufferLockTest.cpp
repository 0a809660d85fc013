// SPDX-License-Identifier: Apache-2.0
// Graphic buffers: where the CPU finds the pixels.
#include <atomic>
#include <cstring>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <gtest/gtest.h>
#include <ui/BufferLayoutOptions.h>
#include <ui/GraphicBuffer.h>

#include "support/BufferHandles.h"
#include "support/GraphicBuffers.h"
#include "support/LogRecorder.h"

using android::BAD_VALUE;
using android::BufferLayoutOptions;
using android::GraphicBuffer;
using android::NO_ERROR;
using android::Rect;
using android::sp;
using Chroma = android::BufferLayoutOptions::Chroma;
using korvane::test::allocate;
using korvane::test::kCpu;
using korvane::test::layoutOf;
using korvane::test::LogRecorder;

namespace {

constexpr int kFlexible = HAL_PIXEL_FORMAT_YCbCr_420_888;

/** Where a plane begins, in bytes from the luma plane. */
ptrdiff_t offset(const android_ycbcr& planes, const void* plane) {
    return static_cast<const uint8_t*>(plane) - static_cast<const uint8_t*>(planes.y);
}

android_ycbcr lockPlanes(GraphicBuffer& buffer) {
    android_ycbcr planes;
    memset(&planes, 0xff, sizeof(planes));
    EXPECT_EQ(NO_ERROR, buffer.lockYCbCr(GraphicBuffer::USAGE_SW_READ_RARELY, &planes));
    return planes;
}

/** Writes every sample of every plane, to the last, for the sanitizers to see. */
void fill(GraphicBuffer& buffer) {
    const android_ycbcr planes = lockPlanes(buffer);
    auto* const y = static_cast<uint8_t*>(planes.y);
    auto* const cb = static_cast<uint8_t*>(planes.cb);
    auto* const cr = static_cast<uint8_t*>(planes.cr);
    for (uint32_t row = 0; row < buffer.getHeight(); ++row) {
        for (uint32_t column = 0; column < buffer.getWidth(); ++column) {
            y[row * planes.ystride + column] = 1;
            cb[row / 2 * planes.cstride + column / 2 * planes.chroma_step] = 2;
            cr[row / 2 * planes.cstride + column / 2 * planes.chroma_step] = 3;
        }
    }
    for (uint32_t row = 0; row < buffer.getHeight(); ++row) {
        for (uint32_t column = 0; column < buffer.getWidth(); ++column) {
            ASSERT_EQ(1, y[row * planes.ystride + column]);
            ASSERT_EQ(2, cb[row / 2 * planes.cstride + column / 2 * planes.chroma_step]);
            ASSERT_EQ(3, cr[row / 2 * planes.cstride + column / 2 * planes.chroma_step]);
        }
    }
    buffer.unlock();
}

class GraphicBufferLayoutTest : public ::testing::Test {
  protected:
    ~GraphicBufferLayoutTest() override { android::setBufferLayoutOptions(BufferLayoutOptions()); }

    static void setOptions(const BufferLayoutOptions& options) {
        ASSERT_TRUE(android::setBufferLayoutOptions(options));
    }
};

}  // namespace

TEST(GraphicBufferLockTest, GivesTheStartOfTheBytes) {
    const sp<GraphicBuffer> blob = allocate(1000, 1, HAL_PIXEL_FORMAT_BLOB);
    void* address = nullptr;
    int32_t bytesPerPixel = 0;
    int32_t bytesPerStride = 0;
    ASSERT_EQ(NO_ERROR, blob->lock(0xff, &address, &bytesPerPixel, &bytesPerStride));
    memset(address, 0x5a, 1000);
    EXPECT_EQ(1, bytesPerPixel);
    EXPECT_EQ(1000, bytesPerStride);
    EXPECT_EQ(NO_ERROR, blob->unlock());
    EXPECT_EQ(1000u, layoutOf(blob->handle).size);
}

TEST(GraphicBufferLockTest, TellsBytesPerPixelAndRow) {
    struct Case {
        int format;
        int32_t bytesPerPixel;
        int32_t bytesPerStride;
    };
    for (const Case& c :
         {Case{HAL_PIXEL_FORMAT_RGBA_8888, 4, 40}, Case{HAL_PIXEL_FORMAT_RGBX_8888, 4, 40},
          Case{HAL_PIXEL_FORMAT_BGRA_8888, 4, 40}, Case{HAL_PIXEL_FORMAT_RGB_888, 3, 30},
          Case{HAL_PIXEL_FORMAT_RGB_565, 2, 20}, Case{HAL_PIXEL_FORMAT_YCbCr_422_I, 2, 20},
          Case{HAL_PIXEL_FORMAT_Y8, 1, 10}, Case{HAL_PIXEL_FORMAT_YCrCb_420_SP, -1, -1},
          Case{HAL_PIXEL_FORMAT_YV12, -1, -1}}) {
        const sp<GraphicBuffer> buffer = allocate(10, 4, c.format);
        ASSERT_EQ(NO_ERROR, buffer->initCheck()) << c.format;
        void* address = nullptr;
        int32_t bytesPerPixel = 0;
        int32_t bytesPerStride = 0;
        EXPECT_EQ(NO_ERROR, buffer->lock(kCpu, &address, &bytesPerPixel, &bytesPerStride));
        EXPECT_EQ(c.bytesPerPixel, bytesPerPixel) << c.format;
        EXPECT_EQ(c.bytesPerStride, bytesPerStride) << c.format;
    }
}

TEST(GraphicBufferLockTest, ARectangleIsOnlyAHint) {
    const sp<GraphicBuffer> buffer = allocate(8, 8, HAL_PIXEL_FORMAT_RGBA_8888);
    void* whole = nullptr;
    void* part = nullptr;
    EXPECT_EQ(NO_ERROR, buffer->lock(kCpu, &whole));
    EXPECT_EQ(NO_ERROR, buffer->lock(kCpu, Rect(2, 2, 8, 8), &part));
    EXPECT_EQ(whole, part);
}

TEST(GraphicBufferLockTest, RefusesARectangleOutside) {
    const sp<GraphicBuffer> rgba = allocate(8, 8, HAL_PIXEL_FORMAT_RGBA_8888);
    const sp<GraphicBuffer> yuv = allocate(8, 8, kFlexible);
    for (const Rect& rect :
         {Rect(-1, 0, 8, 8), Rect(0, -1, 8, 8), Rect(0, 0, 9, 8), Rect(0, 0, 8, 9)}) {
        void* address = nullptr;
        android_ycbcr planes;
        EXPECT_EQ(BAD_VALUE, rgba->lock(kCpu, rect, &address));
        EXPECT_EQ(nullptr, address);
        EXPECT_EQ(BAD_VALUE, yuv->lockYCbCr(kCpu, rect, &planes));
    }
}

TEST(GraphicBufferLockTest, RefusesUsesThatAreNotTheCpus) {
    void* address = nullptr;
    const sp<GraphicBuffer> gpu =
            allocate(8, 8, HAL_PIXEL_FORMAT_RGBA_8888, GraphicBuffer::USAGE_HW_TEXTURE);
    EXPECT_EQ(BAD_VALUE, gpu->lock(kCpu, &address));
    const sp<GraphicBuffer> cpu = allocate(8, 8, HAL_PIXEL_FORMAT_RGBA_8888);
    EXPECT_EQ(BAD_VALUE, cpu->lock(GraphicBuffer::USAGE_HW_TEXTURE, &address));
    EXPECT_EQ(nullptr, address);
    android_ycbcr planes = {};
    const sp<GraphicBuffer> camera = allocate(8, 8, kFlexible, GraphicBuffer::USAGE_HW_TEXTURE);
    EXPECT_EQ(BAD_VALUE, camera->lockYCbCr(kCpu, &planes));
    EXPECT_EQ(nullptr, planes.y);
}

TEST(GraphicBufferLockTest, PlanesAreOnlyToldByTheirOwnLock) {
    void* address = nullptr;
    EXPECT_EQ(BAD_VALUE, allocate(8, 8, kFlexible)->lock(kCpu, &address));
    EXPECT_EQ(nullptr, address);
    android_ycbcr planes;
    for (int format : {HAL_PIXEL_FORMAT_RGBA_8888, HAL_PIXEL_FORMAT_YCbCr_422_I}) {
        EXPECT_EQ(BAD_VALUE, allocate(8, 8, format)->lockYCbCr(kCpu, &planes));
    }
    EXPECT_EQ(BAD_VALUE, allocate(8, 1, HAL_PIXEL_FORMAT_BLOB)->lockYCbCr(kCpu, &planes));
}

TEST(GraphicBufferLockTest, WaitsForTheFenceAndTakesIt) {
    const sp<GraphicBuffer> buffer = allocate(8, 8, HAL_PIXEL_FORMAT_RGBA_8888);
    const android::base::unique_fd event(eventfd(0, EFD_CLOEXEC));
    const int fence = fcntl(event.get(), F_DUPFD_CLOEXEC, 0);
    std::atomic<bool> finished{false};
    std::thread worker([&] {
        finished = true;
        eventfd_write(event.get(), 1);
    });
    void* address = nullptr;
    EXPECT_EQ(NO_ERROR, buffer->lockAsync(kCpu, &address, fence));
    EXPECT_TRUE(finished);
    EXPECT_EQ(-1, fcntl(fence, F_GETFD));
    worker.join();
}

TEST(GraphicBufferLockTest, TakesTheFenceOnErrorsUnlessTheRectangleIsWrong) {
    const sp<GraphicBuffer> buffer = allocate(8, 8, HAL_PIXEL_FORMAT_RGBA_8888);
    android::base::unique_fd kept(eventfd(1, EFD_CLOEXEC));
    void* address = nullptr;
    android_ycbcr planes;
    EXPECT_EQ(BAD_VALUE, buffer->lockAsync(kCpu, Rect(0, 0, 9, 9), &address, kept.get()));
    EXPECT_EQ(BAD_VALUE, buffer->lockAsyncYCbCr(kCpu, Rect(0, 0, 9, 9), &planes, kept.get()));
    EXPECT_NE(-1, fcntl(kept.get(), F_GETFD));
    const int taken = kept.release();
    EXPECT_EQ(BAD_VALUE, buffer->lockAsyncYCbCr(kCpu, &planes, taken));
    EXPECT_EQ(-1, fcntl(taken, F_GETFD));
}

TEST(GraphicBufferLockTest, UnlockGivesNoFence) {
    const sp<GraphicBuffer> buffer = allocate(8, 8, HAL_PIXEL_FORMAT_RGBA_8888);
    void* address = nullptr;
    EXPECT_EQ(NO_ERROR, buffer->lock(kCpu, &address));
    int fence = 99;
    EXPECT_EQ(NO_ERROR, buffer->unlockAsync(&fence));
    EXPECT_EQ(-1, fence);
}

TEST(GraphicBufferLockTest, UnlockWithoutALockIsOnlyLogged) {
    LogRecorder log;
    const sp<GraphicBuffer> buffer = allocate(8, 8, HAL_PIXEL_FORMAT_RGBA_8888);
    void* address = nullptr;
    EXPECT_EQ(NO_ERROR, buffer->lock(kCpu, &address));
    EXPECT_EQ(NO_ERROR, buffer->lock(kCpu, &address));
    EXPECT_EQ(NO_ERROR, buffer->unlock());
    EXPECT_EQ(NO_ERROR, buffer->unlock());
    EXPECT_TRUE(log.lines("GraphicBuffer").empty());
    EXPECT_EQ(NO_ERROR, buffer->unlock());
    EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, "GraphicBuffer", "unlock: the buffer isn't locked"));
    log.clear();
    const sp<GraphicBuffer> planes = allocate(8, 8, kFlexible);
    lockPlanes(*planes);
    EXPECT_EQ(NO_ERROR, planes->unlock());
    EXPECT_TRUE(log.lines("GraphicBuffer").empty());
}

TEST_F(GraphicBufferLayoutTest, IsNv12WithoutPaddingForWebcamSizes) {
    for (const auto& [width, height] :
         {std::pair(640u, 480u), std::pair(1280u, 720u), std::pair(1920u, 1080u)}) {
        const sp<GraphicBuffer> buffer = allocate(width, height, kFlexible);
        const android_ycbcr planes = lockPlanes(*buffer);
        EXPECT_EQ(width, planes.ystride);
        EXPECT_EQ(width, planes.cstride);
        EXPECT_EQ(2u, planes.chroma_step);
        EXPECT_EQ(static_cast<ptrdiff_t>(width * height), offset(planes, planes.cb));
        EXPECT_EQ(1, offset(planes, planes.cr) - offset(planes, planes.cb));
        EXPECT_EQ(width * height * 3 / 2, layoutOf(buffer->handle).size);
        for (uint32_t reserved : planes.reserved) EXPECT_EQ(0u, reserved);
    }
}

TEST_F(GraphicBufferLayoutTest, AlignsRowsToSixteen) {
    const sp<GraphicBuffer> buffer = allocate(98, 10, kFlexible);
    EXPECT_EQ(112u, buffer->getStride());
    EXPECT_EQ(112u, lockPlanes(*buffer).ystride);
    EXPECT_EQ(112u, lockPlanes(*buffer).cstride);
}

TEST_F(GraphicBufferLayoutTest, FollowsTheOptions) {
    setOptions({Chroma::NV21, 64, 32, 100});
    const sp<GraphicBuffer> nv21 = allocate(98, 10, kFlexible);
    android_ycbcr planes = lockPlanes(*nv21);
    EXPECT_EQ(128u, planes.ystride);
    EXPECT_EQ(128 * 32 + 100, offset(planes, planes.cr));
    EXPECT_EQ(128 * 32 + 101, offset(planes, planes.cb));

    setOptions({Chroma::I420, 64, 1, 8});
    const sp<GraphicBuffer> i420 = allocate(98, 10, kFlexible);
    planes = lockPlanes(*i420);
    EXPECT_EQ(128u, planes.ystride);
    EXPECT_EQ(64u, planes.cstride);
    EXPECT_EQ(1u, planes.chroma_step);
    EXPECT_EQ(128 * 10 + 8, offset(planes, planes.cb));
    EXPECT_EQ(128 * 10 + 8 + 64 * 5 + 8, offset(planes, planes.cr));
}

TEST_F(GraphicBufferLayoutTest, OptionsDoNotTouchBuffersThatExist) {
    const sp<GraphicBuffer> buffer = allocate(98, 10, kFlexible);
    setOptions({Chroma::I420, 256, 1, 0});
    EXPECT_EQ(112u, lockPlanes(*buffer).ystride);
    const sp<GraphicBuffer> imported = new GraphicBuffer(
            buffer->handle, GraphicBuffer::CLONE_HANDLE, 98, 10, kFlexible, 1, kCpu, 112);
    EXPECT_EQ(2u, lockPlanes(*imported).chroma_step);
    EXPECT_EQ(112u, lockPlanes(*imported).ystride);
}

TEST_F(GraphicBufferLayoutTest, RefusesOptionsOutOfRange) {
    for (const BufferLayoutOptions& options :
         {BufferLayoutOptions{Chroma::NV12, 0, 1, 0}, BufferLayoutOptions{Chroma::NV12, 24, 1, 0},
          BufferLayoutOptions{Chroma::NV12, 8192, 1, 0},
          BufferLayoutOptions{Chroma::NV12, 16, 0, 0}, BufferLayoutOptions{Chroma::NV12, 16, 3, 0},
          BufferLayoutOptions{Chroma::NV12, 16, 512, 0},
          BufferLayoutOptions{Chroma::NV12, 16, 1, 65537}}) {
        EXPECT_FALSE(android::setBufferLayoutOptions(options));
    }
    EXPECT_EQ(16u, android::getBufferLayoutOptions().strideAlignment);
}

TEST_F(GraphicBufferLayoutTest, HoldsEverySampleOfEveryLayout) {
    for (Chroma chroma : {Chroma::NV12, Chroma::NV21, Chroma::I420}) {
        for (uint32_t alignment : {1u, 2u, 16u, 64u, 4096u}) {
            for (uint32_t gap : {0u, 3u}) {
                setOptions({chroma, alignment, 1, gap});
                for (const auto& [width, height] : {std::pair(1u, 1u), std::pair(17u, 5u),
                                                    std::pair(64u, 32u), std::pair(33u, 2u)}) {
                    const sp<GraphicBuffer> buffer = allocate(width, height, kFlexible);
                    ASSERT_EQ(NO_ERROR, buffer->initCheck());
                    fill(*buffer);
                }
            }
        }
    }
}

TEST_F(GraphicBufferLayoutTest, OptionsDoNotTouchFormatsOfFixedLayout) {
    setOptions({Chroma::I420, 256, 32, 64});
    const sp<GraphicBuffer> nv21 = allocate(98, 10, HAL_PIXEL_FORMAT_YCrCb_420_SP);
    android_ycbcr planes = lockPlanes(*nv21);
    EXPECT_EQ(112u, planes.ystride);
    EXPECT_EQ(112 * 10, offset(planes, planes.cr));
    EXPECT_EQ(112 * 10 + 1, offset(planes, planes.cb));
    fill(*nv21);

    const sp<GraphicBuffer> yv12 = allocate(98, 10, HAL_PIXEL_FORMAT_YV12);
    planes = lockPlanes(*yv12);
    EXPECT_EQ(112u, planes.ystride);
    EXPECT_EQ(64u, planes.cstride);
    EXPECT_EQ(112 * 10, offset(planes, planes.cr));
    EXPECT_EQ(112 * 10 + 64 * 5, offset(planes, planes.cb));
    fill(*yv12);
}
