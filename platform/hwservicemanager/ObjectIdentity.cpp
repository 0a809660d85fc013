// SPDX-License-Identifier: Apache-2.0
#include "ObjectIdentity.h"

#include <hwbinder/IInterface.h>

namespace android {

ObjectIdentity identityOf(const sp<hidl::base::V1_0::IBase>& object) {
    auto* const proxy = dynamic_cast<hardware::BpHwRefBase*>(object.get());
    return proxy != nullptr ? static_cast<ObjectIdentity>(proxy->remote()) : object.get();
}

}  // namespace android
