// SPDX-License-Identifier: Apache-2.0
// Renders one stream into its surface.
#pragma once

#include <cstdint>
#include <optional>

#include <gui/IGraphicBufferProducer.h>
#include <utils/StrongPointer.h>

#include "FrameJournal.h"
#include "FramePacer.h"
#include "FrameSource.h"
#include "PictureFormat.h"
#include "PicturePainter.h"
#include "ProducerSurface.h"
#include "StreamDemand.h"

namespace korvane::camera {

/**
 * Draws a picture on every beat of the stream's rate for as long as the stream is wanted. When the
 * host is slow, a frame is drawn as soon as there is a buffer for it: beats are skipped, numbers
 * are not, since only a queued frame gets one. Used by one thread.
 */
class SurfaceRenderer {
  public:
    enum class End {
        STOPPED,       // the stream is no longer wanted
        SURFACE_GONE,  // the service has dropped it, or is itself gone
        FAILED,        // the surface or the source failed, and the log says how
        LAST_FRAME,    // the last frame that was asked for has been queued
    };

    /** `source`, started for the format, and `journal` must outlive the renderer. */
    SurfaceRenderer(const android::sp<android::IGraphicBufferProducer>& producer,
                    const PictureFormat& format, FrameSource& source, FrameJournal& journal);

    /** Renders until the stream ends; `lastFrame` is the number of the last frame to queue. */
    End run(const StreamTicket& ticket, uint32_t lastFrame);

  private:
    End fail(const char* what, android::status_t status) const;
    std::optional<End> renderFrame(const ProducerSurface::Buffer& buffer, FramePacer* pacer);

    const PictureFormat mFormat;
    ProducerSurface mSurface;
    PicturePainter mPainter;
    FrameJournal& mJournal;
};

}  // namespace korvane::camera
