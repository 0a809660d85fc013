// SPDX-License-Identifier: Apache-2.0
// The daemon's objects in the bench's own process, in a scripted world.
#pragma once

#include "support/DaemonWorld.h"

namespace korvane::bench {

/** This program's world; its controller has opened the node. */
test::DaemonWorld& scriptedDaemon();

/**
 * The main function of a bench that uses it. If the world can't be set up (no root, no namespaces)
 * it says why and returns 77, which makes its test a skipped one.
 */
int runWithScriptedDaemon(int argc, char** argv);

}  // namespace korvane::bench
