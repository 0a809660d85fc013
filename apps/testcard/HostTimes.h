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

/**
 * Reads the receive times, in monotonic microseconds, one for each frame in order. Understood are
 * what `v4l2-ctl --verbose` says of its buffers ("cap dqbuf: ... ts: SECONDS.MICROSECONDS") and
 * lines that are a number of microseconds; other lines are passed over.
 */
std::vector<uint64_t> readHostTimes(std::istream& in);

/** How long frames took from being drawn to being received, in microseconds. */
struct Latency {
    int64_t min = 0;
    int64_t median = 0;
    int64_t p95 = 0;
    int64_t max = 0;
};

/** The figures over some measurements; nothing if there are none. */
std::optional<Latency> latencyOf(std::vector<int64_t> measured);

/** Frames per second over the whole of a rising series of times; 0 if it has fewer than two. */
double rateOf(const std::vector<uint64_t>& timesUs);

}  // namespace korvane::testcard
