// SPDX-License-Identifier: Apache-2.0
#include "Status.h"

#include <rapidjson/document.h>

namespace korvane::ctl {
namespace {

using rapidjson::Value;

// A member of an object, or a value of a type that nobody looks for.
const Value& member(const Value& object, const char* name) {
    static const Value none;
    if (!object.IsObject()) return none;
    const auto found = object.FindMember(name);
    return found == object.MemberEnd() ? none : found->value;
}

std::string text(const Value& object, const char* name) {
    const Value& value = member(object, name);
    return value.IsString() ? value.GetString() : "";
}

double number(const Value& object, const char* name) {
    const Value& value = member(object, name);
    return value.IsNumber() ? value.GetDouble() : 0;
}

uint32_t whole(const Value& object, const char* name) {
    const Value& value = member(object, name);
    return value.IsUint() ? value.GetUint() : 0;
}

int process(const Value& object, const char* name) {
    const Value& value = member(object, name);
    return value.IsInt() ? value.GetInt() : 0;
}

Picture picture(const Value& value) {
    return {text(value, "format"), whole(value, "width"), whole(value, "height"),
            number(value, "fps")};
}

std::map<std::string, uint64_t> counts(const Value& object) {
    std::map<std::string, uint64_t> result;
    if (!object.IsObject()) return result;
    for (const auto& entry : object.GetObject()) {
        if (entry.value.IsUint64()) result[entry.name.GetString()] = entry.value.GetUint64();
    }
    return result;
}

std::vector<uint64_t> numbers(const Value& array) {
    std::vector<uint64_t> result;
    if (!array.IsArray()) return result;
    for (const auto& entry : array.GetArray()) {
        result.push_back(entry.IsUint64() ? entry.GetUint64() : 0);
    }
    return result;
}

std::vector<Client> clients(const Value& array) {
    std::vector<Client> result;
    if (!array.IsArray()) return result;
    for (const auto& entry : array.GetArray()) {
        result.push_back({whole(entry, "kind"), text(entry, "name"), process(entry, "pid"),
                          number(entry, "seconds")});
    }
    return result;
}

std::optional<Surface> surface(const Value& value) {
    if (!value.IsObject()) return std::nullopt;
    const Value& suspended = member(value, "suspended");
    return Surface{picture(value), process(value, "renderer"),
                   suspended.IsBool() && suspended.GetBool()};
}

uint64_t find(const std::map<std::string, uint64_t>& counts, const std::string& name) {
    const auto found = counts.find(name);
    return found == counts.end() ? 0 : found->second;
}

}  // namespace

uint64_t Status::ofStream(const std::string& name) const {
    return find(stream, name);
}

uint64_t Status::ofStart(const std::string& name) const {
    return find(start, name);
}

uint64_t Status::dropped() const {
    uint64_t sum = 0;
    for (const auto& [name, count] : stream) {
        if (name.rfind("dropped-", 0) == 0) sum += count;
    }
    return sum;
}

ExitCode Status::exitCode() const {
    if (nodeState != "ready" && nodeState != "streaming") return NO_NODE;
    for (const Client& client : clients) {
        if (client.name == "stream" || client.name == "launcher") return READY;
    }
    return NO_CAMERA;
}

std::optional<Status> parseStatus(const std::string& json) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(json.c_str());
    if (document.HasParseError() || !member(document, "node").IsObject()) return std::nullopt;

    Status status;
    status.pid = process(document, "pid");
    status.seconds = number(document, "seconds");
    status.nodePath = text(document["node"], "path");
    status.nodeState = text(document["node"], "state");
    if (member(document, "mode").IsObject()) status.mode = picture(document["mode"]);
    const Value& buffers = member(document, "buffers");
    if (buffers.IsArray()) {
        for (const auto& owner : buffers.GetArray()) {
            status.buffers.emplace_back(owner.IsString() ? owner.GetString() : "");
        }
    }
    status.clients = clients(member(document, "clients"));
    status.surface = surface(member(document, "surface"));
    status.streamSeconds = number(member(document, "stream"), "seconds");
    status.stream = counts(member(document, "stream"));
    status.start = counts(member(document, "start"));
    const Value& latency = member(document, "latency");
    status.belowUs = numbers(member(latency, "below-us"));
    status.queueing.counts = numbers(member(member(latency, "arrival-to-queueing"), "stream"));
    status.sending.counts = numbers(member(member(latency, "queueing-to-return"), "stream"));
    return status;
}

}  // namespace korvane::ctl
