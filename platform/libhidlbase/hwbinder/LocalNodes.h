// SPDX-License-Identifier: Apache-2.0
// The objects of this process that the driver knows, and the references that it holds to them.
#pragma once

#include <cstdint>
#include <mutex>
#include <unordered_map>

#include <android-base/thread_annotations.h>
#include <hwbinder/Binder.h>

namespace android {
namespace hardware {

/**
 * Names local objects for the driver. A name is a number that is never used again, not an address,
 * so that whatever a parcel or the driver names is looked up and never dereferenced.
 *
 * The driver's references are counted, not just noted, as several threads may handle a release and
 * the next acquisition out of order. An object keeps its name while a parcel that carries it exists
 * or the driver has any reference. Thread-safe; mLock is never held during a call to an object or
 * while one is destroyed.
 */
class LocalNodes {
  public:
    /** The object's name, never 0. Each call must be undone by withdraw(). */
    uint64_t publish(const sp<BHwBinder>& object) EXCLUDES(mLock);
    void withdraw(uint64_t name) EXCLUDES(mLock);

    /** The object of that name; null if there is none or it is being destroyed. */
    sp<BHwBinder> find(uint64_t name) const EXCLUDES(mLock);

    /**
     * The driver takes a reference, which must be given back in any case. False if there is no such
     * living object.
     */
    bool incWeak(uint64_t name) EXCLUDES(mLock);
    bool incStrong(uint64_t name) EXCLUDES(mLock);

    /** The driver gives a reference back. The object may be destroyed on this thread. */
    void decWeak(uint64_t name) EXCLUDES(mLock);
    void decStrong(uint64_t name) EXCLUDES(mLock);

    /** How many objects have names. */
    size_t size() const EXCLUDES(mLock);

  private:
    using Identity =
            RefBase::weakref_type*;  // unique while the entry's wp lives, unlike an address

    struct Node {
        wp<BHwBinder> object;
        sp<BHwBinder> held;  // while strongCount isn't 0
        Identity identity = nullptr;
        int publications = 0;
        int weakCount = 0;
        int strongCount = 0;
    };

    Node* find_l(uint64_t name) REQUIRES(mLock);
    void eraseUnused_l(uint64_t name) REQUIRES(mLock);

    mutable std::mutex mLock;
    uint64_t mLastName GUARDED_BY(mLock) = 0;
    std::unordered_map<uint64_t, Node> mNodes GUARDED_BY(mLock);
    std::unordered_map<Identity, uint64_t> mNames GUARDED_BY(mLock);
};

}  // namespace hardware
}  // namespace android
