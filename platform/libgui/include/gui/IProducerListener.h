// SPDX-License-Identifier: Apache-2.0
// What a buffer queue tells its producer.
#pragma once

#include <cstdint>
#include <vector>

#include <utils/RefBase.h>

namespace android {

class ProducerListener : public virtual RefBase {
  public:
    ProducerListener() = default;
    ~ProducerListener() override = default;

    /** The consumer has released a frame, or skipped one. No lock held. */
    virtual void onBufferReleased() = 0;

    /** Whether onBufferReleased() is wanted. Asked once, in connect(), with the queue's lock held.
     */
    virtual bool needsReleaseNotify() = 0;

    /** The consumer has discarded the free buffers of these slots. The queue's lock is held. */
    virtual void onBuffersDiscarded(const std::vector<int32_t>& slots) = 0;
};

class IProducerListener : public ProducerListener {};

class BnProducerListener : public IProducerListener {};

/** For producers that don't want to hear anything. */
class StubProducerListener : public BnProducerListener {
  public:
    void onBufferReleased() override {}
    bool needsReleaseNotify() override { return false; }
    void onBuffersDiscarded(const std::vector<int32_t>& /*slots*/) override {}
};

}  // namespace android
