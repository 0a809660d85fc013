// SPDX-License-Identifier: Apache-2.0
#include "CameraOptions.h"

#include <functional>
#include <map>
#include <set>
#include <vector>

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

Take takePath(std::string* path) {
    return takeText(path, "the path of a file");
}

Take takeCommand(std::string* command) {
    return takeText(command, "a command of the shell");
}

Take takeSource(CameraOptions* out) {
    return [out](const std::string& value) -> std::string {
        using Source = CameraOptions::Source;
        out->source = value == "auto"   ? Source::AUTO
                      : value == "card" ? Source::CARD
                                        : Source::PIPELINE;
        if (out->source == Source::PIPELINE) out->pipeline = value;
        return value.empty() ? "a GStreamer pipeline, auto or card" : "";
    };
}

Take takeKind(CameraOptions* out) {
    return [out](const std::string& value) -> std::string {
        if (value != "1" && value != "3" && value != "both") return "1, 3 or both";
        out->asLauncher = value != "3";
        out->asStreamClient = value != "1";
        return "";
    };
}

Take takeFrames(uint32_t* lastFrame) {
    return [lastFrame](const std::string& value) -> std::string {
        unsigned long number = 0;
        if (!options::numberFrom(value, 1, UINT32_MAX - 1, &number)) return "a number from 1";
        *lastFrame = static_cast<uint32_t>(number);
        return "";
    };
}

std::vector<options::Option> sourceOptions(CameraOptions* out) {
    return {{"--source", "SOURCE",
             "Where the pictures come from: a GStreamer pipeline as for gst-launch-1.0, without a\n"
             "        sink ('v4l2src device=/dev/video0'); auto: the first camera there is; card "
             "(the\n"
             "        default): a moving test card. A source that is away is tried every 2 s.",
             takeSource(out)},
            {"--list", "", "Show the cameras and which of them auto takes, and end.",
             takeFlag(&out->list)},
            {"--rotate", "DEGREES", "Turn the source's pictures clockwise: 0, 90, 180 or 270.",
             takeDegrees(&out->turn.degrees)},
            {"--mirror", "", "Mirror them, left to right, after that.",
             takeFlag(&out->turn.mirrored)}};
}

std::vector<options::Option> hostOptions(CameraOptions* out) {
    return {{"--privacy", "FILE",
             "While FILE exists the source is stopped and the host sees a card instead.",
             takePath(&out->privacy)},
            {"--on-start", "COMMAND",
             "Run COMMAND by the shell, beside the stream, when one begins (to light a lamp).",
             takeCommand(&out->onStart)},
            {"--on-stop", "COMMAND", "The same when it ends.", takeCommand(&out->onStop)}};
}

std::vector<options::Option> programOptions(CameraOptions* out, std::string* settings) {
    return {{"--config", "FILE",
             "A file with lines like \"source = auto\"; keys are source, rotate, mirror (yes or "
             "no),\n"
             "        privacy, on-start and on-stop. What the command line says counts before it.",
             takePath(settings)},
            {"--kind", "KIND",
             "3: to be told of streams (the default); 1: to be asked to open the camera when "
             "nobody\n"
             "        else does; both.",
             takeKind(out)},
            {"--log", "FILE", "Note every frame there, for testcard-check.", takePath(&out->log)},
            {"--frames", "COUNT", "End after so many frames.", takeFrames(&out->lastFrame)}};
}

options::Options commandLine(CameraOptions* out, std::string* settings) {
    std::vector<options::Option> all;
    for (const auto& part : {sourceOptions(out), hostOptions(out), programOptions(out, settings)}) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return {"desktop-camera",
            "The camera of the webcam: renders what a host asks for, whenever one does, until it "
            "is\n"
            "ended by a signal.",
            all};
}

std::map<std::string, Take> settingsKeys(CameraOptions* out) {
    return {{"source", takeSource(out)},
            {"rotate", takeDegrees(&out->turn.degrees)},
            {"mirror", takeYesOrNo(&out->turn.mirrored)},
            {"privacy", takePath(&out->privacy)},
            {"on-start", takeCommand(&out->onStart)},
            {"on-stop", takeCommand(&out->onStop)}};
}

std::string unknownKey(const std::string& key, const std::map<std::string, Take>& keys) {
    std::string known;
    for (const auto& [name, take] : keys) known += (known.empty() ? "" : ", ") + name;
    return "unknown key '" + key + "' (known: " + known + ")";
}

// Reads a settings file: each setting has a key and what takes its value.
std::string readSettings(const std::string& path, const std::map<std::string, Take>& keys) {
    std::set<std::string> seen;
    const auto take = [&](const std::string& key, const std::string& value) -> std::string {
        const auto found = keys.find(key);
        if (found == keys.end()) return unknownKey(key, keys);
        if (!seen.insert(key).second) return key + " is there twice";
        const std::string wanted = found->second(value);
        return wanted.empty() ? "" : key + " is '" + value + "', but " + wanted + " is needed";
    };
    const std::string wrong = options::readConfigFile(path, take);
    return wrong.empty() ? "" : "desktop-camera: " + wrong;
}

}  // namespace

std::string CameraOptions::read(const std::vector<std::string>& arguments) {
    std::string settings;
    options::Options line = commandLine(this, &settings);
    std::string wrong = line.read(arguments);
    if (line.wantsHelp()) help = line.help();
    if (!wrong.empty() || line.wantsHelp() || settings.empty()) return wrong;
    const std::string wrongInFile = readSettings(settings, settingsKeys(this));
    // Once more: what was given here overrides the file.
    return wrongInFile.empty() ? line.read(arguments) : wrongInFile;
}

}  // namespace korvane::camera
