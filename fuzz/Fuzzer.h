// SPDX-License-Identifier: Apache-2.0
// What each fuzzer here defines and uses. See CMakeLists.txt for the two ways to build one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "FuzzInput.h"

/** One run; must leave nothing behind that could affect the next one. Returns 0. */
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace korvane::fuzz {

/** Ends the program, as a finding, if something that must hold does not. */
inline void mustHold(bool condition, const char* what) {
    if (condition) return;
    fprintf(stderr, "fuzz: does not hold: %s\n", what);
    abort();
}

}  // namespace korvane::fuzz
