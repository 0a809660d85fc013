// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "hwservicemanager"

#include "ServiceManager.h"

#include <unistd.h>

#include <hwbinder/IPCThreadState.h>
#include <log/log.h>

#include "ServiceNames.h"

namespace android {

using hardware::hidl_string;
using hardware::hidl_vec;
using hardware::IPCThreadState;
using hardware::Return;
using hardware::Void;
using hidl::base::V1_0::DebugInfo;
using hidl::base::V1_0::IBase;
using hidl::manager::V1_0::IServiceNotification;

namespace {

bool mayAdd(uid_t uid) {
    return uid == 0 || uid == getuid();
}

/** Asks a service for its interfaces; empty if it doesn't answer. */
std::vector<std::string> chainOf(const sp<IBase>& service) {
    std::vector<std::string> chain;
    const Return<void> asked =
            service->interfaceChain([&](const hidl_vec<hidl_string>& descriptors) {
                chain.assign(descriptors.begin(), descriptors.end());
            });
    if (!asked.isOk()) ALOGE("Can't ask for interfaces: %s", asked.description().c_str());
    return chain;
}

hidl_vec<hidl_string> toHidl(const std::vector<std::string>& names) {
    return hidl_vec<hidl_string>(names.begin(), names.end());
}

}  // namespace

Return<sp<IBase>> ServiceManager::get(const hidl_string& fqName, const hidl_string& name) {
    return mServices.get(fqName, name);
}

Return<bool> ServiceManager::add(const hidl_string& name, const sp<IBase>& service) {
    const IPCThreadState* const thread = IPCThreadState::self();
    const pid_t pid = thread->getCallingPid();
    const uid_t uid = thread->getCallingUid();
    if (!mayAdd(uid)) {
        ALOGE("Process %d of user %u may not register a service", pid, uid);
        return false;
    }
    if (service == nullptr || !isValidInstance(name)) {
        ALOGE("Process %d registers no service or a bad instance name", pid);
        return false;
    }
    const std::vector<std::string> chain = chainOf(service);
    if (!isValidChain(chain)) {
        ALOGE("Process %d registers %s with bad interfaces", pid, name.c_str());
        return false;
    }
    if (!mServices.has(service) && !watch(service, SERVICE)) {
        ALOGE("Process %d registers %s, which has died", pid, name.c_str());
        return false;
    }
    ALOGI("Registered %s/%s of process %d", chain.front().c_str(), name.c_str(), pid);
    mServices.add(chain, name, service, pid);
    for (const std::string& fqName : chain) mListeners.notify(fqName, name);
    return true;
}

Return<ServiceManager::Transport> ServiceManager::getTransport(const hidl_string& fqName,
                                                               const hidl_string& name) {
    return mServices.get(fqName, name) == nullptr ? Transport::EMPTY : Transport::HWBINDER;
}

Return<void> ServiceManager::list(list_cb _hidl_cb) {
    std::vector<std::string> names;
    for (const auto& [name, entry] : mServices.entries()) {
        names.push_back(name.first + "/" + name.second);
    }
    _hidl_cb(toHidl(names));
    return Void();
}

Return<void> ServiceManager::listByInterface(const hidl_string& fqName,
                                             listByInterface_cb _hidl_cb) {
    _hidl_cb(toHidl(mServices.instancesOf(fqName)));
    return Void();
}

Return<bool> ServiceManager::registerForNotifications(const hidl_string& fqName,
                                                      const hidl_string& name,
                                                      const sp<IServiceNotification>& callback) {
    const pid_t pid = IPCThreadState::self()->getCallingPid();
    const bool validName = name.empty() || isValidInstance(name);
    if (callback == nullptr || !validName || !isValidFqName(fqName)) {
        ALOGE("Process %d registers no listener or one of a bad name", pid);
        return false;
    }
    if (!mListeners.hasRoomFor(pid)) {
        ALOGE("Process %d registers more listeners than there is room for", pid);
        return false;
    }
    if (!mListeners.has(callback) && !watch(callback, LISTENER)) {
        ALOGE("Process %d registers a listener that has died", pid);
        return false;
    }
    mListeners.add(fqName, name, callback, pid);
    tellPreexisting(fqName, name, callback);
    return true;
}

void ServiceManager::tellPreexisting(const std::string& fqName, const std::string& instance,
                                     const RegistrationListeners::Listener& listener) {
    for (const std::string& existing : mServices.instancesOf(fqName)) {
        if (!instance.empty() && instance != existing) continue;
        RegistrationListeners::tell(listener, fqName, existing, true /* preexisting */);
    }
}

Return<void> ServiceManager::debugDump(debugDump_cb _hidl_cb) {
    std::vector<InstanceDebugInfo> infos;
    for (const auto& [name, entry] : mServices.entries()) {
        InstanceDebugInfo info;
        info.interfaceName = name.first;
        info.instanceName = name.second;
        info.pid = entry.pid;
        info.arch = DebugInfo::Architecture::UNKNOWN;
        infos.push_back(info);
    }
    _hidl_cb(infos);
    return Void();
}

// Nothing is served from libraries, so nobody can be using one.
Return<void> ServiceManager::registerPassthroughClient(const hidl_string& /*fqName*/,
                                                       const hidl_string& /*name*/) {
    return Void();
}

void ServiceManager::serviceDied(uint64_t cookie, const wp<IBase>& who) {
    const sp<IBase> dead = who.promote();
    if (dead == nullptr) return;
    if (cookie == LISTENER) {
        mListeners.remove(dead);
    } else {
        ALOGI("A service has died");
        mServices.remove(dead);
    }
}

bool ServiceManager::watch(const sp<IBase>& object, Mourned kind) {
    return object->linkToDeath(this, kind).withDefault(false);
}

}  // namespace android
