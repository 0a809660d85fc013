// SPDX-License-Identifier: Apache-2.0
#include "DeathLinks.h"

#include <algorithm>

#include <hidl/HidlTransportSupport.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

using ::android::sp;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::interfacesEqual;
using ::android::hidl::base::V1_0::IBase;
using V1_0::ICameraDesktopCallback;

void DeathLinks::follow(uint8_t kind, const sp<ICameraDesktopCallback>& client,
                        const sp<hidl_death_recipient>& recipient) {
    if (!client->isRemote()) {
        (void)client->linkToDeath(recipient, kind).isOk();
        return;
    }
    Links surplus;
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (renew_l(kind, client)) return;
        // Noted before it is linked: the death may be told at once.
        mLinks.push_back({kind, client});
        surplus = takeSurplus_l(kind);
    }
    // A client that is dead already will fail at its first command.
    if (!client->linkToDeath(recipient, kind).withDefault(false)) forget(kind, client);
}

void DeathLinks::forget(uint8_t kind, const sp<IBase>& client) {
    Links forgotten;
    std::lock_guard<std::mutex> guard(mLock);
    const auto link = find_l(kind, client);
    if (link != mLinks.end()) forgotten.splice(forgotten.end(), mLinks, link);
}

bool DeathLinks::renew_l(uint8_t kind, const sp<ICameraDesktopCallback>& client) {
    const auto link = find_l(kind, client);
    if (link == mLinks.end()) return false;
    mLinks.splice(mLinks.end(), mLinks, link);
    return true;
}

DeathLinks::Links::iterator DeathLinks::find_l(uint8_t kind, const sp<IBase>& client) {
    return std::find_if(mLinks.begin(), mLinks.end(), [&](const Link& link) {
        return link.kind == kind && interfacesEqual(link.client, client);
    });
}

DeathLinks::Links DeathLinks::takeSurplus_l(uint8_t kind) {
    Links surplus;
    const auto isOfKind = [kind](const Link& link) { return link.kind == kind; };
    if (std::count_if(mLinks.begin(), mLinks.end(), isOfKind) > static_cast<int>(kMaxLinks)) {
        surplus.splice(surplus.end(), mLinks, std::find_if(mLinks.begin(), mLinks.end(), isOfKind));
    }
    return surplus;
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
