// SPDX-License-Identifier: Apache-2.0
// The daemon's objects in the bench's own process, in a scripted world.
#pragma once

#include "support/DaemonWorld.h"

namespace korvane::bench {

/** The one of this program; its controller has opened the node. */
test::DaemonWorld& scriptedDaemon();

/**
 * The main of a bench that uses it. Where the world can't be had (no root, no namespaces) it says
 * why and returns 77, by which its test is skipped.
 */
int runWithScriptedDaemon(int argc, char** argv);

}  // namespace korvane::bench
