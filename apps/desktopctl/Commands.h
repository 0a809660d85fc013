// SPDX-License-Identifier: Apache-2.0
// The commands that talk to a running service. Each returns the program's exit code.
#pragma once

#include <string>

#include "Status.h"

namespace korvane::ctl {

ExitCode showStatus(bool json);
ExitCode showClients();
/** Runs until interrupted, or for `screens` screens if that isn't 0. */
ExitCode watch(double intervalSeconds, unsigned screens);
/** Prints the client's reply. `kind` is from 0 to 7. */
ExitCode sendText(unsigned kind, const std::string& text);
ExitCode suspend(bool suspend);
ExitCode takeSnapshot(const std::string& path);
ExitCode dumpTo(const std::string& path, double seconds);

}  // namespace korvane::ctl
