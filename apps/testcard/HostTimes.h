// SPDX-License-Identifier: Apache-2.0
// When the host received the frames of a capture, and what follows from it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <vector>

namespace korvane::testcard {

/** What is known about a capture from the host's side. */
struct HostTimes {
    std::vector<uint64_t> received;  // monotonic microseconds, one for each frame as it came
    /**
     * The indices of the frames in the order of the driver's numbers, or as they came where it gave
     * none. A driver that copies frames on several processors may deliver one before the frame
     * that it follows.
     */
    std::vector<size_t> order;
    size_t swapped = 0;  // frames that came after one that follows them
    size_t dropped = 0;  // frames that the host's driver counted but did not deliver

    /**
     * Parses what `v4l2-ctl --verbose` says about its buffers ("cap dqbuf: ... seq: NUMBER ... ts:
     * SECONDS.MICROSECONDS") and lines with just a number of microseconds, or that and the driver's
     * number; ignores other lines.
     */
    static HostTimes read(std::istream& in);
};

/** How long frames took from being drawn to being received, in microseconds. */
struct Latency {
    int64_t min = 0;
    int64_t median = 0;
    int64_t p95 = 0;
    int64_t max = 0;
};

/** Statistics over some measurements; nothing if there are none. */
std::optional<Latency> latencyOf(std::vector<int64_t> measured);

/** Frames per second over a whole increasing series of times; 0 if there are fewer than two. */
double rateOf(const std::vector<uint64_t>& timesUs);

}  // namespace korvane::testcard
