// SPDX-License-Identifier: Apache-2.0
// The receiver of messages on a message loop.
#pragma once

#include <cstdint>

#include <utils/RefBase.h>

namespace android {

struct ALooper;
struct AMessage;

/**
 * Receives the messages that are addressed to it, one after the other, on the thread of the looper
 * it is registered with. Looper and messages hold it weakly, so its owner keeps the reference.
 *
 * Only one thread at a time may register or unregister a handler or build messages for it.
 */
struct AHandler : public RefBase {
    AHandler() = default;

    /** 0 while the handler is not registered, else positive and unique in the process. */
    int32_t id() const { return mId; }

    /** The looper it is registered with; null when there is none or it is gone. */
    sp<ALooper> looper() const;
    wp<ALooper> getLooper() const { return mLooper; }
    wp<AHandler> getHandler() const { return const_cast<AHandler*>(this); }

  protected:
    /** Called on the looper's thread, with no lock held. */
    virtual void onMessageReceived(const sp<AMessage>& msg) = 0;

  private:
    friend struct AMessage;      // delivers
    friend class ALooperRoster;  // sets the registration

    void setRegistration(int32_t id, const wp<ALooper>& looper);

    int32_t mId = 0;
    wp<ALooper> mLooper;
};

}  // namespace android
