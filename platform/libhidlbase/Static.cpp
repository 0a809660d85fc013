// SPDX-License-Identifier: Apache-2.0
#include "hidl/Static.h"

namespace android {
namespace hardware {
namespace details {

// Never destroyed: generated code empties them after the destructors of this library have run.
BnConstructorMap& getBnConstructorMap() {
    static BnConstructorMap& map = *new BnConstructorMap();
    return map;
}

BsConstructorMap& getBsConstructorMap() {
    static BsConstructorMap& map = *new BsConstructorMap();
    return map;
}

DoNotDestruct<ConcurrentMap<const hidl::base::V1_0::IBase*, wp<BHwBinder>>> gBnMap;
DoNotDestruct<ConcurrentMap<wp<hidl::base::V1_0::IBase>, SchedPrio>> gServicePrioMap;
DoNotDestruct<ConcurrentMap<wp<hidl::base::V1_0::IBase>, bool>> gServiceSidMap;

}  // namespace details
}  // namespace hardware
}  // namespace android
