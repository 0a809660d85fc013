// SPDX-License-Identifier: Apache-2.0
#include "HostTimes.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace korvane::testcard {
namespace {

struct HostFrame {
    std::optional<uint64_t> sequence;
    uint64_t timeUs = 0;
};

std::optional<HostFrame> frameOfV4l2Ctl(const std::string& line) {
    const size_t buffer = line.find("cap dqbuf:");
    if (buffer == std::string::npos) return std::nullopt;
    const size_t sequence = line.find(" seq:", buffer);
    const size_t time = line.find(" ts: ", buffer);
    uint64_t number = 0;
    uint64_t seconds = 0;
    uint64_t micros = 0;
    if (sequence == std::string::npos || time == std::string::npos ||
        sscanf(&line[sequence], " seq: %" SCNu64, &number) != 1 ||
        sscanf(&line[time], " ts: %" SCNu64 ".%6" SCNu64, &seconds, &micros) != 2) {
        return std::nullopt;
    }
    return HostFrame{number, seconds * 1'000'000 + micros};
}

std::optional<HostFrame> frameInLine(const std::string& line) {
    if (const auto frame = frameOfV4l2Ctl(line)) return frame;
    uint64_t micros = 0;
    int end = 0;
    if (sscanf(line.c_str(), "%" SCNu64 "%n", &micros, &end) == 1 &&
        static_cast<size_t>(end) == line.size()) {
        return HostFrame{std::nullopt, micros};
    }
    return std::nullopt;
}

}  // namespace

HostTimes HostTimes::read(std::istream& in) {
    HostTimes times;
    std::optional<uint64_t> last;
    for (std::string line; std::getline(in, line);) {
        const auto frame = frameInLine(line);
        if (!frame) continue;
        times.received.push_back(frame->timeUs);
        if (frame->sequence && last && *frame->sequence > *last) {
            times.dropped += *frame->sequence - *last - 1;
        }
        last = frame->sequence;
    }
    return times;
}

std::optional<Latency> latencyOf(std::vector<int64_t> measured) {
    if (measured.empty()) return std::nullopt;
    std::sort(measured.begin(), measured.end());
    const size_t last = measured.size() - 1;
    return Latency{measured[0], measured[last / 2], measured[last * 95 / 100], measured[last]};
}

double rateOf(const std::vector<uint64_t>& timesUs) {
    if (timesUs.size() < 2 || timesUs.back() <= timesUs.front()) return 0;
    const auto span = static_cast<double>(timesUs.back() - timesUs.front());
    return 1e6 * static_cast<double>(timesUs.size() - 1) / span;
}

}  // namespace korvane::testcard
