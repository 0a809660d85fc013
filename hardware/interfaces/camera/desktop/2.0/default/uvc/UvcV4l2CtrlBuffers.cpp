// SPDX-License-Identifier: Apache-2.0
// The stream's buffers: mapping them, putting frames into them, taking them back.
#define LOG_TAG "UVC-V4l2Ctrl"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include <sys/mman.h>
#include <unistd.h>

#include <log/log.h>

#include "uvc/JpegBlob.h"
#include "uvc/Nv12Copy.h"
#include "uvc/UvcV4l2Ctrl.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

using ::android::GraphicBuffer;

namespace {

// Every bit of reading and writing by software: the blob's footer is written back.
constexpr uint32_t kBlobUsage = 0xFF;
constexpr uint32_t kYCbCrUsage = GraphicBuffer::USAGE_SW_READ_RARELY;

bool isConverted(uint32_t format) {
    return format == V4L2_PIX_FMT_NV12 || format == V4L2_PIX_FMT_YUYV;
}

}  // namespace

v4l2_buffer UvcV4l2Ctrl::makeBuffer() {
    v4l2_buffer buf = {};
    buf.type = getV4l2BufferType();
    buf.memory = V4L2_MEMORY_MMAP;
    return buf;
}

bool UvcV4l2Ctrl::allocBuffers_l() {
    const uint32_t count = getBufferNum();
    releaseBuffers_l();
    mBuffers.resize(count);
    if (requestBuffer(count, V4L2_MEMORY_MMAP) <= 0) {
        ALOGE("request buffer failed");
        return false;
    }
    for (uint32_t i = 0; i < count; ++i) {
        if (mapBuffer_l(i)) continue;
        ALOGE("failed to mmap all buffers");
        releaseBuffers_l();
        return false;
    }
    return true;
}

bool UvcV4l2Ctrl::mapBuffer_l(uint32_t index) {
    v4l2_buffer buf = makeBuffer();
    buf.index = index;
    if (queryBuffer(&buf) != 0) return false;

    UvcBufInfo& record = mBuffers[index];
    record.index = index;
    record.kind = UvcBufInfo::KIND_MAPPED;
    record.length = buf.length;
    void* memory = mmap(nullptr, buf.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, buf.m.offset);
    if (memory == MAP_FAILED) {
        ALOGE("failed to mmap buffers, errno %d", errno);
        record.addr = nullptr;
        return false;
    }
    record.addr = static_cast<uint8_t*>(memory);
    return true;
}

void UvcV4l2Ctrl::releaseBuffers_l() {
    bool unmapped = false;
    for (UvcBufInfo& record : mBuffers) {
        if (record.addr == nullptr) continue;
        munmap(record.addr, record.length);
        unmapped = true;
        giveUpFrame_l(record);
        const uint32_t index = record.index;
        record = UvcBufInfo();
        record.index = index;
    }
    if (unmapped) requestBuffer(0, V4L2_MEMORY_MMAP);
}

bool UvcV4l2Ctrl::queueBuffer(UvcBufInfo* frame) {
    Guard guard(mLock);
    if (!mStreaming) {
        ALOGW("Not streaming, quit early");
        return false;
    }
    if (frame->index >= mBuffers.size()) {
        ALOGE("Failed queue for buffer: %d", frame->index);
        return false;
    }
    v4l2_buffer buf = makeBuffer();
    if (!fill_l(*frame, &buf)) return false;
    buf.timestamp = frame->timestamp;
    holdFrame_l(*frame);

    buf.sequence = mFrameCount;
    buf.index = frame->index;
    if (V4l2CtrlBase::queueBuffer(&buf) != 0) {
        ALOGE("Failed queue for buffer: %d", frame->index);
        mBuffers[frame->index].fenceFd = -1;  // the caller's, as with every refusal
        return false;
    }
    ++mFrameCount;
    return true;
}

bool UvcV4l2Ctrl::fill_l(const UvcBufInfo& frame, v4l2_buffer* buf) {
    if (frame.graphicBuffer->getPixelFormat() == HAL_PIXEL_FORMAT_YCbCr_420_888) {
        // The host rather gets an old picture than none: the buffer is queued either way.
        convertFromYCbCr420_l(frame, buf);
    } else if (!copyBlob_l(frame, buf)) {
        return false;
    }
    dump_l(mBuffers[frame.index], buf->bytesused);
    return true;
}

bool UvcV4l2Ctrl::copyBlob_l(const UvcBufInfo& frame, v4l2_buffer* buf) {
    GraphicBuffer& blob = *frame.graphicBuffer;
    void* memory = nullptr;
    int32_t bytesPerPixel = 0;
    int32_t bytesPerStride = 0;
    blob.lock(kBlobUsage, &memory, &bytesPerPixel, &bytesPerStride);
    if (memory == nullptr) {
        ALOGE("null ptr for image dequeued");
        blob.unlock();
        return false;
    }
    const uint32_t capacity = blob.getWidth();
    const uint32_t size = takeJpegSize(static_cast<uint8_t*>(memory), capacity);
    const UvcBufInfo& target = mBuffers[frame.index];
    // A footer can claim more than there is.
    if (size > std::min(target.length, capacity)) {
        ALOGW("Size too large for buffer allocated, drop frame!");
        blob.unlock();
        return false;
    }
    memcpy(target.addr, memory, size);
    buf->bytesused = size;
    return true;
}

bool UvcV4l2Ctrl::convertFromYCbCr420_l(const UvcBufInfo& frame, v4l2_buffer* buf) {
    GraphicBuffer& picture = *frame.graphicBuffer;
    android_ycbcr planes = {};
    picture.lockYCbCr(kYCbCrUsage, &planes);
    if (planes.y == nullptr || planes.cb == nullptr) {
        ALOGE("null ptr for ycbcr dequeued");
        picture.unlock();
        return false;
    }
    if (!writeYCbCr420_l(frame, planes, buf)) {
        ALOGW("Size too large for buffer allocated, drop frame!");
        picture.unlock();
        return false;
    }
    return true;
}

bool UvcV4l2Ctrl::writeYCbCr420_l(const UvcBufInfo& frame, const android_ycbcr& planes,
                                  v4l2_buffer* buf) {
    const uint32_t format = mConfig.getFormat();
    if (!isConverted(format)) return true;

    const uint32_t width = frame.graphicBuffer->getWidth();
    const uint32_t height = frame.graphicBuffer->getHeight();
    const bool isNv12 = format == V4L2_PIX_FMT_NV12;
    const uint64_t size = isNv12 ? nv12Size(planes, height) : yuyvSize(width, height);
    const uint64_t most = std::numeric_limits<uint32_t>::max();
    buf->bytesused = static_cast<uint32_t>(std::min(size, most));

    const UvcBufInfo& target = mBuffers[frame.index];
    if (size > target.length) return false;
    if (isNv12) {
        copyNv12(planes, height, target.addr);
    } else {
        mConverter.convert(planes, width, height, target.addr);
    }
    return true;
}

void UvcV4l2Ctrl::holdFrame_l(const UvcBufInfo& frame) {
    UvcBufInfo& record = mBuffers[frame.index];
    // One that the driver refused may still be there.
    giveUpFrame_l(record);
    if (mReturning == frame.index) mReturning.reset();
    record.graphicBuffer = frame.graphicBuffer;
    record.fenceFd = frame.fenceFd;
}

void UvcV4l2Ctrl::giveUpFrame_l(const UvcBufInfo& record) {
    if (record.graphicBuffer == nullptr || mReturning == record.index) return;
    record.graphicBuffer->unlock();
    if (record.fenceFd >= 0) ::close(record.fenceFd);
}

int UvcV4l2Ctrl::handleWrite() {
    Guard guard(mLock);
    v4l2_buffer buf = makeBuffer();
    if (dequeBuffer(&buf) != 0 || buf.index >= mBuffers.size()) return -1;

    UvcBufInfo& record = mBuffers[buf.index];
    if (record.graphicBuffer != nullptr) record.graphicBuffer->unlock();
    mReturning = buf.index;
    notify(guard, &EventListener::onFrameEmptied, &record);
    // Meanwhile the buffer may have taken its next frame, which is not ours to drop.
    if (mReturning == buf.index) {
        record.graphicBuffer.clear();
        record.fenceFd = -1;
    }
    mReturning.reset();
    return 0;
}

void UvcV4l2Ctrl::dumpFramesTo(FILE* file) {
    Guard guard(mLock);
    mDumpFile.reset(file);
}

void UvcV4l2Ctrl::dump_l(const UvcBufInfo& buffer, uint32_t size) {
    if (mDumpFile == nullptr) return;
    fwrite(buffer.addr, 1, std::min(size, buffer.length), mDumpFile.get());
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
