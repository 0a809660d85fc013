// SPDX-License-Identifier: Apache-2.0
// One frame of the frame source, on its way from the queue to the component.
#pragma once

#include <cstdint>
#include <memory>

#include "uvc/CachedBuffer.h"

namespace android {

/**
 * A frame that has been acquired from the queue. A plain value: copies share the hold on the
 * graphic buffer. The frame source's mutex must be held wherever one is destroyed or assigned to,
 * since the last of them to go gives the buffer back.
 */
struct VideoBuffer {
    std::shared_ptr<AcquiredBuffer> mBuffer;
    int64_t mTimestampNs = 0;  // the queue item's
    uint32_t mDataSpace = 0;   // the queue item's
    int64_t mArrivedNs = 0;    // as ServiceStats has it
};

}  // namespace android
