// SPDX-License-Identifier: Apache-2.0
// What the runtime knows about the process's interfaces and implementations.
#pragma once

#include <functional>
#include <string>

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/ConcurrentMap.h>
#include <hidl/HidlTransportSupport.h>
#include <hwbinder/Binder.h>
#include <hwbinder/IBinder.h>
#include <utils/RefBase.h>

namespace android {
namespace hardware {
namespace details {

using BnConstructorMap = ConcurrentMap<std::string, std::function<sp<IBinder>(void*)>>;
using BsConstructorMap =
        ConcurrentMap<std::string, std::function<sp<hidl::base::V1_0::IBase>(void*)>>;

/**
 * How to make the binder object of an implementation, by the descriptor of its interface. The
 * function takes the IBase of the implementation. Filled before main by generated code.
 */
BnConstructorMap& getBnConstructorMap();
/** The same for wrappers of libraries; filled but never used. */
BsConstructorMap& getBsConstructorMap();

/** The binder object of every implementation that has one. */
extern DoNotDestruct<ConcurrentMap<const hidl::base::V1_0::IBase*, wp<BHwBinder>>> gBnMap;

// What generated code looks up when it makes a binder object; both stay empty, so that it finds the
// defaults.
extern DoNotDestruct<ConcurrentMap<wp<hidl::base::V1_0::IBase>, SchedPrio>> gServicePrioMap;
extern DoNotDestruct<ConcurrentMap<wp<hidl::base::V1_0::IBase>, bool>> gServiceSidMap;

}  // namespace details
}  // namespace hardware
}  // namespace android
