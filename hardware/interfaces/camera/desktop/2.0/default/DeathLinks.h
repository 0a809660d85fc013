// SPDX-License-Identifier: Apache-2.0
// Which clients' deaths the service follows, and under which kinds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>

#include <android-base/thread_annotations.h>
#include <hidl/HidlSupport.h>
#include <korvane/hardware/camera/desktop/1.0/ICameraDesktopCallback.h>
#include <utils/StrongPointer.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * Links clients of other processes to a recipient and keeps each link until the client dies,
 * whoever else has taken its place by then. A link goes with the proxy that it was made through,
 * and every registration brings a new proxy, so the proxies are kept here.
 *
 * A client is linked once under each kind, however often it is registered. Clients that live on
 * after they were replaced add up: of a kind, the last kMaxLinks to register are followed.
 *
 * Thread-safe; no lock is held while a client is linked or let go of.
 */
class DeathLinks {
  public:
    static constexpr size_t kMaxLinks = 64;

    /**
     * Tells the recipient of this client's death, with the kind as the cookie. What lives in this
     * process is linked each time, as far as it can be, and not kept.
     */
    void follow(uint8_t kind, const ::android::sp<V1_0::ICameraDesktopCallback>& client,
                const ::android::sp<::android::hardware::hidl_death_recipient>& recipient);

    /** Lets go of a client that has died under this kind; null is nobody. */
    void forget(uint8_t kind, const ::android::sp<::android::hidl::base::V1_0::IBase>& client);

  private:
    struct Link {
        uint8_t kind;
        ::android::sp<V1_0::ICameraDesktopCallback> client;
    };
    using Links = std::list<Link>;

    /** Makes the client's link the newest; false when it has none. */
    [[nodiscard]] bool renew_l(uint8_t kind,
                               const ::android::sp<V1_0::ICameraDesktopCallback>& client)
            REQUIRES(mLock);
    Links::iterator find_l(uint8_t kind,
                           const ::android::sp<::android::hidl::base::V1_0::IBase>& client)
            REQUIRES(mLock);
    /** Removes the oldest link of a kind when there are too many, and returns it. */
    Links takeSurplus_l(uint8_t kind) REQUIRES(mLock);

    std::mutex mLock;
    Links mLinks GUARDED_BY(mLock);  // oldest first
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
