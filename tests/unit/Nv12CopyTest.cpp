// SPDX-License-Identifier: Apache-2.0
#include "uvc/Nv12Copy.h"

#include <vector>

#include <gmock/gmock.h>

#include "support/YCbCrPicture.h"

using namespace korvane::hardware::camera::desktop::V2_0::implementation;
using korvane::test::YCbCrPicture;

namespace {

constexpr uint8_t kUntouched = 0xCD;

std::vector<uint8_t> copy(const YCbCrPicture& picture, uint32_t height) {
    std::vector<uint8_t> out(nv12Size(picture.planes(), height), kUntouched);
    copyNv12(picture.planes(), height, out.data());
    return out;
}

TEST(Nv12CopyTest, SizeFollowsTheStrides) {
    android_ycbcr planes = {};
    planes.ystride = 1280;
    planes.cstride = 1280;
    EXPECT_EQ(1382400u, nv12Size(planes, 720));
    planes.ystride = 1300;
    EXPECT_EQ(1300u * 720 + 1280 * 360, nv12Size(planes, 720));
}

TEST(Nv12CopyTest, SizeDoesNotWrapAround) {
    android_ycbcr planes = {};
    planes.ystride = 0x10000;
    planes.cstride = 0x10000;
    EXPECT_EQ(0x180000000u, nv12Size(planes, 0x10000));
}

TEST(Nv12CopyTest, HalfARowOfChromaIsRoundedDown) {
    android_ycbcr planes = {};
    planes.ystride = 6;
    planes.cstride = 7;
    EXPECT_EQ(6u * 3 + 10, nv12Size(planes, 3));
}

TEST(Nv12CopyTest, AnNv12FrameIsCopiedWhole) {
    for (size_t padding : {0, 6}) {
        const YCbCrPicture picture(YCbCrPicture::NV12, 16, 6, padding);
        EXPECT_EQ(picture.bytes(), copy(picture, 6)) << padding;
    }
}

TEST(Nv12CopyTest, ChromaFollowsTheLumaWhateverLiesBetweenThemInTheFrame) {
    std::vector<uint8_t> memory(64, 0);
    for (size_t i = 0; i < memory.size(); ++i) memory[i] = static_cast<uint8_t>(i);
    android_ycbcr planes = {};
    planes.y = memory.data();
    planes.cb = memory.data() + 40;
    planes.cr = memory.data() + 41;
    planes.ystride = 8;
    planes.cstride = 8;
    planes.chroma_step = 2;
    std::vector<uint8_t> out(24);
    copyNv12(planes, 2, out.data());
    EXPECT_EQ(0, out[0]);
    EXPECT_EQ(15, out[15]);
    EXPECT_EQ(40, out[16]);
    EXPECT_EQ(47, out[23]);
}

TEST(Nv12CopyTest, AnOddHeightCopiesThePartOfTheChromaThatTheSizeCounts) {
    const YCbCrPicture picture(YCbCrPicture::NV12, 8, 5);
    std::vector<uint8_t> expected = picture.bytes();
    expected.resize(8 * 5 + 8 * 5 / 2);
    EXPECT_EQ(expected, copy(picture, 5));
}

// The picture's memory ends with its last cb, so an address sanitizer sees one byte too many.
TEST(Nv12CopyTest, AFrameWithCrFirstIsNotReadBeyondItsEnd) {
    const YCbCrPicture picture(YCbCrPicture::NV21, 8, 4);
    const std::vector<uint8_t> out = copy(picture, 4);
    std::vector<uint8_t> expected(picture.bytes().begin(), picture.bytes().begin() + 32);
    expected.insert(expected.end(), picture.bytes().begin() + 33, picture.bytes().end());
    expected.push_back(kUntouched);
    EXPECT_EQ(expected, out);
}

TEST(Nv12CopyTest, PlanarChromaIsTakenFromItsFirstPlane) {
    for (auto layout : {YCbCrPicture::I420, YCbCrPicture::YV12}) {
        const YCbCrPicture picture(layout, 8, 4);
        const auto* cb = static_cast<const uint8_t*>(picture.planes().cb);
        std::vector<uint8_t> expected(picture.bytes().begin(), picture.bytes().begin() + 32);
        expected.insert(expected.end(), cb, cb + 8);
        EXPECT_EQ(expected, copy(picture, 4)) << layout;
    }
}

TEST(Nv12CopyTest, NobodyLooksForCr) {
    const YCbCrPicture picture(YCbCrPicture::NV12, 16, 6);
    android_ycbcr planes = picture.planes();
    planes.cr = nullptr;
    std::vector<uint8_t> out(nv12Size(planes, 6), kUntouched);
    copyNv12(planes, 6, out.data());
    EXPECT_EQ(picture.bytes(), out);
}

TEST(Nv12CopyTest, AFrameWithoutRowsHasNoBytes) {
    const YCbCrPicture picture(YCbCrPicture::NV21, 8, 4);
    uint8_t out = kUntouched;
    EXPECT_EQ(0u, nv12Size(picture.planes(), 0));
    copyNv12(picture.planes(), 0, &out);
    EXPECT_EQ(kUntouched, out);
}

}  // namespace
