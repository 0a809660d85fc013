// SPDX-License-Identifier: Apache-2.0
// The base of local callable objects and the base of typed proxies.
#pragma once

#include <cstdint>

#include <hwbinder/IBinder.h>

namespace android {
namespace hardware {

/**
 * An object of this process that other processes can call; derived classes answer in onTransact().
 *
 * While any process holds a proxy for it, the runtime holds a strong reference to it.
 */
class BHwBinder : public IBinder {
  public:
    BHwBinder();

    /**
     * Rewinds data and hands it to onTransact() on the calling thread. The reply that onTransact()
     * passes on is rewound before callback gets it.
     */
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0,
                      TransactCallback callback = nullptr) override;

    /** A local object doesn't die before its holders: INVALID_OPERATION. */
    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) override;

    BHwBinder* localBinder() override { return this; }

    /** No effect: callers' security contexts aren't carried here. */
    void setRequestingSid(bool requestingSid);

    /** Scheduling asked for by the object's owner; kept, but not applied here. */
    int mSchedPolicy;
    int mSchedPriority;

  protected:
    ~BHwBinder() override;

    /**
     * Serves one call. A method with results writes them to reply and passes reply to callback,
     * which sends it at once, while what it refers to still lives; a second reply is dropped. The
     * return value matters only if no reply was passed on: OK sends reply as it is, anything else
     * becomes the caller's status. The base class returns UNKNOWN_TRANSACTION.
     */
    virtual status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                uint32_t flags = 0, TransactCallback callback = nullptr);
};

/** The base of typed proxies: holds the object that calls go to. */
class BpHwRefBase : public virtual RefBase {
  protected:
    explicit BpHwRefBase(const sp<IBinder>& remote);
    ~BpHwRefBase() override;

  public:
    /** The object that calls go to; lives as long as this proxy. Null only if made with null. */
    IBinder* remote() const { return mRemote.get(); }

    BpHwRefBase(const BpHwRefBase&) = delete;
    BpHwRefBase& operator=(const BpHwRefBase&) = delete;

  private:
    const sp<IBinder> mRemote;
};

}  // namespace hardware
}  // namespace android
