// SPDX-License-Identifier: Apache-2.0
#include "CameraReport.h"

#include <algorithm>
#include <array>

#include <fcntl.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace korvane::ctl {

using ::android::base::unique_fd;
using rapidjson::Value;

namespace {

constexpr size_t kLongest = 4096;

// Whatever is at the path, even a pipe, is read without blocking.
std::string contents(const std::string& path) {
    const unique_fd file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    std::array<char, kLongest> text;
    const ssize_t size = file.get() < 0 ? -1 : read(file.get(), text.data(), text.size());
    return size <= 0 ? "" : std::string(text.data(), size);
}

std::string textOf(const Value& object, const char* name) {
    const auto found = object.FindMember(name);
    if (found == object.MemberEnd() || !found->value.IsString()) return "";
    return {found->value.GetString(), found->value.GetStringLength()};
}

// The camera's texts come from elements and devices: nothing in them may move a terminal's cursor.
std::string printable(std::string text) {
    std::replace_if(
            text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; }, '?');
    return text;
}

std::string sentenceOf(const Value& camera) {
    const auto streaming = camera.FindMember("streaming");
    if (streaming == camera.MemberEnd() || !streaming->value.IsTrue()) return "draws nothing";
    const std::string notice = textOf(camera, "notice");
    const std::string text = textOf(camera, "text");
    if (notice == "none") return text.empty() ? "draws its source's pictures" : text;
    return "shows a card, " + notice + (text.empty() ? "" : ": " + text);
}

bool isCamera(const Client& client) {
    return client.name == "stream" || client.name == "launcher";
}

}  // namespace

std::optional<CameraReport> readCameraReport(const std::string& path, const Status& status) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(contents(path).c_str());
    if (document.HasParseError() || !document.IsObject()) return std::nullopt;
    const auto pid = document.FindMember("pid");
    const auto camera = document.FindMember("camera");
    if (pid == document.MemberEnd() || !pid->value.IsInt() || camera == document.MemberEnd() ||
        !camera->value.IsObject()) {
        return std::nullopt;
    }
    const bool known =
            std::any_of(status.clients.begin(), status.clients.end(), [&](const Client& client) {
                return isCamera(client) && client.pid == pid->value.GetInt();
            });
    if (!known) return std::nullopt;
    rapidjson::StringBuffer json;
    rapidjson::Writer<rapidjson::StringBuffer> writer(json);
    camera->value.Accept(writer);
    return CameraReport{json.GetString(), printable(sentenceOf(camera->value))};
}

std::string pageWith(const CameraReport& camera, const std::string& page) {
    const std::string line = "Camera:   " + camera.sentence + "\n";
    const size_t surface = page.find("\nSurface:");
    const size_t end = surface == std::string::npos ? surface : page.find('\n', surface + 1);
    if (end == std::string::npos) return page + line;
    return page.substr(0, end + 1) + line + page.substr(end + 1);
}

std::string jsonWith(const CameraReport& camera, const std::string& json) {
    const size_t end = json.rfind('}');
    if (end == std::string::npos) return json;
    return json.substr(0, end) + ",\"camera\":" + camera.json + json.substr(end);
}

}  // namespace korvane::ctl
