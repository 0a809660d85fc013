// SPDX-License-Identifier: Apache-2.0
// The surface that the camera renders into, and the way of its frames to the device and back.
#define LOG_TAG "UVC-GadgetHandler"

#include <android-base/unique_fd.h>
#include <log/log.h>

#include "uvc/SurfaceRequest.h"
#include "uvc/UvcBufInfo.h"
#include "uvc/UvcGadgetHandler.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

using ::android::GraphicBuffer;
using ::android::KorBufferSource;
using ::android::OK;
using ::android::sp;
using ::android::status_t;
using ::android::UNKNOWN_ERROR;
using ::android::base::unique_fd;

namespace {

constexpr int64_t kMicrosPerSecond = 1000000;

UvcBufInfo makeFrame(int bufferId, const sp<GraphicBuffer>& buffer, int64_t timestampUs,
                     int fenceFd) {
    UvcBufInfo frame;
    frame.kind = UvcBufInfo::KIND_FRAME;
    frame.index = bufferId;
    frame.fenceFd = fenceFd;
    frame.timestamp.tv_sec = timestampUs / kMicrosPerSecond;
    frame.timestamp.tv_usec = timestampUs - frame.timestamp.tv_sec * kMicrosPerSecond;
    frame.graphicBuffer = buffer;
    return frame;
}

const char* refuseWithoutStream() {
    ALOGE("webcam is not streaming");
    return "not streaming";
}

}  // namespace

// A source that hasn't been started hands over no frame, so its lock may be taken inside the device
// lock. That changes with the start, which hands over the frames that wait, each of which takes the
// device lock itself. Releasing the replaced source may end it, which calls its camera.
std::string UvcGadgetHandler::createSurface(const rapidjson::Value& params) {
    NewSurface made;
    made.desktop = mConnection.service();
    std::string refusal;
    {
        std::lock_guard<std::mutex> guard(mDeviceLock);
        refusal = makeSurface_l(params, &made);
    }
    made.replaced.clear();
    if (refusal.empty()) (void)made.source->start();  // always OK
    return refusal;
}

std::string UvcGadgetHandler::makeSurface_l(const rapidjson::Value& params, NewSurface* made) {
    if (const char* refusal = refuseSurface_l()) return refusal;
    SurfaceRequest request;
    if (const char* refusal = request.read(params)) return refusal;

    const sp<KorBufferSource> source = new KorBufferSource(mStats);
    made->source = source;
    made->replaced = mSurface.replace(source);
    const int count = static_cast<int>(mDevice->getBufferNum());
    if (source->configure(this, count, request.width, request.height, request.fourcc(),
                          request.consumerUsage) != OK) {
        return "not configured";
    }
    mStats.surfaceMade({static_cast<uint32_t>(request.width), static_cast<uint32_t>(request.height),
                        request.fourcc(), request.fps},
                       static_cast<uint32_t>(request.consumerUsage));
    if (const char* refusal = publishSurface_l(*made)) return refusal;
    for (int i = 0; i < static_cast<int>(mDevice->getBufferNum()); ++i) {
        (void)source->onInputBufferAdded(i);  // can't fail before the start
    }
    (void)source->setMaxFps(request.fps);  // 0 is refused, and drops no frame
    return "";
}

const char* UvcGadgetHandler::refuseSurface_l() const {
    if (mDevice == nullptr) {
        ALOGE("No video device is setup for webcam mode");
        return "no v4l2 device";
    }
    if (!mDevice->isStreaming()) return refuseWithoutStream();
    return nullptr;
}

// A stop doesn't take the device lock, so the stream may have stopped since it was last looked at,
// and another one begun: then the source is no longer the one to which frames come back. A stop
// that comes after this look withdraws the surface.
const char* UvcGadgetHandler::publishSurface_l(const NewSurface& made) {
    return mSurface.publish(made.desktop, made.source,
                            [this](bool isCurrent) REQUIRES(mDeviceLock) {
                                const char* refusal = refuseSurface_l();
                                if (refusal != nullptr || isCurrent) return refusal;
                                return refuseWithoutStream();
                            });
}

status_t UvcGadgetHandler::submitBuffer(int bufferId, const sp<GraphicBuffer>& buffer,
                                        int64_t timestampUs, int fenceFd) {
    UvcBufInfo frame = makeFrame(bufferId, buffer, timestampUs, fenceFd);
    bool hasDevice = false;
    {
        std::lock_guard<std::mutex> guard(mDeviceLock);
        hasDevice = mDevice != nullptr;
        if (hasDevice && mDevice->queueBuffer(&frame)) return OK;
    }
    unique_fd(fenceFd).reset();
    if (!hasDevice) {
        mStats.count(Count::DROPPED_NO_STREAM);
        ALOGE("No video device is setup for webcam mode");
        onStreamStop();
    }
    return UNKNOWN_ERROR;
}

const char* UvcGadgetHandler::dumpFrames(std::unique_ptr<FILE, int (*)(FILE*)> file) {
    std::lock_guard<std::mutex> guard(mDeviceLock);
    if (mDevice == nullptr || !mDevice->isStreaming()) return "no stream";
    return mDevice->dumpFramesTo(file.release()) ? nullptr : "frames are being written already";
}

status_t UvcGadgetHandler::submitEos(int /* bufferId */) {
    return OK;
}

void UvcGadgetHandler::dispatchDataSpaceChanged(int /* dataSpace */, int /* aspects */,
                                                int /* pixelFormat */) {}

void UvcGadgetHandler::onFrameEmptied(UvcBufInfo* info) {
    unique_fd fence(info->fenceFd);
    const sp<KorBufferSource> source = mSurface.source();
    if (source == nullptr) return;
    // What is wrong is logged there. Nothing is left to do: the device has the buffer back.
    (void)source->onInputBufferEmptied(info->index, fence.release());
}

void UvcGadgetHandler::onStreamStart() {
    const std::string reply = setCommandTo(ClientType::STREAM, R"({"event":"stream-start"})");
    if (reply.empty()) setCommandTo(ClientType::LAUNCHER, R"({"webcam-start":true})");
}

void UvcGadgetHandler::onStreamStop() {
    // Nobody can reach the source any more while the client, which may call back, is being told. It
    // goes after that, or with the last call that is still inside it.
    const sp<KorBufferSource> source = mSurface.withdraw(mConnection.service());
    setCommandTo(ClientType::STREAM, R"({"event":"stream-stop"})");
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
