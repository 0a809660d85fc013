// SPDX-License-Identifier: Apache-2.0
// The kernel's messages to the hot-plug monitor: the input is one of them, of any size.
#include <algorithm>
#include <cstring>

#include <unistd.h>

#include <cutils/uevent.h>

#include "Fuzzer.h"
#include "support/PrivateFiles.h"
#include "support/ScriptedKernel.h"
#include "uvc/HotPlugCtrl.h"

using korvane::hardware::camera::desktop::V2_0::implementation::HotPlugCtrl;
using korvane::hardware::camera::desktop::V2_0::implementation::PollableDev;

namespace {

const uint8_t* sData = nullptr;
size_t sSize = 0;

struct Listener : HotPlugCtrl::EventListener {
    int32_t onUvcV4l2Added(const char* devPath) override {
        korvane::fuzz::mustHold(strncmp(devPath, "/dev/", 5) == 0, "a node is one below /dev");
        korvane::fuzz::mustHold(strlen(devPath) < 32, "a node's path fits");
        return 0;
    }
    int32_t onV4l2Removed(const char* devName) override { return strlen(devName) > 1024 ? 1 : 0; }
    int32_t onUsbDisconnected() override { return 0; }
};

}  // namespace

extern "C" ssize_t __wrap_uevent_kernel_multicast_recv(int, void* buffer, size_t length) {
    if (sSize == 0) return -1;
    memcpy(buffer, sData, std::min(sSize, length));
    const size_t size = sSize;
    sSize = 0;
    return static_cast<ssize_t>(size);
}

// Nobody waits for a node that doesn't come.
extern "C" int __wrap_usleep(useconds_t) {
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static korvane::test::PrivateFiles* sFiles = [] {
        auto* const files = new korvane::test::PrivateFiles;
        if (files->available()) files->addVideoDevice("video1", "msm_cam");
        return files;
    }();
    static auto* const sKernel = new korvane::test::ScriptedKernel("/dev/video0");
    korvane::fuzz::mustHold(sFiles->available(), "there are private files");
    sData = data;
    sSize = size;
    Listener listener;
    HotPlugCtrl monitor(&listener);
    (void)monitor.handlePendingData(PollableDev::DATA_READABLE);  // it may refuse them
    korvane::fuzz::mustHold(sKernel->openDescriptors() == 0, "nodes that are looked at are closed");
    sKernel->clearCalls();
    return 0;
}
