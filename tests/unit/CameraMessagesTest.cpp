// SPDX-License-Identifier: Apache-2.0
#include <string>

#include <gtest/gtest.h>

#include "desktop-camera/Messages.h"

namespace korvane::camera {
namespace {

TEST(CameraMessagesTest, UnderstandsTheEvents) {
    EXPECT_EQ(Event::START, eventFrom("{\"event\":\"stream-start\"}"));
    EXPECT_EQ(Event::START, eventFrom("{\"webcam-start\":true}"));
    EXPECT_EQ(Event::STOP, eventFrom("{\"event\":\"stream-stop\"}"));
}

TEST(CameraMessagesTest, PassesOverEverythingElse) {
    for (const char* text :
         {"", "hello", "[1]", "3", "null", "{}", "{\"event\":\"stream-pause\"}", "{\"event\":1}",
          "{\"webcam-start\":false}", "{\"webcam-start\":1}", "{\"event\":\"stream-start\""}) {
        EXPECT_EQ(Event::NONE, eventFrom(text)) << text;
    }
}

TEST(CameraMessagesTest, ReadsTheConfigurationOfAStream) {
    PictureFormat format;
    ASSERT_TRUE(
            streamConfigFrom("{\"width\":1280,\"height\":720,\"v4l2-format\":\"NV12\","
                             "\"fps\":30.000030517578125,\"buffer-count\":4}",
                             &format));
    EXPECT_EQ("NV12", format.fourcc);
    EXPECT_EQ(1280u, format.width);
    EXPECT_EQ(720u, format.height);
    EXPECT_EQ(30.000030517578125, format.fps);
}

TEST(CameraMessagesTest, RefusesWhatIsNoConfiguration) {
    for (const char* text :
         {"", "no v4l2 control", "OK_WEBCAM_HAL", "{}", "[]",
          "{\"height\":720,\"v4l2-format\":\"NV12\",\"fps\":30}",
          "{\"width\":0,\"height\":720,\"v4l2-format\":\"NV12\",\"fps\":30}",
          "{\"width\":1280,\"height\":-720,\"v4l2-format\":\"NV12\",\"fps\":30}",
          "{\"width\":1280,\"height\":720,\"v4l2-format\":1,\"fps\":30}",
          "{\"width\":1280,\"height\":720,\"v4l2-format\":\"NV12\"}",
          "{\"width\":1280,\"height\":720,\"v4l2-format\":\"NV12\",\"fps\":\"30\"}",
          "{\"width\":1280,\"height\":720,\"v4l2-format\":\"NV12\",\"fps\":0}"}) {
        PictureFormat format;
        EXPECT_FALSE(streamConfigFrom(text, &format)) << text;
    }
}

TEST(CameraMessagesTest, AsksForASurfaceOfTheSameValues) {
    EXPECT_EQ(
            "{\"create-surface\":{\"width\":640,\"height\":480,\"consumer-usage\":51,"
            "\"v4l2-format\":\"MJPG\",\"fps\":30.000030517578126}}",
            createSurfaceCommand({"MJPG", 640, 480, 30.000030517578125}, 51));
}

}  // namespace
}  // namespace korvane::camera
