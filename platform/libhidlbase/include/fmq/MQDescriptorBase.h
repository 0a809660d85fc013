// SPDX-License-Identifier: Apache-2.0
// The shape of a message queue's descriptor, which generated code asserts and nothing uses.
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
