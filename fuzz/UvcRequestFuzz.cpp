// SPDX-License-Identifier: Apache-2.0
// A host's requests with their data stages, and the driver's messages between them, sent to a whole
// device over a scripted node. The input is a sequence of such events: a byte that says which, then
// its data.

#include <memory>
#include <vector>

#include <linux/usb/g_uvc.h>

#include "Fuzzer.h"
#include "support/PrivateFiles.h"
#include "support/ScriptedKernel.h"
#include "support/UvcFunctionTree.h"
#include "uvc/UvcV4l2Ctrl.h"

using korvane::fuzz::FuzzInput;
using korvane::fuzz::mustHold;
using korvane::hardware::camera::desktop::V2_0::implementation::PollableDev;
using korvane::hardware::camera::desktop::V2_0::implementation::ServiceStats;
using korvane::hardware::camera::desktop::V2_0::implementation::UvcBufInfo;
using korvane::hardware::camera::desktop::V2_0::implementation::UvcV4l2Ctrl;
using korvane::test::PrivateFiles;
using korvane::test::ScriptedKernel;
using korvane::test::UvcFunctionTree;

namespace {

constexpr char kNode[] = "/dev/video7";
constexpr int kMostEvents = 64;

struct Listener : UvcV4l2Ctrl::EventListener {
    void onFrameEmptied(UvcBufInfo*) override {}
    void onStreamStart() override {}
    void onStreamStop() override {}
};

void makeFunction(PrivateFiles& files) {
    UvcFunctionTree function(files);
    function.addUncompressed("YUY2");
    function.addMjpeg();
    for (const char* format : {UvcFunctionTree::kUncompressed, UvcFunctionTree::kMjpeg}) {
        function.addFrame(format, "480p", 640, 480);
        function.addFrame(format, "720p", 1280, 720);
    }
}

/** What has happened in a run. */
struct Course {
    size_t requests = 0;
    bool isConnected = true;
};

void raise(ScriptedKernel& kernel, UvcV4l2Ctrl& device, FuzzInput& input, Course* course) {
    const uint8_t what = input.take<uint8_t>();
    switch (what % 8) {
        case 0:
        case 1: {
            const auto type = input.take<uint8_t>();
            const auto request = input.take<uint8_t>();
            const auto value = input.take<uint16_t>();
            const auto index = input.take<uint16_t>();
            kernel.sendSetup(type, request, value, index, input.take<uint16_t>());
            if (course->isConnected) course->requests++;
            break;
        }
        case 2: {
            // The driver may report any length.
            v4l2_event event = {};
            event.type = UVC_EVENT_DATA;
            uvc_request_data data = {};
            data.length = what & 0x80 ? input.take<int32_t>() : 34;
            const std::vector<uint8_t> bytes = input.bytes(sizeof(data.data));
            if (!bytes.empty()) memcpy(data.data, bytes.data(), bytes.size());
            memcpy(&event.u, &data, sizeof(data));
            kernel.sendEvent(event);
            break;
        }
        case 3:
            kernel.sendEvent(UVC_EVENT_STREAMON);
            break;
        case 4:
            kernel.sendEvent(UVC_EVENT_STREAMOFF);
            break;
        case 5:
            kernel.sendEvent(UVC_EVENT_DISCONNECT);
            course->isConnected = false;
            break;
        case 6: {
            const uint32_t type = input.take<uint32_t>();
            if (type >= UVC_EVENT_FIRST && type <= UVC_EVENT_LAST) return;
            kernel.sendEvent(type);
            break;
        }
        default:
            (void)device.handlePendingData(PollableDev::DATA_WRITABLE);  // may have nothing
            return;
    }
    (void)device.handlePendingData(PollableDev::DATA_EXCEPTION);  // always 0
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static auto* const sFiles = new PrivateFiles;
    mustHold(sFiles->available(), "there are private files");
    static const bool sIsMade = [] {
        makeFunction(*sFiles);
        return true;
    }();
    ScriptedKernel kernel(kNode);
    Listener listener;
    ServiceStats stats;
    FuzzInput input(data, size);
    Course course;
    {
        UvcV4l2Ctrl device(kNode, stats);
        device.setEventListener(&listener);
        mustHold(sIsMade && device.open() == 0, "the device opens");
        for (int events = 0; !input.empty() && events < kMostEvents; events++) {
            raise(kernel, device, input, &course);
        }
        // As the controller does before it lets go of a device.
        device.close();
    }
    mustHold(kernel.responses().size() == course.requests, "every request is answered, once");
    mustHold(kernel.openDescriptors() == 0, "the node is closed");
    mustHold(kernel.openMappings() == 0, "nothing of it is mapped");
    return 0;
}
