// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "hwservicemanager"

#include "RegistrationListeners.h"

#include <log/log.h>

namespace android {

bool RegistrationListeners::hasRoomFor(pid_t caller) const {
    const auto it = mCountOfProcess.find(caller);
    const size_t own = it == mCountOfProcess.end() ? 0 : it->second;
    return own < kMaxOfOneProcess && mCountOfAll < kMaxOfAll;
}

bool RegistrationListeners::has(const Listener& listener) const {
    return mEntries.count(identityOf(listener)) != 0;
}

void RegistrationListeners::add(const std::string& fqName, const std::string& instance,
                                const Listener& listener, pid_t caller) {
    Entry& entry = mEntries[identityOf(listener)];
    if (entry.listener == nullptr) entry.listener = listener;
    entry.wishes.push_back({fqName, instance, caller});
    ++mCountOfProcess[caller];
    ++mCountOfAll;
}

void RegistrationListeners::remove(const sp<hidl::base::V1_0::IBase>& listener) {
    const auto it = mEntries.find(identityOf(listener));
    if (it == mEntries.end()) return;
    for (const Wish& wish : it->second.wishes) {
        const auto count = mCountOfProcess.find(wish.caller);
        if (--count->second == 0) mCountOfProcess.erase(count);
        --mCountOfAll;
    }
    mEntries.erase(it);
}

void RegistrationListeners::tell(const Listener& listener, const std::string& fqName,
                                 const std::string& instance, bool preexisting) {
    const auto told = listener->onRegistration(fqName, instance, preexisting);
    if (!told.isOk()) {
        ALOGW("Can't tell a listener of %s: %s", fqName.c_str(), told.description().c_str());
    }
}

bool RegistrationListeners::Wish::isMetBy(const std::string& otherName,
                                          const std::string& otherInstance) const {
    return fqName == otherName && (instance.empty() || instance == otherInstance);
}

void RegistrationListeners::notify(const std::string& fqName, const std::string& instance) const {
    for (const auto& [identity, entry] : mEntries) {
        for (const Wish& wish : entry.wishes) {
            if (wish.isMetBy(fqName, instance)) {
                tell(entry.listener, fqName, instance, false /* preexisting */);
            }
        }
    }
}

}  // namespace android
