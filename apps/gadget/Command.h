// SPDX-License-Identifier: Apache-2.0
// Runs a program of the system to its end.
#pragma once

#include <string>
#include <vector>

namespace korvane::gadget {

/** Runs a program, found by PATH, without its output; returns its exit status, -1 if it has none.
 */
int runQuietly(const std::vector<std::string>& command);

}  // namespace korvane::gadget
