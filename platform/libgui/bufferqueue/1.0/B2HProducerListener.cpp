// SPDX-License-Identifier: Apache-2.0
#include "gui/bufferqueue/1.0/B2HProducerListener.h"

namespace android {
namespace hardware {
namespace graphics {
namespace bufferqueue {
namespace V1_0 {
namespace utils {

Return<void> B2HProducerListener::onBufferReleased() {
    mBase->onBufferReleased();
    return Void();
}

Return<bool> B2HProducerListener::needsReleaseNotify() {
    return mBase->needsReleaseNotify();
}

}  // namespace utils
}  // namespace V1_0
}  // namespace bufferqueue
}  // namespace graphics
}  // namespace hardware
}  // namespace android
