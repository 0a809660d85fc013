// SPDX-License-Identifier: Apache-2.0
// Runs a system program to completion.
#pragma once

#include <string>
#include <vector>

namespace korvane::gadget {

/** Runs a program found on PATH, without its output; returns its exit status, -1 if it has none. */
int runQuietly(const std::vector<std::string>& command);

}  // namespace korvane::gadget
