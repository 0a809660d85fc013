// SPDX-License-Identifier: Apache-2.0
#include "CameraOptions.h"

#include <functional>
#include <map>

#include "options/ConfigFile.h"
#include "options/Options.h"

namespace korvane::camera {
namespace {

using Take = std::function<std::string(const std::string&)>;

Take takeText(std::string* text, const char* wanted) {
    return [text, wanted](const std::string& value) -> std::string {
        *text = value;
        return value.empty() ? wanted : "";
    };
}

Take takeFlag(bool* flag) {
    return [flag](const std::string& /*value*/) -> std::string {
        *flag = true;
        return "";
    };
}

Take takeYesOrNo(bool* flag) {
    return [flag](const std::string& value) -> std::string {
        *flag = value == "yes";
        return value == "yes" || value == "no" ? "" : "yes or no";
    };
}

Take takeDegrees(int* degrees) {
    return [degrees](const std::string& value) -> std::string {
        if (value != "0" && value != "90" && value != "180" && value != "270") {
            return "0, 90, 180 or 270";
        }
        *degrees = std::stoi(value);
        return "";
    };
}

// Reads a file of settings: each has a key and what takes its value.
std::string readSettings(const std::string& path, const std::map<std::string, Take>& keys) {
    const std::string wrong = options::readConfigFile(
            path, [&keys](const std::string& key, const std::string& value) -> std::string {
                const auto found = keys.find(key);
                if (found == keys.end()) {
                    std::string known;
                    for (const auto& [name, take] : keys)
                        known += (known.empty() ? "" : ", ") + name;
                    return "unknown key '" + key + "' (known: " + known + ")";
                }
                const std::string wanted = found->second(value);
                return wanted.empty() ? ""
                                      : key + " is '" + value + "', but " + wanted + " is needed";
            });
    return wrong.empty() ? "" : "desktop-camera: " + wrong;
}

}  // namespace

std::string CameraOptions::read(const std::vector<std::string>& arguments) {
    const auto takeSource = [this](const std::string& value) -> std::string {
        source = value == "auto"   ? Source::kAuto
                 : value == "card" ? Source::kCard
                                   : Source::kPipeline;
        if (source == Source::kPipeline) pipeline = value;
        return value.empty() ? "a GStreamer pipeline, auto or card" : "";
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
            {{"--source", "SOURCE",
              "Where the pictures come from: a GStreamer pipeline as for gst-launch-1.0, without "
              "a\n"
              "        sink ('v4l2src device=/dev/video0'); auto: the first camera there is; card "
              "(the\n"
              "        default): a moving test card. A source that is away is tried every 2 s.",
              takeSource},
             {"--list", "", "Show the cameras and which of them auto takes, and end.",
              takeFlag(&list)},
             {"--rotate", "DEGREES", "Turn the source's pictures clockwise: 0, 90, 180 or 270.",
              takeDegrees(&turn.degrees)},
             {"--mirror", "", "Mirror them, left to right, after that.", takeFlag(&turn.mirrored)},
             {"--privacy", "FILE",
              "While FILE exists the source is stopped and the host sees a card instead.",
              takeText(&privacy, "the path of a file")},
             {"--on-start", "COMMAND",
              "Run COMMAND by the shell, beside the stream, when one begins (to light a lamp).",
              takeText(&onStart, "a command of the shell")},
             {"--on-stop", "COMMAND", "The same when it ends.",
              takeText(&onStop, "a command of the shell")},
             {"--config", "FILE",
              "A file with lines like \"source = auto\"; keys are source, rotate, mirror (yes or "
              "no),\n"
              "        privacy, on-start and on-stop. What the command line says counts before it.",
              takeSettings},
             {"--kind", "KIND",
              "3: to be told of streams (the default); 1: to be asked to open the camera when "
              "nobody\n"
              "        else does; both.",
              takeKind},
             {"--log", "FILE", "Note every frame there, for testcard-check.",
              takeText(&log, "the path of a file")},
             {"--frames", "COUNT", "End after so many frames.", takeFrames}});
    const std::string wrong = line.read(arguments);
    if (line.wantsHelp()) help = line.help();
    if (!wrong.empty() || line.wantsHelp() || settings.empty()) return wrong;
    const std::string wrongInFile =
            readSettings(settings, {{"source", takeSource},
                                    {"rotate", takeDegrees(&turn.degrees)},
                                    {"mirror", takeYesOrNo(&turn.mirrored)},
                                    {"privacy", takeText(&privacy, "the path of a file")},
                                    {"on-start", takeText(&onStart, "a command of the shell")},
                                    {"on-stop", takeText(&onStop, "a command of the shell")}});
    // Once more: what was given here counts before the file.
    return wrongInFile.empty() ? line.read(arguments) : wrongInFile;
}

}  // namespace korvane::camera
