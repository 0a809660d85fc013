// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UVC-V4l2Ctrl"

#include "uvc/JpegBlob.h"

#include <cstddef>
#include <cstring>

#include <log/log.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

struct Footer {
    uint16_t id;
    uint32_t size;
};
static_assert(sizeof(Footer) == 8 && offsetof(Footer, size) == 4, "as the camera writes it");

constexpr uint16_t kJpegId = 0x00FF;
constexpr uint16_t kVendorJpegId = 0xF0FF;

}  // namespace

uint32_t takeJpegSize(uint8_t* blob, uint32_t capacity) {
    uint32_t size = 0;
    if (capacity >= sizeof(Footer)) {
        uint8_t* const end = blob + (capacity - sizeof(Footer));
        Footer footer;
        memcpy(&footer, end, sizeof(footer));
        if (footer.id == kJpegId || footer.id == kVendorJpegId) {
            size = footer.size;
            memcpy(end + offsetof(Footer, size), &capacity, sizeof(capacity));
        }
    }
    if (size != 0) return size;
    // A fixed text: no function has that name.
    ALOGW("%s: No JPEG header detected, defaulting to size=width=%d", "getBlobSizeFromCamera",
          capacity);
    return capacity;
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
