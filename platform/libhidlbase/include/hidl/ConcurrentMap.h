// SPDX-License-Identifier: Apache-2.0
// A map that any thread may use, and a wrapper for globals that outlive every thread.
#pragma once

#include <map>
#include <mutex>
#include <new>
#include <utility>

#include <android-base/thread_annotations.h>

namespace android {
namespace hardware {

/** Every operation copies values in or out under the map's own lock. */
template <typename Key, typename Value>
class ConcurrentMap {
  public:
    void set(Key key, Value value) {
        std::lock_guard<std::mutex> lock(mLock);
        mMap[std::move(key)] = std::move(value);
    }

    Value get(const Key& key, const Value& def) const {
        std::lock_guard<std::mutex> lock(mLock);
        auto it = mMap.find(key);
        return it == mMap.end() ? def : it->second;
    }

    void erase(const Key& key) {
        std::lock_guard<std::mutex> lock(mLock);
        mMap.erase(key);
    }

    void eraseIfEqual(const Key& key, const Value& value) {
        std::lock_guard<std::mutex> lock(mLock);
        auto it = mMap.find(key);
        if (it != mMap.end() && it->second == value) mMap.erase(it);
    }

  private:
    mutable std::mutex mLock;
    std::map<Key, Value> mMap GUARDED_BY(mLock);
};

namespace details {

/**
 * Constructs a T along with itself and never destroys it: threads may still use it while the
 * process ends.
 */
template <typename T>
class DoNotDestruct {
  public:
    DoNotDestruct() { new (mStorage) T(); }
    T& get() { return *std::launder(reinterpret_cast<T*>(mStorage)); }
    T* operator->() { return &get(); }

  private:
    alignas(T) unsigned char mStorage[sizeof(T)];
};

}  // namespace details
}  // namespace hardware
}  // namespace android
