// SPDX-License-Identifier: Apache-2.0
// hwservicemanager: the register of services, at the place where every process looks for it.
#define LOG_TAG "hwservicemanager"

#include <cstdlib>

#include <hidl/HidlTransportSupport.h>
#include <hwbinder/IPCThreadState.h>
#include <hwbinder/ProcessState.h>
#include <log/log.h>

#include "ServiceManager.h"

using android::sp;

int main() {
    using namespace android::hardware;

    // With a single thread the register needs no lock.
    configureRpcThreadpool(1, true /* callerWillJoin */);
    const sp<android::ServiceManager> manager = new android::ServiceManager();
    const sp<IBinder> binder = getOrCreateCachedBinder(manager.get());
    IPCThreadState::self()->setTheContextObject(binder->localBinder());
    if (!ProcessState::self()->becomeContextManager()) return EXIT_FAILURE;

    ALOGI("Ready");
    joinRpcThreadpool();
    return EXIT_FAILURE;
}
