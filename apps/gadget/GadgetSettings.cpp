// SPDX-License-Identifier: Apache-2.0
#include "GadgetSettings.h"

#include <algorithm>
#include <cstdio>
#include <set>
#include <sstream>

#include "KernelFiles.h"
#include "options/ConfigFile.h"
#include "options/Options.h"

namespace korvane::gadget {
namespace {

using options::numberFrom;

constexpr unsigned kLargestSide = 16384;
constexpr unsigned kFastest = 999;
constexpr size_t kLongestText = 126;  // characters in a USB string
// A host given a longer description than this sees no camera, or no device at all.
constexpr size_t kMostRates = 57;        // in the descriptor of one size, whose length is a byte
constexpr size_t kRoomForSizes = 3800;   // bytes; the kernel has 4096 for the whole device
constexpr size_t kSizeDescriptor = 26;   // bytes, without any rate
constexpr size_t kRateInDescriptor = 4;  // bytes
constexpr char kKeys[] = "format, maxpacket, manufacturer, product, name, serial, controller";

bool formatFrom(const std::string& name, Format* out) {
    for (const Format format : {Format::YUYV, Format::NV12, Format::MJPEG}) {
        if (name != nameOf(format)) continue;
        *out = format;
        return true;
    }
    return false;
}

bool sideFrom(const std::string& text, unsigned* out) {
    unsigned long side = 0;
    if (!numberFrom(text, 1, kLargestSide, &side)) return false;
    *out = static_cast<unsigned>(side);
    return true;
}

std::string readSize(const std::string& text, Frame* frame) {
    const size_t by = text.find('x');
    if (by == std::string::npos || !sideFrom(text.substr(0, by), &frame->width) ||
        !sideFrom(text.substr(by + 1), &frame->height)) {
        return "size '" + text + "' is not WIDTHxHEIGHT, each from 1 to 16384";
    }
    const std::string format = nameOf(frame->format);
    if (frame->format != Format::MJPEG && frame->width % 2 != 0) {
        return "size '" + text + "': " + format + " needs an even width";
    }
    if (frame->format == Format::NV12 && frame->height % 2 != 0) {
        return "size '" + text + "': " + format + " needs an even height";
    }
    return "";
}

std::string readRates(const std::string& text, Frame* frame) {
    if (text.find_first_not_of("0123456789,") != std::string::npos) {
        return "rates '" + text + "' are not whole numbers with commas between";
    }
    std::stringstream list(text + ",");
    for (std::string item; std::getline(list, item, ',');) {
        unsigned long rate = 0;
        if (!numberFrom(item, 1, kFastest, &rate)) {
            return "rate '" + item + "' is not from 1 to 999 frames a second";
        }
        const auto same = std::find(frame->rates.begin(), frame->rates.end(), rate);
        if (same != frame->rates.end()) return "rate '" + item + "' is there twice";
        frame->rates.push_back(static_cast<unsigned>(rate));
    }
    if (frame->rates.size() > kMostRates) {
        return std::to_string(frame->rates.size()) + " rates are more than a size can have: 57";
    }
    return "";
}

}  // namespace

const char* nameOf(Format format) {
    switch (format) {
        case Format::YUYV:
            return "yuyv";
        case Format::NV12:
            return "nv12";
        case Format::MJPEG:
            return "mjpeg";
    }
    return "";
}

unsigned bitsPerPixel(Format format) {
    switch (format) {
        case Format::YUYV:
            return 16;
        case Format::NV12:
            return 12;
        case Format::MJPEG:
            return 8;
    }
    return 0;
}

std::string Frame::text() const {
    std::string text = std::string(nameOf(format)) + ":" + std::to_string(width) + "x" +
                       std::to_string(height) + "@";
    for (size_t i = 0; i < rates.size(); ++i) text += (i ? "," : "") + std::to_string(rates[i]);
    return text;
}

std::string GadgetSettings::readFile(const std::string& path) {
    std::set<std::string> seen;
    return options::readConfigFile(path, [&](const std::string& key, const std::string& value) {
        if (key != "format" && !seen.insert(key).second) return key + " is there twice";
        return set(key, value);
    });
}

std::string GadgetSettings::set(const std::string& key, const std::string& value) {
    if (key == "format") return addFormat(value);
    if (key == "maxpacket") {
        const std::string wrong = setMaxPacket(value);
        return wrong.empty() ? "" : "maxpacket " + wrong;
    }
    std::string* field = key == "manufacturer" ? &manufacturer
                         : key == "product"    ? &product
                         : key == "name"       ? &name
                         : key == "serial"     ? &serial
                         : key == "controller" ? &controller
                                               : nullptr;
    if (field == nullptr) return "unknown key '" + key + "' (known: " + kKeys + ")";
    const std::string wrong = setText(field, value);
    return wrong.empty() ? "" : key + " " + wrong;
}

std::string GadgetSettings::addFormat(const std::string& text) {
    const size_t colon = text.find(':');
    const size_t at = text.find('@');
    if (colon == 0 || colon == std::string::npos || at == std::string::npos || at <= colon + 1 ||
        at + 1 == text.size()) {
        return "'" + text + "' is not of the kind FORMAT:WxH@RATE,...";
    }
    Frame frame = {};
    const std::string format = text.substr(0, colon);
    if (!formatFrom(format, &frame.format)) {
        return "unknown format '" + format + "' (known: yuyv nv12 mjpeg)";
    }
    std::string wrong = readSize(text.substr(colon + 1, at - colon - 1), &frame);
    if (wrong.empty()) wrong = readRates(text.substr(at + 1), &frame);
    if (!wrong.empty()) return wrong;
    frames.push_back(frame);
    if (has(Format::YUYV) && has(Format::NV12)) {
        return "yuyv and nv12 exclude each other: the function has one uncompressed format";
    }
    return "";
}

std::string GadgetSettings::setMaxPacket(const std::string& text) {
    unsigned long bytes = 0;
    if (!numberFrom(text, 1, 3072, &bytes) || (bytes > 1024 && bytes % 1024 != 0)) {
        return "is '" + text + "', but 1 to 1024, 2048 or 3072 is needed";
    }
    maxPacket = static_cast<unsigned>(bytes);
    return "";
}

std::string GadgetSettings::setText(std::string* field, const std::string& text) {
    const bool plain =
            std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
    if (text.empty() || text.size() > kLongestText || !plain) {
        return "is '" + text + "', but 1 to 126 ASCII characters are needed";
    }
    *field = text;
    return "";
}

std::string GadgetSettings::finish() {
    if (frames.empty()) {
        const std::string plain = mNv12 ? "nv12:" : "yuyv:";
        for (const std::string& text :
             {plain + "640x480@30,15", plain + "1280x720@10,5", std::string("mjpeg:640x480@30"),
              std::string("mjpeg:1280x720@30"), std::string("mjpeg:1920x1080@30")}) {
            addFormat(text);
        }
    }
    std::stable_sort(frames.begin(), frames.end(),
                     [](const Frame& a, const Frame& b) { return a.pixels() < b.pixels(); });
    size_t described = 0;
    for (const Frame& frame : frames) {
        described += kSizeDescriptor + kRateInDescriptor * frame.rates.size();
    }
    if (described > kRoomForSizes) {
        return "too many sizes and rates: they take " + std::to_string(described) +
               " bytes of the device's description, in which 3800 are theirs (26 for a size and 4 "
               "for each of its rates)";
    }
    std::set<std::pair<Format, unsigned>> seen;
    for (const Frame& frame : frames) {
        if (seen.insert({frame.format, frame.pixels()}).second) continue;
        return frame.text() + " has as many pixels as another size of it, so they have no order";
    }
    return "";
}

bool GadgetSettings::has(Format format) const {
    return std::any_of(frames.begin(), frames.end(),
                       [format](const Frame& frame) { return frame.format == format; });
}

std::string machineSerial() {
    uint64_t hash = 0xcbf29ce484222325;
    for (const char c : "korvane-gadget" + readText("/etc/machine-id")) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    }
    char text[17];
    snprintf(text, sizeof(text), "%016llX", static_cast<unsigned long long>(hash));
    return text;
}

}  // namespace korvane::gadget
