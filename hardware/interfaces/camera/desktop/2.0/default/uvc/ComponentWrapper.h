// SPDX-License-Identifier: Apache-2.0
// The interface through which the frame source lends frames to their consumer.
#pragma once

#include <cstdint>

#include <ui/GraphicBuffer.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace android {

/**
 * The consumer of a KorBufferSource's frames, owner of the numbered codec buffers that they go to.
 *
 * Every operation is called with the frame source's mutex held, on whichever thread entered the
 * frame source: an implementation must not call back into it before it returns.
 */
struct ComponentWrapper : public RefBase {
    /**
     * Lends one frame. The graphic buffer stays the consumer's to read until it gives the codec
     * buffer back with KorBufferSource::onInputBufferEmptied().
     *
     * @param bufferId the codec buffer that the frame goes to
     * @param timestampUs of the frame, in microseconds
     * @param fenceFd signals when the producer has finished the picture, -1 when it has. The
     *        callee's from now on, even when it fails. A consumer may wait for it, or give it back
     *        with the codec buffer, as the graphic buffer's release fence; the webcam controller
     *        does the latter.
     * @return OK, or an error, which leaves the codec buffer and the frame with the frame source
     */
    [[nodiscard]] virtual status_t submitBuffer(int bufferId, const sp<GraphicBuffer>& buffer,
                                                int64_t timestampUs, int fenceFd) = 0;

    /**
     * Announces that no frame follows. Called once; takes a codec buffer, as a frame does. Idle:
     * nothing tells a frame source to stop.
     *
     * @return OK, or an error, after which it will be tried again
     */
    [[nodiscard]] virtual status_t submitEos(int bufferId) = 0;

    /**
     * Announces that the next frame to be submitted differs in dataspace from the one before.
     * `aspects` is always 0.
     */
    virtual void dispatchDataSpaceChanged(int dataSpace, int aspects, int pixelFormat) = 0;
};

}  // namespace android
