// SPDX-License-Identifier: Apache-2.0
// How much memory a buffer queue has allocated.
#pragma once

#include <cstdint>
#include <vector>

#include <ui/GraphicBuffer.h>
#include <utils/RefBase.h>

namespace android {

/**
 * The buffers that one queue has allocated, for as long as anybody in this process holds them: a
 * slot, a waiting frame, a consumer that keeps one. Whoever has the producer's end can ask for
 * them, hence the bound. Guarded by its owner's lock.
 */
class BufferBudget {
  public:
    /** Sixty buffers of 1920x1080 RGBA, and far below what a machine can give. */
    static constexpr uint64_t kMaxBytes = uint64_t{512} * 1024 * 1024;

    /** Counts a buffer; false, without counting it, if the total would exceed kMaxBytes. */
    bool admit(const sp<GraphicBuffer>& buffer);

  private:
    uint64_t bytesHeld();

    std::vector<wp<GraphicBuffer>> mBuffers;
};

}  // namespace android
