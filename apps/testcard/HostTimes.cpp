// SPDX-License-Identifier: Apache-2.0
#include "HostTimes.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace korvane::testcard {
namespace {

// More than the transfers that a driver has under way: a number lower by more begins a new stream.
constexpr uint64_t kMostLate = 8;

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
    uint64_t number = 0;
    int end = 0;
    const auto isWhole = [&] { return static_cast<size_t>(end) == line.size(); };
    if (sscanf(line.c_str(), "%" SCNu64 "%n", &micros, &end) != 1) return std::nullopt;
    if (isWhole()) return HostFrame{std::nullopt, micros};
    if (sscanf(line.c_str(), "%*u %" SCNu64 "%n", &number, &end) != 1 || !isWhole()) {
        return std::nullopt;
    }
    return HostFrame{number, micros};
}

// Whether a frame that came earlier belongs behind the other.
bool follows(const HostFrame& earlier, const HostFrame& other) {
    return earlier.sequence && other.sequence && *earlier.sequence > *other.sequence &&
           *earlier.sequence - *other.sequence <= kMostLate;
}

std::vector<size_t> orderOf(const std::vector<HostFrame>& frames, size_t* swapped) {
    std::vector<size_t> order;
    for (size_t i = 0; i < frames.size(); ++i) {
        auto place = order.end();
        while (place != order.begin() && follows(frames[*(place - 1)], frames[i])) --place;
        *swapped += place != order.end();
        order.insert(place, i);
    }
    return order;
}

size_t gapsIn(const std::vector<HostFrame>& frames, const std::vector<size_t>& order) {
    size_t missing = 0;
    for (size_t i = 1; i < order.size(); ++i) {
        const auto& last = frames[order[i - 1]].sequence;
        const auto& next = frames[order[i]].sequence;
        if (last && next && *next > *last) missing += *next - *last - 1;
    }
    return missing;
}

}  // namespace

HostTimes HostTimes::read(std::istream& in) {
    HostTimes times;
    std::vector<HostFrame> frames;
    for (std::string line; std::getline(in, line);) {
        const auto frame = frameInLine(line);
        if (!frame) continue;
        times.received.push_back(frame->timeUs);
        frames.push_back(*frame);
    }
    times.order = orderOf(frames, &times.swapped);
    times.dropped = gapsIn(frames, times.order);
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
