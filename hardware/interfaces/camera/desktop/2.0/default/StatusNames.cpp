// SPDX-License-Identifier: Apache-2.0
#include "StatusNames.h"

#include <cmath>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

const char* nameOf(Count count) {
    switch (count) {
        case Count::FRAMES_DRAWN:
            return "drawn";
        case Count::FRAMES_SENT:
            return "sent";
        case Count::FRAMES_RETURNED:
            return "returned";
        case Count::FRAMES_REPEATED:
            return "repeated";
        case Count::FRAMES_STALE:
            return "stale";
        case Count::DROPPED_RATE:
            return "dropped-rate";
        case Count::DROPPED_BACKWARD:
            return "dropped-backward";
        case Count::DROPPED_SUSPENDED:
            return "dropped-suspended";
        case Count::DROPPED_NO_STREAM:
            return "dropped-no-stream";
        case Count::DROPPED_TOO_LARGE:
            return "dropped-too-large";
        case Count::DROPPED_UNREADABLE:
            return "dropped-unreadable";
        case Count::DROPPED_REFUSED:
            return "dropped-refused";
        case Count::REQUESTS_ANSWERED:
            return "requests-answered";
        case Count::REQUESTS_STALLED:
            return "requests-stalled";
        case Count::CALLS_FAILED:
            return "calls-failed";
        case Count::CLIENT_CALLS_FAILED:
            return "client-calls-failed";
        case Count::COUNTS:
            break;
    }
    return "";
}

const char* nameOf(NodeState state) {
    switch (state) {
        case NodeState::NONE:
            return "none";
        case NodeState::UNOPENED:
            return "unopened";
        case NodeState::CLOSED:
            return "closed";
        case NodeState::READY:
            return "ready";
        case NodeState::STREAMING:
            return "streaming";
    }
    return "";
}

const char* nameOf(BufferState state) {
    switch (state) {
        case BufferState::NONE:
            break;
        case BufferState::FREE:
            return "service";
        case BufferState::QUEUED:
            return "driver";
    }
    return "";
}

const char* nameOf(Event event) {
    switch (event) {
        case Event::NONE:
            break;
        case Event::NODE_OPENED:
            return "node-opened";
        case Event::NODE_UNOPENED:
            return "node-unopened";
        case Event::NODE_REMOVED:
            return "node-removed";
        case Event::CABLE_PULLED:
            return "cable-pulled";
        case Event::HOST_DISCONNECTED:
            return "host-disconnected";
        case Event::MODE_COMMITTED:
            return "mode-committed";
        case Event::STREAM_STARTED:
            return "stream-started";
        case Event::STREAM_REFUSED:
            return "stream-refused";
        case Event::STREAM_STOPPED:
            return "stream-stopped";
        case Event::SURFACE_MADE:
            return "surface-made";
        case Event::SURFACE_REFUSED:
            return "surface-refused";
        case Event::SURFACE_TAKEN:
            return "surface-taken";
        case Event::FRAMES_SUSPENDED:
            return "frames-suspended";
        case Event::FRAMES_RESUMED:
            return "frames-resumed";
        case Event::CLIENT_REGISTERED:
            return "client-registered";
        case Event::CLIENT_LEFT:
            return "client-left";
        case Event::CLIENT_DIED:
            return "client-died";
        case Event::CLIENT_FAILED:
            return "client-failed";
        case Event::CALL_FAILED:
            return "call-failed";
        case Event::WRITES_GIVEN_UP:
            return "writes-given-up";
        case Event::DUMP_STARTED:
            return "dump-started";
    }
    return "";
}

const char* nameOfKind(size_t kind) {
    switch (kind) {
        case 1:
            return "launcher";
        case 3:
            return "stream";
        case 4:
            return "controller";
        default:
            return "other";
    }
}

std::string nodePath(const ServiceStats& stats) {
    const int32_t number = stats.nodeNumber();
    return number < 0 ? "" : "/dev/video" + std::to_string(number);
}

std::string formatName(uint32_t format) {
    std::string name;
    for (; format != 0; format >>= 8) {
        const char c = static_cast<char>(format & 0xff);
        name += c >= ' ' && c <= '~' ? c : '?';
    }
    return name;
}

double finite(float fps) {
    return std::isfinite(fps) ? fps : 0.0;
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
