// SPDX-License-Identifier: Apache-2.0
#include "FunctionTree.h"

#include <algorithm>
#include <initializer_list>

#include <ftw.h>
#include <unistd.h>

#include "KernelFiles.h"
#include "WebcamFunction.h"

namespace korvane::gadget {
namespace {

const std::string kDevice = kGadget;
const std::string kUvc = kFunction;
const std::string kConfiguration = kDevice + "/configs/c.1";

// A GUID is the format's four characters and a rest that all formats share.
std::string guidOf(const std::string& code) {
    static const char kRest[] = {0, 0, 0x10, 0, '\x80', 0, 0, '\xaa', 0, 0x38, '\x9b', 0x71};
    return code + std::string(kRest, sizeof(kRest));
}

// Links go first, then folders from the leaves up; what the kernel made goes with its folder.
int removeLink(const char* path, const struct stat*, int type, FTW*) {
    if (type == FTW_SL) unlink(path);
    return 0;
}

int removeFolder(const char* path, const struct stat*, int type, FTW*) {
    if (type == FTW_DP) rmdir(path);
    return 0;
}

}  // namespace

std::string FunctionTree::make() {
    makeDevice();
    if (mSettings.serialPort) makeFunction("acm.0");
    makeFunction("uvc.0");
    makeControl();
    makeStreaming();
    linkFunctions();
    return mError;
}

std::string FunctionTree::remove() {
    constexpr int kOpenFolders = 16;
    nftw(kGadget, removeLink, kOpenFolders, FTW_PHYS);
    // The order matters: configurations hold functions.
    for (const char* part : {"/configs", "/functions", "/strings"}) {
        nftw((kDevice + part).c_str(), removeFolder, kOpenFolders, FTW_PHYS | FTW_DEPTH);
    }
    if (rmdir(kGadget) == 0) return "";
    return std::string("cannot remove ") + kGadget + ": something still uses it";
}

void FunctionTree::makeDevice() {
    folder(kDevice);
    write(kDevice + "/idVendor", "0x1d6b");
    write(kDevice + "/idProduct", "0x0102");
    // A device with several interfaces that belong together, as their association says.
    write(kDevice + "/bDeviceClass", "0xEF");
    write(kDevice + "/bDeviceSubClass", "0x02");
    write(kDevice + "/bDeviceProtocol", "0x01");
    const std::string strings = kDevice + "/strings/0x409";
    folder(strings);
    write(strings + "/manufacturer", mSettings.manufacturer);
    write(strings + "/product", mSettings.product);
    write(strings + "/serialnumber", mSettings.serial.empty() ? machineSerial() : mSettings.serial);
    folder(kConfiguration);
}

void FunctionTree::makeFunction(const std::string& function) {
    if (!mError.empty()) return;
    const std::string kind = function.substr(0, function.find('.'));
    if (!makeFolder(kDevice + "/functions/" + function).empty()) {
        mError = "the kernel has no function '" + kind + "' (module usb_f_" + kind + ")";
    }
}

void FunctionTree::makeControl() {
    // Older kernels name every webcam "UVC Camera".
    if (exists(kUvc + "/function_name")) write(kUvc + "/function_name", mSettings.name);
    offerNoControls();
    folder(kUvc + "/control/header/h");
    for (const char* speed : {"fs", "ss"}) {
        link(kUvc + "/control/header/h", kUvc + "/control/class/" + speed + "/h");
    }
}

// The service has no controls; older kernels offer some anyway and don't let that be changed. Each
// byte is a line.
void FunctionTree::offerNoControls() {
    for (const char* unit : {"processing", "terminal/camera"}) {
        const std::string controls = kUvc + "/control/" + std::string(unit) + "/default/bmControls";
        if (!isWritable(controls)) continue;
        const std::string now = readText(controls);
        if (now.empty()) continue;
        std::string none = "0";
        for (const char c : now) none += c == '\n' ? "\n0" : "";
        write(controls, none);
    }
}

void FunctionTree::makeStreaming() {
    write(kUvc + "/streaming_maxpacket", mSettings.maxPacket);
    folder(kUvc + "/streaming/header/h");
    for (const Format format : {Format::YUYV, Format::NV12, Format::MJPEG}) {
        if (!mSettings.has(format)) continue;
        const char* place = format == Format::MJPEG ? "mjpeg/m" : "uncompressed/u";
        makeFormat(kUvc + "/streaming/" + place, format);
    }
    for (const char* speed : {"fs", "hs", "ss"}) {
        link(kUvc + "/streaming/header/h", kUvc + "/streaming/class/" + speed + "/h");
    }
}

// The host's format index is the order of the links in the header.
void FunctionTree::makeFormat(const std::string& path, Format format) {
    folder(path);
    if (format != Format::MJPEG) {
        const std::string guid = guidOf(format == Format::NV12 ? "NV12" : "YUY2");
        if (mError.empty()) mError = writeBytes(path + "/guidFormat", guid);
        write(path + "/bBitsPerPixel", bitsPerPixel(format));
    }
    for (const Frame& frame : mSettings.frames) {
        if (frame.format != format) continue;
        makeFrame(path + "/" + std::to_string(frame.width) + "x" + std::to_string(frame.height),
                  frame);
    }
    link(path, kUvc + "/streaming/header/h/" + path.substr(path.rfind('/') + 1));
}

void FunctionTree::makeFrame(const std::string& path, const Frame& frame) {
    constexpr unsigned kSecond = 10000000;  // in the intervals' unit of 100 ns
    std::string intervals;
    for (const unsigned rate : frame.rates) {
        intervals += (intervals.empty() ? "" : "\n") + std::to_string(kSecond / rate);
    }
    const auto [slowest, fastest] = std::minmax_element(frame.rates.begin(), frame.rates.end());
    folder(path);
    write(path + "/wWidth", frame.width);
    write(path + "/wHeight", frame.height);
    write(path + "/dwMaxVideoFrameBufferSize", frame.bytes());
    write(path + "/dwMinBitRate", std::min(8ul * frame.bytes() * *slowest, 0xfffffffful));
    write(path + "/dwMaxBitRate", std::min(8ul * frame.bytes() * *fastest, 0xfffffffful));
    write(path + "/dwFrameInterval", intervals);
    write(path + "/dwDefaultFrameInterval", kSecond / frame.rates.front());
}

// The device has the functions in this order; the kernel accepts only a finished function.
void FunctionTree::linkFunctions() {
    if (mSettings.serialPort) link(kDevice + "/functions/acm.0", kConfiguration + "/acm.0");
    link(kUvc, kConfiguration + "/uvc.0");
}

void FunctionTree::folder(const std::string& path) {
    if (mError.empty()) mError = makeFolder(path);
}

void FunctionTree::link(const std::string& target, const std::string& path) {
    if (mError.empty()) mError = makeLink(target, path);
}

void FunctionTree::write(const std::string& path, const std::string& value) {
    if (mError.empty()) mError = writeValue(path, value);
}

}  // namespace korvane::gadget
