// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "BufferQueue"

#include "gui/BufferQueue.h"

#include <gui/BufferQueueConsumer.h>
#include <gui/BufferQueueCore.h>
#include <gui/BufferQueueProducer.h>
#include <log/log.h>

namespace android {

BufferQueue::ProxyConsumerListener::ProxyConsumerListener(
        const wp<ConsumerListener>& consumerListener)
    : mConsumerListener(consumerListener) {}

BufferQueue::ProxyConsumerListener::~ProxyConsumerListener() = default;

void BufferQueue::ProxyConsumerListener::onDisconnect() {
    const sp<ConsumerListener> listener(mConsumerListener.promote());
    if (listener != nullptr) listener->onDisconnect();
}

void BufferQueue::ProxyConsumerListener::onFrameDequeued(const uint64_t bufferId) {
    const sp<ConsumerListener> listener(mConsumerListener.promote());
    if (listener != nullptr) listener->onFrameDequeued(bufferId);
}

void BufferQueue::ProxyConsumerListener::onFrameCancelled(const uint64_t bufferId) {
    const sp<ConsumerListener> listener(mConsumerListener.promote());
    if (listener != nullptr) listener->onFrameCancelled(bufferId);
}

void BufferQueue::ProxyConsumerListener::onFrameDetached(const uint64_t bufferId) {
    const sp<ConsumerListener> listener(mConsumerListener.promote());
    if (listener != nullptr) listener->onFrameDetached(bufferId);
}

void BufferQueue::ProxyConsumerListener::onFrameAvailable(const BufferItem& item) {
    const sp<ConsumerListener> listener(mConsumerListener.promote());
    if (listener != nullptr) listener->onFrameAvailable(item);
}

void BufferQueue::ProxyConsumerListener::onFrameReplaced(const BufferItem& item) {
    const sp<ConsumerListener> listener(mConsumerListener.promote());
    if (listener != nullptr) listener->onFrameReplaced(item);
}

void BufferQueue::ProxyConsumerListener::onBuffersReleased() {
    const sp<ConsumerListener> listener(mConsumerListener.promote());
    if (listener != nullptr) listener->onBuffersReleased();
}

void BufferQueue::ProxyConsumerListener::onSidebandStreamChanged() {
    const sp<ConsumerListener> listener(mConsumerListener.promote());
    if (listener != nullptr) listener->onSidebandStreamChanged();
}

void BufferQueue::ProxyConsumerListener::addAndGetFrameTimestamps(
        const NewFrameEventsEntry* newTimestamps, FrameEventHistoryDelta* outDelta) {
    const sp<ConsumerListener> listener(mConsumerListener.promote());
    if (listener != nullptr) listener->addAndGetFrameTimestamps(newTimestamps, outDelta);
}

void BufferQueue::createBufferQueue(sp<IGraphicBufferProducer>* outProducer,
                                    sp<IGraphicBufferConsumer>* outConsumer,
                                    bool consumerIsSurfaceFlinger) {
    LOG_ALWAYS_FATAL_IF(outProducer == nullptr, "BufferQueue: outProducer must not be NULL");
    LOG_ALWAYS_FATAL_IF(outConsumer == nullptr, "BufferQueue: outConsumer must not be NULL");
    const sp<BufferQueueCore> core(new BufferQueueCore());
    *outProducer = new BufferQueueProducer(core, consumerIsSurfaceFlinger);
    *outConsumer = new BufferQueueConsumer(core);
}

}  // namespace android
