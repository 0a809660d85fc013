// SPDX-License-Identifier: Apache-2.0
// Which handler is registered with which looper.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>

#include <android-base/thread_annotations.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/ALooper.h>
#include <utils/RefBase.h>

namespace android {

/** The process's one table of registrations. Holds both ends weakly. Thread-safe. */
class ALooperRoster {
  public:
    static ALooperRoster& instance();

    /** Gives the handler the next id and the looper; fatal when it already has an id. */
    int32_t registerHandler(const sp<ALooper>& looper, const sp<AHandler>& handler) EXCLUDES(mLock);

    /** Takes the handler's id and looper away again; ignores an unknown id. */
    void unregisterHandler(int32_t id) EXCLUDES(mLock);

    /** Unregisters every handler whose looper is gone. */
    void unregisterStaleHandlers() EXCLUDES(mLock);

  private:
    struct Entry {
        wp<ALooper> looper;
        wp<AHandler> handler;
    };

    std::mutex mLock;
    int32_t mLastId GUARDED_BY(mLock) = 0;
    std::map<int32_t, Entry> mEntries GUARDED_BY(mLock);  // by handler id
};

}  // namespace android
