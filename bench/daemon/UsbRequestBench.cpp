// SPDX-License-Identifier: Apache-2.0
// A host's requests over USB: those that the daemon answers, compared with one that the gadget's
// kernel answers alone. UsbRequestBench USB VIDEO OPTION...: the webcam's node under /dev/bus/usb,
// and its video node on the host.

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>

#include <android-base/unique_fd.h>
#include <benchmark/benchmark.h>

#include "support/Samples.h"

namespace korvane::bench {
namespace {

// The requests a host's driver makes to try a format: SET_CUR, GET_MIN, GET_MAX, SET_CUR, GET_CUR.
constexpr int kProbeRequests = 5;

android::base::unique_fd sUsb;
android::base::unique_fd sVideo;

bool askKernel() {
    uint16_t status = 0;
    usbdevfs_ctrltransfer transfer = {};
    transfer.bRequestType = USB_DIR_IN;
    transfer.bRequest = USB_REQ_GET_STATUS;
    transfer.wLength = sizeof(status);
    transfer.timeout = 5000;
    transfer.data = &status;
    return ioctl(sUsb.get(), USBDEVFS_CONTROL, &transfer) == sizeof(status);
}

bool askDaemon() {
    v4l2_format format = {};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = 640;
    format.fmt.pix.height = 480;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_MJPEG;
    return ioctl(sVideo.get(), VIDIOC_TRY_FMT, &format) == 0;
}

void usbRequest(benchmark::State& state) {
    Samples kernel, daemon;
    const auto need = [&](bool done) {
        if (!done) state.SkipWithError(strerror(errno));
    };
    for (auto _ : state) {
        kernel.add(timed(CLOCK_MONOTONIC, [&] { need(askKernel()); }));
        daemon.add(timed(CLOCK_MONOTONIC, [&] { need(askDaemon()); }) / kProbeRequests);
    }
    kernel.report(state, "kernel");
    daemon.report(state, "daemon");
}

BENCHMARK(usbRequest)->Name("usb_request")->UseRealTime();

bool openNode(const char* path, android::base::unique_fd* node) {
    node->reset(open(path, O_RDWR | O_CLOEXEC));
    if (!node->ok()) fprintf(stderr, "%s: %s\n", path, strerror(errno));
    return node->ok();
}

}  // namespace
}  // namespace korvane::bench

int main(int argc, char** argv) {
    using namespace korvane::bench;
    benchmark::Initialize(&argc, argv);
    if (argc != 3 || !openNode(argv[1], &sUsb) || !openNode(argv[2], &sVideo)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
