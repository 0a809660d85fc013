// SPDX-License-Identifier: Apache-2.0
// One call from another process, from its arrival to its reply.
#pragma once

#include <optional>

#include <linux/android/binder.h>

#include <hwbinder/IPCThreadState.h>
#include <utils/Errors.h>

namespace android {
namespace hardware {

class Parcel;

/**
 * Serves one call on the thread that the driver gave it to. While it runs, that thread's caller is
 * the caller of this call. The reply leaves as soon as the object passes it on, or when the object
 * has returned; the call's bytes and descriptors are given back after that.
 */
class IncomingCall {
  public:
    IncomingCall(IPCThreadState& thread, const binder_transaction_data& call);
    ~IncomingCall();
    IncomingCall(const IncomingCall&) = delete;
    IncomingCall& operator=(const IncomingCall&) = delete;

    void serve();

  private:
    bool isOneway() const { return (mCall.flags & TF_ONE_WAY) != 0; }
    status_t dispatch(const Parcel& data, Parcel* reply);
    void finish(status_t status, Parcel& reply);
    void sendReply(Parcel& reply);
    void sendStatus(status_t status);

    IPCThreadState& mThread;
    const binder_transaction_data mCall;
    const std::optional<IPCThreadState::Caller> mOuterCaller;
    bool mIsReplied = false;
};

}  // namespace hardware
}  // namespace android
