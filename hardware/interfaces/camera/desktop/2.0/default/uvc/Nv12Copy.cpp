// SPDX-License-Identifier: Apache-2.0
#include "uvc/Nv12Copy.h"

#include <cstddef>
#include <cstring>

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

uint64_t lumaSize(const android_ycbcr& planes, uint32_t height) {
    return uint64_t{planes.ystride} * height;
}

uint64_t chromaSize(const android_ycbcr& planes, uint32_t height) {
    return uint64_t{planes.cstride} * height / 2;
}

// How far from its start an interleaved chroma plane has its first cb.
size_t offsetOfCb(const android_ycbcr& planes) {
    const auto* cb = static_cast<const uint8_t*>(planes.cb);
    const auto* cr = static_cast<const uint8_t*>(planes.cr);
    return planes.chroma_step > 1 && cr != nullptr && cr < cb ? cb - cr : 0;
}

}  // namespace

uint64_t nv12Size(const android_ycbcr& planes, uint32_t height) {
    return lumaSize(planes, height) + chromaSize(planes, height);
}

void copyNv12(const android_ycbcr& planes, uint32_t height, uint8_t* out) {
    const size_t luma = lumaSize(planes, height);
    const size_t chroma = chromaSize(planes, height);
    const size_t missing = offsetOfCb(planes);
    memcpy(out, planes.y, luma);
    if (chroma > missing) memcpy(out + luma, planes.cb, chroma - missing);
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
