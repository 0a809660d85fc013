// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "desktop-camera"

#include "PicturePainter.h"

#include <cstring>

#include <log/log.h>
#include <system/graphics.h>

#include "ProducerSurface.h"

namespace korvane::camera {

using android::GraphicBuffer;
using android::OK;
using android::sp;
using testcard::FrameRecord;
using Result = FrameSource::Result;

namespace {

constexpr uint16_t kJpegFooterId = 0x00FF;
constexpr size_t kFooterSize = 8;

// At the end of a buffer: the id, two zero bytes, the size of the file at its start.
void writeFooter(uint8_t* footer, size_t fileSize) {
    const auto size = static_cast<uint32_t>(fileSize);
    memset(footer, 0, kFooterSize);
    memcpy(footer, &kJpegFooterId, sizeof kJpegFooterId);
    memcpy(footer + 4, &size, sizeof size);
}

}  // namespace

Result PicturePainter::paint(const sp<GraphicBuffer>& buffer, bool checksum, FrameRecord* record) {
    record->format = mFormat.fourcc;
    record->width = mFormat.width;
    record->height = mFormat.height;
    return mFormat.isJpeg() ? paintFile(buffer, checksum, record)
                            : paintPlanes(buffer, checksum, record);
}

Result PicturePainter::paintFile(const sp<GraphicBuffer>& buffer, bool checksum,
                                 FrameRecord* record) {
    void* address = nullptr;
    const auto status = buffer->lock(ProducerSurface::kUsage, &address);
    if (status != OK || address == nullptr || buffer->getWidth() < kFooterSize) {
        ALOGE("cannot write to a buffer of %u bytes: %d", buffer->getWidth(), status);
        return Result::FAILED;
    }
    PictureMemory memory;
    memory.file = static_cast<uint8_t*>(address);
    memory.fileCapacity = buffer->getWidth() - kFooterSize;
    const Result result = mSource.draw(record->stamp, memory, &record->bytes);
    if (result == Result::DRAWN) {
        writeFooter(memory.file + memory.fileCapacity, record->bytes);
        if (checksum) record->crc32 = testcard::crc32Of(memory.file, record->bytes);
    }
    buffer->unlock();
    return result;
}

Result PicturePainter::paintPlanes(const sp<GraphicBuffer>& buffer, bool checksum,
                                   FrameRecord* record) {
    android_ycbcr locked = {};
    const auto status = buffer->lockYCbCr(ProducerSurface::kUsage, &locked);
    if (status != OK || locked.y == nullptr) {
        ALOGE("cannot write to a buffer of %ux%u: %d", buffer->getWidth(), buffer->getHeight(),
              status);
        return Result::FAILED;
    }
    PictureMemory memory;
    memory.planes = {static_cast<uint8_t*>(locked.y),
                     static_cast<uint8_t*>(locked.cb),
                     static_cast<uint8_t*>(locked.cr),
                     locked.ystride,
                     locked.cstride,
                     locked.chroma_step};
    const Result result = mSource.draw(record->stamp, memory, &record->bytes);
    if (result == Result::DRAWN && checksum) {
        record->crc32 = testcard::crc32Of(memory.planes, mFormat.width, mFormat.height);
    }
    buffer->unlock();
    return result;
}

}  // namespace korvane::camera
