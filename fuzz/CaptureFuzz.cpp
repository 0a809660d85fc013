// SPDX-License-Identifier: Apache-2.0
// What a host captured, given to the program that checks it: a byte for the format, a text that is
// the camera's log, and the capture.
#include <sstream>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include "Fuzzer.h"
#include "testcard/FrameChecker.h"
#include "testcard/HostTimes.h"

using namespace korvane::testcard;
using korvane::fuzz::FuzzInput;
using korvane::fuzz::mustHold;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static constexpr PixelFormat kFormats[] = {PixelFormat::MJPG, PixelFormat::YUYV,
                                               PixelFormat::NV12};
    static constexpr uint32_t kWidth = 160;
    static constexpr uint32_t kHeight = 120;
    static const auto sLayout = StripLayout::forSize(kWidth, kHeight);
    mustHold(sLayout.has_value(), "a card of that size can be drawn");

    FuzzInput input(data, size);
    const PixelFormat format = kFormats[input.take<uint8_t>() % std::size(kFormats)];
    const std::string text = input.text();
    std::string error;
    std::istringstream logLines(text);
    FrameLog log;
    if (!log.read(logLines, &error)) mustHold(!error.empty(), "a log that is none is explained");
    std::istringstream timeLines(text);
    HostTimes::read(timeLines);

    const std::vector<uint8_t> bytes = input.rest();
    const int file = memfd_create("capture", MFD_CLOEXEC);
    if (write(file, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) abort();
    Capture capture;
    if (capture.open("/proc/self/fd/" + std::to_string(file), format, kWidth, kHeight, &error)) {
        FrameChecker checker(*sLayout, format, log);
        for (const Frame& frame : capture.frames()) checker.check(frame);
        mustHold(checker.counts().received == capture.frames().size(), "every frame is counted");
    }
    close(file);
    return 0;
}
