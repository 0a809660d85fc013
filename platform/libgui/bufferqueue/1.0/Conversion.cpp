// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "BufferQueueConversion"

#include "gui/bufferqueue/1.0/Conversion.h"

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

#include <fcntl.h>

#include <log/log.h>

namespace android {
namespace conversion {
namespace {

using ::android::hardware::graphics::common::V1_0::Dataspace;
using ::android::hardware::media::V1_0::Region;
using HPixelFormat = ::android::hardware::graphics::common::V1_0::PixelFormat;
using HRect = ::android::hardware::media::V1_0::Rect;

constexpr uint32_t kFlattenedMagic = 'GB01';

HRect wrapRect(const Rect& from) {
    return {from.left, from.top, from.right, from.bottom};
}

Rect convertRect(const HRect& from) {
    return Rect(from.left, from.top, from.right, from.bottom);
}

bool convertRegion(::android::Region* to, const Region& from) {
    // Nearly every frame's.
    if (from.size() == 1) {
        const Rect only = convertRect(from[0]);
        return to->unflatten(&only, 1) == NO_ERROR;
    }
    // No region has more, its bounds included.
    if (from.size() > ::android::Region::kMaxRects + 1) return false;
    std::array<Rect, ::android::Region::kMaxRects + 1> rects;  // spares every frame an allocation
    std::transform(from.begin(), from.end(), rects.begin(), convertRect);
    return to->unflatten(rects.data(), from.size()) == NO_ERROR;
}

// Whether the counts are possible for a handle; the rest of it is then there.
bool isWellFormed(const native_handle_t* handle) {
    return handle->version == sizeof(native_handle_t) && handle->numFds >= 0 &&
           handle->numFds <= NATIVE_HANDLE_MAX_FDS && handle->numInts >= 0 &&
           handle->numInts <= NATIVE_HANDLE_MAX_INTS;
}

// The usage comes as 32 bits that are taken as signed: the highest bit is copied to all above it.
uint64_t widenUsage(uint32_t usage) {
    return static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(usage)));
}

// Copies what both kinds of output hold under the same names, in either direction.
template <typename To, typename From>
void copyQueueState(To* to, const From& from) {
    to->width = from.width;
    to->height = from.height;
    to->transformHint = from.transformHint;
    to->numPendingBuffers = from.numPendingBuffers;
    to->nextFrameNumber = from.nextFrameNumber;
    to->bufferReplaced = from.bufferReplaced;
}

}  // namespace

void wrapAs(AnwBuffer* to, const GraphicBuffer& from) {
    to->nativeHandle = from.handle;
    to->attr.width = from.getWidth();
    to->attr.height = from.getHeight();
    to->attr.stride = from.getStride();
    to->attr.format = static_cast<HPixelFormat>(from.getPixelFormat());
    to->attr.usage = static_cast<uint32_t>(from.getUsage());
    to->attr.generationNumber = from.getGenerationNumber();
    to->attr.layerCount = from.getLayerCount();
    to->attr.id = from.getId();
}

bool convertTo(GraphicBuffer* to, const AnwBuffer& from) {
    const native_handle_t* const handle = from.nativeHandle.getNativeHandle();
    if (from.attr.layerCount > std::numeric_limits<uint32_t>::max()) return false;
    if (handle != nullptr && !isWellFormed(handle)) return false;
    const auto numFds = static_cast<uint32_t>(handle == nullptr ? 0 : handle->numFds);
    const auto numInts = static_cast<uint32_t>(handle == nullptr ? 0 : handle->numInts);
    const uint64_t usage = widenUsage(from.attr.usage);
    std::vector<uint32_t> words = {kFlattenedMagic,
                                   from.attr.width,
                                   from.attr.height,
                                   from.attr.stride,
                                   static_cast<uint32_t>(from.attr.format),
                                   static_cast<uint32_t>(from.attr.layerCount),
                                   static_cast<uint32_t>(usage),
                                   static_cast<uint32_t>(from.attr.id >> 32),
                                   static_cast<uint32_t>(from.attr.id),
                                   from.attr.generationNumber,
                                   numFds,
                                   numInts,
                                   static_cast<uint32_t>(usage >> 32)};
    const int* const data = handle == nullptr ? nullptr : handle->data;
    words.insert(words.end(), data + numFds, data + numFds + numInts);
    const void* buffer = words.data();
    size_t size = words.size() * sizeof(words[0]);
    const int* fds = data;
    size_t count = numFds;
    return to->unflatten(buffer, size, fds, count) == NO_ERROR;
}

BorrowedHandle wrapAs(hidl_handle* to, const Fence& from, FenceSide side) {
    if (!from.isValid()) {
        *to = nullptr;
        return nullptr;
    }
    const bool counts = from.get() >= static_cast<int>(side);
    BorrowedHandle handle(native_handle_create(counts ? 1 : 0, 0));
    if (handle != nullptr && counts) handle->data[0] = from.get();
    *to = handle.get();
    return handle;
}

bool convertTo(sp<Fence>* to, const hidl_handle& from, FenceSide side) {
    const native_handle_t* const handle = from.getNativeHandle();
    if (handle == nullptr || handle->numFds == 0) {
        *to = Fence::NO_FENCE;
        return true;
    }
    if (!isWellFormed(handle)) return false;
    const sp<Fence> borrowed = new Fence(fcntl(handle->data[0], F_DUPFD_CLOEXEC, 0));
    if (!borrowed->isValid()) return false;
    *to = borrowed->get() >= static_cast<int>(side) ? borrowed : Fence::NO_FENCE;
    return true;
}

bool convertTo(sp<NativeHandle>* to, const hidl_handle& from) {
    const native_handle_t* const handle = from.getNativeHandle();
    to->clear();
    if (handle == nullptr) return true;
    if (!isWellFormed(handle)) return false;
    native_handle_t* const copy = native_handle_clone(handle);
    *to = NativeHandle::create(copy, true);
    return copy != nullptr;
}

BorrowedHandle wrapAs(HGraphicBufferProducer::QueueBufferInput* to,
                      const BGraphicBufferProducer::QueueBufferInput& from) {
    to->timestamp = from.timestamp;
    to->isAutoTimestamp = from.isAutoTimestamp;
    to->dataSpace = static_cast<Dataspace>(from.dataSpace);
    to->crop = wrapRect(from.crop);
    to->scalingMode = from.scalingMode;
    to->transform = from.transform;
    to->stickyTransform = from.stickyTransform;
    to->getFrameTimestamps = from.getFrameTimestamps;
    const std::vector<Rect> rects = from.getSurfaceDamage().flatten();
    to->surfaceDamage.resize(rects.size());
    std::transform(rects.begin(), rects.end(), to->surfaceDamage.begin(), wrapRect);
    return from.fence == nullptr ? nullptr : wrapAs(&to->fence, *from.fence, FenceSide::CLIENT);
}

bool convertTo(BGraphicBufferProducer::QueueBufferInput* to,
               const HGraphicBufferProducer::QueueBufferInput& from) {
    to->timestamp = from.timestamp;
    to->isAutoTimestamp = from.isAutoTimestamp;
    to->dataSpace = static_cast<android_dataspace>(from.dataSpace);
    to->crop = convertRect(from.crop);
    to->scalingMode = from.scalingMode;
    to->transform = from.transform;
    to->stickyTransform = from.stickyTransform;
    to->getFrameTimestamps = from.getFrameTimestamps;
    ::android::Region damage;
    if (!convertRegion(&damage, from.surfaceDamage)) {
        ALOGE("queueBuffer: the surface damage is no region");
        return false;
    }
    to->setSurfaceDamage(damage);
    // Low descriptors count here, unlike with cancelBuffer.
    return convertTo(&to->fence, from.fence, FenceSide::CLIENT);
}

void wrapAs(HGraphicBufferProducer::QueueBufferOutput* to,
            const BGraphicBufferProducer::QueueBufferOutput& from) {
    copyQueueState(to, from);
    wrapAs(&to->frameTimestamps, from.frameTimestamps);
}

void convertTo(BGraphicBufferProducer::QueueBufferOutput* to,
               const HGraphicBufferProducer::QueueBufferOutput& from) {
    copyQueueState(to, from);
    convertTo(&to->frameTimestamps, from.frameTimestamps);
}

void wrapAs(HGraphicBufferProducer::FrameEventHistoryDelta* to,
            const FrameEventHistoryDelta& from) {
    const CompositorTiming& timing = from.getCompositorTiming();
    to->deltas.resize(0);
    to->compositorTiming.deadlineNs = timing.deadline;
    to->compositorTiming.intervalNs = timing.interval;
    to->compositorTiming.presentLatencyNs = timing.presentLatency;
}

void convertTo(FrameEventHistoryDelta* to,
               const HGraphicBufferProducer::FrameEventHistoryDelta& from) {
    to->setCompositorTiming({from.compositorTiming.deadlineNs, from.compositorTiming.intervalNs,
                             from.compositorTiming.presentLatencyNs});
}

}  // namespace conversion
}  // namespace android
