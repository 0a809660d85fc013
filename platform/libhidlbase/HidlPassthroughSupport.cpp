// SPDX-License-Identifier: Apache-2.0
#include "hidl/HidlPassthroughSupport.h"

namespace android {
namespace hardware {
namespace details {

sp<hidl::base::V1_0::IBase> wrapPassthroughInternal(sp<hidl::base::V1_0::IBase> interface) {
    return interface;
}

}  // namespace details
}  // namespace hardware
}  // namespace android
