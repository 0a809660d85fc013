// SPDX-License-Identifier: Apache-2.0
#include "ScriptedDaemon.h"

#include <cstdio>

#include <benchmark/benchmark.h>

namespace korvane::bench {

test::DaemonWorld& scriptedDaemon() {
    static test::DaemonWorld sWorld;
    return sWorld;
}

int runWithScriptedDaemon(int argc, char** argv) {
    if (!scriptedDaemon().available()) {
        fprintf(stderr, "%s\n", scriptedDaemon().whyNot().c_str());
        return 77;
    }
    scriptedDaemon().start();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

}  // namespace korvane::bench
