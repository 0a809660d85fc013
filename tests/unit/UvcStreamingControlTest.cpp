// SPDX-License-Identifier: Apache-2.0
// The control blocks with which the configuration answers probe and commit, byte by byte.
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/PrivateFiles.h"
#include "support/UvcFunctionTree.h"
#include "uvc/UvcConfig.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

using test::PrivateFiles;
using test::UvcFunctionTree;
using Bytes = std::vector<uint8_t>;
using Fill = void (UvcConfig::*)(uvc_streaming_control*) const;

constexpr auto* kUncompressed = UvcFunctionTree::kUncompressed;
constexpr auto* kMjpeg = UvcFunctionTree::kMjpeg;
constexpr size_t kControlSize = 34;
constexpr size_t kLongControlSize = 48;
constexpr uint8_t kUntouched = 0xa5;

// A block of a UVC 1.5 control, as the fill operation left it.
Bytes fillLong(const UvcConfig& config, Fill fill) {
    alignas(uvc_streaming_control) std::array<uint8_t, kLongControlSize> block;
    block.fill(kUntouched);
    (config.*fill)(reinterpret_cast<uvc_streaming_control*>(block.data()));
    return {block.begin(), block.end()};
}

Bytes fillBytes(const UvcConfig& config, Fill fill) {
    Bytes block = fillLong(config, fill);
    block.resize(kControlSize);
    return block;
}

// Its larger fields are not aligned, and an expectation takes references: + makes values of them.
uvc_streaming_control filled(const UvcConfig& config, Fill fill) {
    uvc_streaming_control control;
    memcpy(&control, fillBytes(config, fill).data(), sizeof(control));
    return control;
}

// Formats of three (YUYV) and five (MJPEG) frames; each frame has its own intervals.
class UvcStreamingControlTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mFiles.available()) GTEST_SKIP() << mFiles.whyNot();
        mTree = std::make_unique<UvcFunctionTree>(mFiles);
        mTree->addUncompressed("YUY2");
        mTree->addFrame(kUncompressed, "f1", 640, 480, {333333, 500000, 666666});
        mTree->addFrame(kUncompressed, "f2", 1280, 720, {333333, 1000000});
        mTree->addFrame(kUncompressed, "f3", 1920, 1080, {2000000, 5000000});
        mTree->addMjpeg();
        mTree->addFrame(kMjpeg, "f1", 320, 240, {111111, 222222});
        mTree->addFrame(kMjpeg, "f2", 640, 480, {333333, 444444});
        mTree->addFrame(kMjpeg, "f3", 1280, 720, {555555, 777777});
        mTree->addFrame(kMjpeg, "f4", 1920, 1080, {888888, 999999});
        mTree->addFrame(kMjpeg, "f5", 3840, 2160, {1111111});
    }

    PrivateFiles mFiles;
    std::unique_ptr<UvcFunctionTree> mTree;
};

TEST_F(UvcStreamingControlTest, FillsTheMinimumByteByByte) {
    UvcConfig config;
    ASSERT_TRUE(config.setVideoStreamConfig(2, 4, 123));
    const Bytes expected = {
            1,    0,                 // bmHint
            2,    1,                 // bFormatIndex, bFrameIndex
            0x0e, 0x64, 0x03, 0x00,  // dwFrameInterval 222222
            0,    0,    0,    0,     // wKeyFrameRate, wPFrameRate
            0,    0,    0,    0,     // wCompQuality, wCompWindowSize
            0,    0,                 // wDelay
            0x00, 0x2c, 0x01, 0x00,  // dwMaxVideoFrameSize 320 * 240
            0x00, 0x0c, 0x00, 0x00,  // dwMaxPayloadTransferSize 3072
            0,    0,    0,    0,     // dwClockFrequency
            3,    1,    0,    1,     // bmFramingInfo, bPreferedVersion, bMinVersion, bMaxVersion
    };
    EXPECT_EQ(expected, fillBytes(config, &UvcConfig::fillMinCtrl));
}

TEST_F(UvcStreamingControlTest, FillsTheMaximumByteByByte) {
    const UvcConfig config;
    const Bytes expected = {
            1,    0,                 // bmHint
            1,    3,                 // bFormatIndex, bFrameIndex
            0x80, 0x84, 0x1e, 0x00,  // dwFrameInterval 2000000
            0,    0,    0,    0,     // wKeyFrameRate, wPFrameRate
            0,    0,    0,    0,     // wCompQuality, wCompWindowSize
            0,    0,                 // wDelay
            0x00, 0x48, 0x3f, 0x00,  // dwMaxVideoFrameSize 1920 * 1080 * 2
            0x00, 0x0c, 0x00, 0x00,  // dwMaxPayloadTransferSize 3072
            0,    0,    0,    0,     // dwClockFrequency
            3,    1,    0,    1,     // bmFramingInfo, bPreferedVersion, bMinVersion, bMaxVersion
    };
    EXPECT_EQ(expected, fillBytes(config, &UvcConfig::fillMaxCtrl));
}

TEST_F(UvcStreamingControlTest, FillsTheSelectionByteByByte) {
    UvcConfig config;
    ASSERT_TRUE(config.setVideoStreamConfig(1, 2, 333333));
    const Bytes expected = {
            1,    0,                 // bmHint
            1,    2,                 // bFormatIndex, bFrameIndex
            0x15, 0x16, 0x05, 0x00,  // dwFrameInterval 333333
            0,    0,    0,    0,     // wKeyFrameRate, wPFrameRate
            0,    0,    0,    0,     // wCompQuality, wCompWindowSize
            0,    0,                 // wDelay
            0x00, 0x20, 0x1c, 0x00,  // dwMaxVideoFrameSize 1280 * 720 * 2
            0x00, 0x0c, 0x00, 0x00,  // dwMaxPayloadTransferSize 3072
            0,    0,    0,    0,     // dwClockFrequency
            3,    1,    0,    1,     // bmFramingInfo, bPreferedVersion, bMinVersion, bMaxVersion
    };
    EXPECT_EQ(expected, fillBytes(config, &UvcConfig::fillCurCtrl));
}

TEST_F(UvcStreamingControlTest, FillsTheDefaultAsTheMinimum) {
    UvcConfig config;
    ASSERT_TRUE(config.setVideoStreamConfig(2, 3, 1));
    EXPECT_EQ(fillBytes(config, &UvcConfig::fillMinCtrl),
              fillBytes(config, &UvcConfig::fillDefaultCtrl));
}

TEST_F(UvcStreamingControlTest, LeavesTheTailOfALongControlAlone) {
    const UvcConfig config;
    for (Fill fill : {&UvcConfig::fillMinCtrl, &UvcConfig::fillDefaultCtrl, &UvcConfig::fillMaxCtrl,
                      &UvcConfig::fillCurCtrl}) {
        const Bytes block = fillLong(config, fill);
        EXPECT_EQ(Bytes(kLongControlSize - kControlSize, kUntouched),
                  Bytes(block.begin() + kControlSize, block.end()));
        EXPECT_EQ((Bytes{3, 1, 0, 1}), Bytes(block.begin() + 30, block.begin() + 34));
    }
}

TEST_F(UvcStreamingControlTest, ReportsTheInitialIntervalBeforeAnySelection) {
    const auto control = filled(UvcConfig(), &UvcConfig::fillCurCtrl);
    EXPECT_EQ(1, control.bFormatIndex);
    EXPECT_EQ(1, control.bFrameIndex);
    EXPECT_EQ(666666u, control.dwFrameInterval);
    EXPECT_EQ(640u * 480 * 2, +control.dwMaxVideoFrameSize);
}

TEST_F(UvcStreamingControlTest, ReportsAnIntervalThatIsNotListed) {
    UvcConfig config;
    ASSERT_TRUE(config.setVideoStreamConfig(1, 1, 1));
    EXPECT_EQ(1u, filled(config, &UvcConfig::fillCurCtrl).dwFrameInterval);
}

TEST_F(UvcStreamingControlTest, AnswersFromTheActiveSelection) {
    UvcConfig config;
    config.setControlSelector(1);
    ASSERT_TRUE(config.setVideoStreamConfig(2, 5, 111));
    config.setControlSelector(2);
    ASSERT_TRUE(config.setVideoStreamConfig(1, 3, 222));

    auto current = filled(config, &UvcConfig::fillCurCtrl);
    EXPECT_EQ(1, current.bFormatIndex);
    EXPECT_EQ(3, current.bFrameIndex);
    EXPECT_EQ(222u, current.dwFrameInterval);
    EXPECT_EQ(1, filled(config, &UvcConfig::fillMinCtrl).bFormatIndex);
    EXPECT_EQ(1, filled(config, &UvcConfig::fillMaxCtrl).bFormatIndex);

    config.setControlSelector(1);
    current = filled(config, &UvcConfig::fillCurCtrl);
    EXPECT_EQ(2, current.bFormatIndex);
    EXPECT_EQ(5, current.bFrameIndex);
    EXPECT_EQ(111u, current.dwFrameInterval);
    EXPECT_EQ(2, filled(config, &UvcConfig::fillMinCtrl).bFormatIndex);
    EXPECT_EQ(2, filled(config, &UvcConfig::fillMaxCtrl).bFormatIndex);
}

TEST_F(UvcStreamingControlTest, TakesTheMaximumsFrameCountFromTheFirstFormat) {
    UvcConfig config;
    ASSERT_TRUE(config.setVideoStreamConfig(2, 1, 1));
    const auto control = filled(config, &UvcConfig::fillMaxCtrl);
    EXPECT_EQ(2, control.bFormatIndex);
    EXPECT_EQ(3, control.bFrameIndex);
    EXPECT_EQ(555555u, control.dwFrameInterval);
    EXPECT_EQ(1280u * 720, +control.dwMaxVideoFrameSize);
}

TEST_F(UvcStreamingControlTest, ReportsZerosWhereTheSelectedFormatHasFewerFramesThanTheFirst) {
    for (const char* frame : {"f1", "f2", "f3"}) {
        mTree->remove(std::string("streaming/mjpeg/m/") + frame);
    }
    UvcConfig config;
    ASSERT_TRUE(config.setVideoStreamConfig(2, 2, 1));
    const auto control = filled(config, &UvcConfig::fillMaxCtrl);
    EXPECT_EQ(2, control.bFormatIndex);
    EXPECT_EQ(3, control.bFrameIndex);
    EXPECT_EQ(0u, control.dwFrameInterval);
    EXPECT_EQ(0u, +control.dwMaxVideoFrameSize);
    EXPECT_EQ(3072u, +control.dwMaxPayloadTransferSize);
}

TEST_F(UvcStreamingControlTest, ReportsZerosWithoutFormats) {
    mTree->remove("streaming");
    const UvcConfig config;
    for (Fill fill : {&UvcConfig::fillMinCtrl, &UvcConfig::fillMaxCtrl, &UvcConfig::fillCurCtrl}) {
        const auto control = filled(config, fill);
        EXPECT_EQ(1, control.bmHint);
        EXPECT_EQ(1, control.bFormatIndex);
        EXPECT_EQ(0u, +control.dwMaxVideoFrameSize);
        EXPECT_EQ(3072u, +control.dwMaxPayloadTransferSize);
    }
    EXPECT_EQ(0u, filled(config, &UvcConfig::fillMinCtrl).dwFrameInterval);
    EXPECT_EQ(0u, filled(config, &UvcConfig::fillMaxCtrl).dwFrameInterval);
    EXPECT_EQ(0, filled(config, &UvcConfig::fillMaxCtrl).bFrameIndex);
    EXPECT_EQ(666666u, filled(config, &UvcConfig::fillCurCtrl).dwFrameInterval);
}

TEST_F(UvcStreamingControlTest, KeepsTheMaximumsFrameCountIn8Bits) {
    mTree->remove("streaming/uncompressed/u");
    for (int number = 6; number <= 257; ++number) {
        mTree->addFrame(kMjpeg, "f" + std::to_string(number), 10, number, {333333});
    }
    const auto control = filled(UvcConfig(), &UvcConfig::fillMaxCtrl);
    EXPECT_EQ(1, control.bFrameIndex);
    EXPECT_EQ(3840u * 2160, +control.dwMaxVideoFrameSize);
}

TEST_F(UvcStreamingControlTest, TakesIntervalsAsTheFileListsThem) {
    mTree->set("streaming/uncompressed/u/f1/dwFrameInterval", "666666\n333333\n500000\n");
    mTree->set("streaming/uncompressed/u/f3/dwFrameInterval", "5000000\n2000000\n");
    const UvcConfig config;
    EXPECT_EQ(500000u, filled(config, &UvcConfig::fillMinCtrl).dwFrameInterval);
    EXPECT_EQ(5000000u, filled(config, &UvcConfig::fillMaxCtrl).dwFrameInterval);
}

TEST_F(UvcStreamingControlTest, ReportsTheMaximumPacketAsItIs) {
    mTree->set("streaming_maxburst", "15\n");
    mTree->set("streaming_maxpacket", "4294967295\n");
    const UvcConfig config;
    for (Fill fill : {&UvcConfig::fillMinCtrl, &UvcConfig::fillMaxCtrl, &UvcConfig::fillCurCtrl}) {
        EXPECT_EQ(4294967295u, +filled(config, fill).dwMaxPayloadTransferSize);
    }
}

// --- Frame sizes ---

class FrameSizeTest : public UvcStreamingControlTest {
  protected:
    // The frame size of an uncompressed function's only mode, by each of the fill operations.
    std::array<uint32_t, 3> sizesOf(uint32_t width, uint32_t height, const std::string& bits) {
        mTree->remove("streaming/uncompressed/u");
        mTree->addUncompressed("NV12");
        mTree->addFrame(kUncompressed, "f1", width, height);
        mTree->set("streaming/uncompressed/u/bBitsPerPixel", bits);
        const UvcConfig config;
        return {filled(config, &UvcConfig::fillMinCtrl).dwMaxVideoFrameSize,
                filled(config, &UvcConfig::fillMaxCtrl).dwMaxVideoFrameSize,
                filled(config, &UvcConfig::fillCurCtrl).dwMaxVideoFrameSize};
    }
};

using Sizes = std::array<uint32_t, 3>;

TEST_F(FrameSizeTest, IsThePixelCountTimesTheFactor) {
    EXPECT_EQ((Sizes{3110400, 3110400, 3110400}), sizesOf(1920, 1080, "12"));
    EXPECT_EQ((Sizes{1843200, 1843200, 1843200}), sizesOf(1280, 720, "16"));
    EXPECT_EQ((Sizes{1, 1, 1}), sizesOf(1, 1, "8"));
}

TEST_F(FrameSizeTest, TruncatesToWholeBytes) {
    EXPECT_EQ((Sizes{13, 13, 13}), sizesOf(3, 3, "12"));
}

TEST_F(FrameSizeTest, IsCountedInSinglePrecision) {
    // 4097 * 4097 is 16785409, which a float holds only as 16785408 or 16785410.
    EXPECT_EQ((Sizes{16785408, 16785408, 16785408}), sizesOf(4097, 4097, "8"));
    // Rounded once, in the end, this would be 25178114.
    EXPECT_EQ((Sizes{25178112, 25178112, 25178112}), sizesOf(4097, 4097, "12"));
}

TEST_F(FrameSizeTest, TakesAPixelCountFrom2To31OnForSignedOnlyInTheSelection) {
    EXPECT_EQ((Sizes{3600000000, 3600000000, 0}), sizesOf(60000, 60000, "8"));
}

TEST_F(FrameSizeTest, StaysWithin32Bits) {
    EXPECT_EQ((Sizes{4294967295, 4294967295, 0}), sizesOf(60000, 60000, "16"));
    // 4294967295 pixels, in single precision one more.
    EXPECT_EQ((Sizes{4294967295, 4294967295, 0}), sizesOf(65535, 65537, "8"));
    EXPECT_EQ((Sizes{0, 0, 0}), sizesOf(640, 480, "-8"));
}

// --- The text ---

TEST_F(UvcStreamingControlTest, PrintsTheMainFieldsOfACommittedMode) {
    UvcConfig config;
    config.setControlSelector(2);
    ASSERT_TRUE(config.setVideoStreamConfig(1, 2, 333333));
    const auto control = filled(config, &UvcConfig::fillCurCtrl);
    EXPECT_EQ(
            "bmHint: 1 bFormatIndex: 1 bFrameIndex: 2 dwFrameInterval: 333333 "
            "dwMaxVideoFrameSize: 1843200 dwMaxPayloadTransferSize: 3072 bmFrameInfo: 3 "
            "bPreferedVersion: 1 bMaxVersion: 1",
            UvcConfig::ctrlValsToString(&control));
}

TEST(ControlTextTest, PrintsEveryFieldAsAnUnsignedNumber) {
    uvc_streaming_control control;
    memset(&control, 0xff, sizeof(control));
    EXPECT_EQ(
            "bmHint: 65535 bFormatIndex: 255 bFrameIndex: 255 dwFrameInterval: 4294967295 "
            "dwMaxVideoFrameSize: 4294967295 dwMaxPayloadTransferSize: 4294967295 bmFrameInfo: 255 "
            "bPreferedVersion: 255 bMaxVersion: 255",
            UvcConfig::ctrlValsToString(&control));
}

TEST(ControlTextTest, PrintsEachFieldAfterItsLabel) {
    uvc_streaming_control control = {};
    control.bmHint = 1;
    control.bFormatIndex = 2;
    control.bFrameIndex = 3;
    control.dwFrameInterval = 4;
    control.dwMaxVideoFrameSize = 5;
    control.dwMaxPayloadTransferSize = 6;
    control.bmFramingInfo = 7;
    control.bPreferedVersion = 8;
    control.bMaxVersion = 9;
    control.wKeyFrameRate = control.wPFrameRate = control.wCompQuality = 77;
    control.wCompWindowSize = control.wDelay = control.bMinVersion = 77;
    control.dwClockFrequency = 77;
    EXPECT_EQ(
            "bmHint: 1 bFormatIndex: 2 bFrameIndex: 3 dwFrameInterval: 4 dwMaxVideoFrameSize: 5 "
            "dwMaxPayloadTransferSize: 6 bmFrameInfo: 7 bPreferedVersion: 8 bMaxVersion: 9",
            UvcConfig::ctrlValsToString(&control));
}

}  // namespace
}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
