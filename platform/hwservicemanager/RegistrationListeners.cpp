// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "hwservicemanager"

#include "RegistrationListeners.h"

#include <algorithm>

#include <log/log.h>

#include <hidl/HidlTransportSupport.h>

namespace android {

void RegistrationListeners::add(const std::string& fqName, const std::string& instance,
                                const Listener& listener) {
    mEntries.push_back({fqName, instance, listener});
}

void RegistrationListeners::remove(const sp<hidl::base::V1_0::IBase>& listener) {
    const auto isListener = [&](const Entry& entry) {
        return hardware::interfacesEqual(entry.listener, listener);
    };
    mEntries.erase(std::remove_if(mEntries.begin(), mEntries.end(), isListener), mEntries.end());
}

void RegistrationListeners::notify(const std::string& fqName, const std::string& instance) const {
    for (const Entry& entry : mEntries) {
        if (entry.fqName != fqName) continue;
        if (!entry.instance.empty() && entry.instance != instance) continue;
        const auto told = entry.listener->onRegistration(fqName, instance, false /* preexisting */);
        if (!told.isOk()) ALOGW("A listener of %s is gone", fqName.c_str());
    }
}

}  // namespace android
