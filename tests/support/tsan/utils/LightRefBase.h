// SPDX-License-Identifier: Apache-2.0
// Replaces libutils' own header when the thread sanitizer is on: that one orders destruction after
// all uses with an atomic fence, which the sanitizer doesn't understand. Here the counter itself
// does so.
#pragma once

#include <atomic>
#include <cstdint>

namespace android {

template <class T>
class LightRefBase {
  public:
    void incStrong(const void* /*id*/) const { mCount.fetch_add(1, std::memory_order_relaxed); }
    void decStrong(const void* /*id*/) const {
        if (mCount.fetch_sub(1, std::memory_order_acq_rel) == 1) delete static_cast<const T*>(this);
    }
    int32_t getStrongCount() const { return mCount.load(std::memory_order_relaxed); }

  protected:
    ~LightRefBase() = default;

  private:
    mutable std::atomic<int32_t> mCount{0};
};

class VirtualLightRefBase : public LightRefBase<VirtualLightRefBase> {
  public:
    virtual ~VirtualLightRefBase() = default;
};

}  // namespace android
