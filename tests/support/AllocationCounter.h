// SPDX-License-Identifier: Apache-2.0
// How often the process asks for memory.
#pragma once

#include <cstdint>

namespace korvane::test {

/**
 * Calls of malloc, its relatives and the operators new of all threads since the process started. A
 * program has this by linking `korvane_allocation_counter`, which the sanitizers don't bear.
 */
uint64_t allocations();

}  // namespace korvane::test
