// SPDX-License-Identifier: Apache-2.0
// The consumer's end of a buffer queue.
#pragma once

#include <cstdint>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <gui/BufferItem.h>
#include <gui/IConsumerListener.h>
#include <system/graphics.h>
#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <ui/PixelFormat.h>
#include <utils/Errors.h>
#include <utils/NativeHandle.h>
#include <utils/RefBase.h>
#include <utils/String8.h>
#include <utils/Timers.h>

namespace android {

/**
 * consumerConnect() comes first; then each frame that onFrameAvailable() announces is acquired,
 * used and released. Every method may be called from any thread.
 */
class IGraphicBufferConsumer : public RefBase {
  public:
    enum {
        /** releaseBuffer(): the slot has another frame by now; forget its cached buffer. */
        STALE_BUFFER_SLOT = 1,
        /** acquireBuffer(): nothing is queued. */
        NO_BUFFER_AVAILABLE = 2,
        /** acquireBuffer(): the first frame's time is later than asked for. */
        PRESENT_LATER = 3,
    };

    /**
     * Takes the first frame of the queue. Unless `presentWhen` (nanoseconds) is 0 it skips frames
     * that a later one supersedes by then, and leaves alone one that isn't due.
     * @param maxFrameNumber with `presentWhen`: the last frame to take, 0 for any.
     * @return NO_BUFFER_AVAILABLE, PRESENT_LATER; INVALID_OPERATION when the consumer holds one
     *         more than the maximum it set. `buffer` is then untouched.
     */
    virtual status_t acquireBuffer(BufferItem* buffer, nsecs_t presentWhen,
                                   uint64_t maxFrameNumber = 0) = 0;

    /** Takes an acquired buffer out of the queue for good. */
    virtual status_t detachBuffer(int slot) = 0;

    /**
     * Puts a foreign buffer into a slot, which is then acquired with frame number 0.
     * @return NO_MEMORY when no slot is free; INVALID_OPERATION when the consumer holds too many;
     *         BAD_VALUE when the buffer's generation isn't the queue's.
     */
    virtual status_t attachBuffer(int* outSlot, const sp<GraphicBuffer>& buffer) = 0;

    /**
     * Gives an acquired buffer back; the producer waits for `releaseFence` before it draws. The EGL
     * arguments are not used.
     * @return STALE_BUFFER_SLOT when the slot has another frame; BAD_VALUE for a missing fence or a
     *         slot that isn't acquired.
     */
    virtual status_t releaseBuffer(int buf, uint64_t frameNumber, EGLDisplay display,
                                   EGLSyncKHR fence, const sp<Fence>& releaseFence) = 0;

    /** releaseBuffer() without the EGL arguments. */
    status_t releaseHelper(int buf, uint64_t frameNumber, const sp<Fence>& releaseFence) {
        return releaseBuffer(buf, frameNumber, EGL_NO_DISPLAY, EGL_NO_SYNC_KHR, releaseFence);
    }

    /**
     * Connects the consumer, replacing the listener if there is one already.
     * @return BAD_VALUE without a listener, NO_INIT once disconnected.
     */
    virtual status_t consumerConnect(const sp<IConsumerListener>& consumer,
                                     bool controlledByApp) = 0;

    /** Ends the queue for ever. BAD_VALUE when not connected. */
    virtual status_t consumerDisconnect() = 0;

    /** The slots, one bit each, whose buffers the consumer must not keep. */
    virtual status_t getReleasedBuffers(uint64_t* slotMask) = 0;

    /** The size for producers that ask for 0x0; 1x1 at first. BAD_VALUE when either is 0. */
    virtual status_t setDefaultBufferSize(uint32_t width, uint32_t height) = 0;

    /** 1 to 64; INVALID_OPERATION while a producer is connected. */
    virtual status_t setMaxBufferCount(int bufferCount) = 0;

    /** 1 to 62; BAD_VALUE also when the consumer holds more or the queue has no room. */
    virtual status_t setMaxAcquiredBufferCount(int maxAcquiredBuffers) = 0;

    virtual status_t setConsumerName(const String8& name) = 0;
    virtual status_t setDefaultBufferFormat(PixelFormat defaultFormat) = 0;
    virtual status_t setDefaultBufferDataSpace(android_dataspace defaultDataSpace) = 0;
    /** Or'ed into the usage of every dequeue. */
    virtual status_t setConsumerUsageBits(uint64_t usage) = 0;
    virtual status_t setConsumerIsProtected(bool isProtected) = 0;
    virtual status_t setTransformHint(uint32_t hint) = 0;
    virtual status_t getSidebandStream(sp<NativeHandle>* outStream) const = 0;

    /** Discards all buffers that neither side holds and that aren't queued. */
    virtual status_t discardFreeBuffers() = 0;
};

class BnGraphicBufferConsumer : public IGraphicBufferConsumer {};

}  // namespace android
