// SPDX-License-Identifier: Apache-2.0
// Questions about what an object implements.
#pragma once

#include <string>

#include <android/hidl/base/1.0/IBase.h>

namespace android {
namespace hardware {
namespace details {

/**
 * Whether the object implements the interface with the descriptor castTo. Asks the object, which is
 * a call to its process if it is remote. If the call fails, the result is false or, with emitError,
 * the call's error.
 */
Return<bool> canCastInterface(hidl::base::V1_0::IBase* interface, const char* castTo,
                              bool emitError = false);

/** The descriptor of the object's most derived interface; empty if it can't be asked. */
std::string getDescriptor(hidl::base::V1_0::IBase* interface);

}  // namespace details
}  // namespace hardware
}  // namespace android
