// SPDX-License-Identifier: Apache-2.0
// Clients' commands to the webcam controller, while a host streams: the input is the text.
#include <string>

#include "Fuzzer.h"
#include "support/DaemonWorld.h"

using korvane::fuzz::mustHold;
using korvane::test::DaemonWorld;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // It has threads and objects that are never destroyed, as in the daemon.
    static DaemonWorld* const sWorld = [] {
        auto* const world = new DaemonWorld;
        mustHold(world->available(), "there is a world");
        world->start();
        world->commit(1, 1);
        world->startStream();
        return world;
    }();
    mustHold(!sWorld->command({reinterpret_cast<const char*>(data), size}).empty() || size > 0,
             "a command is answered");
    sWorld->log.clear();
    sWorld->node.clearCalls();
    return 0;
}
