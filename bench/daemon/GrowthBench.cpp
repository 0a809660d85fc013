// SPDX-License-Identifier: Apache-2.0
// How the cost of reading the function's configuration, and of parsing a command, grows with the
// amount there is to read.

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "ScriptedDaemon.h"
#include "support/PrivateFiles.h"
#include "support/Samples.h"
#include "support/UvcFunctionTree.h"
#include "uvc/UvcConfig.h"

namespace korvane::bench {
namespace {

using hardware::camera::desktop::V2_0::implementation::UvcConfig;
using test::PrivateFiles;
using test::UvcFunctionTree;

/** A function with this many sizes, half in each format, unsorted, and this many intervals. */
class Function {
  public:
    Function(int sizes, int intervals) {
        UvcFunctionTree tree(mFiles);
        tree.addUncompressed("YUY2");
        tree.addMjpeg();
        std::vector<uint32_t> widths(sizes);
        for (int i = 0; i < sizes; ++i) widths[i] = 16 + 2 * i;
        std::shuffle(widths.begin(), widths.end(), std::mt19937(1));
        const std::vector<uint32_t> rates(intervals, 333333);
        for (int i = 0; i < sizes; ++i) {
            const char* const format =
                    i % 2 == 0 ? UvcFunctionTree::kMjpeg : UvcFunctionTree::kUncompressed;
            tree.addFrame(format, std::to_string(i), widths[i], 16, rates);
        }
    }

  private:
    PrivateFiles mFiles;
};

void readConfig(benchmark::State& state, int sizes, int intervals) {
    const Function function(sizes, intervals);
    Samples time;
    for (auto _ : state) {
        time.add(timed(CLOCK_THREAD_CPUTIME_ID, [] { benchmark::DoNotOptimize(UvcConfig()); }));
    }
    time.report(state, "time");
}

void configSizes(benchmark::State& state) {
    readConfig(state, static_cast<int>(state.range(0)), 2);
}

void configIntervals(benchmark::State& state) {
    readConfig(state, 2, static_cast<int>(state.range(0)));
}

void sendCommand(benchmark::State& state, const std::string& command) {
    test::DaemonWorld& daemon = scriptedDaemon();
    if (daemon.command(command) != "OK_WEBCAM_HAL") state.SkipWithError("not understood");
    Samples time;
    for (auto _ : state) {
        time.add(timed(CLOCK_THREAD_CPUTIME_ID, [&] { daemon.command(command); }));
        daemon.log.clear();
    }
    time.report(state, "time");
}

void commandText(benchmark::State& state) {
    sendCommand(state, R"({"x":")" + std::string(state.range(0), 'x') + R"("})");
}

void commandDepth(benchmark::State& state) {
    const auto depth = static_cast<size_t>(state.range(0));
    sendCommand(state, R"({"x":)" + std::string(depth, '[') + std::string(depth, ']') + "}");
}

void commandMembers(benchmark::State& state) {
    std::string command = R"({"stream-suspend":false)";
    for (int i = 0; i < state.range(0); ++i) command += ",\"m" + std::to_string(i) + "\":1";
    sendCommand(state, command + "}");
}

void grow(const char* name, void (*measure)(benchmark::State&), int least, int most) {
    benchmark::RegisterBenchmark(name, measure)
            ->UseRealTime()
            ->ArgName("n")
            ->RangeMultiplier(4)
            ->Range(least, most);
}

}  // namespace
}  // namespace korvane::bench

int main(int argc, char** argv) {
    using namespace korvane::bench;
    grow("config_sizes", configSizes, 4, 1024);
    grow("config_intervals", configIntervals, 2, 8192);
    // Texts of up to some 64 kB. From twice that size on, the allocator gets the memory for a
    // nested one from the system and returns it each time, which can double the cost once.
    grow("command_text", commandText, 16, 65536);
    grow("command_members", commandMembers, 4, 4096);
    grow("command_depth", commandDepth, 4, 16384);
    return runWithScriptedDaemon(argc, argv);
}
