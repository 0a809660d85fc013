// SPDX-License-Identifier: Apache-2.0
#include "testcard/TestCard.h"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "testcard/Picture.h"
#include "testcard/StripCode.h"
#include "testcard/StripLayout.h"

namespace korvane::testcard {
namespace {

constexpr FrameStamp kStamp{123456, 987654321012345};
constexpr FrameStamp kLargest{UINT32_MAX, UINT64_MAX >> 8, static_cast<Notice>(UINT8_MAX)};

struct Size {
    uint32_t width;
    uint32_t height;
};

std::ostream& operator<<(std::ostream& out, const Size& size) {
    return out << size.width << "x" << size.height;
}

// Sizes whose height is no multiple of sixteen, small ones with small cells, extreme stamps.
class TestCardSizes : public testing::TestWithParam<Size> {
  protected:
    const StripLayout mLayout = *StripLayout::forSize(GetParam().width, GetParam().height);
    TestCard mCard{mLayout};

    CardReading read(const std::vector<uint8_t>& nv12) const {
        return readCard(mLayout, {nv12.data(), mLayout.width(), 1});
    }
};

INSTANTIATE_TEST_SUITE_P(All, TestCardSizes,
                         testing::Values(Size{160, 120}, Size{176, 144}, Size{320, 240},
                                         Size{640, 360}, Size{640, 480}, Size{800, 600},
                                         Size{1280, 720}, Size{1366, 768}, Size{1920, 1080},
                                         Size{3840, 2160}));

TEST_P(TestCardSizes, ReadsBackWhatWasDrawn) {
    for (const FrameStamp& stamp : {kStamp, FrameStamp{0, 0}, kLargest}) {
        const CardReading reading = read(mCard.nv12(stamp));
        EXPECT_EQ(stamp, reading.top);
        EXPECT_EQ(stamp, reading.bottom);
    }
}

TEST_P(TestCardSizes, ReadsBackFromYuyv) {
    const std::vector<uint8_t> nv12 = mCard.nv12(kStamp);
    std::vector<uint8_t> yuyv(2 * mLayout.width() * mLayout.height(), 128);
    for (size_t i = 0; i < yuyv.size() / 2; ++i) yuyv[2 * i] = nv12[i];
    const CardReading reading = readCard(mLayout, {yuyv.data(), 2 * mLayout.width(), 2});
    EXPECT_EQ(kStamp, reading.top);
    EXPECT_EQ(kStamp, reading.bottom);
}

TEST_P(TestCardSizes, DrawsTheSamePictureForTheSameStamp) {
    TestCard other(mLayout);
    other.nv12({7, 7});
    EXPECT_EQ(mCard.nv12(kStamp), other.nv12(kStamp));
}

TEST_P(TestCardSizes, DrawsBetweenTheStripsAnotherPictureForTheNextFrame) {
    const std::vector<uint8_t> one = mCard.nv12({1, 5});
    const std::vector<uint8_t> two = mCard.nv12({2, 5});
    for (uint32_t line = mLayout.stripLines(); line < mLayout.bottomLine(); ++line) {
        const size_t start = size_t{line} * mLayout.width();
        ASSERT_FALSE(std::equal(&one[start], &one[start + mLayout.width()], &two[start]))
                << "line " << line;
    }
}

TEST_P(TestCardSizes, SeesATornPicture) {
    std::vector<uint8_t> torn = mCard.nv12({10, 100});
    const std::vector<uint8_t> next = mCard.nv12({11, 133});
    const size_t half = size_t{mLayout.width()} * (mLayout.height() / 2);
    std::copy(next.begin() + half, next.end(), torn.begin() + half);
    const CardReading reading = read(torn);
    EXPECT_TRUE(reading.torn());
    EXPECT_EQ(10u, reading.top->number);
    EXPECT_EQ(11u, reading.bottom->number);
}

TEST(TestCardTest, LooksDifferentWithSwappedChroma) {
    const StripLayout layout = *StripLayout::forSize(640, 480);
    const std::vector<uint8_t> nv12 = TestCard(layout).nv12(kStamp);
    size_t different = 0;
    const size_t chroma = size_t{640} * 480;
    for (size_t i = chroma; i < nv12.size(); i += 2) different += nv12[i] != nv12[i + 1];
    // All but the grey strips and the two grey bars of eight.
    EXPECT_GT(different, (nv12.size() - chroma) / 2 / 2);
}

TEST(TestCardTest, DrawsIntoPaddedAndPlanarMemoryAlike) {
    const StripLayout layout = *StripLayout::forSize(320, 240);
    TestCard card(layout);
    const std::vector<uint8_t> nv12 = card.nv12(kStamp);
    constexpr size_t kStride = 384;
    std::vector<uint8_t> y(kStride * 240, 1), cb(kStride * 120, 1), cr(kStride * 120, 1);
    card.draw(kStamp, {y.data(), cb.data(), cr.data(), kStride, kStride, 1});
    for (uint32_t line = 0; line < 240; ++line) {
        EXPECT_TRUE(std::equal(&nv12[line * 320], &nv12[line * 320 + 320], &y[line * kStride]));
        EXPECT_EQ(1, y[line * kStride + 320]) << "wrote into the padding of line " << line;
    }
    for (uint32_t line = 0; line < 120; ++line) {
        for (uint32_t x = 0; x < 160; ++x) {
            ASSERT_EQ(nv12[(240 + line) * 320 + 2 * x], cb[line * kStride + x]);
            ASSERT_EQ(nv12[(240 + line) * 320 + 2 * x + 1], cr[line * kStride + x]);
        }
    }
}

TEST(TestCardTest, DrawsNv21WithTheChromaTheOtherWayRound) {
    const StripLayout layout = *StripLayout::forSize(320, 240);
    TestCard card(layout);
    const std::vector<uint8_t> nv12 = card.nv12(kStamp);
    std::vector<uint8_t> nv21(nv12.size());
    uint8_t* chroma = &nv21[320 * 240];
    card.draw(kStamp, {nv21.data(), chroma + 1, chroma, 320, 320, 2});
    for (size_t i = 320 * 240; i < nv12.size(); i += 2) std::swap(nv21[i], nv21[i + 1]);
    EXPECT_EQ(nv12, nv21);
}

TEST(StripCodeTest, RefusesACodeWithOneBitChanged) {
    const StripLayout layout = *StripLayout::forSize(640, 480);
    TestCard card(layout);
    for (uint32_t bit = 0; bit < StripLayout::kBits; ++bit) {
        std::vector<uint8_t> nv12 = card.nv12(kStamp);
        const uint32_t left = bit % layout.cellsPerLine() * layout.cell();
        const uint32_t top = bit / layout.cellsPerLine() * layout.cell();
        for (uint32_t y = top; y < top + layout.cell(); ++y) {
            for (uint32_t x = left; x < left + layout.cell(); ++x) {
                nv12[y * 640 + x] = static_cast<uint8_t>(255 - nv12[y * 640 + x]);
            }
        }
        EXPECT_EQ(std::nullopt, readStrip(layout, {nv12.data(), 640, 1}, 0)) << "bit " << bit;
    }
}

TEST(StripCodeTest, RefusesFlatPictures) {
    const StripLayout layout = *StripLayout::forSize(640, 480);
    for (int level : {0, 16, 128, 235, 255}) {
        const std::vector<uint8_t> flat(640 * 480, static_cast<uint8_t>(level));
        EXPECT_FALSE(readStrip(layout, {flat.data(), 640, 1}, 0)) << "level " << level;
    }
}

TEST(StripCodeTest, ReadsThroughNoise) {
    const StripLayout layout = *StripLayout::forSize(640, 480);
    std::vector<uint8_t> nv12 = TestCard(layout).nv12(kStamp);
    uint32_t random = 1;
    for (uint8_t& sample : nv12) {
        random = random * 1664525 + 1013904223;
        sample = static_cast<uint8_t>(std::clamp<int>(sample + int(random >> 26) - 32, 0, 255));
    }
    EXPECT_EQ(kStamp, readStrip(layout, {nv12.data(), 640, 1}, 0));
}

TEST(StripLayoutTest, RefusesSizesWithoutRoomForTwoStripsAndAPicture) {
    for (const Size& size : {Size{0, 0}, Size{641, 480}, Size{640, 481}, Size{64, 64},
                             Size{640, 96}, Size{16386, 1080}, Size{1280, 16386}}) {
        EXPECT_FALSE(StripLayout::forSize(size.width, size.height)) << size;
    }
    EXPECT_TRUE(StripLayout::forSize(640, 112));
}

TEST(StripLayoutTest, KeepsTheStripsInsideThePicture) {
    for (uint32_t height = 120; height < 1100; height += 2) {
        const auto layout = StripLayout::forSize(640, height);
        ASSERT_TRUE(layout);
        EXPECT_LE(layout->bottomLine() + layout->stripLines(), height);
        EXPECT_GT(layout->bottomLine() + layout->stripLines() + 16, height);
        EXPECT_GT(layout->bottomLine(), layout->stripLines());
    }
}

}  // namespace
}  // namespace korvane::testcard
