// SPDX-License-Identifier: Apache-2.0
// example-camera: the least that a camera for the desktop-camera service has to do. It shows a
// picture whose brightness changes, at any size, to hosts that ask for YUYV or NV12.

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>

#include <semaphore.h>
#include <unistd.h>

#include <gui/IProducerListener.h>
#include <gui/bufferqueue/1.0/H2BGraphicBufferProducer.h>
#include <hidl/HidlTransportSupport.h>
#include <korvane/hardware/camera/desktop/2.0/ICameraDesktop.h>
#include <system/graphics.h>
#include <system/window.h>
#include <ui/GraphicBuffer.h>

using ::android::Fence;
using ::android::GraphicBuffer;
using ::android::IGraphicBufferProducer;
using ::android::OK;
using ::android::Rect;
using ::android::sp;
using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ::android::hardware::graphics::bufferqueue::V1_0::utils::H2BGraphicBufferProducer;
using ::korvane::hardware::camera::desktop::V1_0::ICameraDesktopCallback;
using ::korvane::hardware::camera::desktop::V2_0::ClientType;
using ::korvane::hardware::camera::desktop::V2_0::ICameraDesktop;
using HidlProducer = ::android::hardware::graphics::bufferqueue::V1_0::IGraphicBufferProducer;

namespace {

constexpr uint64_t kUsage = GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN;

std::atomic<bool> sWanted{false};
sem_t sStarted;

// The service announces streams here, on the HIDL thread; a start must be answered with a text.
struct Callback : ICameraDesktopCallback {
    Return<void> onCommand(const hidl_string& command, onCommand_cb reply) override {
        const bool start = strstr(command.c_str(), "stream-start") != nullptr;
        if (start || strstr(command.c_str(), "stream-stop") != nullptr) sWanted = start;
        if (start) sem_post(&sStarted);
        reply(start ? "taken" : "");
        return Void();
    }
};

struct Format {
    unsigned width = 0;
    unsigned height = 0;
    double fps = 0;
    std::string fourcc;
};

std::string send(const sp<ICameraDesktop>& service, const std::string& text) {
    std::string reply;
    const auto copy = [&reply](const hidl_string& given) { reply = given; };
    const auto result = service->sendCommand(ClientType::WEBCAM_CONTROLLER, text, copy);
    return result.isOk() ? reply : "";
}

// A number or a text out of {"width":640,...}; a camera longer than a page would use a parser.
std::string valueOf(const std::string& reply, const std::string& key) {
    const size_t found = reply.find("\"" + key + "\":");
    if (found == std::string::npos) return "";
    const size_t start = found + key.size() + 3;
    const std::string value = reply.substr(start, reply.find_first_of(",}", start) - start);
    return value.size() > 1 && value[0] == '"' ? value.substr(1, value.size() - 2) : value;
}

Format askFormat(const sp<ICameraDesktop>& service) {
    const std::string reply = send(service, "{\"get-stream-config\":true}");
    Format format;
    format.width = strtoul(valueOf(reply, "width").c_str(), nullptr, 10);
    format.height = strtoul(valueOf(reply, "height").c_str(), nullptr, 10);
    format.fps = strtod(valueOf(reply, "fps").c_str(), nullptr);
    format.fourcc = valueOf(reply, "v4l2-format");
    return format;
}

sp<IGraphicBufferProducer> makeSurface(const sp<ICameraDesktop>& service, const Format& format) {
    send(service, "{\"create-surface\":{\"width\":" + std::to_string(format.width) +
                          ",\"height\":" + std::to_string(format.height) +
                          ",\"consumer-usage\":" + std::to_string(kUsage) + ",\"v4l2-format\":\"" +
                          format.fourcc + "\",\"fps\":" + std::to_string(format.fps) + "}}");
    const Return<sp<HidlProducer>> posted = service->getSurface(ClientType::WEBCAM_CONTROLLER);
    const sp<HidlProducer> producer = posted.isOk() ? sp<HidlProducer>(posted) : nullptr;
    return producer == nullptr ? nullptr : new H2BGraphicBufferProducer(producer);
}

void draw(const sp<GraphicBuffer>& buffer, unsigned frame, const Format& format) {
    android_ycbcr planes = {};
    if (buffer->lockYCbCr(kUsage, &planes) != OK) return;
    const size_t rows = format.height;
    memset(planes.y, static_cast<int>(16 + frame * 4 % 220), planes.ystride * rows);
    memset(planes.cb, 128, planes.cstride * (rows / 2));
    buffer->unlock();
}

// Renders until the stream ends; every call fails once its surface has gone.
void render(const sp<IGraphicBufferProducer>& surface, const Format& format) {
    IGraphicBufferProducer::QueueBufferOutput output;
    const sp<::android::StubProducerListener> listener = new ::android::StubProducerListener;
    if (surface->connect(listener, NATIVE_WINDOW_API_CAMERA, true, &output) != OK) return;
    sp<GraphicBuffer> buffers[::android::BufferQueueDefs::NUM_BUFFER_SLOTS];
    for (unsigned frame = 0; sWanted; ++frame) {
        usleep(static_cast<useconds_t>(1e6 / format.fps));
        int slot = -1;
        sp<Fence> fence;
        const int status =
                surface->dequeueBuffer(&slot, &fence, format.width, format.height,
                                       HAL_PIXEL_FORMAT_YCBCR_420_888, kUsage, nullptr, nullptr);
        if (status < 0) break;
        const bool isNew = (status & IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION) != 0;
        if (isNew && surface->requestBuffer(slot, &buffers[slot]) != OK) break;
        if (fence != nullptr) fence->waitForever("example-camera");
        draw(buffers[slot], frame, format);
        const IGraphicBufferProducer::QueueBufferInput input(
                systemTime(), false, HAL_DATASPACE_UNKNOWN, Rect::EMPTY_RECT,
                NATIVE_WINDOW_SCALING_MODE_FREEZE, 0, Fence::NO_FENCE);
        if (surface->queueBuffer(slot, input, &output) != OK) break;
    }
    surface->disconnect(NATIVE_WINDOW_API_CAMERA);
}

}  // namespace

int main() {
    sem_init(&sStarted, 0, 0);
    ::android::hardware::configureRpcThreadpool(1, false);
    const sp<ICameraDesktop> service = ICameraDesktop::getService("default");
    if (service == nullptr || !service->registerCallback(ClientType::STREAM, new Callback).isOk()) {
        fprintf(stderr, "example-camera: there is no desktop-camera service\n");
        return 1;
    }
    for (;;) {
        sem_wait(&sStarted);
        const Format format = askFormat(service);
        const auto surface = format.fps > 0 ? makeSurface(service, format) : nullptr;
        if (surface == nullptr) continue;
        fprintf(stderr, "a stream of %ux%u\n", format.width, format.height);
        render(surface, format);
    }
}
