// SPDX-License-Identifier: Apache-2.0
// What tells objects apart, of which every call brings another proxy.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <utils/StrongPointer.h>

namespace android {

/** The same for all proxies of an object; nobody else's as long as one of them is held. */
using ObjectIdentity = const void*;

ObjectIdentity identityOf(const sp<hidl::base::V1_0::IBase>& object);

}  // namespace android
