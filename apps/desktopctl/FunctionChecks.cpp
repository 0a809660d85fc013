// SPDX-License-Identifier: Apache-2.0
#include "FunctionChecks.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <sstream>
#include <vector>

#include "Attributes.h"

namespace korvane::ctl {
namespace {

namespace fs = std::filesystem;

const std::string kGadget = "/config/usb_gadget/g1";
const std::string kFunction = kGadget + "/functions/uvc.0";
const std::string kStreaming = kFunction + "/streaming";
constexpr char kRemake[] = "korvane-gadget down; korvane-gadget up";
constexpr uint32_t kPacketHeader = 12;
constexpr uint32_t kPacketsPerSecond = 8000;

struct Frame {
    std::string name;
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint32_t> intervals;

    uint32_t pixels() const { return width * height; }
};

struct Format {
    std::string name;  // as people know it
    std::string path;
    double bytesPerPixel = 0;   // 0 for a compressed format
    std::vector<Frame> frames;  // in the service's order
};

std::string quoted(const std::string& path) {
    return path.substr(kFunction.size() + 1);
}

// ---- what there is ------------------------------------------------------------------------------

// Nothing if a line isn't a number.
std::optional<std::vector<uint32_t>> intervalsIn(const std::string& path) {
    std::vector<uint32_t> intervals;
    std::istringstream lines(attribute(path));
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line[0] < '0' || line[0] > '9') return std::nullopt;
        intervals.push_back(static_cast<uint32_t>(strtoul(line.c_str(), nullptr, 10)));
    }
    return intervals;
}

void readFrames(Format* format, Findings* findings) {
    for (const std::string& name : foldersIn(format->path)) {
        if (name == "color_matching") continue;
        const std::string path = format->path + "/" + name;
        if (!fs::exists(path + "/wWidth")) continue;
        const auto width = numberIn(path + "/wWidth");
        const auto height = numberIn(path + "/wHeight");
        const auto intervals = intervalsIn(path + "/dwFrameInterval");
        if (!width || !height || !intervals) {
            findings->push_back(wrong("sizes",
                                      quoted(path) + " has an attribute that is not a number: "
                                                     "the service ends at it",
                                      kRemake));
        } else if (*width == 0 || *height == 0 || intervals->empty()) {
            findings->push_back(wrong("sizes", quoted(path) + " has no size or no rate", kRemake));
        } else {
            format->frames.push_back({name, *width, *height, *intervals});
        }
    }
    std::stable_sort(format->frames.begin(), format->frames.end(),
                     [](const Frame& a, const Frame& b) { return a.pixels() < b.pixels(); });
}

// Folders of a kind of format that the service doesn't look into.
void checkNames(const std::string& kind, const std::string& known, Findings* findings) {
    for (const std::string& name : foldersIn(kStreaming + "/" + kind)) {
        if (name == known) continue;
        findings->push_back(wrong(
                "formats",
                "streaming/" + kind + "/" + name + " is not read: only the name '" + known + "' is",
                kRemake));
    }
}

std::optional<Format> readUncompressed(Findings* findings) {
    Format format{"YUYV", kStreaming + "/uncompressed/u", 0, {}};
    if (!fs::is_directory(format.path)) return std::nullopt;
    readFrames(&format, findings);
    if (format.frames.empty()) return std::nullopt;
    const std::string guid = attribute(format.path + "/guidFormat");
    if (guid.find("NV12") != std::string::npos) {
        format.name = "NV12";
    } else if (guid.find("YUY2") == std::string::npos) {
        findings->push_back(
                wrong("formats", "the uncompressed format is neither YUY2 nor NV12", kRemake));
        return std::nullopt;
    }
    const auto bits = numberIn(format.path + "/bBitsPerPixel");
    if (!bits) {
        findings->push_back(
                wrong("formats", "bBitsPerPixel is not a number: the service ends at it", kRemake));
        return std::nullopt;
    }
    format.bytesPerPixel = *bits / 8.0;
    const double wanted = format.name == "NV12" ? 1.5 : 2.0;
    if (format.bytesPerPixel != wanted) {
        findings->push_back(wrong("formats",
                                  format.name + " has " + std::to_string(*bits) +
                                          " bits a pixel: the host's pictures will be wrong",
                                  "echo " + std::to_string(static_cast<int>(wanted * 8)) + " >" +
                                          format.path +
                                          "/bBitsPerPixel, with the function unbound"));
    }
    return format;
}

std::optional<Format> readMjpeg(Findings* findings) {
    Format format{"MJPEG", kStreaming + "/mjpeg/m", 0, {}};
    if (!fs::is_directory(format.path)) return std::nullopt;
    readFrames(&format, findings);
    return format.frames.empty() ? std::nullopt : std::optional<Format>(format);
}

// ---- what is wrong with it ----------------------------------------------------------------------

void checkAttributes(Findings* findings) {
    for (const char* name : {"streaming_interval", "streaming_maxburst", "streaming_maxpacket"}) {
        if (numberIn(kFunction + "/" + name)) continue;
        findings->push_back(wrong("function",
                                  std::string(name) + " is not a number: the service ends at it",
                                  "chmod a+r " + kFunction + "/*; korvane-gadget status"));
    }
    if (!numberIn(kFunction + "/control/header/h/bcdUVC")) {
        findings->push_back(wrong("function",
                                  "control/header/h/bcdUVC can't be read: the service ends at it",
                                  kRemake));
    }
}

void checkLinks(const std::vector<Format>& formats, Findings* findings) {
    const std::string header = kStreaming + "/header/h";
    for (const Format& format : formats) {
        if (fs::exists(header + "/" + fs::path(format.path).filename().string())) continue;
        findings->push_back(
                wrong("header", format.name + " is not in the streaming header",
                      "ln -s " + format.path + " " + header + ", with the function unbound"));
    }
    for (const char* speed : {"streaming/class/fs", "streaming/class/hs", "control/class/fs"}) {
        if (fs::exists(kFunction + "/" + speed + "/h")) continue;
        findings->push_back(
                wrong("header", std::string(speed) + " has no header: no host takes it", kRemake));
    }
}

// The service numbers formats and frames by its own rule; the host, in the order in which the links
// and folders were made.
void checkOrder(const std::vector<Format>& formats, Findings* findings) {
    const size_t before = findings->size();
    for (size_t i = 0; i < formats.size(); ++i) {
        const auto index = numberIn(formats[i].path + "/bFormatIndex");
        if (index && *index != 0 && *index != i + 1) {
            findings->push_back(wrong("order",
                                      formats[i].name + " is the host's format " +
                                              std::to_string(*index) + " and the service's " +
                                              std::to_string(i + 1),
                                      kRemake));
        }
        for (size_t n = 0; n < formats[i].frames.size(); ++n) {
            const Frame& frame = formats[i].frames[n];
            const auto number = numberIn(formats[i].path + "/" + frame.name + "/bFrameIndex");
            if (!number || *number == 0 || *number == n + 1) continue;
            findings->push_back(wrong("order",
                                      formats[i].name + " " + frame.name + " is the host's frame " +
                                              std::to_string(*number) + " and the service's " +
                                              std::to_string(n + 1),
                                      kRemake));
        }
    }
    if (findings->size() == before) {
        findings->push_back(right("order", "host and service number formats and sizes alike"));
    }
}

double busBytesPerSecond() {
    const uint32_t packet = numberIn(kFunction + "/streaming_maxpacket").value_or(0);
    const uint32_t interval = numberIn(kFunction + "/streaming_interval").value_or(1);
    if (packet <= kPacketHeader || interval < 1 || interval > 16) return 0;
    return static_cast<double>(packet - kPacketHeader) * kPacketsPerSecond / (1u << (interval - 1));
}

void checkRates(const std::vector<Format>& formats, Findings* findings) {
    const double bus = busBytesPerSecond();
    const size_t before = findings->size();
    for (const Format& format : formats) {
        for (const Frame& frame : format.frames) {
            const uint32_t shortest =
                    *std::min_element(frame.intervals.begin(), frame.intervals.end());
            if (shortest == 0) {
                findings->push_back(wrong("rates",
                                          format.name + " " + frame.name + " has an interval of 0",
                                          kRemake));
                continue;
            }
            const double size = format.bytesPerPixel * frame.pixels();
            const double needed = size * 1e7 / shortest;
            if (needed <= bus) continue;
            char text[160];
            snprintf(text, sizeof(text),
                     "%s %ux%u at %.0f needs %.1f MB/s, and the bus carries %.1f: it comes at %.0f",
                     format.name.c_str(), frame.width, frame.height, 1e7 / shortest, needed / 1e6,
                     bus / 1e6, bus / size);
            findings->push_back(note("rates", text,
                                     "choose MJPEG or a smaller size at the host, or offer a lower "
                                     "rate: korvane-gadget up --format"));
        }
    }
    if (findings->size() == before) {
        findings->push_back(right("rates", "the bus carries every size at every rate"));
    }
}

// Kernels from 6.12 on rewrite the numbers for the service.
bool rewritesInterfaces(const std::string& release) {
    unsigned major = 0;
    unsigned minor = 0;
    if (sscanf(release.c_str(), "%u.%u", &major, &minor) != 2) return false;
    return major > 6 || (major == 6 && minor >= 12);
}

void checkInterfaces(const std::string& release, Findings* findings) {
    const auto control = numberIn(kFunction + "/control/bInterfaceNumber");
    const auto streaming = numberIn(kFunction + "/streaming/bInterfaceNumber");
    if (!control || !streaming) return;
    if (*control == 0 && *streaming == 1) {
        findings->push_back(right("interfaces", "they are 0 and 1"));
    } else if (rewritesInterfaces(release)) {
        findings->push_back(right("interfaces", "the kernel gives them to the service as 0 and 1"));
    } else {
        findings->push_back(wrong(
                "interfaces",
                "they are " + std::to_string(*control) + " and " + std::to_string(*streaming) +
                        ", but the service answers for 0 and 1 only",
                "make uvc.0 the first function of the device: korvane-gadget down; "
                "korvane-gadget up"));
    }
}

bool isLinked() {
    for (const std::string& config : foldersIn(kGadget + "/configs")) {
        for (const std::string& link : entriesOf(kGadget + "/configs/" + config)) {
            std::error_code none;
            const fs::path target =
                    fs::read_symlink(fs::path(kGadget) / "configs" / config / link, none);
            if (target.filename() == "uvc.0") return true;
        }
    }
    return false;
}

Findings checkBound(std::string* udc) {
    const std::string bound = attribute(kGadget + "/UDC");
    *udc = bound;
    if (!isLinked()) {
        return {wrong("bound", "uvc.0 is in no configuration of the device",
                      "ln -s " + kFunction + " " + kGadget + "/configs/c.1/")};
    }
    if (bound.empty()) {
        return {wrong("bound", "the function is bound to no controller", "korvane-gadget bind")};
    }
    if (!fs::exists("/sys/class/udc/" + bound)) {
        return {wrong("bound", "its controller " + bound + " is gone",
                      "korvane-gadget unbind; korvane-gadget bind")};
    }
    return {right("bound", "to " + bound)};
}

std::optional<Finding> missingFunction() {
    if (!fs::is_directory(kGadget)) {
        return wrong("function", "there is no " + kGadget, "korvane-gadget up");
    }
    if (fs::is_directory(kFunction)) return std::nullopt;
    for (const std::string& name : foldersIn(kGadget + "/functions")) {
        if (name.rfind("uvc.", 0) != 0) continue;
        return wrong("function", "the function is called " + name + ", but only uvc.0 is read",
                     kRemake);
    }
    return wrong("function", "the device has no webcam function (module usb_f_uvc)",
                 "modprobe usb_f_uvc; korvane-gadget down; korvane-gadget up");
}

}  // namespace

Findings checkFunction(const std::string& release, std::string* udc) {
    if (const auto missing = missingFunction()) return {*missing};
    Findings findings;
    checkAttributes(&findings);
    if (findings.empty()) findings.push_back(right("function", "uvc.0 is there and can be read"));

    checkNames("uncompressed", "u", &findings);
    checkNames("mjpeg", "m", &findings);
    std::vector<Format> formats;
    if (const auto format = readUncompressed(&findings)) formats.push_back(*format);
    if (const auto format = readMjpeg(&findings)) formats.push_back(*format);
    if (formats.empty()) {
        findings.push_back(wrong("formats", "the function has no format with a size", kRemake));
        return findings;
    }
    std::string names;
    for (const Format& format : formats) names += (names.empty() ? "" : ", ") + format.name;
    findings.push_back(right("formats", names));
    checkLinks(formats, &findings);
    checkOrder(formats, &findings);
    checkRates(formats, &findings);
    for (const Finding& finding : checkBound(udc)) findings.push_back(finding);
    checkInterfaces(release, &findings);
    return findings;
}

}  // namespace korvane::ctl
