// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "hw-IncomingCall"

#include "IncomingCall.h"

#include <hwbinder/Binder.h>
#include <hwbinder/Parcel.h>
#include <hwbinder/ProcessState.h>
#include <log/log.h>

#include "DriverChannel.h"
#include "LocalNodes.h"
#include "Transaction.h"

namespace android {
namespace hardware {

IncomingCall::IncomingCall(IPCThreadState& thread, const binder_transaction_data& call)
    : mThread(thread), mCall(call), mOuterCaller(thread.mCaller) {
    mThread.mCaller = IPCThreadState::Caller{call.sender_pid, call.sender_euid};
    ++mThread.mServedDepth;
}

IncomingCall::~IncomingCall() {
    --mThread.mServedDepth;
    mThread.mCaller = mOuterCaller;
}

void IncomingCall::serve() {
    Parcel data;
    Parcel reply;
    status_t status = receiveParcel(mCall, &data);
    if (status == OK) status = dispatch(data, &reply);
    finish(status, reply);
}

status_t IncomingCall::dispatch(const Parcel& data, Parcel* reply) {
    if (mThread.mServedDepth > IPCThreadState::kMaxServedDepth) {
        ALOGE("Call %u of process %d comes inside %d others", mCall.code, mCall.sender_pid,
              IPCThreadState::kMaxServedDepth);
        return FAILED_TRANSACTION;
    }
    const sp<BHwBinder> object = ProcessState::self()->localNodes().find(mCall.target.ptr);
    if (object == nullptr) {
        ALOGE("Call %u is for an object that doesn't exist", mCall.code);
        return DEAD_OBJECT;
    }
    return object->transact(mCall.code, data, reply, mCall.flags,
                            [this](Parcel& finished) { sendReply(finished); });
}

void IncomingCall::finish(status_t status, Parcel& reply) {
    if (mIsReplied || isOneway()) {
        if (status != OK) ALOGW("Call %u ended with %d, unseen by its caller", mCall.code, status);
        return;
    }
    if (status == OK) {
        sendReply(reply);
    } else {
        sendStatus(status);
    }
}

void IncomingCall::sendReply(Parcel& reply) {
    if (mIsReplied || isOneway()) {
        ALOGE("Call %u: a reply that nobody waits for is dropped", mCall.code);
        return;
    }
    mIsReplied = true;
    writeReply(mThread.mChannel->out(), reply);
    const status_t status = mThread.waitForCompletion();
    if (status != OK) ALOGE("Call %u: sending the reply failed: %d", mCall.code, status);
}

void IncomingCall::sendStatus(status_t status) {
    mIsReplied = true;
    writeStatusReply(mThread.mChannel->out(), &status);
    const status_t sent = mThread.waitForCompletion();
    if (sent != OK) ALOGE("Call %u: sending status %d failed: %d", mCall.code, status, sent);
}

}  // namespace hardware
}  // namespace android
