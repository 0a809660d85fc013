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

void RegistrationListeners::tell(const Listener& listener, const std::string& fqName,
                                 const std::string& instance, bool preexisting) {
    const auto told = listener->onRegistration(fqName, instance, preexisting);
    if (!told.isOk()) {
        ALOGW("Can't tell a listener of %s: %s", fqName.c_str(), told.description().c_str());
    }
}

void RegistrationListeners::notify(const std::string& fqName, const std::string& instance) const {
    for (const Entry& entry : mEntries) {
        if (entry.fqName != fqName) continue;
        if (!entry.instance.empty() && entry.instance != instance) continue;
        tell(entry.listener, fqName, instance, false /* preexisting */);
    }
}

}  // namespace android
