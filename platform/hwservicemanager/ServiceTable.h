// SPDX-License-Identifier: Apache-2.0
// The services of the register, by interface and instance.
#pragma once

#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <sys/types.h>

#include <android/hidl/base/1.0/IBase.h>

#include "ObjectIdentity.h"

namespace android {

/** What is registered. Used by one thread. */
class ServiceTable {
  public:
    using Service = sp<hidl::base::V1_0::IBase>;

    struct Entry {
        Service service;
        pid_t pid;  // of the process that registered it
    };
    /** The interface's descriptor and the instance, in that order. */
    using Name = std::pair<std::string, std::string>;

    /** Whether the service is already here, through this proxy or another. */
    bool has(const Service& service) const;

    /**
     * Enters a service under each interface of its chain, the most derived first, replacing what
     * was there. The service that the instance had as the chain's first interface leaves the
     * instance altogether: otherwise a child of that interface would still lead to the former
     * service. The service's first proxy is kept for as long as the service has any name.
     */
    void add(const std::vector<std::string>& chain, const std::string& instance,
             const Service& service, pid_t pid);

    /** Removes a service from every name it has. */
    void remove(const Service& service);

    /** Null if there is none. */
    Service get(const std::string& fqName, const std::string& instance) const;

    std::vector<std::string> instancesOf(const std::string& fqName) const;

    /** In the order of the names. */
    const std::map<Name, Entry>& entries() const { return mEntries; }

  private:
    /** The names that a service has. */
    struct Places {
        Service firstProxy;
        std::set<Name> names;
    };

    void takeOut(const Name& name);
    void takeOutOf(const std::string& instance, const Service& service);

    std::map<Name, Entry> mEntries;
    std::unordered_map<ObjectIdentity, Places> mPlaces;
};

}  // namespace android
