// SPDX-License-Identifier: Apache-2.0
// Runs one of the built programs and keeps its output.
#pragma once

#include <string>
#include <vector>

namespace korvane::test {

/** How a program ended. */
struct ProgramResult {
    int status = -1;  // its exit status; -1 if a signal ended it or it couldn't be started
    std::string out;
    std::string err;
};

/** Runs build/bin/`name` to completion, without standard input. */
ProgramResult runProgram(const std::string& name, const std::vector<std::string>& arguments);

}  // namespace korvane::test
