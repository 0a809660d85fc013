// SPDX-License-Identifier: Apache-2.0
// A camera frame that the processor has access to.
#pragma once

#include <system/graphics.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * Holds a frame, and locks it for the processor at most once: whoever has the object has the lock,
 * which goes with it or with unlock(). Moves, and is then empty. Takes no lock of the device's, and
 * waits for no fence.
 */
class LockedFrame {
  public:
    LockedFrame() = default;
    /** Not locked yet. */
    explicit LockedFrame(const android::sp<android::GraphicBuffer>& frame) : mFrame(frame) {}
    ~LockedFrame() { unlock(); }
    LockedFrame(LockedFrame&& other) noexcept;
    /** Unlocks and drops the frame held so far. */
    LockedFrame& operator=(LockedFrame&& other) noexcept;

    /**
     * Locks a blob for reading and writing, or a picture for reading. Once, and not without a
     * frame.
     *
     * @return its addresses, null where there are none; unlock() is due all the same
     */
    void* lockBlob();
    android_ycbcr lockPicture();

    /** Does nothing to a frame that isn't locked. */
    void unlock();

    /** Unlocks the frame and gives it away; null when there is none. */
    android::sp<android::GraphicBuffer> take();

  private:
    android::sp<android::GraphicBuffer> mFrame;
    bool mLocked = false;
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
