// SPDX-License-Identifier: Apache-2.0
#include "desktop-camera/StatusFile.h"

#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "desktop-camera/CameraStatus.h"
#include "support/LogRecorder.h"
#include "support/TemporaryFolder.h"

namespace korvane::camera {
namespace {

class StatusFileTest : public testing::Test {
  protected:
    static std::string fileWith(const std::string& status) {
        return "{\"pid\":" + std::to_string(getpid()) + ",\"camera\":" + status + "}\n";
    }

    std::string written() const { return mFolder.read("run/status.json"); }

    const test::LogRecorder mLog;
    const test::TemporaryFolder mFolder;
    const std::string mPath = mFolder.path("run/status.json");
};

TEST_F(StatusFileTest, HasTheLatestStatusAndWhoseItIs) {
    StatusFile file(mPath);
    file.write(R"({"streaming":true})");
    EXPECT_EQ(fileWith(R"({"streaming":true})"), written());
    file.write("{}");
    EXPECT_EQ(fileWith("{}"), written());
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(StatusFileTest, IsReplacedAndNeverChanged) {
    StatusFile file(mPath);
    file.write(R"({"streaming":true})");
    const std::string kept = mFolder.path("kept");
    ASSERT_EQ(0, link(mPath.c_str(), kept.c_str()));
    file.write("{}");
    EXPECT_EQ(fileWith(R"({"streaming":true})"), mFolder.read("kept"));
}

TEST_F(StatusFileTest, IsLeftAloneWhileTheStatusStaysTheSame) {
    StatusFile file(mPath);
    file.write("{}");
    ASSERT_EQ(0, unlink(mPath.c_str()));
    file.write("{}");
    EXPECT_EQ("", written());
}

TEST_F(StatusFileTest, CanBeReadByAnybodyWhateverTheMask) {
    const mode_t before = umask(0077);
    StatusFile file(mPath);
    file.write("{}");
    umask(before);
    struct stat found = {};
    ASSERT_EQ(0, stat(mPath.c_str(), &found));
    EXPECT_EQ(0644u, found.st_mode & 0777u);
}

TEST_F(StatusFileTest, GoesWithTheCamera) {
    {
        StatusFile file(mPath);
        file.write("{}");
        EXPECT_NE("", written());
    }
    EXPECT_NE(0, access(mPath.c_str(), F_OK));
}

TEST_F(StatusFileTest, IsNoReasonToStopWhereItCannotBeWritten) {
    StatusFile file(mFolder.path("none/run/status.json"));
    file.write("{}");
    file.write(R"({"streaming":true})");
    ASSERT_EQ(1u, mLog.lines().size());
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, "desktop-camera",
                         mFolder.path("none/run/status.json") +
                                 " does not say what the camera does: No such file or directory"));
}

TEST_F(StatusFileTest, FollowsTheStatus) {
    StatusFile file(mPath);
    CameraStatus status([&](const std::string& json) { file.write(json); });
    EXPECT_EQ(fileWith(R"({"streaming":false})"), written());
    const auto current = [&] { return fileWith(status.json()); };
    status.begin({"MJPG", 640, 480, 30});
    EXPECT_EQ(current(), written());
    status.setTrouble({testcard::Notice::ABSENT, "it is not there"});
    EXPECT_EQ(current(), written());
    status.setPictures("MJPG 640x480 from the source is passed on untouched");
    EXPECT_NE(std::string::npos, written().find("passed on untouched"));
    status.end();
    EXPECT_EQ(fileWith(R"({"streaming":false})"), written());
}

}  // namespace
}  // namespace korvane::camera
