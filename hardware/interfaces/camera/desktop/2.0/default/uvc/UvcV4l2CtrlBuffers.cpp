// SPDX-License-Identifier: Apache-2.0
// The stream's buffers: mapping them, putting frames into them, taking them back.
#define LOG_TAG "UVC-V4l2Ctrl"

#include "uvc/UvcV4l2Ctrl.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

#include <log/log.h>

#include "uvc/JpegBlob.h"
#include "uvc/Nv12Copy.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

using ::android::base::unique_fd;

namespace {

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
    if (mBuffers[index].memory.map(fd, buf.m.offset, buf.length)) return true;
    ALOGE("failed to mmap buffers, errno %d", errno);
    return false;
}

void UvcV4l2Ctrl::releaseBuffers_l() {
    bool unmapped = false;
    for (OutputBuffer& buffer : mBuffers) {
        if (!buffer.memory.isMapped()) continue;
        buffer.memory.reset();
        buffer.frame = LockedFrame();
        buffer.fence.reset();
        unmapped = true;
    }
    // Logged if it fails; nothing is mapped any more either way.
    if (unmapped) (void)requestBuffer(0, V4L2_MEMORY_MMAP);
}

bool UvcV4l2Ctrl::queueBuffer(UvcBufInfo* frame) {
    Guard guard(mLock);
    if (!isStreaming()) {
        ALOGW("Not streaming, quit early");
        mStats.count(Count::DROPPED_NO_STREAM);
        return false;
    }
    if (frame->index >= mBuffers.size()) {
        mStats.count(Count::DROPPED_REFUSED);
        ALOGE("Failed queue for buffer: %d", frame->index);
        return false;
    }
    OutputBuffer& target = mBuffers[frame->index];
    v4l2_buffer buf = makeBuffer();
    LockedFrame locked(frame->graphicBuffer);
    if (!fill_l(*frame, locked, target.memory, &buf)) return false;
    buf.timestamp = frame->timestamp;
    // One may still be there: the driver refused it, or it is another surface's and not back yet.
    target.frame = std::move(locked);
    target.fence.reset();

    buf.sequence = mFrameCount;
    buf.index = frame->index;
    if (V4l2CtrlBase::queueBuffer(&buf) != 0) {
        const bool isTooLarge = buf.bytesused > target.memory.length();
        mStats.count(isTooLarge ? Count::DROPPED_TOO_LARGE : Count::DROPPED_REFUSED);
        ALOGE("Failed queue for buffer: %d", frame->index);
        return false;
    }
    target.fence.reset(frame->fenceFd);
    ++mFrameCount;
    mStats.frameSent(frame->index);
    return true;
}

bool UvcV4l2Ctrl::fill_l(const UvcBufInfo& frame, LockedFrame& locked, const MappedBuffer& target,
                         v4l2_buffer* buf) {
    if (frame.graphicBuffer->getPixelFormat() == HAL_PIXEL_FORMAT_YCbCr_420_888) {
        // A stale picture is better than none: queue the buffer either way.
        if (!convertFromYCbCr420_l(frame, locked, target, buf)) locked.unlock();
    } else if (!copyBlob_l(frame, locked, target, buf)) {
        return false;
    }
    dump_l(target, buf->bytesused);
    return true;
}

bool UvcV4l2Ctrl::copyBlob_l(const UvcBufInfo& frame, LockedFrame& locked,
                             const MappedBuffer& target, v4l2_buffer* buf) {
    void* memory = locked.lockBlob();
    if (memory == nullptr) {
        ALOGE("null ptr for image dequeued");
        mStats.count(Count::DROPPED_UNREADABLE);
        return false;
    }
    const uint32_t capacity = frame.graphicBuffer->getWidth();
    const uint32_t size = takeJpegSize(static_cast<uint8_t*>(memory), capacity);
    // A footer can claim more than there is.
    if (size > std::min(target.length(), capacity)) {
        ALOGW("Size too large for buffer allocated, drop frame!");
        mStats.count(Count::DROPPED_TOO_LARGE);
        return false;
    }
    memcpy(target.data(), memory, size);
    buf->bytesused = size;
    return true;
}

bool UvcV4l2Ctrl::convertFromYCbCr420_l(const UvcBufInfo& frame, LockedFrame& locked,
                                        const MappedBuffer& target, v4l2_buffer* buf) {
    const android_ycbcr planes = locked.lockPicture();
    if (planes.y == nullptr || planes.cb == nullptr) {
        ALOGE("null ptr for ycbcr dequeued");
        mStats.count(Count::FRAMES_STALE);
        return false;
    }
    if (!writeYCbCr420_l(frame, planes, target, buf)) {
        ALOGW("Size too large for buffer allocated, drop frame!");
        return false;
    }
    return true;
}

bool UvcV4l2Ctrl::writeYCbCr420_l(const UvcBufInfo& frame, const android_ycbcr& planes,
                                  const MappedBuffer& target, v4l2_buffer* buf) {
    const uint32_t format = mConfig.getFormat();
    if (!isConverted(format)) return true;

    const uint32_t width = frame.graphicBuffer->getWidth();
    const uint32_t height = frame.graphicBuffer->getHeight();
    const bool isNv12 = format == V4L2_PIX_FMT_NV12;
    const uint64_t size = isNv12 ? nv12Size(planes, height) : yuyvSize(width, height);
    const uint64_t most = std::numeric_limits<uint32_t>::max();
    buf->bytesused = static_cast<uint32_t>(std::min(size, most));

    if (size > target.length()) return false;
    if (isNv12) {
        copyNv12(planes, height, target.data());
    } else {
        mConverter.convert(planes, width, height, target.data());
    }
    return true;
}

int UvcV4l2Ctrl::handleWrite() {
    Guard guard(mLock);
    v4l2_buffer buf = makeBuffer();
    if (dequeBuffer(&buf) != 0 || buf.index >= mBuffers.size()) return -1;

    mStats.frameReturned(buf.index);
    // Once the lock is released the buffer may take its next frame, or be gone.
    UvcBufInfo returned = takeFrame_l(buf.index);
    // Without a listener nobody else would close it.
    const unique_fd unwanted(mListener == nullptr ? returned.fenceFd : -1);
    notify_l(&EventListener::onFrameEmptied, &returned);
    return 0;
}

UvcBufInfo UvcV4l2Ctrl::takeFrame_l(uint32_t index) {
    OutputBuffer& buffer = mBuffers[index];
    UvcBufInfo returned;
    if (buffer.memory.isMapped()) returned.kind = UvcBufInfo::KIND_MAPPED;
    returned.index = index;
    returned.addr = buffer.memory.data();
    returned.length = buffer.memory.length();
    returned.graphicBuffer = buffer.frame.take();
    returned.fenceFd = buffer.fence.release();
    return returned;
}

bool UvcV4l2Ctrl::dumpFramesTo(FILE* file) {
    std::unique_ptr<FILE, FileCloser> other(file);
    Guard guard(mLock);
    if (file != nullptr && mDumpFile != nullptr) return false;
    if (file != nullptr) mStats.note(Event::DUMP_STARTED);
    mDumpFile.swap(other);
    return true;
}

void UvcV4l2Ctrl::dump_l(const MappedBuffer& buffer, uint32_t size) {
    if (mDumpFile == nullptr) return;
    fwrite(buffer.data(), 1, std::min(size, buffer.length()), mDumpFile.get());
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
