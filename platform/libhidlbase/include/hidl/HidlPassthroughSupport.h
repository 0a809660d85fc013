// SPDX-License-Identifier: Apache-2.0
// Implementations in libraries, which don't exist here.
#pragma once

#include <cstdint>

#include <android/hidl/base/1.0/IBase.h>
#include <utils/StrongPointer.h>

namespace android {
namespace hardware {
namespace details {

/** Returns its argument. */
sp<hidl::base::V1_0::IBase> wrapPassthroughInternal(sp<hidl::base::V1_0::IBase> interface);

template <typename IType>
sp<IType> wrapPassthrough(sp<IType> interface) {
    return static_cast<IType*>(wrapPassthroughInternal(interface).get());
}

}  // namespace details
}  // namespace hardware
}  // namespace android
