// SPDX-License-Identifier: Apache-2.0
// What producer and consumer tell each other about the times of frames.
#pragma once

#include <cstdint>
#include <memory>

#include <ui/FenceTime.h>
#include <utils/Timers.h>

namespace android {

/** The consumer's composition schedule; by default, that of a consumer that has none. */
struct CompositorTiming {
    nsecs_t deadline = 0;
    nsecs_t interval = 16666667;
    nsecs_t presentLatency = 16666667;
};

/** What a queueBuffer call tells the consumer. */
struct NewFrameEventsEntry {
    uint64_t frameNumber = 0;
    nsecs_t postedTime = 0;
    nsecs_t requestedPresentTime = 0;
    std::shared_ptr<FenceTime> acquireFence = FenceTime::NO_FENCE;
};

/** What is new in the history of frames. Consumers here keep no history, so it carries no events.
 */
class FrameEventHistoryDelta {
  public:
    FrameEventHistoryDelta() = default;
    FrameEventHistoryDelta(FrameEventHistoryDelta&&) = default;
    FrameEventHistoryDelta& operator=(FrameEventHistoryDelta&&) = default;
    FrameEventHistoryDelta(const FrameEventHistoryDelta&) = delete;
    FrameEventHistoryDelta& operator=(const FrameEventHistoryDelta&) = delete;

    const CompositorTiming& getCompositorTiming() const { return mCompositorTiming; }
    void setCompositorTiming(const CompositorTiming& timing) { mCompositorTiming = timing; }

  private:
    CompositorTiming mCompositorTiming;
};

}  // namespace android
