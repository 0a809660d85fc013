// SPDX-License-Identifier: Apache-2.0
// The proxies of this process, by the driver's handles.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <unordered_map>

#include <android-base/thread_annotations.h>
#include <hwbinder/BpHwBinder.h>

namespace android {
namespace hardware {

/**
 * Keeps at most one proxy for each handle, weakly. While one is being destroyed, which ends with
 * forget(), a thread that asks for the same handle waits: the driver must get the old one's death
 * link back before a new one makes its own. References are counted, so an old one may go back after
 * a new one has been taken.
 *
 * Thread-safe. A proxy takes its reference under mLock; nobody else's code runs under it.
 */
class RemoteHandles {
  public:
    /** The proxy of a handle that this process has a reference to; made if there is none. */
    sp<BpHwBinder> get(uint32_t handle) EXCLUDES(mLock);

    /** The proxy if there is one. */
    sp<BpHwBinder> find(uint32_t handle) const EXCLUDES(mLock);

    /** The proxy whose death is reported by this cookie; null if it is gone. */
    sp<BpHwBinder> findByDeathCookie(uint64_t cookie) const EXCLUDES(mLock);

    /** Called by a proxy that is being destroyed, after its last command to the driver. */
    void forget(uint32_t handle) EXCLUDES(mLock);

  private:
    struct Entry {
        wp<BpHwBinder> proxy;
        uint64_t deathCookie;
    };

    sp<BpHwBinder> make_l(uint32_t handle) REQUIRES(mLock);

    mutable std::mutex mLock;
    std::condition_variable_any mForgotten;
    std::unordered_map<uint32_t, Entry> mEntries GUARDED_BY(mLock);
    uint32_t mGeneration GUARDED_BY(mLock) = 0;
};

}  // namespace hardware
}  // namespace android
