// SPDX-License-Identifier: Apache-2.0
// Registering services and finding them.
#pragma once

#include <cstdint>
#include <string>

#include <utils/Errors.h>
#include <utils/StrongPointer.h>

namespace android {

namespace hidl {
namespace base {
namespace V1_0 {
struct IBase;
}  // namespace V1_0
}  // namespace base
namespace manager {
namespace V1_0 {
struct IServiceManager;
}  // namespace V1_0
}  // namespace manager
}  // namespace hidl

namespace hardware {

/** The register of services; null while there is none. Not cached, so that it may be restarted. */
sp<hidl::manager::V1_0::IServiceManager> defaultServiceManager();

namespace details {

/**
 * Waits for the register if it isn't up yet, as programs start in any order. UNEXPECTED_NULL for a
 * null service, INVALID_OPERATION without a binder driver, UNKNOWN_ERROR if the register refused.
 * Meanwhile the register asks the service for its interfaces.
 */
status_t registerAsServiceInternal(const sp<hidl::base::V1_0::IBase>& service,
                                   const std::string& name);

/**
 * Looks up a service that implements the interface with this descriptor. Without retry it returns
 * null at once if there is none; with retry it waits for one. getStub asks for a library; there are
 * none: null.
 */
sp<hidl::base::V1_0::IBase> getRawServiceInternal(const std::string& descriptor,
                                                  const std::string& instance, bool retry,
                                                  bool getStub);

}  // namespace details
}  // namespace hardware
}  // namespace android
