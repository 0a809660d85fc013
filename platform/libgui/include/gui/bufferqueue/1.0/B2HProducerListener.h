// SPDX-License-Identifier: Apache-2.0
// A native listener in a client, as the queue's process calls it.
#pragma once

#include <gui/bufferqueue/1.0/Conversion.h>
#include <hidl/Status.h>
#include <utils/StrongPointer.h>

namespace android {
namespace hardware {
namespace graphics {
namespace bufferqueue {
namespace V1_0 {
namespace utils {

class B2HProducerListener : public HProducerListener {
  public:
    explicit B2HProducerListener(const sp<BProducerListener>& base) : mBase(base) {}

    Return<void> onBufferReleased() override;
    Return<bool> needsReleaseNotify() override;

  private:
    const sp<BProducerListener> mBase;
};

}  // namespace utils
}  // namespace V1_0
}  // namespace bufferqueue
}  // namespace graphics
}  // namespace hardware
}  // namespace android
