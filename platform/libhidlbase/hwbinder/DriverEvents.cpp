// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "hw-DriverEvents"

#include "DriverEvents.h"

#include <utility>

#include <linux/ioctl.h>

#include <hwbinder/ProcessState.h>
#include <log/log.h>

#include "DriverChannel.h"
#include "LocalNodes.h"
#include "RemoteHandles.h"

namespace android {
namespace hardware {

status_t DriverEvents::handle(uint32_t command) {
    switch (command) {
        case BR_OK:
        case BR_NOOP:
            return OK;
        case BR_INCREFS:
        case BR_ACQUIRE:
            return takeReference(command);
        case BR_RELEASE:
        case BR_DECREFS:
            return deferRelease(command);
        case BR_ATTEMPT_ACQUIRE:
            return attemptAcquire();
        case BR_DEAD_BINDER:
            return deferDeath();
        case BR_SPAWN_LOOPER:
            mProcess.spawnPooledThread(false);
            return OK;
        case BR_FINISHED:
            return TIMED_OUT;
        case BR_ERROR:
            return readError();
        default:
            return skip(command);
    }
}

status_t DriverEvents::takeReference(uint32_t command) {
    binder_ptr_cookie node;
    if (!mChannel.in().read(&node)) return BAD_VALUE;
    const bool isStrong = command == BR_ACQUIRE;
    LocalNodes& nodes = mProcess.localNodes();
    if (!(isStrong ? nodes.incStrong(node.ptr) : nodes.incWeak(node.ptr))) {
        ALOGE("The driver refers to object %llu, which doesn't exist",
              static_cast<unsigned long long>(node.ptr));
    }
    mChannel.out().write(isStrong ? BC_ACQUIRE_DONE : BC_INCREFS_DONE, node);
    return OK;
}

status_t DriverEvents::deferRelease(uint32_t command) {
    binder_ptr_cookie node;
    if (!mChannel.in().read(&node)) return BAD_VALUE;
    mDeferred.push_back({command, node.ptr});
    return OK;
}

status_t DriverEvents::attemptAcquire() {
    binder_pri_ptr_cookie node;
    if (!mChannel.in().read(&node)) return BAD_VALUE;
    LocalNodes& nodes = mProcess.localNodes();
    const bool isAcquired = nodes.incStrong(node.ptr);
    // Told that it has no reference, the driver will never give one back.
    if (!isAcquired) nodes.decStrong(node.ptr);
    mChannel.out().write(BC_ACQUIRE_RESULT, int32_t{isAcquired});
    return OK;
}

status_t DriverEvents::deferDeath() {
    binder_uintptr_t cookie;
    if (!mChannel.in().read(&cookie)) return BAD_VALUE;
    mDeferred.push_back({BR_DEAD_BINDER, cookie});
    return OK;
}

status_t DriverEvents::readError() {
    int32_t error;
    if (!mChannel.in().read(&error)) return BAD_VALUE;
    return error;
}

/** Every command carries the size of its argument in its number. */
status_t DriverEvents::skip(uint32_t command) {
    const bool isReturnCommand = _IOC_TYPE(command) == 'r';
    if (command != BR_CLEAR_DEATH_NOTIFICATION_DONE) {
        ALOGW("The driver's command 0x%x is unknown", command);
    }
    if (isReturnCommand && mChannel.in().skip(_IOC_SIZE(command))) return OK;
    mChannel.in().refill(0);
    return BAD_VALUE;
}

void DriverEvents::runDeferred() {
    while (!mDeferred.empty()) {
        for (const Deferred& event : std::exchange(mDeferred, {})) run(event);
    }
}

void DriverEvents::run(const Deferred& event) {
    switch (event.command) {
        case BR_RELEASE:
            mProcess.localNodes().decStrong(event.name);
            break;
        case BR_DECREFS:
            mProcess.localNodes().decWeak(event.name);
            break;
        case BR_DEAD_BINDER:
            reportDeath(event.name);
            break;
    }
}

void DriverEvents::reportDeath(uint64_t cookie) {
    // Held until the driver has been answered: the link goes with the proxy's last reference.
    const sp<BpHwBinder> proxy = mProcess.remoteHandles().findByDeathCookie(cookie);
    if (proxy != nullptr) proxy->sendObituary();
    mChannel.out().write(BC_DEAD_BINDER_DONE, static_cast<binder_uintptr_t>(cookie));
}

}  // namespace hardware
}  // namespace android
