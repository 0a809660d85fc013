// SPDX-License-Identifier: Apache-2.0
// Access to the stream's queue.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <gui/IGraphicBufferProducer.h>
#include <utils/StrongPointer.h>

#include "Scenario.h"

namespace korvane::hostile {

/** Registers as the camera and waits until the controller announces that a stream starts. */
class StreamWatch {
  public:
    /** `onEvent` runs inside each of the controller's events, before it is answered. */
    explicit StreamWatch(
            const Service& service, std::function<void()> onEvent = [] {});
    void waitForStart();

  private:
    struct State;
    const std::shared_ptr<State> mState;
};

/** Has the controller create its surface for the stream, as a camera does. */
bool createSurface(const Service& service);

/** The surface; null if there is none. */
android::sp<android::IGraphicBufferProducer> queueOf(const Service& service);

/** Room for one compressed picture. */
constexpr uint32_t kBlobSize = 65536;

/** What a well-behaved camera asks for and sends. */
constexpr uint64_t kUsage =
        android::GraphicBuffer::USAGE_SW_READ_OFTEN | android::GraphicBuffer::USAGE_SW_WRITE_OFTEN;
android::IGraphicBufferProducer::QueueBufferInput frame(
        const android::sp<android::Fence>& fence = android::Fence::NO_FENCE);

/** A fence that never signals: an event that nobody raises. */
android::sp<android::Fence> fenceForEver();

}  // namespace korvane::hostile
