// SPDX-License-Identifier: Apache-2.0
// The producer end of the frame source as clients get it: the platform's, made safe against them.
#pragma once

#include <cstdint>

#include <gui/IGraphicBufferProducer.h>
#include <gui/bufferqueue/1.0/WGraphicBufferProducer.h>
#include <hidl/Status.h>
#include <utils/StrongPointer.h>

namespace android {

/**
 * The platform's HIDL wrapper of a buffer queue's producer, with three things that a daemon with
 * one HIDL thread can't leave to its clients:
 *
 *  - A dequeueBuffer waits kMaxDequeueWaitNs at most and then answers TIMED_OUT, however long a
 *    client asked it to wait: the thread that waits is the one that serves everybody else.
 *  - A listener is called through a wrapper that looks at the results: a client that died before
 *    its death was noticed would otherwise end the process at the next release of a buffer. And it
 *    is asked needsReleaseNotify before the queue's lock is taken, not under it.
 *  - A client that renders with EGL is connected to the queue as a camera: for EGL the queue waits,
 *    however long, for the fence of the frame before, which such a client may never signal.
 *
 * Thread-safe as the platform's is.
 */
class SurfaceProducer : public TWGraphicBufferProducer<HGraphicBufferProducer> {
  public:
    static constexpr int64_t kMaxDequeueWaitNs = 1000000000;

    explicit SurfaceProducer(const sp<BGraphicBufferProducer>& producer);

    hardware::Return<void> connect(const sp<HProducerListener>& listener, int32_t api,
                                   bool producerControlledByApp, connect_cb reply) override;

    hardware::Return<int32_t> disconnect(int32_t api, DisconnectMode mode) override;

    /** Any time from 0 on; longer ones, and the negative "for ever", become the longest wait. */
    hardware::Return<int32_t> setDequeueTimeout(int64_t timeoutNs) override;

  private:
    using Base = TWGraphicBufferProducer<HGraphicBufferProducer>;
};

}  // namespace android
