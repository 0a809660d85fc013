// SPDX-License-Identifier: Apache-2.0
#include "CameraOptions.h"

#include "options/ConfigFile.h"
#include "options/Options.h"

namespace korvane::camera {

std::string CameraOptions::read(const std::vector<std::string>& arguments) {
    const auto takeSource = [this](const std::string& value) -> std::string {
        source = value;
        return value.empty() ? "a GStreamer pipeline" : "";
    };
    std::string settings;
    const auto takeSettings = [&settings](const std::string& value) -> std::string {
        settings = value;
        return value.empty() ? "the path of a file" : "";
    };
    const auto takeKind = [this](const std::string& value) -> std::string {
        if (value != "1" && value != "3" && value != "both") return "1, 3 or both";
        asLauncher = value != "3";
        asStreamClient = value != "1";
        return "";
    };
    const auto takeLog = [this](const std::string& value) -> std::string {
        log = value;
        return value.empty() ? "the path of a file" : "";
    };
    const auto takeFrames = [this](const std::string& value) -> std::string {
        unsigned long number = 0;
        if (!options::numberFrom(value, 1, UINT32_MAX - 1, &number)) return "a number from 1";
        lastFrame = static_cast<uint32_t>(number);
        return "";
    };
    options::Options line(
            "desktop-camera",
            "The camera of the webcam: renders what a host asks for, whenever one does, until it "
            "is\n"
            "ended by a signal.",
            {{"--source", "PIPELINE",
              "Where the pictures come from: a GStreamer pipeline as for gst-launch-1.0, without "
              "a\n"
              "        sink ('v4l2src device=/dev/video0'). Without it, a moving test card.",
              takeSource},
             {"--config", "FILE",
              "A file with the line \"source = PIPELINE\"; --source counts before it.",
              takeSettings},
             {"--kind", "KIND",
              "3: to be told of streams (the default); 1: to be asked to open the camera when "
              "nobody\n"
              "        else does; both.",
              takeKind},
             {"--log", "FILE", "Note every frame there, for testcard-check.", takeLog},
             {"--frames", "COUNT", "End after so many frames.", takeFrames}});
    const std::string wrong = line.read(arguments);
    if (line.wantsHelp()) help = line.help();
    if (!wrong.empty() || line.wantsHelp() || settings.empty()) return wrong;
    return readSettings(settings);
}

std::string CameraOptions::readSettings(const std::string& path) {
    const bool asked = !source.empty();
    const std::string wrong = options::readConfigFile(
            path, [this, asked](const std::string& key, const std::string& value) -> std::string {
                if (key != "source") return "unknown key '" + key + "' (known: source)";
                if (value.empty()) return "source is '', but a GStreamer pipeline is needed";
                if (!asked) source = value;
                return "";
            });
    return wrong.empty() ? "" : "desktop-camera: " + wrong;
}

}  // namespace korvane::camera
