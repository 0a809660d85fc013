// SPDX-License-Identifier: Apache-2.0
// What the monitor makes of one event and of the nodes it finds. Its socket is another test's.
#include "uvc/HotPlugCtrl.h"

#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/LogRecorder.h"
#include "support/MockHotPlugListener.h"
#include "support/PrivateFiles.h"
#include "support/ScriptedKernel.h"

namespace {

// Stands in for the C library's, which the linker renames for this program.
std::vector<useconds_t> sSleeps;
std::function<void()> sOnSleep;

}  // namespace

extern "C" int __wrap_usleep(useconds_t microseconds) {
    sSleeps.push_back(microseconds);
    if (sOnSleep) sOnSleep();
    return 0;
}

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

using test::LogLine;
using test::LogRecorder;
using test::MockHotPlugListener;
using test::PrivateFiles;
using test::ScriptedKernel;
using testing::InSequence;
using testing::Return;
using testing::StrEq;
using testing::StrictMock;

static_assert(std::has_virtual_destructor_v<PollableDev>);
static_assert(std::has_virtual_destructor_v<HotPlugCtrl::EventListener>);
static_assert(PollableDev::DATA_READABLE == 2);
static_assert(PollableDev::DATA_WRITABLE == 3);
static_assert(PollableDev::DATA_EXCEPTION == 4);

class HotPlugCtrlTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mFiles.available()) GTEST_SKIP() << mFiles.whyNot();
        sSleeps.clear();
        sOnSleep = nullptr;
    }

    // The text in which the driver of a node names the device.
    void setName(const std::string& device, const std::string& text) {
        mFiles.write("/sys/class/video4linux/" + device + "/name", text);
    }

    int handle(HotPlugCtrl& hotPlug, const char* subsystem, const char* action, const char* devName,
               const char* usbState = nullptr) {
        HotPlugCtrl::UEventObj event;
        event.subsystem = subsystem;
        event.action = action;
        event.devName = devName;
        event.usbState = usbState;
        return hotPlug.handleUEvent(event);
    }

    int add(const char* devName) { return handle(mHotPlug, "video4linux", "add", devName); }
    int remove(const char* devName) { return handle(mHotPlug, "video4linux", "remove", devName); }

    static LogLine debug(const std::string& message) {
        return {ANDROID_LOG_DEBUG, "UVC-HotPlugCtrl", message};
    }
    static LogLine error(const std::string& message) {
        return {ANDROID_LOG_ERROR, "UVC-HotPlugCtrl", message};
    }

    PrivateFiles mFiles;
    LogRecorder mLog;
    StrictMock<MockHotPlugListener> mListener;
    HotPlugCtrl mHotPlug{&mListener};
};

TEST_F(HotPlugCtrlTest, StartsClosed) {
    EXPECT_EQ(-1, mHotPlug.fd);
    EXPECT_TRUE(mHotPlug.watchVideoAdd);
}

// --- Added nodes ---

TEST_F(HotPlugCtrlTest, ReportsAnAddedGadgetNodeByItsPath) {
    ScriptedKernel node("/dev/video5");
    setName("video5", "korvane webcam\n");
    EXPECT_CALL(mListener, onUvcV4l2Added(StrEq("/dev/video5"))).WillOnce(Return(0));
    EXPECT_EQ(0, add("video5"));
    EXPECT_EQ(std::vector<LogLine>{debug("v4l2 device added /dev/video5")}, mLog.lines());
    EXPECT_TRUE(sSleeps.empty());
    EXPECT_EQ((std::vector<std::string>{"open", "VIDIOC_QUERYCAP", "close"}), node.callNames());
    EXPECT_EQ(O_RDWR, node.calls("open")[0].as<int>());
}

TEST_F(HotPlugCtrlTest, ReportsAnAddedNodeWithoutAName) {
    const ScriptedKernel node("/dev/video5");
    EXPECT_CALL(mListener, onUvcV4l2Added(StrEq("/dev/video5"))).WillOnce(Return(0));
    EXPECT_EQ(0, add("video5"));
}

TEST_F(HotPlugCtrlTest, PassesOnWhatTheListenerMakesOfAnAddedNode) {
    const ScriptedKernel node("/dev/video0");
    EXPECT_CALL(mListener, onUvcV4l2Added).WillOnce(Return(-19));
    EXPECT_EQ(-19, add("video0"));
}

TEST_F(HotPlugCtrlTest, WaitsForTheFileOfAnAddedNode) {
    std::unique_ptr<ScriptedKernel> node;
    sOnSleep = [&] {
        if (sSleeps.size() == 20) node = std::make_unique<ScriptedKernel>("/dev/video5");
    };
    EXPECT_CALL(mListener, onUvcV4l2Added(StrEq("/dev/video5"))).WillOnce(Return(0));
    EXPECT_EQ(0, add("video5"));
    EXPECT_EQ(std::vector<useconds_t>(20, 20000), sSleeps);
}

TEST_F(HotPlugCtrlTest, GivesUpOnANodeWhoseFileNeverAppears) {
    EXPECT_EQ(-5, add("video5"));
    EXPECT_EQ(std::vector<useconds_t>(21, 20000), sSleeps);
    EXPECT_EQ((std::vector<LogLine>{debug("v4l2 device added /dev/video5"),
                                    error("timedout: dev file not appear")}),
              mLog.lines());
}

TEST_F(HotPlugCtrlTest, IgnoresAFileThatAppearsAfterTheLastLook) {
    std::unique_ptr<ScriptedKernel> node;
    sOnSleep = [&] {
        if (sSleeps.size() == 21) node = std::make_unique<ScriptedKernel>("/dev/video5");
    };
    EXPECT_EQ(-5, add("video5"));
}

TEST_F(HotPlugCtrlTest, IgnoresAddedNodesThatAreNoVideoNodes) {
    const ScriptedKernel node("/dev/v4l-subdev3");
    EXPECT_EQ(0, add("v4l-subdev3"));
    EXPECT_TRUE(mLog.lines().empty());
    EXPECT_TRUE(node.calls().empty());
}

TEST_F(HotPlugCtrlTest, ReportsAnAddedNodeWithVideoAnywhereInItsName) {
    const ScriptedKernel node("/dev/my-video-5");
    EXPECT_CALL(mListener, onUvcV4l2Added(StrEq("/dev/my-video-5"))).WillOnce(Return(0));
    EXPECT_EQ(0, add("my-video-5"));
}

TEST_F(HotPlugCtrlTest, WaitsForTheFileOfANodeBeforeItLooksAtItsName) {
    setName("video5", "msm-cam");
    EXPECT_EQ(-5, add("video5"));
    EXPECT_EQ(21u, sSleeps.size());
}

TEST_F(HotPlugCtrlTest, IgnoresAddedNodesOfThePhonesOwnDrivers) {
    const ScriptedKernel node("/dev/video5");
    setName("video5", "msm_vidc_decoder\n");
    EXPECT_EQ(0, add("video5"));
    EXPECT_TRUE(node.calls().empty());
    EXPECT_EQ(std::vector<LogLine>{debug("v4l2 device added /dev/video5")}, mLog.lines());
}

TEST_F(HotPlugCtrlTest, IgnoresAddedNodesOfOtherDrivers) {
    ScriptedKernel node("/dev/video5");
    node.setDriver("uvcvideo");
    EXPECT_EQ(0, add("video5"));
    EXPECT_EQ(1u, node.calls("VIDIOC_QUERYCAP").size());
}

TEST_F(HotPlugCtrlTest, IgnoresAddedNodesWhileNotWatching) {
    const ScriptedKernel node("/dev/video5");
    mHotPlug.watchVideoAdd = false;
    EXPECT_EQ(0, add("video5"));
    EXPECT_TRUE(mLog.lines().empty());
    EXPECT_TRUE(node.calls().empty());
}

TEST_F(HotPlugCtrlTest, ReportsRemovedNodesWhileNotWatching) {
    mHotPlug.watchVideoAdd = false;
    EXPECT_CALL(mListener, onV4l2Removed(StrEq("video5"))).WillOnce(Return(0));
    EXPECT_EQ(0, remove("video5"));
}

TEST_F(HotPlugCtrlTest, OnlyLogsNodesWithoutAListener) {
    const ScriptedKernel node("/dev/video5");
    HotPlugCtrl hotPlug(nullptr);
    EXPECT_EQ(0, handle(hotPlug, "video4linux", "add", "video5"));
    EXPECT_EQ(0, handle(hotPlug, "video4linux", "remove", "video5"));
    EXPECT_EQ(0, handle(hotPlug, "android_usb", "change", nullptr, "DISCONNECTED"));
    EXPECT_EQ((std::vector<LogLine>{debug("v4l2 device added /dev/video5"),
                                    debug("v4l2 device remove /dev/video5")}),
              mLog.lines());
    EXPECT_TRUE(node.calls().empty());
}

TEST_F(HotPlugCtrlTest, CutsTheNodePathTo31Characters) {
    const std::string path = "/dev/video" + std::string(21, '7');
    const ScriptedKernel node(path);
    EXPECT_CALL(mListener, onUvcV4l2Added(StrEq(path))).WillOnce(Return(0));
    EXPECT_EQ(0, add(("video" + std::string(40, '7')).c_str()));
}

TEST_F(HotPlugCtrlTest, CutsThePathOfTheNameTo63Characters) {
    const ScriptedKernel node("/dev/video" + std::string(21, '7'));
    const std::string longest = "video" + std::string(30, '7');
    setName(longest, "msm");
    setName(longest + "7", "msm");
    EXPECT_EQ(0, add(longest.c_str()));
    EXPECT_CALL(mListener, onUvcV4l2Added).WillOnce(Return(0));
    EXPECT_EQ(0, add((longest + "7").c_str()));
}

// --- The other events ---

TEST_F(HotPlugCtrlTest, ReportsARemovedNodeByItsBareName) {
    EXPECT_CALL(mListener, onV4l2Removed(StrEq("video5"))).WillOnce(Return(0));
    EXPECT_EQ(0, remove("video5"));
    EXPECT_EQ(std::vector<LogLine>{debug("v4l2 device remove /dev/video5")}, mLog.lines());
}

TEST_F(HotPlugCtrlTest, ReportsRemovedNodesOfAnyKind) {
    setName("video6", "msm");
    EXPECT_CALL(mListener, onV4l2Removed(StrEq("video6"))).WillOnce(Return(-3));
    EXPECT_CALL(mListener, onV4l2Removed(StrEq("v4l-subdev3"))).WillOnce(Return(0));
    EXPECT_EQ(-3, remove("video6"));
    EXPECT_EQ(0, remove("v4l-subdev3"));
}

TEST_F(HotPlugCtrlTest, ReportsThatUsbIsDisconnected) {
    EXPECT_CALL(mListener, onUsbDisconnected()).WillOnce(Return(0)).WillOnce(Return(-9));
    EXPECT_EQ(0, handle(mHotPlug, "android_usb", "change", nullptr, "DISCONNECTED"));
    EXPECT_EQ(-9, handle(mHotPlug, "android_usb", "add", "video0", "DISCONNECTED"));
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(HotPlugCtrlTest, IgnoresOtherUsbStates) {
    for (const char* state : {"CONFIGURED", "CONNECTED", "", "DISCONNECT"}) {
        EXPECT_EQ(0, handle(mHotPlug, "android_usb", "change", nullptr, state)) << state;
    }
    EXPECT_EQ(0, handle(mHotPlug, "android_usb", "change", nullptr, nullptr));
}

TEST_F(HotPlugCtrlTest, ComparesByPrefix) {
    const ScriptedKernel node("/dev/video5");
    InSequence inSequence;
    EXPECT_CALL(mListener, onUvcV4l2Added).WillOnce(Return(1));
    EXPECT_CALL(mListener, onV4l2Removed).WillOnce(Return(2));
    EXPECT_CALL(mListener, onUsbDisconnected).WillOnce(Return(3));
    EXPECT_EQ(1, handle(mHotPlug, "video4linux2", "added", "video5"));
    EXPECT_EQ(2, handle(mHotPlug, "video4linux2", "removed", "video5"));
    EXPECT_EQ(3, handle(mHotPlug, "android_usb_x", "x", nullptr, "DISCONNECTED_X"));
}

TEST_F(HotPlugCtrlTest, IgnoresEverythingElse) {
    EXPECT_EQ(0, handle(mHotPlug, "video4linux", "change", "video5", "DISCONNECTED"));
    EXPECT_EQ(0, handle(mHotPlug, "video4linu", "remove", "video5"));
    EXPECT_EQ(0, handle(mHotPlug, "udc", "change", nullptr, "DISCONNECTED"));
    EXPECT_EQ(0, handle(mHotPlug, "", "", "video5", "DISCONNECTED"));
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(HotPlugCtrlTest, IgnoresEventsThatLackAField) {
    EXPECT_EQ(0, handle(mHotPlug, nullptr, "remove", "video5", "DISCONNECTED"));
    EXPECT_EQ(0, handle(mHotPlug, "video4linux", nullptr, "video5"));
    EXPECT_EQ(0, handle(mHotPlug, "android_usb", nullptr, nullptr, "DISCONNECTED"));
    EXPECT_EQ(0, handle(mHotPlug, "video4linux", "add", nullptr));
    EXPECT_EQ(0, handle(mHotPlug, "video4linux", "remove", nullptr));
    EXPECT_TRUE(mLog.lines().empty());
}

// --- The scan at start ---

TEST_F(HotPlugCtrlTest, FindsTheGadgetNodesUpToTheFirstMissingOne) {
    const ScriptedKernel first("/dev/video0"), second("/dev/video1"), behind("/dev/video3");
    InSequence inSequence;
    EXPECT_CALL(mListener, onUvcV4l2Added(StrEq("/dev/video0"))).WillOnce(Return(0));
    EXPECT_CALL(mListener, onUvcV4l2Added(StrEq("/dev/video1"))).WillOnce(Return(0));
    EXPECT_EQ(0, mHotPlug.initCheck());
    EXPECT_TRUE(behind.calls().empty());
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(HotPlugCtrlTest, FindsNodesOfOtherNames) {
    const ScriptedKernel node("/dev/video0");
    setName("video0", "korvane webcam\n");
    EXPECT_CALL(mListener, onUvcV4l2Added(StrEq("/dev/video0"))).WillOnce(Return(0));
    EXPECT_EQ(0, mHotPlug.initCheck());
}

TEST_F(HotPlugCtrlTest, EndsTheScanAtAMissingNodeOfAnotherDriver) {
    const ScriptedKernel behind("/dev/video1");
    setName("video0", "korvane webcam");
    EXPECT_EQ(0, mHotPlug.initCheck());
    EXPECT_TRUE(behind.calls().empty());
}

TEST_F(HotPlugCtrlTest, FindsNothingWithoutNodes) {
    EXPECT_EQ(0, mHotPlug.initCheck());
    EXPECT_TRUE(sSleeps.empty());
}

TEST_F(HotPlugCtrlTest, ScansPastNodesOfThePhonesOwnDriversEvenMissingOnes) {
    const ScriptedKernel own("/dev/video0"), gadget("/dev/video2");
    setName("video0", "msm-cam");
    setName("video1", "msm-cam");
    EXPECT_CALL(mListener, onUvcV4l2Added(StrEq("/dev/video2"))).WillOnce(Return(0));
    EXPECT_EQ(0, mHotPlug.initCheck());
    EXPECT_TRUE(own.calls().empty());
}

TEST_F(HotPlugCtrlTest, ScansPastNodesOfOtherDriversAndThoseThatCannotBeAsked) {
    ScriptedKernel camera("/dev/video0"), busy("/dev/video1"), odd("/dev/video2");
    const ScriptedKernel gadget("/dev/video3");
    camera.setDriver("uvcvideo");
    busy.fail("open", EBUSY);
    odd.fail("VIDIOC_QUERYCAP", ENOTTY);
    EXPECT_CALL(mListener, onUvcV4l2Added(StrEq("/dev/video3"))).WillOnce(Return(0));
    EXPECT_EQ(0, mHotPlug.initCheck());
    EXPECT_EQ((std::vector<LogLine>{error("failed to open /dev/video1, errno 16"),
                                    error("falied VIDIOC_QUERYCAP errno 25")}),
              mLog.lines());
}

TEST_F(HotPlugCtrlTest, EndsTheScanWhereTheListenerFails) {
    const ScriptedKernel first("/dev/video0"), second("/dev/video1");
    EXPECT_CALL(mListener, onUvcV4l2Added(StrEq("/dev/video0"))).WillOnce(Return(-12));
    EXPECT_EQ(-12, mHotPlug.initCheck());
    EXPECT_TRUE(second.calls().empty());
}

TEST_F(HotPlugCtrlTest, ScansWhetherOrNotItWatches) {
    const ScriptedKernel node("/dev/video0");
    mHotPlug.watchVideoAdd = false;
    EXPECT_CALL(mListener, onUvcV4l2Added).WillOnce(Return(0));
    EXPECT_EQ(0, mHotPlug.initCheck());
}

TEST_F(HotPlugCtrlTest, ScansNothingWithoutAListener) {
    const ScriptedKernel node("/dev/video0");
    EXPECT_EQ(0, HotPlugCtrl(nullptr).initCheck());
    EXPECT_TRUE(node.calls().empty());
}

// --- Which nodes are meant ---

TEST_F(HotPlugCtrlTest, KnowsTheGadgetByItsWholeDriverName) {
    ScriptedKernel node("/dev/video0");
    EXPECT_TRUE(mHotPlug.getVideoDevType("/dev/video0"));
    for (const char* driver : {"g_uvc2", "g_uv", "G_UVC", ""}) {
        node.setDriver(driver);
        EXPECT_FALSE(mHotPlug.getVideoDevType("/dev/video0")) << driver;
    }
    EXPECT_EQ(0u, node.openDescriptors());
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(HotPlugCtrlTest, ClosesANodeThatCannotBeAsked) {
    ScriptedKernel node("/dev/video0");
    node.fail("VIDIOC_QUERYCAP", EIO);
    EXPECT_FALSE(mHotPlug.getVideoDevType("/dev/video0"));
    EXPECT_EQ(0u, node.openDescriptors());
    EXPECT_EQ(std::vector<LogLine>{error("falied VIDIOC_QUERYCAP errno 5")}, mLog.lines());
}

TEST_F(HotPlugCtrlTest, LogsANodeThatCannotBeOpened) {
    EXPECT_FALSE(mHotPlug.getVideoDevType("/dev/video9"));
    EXPECT_EQ(std::vector<LogLine>{error("failed to open /dev/video9, errno 2")}, mLog.lines());
}

TEST_F(HotPlugCtrlTest, KnowsThePhonesOwnDriversByPartOfTheirName) {
    constexpr char kPath[] = "/sys/class/video4linux/video0/name";
    EXPECT_FALSE(mHotPlug.isBlacklistedDevice(kPath));
    setName("video0", "msm");
    EXPECT_TRUE(mHotPlug.isBlacklistedDevice(kPath));
    for (const char* own : {"cam-msm-req-mgr\n", "camera_msm", "camera\nmsm\n"}) {
        setName("video0", own);
        EXPECT_TRUE(mHotPlug.isBlacklistedDevice(kPath)) << own;
    }
    setName("video0", std::string(508, 'x') + "msm");
    EXPECT_TRUE(mHotPlug.isBlacklistedDevice(kPath));
    setName("video0", std::string(509, 'x') + "msm");  // beyond what is read
    EXPECT_FALSE(mHotPlug.isBlacklistedDevice(kPath));
    for (const char* other : {"MSM", "ms m", "", "\n"}) {
        setName("video0", other);
        EXPECT_FALSE(mHotPlug.isBlacklistedDevice(kPath)) << other;
    }
}

class ReadTextFileTest : public HotPlugCtrlTest {
  protected:
    // What the file is read as, if at all.
    bool read(const std::string& content, std::string* out) {
        mFiles.write("/config/text", content);
        *out = "before";
        return mHotPlug.readTextFile("/config/text", *out);
    }
};

TEST_F(ReadTextFileTest, RemovesOneTrailingNewline) {
    std::string text;
    EXPECT_TRUE(read("name\n", &text));
    EXPECT_EQ("name", text);
    EXPECT_TRUE(read("name\n\n", &text));
    EXPECT_EQ("name\n", text);
    EXPECT_TRUE(read("two\nlines", &text));
    EXPECT_EQ("two\nlines", text);
}

TEST_F(ReadTextFileTest, EndsAtTheFirstNul) {
    std::string text;
    EXPECT_TRUE(read(std::string("name\n\0rest\n", 11), &text));
    EXPECT_EQ("name", text);
    EXPECT_FALSE(read(std::string("\0rest", 5), &text));
    EXPECT_EQ("", text);
}

TEST_F(ReadTextFileTest, ReadsASingleCharacter) {
    std::string text;
    EXPECT_TRUE(read("x", &text));
    EXPECT_EQ("x", text);
}

TEST_F(ReadTextFileTest, Reads511BytesAtMost) {
    std::string text;
    EXPECT_TRUE(read(std::string(600, 'x'), &text));
    EXPECT_EQ(std::string(511, 'x'), text);
    EXPECT_TRUE(read(std::string(510, 'x') + "\n\n", &text));
    EXPECT_EQ(std::string(510, 'x'), text);
}

TEST_F(ReadTextFileTest, EmptiesTheTextWhenThereIsNone) {
    std::string text;
    EXPECT_FALSE(read("", &text));
    EXPECT_EQ("", text);
    EXPECT_FALSE(read("\n", &text));
    EXPECT_EQ("", text);
    text = "before";
    EXPECT_FALSE(mHotPlug.readTextFile("/config/missing", text));
    EXPECT_EQ("", text);
}

}  // namespace
}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
