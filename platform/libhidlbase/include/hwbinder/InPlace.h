// SPDX-License-Identifier: Apache-2.0
// Room for an object inside another one whose header doesn't know its class.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace android {
namespace hardware {

/**
 * At most one T, in kRoom bytes of its own: a std::unique_ptr<T> that doesn't allocate. T must be
 * complete where a method is used, the destructor included. Not thread-safe.
 */
template <typename T, size_t kRoom>
class InPlace {
  public:
    InPlace() = default;
    ~InPlace() { reset(); }
    InPlace(const InPlace&) = delete;
    InPlace& operator=(const InPlace&) = delete;

    /** Makes a T from these arguments, replacing the one that is there, if any. */
    template <typename... Arguments>
    T& emplace(Arguments&&... arguments) {
        static_assert(sizeof(T) <= kRoom && alignof(T) <= alignof(std::max_align_t));
        reset();
        mObject = new (mRoom) T(std::forward<Arguments>(arguments)...);
        return *mObject;
    }

    void reset() {
        if (mObject != nullptr) std::destroy_at(std::exchange(mObject, nullptr));
    }

    bool isEmpty() const { return mObject == nullptr; }
    T* operator->() const { return mObject; }
    T& operator*() const { return *mObject; }

  private:
    T* mObject = nullptr;
    alignas(std::max_align_t) std::byte mRoom[kRoom];
};

}  // namespace hardware
}  // namespace android
