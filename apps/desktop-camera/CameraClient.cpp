// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "desktop-camera"

#include "CameraClient.h"

#include <optional>
#include <string>

#include <log/log.h>

#include "Messages.h"

namespace korvane::camera {

using android::IGraphicBufferProducer;
using android::sp;

namespace {

const char* text(SurfaceRenderer::End end) {
    switch (end) {
        case SurfaceRenderer::End::STOPPED:
            return "it is not wanted any more";
        case SurfaceRenderer::End::SURFACE_GONE:
            return "its surface is gone";
        case SurfaceRenderer::End::FAILED:
            return "it failed";
        case SurfaceRenderer::End::LAST_FRAME:
            return "that was the last frame";
    }
    return "";
}

}  // namespace

CameraClient::CameraClient(StreamDemand& demand, ServiceConnection& connection, FrameSource& source,
                           FrameJournal& journal, StreamHooks& hooks, uint32_t lastFrame)
    : mDemand(demand),
      mConnection(connection),
      mSource(source),
      mJournal(journal),
      mHooks(hooks),
      mLastFrame(lastFrame) {}

void CameraClient::run() {
    if (!connect()) return;
    for (;;) {
        uint64_t stream = 0;
        switch (mDemand.waitForWork(&stream)) {
            case StreamDemand::Work::STREAM:
                serveStream(StreamTicket(mDemand, stream));
                break;
            case StreamDemand::Work::JOIN:
                joinStream(StreamTicket(mDemand, stream));
                break;
            case StreamDemand::Work::RECONNECT:
                if (!connect()) return;
                break;
            case StreamDemand::Work::QUIT:
                return;
        }
        mDemand.over(stream);
    }
}

// Nobody was told of a stream that began before the camera was registered.
bool CameraClient::connect() {
    if (!mConnection.connect()) return false;
    mDemand.join();
    return true;
}

// A failure ends this stream only: the next start may find everything in order.
void CameraClient::serveStream(const StreamTicket& ticket) {
    PictureFormat format;
    if (askForConfig(&format, ANDROID_LOG_WARN) && askForSurface(format, ANDROID_LOG_WARN)) {
        render(ticket, format);
    }
}

// It is no fault if nothing streams here. The configuration is the stream's own only if it hasn't
// changed by the time the surface exists: the host may have begun between the two questions.
void CameraClient::joinStream(const StreamTicket& ticket) {
    PictureFormat format;
    if (!askForConfig(&format, ANDROID_LOG_INFO)) return;
    for (;;) {
        if (!ticket.isWanted() || !askForSurface(format, ANDROID_LOG_INFO)) return;
        const PictureFormat before = format;
        if (!askForConfig(&format, ANDROID_LOG_WARN)) return;
        if (format == before) break;
    }
    ALOGI("joining a stream that runs already");
    render(ticket, format);
}

void CameraClient::render(const StreamTicket& ticket, const PictureFormat& format) {
    const sp<IGraphicBufferProducer> surface = mConnection.surface();
    if (surface == nullptr) {
        ALOGW("no stream: there is no surface");
        return;
    }
    if (!mSource.start(format)) return;
    ALOGI("rendering %s %ux%u at %.2f frames a second", format.fourcc.c_str(), format.width,
          format.height, format.fps);
    mHooks.started();
    const uint32_t first = mJournal.nextNumber();
    const auto end = SurfaceRenderer(surface, format, mSource, mJournal).run(ticket, mLastFrame);
    mSource.stop();
    mHooks.ended();
    ALOGI("the stream ends after %u frames: %s", mJournal.nextNumber() - first, text(end));
    if (end == SurfaceRenderer::End::LAST_FRAME) mDemand.quit();
}

bool CameraClient::askForConfig(PictureFormat* format, int priority) {
    const std::optional<std::string> config = mConnection.command(kGetStreamConfig);
    if (!config) return false;
    if (streamConfigFrom(*config, format)) return true;
    LOG_PRI(priority, LOG_TAG, "no stream: asked for the configuration, the controller says \"%s\"",
            config->c_str());
    return false;
}

bool CameraClient::askForSurface(const PictureFormat& format, int priority) {
    const std::optional<std::string> refusal =
            mConnection.command(createSurfaceCommand(format, ProducerSurface::kUsage));
    if (!refusal) return false;
    if (!refusal->empty()) {
        LOG_PRI(priority, LOG_TAG, "no stream: asked for a surface, the controller says \"%s\"",
                refusal->c_str());
    }
    return refusal->empty();
}

}  // namespace korvane::camera
