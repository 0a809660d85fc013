// SPDX-License-Identifier: Apache-2.0
// The layout of a message queue's descriptor: generated code asserts it, nothing uses it.
#pragma once

#include <cstdint>

namespace android {
namespace hardware {

enum MQFlavor : uint32_t {
    kSynchronizedReadWrite = 0x01,
    kUnsynchronizedWrite = 0x02,
};

template <typename T, MQFlavor Flavor>
struct MQDescriptor {
  private:
    uint64_t mContents[4] = {};
};

}  // namespace hardware
}  // namespace android
