// SPDX-License-Identifier: Apache-2.0
// The memory where the driver puts what this process receives.
#pragma once

#include <cstddef>
#include <cstdint>

namespace android {
namespace hardware {

/** A mapping of the driver's device, which only the driver writes to. Unmaps it when destroyed. */
class ReceiveArea {
  public:
    /** None. */
    ReceiveArea() = default;
    /** Maps size bytes of an open device, which is borrowed. None, with errno, when that fails. */
    ReceiveArea(int device, size_t size);
    ~ReceiveArea();
    ReceiveArea(ReceiveArea&& other) noexcept;
    ReceiveArea& operator=(ReceiveArea&& other) noexcept;

    bool isMapped() const { return mBegin != nullptr; }

    /** One past the last byte. */
    const uint8_t* end() const { return mBegin + mSize; }

  private:
    uint8_t* mBegin = nullptr;
    size_t mSize = 0;
};

}  // namespace hardware
}  // namespace android
