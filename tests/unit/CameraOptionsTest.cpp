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
    EXPECT_EQ(CameraOptions::Source::CARD, options.source);
    EXPECT_TRUE(options.turn.isNone());
    EXPECT_EQ("", options.privacy);
    EXPECT_EQ("", options.onStart);
    EXPECT_EQ("", options.onStop);
    EXPECT_FALSE(options.list);
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
    EXPECT_EQ("v4l2src device=/dev/video0", read({"--config", file.path()}).pipeline);
    EXPECT_EQ("videotestsrc", read({"--source=videotestsrc", "--config", file.path()}).pipeline);
    EXPECT_EQ(CameraOptions::Source::AUTO, read({"--source=auto", "--config", file.path()}).source);
    EXPECT_EQ(CameraOptions::Source::CARD,
              read({"--config", Settings("#source = x\n").path()}).source);
    EXPECT_EQ(CameraOptions::Source::AUTO,
              read({"--config", Settings("source = auto\n").path()}).source);
}

TEST(CameraOptionsTest, TakesTheOthersFromAFileToo) {
    const Settings file(
            "rotate = 90\nmirror = yes\nprivacy = /run/covered\n"
            "on-start = light on\non-stop = light off\n");
    const CameraOptions options = read({"--config", file.path(), "--rotate=180"});
    EXPECT_EQ(180, options.turn.degrees);
    EXPECT_TRUE(options.turn.mirrored);
    EXPECT_EQ("/run/covered", options.privacy);
    EXPECT_EQ("light on", options.onStart);
    EXPECT_EQ("light off", options.onStop);
    EXPECT_FALSE(read({"--config", Settings("mirror = no\n").path()}).turn.mirrored);
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
    EXPECT_EQ("2: unknown key 'sauce' (known: mirror, on-start, on-stop, privacy, rotate, source)",
              wrong("source = x\nsauce = y\n"));
    EXPECT_EQ("1: source is '', but a GStreamer pipeline, auto or card is needed",
              wrong("source =\n"));
    EXPECT_EQ("1: mirror is 'maybe', but yes or no is needed", wrong("mirror = maybe\n"));
    EXPECT_EQ("1: rotate is '1', but 0, 90, 180 or 270 is needed", wrong("rotate = 1\n"));
    EXPECT_EQ("2: source is there twice", wrong("source = card\nsource = auto\n"));
    EXPECT_EQ("1: privacy is '', but the path of a file is needed", wrong("privacy =\n"));
    EXPECT_EQ("1: on-start is '', but a command of the shell is needed", wrong("on-start =\n"));
    EXPECT_EQ("1: on-stop is '', but a command of the shell is needed", wrong("on-stop =\n"));
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
    EXPECT_EQ(CameraOptions::Source::PIPELINE, options.source);
    EXPECT_EQ("v4l2src ! jpegdec", options.pipeline);
    EXPECT_EQ("/tmp/log", options.log);
    EXPECT_EQ(4294967294u, options.lastFrame);
}

TEST(CameraOptionsTest, RecognisesTheSourcesThatAreNotPipelines) {
    EXPECT_EQ(CameraOptions::Source::AUTO, read({"--source", "auto"}).source);
    EXPECT_EQ(CameraOptions::Source::CARD, read({"--source=auto", "--source=card"}).source);
    EXPECT_TRUE(read({"--list"}).list);
}

TEST(CameraOptionsTest, TakesHowThePicturesLieAndWhoIsToldOfThem) {
    for (const int degrees : {0, 90, 180, 270}) {
        const CameraOptions options = read({"--rotate", std::to_string(degrees)});
        EXPECT_EQ(degrees, options.turn.degrees);
        EXPECT_FALSE(options.turn.mirrored);
    }
    EXPECT_TRUE(read({"--mirror"}).turn.mirrored);
    const CameraOptions options =
            read({"--privacy", "/run/covered", "--on-start=light on", "--on-stop", "light off"});
    EXPECT_EQ("/run/covered", options.privacy);
    EXPECT_EQ("light on", options.onStart);
    EXPECT_EQ("light off", options.onStop);
}

TEST(CameraOptionsTest, RefusesInvalidValues) {
    const struct {
        const char *argument, *error;
    } kCases[] = {
            {"--source=",
             "desktop-camera: --source is '', but a GStreamer pipeline, auto or card is needed"},
            {"--rotate=-90", "desktop-camera: --rotate is '-90', but 0, 90, 180 or 270 is needed"},
            {"--rotate=090", "desktop-camera: --rotate is '090', but 0, 90, 180 or 270 is needed"},
            {"--privacy=", "desktop-camera: --privacy is '', but the path of a file is needed"},
            {"--on-start=",
             "desktop-camera: --on-start is '', but a command of the shell is needed"},
            {"--on-stop=", "desktop-camera: --on-stop is '', but a command of the shell is needed"},
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
    for (const char* name : {"--source SOURCE", "--list", "--rotate DEGREES", "--mirror",
                             "--privacy FILE", "--on-start COMMAND", "--on-stop COMMAND",
                             "--kind KIND", "--log FILE", "--frames COUNT"}) {
        EXPECT_NE(std::string::npos, options.help.find(name)) << name;
    }
}

}  // namespace
}  // namespace korvane::camera
