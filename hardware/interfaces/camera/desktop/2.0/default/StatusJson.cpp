// SPDX-License-Identifier: Apache-2.0
#include "StatusJson.h"

#include <array>

#include <unistd.h>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "StatusNames.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

constexpr double kMsPerSecond = 1000.0;

void writeSeconds(Writer* writer, const char* key, int64_t ms) {
    writer->Key(key);
    writer->Double(static_cast<double>(ms) / kMsPerSecond);
}

void writeText(Writer* writer, const char* key, const std::string& text) {
    writer->Key(key);
    writer->String(text.c_str());
}

void writeNumber(Writer* writer, const char* key, uint64_t number) {
    writer->Key(key);
    writer->Uint64(number);
}

void writePicture(Writer* writer, const ServiceStats::Picture& picture) {
    writeText(writer, "format", formatName(picture.format));
    writeNumber(writer, "width", picture.width);
    writeNumber(writer, "height", picture.height);
    writer->Key("fps");
    writer->Double(finite(picture.fps));
}

void writeNode(Writer* writer, const ServiceStats& stats) {
    writer->Key("node");
    writer->StartObject();
    writeText(writer, "path", nodePath(stats));
    writeText(writer, "state", nameOf(stats.node()));
    writer->EndObject();

    writer->Key("mode");
    if (stats.node() == NodeState::READY || stats.node() == NodeState::STREAMING) {
        writer->StartObject();
        writePicture(writer, stats.mode());
        writeNumber(writer, "interval", stats.interval());
        writer->EndObject();
    } else {
        writer->Null();
    }

    writer->Key("buffers");
    writer->StartArray();
    for (size_t i = 0; stats.buffer(i) != BufferState::NONE; ++i) {
        writer->String(nameOf(stats.buffer(i)));
    }
    writer->EndArray();
}

void writeSurface(Writer* writer, const ServiceStats& stats) {
    const ServiceStats::Picture surface = stats.surface();
    writer->Key("surface");
    if (surface.format == 0) {
        writer->Null();
        return;
    }
    writer->StartObject();
    writePicture(writer, surface);
    writeNumber(writer, "usage", stats.surfaceUsage());
    writer->Key("renderer");
    writer->Int(stats.renderer());
    writer->Key("suspended");
    writer->Bool(stats.suspended());
    writer->EndObject();
}

void writeClients(Writer* writer, const ServiceStats& stats) {
    writer->Key("clients");
    writer->StartArray();
    for (size_t kind = 0; kind < ServiceStats::kClients; ++kind) {
        const ServiceStats::Client client = stats.client(kind);
        if (client.pid == 0) continue;
        writer->StartObject();
        writeNumber(writer, "kind", kind);
        writeText(writer, "name", nameOfKind(kind));
        writer->Key("pid");
        writer->Int(client.pid);
        writeSeconds(writer, "seconds", stats.nowMs() - client.sinceMs);
        writer->EndObject();
    }
    writer->EndArray();
}

// of: returns the value of a count.
template <typename Of>
void writeCounts(Writer* writer, Of of) {
    for (size_t i = 0; i < static_cast<size_t>(Count::COUNTS); ++i) {
        const auto count = static_cast<Count>(i);
        writeNumber(writer, nameOf(count), of(count));
    }
}

void writeAllCounts(Writer* writer, const ServiceStats& stats) {
    writer->Key("stream");
    writer->StartObject();
    const int64_t startMs = stats.streamStartMs();
    if (startMs >= 0) writeSeconds(writer, "seconds", stats.nowMs() - startMs);
    writeCounts(writer, [&stats](Count count) { return stats.sinceStream(count); });
    writer->EndObject();

    writer->Key("start");
    writer->StartObject();
    writeCounts(writer, [&stats](Count count) { return stats.total(count); });
    writer->EndObject();
}

void writeTimes(Writer* writer, const char* key, const LatencyHistogram& times) {
    writer->Key(key);
    writer->StartObject();
    writer->Key("stream");
    writer->StartArray();
    for (size_t i = 0; i < LatencyHistogram::kClasses; ++i) writer->Uint64(times.sinceMark(i));
    writer->EndArray();
    writer->Key("start");
    writer->StartArray();
    for (size_t i = 0; i < LatencyHistogram::kClasses; ++i) writer->Uint64(times.total(i));
    writer->EndArray();
    writer->EndObject();
}

void writeLatency(Writer* writer, const ServiceStats& stats) {
    writer->Key("latency");
    writer->StartObject();
    writer->Key("below-us");
    writer->StartArray();
    for (size_t i = 0; i + 1 < LatencyHistogram::kClasses; ++i) {
        writer->Uint(LatencyHistogram::boundUs(i));
    }
    writer->EndArray();
    writeTimes(writer, "arrival-to-queueing", stats.queueing());
    writeTimes(writer, "queueing-to-return", stats.sending());
    writer->EndObject();
}

void writeEvents(Writer* writer, const ServiceStats& stats) {
    std::array<EventHistory::Entry, EventHistory::kEvents> entries;
    const size_t count = stats.events().read(&entries);
    writer->Key("events");
    writer->StartArray();
    for (size_t i = 0; i < count; ++i) {
        writer->StartObject();
        writeSeconds(writer, "seconds", entries[i].ms);
        writeText(writer, "what", nameOf(entries[i].event));
        writer->Key("detail");
        writer->Int(entries[i].detail);
        writeNumber(writer, "times", entries[i].times);
        writer->EndObject();
    }
    writer->EndArray();
}

}  // namespace

std::string statusJson(const ServiceStats& stats) {
    rapidjson::StringBuffer text;
    Writer writer(text);
    writer.StartObject();
    writer.Key("pid");
    writer.Int(getpid());
    writeSeconds(&writer, "seconds", stats.nowMs());
    writeNode(&writer, stats);
    writeSurface(&writer, stats);
    writeClients(&writer, stats);
    writeAllCounts(&writer, stats);
    writeLatency(&writer, stats);
    writeEvents(&writer, stats);
    writer.EndObject();
    return std::string(text.GetString()) + "\n";
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
