// SPDX-License-Identifier: Apache-2.0
// Puts a source's pictures into graphic buffers.
#pragma once

#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

#include "FrameSource.h"
#include "PictureFormat.h"
#include "testcard/FrameLog.h"

namespace korvane::camera {

/**
 * Draws a stream's pictures. A JPEG file starts at the beginning of its buffer, and the buffer's
 * last eight bytes give its size, as a camera's do. Used by one thread.
 */
class PicturePainter {
  public:
    /** `source` must have been started for the format and outlive the painter. */
    PicturePainter(FrameSource& source, const PictureFormat& format)
        : mSource(source), mFormat(format) {}

    /**
     * Draws the picture for `record->stamp`. If that returns DRAWN, the rest of the record is
     * filled in, the checksum only if `checksum` says so.
     */
    FrameSource::Result paint(const android::sp<android::GraphicBuffer>& buffer, bool checksum,
                              testcard::FrameRecord* record);

  private:
    FrameSource::Result paintFile(const android::sp<android::GraphicBuffer>& buffer, bool checksum,
                                  testcard::FrameRecord* record);
    FrameSource::Result paintPlanes(const android::sp<android::GraphicBuffer>& buffer,
                                    bool checksum, testcard::FrameRecord* record);

    FrameSource& mSource;
    const PictureFormat mFormat;
};

}  // namespace korvane::camera
