// SPDX-License-Identifier: Apache-2.0
// What the host asks and what the device answers, byte by byte.

#include <atomic>
#include <cstring>
#include <map>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "support/UvcDeviceTest.h"

using korvane::test::KernelCall;
using korvane::test::LogLine;
using korvane::test::UvcDeviceTest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint8_t kGet = 0xA1;  // class, interface, to the host
constexpr uint8_t kSet = 0x21;
constexpr uint8_t kSetCur = 0x01;
constexpr uint8_t kGetCur = 0x81;
constexpr uint8_t kGetMin = 0x82;
constexpr uint8_t kGetMax = 0x83;
constexpr uint8_t kGetRes = 0x84;
constexpr uint8_t kGetLen = 0x85;
constexpr uint8_t kGetInfo = 0x86;
constexpr uint8_t kGetDef = 0x87;
constexpr uint16_t kControl = 0;
constexpr uint16_t kStreaming = 1;

using Bytes = std::vector<uint8_t>;

struct Mode {
    uint8_t format;
    uint8_t frame;
    uint32_t interval;
    uint32_t size;
};

constexpr Mode kYuyvSmall{1, 1, 666666, 614400};
constexpr Mode kYuyvLarge{1, 2, 333333, 1843200};

void append(Bytes* bytes, uint32_t value) {
    for (int i = 0; i < 4; ++i) bytes->push_back(static_cast<uint8_t>(value >> 8 * i));
}

// The 34 bytes of a control block.
Bytes blockOf(const Mode& mode) {
    Bytes bytes{1, 0, mode.format, mode.frame};
    append(&bytes, mode.interval);
    bytes.resize(18);
    append(&bytes, mode.size);
    append(&bytes, 3072);
    append(&bytes, 0);
    bytes.insert(bytes.end(), {3, 1, 0, 1});
    return bytes;
}

// A whole response: the length, then the data and zeros after it.
Bytes response(int32_t length, Bytes data = {}) {
    Bytes bytes;
    append(&bytes, static_cast<uint32_t>(length));
    bytes.insert(bytes.end(), data.begin(), data.end());
    bytes.resize(64);
    return bytes;
}

Bytes bytesOf(const uvc_request_data& data) {
    Bytes bytes(sizeof(data));
    memcpy(bytes.data(), &data, sizeof(data));
    return bytes;
}

const Bytes kStall = response(-51);

class UvcRequestTest : public UvcDeviceTest {
  protected:
    void SetUp() override {
        UvcDeviceTest::SetUp();
        if (!IsSkipped()) openDevice();
    }

    void openDevice() {
        ASSERT_EQ(0, mCtrl->open());
        mKernel.clearCalls();
        mLog.clear();
    }

    // Of the hundreds of requests of a loop only the latest is kept.
    Bytes askAlone(uint8_t type, uint8_t what, uint16_t value, uint16_t index) {
        mKernel.clearCalls();
        return ask(type, what, value, index);
    }
    Bytes ask(uint8_t type, uint8_t what, uint16_t value, uint16_t index) {
        return bytesOf(request(type, what, value, index));
    }
    Bytes get(uint8_t what, uint8_t selector = kProbe) {
        return ask(kGet, what, selector << 8, kStreaming);
    }

    // The formats that were set since the device was opened.
    std::vector<v4l2_format> formatsSet() const {
        std::vector<v4l2_format> formats;
        for (const KernelCall& call : mKernel.calls("VIDIOC_S_FMT")) {
            formats.push_back(call.as<v4l2_format>());
        }
        return formats;
    }
};

// --- Probe and commit ---

TEST_F(UvcRequestTest, AnswersEveryGetOfProbeAndCommit) {
    const std::map<uint8_t, Bytes> answers{
            {kGetCur, response(34, blockOf(kYuyvSmall))},
            {kGetMin, response(34, blockOf(kYuyvSmall))},
            {kGetMax, response(34, blockOf(kYuyvLarge))},
            {kGetRes, response(34, blockOf(kYuyvSmall))},
            {kGetLen, response(2, {0x00, 0x22})},
            {kGetInfo, response(1, {0x03})},
            {kGetDef, response(34, blockOf(kYuyvSmall))},
    };
    for (uint8_t selector : {kProbe, kCommit}) {
        for (const auto& [what, answer] : answers) {
            EXPECT_EQ(answer, get(what, selector)) << int{what} << " of " << int{selector};
        }
    }
    EXPECT_THAT(mLog.lines(kTag), IsEmpty());
}

TEST_F(UvcRequestTest, Uvc15MakesTheControlLongerButNotItsContents) {
    makeDevice("YUY2", "336\n");
    openDevice();
    const std::map<uint8_t, Bytes> answers{
            {kSetCur, response(48)},
            {kGetCur, response(48, blockOf(kYuyvSmall))},
            {kGetMin, response(48, blockOf(kYuyvSmall))},
            {kGetMax, response(48, blockOf(kYuyvLarge))},
            {kGetRes, response(48, blockOf(kYuyvSmall))},
            {kGetLen, response(2, {0x00, 0x22})},
            {kGetInfo, response(1, {0x03})},
            {kGetDef, response(48, blockOf(kYuyvSmall))},
    };
    for (const auto& [what, answer] : answers) EXPECT_EQ(answer, get(what)) << int{what};
}

TEST_F(UvcRequestTest, OnlyVersion15IsLonger) {
    for (const char* version : {"256\n", "335\n", "337\n", "0\n"}) {
        makeDevice("YUY2", version);
        openDevice();
        EXPECT_EQ(response(34, blockOf(kYuyvSmall)), get(kGetCur)) << version;
    }
}

TEST_F(UvcRequestTest, GetResGivesTheCurrentValuesRatherThanSteps) {
    select(kProbe, kMjpeg, kLargeFrame);
    const Mode current{2, 2, 333333, 921600};
    EXPECT_EQ(response(34, blockOf(current)), get(kGetRes));
    EXPECT_EQ(response(34, blockOf(current)), get(kGetCur));
}

TEST_F(UvcRequestTest, MinimumAndMaximumFollowTheSelectedFormat) {
    select(kProbe, kMjpeg, kLargeFrame);
    EXPECT_EQ(response(34, blockOf({2, 1, 666666, 307200})), get(kGetMin));
    EXPECT_EQ(response(34, blockOf({2, 2, 333333, 921600})), get(kGetMax));
    EXPECT_EQ(get(kGetMin), get(kGetDef));
}

TEST_F(UvcRequestTest, AGetIsAnsweredFromTheControlThatWasSetLast) {
    select(kProbe, kMjpeg, kLargeFrame);
    select(kCommit, kUncompressed, kLargeFrame);
    const Bytes committed = response(34, blockOf(kYuyvLarge));
    EXPECT_EQ(committed, get(kGetCur, kCommit));
    EXPECT_EQ(committed, get(kGetCur, kProbe));
}

TEST_F(UvcRequestTest, AnUnknownRequestIsAnsweredWithZerosAndLogged) {
    for (int what = 0; what < 256; ++what) {
        if (what == kSetCur || (what >= kGetCur && what <= kGetDef)) continue;
        mLog.clear();
        EXPECT_EQ(response(34),
                  askAlone(kGet, static_cast<uint8_t>(what), kCommit << 8, kStreaming))
                << what;
        EXPECT_THAT(mLog.lines(), ElementsAre(LogLine{ANDROID_LOG_WARN, kTag,
                                                      "processStreamingEvent: Unknown req " +
                                                              std::to_string(what)}));
    }
}

TEST_F(UvcRequestTest, AnyOtherStreamingControlStalls) {
    for (int selector = 0; selector < 256; ++selector) {
        if (selector == kProbe || selector == kCommit) continue;
        for (uint8_t what : {kSetCur, kGetCur, kGetLen, uint8_t{0x99}}) {
            EXPECT_EQ(kStall, askAlone(kGet, what, selector << 8, kStreaming)) << selector;
        }
    }
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(UvcRequestTest, AStalledSetCurDoesNotSelectItsControl) {
    select(kCommit, kUncompressed, kLargeFrame);
    EXPECT_EQ(kStall, ask(kSet, kSetCur, 3 << 8, kStreaming));
    EXPECT_EQ(response(34, blockOf(kYuyvLarge)), get(kGetCur));
}

TEST_F(UvcRequestTest, OnlyTheBytesOfSelectorAndInterfaceCount) {
    const Bytes current = response(34, blockOf(kYuyvSmall));
    EXPECT_EQ(current, ask(kGet, kGetCur, 0x01FF, kStreaming));
    EXPECT_EQ(current, ask(kGet, kGetCur, 0x0100, 0xFF00 | kStreaming));
}

TEST_F(UvcRequestTest, TheDirectionBitDoesNotMatter) {
    EXPECT_EQ(response(34, blockOf(kYuyvSmall)), ask(kSet, kGetCur, kProbe << 8, kStreaming));
}

// --- What stalls ---

TEST_F(UvcRequestTest, EveryRequestButAClassRequestStalls) {
    for (uint8_t kind : {0x00, 0x40, 0x60}) {
        EXPECT_EQ(kStall, ask(0x81 | kind, kGetCur, kProbe << 8, kStreaming)) << int{kind};
    }
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(UvcRequestTest, EveryRecipientButAnInterfaceStalls) {
    for (uint8_t recipient = 0; recipient < 32; ++recipient) {
        if (recipient == 1) continue;
        EXPECT_EQ(kStall, ask(0xA0 | recipient, kGetCur, kProbe << 8, kStreaming))
                << int{recipient};
    }
}

TEST_F(UvcRequestTest, EveryFurtherInterfaceStalls) {
    for (uint16_t interface : {2, 3, 0x7F, 0xFF, 0x0102}) {
        EXPECT_EQ(kStall, ask(kGet, kGetCur, kProbe << 8, interface)) << interface;
    }
}

TEST_F(UvcRequestTest, EveryControlOfTheControlInterfaceStalls) {
    for (int selector = 0; selector < 256; ++selector) {
        for (uint8_t what : {kSetCur, kGetCur, kGetMin, kGetMax, kGetRes, kGetLen, kGetInfo,
                             kGetDef, uint8_t{0x42}}) {
            EXPECT_EQ(kStall, askAlone(kGet, what, selector << 8, kControl)) << selector;
        }
    }
}

TEST_F(UvcRequestTest, TheControlInterfaceLogsOnlyTheTwoLowSelectors) {
    for (int what = 0; what < 256; ++what) {
        for (uint16_t selector : {1, 2}) {
            mLog.clear();
            askAlone(kGet, static_cast<uint8_t>(what), selector << 8, kControl);
            std::vector<LogLine> expected;
            if (what == kGetCur) {
                expected = {{ANDROID_LOG_DEBUG, kTag, "processControlEvent: GET_CUR "}};
            } else if (what != kSetCur && (what < kGetMin || what > kGetDef)) {
                expected = {{ANDROID_LOG_WARN, kTag,
                             "processControlEvent: Unknown req " + std::to_string(what)}};
            }
            EXPECT_EQ(expected, mLog.lines()) << what;
        }
    }
    mLog.clear();
    for (uint16_t selector : {0, 3, 0x81, 0xFF}) {
        ask(kGet, kGetCur, selector << 8, kControl);
        ask(kGet, 0x42, selector << 8, kControl);
    }
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(UvcRequestTest, ASetCurOnTheControlInterfaceSelectsNothing) {
    EXPECT_EQ(kStall, ask(kSet, kSetCur, kCommit << 8, kControl));
    mKernel.sendData(Bytes(34, 1));
    exception();
    EXPECT_TRUE(mLog.has(ANDROID_LOG_DEBUG, kTag, "setting unknown control, length = 34\n"));
}

TEST_F(UvcRequestTest, AFailingResponseIsLogged) {
    mKernel.fail("UVCIOC_SEND_RESPONSE", EIO);
    get(kGetCur);
    EXPECT_THAT(mLog.lines(),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag,
                                    "UVCIOC_SEND_RESPONSE failed: Input/output error (5)\n"}));
}

TEST_F(UvcRequestTest, APositiveResultOfTheResponseIsNoFailure) {
    mKernel.answerNext("UVCIOC_SEND_RESPONSE", [](void*) { return 34; });
    get(kGetCur);
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(UvcRequestTest, AnAnswerLeavesNothingForTheNextResponse) {
    get(kGetMax);
    EXPECT_EQ(kStall, get(kGetMax, 3));
}

// --- The data stage ---

TEST_F(UvcRequestTest, SetCurExpectsAControlBlock) {
    EXPECT_EQ(response(34), ask(kSet, kSetCur, kProbe << 8, kStreaming));
    EXPECT_EQ(response(34), ask(kSet, kSetCur, kCommit << 8, kStreaming));
}

TEST_F(UvcRequestTest, AProbeChangesTheCurrentSelectionAndSetsNoFormat) {
    select(kProbe, kUncompressed, kLargeFrame);
    EXPECT_EQ(response(34, blockOf(kYuyvLarge)), get(kGetCur));
    EXPECT_THAT(formatsSet(), IsEmpty());
    EXPECT_THAT(mLog.lines(kTag), ElementsAre(LogLine{ANDROID_LOG_DEBUG, kTag,
                                                      "setting probe control, length = 34"}));
}

TEST_F(UvcRequestTest, ACommitSetsTheFormat) {
    select(kCommit, kUncompressed, kLargeFrame);
    v4l2_format expected = {};
    expected.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    expected.fmt.pix.width = 1280;
    expected.fmt.pix.height = 720;
    expected.fmt.pix.pixelformat = V4L2_PIX_FMT_YUYV;
    ASSERT_EQ(1u, formatsSet().size());
    EXPECT_TRUE(mKernel.calls("VIDIOC_S_FMT")[0].is(expected));
    EXPECT_THAT(mLog.lines(kTag),
                ElementsAre(LogLine{ANDROID_LOG_DEBUG, kTag, "setting commit control, length = 34"},
                            LogLine{ANDROID_LOG_DEBUG, kTag,
                                    "handleData: commit with fmt: YUYV, size: 1280x720, "
                                    "fps: 30.00"}));
}

TEST_F(UvcRequestTest, ACommitIsLoggedAfterItsSelectionAndBeforeItsFormatIsSet) {
    std::vector<LogLine> lines;
    mKernel.answerNext("VIDIOC_S_FMT", [&](void*) {
        lines = mLog.lines();
        return 0;
    });
    select(kCommit, 3, kSmallFrame);
    EXPECT_THAT(lines,
                ElementsAre(LogLine{ANDROID_LOG_ERROR, "UVC-Config", "Invalid format set: 3"},
                            LogLine{ANDROID_LOG_DEBUG, kTag, "setting commit control, length = 34"},
                            LogLine{ANDROID_LOG_DEBUG, kTag,
                                    "handleData: commit with fmt: YUYV, size: 640x480, "
                                    "fps: 15.00"}));
    EXPECT_EQ(lines, mLog.lines());
}

TEST_F(UvcRequestTest, AProbeIsLoggedAfterItsSelection) {
    select(kProbe, 3, kSmallFrame);
    EXPECT_THAT(
            mLog.lines(),
            ElementsAre(LogLine{ANDROID_LOG_ERROR, "UVC-Config", "Invalid format set: 3"},
                        LogLine{ANDROID_LOG_DEBUG, kTag, "setting probe control, length = 34"}));
}

// Format, frame and interval are three numbers: without the lock a reader gets some of each mode.
TEST_F(UvcRequestTest, SettingsForOtherThreadsAreNeverOfTwoModes) {
    select(kCommit, kUncompressed, kSmallFrame, 333333);
    std::atomic<bool> done{false};
    std::atomic<int> mixed{0};
    std::thread reader([&] {
        while (!done) {
            const auto settings = mCtrl->getStreamSettings();
            const bool isMjpeg = settings.format == V4L2_PIX_FMT_MJPEG;
            if (settings.width != (isMjpeg ? 1280u : 640u)) ++mixed;
            if (settings.frameInterval != (isMjpeg ? 666666u : 333333u)) ++mixed;
        }
    });
    for (int i = 0; i < 3000; ++i) {
        select(kCommit, kMjpeg, kLargeFrame, 666666);
        select(kCommit, kUncompressed, kSmallFrame, 333333);
        mKernel.clearCalls();
        mLog.clear();
    }
    done = true;
    reader.join();
    EXPECT_EQ(0, mixed);
}

TEST_F(UvcRequestTest, OnlyAnMjpegCommitAsksForAnImageSize) {
    select(kCommit, kMjpeg, kSmallFrame, 400000);
    select(kCommit, kUncompressed, kSmallFrame, 400000);
    ASSERT_EQ(2u, formatsSet().size());
    EXPECT_EQ(640u * 480 * 2, formatsSet()[0].fmt.pix.sizeimage);
    EXPECT_EQ(uint32_t{V4L2_PIX_FMT_MJPEG}, formatsSet()[0].fmt.pix.pixelformat);
    EXPECT_EQ(uint32_t{V4L2_FIELD_ANY}, formatsSet()[0].fmt.pix.field);
    EXPECT_EQ(0u, formatsSet()[1].fmt.pix.sizeimage);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_DEBUG, kTag,
                         "handleData: commit with fmt: MJPG, size: 640x480, fps: 25.00"));
}

TEST_F(UvcRequestTest, AnNv12CommitIsNamedSo) {
    makeDevice("NV12");
    openDevice();
    select(kCommit, kUncompressed, kSmallFrame, 666666);
    EXPECT_EQ(uint32_t{V4L2_PIX_FMT_NV12}, formatsSet()[0].fmt.pix.pixelformat);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_DEBUG, kTag,
                         "handleData: commit with fmt: NV12, size: 640x480, fps: 15.00"));
}

TEST_F(UvcRequestTest, ACommitIsDoneWhateverSetFormatSays) {
    mKernel.fail("VIDIOC_S_FMT", EINVAL);
    select(kCommit, kUncompressed, kLargeFrame);
    EXPECT_EQ(response(34, blockOf(kYuyvLarge)), get(kGetCur));
}

TEST_F(UvcRequestTest, ACommitOfAModeThatDoesNotExistKeepsTheSelection) {
    select(kCommit, kUncompressed, kLargeFrame);
    for (const auto& [format, frame] : {std::pair{0, 1}, {3, 1}, {1, 0}, {1, 3}, {255, 255}}) {
        select(kCommit, format, frame);
        EXPECT_EQ(response(34, blockOf(kYuyvLarge)), get(kGetCur)) << format << ' ' << frame;
    }
    for (const v4l2_format& format : formatsSet()) EXPECT_EQ(1280u, format.fmt.pix.width);
    EXPECT_EQ(6u, formatsSet().size());
}

TEST_F(UvcRequestTest, TheIntervalIsReadLittleEndianAndTakenAsItIs) {
    select(kProbe, kUncompressed, kSmallFrame, 0x89ABCDEF);
    EXPECT_EQ(response(34, blockOf({1, 1, 0x89ABCDEF, 614400})), get(kGetCur));
}

TEST_F(UvcRequestTest, AnIntervalOfZeroDoesNoHarm) {
    select(kCommit, kUncompressed, kSmallFrame, 0);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_DEBUG, kTag,
                         "handleData: commit with fmt: YUYV, size: 640x480, fps: inf"));
}

TEST_F(UvcRequestTest, TheHighestRateIsLoggedToTheLastDigit) {
    select(kCommit, kUncompressed, kSmallFrame, 1);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_DEBUG, kTag,
                         "handleData: commit with fmt: YUYV, size: 640x480, fps: 10000000.00"));
}

TEST_F(UvcRequestTest, UnannouncedDataIsOnlyLogged) {
    mKernel.sendData(Bytes(34, 1));
    EXPECT_EQ(0, exception());
    EXPECT_THAT(mLog.lines(), ElementsAre(LogLine{ANDROID_LOG_DEBUG, kTag,
                                                  "setting unknown control, length = 34\n"}));
    EXPECT_THAT(formatsSet(), IsEmpty());
    EXPECT_EQ(response(34, blockOf(kYuyvSmall)), get(kGetCur));
}

TEST_F(UvcRequestTest, TheLengthOfTheDataIsOnlyLogged) {
    ask(kSet, kSetCur, kProbe << 8, kStreaming);
    mKernel.sendData({1, 0, 1, 2, 0x15, 0x16, 0x05, 0});
    exception();
    EXPECT_TRUE(mLog.has(ANDROID_LOG_DEBUG, kTag, "setting probe control, length = 8"));
    EXPECT_EQ(response(34, blockOf(kYuyvLarge)), get(kGetCur));
}

TEST_F(UvcRequestTest, SettingsForOtherThreadsAreThoseOfTheActiveControl) {
    select(kCommit, kMjpeg, kLargeFrame, 400000);
    const auto settings = mCtrl->getStreamSettings();
    EXPECT_EQ(1280u, settings.width);
    EXPECT_EQ(720u, settings.height);
    EXPECT_EQ(uint32_t{V4L2_PIX_FMT_MJPEG}, settings.format);
    EXPECT_EQ("MJPG", settings.formatName);
    EXPECT_EQ(400000u, settings.frameInterval);
}

}  // namespace
