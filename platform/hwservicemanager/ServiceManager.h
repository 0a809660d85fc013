// SPDX-License-Identifier: Apache-2.0
// The register of services that every process finds through the binder driver.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <android/hidl/manager/1.0/IServiceManager.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

#include "RegistrationListeners.h"
#include "ServiceTable.h"

namespace android {

/**
 * Serves IServiceManager. Everybody may look up; only root and the user that the register runs as
 * may add. Dead objects leave the register by themselves: each object's death is watched for once,
 * however often it is registered. Listeners are bounded, see RegistrationListeners. All calls and
 * death notices come on the one thread of the process, which makes every call to the register
 * atomic.
 */
class ServiceManager : public hidl::manager::V1_0::IServiceManager,
                       public hardware::hidl_death_recipient {
  public:
    hardware::Return<sp<hidl::base::V1_0::IBase>> get(const hardware::hidl_string& fqName,
                                                      const hardware::hidl_string& name) override;
    hardware::Return<bool> add(const hardware::hidl_string& name,
                               const sp<hidl::base::V1_0::IBase>& service) override;
    hardware::Return<Transport> getTransport(const hardware::hidl_string& fqName,
                                             const hardware::hidl_string& name) override;
    hardware::Return<void> list(list_cb _hidl_cb) override;
    hardware::Return<void> listByInterface(const hardware::hidl_string& fqName,
                                           listByInterface_cb _hidl_cb) override;
    hardware::Return<bool> registerForNotifications(
            const hardware::hidl_string& fqName, const hardware::hidl_string& name,
            const sp<hidl::manager::V1_0::IServiceNotification>& callback) override;
    hardware::Return<void> debugDump(debugDump_cb _hidl_cb) override;
    hardware::Return<void> registerPassthroughClient(const hardware::hidl_string& fqName,
                                                     const hardware::hidl_string& name) override;

    /** cookie says whether a service or a listener has died. */
    void serviceDied(uint64_t cookie, const wp<hidl::base::V1_0::IBase>& who) override;

  private:
    enum Mourned : uint64_t { SERVICE, LISTENER };

    /** Watches for the death of object; false if it has died already. */
    bool watch(const sp<hidl::base::V1_0::IBase>& object, Mourned kind);
    void tellPreexisting(const std::string& fqName, const std::string& instance,
                         const RegistrationListeners::Listener& listener);

    ServiceTable mServices;
    RegistrationListeners mListeners;
};

}  // namespace android
