// SPDX-License-Identifier: Apache-2.0
// A buffer queue between a recording consumer and a recording producer.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <gui/BufferQueue.h>
#include <system/window.h>
#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>

#include "support/PendingCall.h"

namespace korvane::test {

using namespace android;
using QueueBufferInput = IGraphicBufferProducer::QueueBufferInput;
using QueueBufferOutput = IGraphicBufferProducer::QueueBufferOutput;

constexpr uint64_t kCpuUsage =
        GraphicBuffer::USAGE_SW_READ_OFTEN | GraphicBuffer::USAGE_SW_WRITE_OFTEN;
constexpr int kNeedsRequest = IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION;

/** What listeners were told, in order: "available 1", "replaced 2", "released", ... Thread-safe. */
class Events {
  public:
    void add(const std::string& event) {
        std::lock_guard<std::mutex> lock(mMutex);
        mEvents.push_back(event);
    }
    /** The events since the last call. */
    std::vector<std::string> take() {
        std::lock_guard<std::mutex> lock(mMutex);
        return std::exchange(mEvents, {});
    }

  private:
    std::mutex mMutex;
    std::vector<std::string> mEvents;
};

using EventList = std::vector<std::string>;

/** Records every callback and runs `hook` in it, with the name of the event. */
class RecordingConsumerListener : public BnConsumerListener {
  public:
    void onDisconnect() override { record("disconnect"); }
    void onFrameDequeued(const uint64_t id) override { record("dequeued", &id); }
    void onFrameCancelled(const uint64_t id) override { record("cancelled", &id); }
    void onFrameDetached(const uint64_t id) override { record("detached", &id); }
    void onFrameAvailable(const BufferItem& item) override { record("available", item); }
    void onFrameReplaced(const BufferItem& item) override { record("replaced", item); }
    void onBuffersReleased() override { record("released"); }
    void onSidebandStreamChanged() override { record("sideband"); }
    void addAndGetFrameTimestamps(const NewFrameEventsEntry* entry,
                                  FrameEventHistoryDelta* delta) override {
        if (entry != nullptr) {
            std::lock_guard<std::mutex> lock(mTimestampsMutex);
            timestamps.push_back(*entry);
        }
        if (delta != nullptr) delta->setCompositorTiming({1, 2, 3});
        if (hook) hook("timestamps");
    }

    Events events;
    /** The id that came with the latest event about a buffer. */
    uint64_t lastId = 0;
    BufferItem lastItem;
    std::vector<NewFrameEventsEntry> timestamps;
    std::function<void(const std::string&)> hook;

  private:
    // The only callback that several threads may be in at once.
    std::mutex mTimestampsMutex;

    void record(const std::string& event, const uint64_t* id = nullptr) {
        if (id != nullptr) lastId = *id;
        events.add(event);
        if (hook) hook(event);
    }
    void record(const std::string& event, const BufferItem& item) {
        lastItem = item;
        events.add(event + " " + std::to_string(item.mFrameNumber));
        if (hook) hook(event);
    }
};

/** Counts and records; `hook` as above. */
class RecordingProducerListener : public BnProducerListener {
  public:
    explicit RecordingProducerListener(bool wantsReleases) : mWantsReleases(wantsReleases) {}

    void onBufferReleased() override {
        ++released;
        if (hook) hook("released");
    }
    bool needsReleaseNotify() override {
        ++asked;
        if (hook) hook("asked");
        return mWantsReleases;
    }
    void onBuffersDiscarded(const std::vector<int32_t>& slots) override {
        discarded.push_back(slots);
        if (hook) hook("discarded");
    }

    int released = 0;
    int asked = 0;
    std::vector<std::vector<int32_t>> discarded;
    std::function<void(const std::string&)> hook;

  private:
    const bool mWantsReleases;
};

/** One-line versions of five-line calls; each returns the queue's status. */
class BufferQueueTest : public ::testing::Test {
  protected:
    BufferQueueTest() { createQueue(false); }

    void createQueue(bool consumerIsSurfaceFlinger) {
        BufferQueue::createBufferQueue(&producer, &consumer, consumerIsSurfaceFlinger);
    }

    status_t connectConsumer(bool byApp = false) {
        return consumer->consumerConnect(listener, byApp);
    }
    status_t connectProducer(bool byApp = false, int api = NATIVE_WINDOW_API_CPU) {
        return producer->connect(producerListener, api, byApp, &output);
    }
    /** Both ends, and no waiting: whatever would block returns TIMED_OUT. */
    void connect() {
        ASSERT_EQ(NO_ERROR, connectConsumer());
        ASSERT_EQ(NO_ERROR, connectProducer());
        ASSERT_EQ(NO_ERROR, producer->setDequeueTimeout(0));
        listener->events.take();
    }

    /** Sets `slot`, `fence`, `age`. */
    status_t dequeue(uint32_t width = 0, uint32_t height = 0, PixelFormat format = 0,
                     uint64_t usage = kCpuUsage) {
        return producer->dequeueBuffer(&slot, &fence, width, height, format, usage, &age, nullptr);
    }
    status_t request(int ofSlot) { return producer->requestBuffer(ofSlot, &buffer); }
    status_t dequeueAndRequest() {
        const status_t status = dequeue();
        return status < 0 ? status : request(slot);
    }

    /** The statuses of this many dequeues in a row; each buffer dequeued is requested. */
    std::vector<status_t> dequeueMany(int count) {
        std::vector<status_t> statuses;
        for (int i = 0; i < count; ++i) {
            statuses.push_back(dequeue());
            if (statuses.back() >= 0) {
                EXPECT_EQ(NO_ERROR, request(slot));
            }
        }
        return statuses;
    }

    static QueueBufferInput input(int64_t timestamp = 0) {
        return QueueBufferInput(timestamp, false, HAL_DATASPACE_UNKNOWN, Rect(0, 0, 0, 0),
                                NATIVE_WINDOW_SCALING_MODE_FREEZE, 0, Fence::NO_FENCE);
    }
    status_t queue(int ofSlot) { return producer->queueBuffer(ofSlot, input(), &output); }
    /** Dequeues, requests and queues; sets `slot`. */
    status_t queueFrame(int64_t timestamp = 0) {
        const status_t status = dequeueAndRequest();
        return status < 0 ? status : producer->queueBuffer(slot, input(timestamp), &output);
    }
    /** Sets `item`. */
    status_t acquire(nsecs_t presentWhen = 0, uint64_t maxFrameNumber = 0) {
        return consumer->acquireBuffer(&item, presentWhen, maxFrameNumber);
    }
    status_t release(const BufferItem& acquired) {
        return release(acquired.mSlot, acquired.mFrameNumber);
    }
    status_t release(int ofSlot, uint64_t frame, const sp<Fence>& releaseFence = Fence::NO_FENCE) {
        return consumer->releaseBuffer(ofSlot, frame, EGL_NO_DISPLAY, EGL_NO_SYNC_KHR,
                                       releaseFence);
    }

    uint64_t releasedMask() {
        uint64_t mask = 0;
        EXPECT_EQ(NO_ERROR, consumer->getReleasedBuffers(&mask));
        return mask;
    }
    int query(int what) {
        int value = -1;
        EXPECT_EQ(NO_ERROR, producer->query(what, &value));
        return value;
    }
    /** A buffer from elsewhere. */
    static sp<GraphicBuffer> foreignBuffer(uint32_t generation = 0) {
        const sp<GraphicBuffer> made =
                new GraphicBuffer(1, 1, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage);
        made->setGenerationNumber(generation);
        return made;
    }

    /** Whether another thread's calls to the queue have to wait at this moment. */
    bool isQueueLocked() {
        mProbes.emplace_back([this] { return consumer->setTransformHint(0); });
        return mProbes.back().isHeldUp();
    }

    sp<IGraphicBufferProducer> producer;
    sp<IGraphicBufferConsumer> consumer;
    const sp<RecordingConsumerListener> listener = new RecordingConsumerListener();
    const sp<RecordingProducerListener> producerListener = new RecordingProducerListener(true);
    int slot = -1;
    sp<Fence> fence;
    uint64_t age = 0;
    sp<GraphicBuffer> buffer;
    BufferItem item;
    QueueBufferOutput output;

  private:
    std::vector<PendingCall<status_t>> mProbes;
};

}  // namespace korvane::test
