// SPDX-License-Identifier: Apache-2.0
// Tells objects apart even though every call brings a new proxy.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <utils/StrongPointer.h>

namespace android {

/** The same for all proxies of an object; no other object's as long as one of them is held. */
using ObjectIdentity = const void*;

ObjectIdentity identityOf(const sp<hidl::base::V1_0::IBase>& object);

}  // namespace android
