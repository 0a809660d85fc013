// SPDX-License-Identifier: Apache-2.0
#include "ALooperRoster.h"

#define LOG_TAG "ALooperRoster"

#include <utility>
#include <vector>

#include <media/stagefright/foundation/ADebug.h>

namespace android {

ALooperRoster& ALooperRoster::instance() {
    static ALooperRoster* sInstance = new ALooperRoster;  // loopers may outlive static objects
    return *sInstance;
}

int32_t ALooperRoster::registerHandler(const sp<ALooper>& looper, const sp<AHandler>& handler) {
    std::lock_guard<std::mutex> guard(mLock);
    if (handler->id() != 0) TRESPASS("A handler must only be registered once.");
    const int32_t id = ++mLastId;
    mEntries[id] = {looper, handler};
    handler->setRegistration(id, looper);
    return id;
}

void ALooperRoster::unregisterHandler(int32_t id) {
    // Outlives the lock: dropping the last reference runs a destructor that may come back here.
    sp<AHandler> handler;
    std::lock_guard<std::mutex> guard(mLock);
    const auto entry = mEntries.find(id);
    if (entry == mEntries.end()) return;
    handler = entry->second.handler.promote();
    if (handler != nullptr) handler->setRegistration(0, nullptr);
    mEntries.erase(entry);
}

void ALooperRoster::unregisterStaleHandlers() {
    // Outlive the lock, as above.
    std::vector<sp<ALooper>> loopers;
    std::vector<int32_t> stale;
    {
        std::lock_guard<std::mutex> guard(mLock);
        for (const auto& [id, entry] : mEntries) {
            sp<ALooper> looper = entry.looper.promote();
            if (looper == nullptr) {
                stale.push_back(id);
            } else {
                loopers.push_back(std::move(looper));
            }
        }
    }
    for (int32_t id : stale) unregisterHandler(id);
}

}  // namespace android
