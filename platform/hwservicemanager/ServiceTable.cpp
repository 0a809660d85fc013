// SPDX-License-Identifier: Apache-2.0
#include "ServiceTable.h"

namespace android {

bool ServiceTable::has(const Service& service) const {
    return mPlaces.count(identityOf(service)) != 0;
}

void ServiceTable::add(const std::vector<std::string>& chain, const std::string& instance,
                       const Service& service, pid_t pid) {
    const ObjectIdentity identity = identityOf(service);
    const auto known = mPlaces.find(identity);
    const Service firstProxy = known == mPlaces.end() ? service : known->second.firstProxy;
    const Service former = get(chain.front(), instance);
    if (former != nullptr) takeOutOf(instance, former);
    for (const std::string& fqName : chain) {
        const Name name(fqName, instance);
        takeOut(name);
        mEntries[name] = {service, pid};
        Places& places = mPlaces[identity];
        places.firstProxy = firstProxy;
        places.names.insert(name);
    }
}

void ServiceTable::remove(const Service& service) {
    const auto it = mPlaces.find(identityOf(service));
    if (it == mPlaces.end()) return;
    for (const Name& name : it->second.names) mEntries.erase(name);
    mPlaces.erase(it);
}

void ServiceTable::takeOut(const Name& name) {
    const auto entry = mEntries.find(name);
    if (entry == mEntries.end()) return;
    const auto places = mPlaces.find(identityOf(entry->second.service));
    places->second.names.erase(name);
    if (places->second.names.empty()) mPlaces.erase(places);
    mEntries.erase(entry);
}

/** Removes a service from the names of one instance. */
void ServiceTable::takeOutOf(const std::string& instance, const Service& service) {
    std::set<Name> ofInstance;
    for (const Name& name : mPlaces.at(identityOf(service)).names) {
        if (name.second == instance) ofInstance.insert(name);
    }
    for (const Name& name : ofInstance) takeOut(name);
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
