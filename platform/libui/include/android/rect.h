// SPDX-License-Identifier: Apache-2.0
// A rectangle as the C interfaces of the platform pass it.
#pragma once

#include <stdint.h>

/** Half-open: right and bottom are the first column and row outside. */
typedef struct ARect {
    int32_t left;
    int32_t top;
    int32_t right;
    int32_t bottom;
} ARect;
