// SPDX-License-Identifier: Apache-2.0
// A client's listener, as the queue calls it.
#pragma once

#include <cstdint>
#include <vector>

#include <gui/IProducerListener.h>
#include <gui/bufferqueue/1.0/Conversion.h>
#include <utils/StrongPointer.h>

namespace android {

/**
 * Passes the queue's calls on to a HIDL listener, usually in another process. A dead client must
 * not take the queue's process down with it: failed calls are logged, and count as wanting no
 * notifications.
 */
class LWProducerListener : public BnProducerListener {
  public:
    explicit LWProducerListener(const sp<HProducerListener>& base) : mBase(base) {}

    void onBufferReleased() override;
    /** Waits for the client's answer. */
    bool needsReleaseNotify() override;
    void onBuffersDiscarded(const std::vector<int32_t>& slots) override;

  private:
    const sp<HProducerListener> mBase;
};

}  // namespace android
