// SPDX-License-Identifier: Apache-2.0
#include "HostTimes.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace korvane::testcard {
namespace {

std::optional<uint64_t> timeInLine(const std::string& line) {
    uint64_t seconds = 0;
    uint64_t micros = 0;
    int end = 0;
    const size_t buffer = line.find("cap dqbuf:");
    const size_t time = line.find(" ts: ");
    if (buffer != std::string::npos && time != std::string::npos) {
        const char* text = line.c_str() + time;
        if (sscanf(text, " ts: %" SCNu64 ".%6" SCNu64, &seconds, &micros) != 2) return std::nullopt;
        return seconds * 1'000'000 + micros;
    }
    if (sscanf(line.c_str(), "%" SCNu64 "%n", &micros, &end) == 1 &&
        static_cast<size_t>(end) == line.size()) {
        return micros;
    }
    return std::nullopt;
}

}  // namespace

std::vector<uint64_t> readHostTimes(std::istream& in) {
    std::vector<uint64_t> times;
    for (std::string line; std::getline(in, line);) {
        if (const auto time = timeInLine(line)) times.push_back(*time);
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
