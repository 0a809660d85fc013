// SPDX-License-Identifier: Apache-2.0
// Cards in words: what people read on them and what programs do.
#include "desktop-camera/NoticeCard.h"

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "testcard/CardFont.h"
#include "testcard/Picture.h"
#include "testcard/StripCode.h"
#include "testcard/StripLayout.h"

namespace korvane::camera {
namespace {

using Result = FrameSource::Result;
using testcard::CardFont;
using testcard::Notice;
using testcard::Picture;
using testcard::StripLayout;

constexpr uint64_t kTime = 77;

struct Size {
    uint32_t width, height;
};

/** What a card looks like at the host. */
Picture cardOf(NoticeCard& card, const PictureFormat& format, const Trouble& trouble,
               uint32_t number = 1) {
    std::vector<uint8_t> memory(size_t{format.width} * format.height * 3 / 2);
    PictureMemory picture;
    picture.planes = testcard::Planes::nv12(memory.data(), format.width, format.height);
    picture.file = memory.data();
    picture.fileCapacity = format.jpegLimit() - 8;
    size_t bytes = 0;
    EXPECT_EQ(Result::DRAWN, card.draw(trouble, {number, kTime}, picture, &bytes));
    if (!format.isJpeg()) {
        EXPECT_EQ(memory.size(), bytes);
        return testcard::pictureFromNv12(memory.data(), format.width, format.height);
    }
    Picture decoded;
    std::string error;
    EXPECT_TRUE(testcard::decodeJpeg(memory.data(), bytes, &decoded, &error)) << error;
    return decoded;
}

bool showsAt(const Picture& picture, const std::string& text, uint32_t scale, uint32_t left,
             uint32_t top) {
    for (uint32_t i = 0; i < text.size() * 6; ++i) {
        for (uint32_t y = 0; y < CardFont::kHeight; ++y) {
            const uint8_t luma =
                    *picture.pixel(left + i * scale + scale / 2, top + y * scale + scale / 2);
            if ((luma > 128) != CardFont::dot(text[i / 6], i % 6, y)) return false;
        }
    }
    return true;
}

/** Whether a line of letters stands anywhere on the picture, in any size. */
bool shows(const Picture& picture, const std::string& text) {
    for (uint32_t scale = 1; scale <= 16; ++scale) {
        const uint32_t width = scale * static_cast<uint32_t>(text.size()) * 6;
        for (uint32_t top = 0; top + scale * 7 < picture.height; ++top) {
            for (uint32_t left = 0; left + width < picture.width; ++left) {
                if (showsAt(picture, text, scale, left, top)) return true;
            }
        }
    }
    return false;
}

class NoticeCardTest : public testing::TestWithParam<Size> {};
INSTANTIATE_TEST_SUITE_P(, NoticeCardTest,
                         testing::Values(Size{320, 240}, Size{640, 480}, Size{648, 486},
                                         Size{1280, 720}, Size{1920, 1080}));

TEST_P(NoticeCardTest, SaysWhatIsWrongInWordsAndCodeInBothFormats) {
    const auto [width, height] = GetParam();
    for (const char* fourcc : {"NV12", "MJPG"}) {
        const PictureFormat format{fourcc, width, height, 30};
        NoticeCard card;
        ASSERT_TRUE(card.start(format));
        const Picture picture =
                cardOf(card, format, {Notice::ABSENT, "/dev/video7 is not there"}, 5);
        ASSERT_EQ(width, picture.width);
        ASSERT_EQ(height, picture.height);
        EXPECT_TRUE(shows(picture, "There is no camera")) << fourcc;
        EXPECT_TRUE(shows(picture, "/dev/video7 is not there")) << fourcc;
        const auto reading =
                testcard::readCard(*StripLayout::forSize(width, height), picture.luma());
        ASSERT_TRUE(reading.readable()) << fourcc;
        EXPECT_FALSE(reading.torn());
        EXPECT_EQ((testcard::FrameStamp{5, kTime, Notice::ABSENT}), *reading.top);
    }
}

TEST_P(NoticeCardTest, MovesWithTheFrames) {
    const auto [width, height] = GetParam();
    for (const char* fourcc : {"NV12", "MJPG"}) {
        const PictureFormat format{fourcc, width, height, 30};
        NoticeCard card;
        ASSERT_TRUE(card.start(format));
        const auto layout = *StripLayout::forSize(width, height);
        Picture first = cardOf(card, format, {Notice::COVERED, ""}, 1);
        Picture second = cardOf(card, format, {Notice::COVERED, ""}, 2);
        // Not in the strips alone, which do not look like life.
        const size_t begin = size_t{3} * width * layout.stripLines();
        const size_t end = size_t{3} * width * layout.bottomLine();
        EXPECT_NE(std::vector<uint8_t>(&first.samples[begin], &first.samples[end]),
                  std::vector<uint8_t>(&second.samples[begin], &second.samples[end]));
    }
}

TEST(NoticeCardTextTest, HasATitleForEveryNotice) {
    const PictureFormat format{"NV12", 640, 480, 30};
    NoticeCard card;
    ASSERT_TRUE(card.start(format));
    const struct {
        Notice notice;
        const char* title;
    } kCases[] = {
            {Notice::STARTING, "The camera is starting"}, {Notice::ABSENT, "There is no camera"},
            {Notice::FAILED, "The camera has failed"},    {Notice::ENDED, "The camera has ended"},
            {Notice::COVERED, "The camera is covered"},
    };
    for (const auto& expected : kCases) {
        EXPECT_TRUE(shows(cardOf(card, format, {expected.notice, ""}), expected.title));
    }
    const Picture silent = cardOf(card, format, {Notice::SILENT, ""});
    EXPECT_TRUE(shows(silent, "The camera gives no"));
    EXPECT_TRUE(shows(silent, "picture"));
}

TEST(NoticeCardTextTest, CutsAndLeavesOutWhatDoesNotFit) {
    const PictureFormat format{"NV12", 320, 240, 30};
    NoticeCard card;
    ASSERT_TRUE(card.start(format));
    const std::string longWord(200, 'w');
    EXPECT_TRUE(shows(cardOf(card, format, {Notice::FAILED, longWord}), std::string(20, 'w')));
    std::string tooMuch;
    for (int i = 0; i < 1000; ++i) tooMuch += "many words ";
    const Picture picture = cardOf(card, format, {Notice::FAILED, tooMuch});
    EXPECT_TRUE(testcard::readCard(*StripLayout::forSize(320, 240), picture.luma()).readable());
    EXPECT_TRUE(shows(cardOf(card, format, {Notice::FAILED, "na\xC3\xAFve"}), "na??ve"));
}

TEST(NoticeCardTextTest, RefusesASizeWithoutRoomForTheCode) {
    NoticeCard card;
    EXPECT_FALSE(card.start({"NV12", 64, 64, 30}));
    size_t bytes = 0;
    EXPECT_EQ(Result::FAILED, card.draw({Notice::FAILED, ""}, {}, {}, &bytes));
}

TEST(NoticeCardTextTest, FailsWithoutRoomForTheFile) {
    NoticeCard card;
    ASSERT_TRUE(card.start({"MJPG", 640, 480, 30}));
    std::vector<uint8_t> memory(100);
    PictureMemory picture;
    picture.file = memory.data();
    picture.fileCapacity = memory.size();
    size_t bytes = 0;
    EXPECT_EQ(Result::FAILED, card.draw({Notice::FAILED, ""}, {}, picture, &bytes));
}

}  // namespace
}  // namespace korvane::camera
