// SPDX-License-Identifier: Apache-2.0
// The producer's end of a buffer queue, on its core.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>

#include <android-base/thread_annotations.h>
#include <gui/BufferQueueCore.h>
#include <gui/IGraphicBufferProducer.h>
#include <gui/QueueCondition.h>

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
    String8 getConsumerName() const override EXCLUDES_CORE;
    status_t setSharedBufferMode(bool sharedBufferMode) override;
    status_t setAutoRefresh(bool autoRefresh) override;
    status_t setDequeueTimeout(nsecs_t timeout) override;
    status_t setLegacyBufferDrop(bool drop) override;
    status_t getLastQueuedBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence,
                                 float outTransformMatrix[16]) override;
    status_t getLastQueuedBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence, Rect* outRect,
                                 uint32_t* outTransform) override;
    void getFrameTimestamps(FrameEventHistoryDelta* outDelta) override EXCLUDES_CORE;
    status_t getUniqueId(uint64_t* outId) const override;
    status_t getConsumerUsage(uint64_t* outUsage) const override;
    status_t setAutoPrerotation(bool autoPrerotation) override;

  private:
    enum class FreeSlotCaller { DEQUEUE, ATTACH };

    /** What a dequeue asks for, with the consumer's defaults filled in. */
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

    /**
     * What is left of a connection. Its listeners are told and dropped without the lock: the
     * producer's may be a proxy of the client's.
     */
    struct EndedConnection {
        sp<IProducerListener> producerListener;
        sp<IConsumerListener> consumerListener;

        void tellConsumer() const;
    };

    status_t checkConnected_l() const REQUIRES_CORE;
    status_t checkDequeued_l(int slot) const REQUIRES_CORE;
    bool isSuited_l(int slot, const Request& request) const REQUIRES_CORE;

    status_t dequeueSlot(Request request, Request* outRequest, Dequeued* out) EXCLUDES_CORE;
    status_t takeSlot_l(const Request& request, int* outSlot) REQUIRES_CORE;
    void markDequeued_l(int slot, const Request& request, Dequeued* out) REQUIRES_CORE;
    status_t allocateForSlot(int slot, const Request& request) EXCLUDES_CORE;
    sp<GraphicBuffer> makeBuffer(const Request& request, const String8& name) const;
    Request preallocationRequest_l(const Request& request) const REQUIRES_CORE;
    bool preallocateOne(const Request& request) EXCLUDES_CORE;

    status_t waitForFreeSlot_l(FreeSlotCaller caller, int* outSlot) REQUIRES_CORE;
    int takeFreeSlot_l(FreeSlotCaller caller) REQUIRES_CORE;
    bool waitForRelease_l() REQUIRES_CORE;

    status_t checkQueueInput_l(int slot, const QueueBufferInput& input) const REQUIRES_CORE;
    BufferItem makeItem_l(int slot, const QueueBufferInput& input) const REQUIRES_CORE;
    void enqueue_l(BufferItem item, QueueBufferOutput* output,
                   FrameCallback* callback) REQUIRES_CORE;
    void rememberLastQueued_l(int slot, const QueueBufferInput& input) REQUIRES_CORE;
    /** Tells the consumer when the frame was queued; the producer is told of earlier ones. */
    static void exchangeFrameEvents(const FrameCallback& callback, const QueueBufferInput& input,
                                    QueueBufferOutput* output);
    void deliver(const FrameCallback& callback) EXCLUDES(mCallbackMutex) EXCLUDES_CORE;
    /** Gives up once the queue or its producer is gone: a fence may never signal. */
    void waitForLast(Fence& fence) const EXCLUDES_CORE;

    status_t checkConnect_l(const QueueBufferOutput* output) const REQUIRES_CORE;
    void connect_l(const sp<IProducerListener>& listener, int api,
                   QueueBufferOutput* output) REQUIRES_CORE;
    status_t checkDisconnect_l(int* api, DisconnectMode mode,
                               bool* outNothingToDo) const REQUIRES_CORE;
    EndedConnection endConnection_l() REQUIRES_CORE;
    void fillOutput_l(QueueBufferOutput* output) const REQUIRES_CORE;
    static bool isApi(int api);
    /** What query() answers; nothing for a key that it doesn't know. */
    std::optional<int> valueOf_l(int what) const REQUIRES_CORE;

    const sp<BufferQueueCore> mCore;
    const bool mConsumerIsSurfaceFlinger;

    nsecs_t mDequeueTimeout GUARDED_BY_CORE = -1;
    String8 mConsumerName GUARDED_BY_CORE;
    uint64_t mNextCallbackTicket GUARDED_BY_CORE = 0;

    /** Held while a frame callback runs, which may call the consumer's end. */
    std::mutex mCallbackMutex ACQUIRED_BEFORE_CORE;
    QueueCondition mCallbackCondition;
    /** Whose turn it is. */
    uint64_t mCurrentCallbackTicket GUARDED_BY(mCallbackMutex) = 0;
};

}  // namespace android
