// SPDX-License-Identifier: Apache-2.0
// What the poll thread needs of a device: a descriptor to watch and one entry point.
#pragma once

#include <cstdint>

#include <errno.h>
#include <sys/select.h>

#include <android-base/unique_fd.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * A device that the controller's poll thread serves. The thread watches fd with select() and calls
 * handlePendingData() for what became ready; both happen on that thread only.
 *
 * A device reports what it finds to a listener, and never holds a lock of its own while it does:
 * the listener may call back into the device.
 */
class PollableDev {
  public:
    /** What select() found. Values are part of the contract. */
    enum PENDING_DATA_TYPE {
        /** Data can be read: the hot-plug socket. */
        DATA_READABLE = 2,
        /** The device takes output: the UVC node, watched for it only while it streams. */
        DATA_WRITABLE = 3,
        /** An exceptional condition: on the UVC node an event that can be dequeued. */
        DATA_EXCEPTION = 4,
    };

    /** Subclasses close fd when it is open. */
    virtual ~PollableDev() = default;

    /**
     * Handles what is pending on fd.
     *
     * @return 0 when it was handled or ignored, a negative errno value or -1 when that failed
     */
    [[nodiscard]] virtual int32_t handlePendingData(PENDING_DATA_TYPE type) = 0;

    /** Owned by the subclass, which sets and closes it; -1 while closed, and then not watched. */
    int32_t fd = -1;

  protected:
    /**
     * For a descriptor that has just been opened: one that select() can't watch, beyond the size of
     * its sets, is closed, and the opening has failed with EMFILE.
     */
    [[nodiscard]] static int32_t watchable(int32_t opened) {
        if (opened < FD_SETSIZE) return opened;
        ::android::base::unique_fd(opened).reset();
        errno = EMFILE;
        return -1;
    }
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
