// SPDX-License-Identifier: Apache-2.0
// Nothing is read or written beyond a frame or its buffer, neither by the device's code nor by the
// library: each lies between pages that nobody may touch.

#include <algorithm>
#include <cstring>
#include <vector>

#include <gmock/gmock.h>

#include "support/GuardedMemory.h"
#include "support/LogRecorder.h"
#include "uvc/JpegBlob.h"
#include "uvc/Nv12Copy.h"
#include "uvc/YuyvConverter.h"

using namespace korvane::hardware::camera::desktop::V2_0::implementation;
using namespace korvane::test;

namespace {

struct Picture {
    YCbCrPicture::Layout layout;
    uint32_t width;
    uint32_t height;
    size_t padding;
    Tight tight;
};

// Even and odd sizes on both sides of what a vector register holds, with and without padding.
std::vector<Picture> pictures() {
    std::vector<uint32_t> widths{63, 64, 65, 66, 67, 127, 129, 641};
    for (uint32_t width = 1; width <= 40; ++width) widths.push_back(width);
    std::vector<Picture> all;
    for (const auto layout :
         {YCbCrPicture::NV12, YCbCrPicture::NV21, YCbCrPicture::I420, YCbCrPicture::YV12}) {
        for (const uint32_t width : widths) {
            for (uint32_t height = 1; height <= 7; ++height) {
                for (const size_t padding : {0, 13}) {
                    for (const Tight tight : {Tight::FRONT, Tight::BEHIND}) {
                        all.push_back({layout, width, height, padding, tight});
                    }
                }
            }
        }
    }
    return all;
}

// A conversion needs no more of the last row than its samples.
TEST(ConversionBoundsTest, YuyvStaysWithinThePictureAndTheBuffer) {
    for (const Picture& of : pictures()) {
        const GuardedPicture picture(of.layout, of.width, of.height, of.padding, false, of.tight);
        const size_t size = yuyvSize(of.width, of.height);
        const GuardedMemory out(size, of.tight);
        YuyvConverter().convert(picture.planes(), of.width, of.height, out.data());
        // The chroma planes of the smallest odd sizes overlap in the scratch buffer.
        const size_t chroma = size_t{(of.width + 1) / 2} * ((of.height + 1) / 2);
        if (chroma > size_t{of.width} * of.height / 2) continue;
        const std::vector<uint8_t> expected = pictureAsYuyv(of.width, of.height);
        ASSERT_EQ(0, memcmp(expected.data(), out.data(), size))
                << of.width << 'x' << of.height << ", layout " << of.layout;
    }
}

// The copy takes rows with their padding, the last one's included.
TEST(ConversionBoundsTest, Nv12StaysWithinThePictureAndTheBuffer) {
    for (const Picture& of : pictures()) {
        const GuardedPicture picture(of.layout, of.width, of.height, of.padding, true, of.tight);
        const size_t size = nv12Size(picture.planes(), of.height);
        const GuardedMemory out(size, of.tight);
        copyNv12(picture.planes(), of.height, out.data());
        const android_ycbcr& planes = picture.planes();
        const size_t luma = planes.ystride * of.height;
        ASSERT_EQ(0, memcmp(planes.y, out.data(), luma));
        // A frame that has cr first ends one byte earlier.
        const size_t chroma = size - luma;
        const size_t readable = of.layout == YCbCrPicture::NV21 && chroma > 0 ? chroma - 1 : chroma;
        ASSERT_EQ(0, memcmp(planes.cb, out.data() + luma, readable))
                << of.width << 'x' << of.height << ", layout " << of.layout;
    }
}

TEST(ConversionBoundsTest, AFooterIsLookedForWithinTheBlob) {
    const LogRecorder log;
    for (uint32_t capacity = 0; capacity <= 20; ++capacity) {
        for (const Tight tight : {Tight::FRONT, Tight::BEHIND}) {
            const GuardedMemory blob(capacity, tight);
            if (capacity > 0) memset(blob.data(), 0xFF, capacity);
            EXPECT_EQ(capacity, takeJpegSize(blob.data(), capacity));
            if (capacity < 8) continue;
            const uint8_t footer[8] = {0xFF, 0x00, 0, 0, 5, 0, 0, 0};
            memcpy(blob.data() + capacity - 8, footer, sizeof(footer));
            EXPECT_EQ(5u, takeJpegSize(blob.data(), capacity));
        }
    }
}

}  // namespace
