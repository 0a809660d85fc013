// SPDX-License-Identifier: Apache-2.0
#include "hwbinder/Binder.h"

#include <hwbinder/Parcel.h>

namespace android {
namespace hardware {

IBinder::~IBinder() = default;

BHwBinder::BHwBinder() : mSchedPolicy(0), mSchedPriority(0) {}

BHwBinder::~BHwBinder() = default;

status_t BHwBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags,
                             TransactCallback callback) {
    if (code == PING_TRANSACTION) return OK;
    data.setDataPosition(0);
    return onTransact(code, data, reply, flags, [&callback](Parcel& finished) {
        finished.setDataPosition(0);
        if (callback != nullptr) callback(finished);
    });
}

status_t BHwBinder::linkToDeath(const sp<DeathRecipient>&, void*, uint32_t) {
    return INVALID_OPERATION;
}

status_t BHwBinder::unlinkToDeath(const wp<DeathRecipient>&, void*, uint32_t, wp<DeathRecipient>*) {
    return INVALID_OPERATION;
}

void BHwBinder::setRequestingSid(bool) {}

status_t BHwBinder::onTransact(uint32_t, const Parcel&, Parcel*, uint32_t, TransactCallback) {
    return UNKNOWN_TRANSACTION;
}

BpHwRefBase::BpHwRefBase(const sp<IBinder>& remote) : mRemote(remote) {}

BpHwRefBase::~BpHwRefBase() = default;

}  // namespace hardware
}  // namespace android
