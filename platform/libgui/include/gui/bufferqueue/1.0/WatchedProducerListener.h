// SPDX-License-Identifier: Apache-2.0
// A client's listener, whose death ends the client's connection.
#pragma once

#include <cstdint>

#include <gui/IGraphicBufferProducer.h>
#include <gui/bufferqueue/1.0/WProducerListener.h>
#include <hidl/HidlSupport.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

namespace android {

/**
 * What a client connects with. A client that dies can't disconnect: its buffers would be kept, and
 * nobody else could connect, until the queue goes. The queue holds this object as long as the
 * connection lasts, and with it the link to the client's death.
 */
class WatchedProducerListener : public LWProducerListener, public hardware::hidl_death_recipient {
  public:
    WatchedProducerListener(const sp<IGraphicBufferProducer>& queue,
                            const sp<HProducerListener>& client)
        : LWProducerListener(client), mQueue(queue), mClient(client) {}

    /**
     * Waits for what the client wants to hear of. Before it connects, while the queue's lock is
     * free: a client that doesn't answer must hold nobody but the thread that serves it.
     */
    void ask() { mNeedsReleaseNotify = LWProducerListener::needsReleaseNotify(); }

    bool needsReleaseNotify() override { return mNeedsReleaseNotify; }

    /** Follows the client from now on; false if it has died. Once, when it has connected. */
    bool watch();

    /** Disconnects the client, on whichever thread serves death notices. */
    void serviceDied(uint64_t cookie, const wp<hidl::base::V1_0::IBase>& who) override;

  private:
    const wp<IGraphicBufferProducer> mQueue;  // not strong: its core holds this object
    const sp<HProducerListener> mClient;
    bool mNeedsReleaseNotify = false;
};

}  // namespace android
