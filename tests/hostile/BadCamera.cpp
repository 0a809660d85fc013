// SPDX-License-Identifier: Apache-2.0
// A camera that is killed or stopped at a given step of a stream.
#include <array>
#include <csignal>
#include <string>

#include <unistd.h>

#include <gui/IProducerListener.h>
#include <system/window.h>

#include "Callback.h"
#include "Queue.h"
#include "Scenario.h"

namespace korvane::hostile {

using android::Fence;
using android::GraphicBuffer;
using android::IGraphicBufferProducer;
using android::sp;
using android::status_t;
using android::hardware::hidl_string;

namespace {

/** Raises the signal when the camera reaches the step. */
class Mishap {
  public:
    Mishap(std::string step, int signal) : mStep(std::move(step)), mSignal(signal) {}

    void at(const char* step) const {
        if (mStep != step) return;
        say(std::string("at ") + step);
        raise(mSignal);
        say("going on");
    }

  private:
    const std::string mStep;
    const int mSignal;
};

/** Queues a frame in each buffer that comes; false once the queue no longer takes them. */
bool render(const sp<IGraphicBufferProducer>& queue, const Mishap& mishap) {
    IGraphicBufferProducer::QueueBufferOutput output;
    if (queue->connect(new android::StubProducerListener(), NATIVE_WINDOW_API_CAMERA, false,
                       &output) != android::OK) {
        return wrong("can't connect");
    }
    mishap.at("connected");
    queue->setDequeueTimeout(100000000);
    for (int i = 0;; i++) {
        int slot = -1;
        sp<Fence> fence;
        const status_t status = queue->dequeueBuffer(
                &slot, &fence, kBlobSize, 1, HAL_PIXEL_FORMAT_BLOB, kUsage, nullptr, nullptr);
        if (status == android::TIMED_OUT) continue;
        if (status < 0) break;
        if (i == 2) mishap.at("dequeued");
        sp<GraphicBuffer> buffer;
        queue->requestBuffer(slot, &buffer);
        if (i == 2) mishap.at("requested");
        if (queue->queueBuffer(slot, frame(), &output) != android::OK) break;
        if (i == 2) mishap.at("queued");
        if (i == 10) mishap.at("streaming");
        usleep(30000);
    }
    queue->disconnect(NATIVE_WINDOW_API_CAMERA);
    return true;
}

}  // namespace

bool beACamera(const std::string& stepAndSignal) {
    const size_t colon = stepAndSignal.find(':');
    const bool isStopped = stepAndSignal.substr(colon + 1) == "STOP";
    const Mishap mishap(stepAndSignal.substr(0, colon), isStopped ? SIGSTOP : SIGKILL);
    const Service desktop = service();
    StreamWatch watch(desktop, [&mishap] { mishap.at("event"); });
    say("registered");
    mishap.at("registered");
    watch.waitForStart();
    mishap.at("started");
    std::string config;
    (void)desktop
            ->sendCommand(ClientType::WEBCAM_CONTROLLER, "{\"get-stream-config\":true}",
                          [&](const hidl_string& reply) { config = reply; })
            .isOk();
    mishap.at("configured");
    if (!createSurface(desktop)) return false;
    mishap.at("created");
    const sp<IGraphicBufferProducer> queue = queueOf(desktop);
    mishap.at("taken");
    if (queue != nullptr) render(queue, mishap);
    hold("the stream is over");
}

}  // namespace korvane::hostile
