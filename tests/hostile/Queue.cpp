// SPDX-License-Identifier: Apache-2.0
#include "Queue.h"

#include <condition_variable>
#include <memory>
#include <mutex>

#include <sys/eventfd.h>
#include <time.h>

#include <gui/bufferqueue/1.0/H2BGraphicBufferProducer.h>
#include <hidl/Status.h>
#include <system/window.h>
#include <ui/Region.h>

#include "Callback.h"

namespace korvane::hostile {

using android::Fence;
using android::IGraphicBufferProducer;
using android::Rect;
using android::sp;
using android::hardware::hidl_string;
using android::hardware::graphics::bufferqueue::V1_0::utils::H2BGraphicBufferProducer;

struct StreamWatch::State {
    std::mutex lock;
    std::condition_variable changed;
    bool hasStarted = false;
    sp<Callback> callback;
};

StreamWatch::StreamWatch(const Service& service, std::function<void()> onEvent)
    : mState(std::make_shared<State>()) {
    State* const state = mState.get();
    state->callback = new Callback([state, onEvent](const std::string& command) {
        onEvent();
        std::lock_guard<std::mutex> guard(state->lock);
        if (command.find("stream-start") != std::string::npos) state->hasStarted = true;
        state->changed.notify_all();
        return std::string("{}");
    });
    (void)service->registerCallback(ClientType::STREAM, state->callback).isOk();
}

void StreamWatch::waitForStart() {
    std::unique_lock<std::mutex> guard(mState->lock);
    mState->changed.wait(guard, [this] { return mState->hasStarted; });
}

bool createSurface(const Service& service) {
    std::string said = "no reply";
    (void)service
            ->sendCommand(ClientType::WEBCAM_CONTROLLER,
                          "{\"create-surface\":{\"width\":640,\"height\":480,\"consumer-usage\":51,"
                          "\"v4l2-format\":\"MJPG\",\"fps\":30}}",
                          [&](const hidl_string& reply) { said = reply; })
            .isOk();
    return said.empty() || wrong("create-surface: " + said);
}

sp<IGraphicBufferProducer> queueOf(const Service& service) {
    const android::hardware::Return<Surface> asked =
            service->getSurface(ClientType::WEBCAM_CONTROLLER);
    const Surface surface = asked.isOk() ? static_cast<Surface>(asked) : nullptr;
    if (surface == nullptr) return nullptr;
    return new H2BGraphicBufferProducer(surface);
}

IGraphicBufferProducer::QueueBufferInput frame(const sp<Fence>& fence) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    IGraphicBufferProducer::QueueBufferInput input(now.tv_sec * 1000000000LL + now.tv_nsec, false,
                                                   HAL_DATASPACE_UNKNOWN, Rect(0, 0, 0, 0),
                                                   NATIVE_WINDOW_SCALING_MODE_FREEZE, 0, fence);
    input.setSurfaceDamage(android::Region(Rect(0, 0, 0, 0)));
    return input;
}

sp<Fence> fenceForEver() {
    return new Fence(eventfd(0, EFD_CLOEXEC));
}

}  // namespace korvane::hostile
