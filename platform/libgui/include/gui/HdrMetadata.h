// SPDX-License-Identifier: Apache-2.0
// HDR metadata of a frame.
#pragma once

#include <cstdint>
#include <vector>

#include <system/graphics.h>

namespace android {

/** `validTypes` says which of the rest mean anything. */
struct HdrMetadata {
    enum Type : uint32_t {
        SMPTE2086 = 1 << 0,
        CTA861_3 = 1 << 1,
        HDR10PLUS = 1 << 2,
    };
    uint32_t validTypes = 0;
    android_smpte2086_metadata smpte2086 = {};
    android_cta861_3_metadata cta8613 = {};
    std::vector<uint8_t> hdr10plus;
};

}  // namespace android
