// SPDX-License-Identifier: Apache-2.0
// What the service says about itself, parsed from its JSON.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace korvane::ctl {

/** The program's exit codes, for scripts. */
enum ExitCode {
    READY = 0,        // streaming, or ready to stream
    FAILED = 1,       // what was asked for couldn't be done
    WRONG_USAGE = 2,  // bad command line
    NOT_RUNNING = 3,  // no service answers
    NO_NODE = 4,      // the service has no node that it could open
    NO_CAMERA = 5,    // no camera has registered
};

struct Picture {
    std::string format;
    uint32_t width = 0;
    uint32_t height = 0;
    double fps = 0;
};

struct Client {
    unsigned kind = 0;
    std::string name;
    int pid = 0;
    double seconds = 0;
};

struct Surface {
    Picture picture;
    int renderer = 0;
    bool suspended = false;
};

/** A histogram of times of one kind. */
struct Latency {
    std::vector<uint64_t> counts;  // since the stream's start
};

struct Status {
    int pid = 0;
    double seconds = 0;
    std::string nodePath;
    std::string nodeState;
    std::optional<Picture> mode;
    std::vector<std::string> buffers;
    std::vector<Client> clients;
    std::optional<Surface> surface;
    double streamSeconds = 0;
    std::map<std::string, uint64_t> stream;  // counts since the stream's start, by name
    std::map<std::string, uint64_t> start;   // the same since the service's start
    std::vector<uint64_t> belowUs;  // upper bounds of the classes of times, except the last
    Latency queueing;
    Latency sending;

    bool isStreaming() const { return nodeState == "streaming"; }
    /** A count since the stream's start; 0 for an unknown name. */
    uint64_t ofStream(const std::string& name) const;
    uint64_t ofStart(const std::string& name) const;
    /** Frames that came in and didn't go out, since the stream's start. */
    uint64_t dropped() const;
    ExitCode exitCode() const;
};

/** Parses the service's JSON; nothing if it isn't JSON, or lacks what every status has. */
std::optional<Status> parseStatus(const std::string& json);

}  // namespace korvane::ctl
