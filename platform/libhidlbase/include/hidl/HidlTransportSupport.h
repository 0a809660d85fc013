// SPDX-License-Identifier: Apache-2.0
// The thread pool that serves a process's implementations, and casts between interfaces.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlBinderSupport.h>
#include <hidl/HidlSupport.h>
#include <hidl/HidlTransportUtils.h>
#include <hidl/ServiceManagement.h>
#include <hidl/Status.h>
#include <utils/StrongPointer.h>

namespace android {
namespace hardware {

/**
 * Sets how many threads may serve incoming calls and death notices. With callerWillJoin one of them
 * is the thread that will call joinRpcThreadpool(). Starts nothing. Call it before anything else in
 * this runtime, which may otherwise start a pool of one thread.
 *
 * Fatal: no threads at all although the caller will join; shrinking a pool that is running.
 */
void configureRpcThreadpool(size_t maxThreads, bool callerWillJoin);

/** Serves incoming calls on this thread from now on. Fatal without configureRpcThreadpool(). */
void joinRpcThreadpool();

/**
 * For a thread with an event loop of its own: a descriptor that polls readable when
 * handleTransportPoll() has something to do, or a negative error.
 */
int setupTransportPolling();
status_t handleTransportPoll(int fd);

/** Whether both are the same object, in whichever process, or both null. */
bool interfacesEqual(const sp<hidl::base::V1_0::IBase>& left,
                     const sp<hidl::base::V1_0::IBase>& right);

namespace details {

struct SchedPrio {
    int sched_policy;
    int prio;
};

/** The process id that getDebugInfo() reports. */
int32_t getPidIfSharable();

/** The object as an IChild, null if it isn't one; with emitError, the error if asking it failed. */
template <typename IChild, typename IParent, typename BpChild>
Return<sp<IChild>> castInterface(sp<IParent> parent, const char* childIndicator, bool emitError) {
    if (parent == nullptr) return nullptr;
    Return<bool> canCast = canCastInterface(parent.get(), childIndicator, emitError);
    if (!canCast.isOk()) return StatusOf<bool, sp<IChild>>(canCast);
    if (!canCast) return nullptr;
    if (!parent->isRemote()) return sp<IChild>(static_cast<IChild*>(parent.get()));
    return sp<IChild>(new BpChild(getOrCreateCachedBinder(parent.get())));
}

/** The service as its interface: the implementation itself if it lives in this process. */
template <typename BpType, typename IType = typename BpType::Pure>
sp<IType> getServiceInternal(const std::string& instance, bool retry, bool getStub) {
    const sp<hidl::base::V1_0::IBase> base =
            getRawServiceInternal(IType::descriptor, instance, retry, getStub);
    if (base == nullptr) return nullptr;
    if (!base->isRemote()) return static_cast<IType*>(base.get());
    return new BpType(getOrCreateCachedBinder(base.get()));
}

}  // namespace details
}  // namespace hardware
}  // namespace android
