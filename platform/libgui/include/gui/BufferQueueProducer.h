// SPDX-License-Identifier: Apache-2.0
// The producer's end of a buffer queue, on its core.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

#include <gui/BufferQueueCore.h>
#include <gui/IGraphicBufferProducer.h>

namespace android {

/** See IGraphicBufferProducer. Made by BufferQueue::createBufferQueue(). */
class BufferQueueProducer : public BnGraphicBufferProducer {
  public:
    explicit BufferQueueProducer(const sp<BufferQueueCore>& core,
                                 bool consumerIsSurfaceFlinger = false);
    ~BufferQueueProducer() override = default;

    status_t requestBuffer(int slot, sp<GraphicBuffer>* buf) override;
    status_t setMaxDequeuedBufferCount(int maxDequeuedBuffers) override;
    status_t setAsyncMode(bool async) override;
    status_t dequeueBuffer(int* outSlot, sp<Fence>* outFence, uint32_t width, uint32_t height,
                           PixelFormat format, uint64_t usage, uint64_t* outBufferAge,
                           FrameEventHistoryDelta* outTimestamps) override;
    status_t detachBuffer(int slot) override;
    status_t detachNextBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence) override;
    status_t attachBuffer(int* outSlot, const sp<GraphicBuffer>& buffer) override;
    status_t queueBuffer(int slot, const QueueBufferInput& input,
                         QueueBufferOutput* output) override;
    status_t cancelBuffer(int slot, const sp<Fence>& fence) override;
    int query(int what, int* outValue) override;
    status_t connect(const sp<IProducerListener>& listener, int api, bool producerControlledByApp,
                     QueueBufferOutput* output) override;
    status_t disconnect(int api, DisconnectMode mode = DisconnectMode::Api) override;
    status_t disconnectListener(const sp<IProducerListener>& listener) override;
    status_t setSidebandStream(const sp<NativeHandle>& stream) override;
    void allocateBuffers(uint32_t width, uint32_t height, PixelFormat format,
                         uint64_t usage) override;
    status_t allowAllocation(bool allow) override;
    status_t setGenerationNumber(uint32_t generationNumber) override;
    String8 getConsumerName() const override;
    status_t setSharedBufferMode(bool sharedBufferMode) override;
    status_t setAutoRefresh(bool autoRefresh) override;
    status_t setDequeueTimeout(nsecs_t timeout) override;
    status_t setLegacyBufferDrop(bool drop) override;
    status_t getLastQueuedBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence,
                                 float outTransformMatrix[16]) override;
    status_t getLastQueuedBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence, Rect* outRect,
                                 uint32_t* outTransform) override;
    void getFrameTimestamps(FrameEventHistoryDelta* outDelta) override;
    status_t getUniqueId(uint64_t* outId) const override;
    status_t getConsumerUsage(uint64_t* outUsage) const override;
    status_t setAutoPrerotation(bool autoPrerotation) override;

  private:
    enum class FreeSlotCaller { Dequeue, Attach };

    /** What a dequeue asks for, the consumer's defaults filled in. */
    struct Request {
        uint32_t width;
        uint32_t height;
        PixelFormat format;
        uint64_t usage;

        bool operator==(const Request& other) const {
            return width == other.width && height == other.height && format == other.format &&
                   usage == other.usage;
        }
    };

    /** A slot that a dequeue has taken. */
    struct Dequeued {
        int slot;
        bool needsBuffer;
        /** The producer must be told to ask for the buffer, though it isn't new. */
        bool needsRequest;
        uint64_t age;
        sp<Fence> fence;
    };

    /** A queued frame's way to the listener. */
    struct FrameCallback {
        BufferItem item;
        sp<IConsumerListener> listener;
        bool replaced = false;
        uint64_t ticket = 0;
    };

    status_t checkConnected_l() const;
    status_t checkDequeued_l(int slot) const;
    bool isSuited_l(int slot, const Request& request) const;

    status_t dequeueSlot(Request request, Request* outRequest, Dequeued* out);
    status_t takeSlot_l(std::unique_lock<std::mutex>& lock, const Request& request, int* outSlot);
    void markDequeued_l(int slot, const Request& request, Dequeued* out);
    status_t allocateForSlot(int slot, const Request& request);
    sp<GraphicBuffer> makeBuffer(const Request& request, const String8& name) const;
    Request preallocationRequest_l(const Request& request) const;
    bool preallocateOne(const Request& request);

    status_t waitForFreeSlot_l(FreeSlotCaller caller, std::unique_lock<std::mutex>& lock,
                               int* outSlot);
    int takeFreeSlot_l(FreeSlotCaller caller);
    bool waitForRelease_l(std::unique_lock<std::mutex>& lock);

    status_t checkQueueInput_l(int slot, const QueueBufferInput& input) const;
    BufferItem makeItem_l(int slot, const QueueBufferInput& input) const;
    void enqueue_l(BufferItem item, QueueBufferOutput* output, FrameCallback* callback);
    void rememberLastQueued_l(int slot, const QueueBufferInput& input);
    void deliver(const FrameCallback& callback);
    /** No longer than the queue and its producer last: a fence may never signal. */
    void waitForLast(Fence& fence) const;

    status_t checkConnect_l(const QueueBufferOutput* output) const;
    void connect_l(const sp<IProducerListener>& listener, int api, QueueBufferOutput* output);
    status_t checkDisconnect_l(int* api, DisconnectMode mode, bool* outNothingToDo) const;
    /** Takes the lock over, to let it go before the consumer is told. */
    void endConnection(std::unique_lock<std::mutex> lock);
    void fillOutput_l(QueueBufferOutput* output) const;
    static bool isApi(int api);

    const sp<BufferQueueCore> mCore;
    const bool mConsumerIsSurfaceFlinger;

    /** Guarded by the core's mutex, like the three below. */
    nsecs_t mDequeueTimeout = -1;
    String8 mConsumerName;
    uint64_t mNextCallbackTicket = 0;

    /** Held while a frame callback runs. Never taken with the core's mutex held. */
    std::mutex mCallbackMutex;
    std::condition_variable mCallbackCondition;
    /** Whose turn it is. Guarded by mCallbackMutex. */
    uint64_t mCurrentCallbackTicket = 0;
};

}  // namespace android
