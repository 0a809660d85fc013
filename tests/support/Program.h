// SPDX-License-Identifier: Apache-2.0
// Runs one of the built programs and keeps what it said.
#pragma once

#include <string>
#include <vector>

namespace korvane::test {

/** How a program ended. */
struct ProgramResult {
    int status = -1;  // its exit status; -1 if a signal ended it or it could not be started
    std::string out;
    std::string err;
};

/** Runs build/bin/`name` to its end, without standard input. */
ProgramResult runProgram(const std::string& name, const std::vector<std::string>& arguments);

}  // namespace korvane::test
