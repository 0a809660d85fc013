// SPDX-License-Identifier: Apache-2.0
#include "support/LocalServices.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>

namespace korvane::test {

using ::android::sp;
using ::android::hidl::base::V1_0::IBase;

namespace {

struct Register {
    std::mutex lock;
    std::condition_variable lookedUp;
    std::condition_variable released;
    bool held = false;
    int lookUps = 0;
    int hidden = 0;
    std::map<std::string, sp<IBase>> services;
};

Register& theRegister() {
    static Register* sRegister = new Register;  // threads may look up while the process exits
    return *sRegister;
}

}  // namespace

// The linker sends every service lookup of the runtime here (--wrap).
sp<IBase> lookUp(const std::string& descriptor, const std::string& instance, bool retry,
                 bool getStub) __asm__(LOCAL_SERVICES_WRAPPED);

sp<IBase> lookUp(const std::string& /* descriptor */, const std::string& instance, bool /* retry */,
                 bool getStub) {
    std::unique_lock<std::mutex> guard(theRegister().lock);
    theRegister().released.wait(guard, [] { return !theRegister().held; });
    ++theRegister().lookUps;
    theRegister().lookedUp.notify_all();
    if (getStub) return nullptr;
    if (theRegister().hidden > 0) {
        --theRegister().hidden;
        return nullptr;
    }
    const auto found = theRegister().services.find(instance);
    return found == theRegister().services.end() ? nullptr : found->second;
}

LocalServices::LocalServices() {
    std::lock_guard<std::mutex> guard(theRegister().lock);
    theRegister().lookUps = 0;
    theRegister().hidden = 0;
}

LocalServices::~LocalServices() {
    std::lock_guard<std::mutex> guard(theRegister().lock);
    theRegister().services.clear();
    theRegister().held = false;
    theRegister().released.notify_all();
}

void LocalServices::provide(const std::string& instance, const sp<IBase>& service) {
    std::lock_guard<std::mutex> guard(theRegister().lock);
    theRegister().services.erase(instance);
    if (service != nullptr) theRegister().services[instance] = service;
}

void LocalServices::hide(int lookUps) {
    std::lock_guard<std::mutex> guard(theRegister().lock);
    theRegister().hidden = lookUps;
}

void LocalServices::hold() {
    std::lock_guard<std::mutex> guard(theRegister().lock);
    theRegister().held = true;
}

void LocalServices::release() {
    std::lock_guard<std::mutex> guard(theRegister().lock);
    theRegister().held = false;
    theRegister().released.notify_all();
}

int LocalServices::lookUps() const {
    std::lock_guard<std::mutex> guard(theRegister().lock);
    return theRegister().lookUps;
}

bool LocalServices::waitForLookUps(int count) const {
    std::unique_lock<std::mutex> guard(theRegister().lock);
    return theRegister().lookedUp.wait_for(guard, std::chrono::seconds(10),
                                           [count] { return theRegister().lookUps >= count; });
}

}  // namespace korvane::test
