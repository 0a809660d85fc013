// SPDX-License-Identifier: Apache-2.0
// What others send to the camera: commands, and the service's replies.
#include <string>

#include "Fuzzer.h"
#include "desktop-camera/Messages.h"

using korvane::fuzz::mustHold;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    korvane::camera::eventFrom(text);
    korvane::camera::asksForStatus(text);
    korvane::camera::PictureFormat format;
    if (korvane::camera::streamConfigFrom(text, &format)) {
        mustHold(format.width > 0 && format.height > 0, "a stream has pictures");
        mustHold(format.fps > 0, "a stream has a rate");
        mustHold(!korvane::camera::createSurfaceCommand(format, 3).empty(), "it can be asked for");
    }
    return 0;
}
