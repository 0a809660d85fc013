// SPDX-License-Identifier: Apache-2.0
#include "RemoteHandles.h"

namespace android {
namespace hardware {

sp<BpHwBinder> RemoteHandles::get(uint32_t handle) {
    std::lock_guard<std::mutex> lock(mLock);
    while (true) {
        const auto found = mEntries.find(handle);
        if (found == mEntries.end()) return make_l(handle);
        sp<BpHwBinder> proxy = found->second.proxy.promote();
        if (proxy != nullptr) return proxy;
        mForgotten.wait(mLock);
    }
}

sp<BpHwBinder> RemoteHandles::find(uint32_t handle) const {
    std::lock_guard<std::mutex> lock(mLock);
    const auto found = mEntries.find(handle);
    return found != mEntries.end() ? found->second.proxy.promote() : nullptr;
}

sp<BpHwBinder> RemoteHandles::findByDeathCookie(uint64_t cookie) const {
    std::lock_guard<std::mutex> lock(mLock);
    const auto found = mEntries.find(static_cast<uint32_t>(cookie));
    if (found == mEntries.end() || found->second.deathCookie != cookie) return nullptr;
    return found->second.proxy.promote();
}

void RemoteHandles::forget(uint32_t handle) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mEntries.erase(handle);
    }
    mForgotten.notify_all();
}

sp<BpHwBinder> RemoteHandles::make_l(uint32_t handle) {
    // The driver reuses handles, so a late notice may be for an earlier proxy of the same handle.
    const uint64_t cookie = static_cast<uint64_t>(++mGeneration) << 32 | handle;
    sp<BpHwBinder> proxy = new BpHwBinder(handle, cookie);
    mEntries[handle] = {proxy, cookie};
    return proxy;
}

}  // namespace hardware
}  // namespace android
