// SPDX-License-Identifier: Apache-2.0
#include "CheckOptions.h"

#include <functional>

#include "options/Options.h"

namespace korvane::testcard {
namespace {

using Take = std::function<std::string(const std::string&)>;

Take takePath(std::string* path) {
    return [path](const std::string& value) -> std::string {
        *path = value;
        return value.empty() ? "the path of a file" : "";
    };
}

Take takeFormat(std::optional<PixelFormat>* format) {
    return [format](const std::string& value) -> std::string {
        *format = formatFromName(value);
        return *format ? "" : "MJPG, YUYV or NV12";
    };
}

Take takeSize(std::optional<StripLayout>* layout) {
    return [layout](const std::string& value) -> std::string {
        unsigned width = 0;
        unsigned height = 0;
        if (options::sizeFrom(value, &width, &height))
            *layout = StripLayout::forSize(width, height);
        return *layout ? "" : "a size in which the test card can be drawn, like 1280x720,";
    };
}

Take takeCount(size_t* count) {
    return [count](const std::string& value) -> std::string {
        unsigned long number = 0;
        if (!options::numberFrom(value, 0, 1'000'000'000, &number)) return "a number of frames";
        *count = number;
        return "";
    };
}

}  // namespace

std::string CheckOptions::read(const std::vector<std::string>& arguments) {
    options::Options line(
            "testcard-check",
            "Check every frame in CAPTURE (a file from v4l2-ctl's --stream-to or --stream-to-hdr)\n"
            "against what the camera drew. One line of JSON with the counts goes to stdout, what "
            "is\n"
            "wrong with single frames to stderr. Status 0: all is right, 1: something is wrong,\n"
            "2: the check could not be made.",
            {{"--format", "FORMAT", "What was captured: MJPG, YUYV or NV12.", takeFormat(&format)},
             {"--size", "WIDTHxHEIGHT", "The size that was captured.", takeSize(&layout)},
             {"--log", "FILE", "The log of the camera (desktop-camera --log).", takePath(&log)},
             {"--times", "FILE",
              "When each frame was received, for the latency: what v4l2-ctl --verbose wrote, or a\n"
              "        line with monotonic microseconds for each frame, and the number that the "
              "host's\n"
              "        driver gave it. By those numbers frames are put in order first: a driver "
              "may\n"
              "        deliver one before the frame that it follows.",
              takePath(&times)},
             {"--max-lost", "COUNT", "How many frames may be lost before it is an error (0).",
              takeCount(&maxLost)},
             {"--contact-sheet", "FILE", "Write a PNG picture of some of the frames.",
              takePath(&contactSheet)},
             {"--codes", "",
              "Check nothing: print for each frame its number and why a card stands in for the\n"
              "        camera's picture (starting, absent, failed, ended, silent, covered), "
              "\"none\" on\n"
              "        the test card, or \"no code\". Needs no log.",
              [this](const std::string&) {
                  codesOnly = true;
                  return "";
              }}},
            "CAPTURE", takePath(&capture));
    std::string wrong = line.read(arguments);
    if (line.wantsHelp()) help = line.help();
    if (!wrong.empty() || line.wantsHelp()) return wrong;
    if (!format) return "testcard-check: --format is missing: MJPG, YUYV or NV12";
    if (!layout) return "testcard-check: --size is missing: the size of the frames, like 1280x720";
    if (log.empty() && !codesOnly) return "testcard-check: --log is missing: the log of the camera";
    return "";
}

}  // namespace korvane::testcard
