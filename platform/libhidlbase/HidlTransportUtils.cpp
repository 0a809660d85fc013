// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "HidlTransportUtils"

#include "hidl/HidlTransportUtils.h"

#include <algorithm>

#include <log/log.h>

namespace android {
namespace hardware {
namespace details {

using hidl::base::V1_0::IBase;

Return<bool> canCastInterface(IBase* interface, const char* castTo, bool emitError) {
    if (interface == nullptr) return false;
    bool canCast = false;
    const Return<void> asked = interface->interfaceChain([&](const hidl_vec<hidl_string>& chain) {
        canCast = std::find(chain.begin(), chain.end(), castTo) != chain.end();
    });
    if (asked.isOk()) return canCast;
    if (emitError) return StatusOf<void, bool>(asked);
    return false;
}

std::string getDescriptor(IBase* interface) {
    std::string descriptor;
    const Return<void> asked = interface->interfaceDescriptor(
            [&](const hidl_string& mostDerived) { descriptor = mostDerived; });
    if (!asked.isOk()) {
        ALOGE("Can't ask an object for its interface: %s", asked.description().c_str());
    }
    return descriptor;
}

}  // namespace details
}  // namespace hardware
}  // namespace android
