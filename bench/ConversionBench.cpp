// SPDX-License-Identifier: Apache-2.0
// YUYV from NV12: its cost compared with copying the same bytes, and that of the two library calls.

#include <cstdint>
#include <cstring>
#include <deque>

#include <benchmark/benchmark.h>
#include <libyuv.h>

#include "support/Samples.h"
#include "support/SharedMemory.h"
#include "uvc/YuyvConverter.h"

namespace korvane::bench {
namespace {

using korvane::hardware::camera::desktop::V2_0::implementation::YuyvConverter;
using korvane::hardware::camera::desktop::V2_0::implementation::yuyvSize;

// As many frames as a stream has in flight, so that the caches are no warmer here than there.
constexpr int kSources = 6;
constexpr int kTargets = 4;

struct Pictures {
    Pictures(uint32_t width, uint32_t height)
        : width(static_cast<int>(width)),
          height(static_cast<int>(height)),
          size(yuyvSize(width, height)),
          scratch(size) {
        for (int i = 0; i < kSources; ++i) sources.emplace_back(size);
        for (int i = 0; i < kTargets; ++i) targets.emplace_back(size);
    }

    uint8_t* source() const { return sources[frame % kSources].data(); }
    uint8_t* target() const { return targets[frame % kTargets].data(); }
    android_ycbcr planes() const {
        android_ycbcr nv12 = {};
        nv12.y = source();
        nv12.cb = source() + size / 2;
        nv12.cr = source() + size / 2 + 1;
        nv12.ystride = width;
        nv12.cstride = width;
        nv12.chroma_step = 2;
        return nv12;
    }

    const int width;
    const int height;
    const size_t size;
    const SharedMemory scratch;
    std::deque<SharedMemory> sources;
    std::deque<SharedMemory> targets;
    size_t frame = 0;
};

void toI420(const Pictures& pictures) {
    const int width = pictures.width;
    const android_ycbcr planes = pictures.planes();
    uint8_t* const y = pictures.scratch.data();
    uint8_t* const u = y + pictures.size / 2;
    uint8_t* const v = u + pictures.size / 4;
    libyuv::Android420ToI420(static_cast<uint8_t*>(planes.y), width,
                             static_cast<uint8_t*>(planes.cb), width,
                             static_cast<uint8_t*>(planes.cr), width, 2, y, width, u, width / 2, v,
                             width / 2, width, pictures.height);
}

void toYuyv(const Pictures& pictures) {
    const int width = pictures.width;
    const uint8_t* const y = pictures.scratch.data();
    const uint8_t* const u = y + pictures.size / 2;
    const uint8_t* const v = u + pictures.size / 4;
    libyuv::I420ToYUY2(y, width, u, width / 2, v, width / 2, pictures.target(), 2 * width, width,
                       pictures.height);
}

// Frame by frame in turn, so that whatever else the machine does affects all of them alike.
void conversion(benchmark::State& state) {
    Pictures pictures(state.range(0), state.range(1));
    YuyvConverter converter;
    Samples copy, convert, first, second;
    const auto cpu = [](auto call) { return timed(CLOCK_THREAD_CPUTIME_ID, call); };
    for (auto _ : state) {
        ++pictures.frame;
        copy.add(cpu([&] { memcpy(pictures.target(), pictures.source(), pictures.size); }));
        ++pictures.frame;
        convert.add(cpu([&] {
            converter.convert(pictures.planes(), pictures.width, pictures.height,
                              pictures.target());
        }));
        ++pictures.frame;
        first.add(cpu([&] { toI420(pictures); }));
        second.add(cpu([&] { toYuyv(pictures); }));
    }
    state.counters["bytes"] = static_cast<double>(pictures.size);
    copy.report(state, "memcpy");
    convert.report(state, "cpu");
    first.report(state, "to_i420");
    second.report(state, "to_yuyv");
}

BENCHMARK(conversion)
        ->Name("conversion")
        ->ArgNames({"w", "h"})
        ->Args({640, 480})
        ->Args({1280, 720})
        ->Args({1920, 1080})
        ->Args({3840, 2160});

}  // namespace
}  // namespace korvane::bench

BENCHMARK_MAIN();
