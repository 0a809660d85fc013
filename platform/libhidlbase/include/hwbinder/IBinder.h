// SPDX-License-Identifier: Apache-2.0
// An object that can be called across processes: local (BHwBinder) or remote (BpHwBinder).
#pragma once

#include <cstdint>
#include <functional>

#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace android {
namespace hardware {

class BHwBinder;
class BpHwBinder;
class Parcel;

/**
 * The common interface of local objects and proxies. Reference-counted; any thread may call any
 * method. No lock of the runtime is held while an object's or a recipient's own code runs.
 */
class IBinder : public virtual RefBase {
  public:
    /** Receives the finished reply of a transaction; called at most once in each. */
    using TransactCallback = std::function<void(Parcel&)>;

    enum : uint32_t {
        FIRST_CALL_TRANSACTION = 0x00000001,
        LAST_CALL_TRANSACTION = 0x00ffffff,
        /** '_PNG': OK from any living object, without its knowing. */
        PING_TRANSACTION = 0x5f504e47,
        /** The caller does not wait and gets no reply. */
        FLAG_ONEWAY = 0x00000001,
    };

    /** Is told when the process of a remote object is gone. */
    class DeathRecipient : public virtual RefBase {
      public:
        /** On a thread that serves incoming calls; who is the proxy that was linked to. */
        virtual void binderDied(const wp<IBinder>& who) = 0;
    };

    /**
     * Calls the method with this code and waits for its reply, unless FLAG_ONEWAY is set.
     *
     * A local object runs on the caller's thread. callback, if given, is called with the reply
     * before transact() returns; on a failed call it isn't. reply may be null if it is of no
     * interest. Besides what the object itself returns, a remote call returns DEAD_OBJECT if its
     * process is gone, FAILED_TRANSACTION if the driver refused to carry the call or its reply,
     * BAD_VALUE if the reply was malformed, NO_INIT if there is no driver.
     */
    virtual status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0,
                              TransactCallback callback = nullptr) = 0;

    /**
     * Asks for one call to recipient->binderDied() when this object's process dies. The recipient
     * is held weakly; each link gives its own notice, in the order of linking. cookie and flags
     * only serve to tell links apart in unlinkToDeath().
     *
     * DEAD_OBJECT: the death has already been reported. BAD_VALUE: no recipient. INVALID_OPERATION:
     * a local object.
     */
    virtual status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                                 uint32_t flags = 0) = 0;

    /**
     * Removes the newest link made with the same recipient (or, for a null recipient, the same
     * cookie) and flags; its recipient is stored in *outRecipient if that isn't null. Doesn't wait
     * for a notice in progress. NAME_NOT_FOUND: no such link. DEAD_OBJECT: already reported.
     * INVALID_OPERATION: a local object.
     */
    virtual status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                                   uint32_t flags = 0,
                                   wp<DeathRecipient>* outRecipient = nullptr) = 0;

    /** This object if it lives in this process, else null. */
    virtual BHwBinder* localBinder() { return nullptr; }

    /** This object if it is a proxy, else null. */
    virtual BpHwBinder* remoteBinder() { return nullptr; }

  protected:
    IBinder() = default;
    ~IBinder() override;
};

}  // namespace hardware
}  // namespace android
