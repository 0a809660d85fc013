// SPDX-License-Identifier: Apache-2.0
#include "hwbinder/IInterface.h"

namespace android {
namespace hardware {

IInterface::IInterface() = default;

IInterface::~IInterface() = default;

sp<IBinder> IInterface::asBinder(const IInterface* object) {
    if (object == nullptr) return nullptr;
    return const_cast<IInterface*>(object)->onAsBinder();
}

sp<IBinder> IInterface::asBinder(const sp<IInterface>& object) {
    return asBinder(object.get());
}

}  // namespace hardware
}  // namespace android
