// SPDX-License-Identifier: Apache-2.0
#include "uvc/YuyvConverter.h"

#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include <malloc.h>

#include <gmock/gmock.h>
#include <libyuv.h>

#include "support/YCbCrPicture.h"

using namespace korvane::hardware::camera::desktop::V2_0::implementation;
using korvane::test::pictureAsYuyv;
using korvane::test::YCbCrPicture;

namespace {

struct Size {
    uint32_t width;
    uint32_t height;
};

// The result has to live until the next conversion, which may look at it.
[[nodiscard]] std::vector<uint8_t> convert(YuyvConverter& converter, const YCbCrPicture& picture,
                                           Size size) {
    std::vector<uint8_t> out(yuyvSize(size.width, size.height));
    converter.convert(picture.planes(), size.width, size.height, out.data());
    return out;
}

class YuyvConverterTest
    : public testing::TestWithParam<std::tuple<YCbCrPicture::Layout, Size, size_t>> {};

TEST_P(YuyvConverterTest, KeepsEverySample) {
    const auto [layout, size, padding] = GetParam();
    const YCbCrPicture picture(layout, size.width, size.height, padding);
    YuyvConverter converter;
    EXPECT_EQ(pictureAsYuyv(size.width, size.height), convert(converter, picture, size));
}

// Every size has two rows at least: with one, the chroma planes of an odd width overlap.
INSTANTIATE_TEST_SUITE_P(Pictures, YuyvConverterTest,
                         testing::Combine(testing::Values(YCbCrPicture::NV12, YCbCrPicture::NV21,
                                                          YCbCrPicture::I420, YCbCrPicture::YV12),
                                          testing::Values(Size{64, 48}, Size{2, 2}, Size{66, 34},
                                                          Size{65, 48}, Size{64, 47}, Size{67, 35},
                                                          Size{3, 3}),
                                          testing::Values(0, 24)));

// The rule for the bytes: one call that makes three planes of the whole picture in a buffer that
// begins as zeros, V half a picture after U, and one that makes YUYV of them, whatever the first
// one said. Both write a little further than the picture.
class Rule {
  public:
    explicit Rule(Size largest)
        : mScratch(yuyvSize(largest.width, largest.height) + largest.width + largest.height) {}

    std::vector<uint8_t> convert(const android_ycbcr& planes, Size size) {
        const int width = static_cast<int>(size.width);
        const int height = static_cast<int>(size.height);
        const int cstride = static_cast<int>(planes.cstride);
        const int half = (width + 1) / 2;
        uint8_t* const y = mScratch.data();
        uint8_t* const u = y + ptrdiff_t{width} * height;
        uint8_t* const v = u + ptrdiff_t{width} * height / 2;
        libyuv::Android420ToI420(static_cast<uint8_t*>(planes.y), static_cast<int>(planes.ystride),
                                 static_cast<uint8_t*>(planes.cb), cstride,
                                 static_cast<uint8_t*>(planes.cr), cstride,
                                 static_cast<int>(planes.chroma_step), y, width, u, half, v, half,
                                 width, height);
        std::vector<uint8_t> out(yuyvSize(size.width, size.height) + 2);
        libyuv::I420ToYUY2(y, width, u, half, v, half, out.data(), width * 2, width, height);
        out.resize(out.size() - 2);
        return out;
    }

  private:
    std::vector<uint8_t> mScratch;
};

// Those of one column or row among them, whose planes overlap.
TEST(YuyvConverterRuleTest, WritesTheBytesOfTheRuleForEverySizeAndLayout) {
    for (const auto layout :
         {YCbCrPicture::NV12, YCbCrPicture::NV21, YCbCrPicture::I420, YCbCrPicture::YV12}) {
        for (const size_t padding : {0, 13}) {
            for (uint32_t width = 1; width <= 70; ++width) {
                for (uint32_t height = 1; height <= 19; ++height) {
                    const Size size{width, height};
                    const YCbCrPicture picture(layout, width, height, padding);
                    YuyvConverter converter;
                    ASSERT_EQ(Rule(size).convert(picture.planes(), size),
                              convert(converter, picture, size))
                            << width << "x" << height << ", layout " << layout << ", padding "
                            << padding;
                }
            }
        }
    }
}

TEST(YuyvConverterRuleTest, WithoutCrAStreamsFirstFrameIsAllZeros) {
    const YCbCrPicture picture(YCbCrPicture::NV12, 8, 6);
    android_ycbcr planes = picture.planes();
    planes.cr = nullptr;
    std::vector<uint8_t> out(yuyvSize(8, 6), 0xCD);
    YuyvConverter().convert(planes, 8, 6, out.data());
    EXPECT_EQ(std::vector<uint8_t>(yuyvSize(8, 6), 0), out);
}

TEST(YuyvConverterRuleTest, WithoutCrALaterFrameRepeatsTheOneBefore) {
    const YCbCrPicture picture(YCbCrPicture::NV12, 8, 6);
    YuyvConverter converter;
    const std::vector<uint8_t> before = convert(converter, picture, {8, 6});
    const YCbCrPicture other(YCbCrPicture::I420, 8, 6, 4);
    android_ycbcr planes = other.planes();
    planes.cr = nullptr;
    for (int i = 0; i < 2; ++i) {
        std::vector<uint8_t> out(yuyvSize(8, 6), 0xCD);
        converter.convert(planes, 8, 6, out.data());
        EXPECT_EQ(before, out);
    }
}

TEST(YuyvConverterRuleTest, WritesTheBytesOfTheRuleForAnySequenceOfFramesWithAndWithoutCr) {
    constexpr Size kLargest{18, 9};
    std::minstd_rand random(1);
    for (int stream = 0; stream < 300; ++stream) {
        Rule rule(kLargest);
        YuyvConverter converter;
        std::vector<uint8_t> out;
        for (int frame = 0; frame < 8; ++frame) {
            const Size size = frame == 0 ? kLargest
                                         : Size{static_cast<uint32_t>(1 + random() % 18),
                                                static_cast<uint32_t>(1 + random() % 9)};
            const YCbCrPicture picture(static_cast<YCbCrPicture::Layout>(random() % 4), size.width,
                                       size.height, random() % 3);
            android_ycbcr planes = picture.planes();
            if (random() % 2 == 0) planes.cr = nullptr;
            std::vector<uint8_t> next(yuyvSize(size.width, size.height), 0xCD);
            converter.convert(planes, size.width, size.height, next.data());
            ASSERT_EQ(rule.convert(planes, size), next) << "frame " << frame << " of " << stream;
            out = std::move(next);
        }
    }
}

// Memory sizes are exact in these tests, so a sanitizer sees each byte written beyond.
TEST(YuyvConverterBoundsTest, WritesNoByteAfterAnOddWidth) {
    const YCbCrPicture picture(YCbCrPicture::NV12, 5, 4);
    std::vector<uint8_t> out(yuyvSize(5, 4) + 16, 0xCD);
    YuyvConverter().convert(picture.planes(), 5, 4, out.data());
    EXPECT_EQ(std::vector<uint8_t>(16, 0xCD),
              std::vector<uint8_t>(out.begin() + yuyvSize(5, 4), out.end()));
}

TEST(YuyvConverterBoundsTest, TheSmallestPicturesStayWithinTheirMemory) {
    for (const Size size :
         {Size{1, 1}, Size{1, 2}, Size{1, 3}, Size{2, 1}, Size{3, 1}, Size{5, 1}}) {
        const YCbCrPicture picture(YCbCrPicture::NV12, size.width, size.height);
        YuyvConverter converter;
        const std::vector<uint8_t> out = convert(converter, picture, size);
        EXPECT_EQ(korvane::test::lumaAt(size.width - 1, size.height - 1), out[out.size() - 2]);
    }
}

TEST(YuyvConverterBoundsTest, APictureWithoutPixelsWritesNothing) {
    const YCbCrPicture picture(YCbCrPicture::NV12, 4, 4);
    YuyvConverter converter;
    converter.convert(picture.planes(), 0, 4, nullptr);
    converter.convert(picture.planes(), 4, 0, nullptr);
    EXPECT_EQ(0u, converter.scratchSize());
}

TEST(YuyvConverterScratchTest, HasTwoBytesForEachPixel) {
    YuyvConverter converter;
    EXPECT_EQ(0u, converter.scratchSize());
    const Size size{1280, 720};
    const auto out =
            convert(converter, YCbCrPicture(YCbCrPicture::NV12, size.width, size.height), size);
    EXPECT_EQ(1843200u, converter.scratchSize());
}

TEST(YuyvConverterScratchTest, IsKeptForSmallerPicturesAndGrowsForLargerOnes) {
    YuyvConverter converter;
    std::vector<std::vector<uint8_t>> outs;
    for (const auto& [size, scratch] :
         {std::pair{Size{8, 8}, 128u}, std::pair{Size{4, 4}, 128u}, std::pair{Size{16, 8}, 256u}}) {
        const YCbCrPicture picture(YCbCrPicture::NV21, size.width, size.height);
        outs.push_back(convert(converter, picture, size));
        EXPECT_EQ(pictureAsYuyv(size.width, size.height), outs.back());
        EXPECT_EQ(scratch, converter.scratchSize());
    }
}

// Bytes that this thread's heap has given out; 0 under the sanitizers, which have another one.
size_t heapInUse() {
    const auto heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

TEST(YuyvConverterScratchTest, GivesItsMemoryBackWithRelease) {
    const Size size{1920, 1080};
    const YCbCrPicture picture(YCbCrPicture::NV12, size.width, size.height);
    YuyvConverter converter;
    std::vector<uint8_t> out(yuyvSize(size.width, size.height));
    const size_t before = heapInUse();
    converter.convert(picture.planes(), size.width, size.height, out.data());
    converter.release();
    EXPECT_LE(heapInUse(), before + 100000);
}

TEST(YuyvConverterScratchTest, IsFreedByReleaseAndMadeAgainAfterIt) {
    YuyvConverter converter;
    const YCbCrPicture picture(YCbCrPicture::I420, 8, 8);
    const auto out = convert(converter, picture, {8, 8});
    converter.release();
    EXPECT_EQ(0u, converter.scratchSize());
    EXPECT_EQ(pictureAsYuyv(8, 8), convert(converter, picture, {8, 8}));
    EXPECT_EQ(128u, converter.scratchSize());
}

// What they kept of a picture went with the scratch buffer.
TEST(YuyvConverterScratchTest, AnySizeMayFollowARelease) {
    YuyvConverter converter;
    const auto out = convert(converter, YCbCrPicture(YCbCrPicture::I420, 8, 8), {8, 8});
    converter.release();
    const auto next = convert(converter, YCbCrPicture(YCbCrPicture::I420, 4, 2), {4, 2});
    EXPECT_EQ(pictureAsYuyv(4, 2), next);
}

}  // namespace
