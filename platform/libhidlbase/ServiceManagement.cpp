// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "ServiceManagement"

#include "hidl/ServiceManagement.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <android-base/thread_annotations.h>
#include <android/hidl/manager/1.0/IServiceManager.h>
#include <android/hidl/manager/1.0/IServiceNotification.h>
#include <hidl/HidlTransportSupport.h>
#include <hwbinder/IPCThreadState.h>
#include <hwbinder/ProcessState.h>
#include <log/log.h>
#include <android/hidl/manager/1.0/BpHwServiceManager.h>

namespace android {
namespace hardware {

using hidl::base::V1_0::IBase;
using hidl::manager::V1_0::BpHwServiceManager;
using hidl::manager::V1_0::IServiceManager;
using hidl::manager::V1_0::IServiceNotification;

sp<IServiceManager> defaultServiceManager() {
    const sp<IBinder> context = ProcessState::self()->getContextObject(nullptr);
    return fromBinder<IServiceManager, BpHwServiceManager, BHwBinder>(context);
}

namespace {

constexpr std::chrono::seconds kRetryInterval(1);
constexpr std::chrono::milliseconds kManagerRetryInterval(100);

/** The driver doesn't say when a manager appears, so it is asked. Null without a driver. */
sp<IServiceManager> waitForServiceManager() {
    for (bool told = false; ProcessState::self()->hasDriver(); told = true) {
        const sp<IServiceManager> manager = defaultServiceManager();
        if (manager != nullptr) return manager;
        if (!told) ALOGI("Waiting for the service manager");
        std::this_thread::sleep_for(kManagerRetryInterval);
    }
    return nullptr;
}

sp<IBase> lookUp(const std::string& descriptor, const std::string& instance) {
    const sp<IServiceManager> manager = defaultServiceManager();
    if (manager == nullptr) return nullptr;
    const Return<sp<IBase>> found = manager->get(descriptor, instance);
    if (!found.isOk()) {
        ALOGE("Can't look up %s/%s: %s", descriptor.c_str(), instance.c_str(),
              found.description().c_str());
        return nullptr;
    }
    const sp<IBase> service = found;
    if (!details::canCastInterface(service.get(), descriptor.c_str())) return nullptr;
    return service;
}

/** Lets a thread sleep until a service is registered, for no longer than the interval. */
class RegistrationWaiter : public IServiceNotification {
  public:
    Return<void> onRegistration(const hidl_string& /*fqName*/, const hidl_string& /*name*/,
                                bool /*preexisting*/) override {
        std::lock_guard<std::mutex> guard(mLock);
        mRegistered = true;
        mChanged.notify_all();
        return Void();
    }

    void wait() {
        const auto deadline = std::chrono::steady_clock::now() + kRetryInterval;
        std::lock_guard<std::mutex> guard(mLock);
        while (!mRegistered && mChanged.wait_until(mLock, deadline) == std::cv_status::no_timeout) {
        }
        mRegistered = false;
    }

  private:
    std::mutex mLock;
    std::condition_variable_any mChanged;
    bool mRegistered GUARDED_BY(mLock) = false;
};

/** Null if nobody could tell it of the registration. */
sp<RegistrationWaiter> startWaiting(const std::string& descriptor, const std::string& instance) {
    // The only thread that could run onRegistration() would be the one asleep.
    if (IPCThreadState::self()->isOnlyBinderThread()) return nullptr;
    const sp<IServiceManager> manager = defaultServiceManager();
    if (manager == nullptr) return nullptr;
    sp<RegistrationWaiter> waiter = new RegistrationWaiter();
    const bool asked =
            manager->registerForNotifications(descriptor, instance, waiter).withDefault(false);
    return asked ? waiter : nullptr;
}

sp<IBase> waitForService(const std::string& descriptor, const std::string& instance) {
    sp<RegistrationWaiter> waiter;
    for (;;) {
        const sp<IBase> service = lookUp(descriptor, instance);
        if (service != nullptr) return service;
        if (waiter == nullptr) {
            ALOGI("Waiting for %s/%s", descriptor.c_str(), instance.c_str());
            waiter = startWaiting(descriptor, instance);
        }
        if (waiter != nullptr) {
            waiter->wait();
        } else {
            std::this_thread::sleep_for(kRetryInterval);
        }
    }
}

}  // namespace

namespace details {

status_t registerAsServiceInternal(const sp<IBase>& service, const std::string& name) {
    if (service == nullptr) return UNEXPECTED_NULL;
    const sp<IServiceManager> manager = waitForServiceManager();
    if (manager == nullptr) return INVALID_OPERATION;
    const Return<bool> added = manager->add(name, service);
    if (!added.isOk()) {
        ALOGE("Can't register %s: %s", name.c_str(), added.description().c_str());
        return UNKNOWN_ERROR;
    }
    return added ? OK : UNKNOWN_ERROR;
}

sp<IBase> getRawServiceInternal(const std::string& descriptor, const std::string& instance,
                                bool retry, bool getStub) {
    if (getStub) return nullptr;
    return retry ? waitForService(descriptor, instance) : lookUp(descriptor, instance);
}

}  // namespace details
}  // namespace hardware
}  // namespace android
