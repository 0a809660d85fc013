// SPDX-License-Identifier: Apache-2.0
// What the configuration reads and the host's selection; the control blocks are another test's.
#include "uvc/UvcConfig.h"

#include <csignal>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

#include <linux/videodev2.h>

#include <gtest/gtest.h>

#include "support/LogRecorder.h"
#include "support/PrivateFiles.h"
#include "support/UvcFunctionTree.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

using test::LogLine;
using test::LogRecorder;
using test::PrivateFiles;
using test::UvcFunctionTree;

constexpr int kProbe = 1;
constexpr int kCommit = 2;

static_assert(std::has_virtual_destructor_v<UvcConfig>);

// Two formats: NV12 with 640x480 and 1280x720, MJPEG with 320x240 and 1920x1080.
class UvcConfigTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mFiles.available()) GTEST_SKIP() << mFiles.whyNot();
        mTree = std::make_unique<UvcFunctionTree>(mFiles);
        mTree->addUncompressed("NV12");
        mTree->addFrame(UvcFunctionTree::kUncompressed, "f1", 640, 480);
        mTree->addFrame(UvcFunctionTree::kUncompressed, "f2", 1280, 720);
        mTree->addMjpeg();
        mTree->addFrame(UvcFunctionTree::kMjpeg, "f1", 320, 240);
        mTree->addFrame(UvcFunctionTree::kMjpeg, "f2", 1920, 1080);
    }

    std::vector<LogLine> error(const std::string& message) {
        return {{ANDROID_LOG_ERROR, "UVC-Config", message}};
    }

    PrivateFiles mFiles;
    std::unique_ptr<UvcFunctionTree> mTree;
};

TEST_F(UvcConfigTest, StartsWithTheFirstFrameOfTheFirstFormat) {
    const LogRecorder log;
    const UvcConfig config;
    EXPECT_EQ(640u, config.getWidth());
    EXPECT_EQ(480u, config.getHeight());
    EXPECT_EQ(V4L2_PIX_FMT_NV12, config.getFormat());
    EXPECT_EQ("NV12", config.getFormatName());
    EXPECT_EQ(666666u, config.getFrameInterval());
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(UvcConfigTest, StartsWithTheSameSelectionForProbeAndCommit) {
    UvcConfig config;
    config.setControlSelector(kCommit);
    EXPECT_EQ(640u, config.getWidth());
    EXPECT_EQ(V4L2_PIX_FMT_NV12, config.getFormat());
    EXPECT_EQ(666666u, config.getFrameInterval());
}

TEST_F(UvcConfigTest, ReadsTheUvcVersionAsADecimalNumber) {
    EXPECT_EQ(272u, UvcConfig().getBcdUVC());
    mTree->set("control/header/h/bcdUVC", "336\n");
    EXPECT_EQ(336u, UvcConfig().getBcdUVC());
    mTree->set("control/header/h/bcdUVC", "0x0150\n");
    EXPECT_EQ(0u, UvcConfig().getBcdUVC());
}

TEST_F(UvcConfigTest, ReadsTheFunctionsAttributesInOrderAndBeforeItsFormats) {
    const std::vector<std::string> attributes = {"streaming_interval", "streaming_maxburst",
                                                 "streaming_maxpacket", "control/header/h/bcdUVC"};
    for (const std::string& attribute : attributes) mTree->remove(attribute);
    mFiles.remove(UvcFunctionTree::path() + "/streaming");
    for (const std::string& attribute : attributes) {
        const LogRecorder log;
        EXPECT_THROW(UvcConfig(), std::invalid_argument);
        EXPECT_EQ(error(UvcFunctionTree::path() + "/" + attribute +
                        ": no usable number in \"\" (No such file or directory), cannot go on"),
                  log.lines());
        mTree->set(attribute, "1\n");
    }
}

TEST_F(UvcConfigTest, KeepsTheSelectorThatWasSetLastEvenAnUnknownOne) {
    const LogRecorder log;
    UvcConfig config;
    EXPECT_EQ(0, config.getControlSelector());
    for (int selector : {kProbe, kCommit, 3, kProbe}) {
        config.setControlSelector(selector);
        EXPECT_EQ(selector, config.getControlSelector());
    }
}

TEST_F(UvcConfigTest, ReadsConfigfsOnlyOnce) {
    UvcConfig config;
    mFiles.remove("/config/usb_gadget");
    EXPECT_TRUE(config.setVideoStreamConfig(2, 2, 333333));
    EXPECT_EQ(1920u, config.getWidth());
    EXPECT_EQ(272u, config.getBcdUVC());
}

TEST_F(UvcConfigTest, KeepsItsOwnFormatsWhenCopied) {
    auto original = std::make_unique<UvcConfig>();
    UvcConfig copy = *original;
    original.reset();
    EXPECT_TRUE(copy.setVideoStreamConfig(2, 2, 333333));
    EXPECT_EQ(1080u, copy.getHeight());
}

TEST_F(UvcConfigTest, NamesEveryFormat) {
    UvcConfig config;
    ASSERT_TRUE(config.setVideoStreamConfig(2, 1, 333333));
    EXPECT_EQ("MJPG", config.getFormatName());
    EXPECT_EQ(V4L2_PIX_FMT_MJPEG, config.getFormat());
    mTree->addUncompressed("YUY2");
    EXPECT_EQ("YUYV", UvcConfig().getFormatName());
}

// --- The selection ---

TEST_F(UvcConfigTest, StoresASelection) {
    UvcConfig config;
    EXPECT_TRUE(config.setVideoStreamConfig(2, 2, 166666));
    EXPECT_EQ(1920u, config.getWidth());
    EXPECT_EQ(1080u, config.getHeight());
    EXPECT_EQ(V4L2_PIX_FMT_MJPEG, config.getFormat());
    EXPECT_EQ(166666u, config.getFrameInterval());
}

TEST_F(UvcConfigTest, StoresAnyIntervalAsItIs) {
    UvcConfig config;
    for (uint32_t interval : {1u, 0u, 4294967295u}) {
        EXPECT_TRUE(config.setVideoStreamConfig(1, 1, interval));
        EXPECT_EQ(interval, config.getFrameInterval());
    }
}

TEST_F(UvcConfigTest, RefusesAFormatThatDoesNotExist) {
    const LogRecorder log;
    UvcConfig config;
    ASSERT_TRUE(config.setVideoStreamConfig(1, 2, 333333));
    for (int format : {0, 3, -1, 257}) {
        EXPECT_FALSE(config.setVideoStreamConfig(format, 1, 1)) << format;
        EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, "UVC-Config",
                            "Invalid format set: " + std::to_string(format)));
    }
    EXPECT_EQ(4u, log.lines().size());
    EXPECT_EQ(1280u, config.getWidth());
    EXPECT_EQ(333333u, config.getFrameInterval());
    EXPECT_EQ(V4L2_PIX_FMT_NV12, config.getFormat());
}

TEST_F(UvcConfigTest, RefusesAFrameThatTheFormatDoesNotHave) {
    const LogRecorder log;
    mTree->addFrame(UvcFunctionTree::kMjpeg, "f3", 3840, 2160);
    UvcConfig config;
    ASSERT_TRUE(config.setVideoStreamConfig(2, 3, 333333));
    for (int frame : {0, 3, -1}) {
        EXPECT_FALSE(config.setVideoStreamConfig(1, frame, 1)) << frame;
        EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, "UVC-Config",
                            "Invalid frameIndex(" + std::to_string(frame) + ") for format(1) set"));
    }
    EXPECT_FALSE(config.setVideoStreamConfig(2, 4, 1));
    EXPECT_TRUE(
            log.has(ANDROID_LOG_ERROR, "UVC-Config", "Invalid frameIndex(4) for format(2) set"));
    EXPECT_EQ(4u, log.lines().size());
    EXPECT_EQ(3840u, config.getWidth());
    EXPECT_EQ(333333u, config.getFrameInterval());
}

TEST_F(UvcConfigTest, KeepsProbeAndCommitApart) {
    const LogRecorder log;
    UvcConfig config;
    config.setControlSelector(kProbe);
    ASSERT_TRUE(config.setVideoStreamConfig(2, 2, 111111));
    config.setControlSelector(kCommit);
    ASSERT_TRUE(config.setVideoStreamConfig(1, 2, 222222));

    EXPECT_EQ("NV12", config.getFormatName());
    EXPECT_EQ(1280u, config.getWidth());
    EXPECT_EQ(222222u, config.getFrameInterval());
    config.setControlSelector(kProbe);
    EXPECT_EQ("MJPG", config.getFormatName());
    EXPECT_EQ(1920u, config.getWidth());
    EXPECT_EQ(111111u, config.getFrameInterval());
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(UvcConfigTest, SelectsForProbeBeforeTheFirstSelector) {
    UvcConfig config;
    ASSERT_TRUE(config.setVideoStreamConfig(2, 2, 111111));
    config.setControlSelector(kProbe);
    EXPECT_EQ(1920u, config.getWidth());
    config.setControlSelector(kCommit);
    EXPECT_EQ(640u, config.getWidth());
}

TEST_F(UvcConfigTest, TakesAnUnknownSelectorForProbeAndLogsIt) {
    UvcConfig config;
    config.setControlSelector(kProbe);
    ASSERT_TRUE(config.setVideoStreamConfig(2, 1, 111111));
    for (int selector : {3, 0, -1, 258}) {
        const LogRecorder log;
        config.setControlSelector(kCommit);
        config.setControlSelector(selector);
        EXPECT_EQ("MJPG", config.getFormatName()) << selector;
        EXPECT_EQ(error("Unsupported control selector set: " + std::to_string(selector) + "!"),
                  log.lines());
    }
}

// --- Nothing to select ---

TEST_F(UvcConfigTest, RefusesEverySelectionWithoutFormats) {
    mFiles.remove(UvcFunctionTree::path() + "/streaming");
    UvcConfig config;
    const LogRecorder log;
    EXPECT_FALSE(config.setVideoStreamConfig(1, 1, 333333));
    EXPECT_EQ(error("Invalid format set: 1"), log.lines());
}

TEST_F(UvcConfigTest, ReadsAsZerosWithoutFormats) {
    mFiles.remove(UvcFunctionTree::path() + "/streaming");
    const UvcConfig config;
    EXPECT_EQ(0u, config.getWidth());
    EXPECT_EQ(0u, config.getHeight());
    EXPECT_EQ(0u, config.getFormat());
    EXPECT_EQ("", config.getFormatName());
    EXPECT_EQ(666666u, config.getFrameInterval());
}

// --- Attributes that are no numbers ---

// Constructs as the service does: nothing catches.
void constructUncaught() noexcept {
    UvcConfig();
}

using UvcConfigDeathTest = UvcConfigTest;

TEST_F(UvcConfigDeathTest, EndsTheProcessAndNamesTheFunctionAttributeThatIsMissing) {
    for (const std::string attribute : {"streaming_interval", "streaming_maxburst",
                                        "streaming_maxpacket", "control/header/h/bcdUVC"}) {
        mTree->remove(attribute);
        EXPECT_DEATH(constructUncaught(), "UVC-Config.*" + UvcFunctionTree::path() + "/" +
                                                  attribute + ": no usable number in \"\"");
        mTree->set(attribute, "1\n");
    }
}

TEST_F(UvcConfigDeathTest, EndsTheProcessByTheConversionsException) {
    mTree->set("streaming_maxpacket", "many\n");
    EXPECT_DEATH(constructUncaught(), "invalid_argument");
    EXPECT_EXIT(constructUncaught(), testing::KilledBySignal(SIGABRT), "");
}

TEST_F(UvcConfigDeathTest, EndsTheProcessOnAFrameAttribute) {
    mTree->set("streaming/mjpeg/m/f2/wWidth", "\n");
    EXPECT_DEATH(constructUncaught(), "streaming/mjpeg/m/f2/wWidth: no usable number");
}

TEST_F(UvcConfigTest, LogsOneErrorForAnAttributeThatIsNoNumber) {
    mTree->set("streaming_maxburst", "lots\n");
    const LogRecorder log;
    EXPECT_THROW(UvcConfig(), std::invalid_argument);
    EXPECT_EQ(error(UvcFunctionTree::path() +
                    "/streaming_maxburst: no usable number in \"lots\n\" (it does not begin with a "
                    "decimal digit), cannot go on"),
              log.lines());
}

}  // namespace
}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
