// SPDX-License-Identifier: Apache-2.0
// The proxy of an object in another process.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include <android-base/thread_annotations.h>
#include <hwbinder/IBinder.h>

namespace android {
namespace hardware {

/**
 * Stands for one object in another process, to which it holds one strong reference in the driver.
 * Made only by ProcessState, at most one for each driver handle at a time.
 *
 * Once its process is known to be dead it stays dead: calls fail at once. mLock guards the links
 * and what is known of the death; it isn't held in driver calls that wait, nor while a recipient
 * runs.
 */
class BpHwBinder : public IBinder {
  public:
    /** handle: the driver's number for the object; deathCookie: the driver's name for its death. */
    BpHwBinder(uint32_t handle, uint64_t deathCookie);

    uint32_t handle() const { return mHandle; }

    /** False once a call or a notice has shown that the process is gone. */
    bool isBinderAlive() const EXCLUDES(mLock);

    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0,
                      TransactCallback callback = nullptr) override EXCLUDES(mLock);
    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override EXCLUDES(mLock);
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) override
            EXCLUDES(mLock);

    BpHwBinder* remoteBinder() override { return this; }

    /** The driver reported the death: tells every recipient, once. Called by the command loop. */
    void sendObituary() EXCLUDES(mLock);

  protected:
    ~BpHwBinder() override;
    void onFirstRef() override;

  private:
    struct Link {
        wp<DeathRecipient> recipient;
        void* cookie;
        uint32_t flags;
    };

    std::vector<Link>::iterator findLink_l(const wp<DeathRecipient>& recipient, void* cookie,
                                           uint32_t flags) REQUIRES(mLock);
    void setDead() EXCLUDES(mLock);

    const uint32_t mHandle;
    const uint64_t mDeathCookie;

    mutable std::mutex mLock;
    bool mAlive GUARDED_BY(mLock) = true;
    bool mObituarySent GUARDED_BY(mLock) = false;
    bool mDeathRequested GUARDED_BY(mLock) = false;  // the driver has been asked for a notice
    std::vector<Link> mLinks GUARDED_BY(mLock);      // oldest first
};

}  // namespace hardware
}  // namespace android
