// SPDX-License-Identifier: Apache-2.0
#include "desktop-camera/CaptureDevices.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <linux/videodev2.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/PrivateFiles.h"
#include "support/ScriptedKernel.h"

namespace korvane::camera {
namespace {

using Kind = CaptureDevice::Kind;
using test::ScriptedKernel;

constexpr __u32 kCapture = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;

class CaptureDevicesTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mFiles.available()) GTEST_SKIP() << mFiles.whyNot();
        mFiles.makeDirectory("/sys/class/video4linux");
    }

    /** A node whose driver says this of itself. */
    ScriptedKernel& add(const std::string& name, const std::string& driver, __u32 deviceCaps,
                        const std::string& bus = "platform:x", const std::string& card = "card") {
        mFiles.addVideoDevice(name, card);
        mNodes.push_back(std::make_unique<ScriptedKernel>("/dev/" + name));
        mNodes.back()->answerAll("VIDIOC_QUERYCAP", [=](void* argument) {
            auto* capability = static_cast<v4l2_capability*>(argument);
            strncpy(reinterpret_cast<char*>(capability->driver), driver.c_str(), 15);
            strncpy(reinterpret_cast<char*>(capability->card), card.c_str(), 31);
            strncpy(reinterpret_cast<char*>(capability->bus_info), bus.c_str(), 31);
            // Of the whole device, as drivers of several nodes have it.
            capability->capabilities = kCapture | V4L2_CAP_DEVICE_CAPS;
            capability->device_caps = deviceCaps;
            return 0;
        });
        return *mNodes.back();
    }

    static Kind kindOfOnly() {
        const auto devices = captureDevices();
        EXPECT_EQ(1u, devices.size());
        return devices.empty() ? Kind::UNUSABLE : devices[0].kind;
    }

    test::PrivateFiles mFiles;
    std::vector<std::unique_ptr<ScriptedKernel>> mNodes;
};

TEST_F(CaptureDevicesTest, FindsNothingWhereThereAreNoNodes) {
    EXPECT_TRUE(captureDevices().empty());
    EXPECT_EQ("There is no camera: with --source auto the host sees a card.\n", textOf({}));
    mFiles.remove("/sys/class/video4linux");
    EXPECT_TRUE(captureDevices().empty());
}

TEST_F(CaptureDevicesTest, TakesTheFirstCameraThatIsNotTheWebcamItself) {
    add("video10", "vivid", kCapture, "platform:vivid-000", "vivid");
    add("video2", "uvcvideo", kCapture, "usb-dummy_hcd.0-1", "Webcam gadget");
    add("video1", "g_uvc", kCapture, "gadget.0", "UDC");
    add("video9", "uvcvideo", kCapture, "usb-0000:00:14.0-3", "HD Camera");
    mFiles.write("/sys/class/video4linux/v4l-subdev0/name", "no node of this kind");
    const auto devices = captureDevices();
    ASSERT_EQ(4u, devices.size());
    const auto camera = firstCamera(devices);
    ASSERT_TRUE(camera);
    EXPECT_EQ("/dev/video9", camera->path);
    EXPECT_EQ(
            "/dev/video1  the webcam itself  (g_uvc)  UDC\n"
            "/dev/video2  the webcam itself  (uvcvideo)  Webcam gadget\n"
            "/dev/video9  a camera  (uvcvideo)  HD Camera  <- --source auto\n"
            "/dev/video10  a camera  (vivid)  vivid\n",
            textOf(devices));
    for (const auto& node : mNodes) EXPECT_EQ(0u, node->openDescriptors());
}

TEST_F(CaptureDevicesTest, RecognisesCamerasByTheirNodesOwnCapabilities) {
    const struct {
        __u32 can;
        Kind kind;
    } kCases[] = {
            {kCapture, Kind::CAMERA},
            {V4L2_CAP_VIDEO_CAPTURE_MPLANE | V4L2_CAP_STREAMING, Kind::CAMERA},
            {V4L2_CAP_META_CAPTURE | V4L2_CAP_STREAMING, Kind::OTHER},
            {V4L2_CAP_VIDEO_OUTPUT | V4L2_CAP_STREAMING, Kind::OTHER},
            {V4L2_CAP_VIDEO_M2M | V4L2_CAP_STREAMING, Kind::OTHER},
            {V4L2_CAP_VIDEO_CAPTURE, Kind::OTHER},
    };
    for (const auto& expected : kCases) {
        mNodes.clear();
        add("video0", "driver", expected.can);
        EXPECT_EQ(expected.kind, kindOfOnly()) << expected.can;
    }
}

TEST_F(CaptureDevicesTest, ListsNodesThatCannotBeAsked) {
    add("video0", "driver", kCapture).fail("VIDIOC_QUERYCAP", EIO);
    EXPECT_EQ(Kind::UNUSABLE, kindOfOnly());
    EXPECT_EQ("/dev/video0  a camera  (driver)  card  <- --source auto\n",
              textOf(captureDevices()));
    mNodes[0]->fail("open", EACCES);
    EXPECT_EQ(
            "/dev/video0  cannot be opened\n"
            "There is no camera: with --source auto the host sees a card.\n",
            textOf(captureDevices()));
}

TEST_F(CaptureDevicesTest, NeverOpensTheGadgetsNode) {
    ScriptedKernel& node = add("video0", "g_uvc", kCapture);
    mFiles.makeDirectory("/sys/class/bus/gadget");
    mFiles.makeDirectory("/sys/class/video4linux/video0/device");
    ASSERT_EQ(0,
              symlink("/sys/class/bus/gadget", "/sys/class/video4linux/video0/device/subsystem"));
    EXPECT_EQ(Kind::GADGET, kindOfOnly());
    EXPECT_TRUE(node.calls("open").empty());
}

}  // namespace
}  // namespace korvane::camera
