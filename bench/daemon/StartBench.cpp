// SPDX-License-Identifier: Apache-2.0
// How long the daemon takes from its exec to the registered service, compared with processes that
// do less. Registration needs /dev/hwbinder; without it, the measurement ends where the daemon
// first asks for it.

#include <string>

#include <unistd.h>

#include <benchmark/benchmark.h>

#include "LoggedProgram.h"
#include "support/Samples.h"

namespace korvane::bench {
namespace {

int64_t startTrue() {
    LoggedProgram program("/bin/true");
    return program.waitForEnd() - program.started();
}

int64_t startLinked() {
    LoggedProgram program(builtProgram("bench/linked_program"));
    return program.waitFor("ready") - program.started();
}

struct DaemonStart {
    int64_t constructed;
    int64_t end;
};

DaemonStart startDaemon(const char* endsWith) {
    LoggedProgram program(builtProgram("bin/korvane.hardware.camera.desktop@2.0-service"));
    const int64_t constructed = program.waitFor("Setting thread affinity") - program.started();
    return {constructed, program.waitFor(endsWith) - program.started()};
}

void start(benchmark::State& state) {
    const bool registers = access("/dev/hwbinder", F_OK) == 0;
    const char* const endsWith = registers ? "Registered Camera Desktop HAL service success!"
                                           : "Opening /dev/hwbinder failed";
    Samples trueProgram, linked, constructed, end;
    for (auto _ : state) {
        trueProgram.add(startTrue());
        linked.add(startLinked());
        const DaemonStart daemon = startDaemon(endsWith);
        constructed.add(daemon.constructed);
        end.add(daemon.end);
    }
    trueProgram.report(state, "true");
    linked.report(state, "linked");
    constructed.report(state, "constructed");
    end.report(state, registers ? "registered" : "first_hwbinder_call");
}

BENCHMARK(start)->Name("start")->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace korvane::bench

BENCHMARK_MAIN();
