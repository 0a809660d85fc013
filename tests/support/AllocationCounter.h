// SPDX-License-Identifier: Apache-2.0
// How often the process allocates memory.
#pragma once

#include <cstdint>

namespace korvane::test {

/**
 * Calls to malloc, its relatives and operator new on all threads since the process started.
 * Programs get this by linking `korvane_allocation_counter`, which doesn't work with the
 * sanitizers.
 */
uint64_t allocations();

}  // namespace korvane::test
