// SPDX-License-Identifier: Apache-2.0
#include "support/QueueSpy.h"

#include <algorithm>
#include <utility>

#include <ui/Fence.h>
#include <utils/String8.h>

using android::BufferItem;
using android::Fence;
using android::IGraphicBufferConsumer;
using android::IGraphicBufferProducer;
using android::OK;
using android::sp;
using android::status_t;

namespace korvane::test {
namespace {

sp<QueueSpy> sLast;
std::map<std::string, status_t> sResultsOfNext;

}  // namespace

// The linker redirects calls to these functions here (--wrap).
extern "C" {

void realCreateBufferQueue(sp<IGraphicBufferProducer>*, sp<IGraphicBufferConsumer>*, bool) asm(
        "__real__ZN7android11BufferQueue17createBufferQueueEPNS_2spINS_22IGraphicBufferProducerEEE"
        "PNS1_INS_22IGraphicBufferConsumerEEEb");
void spiedCreateBufferQueue(sp<IGraphicBufferProducer>*, sp<IGraphicBufferConsumer>*, bool) asm(
        "__wrap__ZN7android11BufferQueue17createBufferQueueEPNS_2spINS_22IGraphicBufferProducerEEE"
        "PNS1_INS_22IGraphicBufferConsumerEEEb");

void spiedCreateBufferQueue(sp<IGraphicBufferProducer>* producer,
                            sp<IGraphicBufferConsumer>* consumer, bool isSurfaceFlinger) {
    realCreateBufferQueue(producer, consumer, isSurfaceFlinger);
    sLast = new QueueSpy(*consumer, *producer);
    sLast->isCompositors = isSurfaceFlinger;
    for (const auto& [call, result] : sResultsOfNext) sLast->setResult(call, result);
    sResultsOfNext.clear();
    *consumer = sLast;
}

}  // extern "C"

// sp<Fence> is returned through memory that the caller provides: these need C++ linkage.
sp<Fence> realMerge(const char*, const sp<Fence>&,
                    const sp<Fence>&) asm("__real__ZN7android5Fence5mergeEPKcRKNS_2spIS0_EES6_");
sp<Fence> spiedMerge(const char*, const sp<Fence>&,
                     const sp<Fence>&) asm("__wrap__ZN7android5Fence5mergeEPKcRKNS_2spIS0_EES6_");

sp<Fence> spiedMerge(const char* name, const sp<Fence>& f1, const sp<Fence>& f2) {
    QueueSpy::mergeNames().push_back(name);
    return realMerge(name, f1, f2);
}

sp<QueueSpy> QueueSpy::last() {
    return sLast;
}

void QueueSpy::failInTheNextQueue(const std::string& call, status_t result) {
    sResultsOfNext[call] = result;
}

std::vector<std::string>& QueueSpy::mergeNames() {
    static std::vector<std::string> sNames;
    return sNames;
}

void QueueSpy::setResult(const std::string& call, status_t result) {
    std::lock_guard<std::mutex> guard(mLock);
    mResults[call] = result;
}

std::vector<std::string> QueueSpy::calls() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mCalls;
}

size_t QueueSpy::count(const std::string& call) const {
    std::lock_guard<std::mutex> guard(mLock);
    return std::count(mCalls.begin(), mCalls.end(), call);
}

std::vector<QueueSpy::Release> QueueSpy::releases() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mReleases;
}

void QueueSpy::clear() {
    std::lock_guard<std::mutex> guard(mLock);
    mCalls.clear();
    mReleases.clear();
}

status_t QueueSpy::call(const std::string& name, const std::function<status_t()>& action) {
    duringCall(name);
    {
        std::lock_guard<std::mutex> guard(mLock);
        mCalls.push_back(name);
        const auto result = mResults.find(name);
        if (result != mResults.end() && result->second != OK) return result->second;
    }
    return action();
}

status_t QueueSpy::acquireBuffer(BufferItem* buffer, nsecs_t when, uint64_t maxNumber) {
    presentWhen = when;
    maxFrameNumber = maxNumber;
    return call("acquireBuffer", [&] {
        const status_t result = mConsumer->acquireBuffer(buffer, when, maxNumber);
        if (result == OK) onAcquired(buffer);
        return result;
    });
}

status_t QueueSpy::detachBuffer(int slot) {
    return call("detachBuffer", [&] { return mConsumer->detachBuffer(slot); });
}

status_t QueueSpy::attachBuffer(int* outSlot, const sp<android::GraphicBuffer>& buffer) {
    return call("attachBuffer", [&] { return mConsumer->attachBuffer(outSlot, buffer); });
}

status_t QueueSpy::releaseBuffer(int slot, uint64_t frameNumber, EGLDisplay display,
                                 EGLSyncKHR eglFence, const sp<Fence>& fence) {
    const status_t result = call("releaseBuffer", [&] {
        onReleased();
        return mConsumer->releaseBuffer(slot, frameNumber, display, eglFence, fence);
    });
    std::lock_guard<std::mutex> guard(mLock);
    mReleases.push_back({slot, frameNumber, fence, result});
    return result;
}

status_t QueueSpy::consumerConnect(const sp<android::IConsumerListener>& consumer, bool byApp) {
    listener = consumer;
    controlledByApp = byApp;
    return call("consumerConnect", [&] { return mConsumer->consumerConnect(consumer, byApp); });
}

status_t QueueSpy::consumerDisconnect() {
    return call("consumerDisconnect", [&] { return mConsumer->consumerDisconnect(); });
}

status_t QueueSpy::getReleasedBuffers(uint64_t* slotMask) {
    return call("getReleasedBuffers", [&] {
        const status_t result = mConsumer->getReleasedBuffers(slotMask);
        *slotMask = (*slotMask | moreReleased) & ~lessReleased;
        return result;
    });
}

status_t QueueSpy::setDefaultBufferSize(uint32_t w, uint32_t h) {
    width = w;
    height = h;
    return call("setDefaultBufferSize", [&] { return mConsumer->setDefaultBufferSize(w, h); });
}

status_t QueueSpy::setMaxBufferCount(int bufferCount) {
    return call("setMaxBufferCount", [&] { return mConsumer->setMaxBufferCount(bufferCount); });
}

status_t QueueSpy::setMaxAcquiredBufferCount(int maxAcquiredBuffers) {
    maxAcquired = maxAcquiredBuffers;
    return call("setMaxAcquiredBufferCount",
                [&] { return mConsumer->setMaxAcquiredBufferCount(maxAcquiredBuffers); });
}

status_t QueueSpy::setConsumerName(const android::String8& consumerName) {
    name = consumerName.c_str();
    return call("setConsumerName", [&] { return mConsumer->setConsumerName(consumerName); });
}

status_t QueueSpy::setDefaultBufferFormat(android::PixelFormat pixelFormat) {
    format = pixelFormat;
    return call("setDefaultBufferFormat",
                [&] { return mConsumer->setDefaultBufferFormat(pixelFormat); });
}

status_t QueueSpy::setDefaultBufferDataSpace(android_dataspace defaultDataSpace) {
    dataSpace = defaultDataSpace;
    return call("setDefaultBufferDataSpace",
                [&] { return mConsumer->setDefaultBufferDataSpace(defaultDataSpace); });
}

status_t QueueSpy::setConsumerUsageBits(uint64_t bits) {
    usage = bits;
    return call("setConsumerUsageBits", [&] { return mConsumer->setConsumerUsageBits(bits); });
}

status_t QueueSpy::setConsumerIsProtected(bool isProtected) {
    return call("setConsumerIsProtected",
                [&] { return mConsumer->setConsumerIsProtected(isProtected); });
}

status_t QueueSpy::setTransformHint(uint32_t hint) {
    return call("setTransformHint", [&] { return mConsumer->setTransformHint(hint); });
}

status_t QueueSpy::getSidebandStream(sp<android::NativeHandle>* outStream) const {
    return mConsumer->getSidebandStream(outStream);
}

status_t QueueSpy::discardFreeBuffers() {
    return call("discardFreeBuffers", [&] { return mConsumer->discardFreeBuffers(); });
}

}  // namespace korvane::test
