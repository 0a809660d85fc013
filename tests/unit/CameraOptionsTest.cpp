// SPDX-License-Identifier: Apache-2.0
#include "desktop-camera/CameraOptions.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

namespace korvane::camera {
namespace {

CameraOptions read(const std::vector<std::string>& arguments) {
    CameraOptions options;
    EXPECT_EQ("", options.read(arguments));
    return options;
}

TEST(CameraOptionsTest, DrawsATestCardForStreamsForEverByDefault) {
    const CameraOptions options = read({});
    EXPECT_EQ("", options.source);
    EXPECT_EQ("", options.log);
    EXPECT_EQ("", options.help);
    EXPECT_TRUE(options.asStreamClient);
    EXPECT_FALSE(options.asLauncher);
    EXPECT_EQ(UINT32_MAX, options.lastFrame);
}

/** A file of settings that goes with the test. */
class Settings {
  public:
    explicit Settings(const std::string& content) {
        const int fd = mkstemp(mPath);
        EXPECT_EQ(static_cast<ssize_t>(content.size()), write(fd, content.data(), content.size()));
        close(fd);
    }
    ~Settings() { unlink(mPath); }
    std::string path() const { return mPath; }

  private:
    char mPath[32] = "/tmp/camera.conf.XXXXXX";
};

TEST(CameraOptionsTest, TakesTheSourceFromAFileUnlessItIsGiven) {
    const Settings file("# the camera\n\n  source =  v4l2src device=/dev/video0 \n");
    EXPECT_EQ("v4l2src device=/dev/video0", read({"--config", file.path()}).source);
    EXPECT_EQ("videotestsrc", read({"--source=videotestsrc", "--config", file.path()}).source);
    EXPECT_EQ("", read({"--config", Settings("#source = x\n").path()}).source);
}

TEST(CameraOptionsTest, SaysWhereAFileIsWrong) {
    const auto wrong = [](const std::string& content) {
        const Settings file(content);
        CameraOptions options;
        const std::string line = options.read({"--config", file.path()});
        const std::string begin = "desktop-camera: " + file.path() + ":";
        EXPECT_EQ(begin, line.substr(0, begin.size()));
        return line.substr(std::min(begin.size(), line.size()));
    };
    EXPECT_EQ("2: unknown key 'sauce' (known: source)", wrong("source = x\nsauce = y\n"));
    EXPECT_EQ("1: source is '', but a GStreamer pipeline is needed", wrong("source =\n"));
    EXPECT_EQ("3: 'videotestsrc' is not KEY = VALUE", wrong("\n\nvideotestsrc\n"));
    CameraOptions options;
    EXPECT_EQ("desktop-camera: /nowhere/c.conf: No such file or directory",
              options.read({"--config=/nowhere/c.conf"}));
    EXPECT_EQ("desktop-camera: /tmp: Is a directory", options.read({"--config=/tmp"}));
}

TEST(CameraOptionsTest, IsWhatKindOfClientItIsTold) {
    const struct {
        const char* kind;
        bool asLauncher, asStreamClient;
    } kCases[] = {{"1", true, false}, {"3", false, true}, {"both", true, true}};
    for (const auto& expected : kCases) {
        const CameraOptions options = read({"--kind", expected.kind});
        EXPECT_EQ(expected.asLauncher, options.asLauncher) << expected.kind;
        EXPECT_EQ(expected.asStreamClient, options.asStreamClient) << expected.kind;
    }
}

TEST(CameraOptionsTest, TakesASourceALogAndANumberOfFrames) {
    const CameraOptions options =
            read({"--source", "v4l2src ! jpegdec", "--log=/tmp/log", "--frames", "4294967294"});
    EXPECT_EQ("v4l2src ! jpegdec", options.source);
    EXPECT_EQ("/tmp/log", options.log);
    EXPECT_EQ(4294967294u, options.lastFrame);
}

TEST(CameraOptionsTest, RefusesValuesThatAreNone) {
    const struct {
        const char *argument, *error;
    } kCases[] = {
            {"--source=", "desktop-camera: --source is '', but a GStreamer pipeline is needed"},
            {"--log=", "desktop-camera: --log is '', but the path of a file is needed"},
            {"--kind=", "desktop-camera: --kind is '', but 1, 3 or both is needed"},
            {"--frames=4294967295",
             "desktop-camera: --frames is '4294967295', but a number from 1 is needed"},
    };
    for (const auto& wrong : kCases) {
        EXPECT_EQ(wrong.error, CameraOptions().read({wrong.argument}));
    }
}

TEST(CameraOptionsTest, ExplainsEveryOption) {
    const CameraOptions options = read({"--help"});
    for (const char* name : {"--source PIPELINE", "--kind KIND", "--log FILE", "--frames COUNT"}) {
        EXPECT_NE(std::string::npos, options.help.find(name)) << name;
    }
}

}  // namespace
}  // namespace korvane::camera
