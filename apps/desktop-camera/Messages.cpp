// SPDX-License-Identifier: Apache-2.0
#include "Messages.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace korvane::camera {
namespace {

using rapidjson::Document;
using rapidjson::Value;

/** The object that a text consists of; null, which has no members, for any other text. */
Document parse(const std::string& text) {
    Document document;
    document.Parse(text.data(), text.size());
    if (document.HasParseError() || !document.IsObject()) document.SetNull();
    return document;
}

const Value* member(const Document& document, const char* name) {
    if (!document.IsObject()) return nullptr;
    const auto found = document.FindMember(name);
    return found == document.MemberEnd() ? nullptr : &found->value;
}

bool readCount(const Document& document, const char* name, uint32_t* out) {
    const Value* value = member(document, name);
    if (value == nullptr || !value->IsUint() || value->GetUint() == 0) return false;
    *out = value->GetUint();
    return true;
}

}  // namespace

const char kGetStreamConfig[] = "{\"get-stream-config\":true}";

Event eventFrom(const std::string& command) {
    const Document document = parse(command);
    if (const Value* event = member(document, "event"); event != nullptr && event->IsString()) {
        if (*event == "stream-start") return Event::START;
        if (*event == "stream-stop") return Event::STOP;
    }
    const Value* start = member(document, "webcam-start");
    return start != nullptr && start->IsTrue() ? Event::START : Event::NONE;
}

bool asksForStatus(const std::string& command) {
    return member(parse(command), "get-camera-status") != nullptr;
}

bool streamConfigFrom(const std::string& reply, PictureFormat* format) {
    const Document document = parse(reply);
    const Value* fourcc = member(document, "v4l2-format");
    const Value* fps = member(document, "fps");
    if (!readCount(document, "width", &format->width) ||
        !readCount(document, "height", &format->height) || fourcc == nullptr ||
        !fourcc->IsString() || fps == nullptr || !fps->IsNumber()) {
        return false;
    }
    format->fourcc = fourcc->GetString();
    format->fps = fps->GetDouble();
    return format->fps > 0;
}

std::string createSurfaceCommand(const PictureFormat& format, uint32_t consumerUsage) {
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    writer.StartObject();
    writer.Key("create-surface");
    writer.StartObject();
    writer.Key("width");
    writer.Uint(format.width);
    writer.Key("height");
    writer.Uint(format.height);
    writer.Key("consumer-usage");
    writer.Uint(consumerUsage);
    writer.Key("v4l2-format");
    writer.String(format.fourcc.c_str());
    writer.Key("fps");
    writer.Double(format.fps);
    writer.EndObject();
    writer.EndObject();
    return text.GetString();
}

}  // namespace korvane::camera
