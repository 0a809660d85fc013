// SPDX-License-Identifier: Apache-2.0
// A frame of each format as PNG and as JPEG.

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <png.h>

#include "desktopctl/Snapshot.h"
#include "support/TemporaryFolder.h"
#include "testcard/Picture.h"
#include "testcard/TestCardJpeg.h"

namespace korvane::ctl {
namespace {

using testcard::PixelFormat;
using Bytes = std::vector<uint8_t>;

class CtlSnapshotTest : public testing::Test {
  protected:
    bool write(const std::string& path, const Bytes& bytes, PixelFormat format, uint32_t width = 64,
               uint32_t height = 32) {
        return writePicture(path, {bytes.data(), bytes.size()}, format, width, height, &mError);
    }

    static Bytes fileBytes(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    // The first pixel of the PNG, and its size.
    Bytes pngPixel(uint32_t width, uint32_t height) {
        png_image image = {};
        image.version = PNG_IMAGE_VERSION;
        EXPECT_NE(0, png_image_begin_read_from_file(&image, mPng.c_str())) << image.message;
        EXPECT_EQ(width, image.width);
        EXPECT_EQ(height, image.height);
        image.format = PNG_FORMAT_RGB;
        Bytes rgb(PNG_IMAGE_SIZE(image));
        EXPECT_NE(0, png_image_finish_read(&image, nullptr, rgb.data(), 0, nullptr));
        rgb.resize(3);
        return rgb;
    }

    static Bytes yuyv(uint8_t y, uint8_t cb, uint8_t cr) {
        Bytes bytes;
        for (int i = 0; i < 64 * 32 / 2; ++i) bytes.insert(bytes.end(), {y, cb, y, cr});
        return bytes;
    }

    static Bytes nv12(uint8_t y, uint8_t cb, uint8_t cr) {
        Bytes bytes(64 * 32, y);
        for (int i = 0; i < 64 * 32 / 4; ++i) bytes.insert(bytes.end(), {cb, cr});
        return bytes;
    }

    static Bytes jpeg() {
        const auto layout = testcard::StripLayout::forSize(640, 480);
        return testcard::TestCardJpeg::create(*layout)->file({7, 1000});
    }

    const test::TemporaryFolder mFolder;
    const std::string mPng = mFolder.path("snapshot.png");
    const std::string mJpeg = mFolder.path("snapshot.jpg");
    std::string mError;
};

TEST_F(CtlSnapshotTest, KnowsThePathsThatItCanWrite) {
    EXPECT_TRUE(isPicturePath("a.png"));
    EXPECT_TRUE(isPicturePath("/tmp/a.jpg"));
    EXPECT_TRUE(isPicturePath("a.jpeg"));
    for (const char* path : {"", "a", ".png", "a.PNG", "a.png.txt", "png"}) {
        EXPECT_FALSE(isPicturePath(path)) << path;
    }
}

TEST_F(CtlSnapshotTest, RawPicturesHaveTheColoursOfAVideo) {
    ASSERT_TRUE(write(mPng, yuyv(235, 128, 128), PixelFormat::YUYV)) << mError;
    EXPECT_EQ((Bytes{255, 255, 255}), pngPixel(64, 32));
    ASSERT_TRUE(write(mPng, yuyv(16, 128, 128), PixelFormat::YUYV)) << mError;
    EXPECT_EQ((Bytes{0, 0, 0}), pngPixel(64, 32));
    // Pure red of BT.601.
    ASSERT_TRUE(write(mPng, nv12(81, 90, 240), PixelFormat::NV12)) << mError;
    const Bytes red = pngPixel(64, 32);
    EXPECT_GE(red[0], 250);
    EXPECT_LE(red[1], 5);
    EXPECT_LE(red[2], 5);
}

TEST_F(CtlSnapshotTest, AJpegIsKeptAsItIsOrDecoded) {
    const Bytes file = jpeg();
    ASSERT_TRUE(write(mJpeg, file, PixelFormat::MJPG, 640, 480)) << mError;
    EXPECT_EQ(file, fileBytes(mJpeg));
    ASSERT_TRUE(write(mPng, file, PixelFormat::MJPG, 640, 480)) << mError;
    pngPixel(640, 480);
}

TEST_F(CtlSnapshotTest, ARawPictureBecomesAJpeg) {
    ASSERT_TRUE(write(mJpeg, yuyv(235, 128, 128), PixelFormat::YUYV)) << mError;
    const Bytes file = fileBytes(mJpeg);
    testcard::Picture picture;
    ASSERT_TRUE(testcard::decodeJpeg(file.data(), file.size(), &picture, &mError)) << mError;
    EXPECT_EQ(64u, picture.width);
    EXPECT_EQ(32u, picture.height);
    EXPECT_GE(picture.samples[0], 250);
}

TEST_F(CtlSnapshotTest, DamagedFramesAndFilesThatCannotBeWrittenAreRefused) {
    Bytes cut = jpeg();
    cut.resize(cut.size() / 2);
    EXPECT_FALSE(write(mPng, cut, PixelFormat::MJPG, 640, 480));
    EXPECT_FALSE(mError.empty());
    EXPECT_FALSE(write(mPng, Bytes(10), PixelFormat::YUYV));
    EXPECT_EQ("the frame is cut short", mError);
    mError.clear();
    EXPECT_FALSE(write("/nowhere/a.png", yuyv(1, 1, 1), PixelFormat::YUYV));
    EXPECT_FALSE(mError.empty());
    EXPECT_FALSE(write("/nowhere/a.jpg", jpeg(), PixelFormat::MJPG, 640, 480));
    EXPECT_EQ("No such file or directory", mError);
}

}  // namespace
}  // namespace korvane::ctl
