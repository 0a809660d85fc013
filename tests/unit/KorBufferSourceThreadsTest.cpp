// SPDX-License-Identifier: Apache-2.0
// The frame source entered by its producer, its component and its owner at the same time.
#include <atomic>
#include <condition_variable>
#include <list>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/FrameSourceTest.h"

namespace {

using android::ComponentWrapper;
using android::GraphicBuffer;
using android::KorBufferSource;
using android::OK;
using android::sp;
using android::status_t;
using korvane::test::FrameSourceTest;

// Gives every codec buffer back, in turn, on a thread of its own.
class Device : public ComponentWrapper {
  public:
    explicit Device(KorBufferSource* source) : mSource(source), mThread([this] { giveBack(); }) {}

    // Returns when all that was lent has come back.
    void finish() {
        {
            std::lock_guard<std::mutex> guard(mLock);
            mFinished = true;
            mChanged.notify_all();
        }
        mThread.join();
    }

    int framesSubmitted() const { return mFramesSubmitted; }

    status_t submitBuffer(int bufferId, const sp<GraphicBuffer>&, int64_t, int) override {
        std::lock_guard<std::mutex> guard(mLock);
        mLent.push_back(bufferId);
        ++mFramesSubmitted;
        mChanged.notify_all();
        return OK;
    }
    status_t submitEos(int) override { return OK; }
    void dispatchDataSpaceChanged(int, int, int) override {}

  private:
    void giveBack() {
        for (;;) {
            int bufferId = 0;
            {
                std::unique_lock<std::mutex> guard(mLock);
                mChanged.wait(guard, [this] { return mFinished || !mLent.empty(); });
                if (mLent.empty()) return;
                bufferId = mLent.front();
                mLent.pop_front();
            }
            EXPECT_EQ(OK, mSource->onInputBufferEmptied(bufferId, -1));
        }
    }

    KorBufferSource* const mSource;
    std::atomic<int> mFramesSubmitted{0};
    std::mutex mLock;
    std::condition_variable mChanged;
    std::list<int> mLent;
    bool mFinished = false;
    std::thread mThread;
};

class KorBufferSourceThreadsTest : public FrameSourceTest {
  protected:
    static constexpr int kCodecBuffers = 3;

    KorBufferSourceThreadsTest() {
        EXPECT_EQ(OK, source->configure(device, 4, kWidth, kHeight, kNv12, 3));
        for (int id = 0; id < kCodecBuffers; ++id) (void)source->onInputBufferAdded(id);
        EXPECT_EQ(OK, producer.connect(4));
        EXPECT_EQ(OK, source->start());
    }

    void expectEverythingBack() {
        EXPECT_EQ(static_cast<size_t>(kCodecBuffers), freeCodecBuffers().size());
        EXPECT_EQ(0, peer.outstandingAcquires());
        EXPECT_EQ(0, peer.unacquiredCount());
    }

    sp<Device> device = new Device(source.get());
};

TEST_F(KorBufferSourceThreadsTest, LosesNoFrame) {
    int queued = 0;
    for (int64_t ms = 1; queued < 300; ++ms) {
        if (queueFrame(ms * kMs) >= 0) {
            ++queued;
        } else {
            std::this_thread::yield();  // all buffers are on their way
        }
    }
    device->finish();
    EXPECT_EQ(300, device->framesSubmitted());
    expectEverythingBack();
}

TEST_F(KorBufferSourceThreadsTest, KeepsItsCountsWhilePausedResumedAndReconnected) {
    std::thread camera([this] {
        for (int64_t ms = 1; ms <= 300; ++ms) {
            if (ms % 50 == 0) {
                EXPECT_EQ(OK, producer.disconnect());
                EXPECT_EQ(OK, producer.connect(4));
            }
            queueFrame(ms * kMs);
            std::this_thread::yield();
        }
    });
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(OK, source->setSuspend(i % 2 == 0, -1));
        std::this_thread::yield();
    }
    camera.join();
    // Resumed now: whatever became of the others, this one comes through.
    const int before = device->framesSubmitted();
    while (queueFrame(301 * kMs) < 0) std::this_thread::yield();
    device->finish();
    EXPECT_GT(device->framesSubmitted(), before);
    expectEverythingBack();
}

}  // namespace
