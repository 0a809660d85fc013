// SPDX-License-Identifier: Apache-2.0
#include "gui/BufferItem.h"

#include <system/window.h>

namespace android {

const char* BufferItem::scalingModeName(uint32_t scalingMode) {
    switch (scalingMode) {
        case NATIVE_WINDOW_SCALING_MODE_FREEZE:
            return "FREEZE";
        case NATIVE_WINDOW_SCALING_MODE_SCALE_TO_WINDOW:
            return "SCALE_TO_WINDOW";
        case NATIVE_WINDOW_SCALING_MODE_SCALE_CROP:
            return "SCALE_CROP";
        case NATIVE_WINDOW_SCALING_MODE_NO_SCALE_CROP:
            return "NO_SCALE_CROP";
        default:
            return "Unknown";
    }
}

}  // namespace android
