// SPDX-License-Identifier: Apache-2.0
// Lets a test look into the buffer queue that the code under test creates, and make it misbehave.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <gui/BufferQueue.h>
#include <gui/IGraphicBufferConsumer.h>
#include <gui/IGraphicBufferProducer.h>
#include <utils/RefBase.h>

namespace korvane::test {

/**
 * The consumer end of a real queue. Every call is passed on to the queue unless the test has set
 * another result for it; then the queue never sees it. Thread-safe except for the members that a
 * test sets.
 *
 * A program that links korvane_queue_spy gets one with each BufferQueue::createBufferQueue().
 */
class QueueSpy : public android::IGraphicBufferConsumer {
  public:
    /** One releaseBuffer(). */
    struct Release {
        int slot;
        uint64_t frameNumber;
        android::sp<android::Fence> fence;
        android::status_t result;
    };

    /** The spy of the latest queue. */
    static android::sp<QueueSpy> last();

    /** The result of one call of this name to the next queue to be created. */
    static void failInTheNextQueue(const std::string& call, android::status_t result);

    /** The names under which Fence::merge() was called, all of them. */
    static std::vector<std::string>& mergeNames();

    QueueSpy(const android::sp<android::IGraphicBufferConsumer>& consumer,
             const android::sp<android::IGraphicBufferProducer>& producer)
        : mConsumer(consumer), mProducer(producer) {}

    const android::sp<android::IGraphicBufferProducer>& producer() const { return mProducer; }

    /** From now on the call of this name does nothing and returns this result; OK ends that. */
    void setResult(const std::string& call, android::status_t result);

    /** The calls so far, by name, in order. */
    std::vector<std::string> calls() const;
    size_t count(const std::string& call) const;
    std::vector<Release> releases() const;
    void clear();

    /** What the queue was created with. */
    bool isCompositors = true;

    /** What the calls last passed. */
    android::sp<android::IConsumerListener> listener;
    bool controlledByApp = true;
    std::string name;
    int maxAcquired = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    int format = 0;
    uint32_t dataSpace = 0;
    uint64_t usage = 0;
    uint64_t maxFrameNumber = 1;
    int64_t presentWhen = 1;

    /** Runs in every call, with its name, before the queue sees it. */
    std::function<void(const std::string&)> duringCall = [](const std::string&) {};
    /** Changes what acquireBuffer() returns. */
    std::function<void(android::BufferItem*)> onAcquired = [](android::BufferItem*) {};
    /** Runs in the middle of releaseBuffer(). */
    std::function<void()> onReleased = [] {};
    /** Added to, and removed from, what getReleasedBuffers() reports. */
    uint64_t moreReleased = 0;
    uint64_t lessReleased = 0;

    android::status_t acquireBuffer(android::BufferItem* buffer, nsecs_t presentWhen,
                                    uint64_t maxFrameNumber) override;
    android::status_t detachBuffer(int slot) override;
    android::status_t attachBuffer(int* outSlot,
                                   const android::sp<android::GraphicBuffer>& buffer) override;
    android::status_t releaseBuffer(int slot, uint64_t frameNumber, EGLDisplay display,
                                    EGLSyncKHR eglFence,
                                    const android::sp<android::Fence>& fence) override;
    android::status_t consumerConnect(const android::sp<android::IConsumerListener>& consumer,
                                      bool controlledByApp) override;
    android::status_t consumerDisconnect() override;
    android::status_t getReleasedBuffers(uint64_t* slotMask) override;
    android::status_t setDefaultBufferSize(uint32_t width, uint32_t height) override;
    android::status_t setMaxBufferCount(int bufferCount) override;
    android::status_t setMaxAcquiredBufferCount(int maxAcquiredBuffers) override;
    android::status_t setConsumerName(const android::String8& name) override;
    android::status_t setDefaultBufferFormat(android::PixelFormat format) override;
    android::status_t setDefaultBufferDataSpace(android_dataspace dataSpace) override;
    android::status_t setConsumerUsageBits(uint64_t usage) override;
    android::status_t setConsumerIsProtected(bool isProtected) override;
    android::status_t setTransformHint(uint32_t hint) override;
    android::status_t getSidebandStream(
            android::sp<android::NativeHandle>* outStream) const override;
    android::status_t discardFreeBuffers() override;

  private:
    // Records the call and makes it, or returns the result that the test has set for it.
    android::status_t call(const std::string& name,
                           const std::function<android::status_t()>& action);

    const android::sp<android::IGraphicBufferConsumer> mConsumer;
    const android::sp<android::IGraphicBufferProducer> mProducer;

    mutable std::mutex mLock;
    std::vector<std::string> mCalls;
    std::vector<Release> mReleases;
    std::map<std::string, android::status_t> mResults;
};

}  // namespace korvane::test
