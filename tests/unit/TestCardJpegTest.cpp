// SPDX-License-Identifier: Apache-2.0
#include "testcard/TestCardJpeg.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "testcard/BarPattern.h"
#include "testcard/JpegMarkers.h"
#include "testcard/JpegRows.h"
#include "testcard/Picture.h"
#include "testcard/StripCode.h"
#include "testcard/TestCard.h"

namespace korvane::testcard {
namespace {

constexpr FrameStamp kStamp{123456, 987654321012345};

struct Size {
    uint32_t width;
    uint32_t height;
};

std::ostream& operator<<(std::ostream& out, const Size& size) {
    return out << size.width << "x" << size.height;
}

Picture decoded(const std::vector<uint8_t>& file) {
    Picture picture;
    std::string error;
    EXPECT_TRUE(decodeJpeg(file.data(), file.size(), &picture, &error)) << error;
    return picture;
}

class TestCardJpegSizes : public testing::TestWithParam<Size> {
  protected:
    const StripLayout mLayout = *StripLayout::forSize(GetParam().width, GetParam().height);
    std::unique_ptr<TestCardJpeg> mCard = TestCardJpeg::create(mLayout);
};

INSTANTIATE_TEST_SUITE_P(All, TestCardJpegSizes,
                         testing::Values(Size{160, 120}, Size{320, 240}, Size{640, 360},
                                         Size{640, 480}, Size{1280, 720}, Size{1366, 768},
                                         Size{1920, 1080}));

TEST_P(TestCardJpegSizes, DecodesWithoutWarningAndReadsBack) {
    // More frames than the bars have phases, so that every place of every row is seen.
    for (uint32_t number = 0; number <= BarPattern::kPhases; ++number) {
        const FrameStamp stamp{number, kStamp.timeUs};
        const Picture picture = decoded(mCard->file(stamp));
        ASSERT_EQ(mLayout.width(), picture.width);
        ASSERT_EQ(mLayout.height(), picture.height);
        const CardReading reading = readCard(mLayout, picture.luma());
        EXPECT_EQ(stamp, reading.top);
        EXPECT_EQ(stamp, reading.bottom);
    }
}

// The rows that were put together show what a drawing of the whole picture shows.
TEST_P(TestCardJpegSizes, ShowsThePictureThatIsDrawn) {
    const Picture picture = decoded(mCard->file(kStamp));
    const Picture drawn = pictureFromNv12(TestCard(mLayout).nv12(kStamp).data(), mLayout.width(),
                                          mLayout.height());
    ASSERT_EQ(drawn.samples.size(), picture.samples.size());
    int64_t difference[3] = {};
    for (size_t i = 0; i < drawn.samples.size(); ++i) {
        difference[i % 3] += abs(int(drawn.samples[i]) - int(picture.samples[i]));
    }
    const auto pixels = static_cast<int64_t>(mLayout.width()) * mLayout.height();
    EXPECT_LT(difference[0], 4 * pixels) << "luma";
    EXPECT_LT(difference[1], 5 * pixels) << "Cb";
    EXPECT_LT(difference[2], 5 * pixels) << "Cr";
}

TEST_P(TestCardJpegSizes, GivesTheSameFileForTheSameStamp) {
    const auto other = TestCardJpeg::create(mLayout);
    other->file({7, 7});
    EXPECT_EQ(mCard->file(kStamp), other->file(kStamp));
}

// A host that negotiates a size reserves one byte for each pixel of it.
TEST_P(TestCardJpegSizes, StaysBelowAByteForEachPixel) {
    EXPECT_LT(mCard->file(kStamp).size(), size_t{mLayout.width()} * mLayout.height());
}

TEST(TestCardJpegTest, WritesNothingIntoTooLittleMemory) {
    const auto card = TestCardJpeg::create(*StripLayout::forSize(640, 480));
    const std::vector<uint8_t> file = card->file(kStamp);
    std::vector<uint8_t> memory(file.size(), 0xAA);
    EXPECT_EQ(0u, card->draw(kStamp, memory.data(), file.size() - 1));
    EXPECT_EQ(std::vector<uint8_t>(file.size(), 0xAA), memory);
    EXPECT_EQ(file.size(), card->draw(kStamp, memory.data(), file.size()));
    EXPECT_EQ(file, memory);
}

TEST(TestCardJpegTest, SurvivesLowQuality) {
    const StripLayout layout = *StripLayout::forSize(320, 240);
    const auto card = TestCardJpeg::create(layout, 5);
    const CardReading reading = readCard(layout, decoded(card->file(kStamp)).luma());
    EXPECT_EQ(kStamp, reading.top);
    EXPECT_EQ(kStamp, reading.bottom);
}

TEST(TestCardJpegTest, HasARestartMarkerInSequenceAfterEveryRow) {
    const std::vector<uint8_t> file =
            TestCardJpeg::create(*StripLayout::forSize(1280, 720))->file(kStamp);
    const JpegMarkers markers(file.data(), file.size());
    auto segment = markers.segmentAt(2);
    while (segment && segment->marker != kMarkerSos) segment = markers.segmentAt(segment->end);
    ASSERT_TRUE(segment);
    size_t position = segment->end;
    for (int row = 0; row < 720 / 16; ++row) {
        const auto marker = markers.nextMarker(position);
        ASSERT_TRUE(marker) << "row " << row;
        const int expected = row == 720 / 16 - 1 ? kMarkerEoi : kMarkerRst0 + row % 8;
        EXPECT_EQ(expected, file[*marker + 1]) << "row " << row;
        position = *marker + 2;
    }
    EXPECT_EQ(file.size(), position);
}

TEST(DecodeJpegTest, RefusesDamagedFilesWithAReason) {
    std::vector<uint8_t> file = TestCardJpeg::create(*StripLayout::forSize(320, 240))->file(kStamp);
    Picture picture;
    std::string error;
    EXPECT_FALSE(decodeJpeg(file.data(), file.size() / 2, &picture, &error));
    EXPECT_NE("", error);
    error.clear();
    EXPECT_FALSE(decodeJpeg(file.data() + 1, file.size() - 1, &picture, &error));
    EXPECT_NE("", error);
}

TEST(DecodeJpegTest, RefusesAHeaderThatClaimsMorePixelsThanAnyPictureHas) {
    std::vector<uint8_t> file = TestCardJpeg::create(*StripLayout::forSize(320, 240))->file(kStamp);
    size_t frame = 0;
    while (file[frame] != 0xFF || file[frame + 1] != kMarkerSof0) ++frame;
    for (size_t i = 5; i < 9; ++i) file[frame + i] = i % 2 == 1 ? 0xFF : 0xDC;  // 65500x65500
    Picture picture;
    std::string error;
    EXPECT_FALSE(decodeJpeg(file.data(), file.size(), &picture, &error));
    EXPECT_EQ("65500 x 65500 pixels are too many", error);
    EXPECT_TRUE(picture.samples.empty());
}

TEST(JpegRowsTest, RefusesAFileCutShortAnywhere) {
    const std::vector<uint8_t> file =
            TestCardJpeg::create(*StripLayout::forSize(160, 120))->file(kStamp);
    JpegRows rows;
    ASSERT_TRUE(rows.split(file.data(), file.size()));
    EXPECT_EQ(8u, rows.rows.size());
    for (size_t size = 0; size < file.size(); ++size) {
        const std::vector<uint8_t> part(file.begin(), file.begin() + size);
        EXPECT_FALSE(rows.split(part.data(), part.size())) << size << " bytes";
        EXPECT_FALSE(JpegMarkers(part.data(), part.size()).endOfFile(0)) << size << " bytes";
    }
}

}  // namespace
}  // namespace korvane::testcard
