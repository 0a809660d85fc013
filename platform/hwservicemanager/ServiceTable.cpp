// SPDX-License-Identifier: Apache-2.0
#include "ServiceTable.h"

#include <iterator>

#include <hidl/HidlTransportSupport.h>

namespace android {

void ServiceTable::add(const std::vector<std::string>& chain, const std::string& instance,
                       const Service& service, pid_t pid) {
    const Service former = get(chain.front(), instance);
    removeIf([&](const Name& name, const Service& candidate) {
        return name.second == instance && hardware::interfacesEqual(candidate, former);
    });
    for (const std::string& fqName : chain) mEntries[{fqName, instance}] = {service, pid};
}

void ServiceTable::remove(const Service& service) {
    removeIf([&](const Name&, const Service& candidate) {
        return hardware::interfacesEqual(candidate, service);
    });
}

template <typename Predicate>
void ServiceTable::removeIf(Predicate shouldGo) {
    for (auto it = mEntries.begin(); it != mEntries.end();) {
        it = shouldGo(it->first, it->second.service) ? mEntries.erase(it) : std::next(it);
    }
}

ServiceTable::Service ServiceTable::get(const std::string& fqName,
                                        const std::string& instance) const {
    const auto it = mEntries.find({fqName, instance});
    return it == mEntries.end() ? nullptr : it->second.service;
}

std::vector<std::string> ServiceTable::instancesOf(const std::string& fqName) const {
    std::vector<std::string> instances;
    for (auto it = mEntries.lower_bound({fqName, ""});
         it != mEntries.end() && it->first.first == fqName; ++it) {
        instances.push_back(it->first.second);
    }
    return instances;
}

}  // namespace android
