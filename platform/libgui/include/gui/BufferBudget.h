// SPDX-License-Identifier: Apache-2.0
// How much memory a buffer queue has allocated.
#pragma once

#include <cstdint>
#include <vector>

#include <ui/GraphicBuffer.h>
#include <utils/RefBase.h>

namespace android {

/**
 * The buffers that one queue has allocated, for as long as anybody in this process holds them: the
 * slots, frames that wait, a consumer that remembers. Whoever has the producer's end asks for them,
 * which is why there is a bound. Its owner's lock guards it.
 */
class BufferBudget {
  public:
    /** Sixty buffers of 1920x1080 RGBA, and far from what a machine can give. */
    static constexpr uint64_t kMaxBytes = uint64_t{512} * 1024 * 1024;

    /** Counts a buffer in; false, and it doesn't count, if all would be more than kMaxBytes. */
    bool admit(const sp<GraphicBuffer>& buffer);

  private:
    uint64_t bytesHeld();

    std::vector<wp<GraphicBuffer>> mBuffers;
};

}  // namespace android
