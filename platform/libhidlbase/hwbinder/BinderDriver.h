// SPDX-License-Identifier: Apache-2.0
// The driver's device: its descriptor and the area where it puts what this process receives.
#pragma once

#include <cstddef>
#include <cstdint>

#include <linux/android/binder.h>

#include <android-base/unique_fd.h>
#include <utils/Errors.h>

#include "ReceiveArea.h"

namespace android {
namespace hardware {

/**
 * Owns the open device and the mapped receive area of 1 MiB less two pages, which all calls under
 * way to this process share. Immutable after construction and therefore callable from any thread;
 * the driver itself tells threads apart. All requests return OK or a negative errno, and NO_INIT if
 * the device could not be opened.
 */
class BinderDriver {
  public:
    /** Opens and maps path. Any failure is logged; isOpen() says whether it worked. */
    explicit BinderDriver(const char* path);
    BinderDriver(const BinderDriver&) = delete;
    BinderDriver& operator=(const BinderDriver&) = delete;

    bool isOpen() const { return mArea.isMapped(); }
    int fd() const { return mFd.get(); }

    /** One past the last byte of the receive area. */
    const uint8_t* areaEnd() const { return mArea.end(); }

    /** How many threads the driver may ask for. */
    status_t setMaxThreads(uint32_t count) const;

    /** Makes a local object, named as in a parcel, the one behind handle 0. */
    status_t setContextManager(const flat_binder_object& object) const;

    /** Exchanges commands; resumes after signals. exchange records what was consumed. */
    status_t writeRead(binder_write_read* exchange) const;

    /** Forgets the calling thread. */
    void exitThread() const;

  private:
    bool open(const char* path);
    bool checkVersion(const char* path) const;
    bool map(const char* path);
    status_t request(unsigned long code, void* argument) const;

    base::unique_fd mFd;
    ReceiveArea mArea;  // unmapped before the device is closed
};

}  // namespace hardware
}  // namespace android
