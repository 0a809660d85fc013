// SPDX-License-Identifier: Apache-2.0
// A frame on its way through the daemon and back asks for no memory: a stream's first frames do.

#include <optional>

#include <malloc.h>

#include <gtest/gtest.h>

#include "support/AllocationCounter.h"
#include "support/DaemonWorld.h"
#include "support/SurfaceCamera.h"

namespace korvane::test {
namespace {

constexpr char kNv12[] = R"({"create-surface":{"width":640,"height":480,"consumer-usage":3,)"
                         R"("v4l2-format":"NV12","fps":30}})";
constexpr char kMjpeg[] = R"({"create-surface":{"width":640,"height":480,"consumer-usage":3,)"
                          R"("v4l2-format":"MJPG","fps":30}})";
constexpr uint32_t kBlobCapacity = 65536;
constexpr int kFrames = 100;

class FrameAllocationTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mWorld.available()) GTEST_SKIP() << mWorld.whyNot();
        mWorld.start();
    }

    void stream(uint8_t format, const char* surface, uint32_t width = 0, uint32_t height = 0) {
        mWorld.commit(format, 1);
        mWorld.startStream();
        ASSERT_EQ(mWorld.command(surface), "");
        mCamera.emplace(mWorld.surface(), width, height);
        mWorld.node.setQuiet(true);
    }

    // The stream's last steps come after the driver's last call: the next request is answered after
    // them.
    void endStream() {
        mWorld.stopStream();
        mWorld.commit(1, 1);
    }

    // Frames one at a time: into a buffer, to the host, back to the camera.
    void passFrames(int count) {
        for (int i = 0; i < count; ++i) {
            queueFrame();
            ASSERT_TRUE(mWorld.node.send());
            mWorld.node.waitUntilIdle();
        }
    }

    void queueFrame() {
        const int slot = mCamera->dequeue();
        if (mCamera->buffer(slot)->getHeight() == 1) drawBlob(*mCamera->buffer(slot));
        mCamera->queue(slot);
    }

    static void drawBlob(android::GraphicBuffer& blob) {
        void* memory = nullptr;
        blob.lock(android::GraphicBuffer::USAGE_SW_WRITE_OFTEN, &memory);
        const uint32_t footer[2] = {0x00FF, 1000};
        memcpy(static_cast<uint8_t*>(memory) + kBlobCapacity - sizeof(footer), footer,
               sizeof(footer));
        blob.unlock();
    }

    // Every buffer, and every list at its longest, once.
    void warmUp() {
        for (int i = 0; i < 4; ++i) queueFrame();
        queueFrame();  // no device buffer is free: it waits in the queue
        while (mWorld.node.send()) mWorld.node.waitUntilIdle();
        passFrames(20);
    }

    uint64_t allocationsOf(int frames) {
        const uint64_t before = allocations();
        passFrames(frames);
        return allocations() - before;
    }

    static size_t bytesInUse() {
        const struct mallinfo2 heap = mallinfo2();
        return heap.uordblks + heap.hblkhd;
    }

    DaemonWorld mWorld;
    std::optional<SurfaceCamera> mCamera;
};

TEST_F(FrameAllocationTest, AConvertedFrameAllocatesNothing) {
    stream(1, kNv12);
    warmUp();
    EXPECT_EQ(0u, allocationsOf(kFrames));
}

TEST_F(FrameAllocationTest, TheScratchBufferOfAConversionGoesWithItsStream) {
    constexpr size_t kScratch = 640 * 480 * 2;
    stream(1, kNv12);
    const size_t before = bytesInUse();
    passFrames(1);
    EXPECT_GE(bytesInUse(), before + kScratch);
    endStream();
    EXPECT_LT(bytesInUse(), before + kScratch / 2);
}

TEST_F(FrameAllocationTest, ABlobAllocatesNothing) {
    stream(2, kMjpeg, kBlobCapacity, 1);
    warmUp();
    EXPECT_EQ(0u, allocationsOf(kFrames));
}

}  // namespace
}  // namespace korvane::test
