// SPDX-License-Identifier: Apache-2.0
#include "hidl/HidlTransportSupport.h"

#include <atomic>

#include <unistd.h>

#include <hwbinder/IPCThreadState.h>
#include <hwbinder/ProcessState.h>

namespace android {
namespace hardware {

namespace {
std::atomic<bool> gThreadPoolConfigured{false};
}  // namespace

void configureRpcThreadpool(size_t maxThreads, bool callerWillJoin) {
    ProcessState::self()->setThreadPoolConfiguration(maxThreads, callerWillJoin);
    gThreadPoolConfigured = true;
}

void joinRpcThreadpool() {
    if (!gThreadPoolConfigured) {
        details::logAlwaysFatal("HIDL joinRpcThreadpool without calling configureRpcThreadPool.");
    }
    IPCThreadState::self()->joinThreadPool();
}

int setupTransportPolling() {
    int fd = -1;
    const status_t status = IPCThreadState::self()->setupPolling(&fd);
    return status == OK ? fd : status;
}

status_t handleTransportPoll(int /*fd*/) {
    return IPCThreadState::self()->handlePolledCommands();
}

bool interfacesEqual(const sp<hidl::base::V1_0::IBase>& left,
                     const sp<hidl::base::V1_0::IBase>& right) {
    if (left == nullptr || right == nullptr || !left->isRemote() || !right->isRemote()) {
        return left == right;
    }
    return getOrCreateCachedBinder(left.get()) == getOrCreateCachedBinder(right.get());
}

namespace details {

int32_t getPidIfSharable() {
    return getpid();
}

}  // namespace details
}  // namespace hardware
}  // namespace android
