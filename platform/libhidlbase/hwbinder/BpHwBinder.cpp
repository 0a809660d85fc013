// SPDX-License-Identifier: Apache-2.0
#include "hwbinder/BpHwBinder.h"

#include <algorithm>
#include <utility>

#include <hwbinder/IPCThreadState.h>
#include <hwbinder/Parcel.h>
#include <hwbinder/ProcessState.h>

#include "RemoteHandles.h"

namespace android {
namespace hardware {

BpHwBinder::BpHwBinder(uint32_t handle, uint64_t deathCookie)
    : mHandle(handle), mDeathCookie(deathCookie) {}

void BpHwBinder::onFirstRef() {
    IPCThreadState::self()->incStrongHandle(this);
}

BpHwBinder::~BpHwBinder() {
    IPCThreadState* thread = IPCThreadState::self();
    if (mDeathRequested) thread->clearDeathNotification(mHandle, mDeathCookie);
    thread->decStrongHandle(mHandle);
    ProcessState::self()->remoteHandles().forget(mHandle);
}

bool BpHwBinder::isBinderAlive() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mAlive;
}

void BpHwBinder::setDead() {
    std::lock_guard<std::mutex> lock(mLock);
    mAlive = false;
}

status_t BpHwBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags,
                              TransactCallback callback) {
    if (!isBinderAlive()) return DEAD_OBJECT;
    const status_t status = IPCThreadState::self()->transact(mHandle, code, data, reply, flags);
    if (status == DEAD_OBJECT) setDead();
    if (status == OK && callback != nullptr && reply != nullptr) callback(*reply);
    return status;
}

status_t BpHwBinder::linkToDeath(const sp<DeathRecipient>& recipient, void* cookie,
                                 uint32_t flags) {
    if (recipient == nullptr) return BAD_VALUE;
    std::lock_guard<std::mutex> lock(mLock);
    if (mObituarySent) return DEAD_OBJECT;
    if (!mDeathRequested) {
        const status_t status =
                IPCThreadState::self()->requestDeathNotification(mHandle, mDeathCookie);
        if (status != OK) return status;
        mDeathRequested = true;
    }
    mLinks.push_back({recipient, cookie, flags});
    return OK;
}

status_t BpHwBinder::unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie,
                                   uint32_t flags, wp<DeathRecipient>* outRecipient) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mObituarySent) return DEAD_OBJECT;
    const auto link = findLink_l(recipient, cookie, flags);
    if (link == mLinks.end()) return NAME_NOT_FOUND;
    if (outRecipient != nullptr) *outRecipient = link->recipient;
    mLinks.erase(link);
    if (mLinks.empty()) {
        mDeathRequested = false;
        IPCThreadState::self()->clearDeathNotification(mHandle, mDeathCookie);
    }
    return OK;
}

std::vector<BpHwBinder::Link>::iterator BpHwBinder::findLink_l(const wp<DeathRecipient>& recipient,
                                                               void* cookie, uint32_t flags) {
    const auto matches = [&](const Link& link) {
        const bool isMeant =
                recipient != nullptr ? link.recipient == recipient : link.cookie == cookie;
        return isMeant && link.flags == flags;
    };
    const auto newest = std::find_if(mLinks.rbegin(), mLinks.rend(), matches);
    return newest != mLinks.rend() ? std::prev(newest.base()) : mLinks.end();
}

void BpHwBinder::sendObituary() {
    std::vector<Link> links;
    {
        std::lock_guard<std::mutex> lock(mLock);
        mAlive = false;
        if (mObituarySent) return;
        mObituarySent = true;
        // The driver's link went with the notice.
        mDeathRequested = false;
        links = std::exchange(mLinks, {});
    }
    for (const Link& link : links) {
        const sp<DeathRecipient> recipient = link.recipient.promote();
        if (recipient != nullptr) recipient->binderDied(wp<IBinder>(this));
    }
}

}  // namespace hardware
}  // namespace android
