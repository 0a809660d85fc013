// SPDX-License-Identifier: Apache-2.0
// Times of single frames, and statistics about them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace korvane::bench {

/** Nanoseconds of a clock: CLOCK_MONOTONIC, CLOCK_THREAD_CPUTIME_ID or another thread's. */
inline int64_t now(clockid_t clock) {
    timespec time;
    clock_gettime(clock, &time);
    return int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

/** How long a call takes on a clock. */
template <typename Call>
int64_t timed(clockid_t clock, Call call) {
    const int64_t start = now(clock);
    call();
    return now(clock) - start;
}

/** Durations in nanoseconds. Adding one doesn't allocate until there are `capacity`. */
class Samples {
  public:
    explicit Samples(size_t capacity = 1 << 16) { mNs.reserve(capacity); }

    void add(int64_t ns) { mNs.push_back(ns); }

    /** The value below which that share of the samples lies, in microseconds; 0 without any. */
    double quantile(double share) {
        if (mNs.empty()) return 0;
        const auto at =
                mNs.begin() + static_cast<ptrdiff_t>(share * static_cast<double>(mNs.size() - 1));
        std::nth_element(mNs.begin(), at, mNs.end());
        return static_cast<double>(*at) / 1000;
    }
    double least() { return quantile(0); }
    double median() { return quantile(0.5); }

    /** Counters NAME_min and NAME_median, in microseconds. */
    void report(benchmark::State& state, const std::string& name) {
        state.counters[name + "_min"] = least();
        state.counters[name + "_median"] = median();
    }

  private:
    std::vector<int64_t> mNs;
};

}  // namespace korvane::bench
