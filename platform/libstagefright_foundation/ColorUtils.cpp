// SPDX-License-Identifier: Apache-2.0
#include "media/stagefright/foundation/ColorUtils.h"

#include <cstdint>

namespace android {
namespace {

// The bits that hold no standard, transfer or range.
constexpr uint32_t kNotAspects = ~uint32_t{HAL_DATASPACE_STANDARD_MASK |
                                           HAL_DATASPACE_TRANSFER_MASK | HAL_DATASPACE_RANGE_MASK};
static_assert(kNotAspects == 0xC000FFFF, "the dataspace's fields have moved");

android_dataspace composed(android_dataspace dataSpace) {
    switch (static_cast<uint32_t>(dataSpace)) {
        case HAL_DATASPACE_SRGB:
            return HAL_DATASPACE_V0_SRGB;
        case HAL_DATASPACE_BT709:
            return HAL_DATASPACE_V0_BT709;
        case HAL_DATASPACE_SRGB_LINEAR:
            return HAL_DATASPACE_V0_SRGB_LINEAR;
        case HAL_DATASPACE_BT601_525:
            return HAL_DATASPACE_V0_BT601_525;
        case HAL_DATASPACE_BT601_625:
            return HAL_DATASPACE_V0_BT601_625;
        case HAL_DATASPACE_JFIF:
            return HAL_DATASPACE_V0_JFIF;
        default:
            return dataSpace;
    }
}

}  // namespace

bool ColorUtils::convertDataSpaceToV0(android_dataspace& dataSpace) {
    dataSpace = composed(dataSpace);
    return (static_cast<uint32_t>(dataSpace) & kNotAspects) == 0;
}

}  // namespace android
