// SPDX-License-Identifier: Apache-2.0
#include <gui/bufferqueue/1.0/Conversion.h>

#include <cstring>
#include <vector>

#include <fcntl.h>

#include <android-base/unique_fd.h>

namespace android {
namespace conversion {

using ::android::hardware::hidl_vec;
using ::android::hardware::graphics::common::V1_0::Dataspace;
using HRect = ::android::hardware::media::V1_0::Rect;

namespace {

// The words of a flattened buffer in front of the numbers of its handle.
enum FlattenedWord : size_t {
    MAGIC,
    WIDTH,
    HEIGHT,
    STRIDE,
    FORMAT,
    LAYER_COUNT,
    USAGE_LOW,
    ID_HIGH,
    ID_LOW,
    GENERATION,
    NUM_FDS,
    NUM_INTS,
    USAGE_HIGH,
    HEADER_WORDS,
};

constexpr uint32_t kFlattenedMagic = 'G' << 24 | 'B' << 16 | '0' << 8 | '1';

bool isSound(const native_handle_t* handle) {
    return handle->version == static_cast<int>(sizeof(native_handle_t)) && handle->numFds >= 0 &&
           handle->numFds <= NATIVE_HANDLE_MAX_FDS && handle->numInts >= 0 &&
           handle->numInts <= NATIVE_HANDLE_MAX_INTS;
}

std::vector<uint32_t> flatten(const AnwBuffer& from) {
    const native_handle_t* handle = from.nativeHandle;
    const int numFds = handle == nullptr ? 0 : handle->numFds;
    const int numInts = handle == nullptr ? 0 : handle->numInts;
    // The usage is widened as the signed number that it travels as.
    const auto usage = static_cast<uint64_t>(int64_t{static_cast<int32_t>(from.attr.usage)});

    std::vector<uint32_t> words(HEADER_WORDS + numInts);
    words[MAGIC] = kFlattenedMagic;
    words[WIDTH] = from.attr.width;
    words[HEIGHT] = from.attr.height;
    words[STRIDE] = from.attr.stride;
    words[FORMAT] = static_cast<uint32_t>(from.attr.format);
    words[LAYER_COUNT] = static_cast<uint32_t>(from.attr.layerCount);
    words[USAGE_LOW] = static_cast<uint32_t>(usage);
    words[ID_HIGH] = static_cast<uint32_t>(from.attr.id >> 32);
    words[ID_LOW] = static_cast<uint32_t>(from.attr.id);
    words[GENERATION] = from.attr.generationNumber;
    words[NUM_FDS] = static_cast<uint32_t>(numFds);
    words[NUM_INTS] = static_cast<uint32_t>(numInts);
    words[USAGE_HIGH] = static_cast<uint32_t>(usage >> 32);
    for (int i = 0; i < numInts; ++i) {
        words[HEADER_WORDS + i] = static_cast<uint32_t>(handle->data[numFds + i]);
    }
    return words;
}

BorrowedHandle borrow(int fd) {
    BorrowedHandle handle(native_handle_create(1, 0));
    handle->data[0] = fd;
    return handle;
}

hidl_vec<HRect> toRects(const Region& region) {
    const std::vector<Rect> flat = region.flatten();
    hidl_vec<HRect> rects;
    rects.resize(flat.size());
    for (size_t i = 0; i < flat.size(); ++i) {
        rects[i] = {flat[i].left, flat[i].top, flat[i].right, flat[i].bottom};
    }
    return rects;
}

bool fromRects(const hidl_vec<HRect>& rects, Region* region) {
    std::vector<Rect> flat;
    if (rects.size() > Region::kMaxRects + 1) return false;
    for (const HRect& rect : rects) flat.emplace_back(rect.left, rect.top, rect.right, rect.bottom);
    return region->unflatten(flat.data(), flat.size()) == NO_ERROR;
}

}  // namespace

void wrapAs(AnwBuffer* to, const GraphicBuffer& from) {
    to->attr.width = from.getWidth();
    to->attr.height = from.getHeight();
    to->attr.stride = from.getStride();
    to->attr.format = static_cast<decltype(to->attr.format)>(from.getPixelFormat());
    to->attr.layerCount = from.getLayerCount();
    to->attr.usage = static_cast<uint32_t>(from.getUsage());
    to->attr.id = const_cast<GraphicBuffer&>(from).getId();
    to->attr.generationNumber = from.getGenerationNumber();
    to->nativeHandle = from.handle;
}

bool convertTo(GraphicBuffer* to, const AnwBuffer& from) {
    const native_handle_t* handle = from.nativeHandle;
    if (handle != nullptr && !isSound(handle)) return false;

    const std::vector<uint32_t> words = flatten(from);
    const void* data = words.data();
    size_t size = words.size() * sizeof(words[0]);
    const int* fds = handle == nullptr ? nullptr : handle->data;
    size_t count = handle == nullptr ? 0 : static_cast<size_t>(handle->numFds);
    return to->unflatten(data, size, fds, count) == NO_ERROR;
}

BorrowedHandle wrapAs(hidl_handle* to, const Fence& from, FenceSide side) {
    if (!from.isValid()) {
        *to = nullptr;
        return nullptr;
    }
    BorrowedHandle handle = from.get() < static_cast<int>(side)
                                    ? BorrowedHandle(native_handle_create(0, 0))
                                    : borrow(from.get());
    *to = handle.get();
    return handle;
}

bool convertTo(sp<Fence>* to, const hidl_handle& from, FenceSide side) {
    const native_handle_t* handle = from;
    if (handle == nullptr || handle->numFds == 0) {
        *to = new Fence();
        return true;
    }
    if (!isSound(handle)) return false;
    base::unique_fd fd(fcntl(handle->data[0], F_DUPFD_CLOEXEC, 0));
    if (fd == -1) return false;
    *to = fd.get() < static_cast<int>(side) ? new Fence() : new Fence(std::move(fd));
    return true;
}

bool convertTo(sp<NativeHandle>* to, const hidl_handle& from) {
    const native_handle_t* handle = from;
    if (handle == nullptr) {
        to->clear();
        return true;
    }
    if (!isSound(handle)) return false;
    native_handle_t* copy = native_handle_clone(handle);
    if (copy == nullptr) return false;
    *to = NativeHandle::create(copy, true);
    return true;
}

BorrowedHandle wrapAs(HGraphicBufferProducer::QueueBufferInput* to,
                      const BGraphicBufferProducer::QueueBufferInput& from) {
    to->timestamp = from.timestamp;
    to->isAutoTimestamp = from.isAutoTimestamp;
    to->dataSpace = static_cast<Dataspace>(from.dataSpace);
    to->crop = {from.crop.left, from.crop.top, from.crop.right, from.crop.bottom};
    to->scalingMode = from.scalingMode;
    to->transform = from.transform;
    to->stickyTransform = from.stickyTransform;
    to->surfaceDamage = toRects(from.getSurfaceDamage());
    to->getFrameTimestamps = from.getFrameTimestamps;
    return from.fence == nullptr ? nullptr : wrapAs(&to->fence, *from.fence, FenceSide::Client);
}

bool convertTo(BGraphicBufferProducer::QueueBufferInput* to,
               const HGraphicBufferProducer::QueueBufferInput& from) {
    Region damage;
    if (!fromRects(from.surfaceDamage, &damage)) return false;
    // Any descriptor is good here, 0 and 1 too.
    if (!convertTo(&to->fence, from.fence, FenceSide::Client)) return false;
    to->timestamp = from.timestamp;
    to->isAutoTimestamp = from.isAutoTimestamp != 0;
    to->dataSpace = static_cast<android_dataspace>(from.dataSpace);
    to->crop = Rect(from.crop.left, from.crop.top, from.crop.right, from.crop.bottom);
    to->scalingMode = from.scalingMode;
    to->transform = from.transform;
    to->stickyTransform = from.stickyTransform;
    to->setSurfaceDamage(damage);
    to->getFrameTimestamps = from.getFrameTimestamps;
    return true;
}

void wrapAs(HGraphicBufferProducer::QueueBufferOutput* to,
            const BGraphicBufferProducer::QueueBufferOutput& from) {
    to->width = from.width;
    to->height = from.height;
    to->transformHint = from.transformHint;
    to->numPendingBuffers = from.numPendingBuffers;
    to->nextFrameNumber = from.nextFrameNumber;
    to->bufferReplaced = from.bufferReplaced;
    wrapAs(&to->frameTimestamps, from.frameTimestamps);
}

void convertTo(BGraphicBufferProducer::QueueBufferOutput* to,
               const HGraphicBufferProducer::QueueBufferOutput& from) {
    to->width = from.width;
    to->height = from.height;
    to->transformHint = from.transformHint;
    to->numPendingBuffers = from.numPendingBuffers;
    to->nextFrameNumber = from.nextFrameNumber;
    to->bufferReplaced = from.bufferReplaced;
    convertTo(&to->frameTimestamps, from.frameTimestamps);
}

void wrapAs(HGraphicBufferProducer::FrameEventHistoryDelta* to,
            const FrameEventHistoryDelta& from) {
    const CompositorTiming& timing = from.getCompositorTiming();
    to->compositorTiming = {timing.deadline, timing.interval, timing.presentLatency};
}

void convertTo(FrameEventHistoryDelta* to,
               const HGraphicBufferProducer::FrameEventHistoryDelta& from) {
    CompositorTiming timing;
    timing.deadline = from.compositorTiming.deadlineNs;
    timing.interval = from.compositorTiming.intervalNs;
    timing.presentLatency = from.compositorTiming.presentLatencyNs;
    to->setCompositorTiming(timing);
}

}  // namespace conversion
}  // namespace android
