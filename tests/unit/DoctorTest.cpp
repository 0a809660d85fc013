// SPDX-License-Identifier: Apache-2.0
// Every fault that the doctor knows, made one at a time in a machine that is all right.

#include "desktopctl/Doctor.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include "desktopctl/FunctionChecks.h"
#include "desktopctl/MachineChecks.h"
#include "desktopctl/ServiceChecks.h"
#include "support/PrivateFiles.h"
#include "support/UvcFunctionTree.h"

namespace korvane::ctl {
namespace {

namespace fs = std::filesystem;
using test::PrivateFiles;
using test::UvcFunctionTree;
using testing::HasSubstr;

constexpr char kGadget[] = "/config/usb_gadget/g1";

class DoctorTest : public testing::Test {
  protected:
    // A machine whose gadget and node are right.
    void SetUp() override {
        if (!mFiles.available()) GTEST_SKIP() << mFiles.whyNot();
        fs::create_symlink("/dev/null", "/dev/hwbinder");
        mFiles.write("/sys/class/udc/dummy_udc.0/state", "configured\n");
        makeFunction();
        mFiles.addVideoDevice("video0", "a camera\n");
        mFiles.addVideoDevice("video1", "dummy_udc.0\n");
        mFiles.makeDirectory("/sys/class/video4linux/video1/device");
        fs::create_directory_symlink("/sys/bus/gadget",
                                     "/sys/class/video4linux/video1/device/subsystem");
    }

    void makeFunction() {
        mFunction.emplace(mFiles);
        mFunction->addUncompressed("YUY2");
        mFunction->addMjpeg();
        for (const char* format : {UvcFunctionTree::kUncompressed, UvcFunctionTree::kMjpeg}) {
            mFunction->addFrame(format, "480p", 640, 480);
            mFunction->addFrame(format, "720p", 1280, 720, {2000000});
        }
        mFunction->set("streaming/uncompressed/u/bFormatIndex", "1\n");
        mFunction->set("streaming/mjpeg/m/bFormatIndex", "2\n");
        for (const char* format : {UvcFunctionTree::kUncompressed, UvcFunctionTree::kMjpeg}) {
            mFunction->set(std::string("streaming/") + format + "/480p/bFrameIndex", "1\n");
            mFunction->set(std::string("streaming/") + format + "/720p/bFrameIndex", "2\n");
        }
        mFunction->set("control/bInterfaceNumber", "0\n");
        mFunction->set("streaming/bInterfaceNumber", "1\n");
        link(UvcFunctionTree::formatPath(UvcFunctionTree::kUncompressed), "streaming/header/h/u");
        link(UvcFunctionTree::formatPath(UvcFunctionTree::kMjpeg), "streaming/header/h/m");
        for (const char* speed : {"fs", "hs"}) {
            link(UvcFunctionTree::path() + "/streaming/header/h",
                 std::string("streaming/class/") + speed + "/h");
        }
        link(UvcFunctionTree::path() + "/control/header/h", "control/class/fs/h");
        mFiles.makeDirectory(std::string(kGadget) + "/configs/c.1");
        fs::create_directory_symlink(UvcFunctionTree::path(),
                                     std::string(kGadget) + "/configs/c.1/uvc.0");
        mFiles.write(std::string(kGadget) + "/UDC", "dummy_udc.0\n");
    }

    void link(const std::string& target, const std::string& name) {
        const fs::path path = UvcFunctionTree::path() + "/" + name;
        fs::create_directories(path.parent_path());
        fs::create_directory_symlink(target, path);
    }

    static Finding::State worst(const Findings& findings) {
        Finding::State state = Finding::RIGHT;
        for (const Finding& finding : findings) state = std::max(state, finding.state);
        return state;
    }

    // The findings that are not right, one a line.
    static std::string faults(const Findings& findings) {
        std::string text;
        for (const Finding& finding : findings) {
            if (finding.state == Finding::RIGHT) continue;
            EXPECT_FALSE(finding.mend.empty()) << finding.says;
            text += (finding.state == Finding::NOTE ? "note " : "wrong ") + finding.what + ": " +
                    finding.says + "\n";
        }
        return text;
    }

    static std::string functionFaults(const std::string& release = "6.1.0-56-amd64") {
        std::string udc;
        return faults(checkFunction(release, &udc));
    }

    PrivateFiles mFiles;
    std::optional<UvcFunctionTree> mFunction;
};

TEST_F(DoctorTest, FindsNothingWrongInASoundMachine) {
    std::string udc;
    EXPECT_EQ("", faults(checkBinder()));
    EXPECT_EQ("", faults(checkGadgetSupport()));
    EXPECT_EQ("", faults(checkFunction("6.1.0-56-amd64", &udc)));
    EXPECT_EQ("dummy_udc.0", udc);
    EXPECT_EQ("", faults(checkNode()));
    EXPECT_EQ("", faults(checkHost(udc)));
    EXPECT_EQ("", faults(checkManager(true)));
}

// --- The machine ---

TEST_F(DoctorTest, FindsWhatIsWrongWithBinder) {
    mFiles.remove("/dev/hwbinder");
    EXPECT_EQ("wrong binder: there is no /dev/hwbinder\n", faults(checkBinder()));
    mFiles.write("/dev/hwbinder", "");
    EXPECT_EQ("wrong binder: /dev/hwbinder is no device\n", faults(checkBinder()));
    mFiles.remove("/dev/hwbinder");
    fs::create_symlink("/dev/tty", "/dev/hwbinder");  // no process of a test has one
    EXPECT_THAT(faults(checkBinder()), HasSubstr("wrong binder: /dev/hwbinder does not open: "));
}

TEST_F(DoctorTest, FindsThatThereIsNoController) {
    mFiles.remove("/sys/class/udc");
    EXPECT_EQ("wrong controller: the machine has no USB device controller\n",
              faults(checkGadgetSupport()));
    mFiles.makeDirectory("/sys/class/udc");
    EXPECT_EQ(Finding::WRONG, worst(checkGadgetSupport()));
}

TEST_F(DoctorTest, FindsThatConfigfsHasNoGadgets) {
    mFiles.remove("/config/usb_gadget");
    EXPECT_EQ("wrong configfs: /config/usb_gadget is not there\n", faults(checkGadgetSupport()));
}

TEST_F(DoctorTest, FindsWhatIsWrongWithTheNode) {
    mFiles.remove("/dev/video1");
    EXPECT_EQ("wrong node: /dev/video1 is not there although the kernel has it\n",
              faults(checkNode()));
    mFiles.makeDirectory("/dev/video1");
    EXPECT_EQ("wrong node: /dev/video1 does not open: Is a directory\n", faults(checkNode()));
    mFiles.remove("/sys/class/video4linux/video1");
    EXPECT_EQ("wrong node: the function has no video node\n", faults(checkNode()));
}

TEST_F(DoctorTest, FindsTheGapBeforeTheNode) {
    mFiles.remove("/dev/video0");
    EXPECT_THAT(faults(checkNode()),
                HasSubstr("note node: /dev/video1 is found only when it comes"));
    mFiles.write("/sys/class/video4linux/video0/name", "msm_vidc\n");  // which the scan passes over
    EXPECT_EQ("", faults(checkNode()));
}

TEST_F(DoctorTest, FindsWhatTheHostHasNotDone) {
    for (const auto& [state, fault] :
         {std::pair<std::string, std::string>{"not attached",
                                              "wrong host: there is none at the cable\n"},
          {"addressed", "wrong host: it has not taken the webcam: addressed\n"},
          {"suspended", "note host: it sleeps\n"}}) {
        mFiles.write("/sys/class/udc/dummy_udc.0/state", state + "\n");
        EXPECT_EQ(fault, faults(checkHost("dummy_udc.0")));
    }
    EXPECT_EQ("wrong host: there is none at the cable\n", faults(checkHost("another")));
}

// --- The function ---

TEST_F(DoctorTest, FindsThatThereIsNoFunction) {
    mFiles.remove(UvcFunctionTree::path());
    EXPECT_EQ("wrong function: the device has no webcam function (module usb_f_uvc)\n",
              functionFaults());
    mFiles.makeDirectory(std::string(kGadget) + "/functions/uvc.camera");
    EXPECT_EQ("wrong function: the function is called uvc.camera, but only uvc.0 is read\n",
              functionFaults());
    mFiles.remove(kGadget);
    EXPECT_EQ("wrong function: there is no /config/usb_gadget/g1\n", functionFaults());
}

TEST_F(DoctorTest, FindsAttributesAtWhichTheServiceEnds) {
    for (const char* name : {"streaming_interval", "streaming_maxburst"}) {
        mFunction->set(name, "\n");
        EXPECT_EQ(std::string("wrong function: ") + name +
                          " is not a number: the service ends at it\n",
                  functionFaults());
        mFunction->set(name, "1\n");
    }
    mFunction->remove("control/header/h/bcdUVC");
    EXPECT_EQ("wrong function: control/header/h/bcdUVC can't be read: the service ends at it\n",
              functionFaults());
    mFunction->set("control/header/h/bcdUVC", "272\n");
    mFunction->set("streaming/uncompressed/u/bBitsPerPixel", "");
    EXPECT_THAT(functionFaults(), HasSubstr("wrong formats: bBitsPerPixel is not a number"));
}

TEST_F(DoctorTest, FindsSizesThatCannotBeRead) {
    mFunction->set("streaming/mjpeg/m/480p/wWidth", "wide\n");
    EXPECT_THAT(functionFaults(), HasSubstr("wrong sizes: streaming/mjpeg/m/480p has an attribute "
                                            "that is not a number: the service ends at it\n"));
    mFunction->set("streaming/mjpeg/m/480p/wWidth", "0\n");
    EXPECT_THAT(functionFaults(),
                HasSubstr("wrong sizes: streaming/mjpeg/m/480p has no size or no rate\n"));
    mFunction->set("streaming/mjpeg/m/480p/wWidth", "640\n");
    mFunction->set("streaming/mjpeg/m/480p/dwFrameInterval", "");
    EXPECT_THAT(functionFaults(), HasSubstr("has no size or no rate\n"));
    mFunction->set("streaming/mjpeg/m/480p/dwFrameInterval", "333333\n\n666666\n");
    EXPECT_THAT(functionFaults(), HasSubstr("has an attribute that is not a number"));
    mFunction->set("streaming/mjpeg/m/480p/dwFrameInterval", "0\n");
    EXPECT_EQ("wrong rates: MJPEG 480p has an interval of 0\n", functionFaults());
}

TEST_F(DoctorTest, FindsFormatsThatTheServiceDoesNotRead) {
    mFiles.makeDirectory(UvcFunctionTree::path() + "/streaming/mjpeg/camera");
    EXPECT_EQ("wrong formats: streaming/mjpeg/camera is not read: only the name 'm' is\n",
              functionFaults());
    mFiles.remove(UvcFunctionTree::path() + "/streaming/mjpeg/camera");
    mFiles.makeDirectory(UvcFunctionTree::path() + "/streaming/uncompressed/yuyv");
    EXPECT_EQ("wrong formats: streaming/uncompressed/yuyv is not read: only the name 'u' is\n",
              functionFaults());
}

TEST_F(DoctorTest, FindsAFormatOfAnotherKind) {
    mFunction->set("streaming/uncompressed/u/guidFormat", UvcFunctionTree::guid("I420"));
    EXPECT_THAT(functionFaults(),
                HasSubstr("wrong formats: the uncompressed format is neither YUY2 nor NV12\n"));
    mFunction->set("streaming/uncompressed/u/guidFormat", UvcFunctionTree::guid("NV12"));
    EXPECT_THAT(functionFaults(), HasSubstr("wrong formats: NV12 has 16 bits a pixel"));
    mFunction->set("streaming/uncompressed/u/bBitsPerPixel", "12\n");
    EXPECT_EQ("", functionFaults());
}

TEST_F(DoctorTest, FindsThatThereIsNoFormatAtAll) {
    mFiles.remove(UvcFunctionTree::path() + "/streaming/uncompressed");
    mFiles.remove(UvcFunctionTree::path() + "/streaming/mjpeg");
    EXPECT_EQ("wrong formats: the function has no format with a size\n", functionFaults());
}

TEST_F(DoctorTest, FindsWhatIsNotInTheHeaders) {
    mFiles.remove(UvcFunctionTree::path() + "/streaming/header/h/m");
    EXPECT_EQ("wrong header: MJPEG is not in the streaming header\n", functionFaults());
    link(UvcFunctionTree::formatPath(UvcFunctionTree::kMjpeg), "streaming/header/h/m");
    for (const char* speed : {"streaming/class/fs", "streaming/class/hs", "control/class/fs"}) {
        mFiles.remove(UvcFunctionTree::path() + "/" + speed + "/h");
        EXPECT_THAT(functionFaults(),
                    HasSubstr(std::string("wrong header: ") + speed + " has no header"));
    }
}

TEST_F(DoctorTest, FindsAnOrderThatIsNotTheServices) {
    mFunction->set("streaming/uncompressed/u/bFormatIndex", "2\n");
    mFunction->set("streaming/mjpeg/m/bFormatIndex", "1\n");
    EXPECT_EQ(
            "wrong order: YUYV is the host's format 2 and the service's 1\n"
            "wrong order: MJPEG is the host's format 1 and the service's 2\n",
            functionFaults());
    mFunction->set("streaming/uncompressed/u/bFormatIndex", "1\n");
    mFunction->set("streaming/mjpeg/m/bFormatIndex", "2\n");
    mFunction->set("streaming/mjpeg/m/480p/bFrameIndex", "2\n");
    mFunction->set("streaming/mjpeg/m/720p/bFrameIndex", "1\n");
    EXPECT_EQ(
            "wrong order: MJPEG 480p is the host's frame 2 and the service's 1\n"
            "wrong order: MJPEG 720p is the host's frame 1 and the service's 2\n",
            functionFaults());
}

TEST_F(DoctorTest, FindsRatesThatTheBusCannotCarry) {
    mFunction->set("streaming/uncompressed/u/720p/dwFrameInterval", "333333\n666666\n");
    EXPECT_EQ(
            "note rates: YUYV 1280x720 at 30 needs 55.3 MB/s, and the bus carries 24.5: it comes "
            "at 13\n",
            functionFaults());
    mFunction->set("streaming/uncompressed/u/720p/dwFrameInterval", "2000000\n");
    mFunction->set("streaming_maxpacket", "1024\n");
    EXPECT_THAT(functionFaults(), HasSubstr("note rates: YUYV 640x480 at 30 needs 18.4 MB/s"));
    mFunction->set("streaming_maxpacket", "3072\n");
    mFunction->set("streaming_interval", "3\n");
    EXPECT_THAT(functionFaults(), HasSubstr("the bus carries 6.1"));
}

TEST_F(DoctorTest, FindsInterfaceNumbersThatTheServiceDoesNotAnswerFor) {
    mFunction->set("control/bInterfaceNumber", "2\n");
    mFunction->set("streaming/bInterfaceNumber", "3\n");
    const std::string fault =
            "wrong interfaces: they are 2 and 3, but the service answers for 0 and 1 only\n";
    EXPECT_EQ(fault, functionFaults("6.1.0-56-amd64"));
    EXPECT_EQ(fault, functionFaults("5.10.177-android13"));
    EXPECT_EQ(fault, functionFaults("6.11.9"));
    EXPECT_EQ(fault, functionFaults("unheard-of"));
    EXPECT_EQ("", functionFaults("6.12.0-1-amd64"));
    EXPECT_EQ("", functionFaults("7.0.1"));
}

TEST_F(DoctorTest, FindsThatTheFunctionIsNotBound) {
    mFiles.write(std::string(kGadget) + "/UDC", "gone.0\n");
    EXPECT_EQ("wrong bound: its controller gone.0 is gone\n", functionFaults());
    mFiles.write(std::string(kGadget) + "/UDC", "\n");
    EXPECT_EQ("wrong bound: the function is bound to no controller\n", functionFaults());
    mFiles.remove(std::string(kGadget) + "/configs/c.1/uvc.0");
    EXPECT_EQ("wrong bound: uvc.0 is in no configuration of the device\n", functionFaults());
}

// --- The programs and the stream ---

class DoctorStatusTest : public testing::Test {
  protected:
    DoctorStatusTest() {
        mStatus.nodePath = "/dev/video1";
        mStatus.nodeState = "streaming";
        mStatus.clients = {{4, "controller", 1, 0}, {3, "stream", 2, 0}};
        mStatus.surface = Surface{{"NV12", 640, 480, 30}, 2, false};
        mStatus.buffers = {"driver", "service", "driver", "driver"};
        mStatus.start = {{"drawn", 100}, {"sent", 100}, {"returned", 100}};
        mLater = mStatus;
        mLater.start = {{"drawn", 130}, {"sent", 130}, {"returned", 125}};
    }

    // The last finding, as "state what: says".
    std::string last() const {
        const Finding finding = checkStatus(mStatus, mLater, 1.0).back();
        const char* const states[] = {"right", "note", "wrong"};
        EXPECT_EQ(finding.state == Finding::RIGHT, finding.mend.empty()) << finding.says;
        return std::string(states[finding.state]) + " " + finding.what + ": " + finding.says;
    }
    std::string mend() const { return checkStatus(mStatus, mLater, 1.0).back().mend; }

    Status mStatus;
    Status mLater;
};

TEST_F(DoctorStatusTest, AStreamThatRunsIsRight) {
    EXPECT_EQ("right stream: 25.0 frames a second", last());
    EXPECT_FALSE(anyWrong(checkStatus(mStatus, mLater, 1.0)));
}

TEST_F(DoctorStatusTest, FindsThatNobodyAnswers) {
    EXPECT_TRUE(anyWrong(checkManager(false)));
    const Findings missing = checkMissingService();
    ASSERT_EQ(1u, missing.size());
    EXPECT_EQ("it does not run", missing[0].says);
}

TEST_F(DoctorStatusTest, FindsThatTheServiceHasNoNode) {
    for (const auto& [state, says] : {std::pair<std::string, std::string>{"none", "it has no node"},
                                      {"unopened", "it could not open /dev/video1"},
                                      {"closed",
                                       "the host has gone, and it has let go of "
                                       "/dev/video1"}}) {
        mLater.nodeState = state;
        const Finding finding = checkStatus(mStatus, mLater, 1.0).front();
        EXPECT_EQ(Finding::WRONG, finding.state);
        EXPECT_EQ(says, finding.says);
        EXPECT_EQ("korvane-gadget unbind; korvane-gadget bind", finding.mend);
    }
}

TEST_F(DoctorStatusTest, FindsThatThereIsNoCamera) {
    mLater.clients.pop_back();
    EXPECT_EQ("wrong camera: none is connected", last());
}

TEST_F(DoctorStatusTest, FindsThatTheHostHasNotOpenedTheWebcam) {
    mLater.nodeState = "ready";
    EXPECT_EQ("note stream: the host has not opened the webcam", last());
}

TEST_F(DoctorStatusTest, FindsThatTheCameraDoesNotJoinTheStream) {
    mLater.surface->renderer = 0;
    EXPECT_EQ("wrong stream: nobody has taken the surface", last());
    mLater.surface.reset();
    EXPECT_EQ("wrong stream: the camera has asked for no surface", last());
}

TEST_F(DoctorStatusTest, FindsThatThePictureIsHeld) {
    mLater.surface->suspended = true;
    EXPECT_EQ("wrong stream: the picture is held: it is suspended", last());
    EXPECT_EQ("desktopctl resume", mend());
}

TEST_F(DoctorStatusTest, FindsThatTheCameraDrawsNothing) {
    mLater.start = mStatus.start;
    EXPECT_EQ("wrong stream: the camera draws nothing", last());
    mLater.buffers.assign(4, "driver");
    EXPECT_EQ("wrong stream: the driver has every buffer, and sends none", last());
}

TEST_F(DoctorStatusTest, FindsWhyFramesAreDropped) {
    for (const char* reason :
         {"rate", "backward", "suspended", "no-stream", "too-large", "unreadable", "refused"}) {
        mLater.start = {{"drawn", 130},
                        {"sent", 100},
                        {"returned", 100},
                        {std::string("dropped-") + reason, 30},
                        {"dropped-other", 2}};
        EXPECT_EQ(std::string("wrong stream: every frame is dropped: ") + reason, last());
        EXPECT_NE("desktopctl status", mend()) << reason;
    }
}

TEST_F(DoctorStatusTest, FindsThatNothingIsSent) {
    mLater.start["returned"] = 100;
    EXPECT_EQ("wrong stream: frames are queued, and none is sent", last());
}

TEST_F(DoctorStatusTest, FindsThatTheHostGetsOldPictures) {
    mLater.start["stale"] = 30;
    EXPECT_EQ("wrong stream: the host gets old pictures: the camera's can't be read", last());
    mLater.start["stale"] = 1;
    EXPECT_EQ("right stream: 25.0 frames a second", last());
}

TEST_F(DoctorStatusTest, ALineForEachAndTheMendBelow) {
    const Findings findings = {right("bound", "to a"),
                               wrong("camera", "none \"here\"", "start it")};
    EXPECT_EQ(
            "right  bound       to a\n"
            "wrong  camera      none \"here\"\n"
            "       mend:       start it\n",
            findingsAsText(findings));
    rapidjson::Document document;
    ASSERT_FALSE(document.Parse(findingsAsJson(findings).c_str()).HasParseError());
    ASSERT_EQ(2u, document.Size());
    EXPECT_STREQ("right", document[0]["state"].GetString());
    EXPECT_STREQ("none \"here\"", document[1]["says"].GetString());
    EXPECT_STREQ("start it", document[1]["mend"].GetString());
}

}  // namespace
}  // namespace korvane::ctl
