// SPDX-License-Identifier: Apache-2.0
// Conversions between the ways to describe colour.
#pragma once

#include <system/graphics.h>

namespace android {

struct ColorUtils {
    /**
     * Replaces the dataspaces of the older numbering (JFIF, BT601_625, ...) by those composed of
     * standard, transfer and range; leaves all others as they are.
     *
     * @return whether the result is described by its colour aspects alone.
     */
    static bool convertDataSpaceToV0(android_dataspace& dataSpace);
};

}  // namespace android
