// SPDX-License-Identifier: Apache-2.0
// A function's tree in configfs. The input changes attributes of a complete tree one after another:
// a byte says which, a text gives its new value; an empty text removes it.
#include <cstring>
#include <stdexcept>
#include <string>

#include <linux/usb/g_uvc.h>
#include <linux/usb/video.h>

#include "Fuzzer.h"
#include "support/PrivateFiles.h"
#include "support/UvcFunctionTree.h"
#include "uvc/UvcConfig.h"

using korvane::fuzz::FuzzInput;
using korvane::fuzz::mustHold;
using korvane::hardware::camera::desktop::V2_0::implementation::UvcConfig;
using korvane::test::PrivateFiles;
using korvane::test::UvcFunctionTree;

namespace {

const std::string kAttributes[] = {
        "streaming_interval",
        "streaming_maxburst",
        "streaming_maxpacket",
        "control/header/h/bcdUVC",
        "streaming/uncompressed/u/guidFormat",
        "streaming/uncompressed/u/bBitsPerPixel",
        "streaming/uncompressed/u/bFormatIndex",
        "streaming/mjpeg/m/bFormatIndex",
        "streaming/uncompressed/u/480p/wWidth",
        "streaming/uncompressed/u/480p/wHeight",
        "streaming/uncompressed/u/480p/bFrameIndex",
        "streaming/uncompressed/u/480p/dwFrameInterval",
        "streaming/uncompressed/u/480p/dwDefaultFrameInterval",
        "streaming/uncompressed/u/480p/dwMaxVideoFrameBufferSize",
        "streaming/mjpeg/m/480p/wWidth",
        "streaming/mjpeg/m/480p/bFrameIndex",
        "streaming/mjpeg/m/480p/dwFrameInterval",
        "streaming/mjpeg/m/480p/dwMaxVideoFrameBufferSize",
        "streaming/uncompressed/u/more/wWidth",
        "streaming/uncompressed/u/more/wHeight",
        "streaming/mjpeg/other/bFormatIndex",
        "streaming/mjpeg/m/more",
};
constexpr int kMostChanges = 12;

void change(UvcFunctionTree& tree, FuzzInput& input) {
    const std::string& attribute = kAttributes[input.take<uint8_t>() % std::size(kAttributes)];
    const std::string value = input.text();
    if (value.empty()) {
        tree.remove(attribute);
    } else {
        tree.set(attribute, value);
    }
}

void use(UvcConfig& config, FuzzInput& input) {
    uvc_streaming_control block;
    for (const int selector : {1, 2, input.take<int8_t>() + 0}) {
        config.setControlSelector(selector);
        // Either result will do: the choice may not exist.
        (void)config.setVideoStreamConfig(input.take<int8_t>(), input.take<int8_t>(),
                                          input.take<uint32_t>());
        config.fillCurCtrl(&block);
        config.fillMinCtrl(&block);
        config.fillMaxCtrl(&block);
        mustHold(!UvcConfig::ctrlValsToString(&block).empty(), "a block can be shown");
        mustHold(config.getFormatName().empty() == (config.getFormat() == 0),
                 "a format has a name");
        config.getFrameInterval();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static auto* const sFiles = new PrivateFiles;
    mustHold(sFiles->available(), "there are private files");
    sFiles->remove("/config/usb_gadget");
    UvcFunctionTree tree(*sFiles);
    tree.addUncompressed("YUY2");
    tree.addMjpeg();
    tree.addFrame(UvcFunctionTree::kUncompressed, "480p", 640, 480);
    tree.addFrame(UvcFunctionTree::kMjpeg, "480p", 640, 480);
    FuzzInput input(data, size);
    const int changes = input.take<uint8_t>() % (kMostChanges + 1);
    for (int i = 0; i < changes && !input.empty(); i++) change(tree, input);
    // An attribute that is missing or not a number ends the service, by design: only these two.
    try {
        UvcConfig config;
        use(config, input);
    } catch (const std::invalid_argument&) {
    } catch (const std::out_of_range&) {
    }
    return 0;
}
