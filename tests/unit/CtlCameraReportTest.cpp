// SPDX-License-Identifier: Apache-2.0
// What desktopctl shows of the camera: whose file it takes, and how it stands in the service's
// status.
#include <string>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "desktopctl/CameraReport.h"
#include "support/TemporaryFolder.h"

namespace korvane::ctl {
namespace {

class CtlCameraReportTest : public testing::Test {
  protected:
    CtlCameraReportTest() { mStatus.clients = {{4, "controller", 7, 1}, {3, "stream", 42, 1}}; }

    std::optional<CameraReport> reportOf(const std::string& file) const {
        mFolder.write("status.json", {file.begin(), file.end()});
        return readCameraReport(mFolder.path("status.json"), mStatus);
    }

    /** What is said of a camera that is a client. */
    std::string sentence(const std::string& camera) const {
        const auto report = reportOf(R"({"pid":42,"camera":)" + camera + "}");
        return report ? report->sentence : "nothing";
    }

    Status mStatus;
    const test::TemporaryFolder mFolder;
};

TEST_F(CtlCameraReportTest, SaysHowThePictureCameAbout) {
    EXPECT_EQ("MJPG 1280x720 from the source is passed on untouched",
              sentence(R"({"streaming":true,"notice":"none",)"
                       R"("text":"MJPG 1280x720 from the source is passed on untouched"})"));
    EXPECT_EQ("draws its source's pictures", sentence(R"({"streaming":true,"notice":"none"})"));
}

TEST_F(CtlCameraReportTest, SaysWhyThereIsACard) {
    EXPECT_EQ("shows a card, absent: no capture device was found",
              sentence(R"({"streaming":true,"notice":"absent",)"
                       R"("text":"no capture device was found"})"));
    EXPECT_EQ("shows a card, covered",
              sentence(R"({"streaming":true,"notice":"covered","text":""})"));
}

TEST_F(CtlCameraReportTest, ACameraThatNobodyWatchesDrawsNothing) {
    EXPECT_EQ("draws nothing", sentence(R"({"streaming":false})"));
    EXPECT_EQ("draws nothing", sentence("{}"));
    EXPECT_EQ("draws nothing", sentence(R"({"streaming":1})"));
}

TEST_F(CtlCameraReportTest, OnlyTheFileOfAConnectedCameraCounts) {
    EXPECT_TRUE(reportOf(R"({"pid":42,"camera":{}})"));
    mStatus.clients = {{1, "launcher", 42, 1}};
    EXPECT_TRUE(reportOf(R"({"pid":42,"camera":{}})"));
    EXPECT_FALSE(reportOf(R"({"pid":41,"camera":{}})")) << "it has died, or isn't connected";
    mStatus.clients = {{4, "controller", 42, 1}, {0, "sink", 42, 1}};
    EXPECT_FALSE(reportOf(R"({"pid":42,"camera":{}})")) << "no camera";
}

TEST_F(CtlCameraReportTest, AnythingElseIsNoReport) {
    for (const char* file : {"", "{", "[]", "null", "{}", R"({"pid":42})", R"({"camera":{}})",
                             R"({"pid":"42","camera":{}})", R"({"pid":42,"camera":[]})",
                             R"({"pid":42,"camera":"x"})", "{\"pid\":42,\"camera\":{}} {"}) {
        EXPECT_FALSE(reportOf(file)) << file;
    }
    EXPECT_FALSE(reportOf(R"({"pid":42,"camera":{"text":")" + std::string(5000, 'x') + "\"}}"));
    EXPECT_FALSE(readCameraReport(mFolder.path("none"), mStatus));
    EXPECT_FALSE(readCameraReport(mFolder.path(""), mStatus));
}

TEST_F(CtlCameraReportTest, APipeInItsPlaceIsNotWaitedFor) {
    const std::string pipe = mFolder.path("pipe");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    EXPECT_FALSE(readCameraReport(pipe, mStatus));
}

TEST_F(CtlCameraReportTest, ATextMovesNoCursor) {
    EXPECT_EQ("?[2J?", sentence(R"({"streaming":true,"notice":"none","text":"\u001b[2J\n"})"));
}

TEST_F(CtlCameraReportTest, StandsUnderTheSurfaceInThePage) {
    const CameraReport camera{"{}", "draws nothing"};
    EXPECT_EQ("Node:     x\nSurface:  none\nCamera:   draws nothing\nClients:\n",
              pageWith(camera, "Node:     x\nSurface:  none\nClients:\n"));
    EXPECT_EQ("something else\nCamera:   draws nothing\n", pageWith(camera, "something else\n"));
}

TEST_F(CtlCameraReportTest, IsAMemberOfTheJsonWhoseOthersStayAsTheyAre) {
    const auto report = reportOf(R"({"pid":42,"camera":{"streaming":true,"text":"a \"b\""}})");
    ASSERT_TRUE(report);
    EXPECT_EQ(R"({"fps":30.000030517578125,"camera":{"streaming":true,"text":"a \"b\""}})"
              "\n",
              jsonWith(*report, "{\"fps\":30.000030517578125}\n"));
    EXPECT_EQ("no object", jsonWith(*report, "no object"));
}

}  // namespace
}  // namespace korvane::ctl
