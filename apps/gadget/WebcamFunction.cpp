// SPDX-License-Identifier: Apache-2.0
#include "WebcamFunction.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <vector>

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "Command.h"
#include "FunctionTree.h"
#include "KernelFiles.h"
#include "UsbController.h"

namespace korvane::gadget {
namespace {

constexpr long kConfigfsMagic = 0x62656570;
const std::string kUdc = std::string(kGadget) + "/UDC";

bool isConfigfs(const char* path) {
    struct statfs status = {};
    return statfs(path, &status) == 0 && status.f_type == kConfigfsMagic;
}

// "333333\n666666" as rates, rounded.
std::string ratesOf(const std::string& intervals) {
    std::stringstream lines(intervals);
    std::string rates;
    for (std::string line; std::getline(lines, line);) {
        const unsigned long interval = strtoul(line.c_str(), nullptr, 10);
        if (interval == 0) continue;
        rates += (rates.empty() ? "" : ",") + std::to_string((10000000 + interval / 2) / interval);
    }
    return rates;
}

struct StatusLine {
    int format;
    int frame;
    std::string text;
};

void describeFormat(const std::string& folder, std::vector<StatusLine>* lines) {
    const bool mjpeg = folder.find("/mjpeg/") != std::string::npos;
    const std::string name = mjpeg ? "mjpeg" : readText(folder + "/guidFormat").substr(0, 4);
    for (const std::string& entry : namesIn(folder)) {
        const std::string frame = folder + "/" + entry;
        if (!exists(frame + "/wWidth")) continue;
        const std::string format = readText(folder + "/bFormatIndex");
        const std::string index = readText(frame + "/bFrameIndex");
        lines->push_back({atoi(format.c_str()), atoi(index.c_str()),
                          "format " + format + " frame " + index + ": " + name + " " +
                                  readText(frame + "/wWidth") + "x" + readText(frame + "/wHeight") +
                                  " at " + ratesOf(readText(frame + "/dwFrameInterval"))});
    }
}

}  // namespace

std::string WebcamFunction::prepare() {
    // All of this may be built into the running kernel: only what is missing in the end is an
    // error.
    if (!exists("/sys/module/libcomposite")) runQuietly({"modprobe", "-q", "libcomposite"});
    mkdir(kConfigfs, 0755);
    if (!isConfigfs(kConfigfs) && mount("none", kConfigfs, "configfs", 0, nullptr) != 0) {
        return std::string("cannot mount configfs on ") + kConfigfs + ": " + strerror(errno);
    }
    if (!exists(kGadgets)) return "the kernel has no USB gadgets (module libcomposite)";
    return "";
}

bool WebcamFunction::made() {
    return exists(kGadget);
}

std::string WebcamFunction::boundTo() {
    return readText(kUdc);
}

std::string WebcamFunction::make(const GadgetSettings& settings) {
    std::string error = FunctionTree(settings).make();
    if (!error.empty() && made()) remove();
    return error;
}

std::string WebcamFunction::bind(const std::string& controller) {
    // With the loopback controller, this machine is the host as well.
    if (controller.rfind("dummy_udc.", 0) == 0) runQuietly({"modprobe", "-q", "uvcvideo"});
    return writeValue(kUdc, controller);
}

std::string WebcamFunction::unbind() {
    return writeValue(kUdc, "");
}

std::string WebcamFunction::remove() {
    return FunctionTree::remove();
}

std::string WebcamFunction::status(std::string* text) {
    if (!made()) return std::string("there is no ") + kGadget + " (korvane-gadget up makes it)";
    const std::string controller = boundTo();
    *text = controller.empty() ? "not bound\n"
                               : "bound to " + controller + ", " +
                                         readText("/sys/class/udc/" + controller + "/state") + "\n";
    std::vector<StatusLine> lines;
    describeFormat(std::string(kFunction) + "/streaming/uncompressed/u", &lines);
    describeFormat(std::string(kFunction) + "/streaming/mjpeg/m", &lines);
    std::sort(lines.begin(), lines.end(), [](const StatusLine& a, const StatusLine& b) {
        return a.format != b.format ? a.format < b.format : a.frame < b.frame;
    });
    for (const StatusLine& line : lines) *text += line.text + "\n";
    return "";
}

}  // namespace korvane::gadget
