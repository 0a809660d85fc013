// SPDX-License-Identifier: Apache-2.0
// A client's listener, whose death ends the client's connection.
#pragma once

#include <atomic>
#include <cstdint>

#include <gui/IGraphicBufferProducer.h>
#include <gui/bufferqueue/1.0/WProducerListener.h>
#include <hidl/HidlSupport.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

namespace android {

/**
 * What a client connects with. A client that dies can't disconnect: its buffers would be kept, and
 * nobody else could connect, until the queue is gone. The queue holds this object, and with it the
 * link to the client's death, for as long as the connection lasts.
 */
class WatchedProducerListener : public LWProducerListener, public hardware::hidl_death_recipient {
  public:
    WatchedProducerListener(const sp<IGraphicBufferProducer>& queue,
                            const sp<HProducerListener>& client)
        : LWProducerListener(client), mQueue(queue), mClient(client) {}

    /**
     * Asks the client what it wants to hear about and waits for the answer. Called once, after it
     * has connected and before it is told so, which is when a queue asks; but the queue asks with
     * its lock held, and a client that doesn't answer must hold up nobody but the thread that
     * serves it.
     */
    void ask() { mIsWanted = LWProducerListener::needsReleaseNotify(); }

    /** What the queue is told: this object drops what the client doesn't want. */
    bool needsReleaseNotify() override { return true; }

    void onBufferReleased() override;

    /**
     * Watches for the client's death from now on; false if it has died. Called once, after it has
     * connected.
     */
    bool watch();

    /** Disconnects the client, on whichever thread serves death notices. */
    void serviceDied(uint64_t cookie, const wp<hidl::base::V1_0::IBase>& who) override;

  private:
    const wp<IGraphicBufferProducer> mQueue;  // not strong: its core holds this object
    const sp<HProducerListener> mClient;
    std::atomic<bool> mIsWanted{false};  // asked by one thread, read by those that release
};

}  // namespace android
