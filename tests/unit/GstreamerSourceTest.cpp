// SPDX-License-Identifier: Apache-2.0
#include "desktop-camera/GstreamerSource.h"

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/LogRecorder.h"
#include "testcard/Picture.h"

// The thread sanitizer does not see the locks of GLib, which it was not built with, and takes what
// they guard inside these libraries for races.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
    return "race:libgst\nrace:libglib-2.0\nrace:libgobject-2.0\ndeadlock:libgst\n";
}

namespace korvane::camera {
namespace {

using Result = FrameSource::Result;
using testcard::Planes;

constexpr uint32_t kWidth = 320;
constexpr uint32_t kHeight = 240;
const PictureFormat kNv12{"NV12", kWidth, kHeight, 30};
const PictureFormat kMjpg{"MJPG", kWidth, kHeight, 30};

/** One picture's memory, for either format. */
struct Memory {
    std::vector<uint8_t> bytes = std::vector<uint8_t>(kWidth * kHeight * 3 / 2, 1);
    size_t used = 0;

    PictureMemory picture() {
        return {Planes::nv12(bytes.data(), kWidth, kHeight), bytes.data(), bytes.size()};
    }
};

class GstreamerSourceTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { gst_init(nullptr, nullptr); }

    /** Draws until it is drawn or failed; kNotYet after some seconds without a picture. */
    static Result drawNext(GstreamerSource& source, Memory* memory) {
        Result result = Result::kNotYet;
        for (int tries = 0; tries < 100 && result == Result::kNotYet; ++tries) {
            result = source.draw({}, memory->picture(), &memory->used);
        }
        return result;
    }

    static void expectRed(const Memory& memory) {
        const uint8_t* chroma = &memory.bytes[kWidth * kHeight];
        EXPECT_NEAR(81, memory.bytes[0], 2);
        EXPECT_NEAR(90, chroma[0], 2);
        EXPECT_NEAR(240, chroma[1], 2);
        EXPECT_NEAR(240, chroma[kWidth * kHeight / 2 - 1], 2);
    }
};

TEST_F(GstreamerSourceTest, BringsRawVideoIntoTheStreamsFormatAndSize) {
    GstreamerSource source(
            "videotestsrc is-live=true pattern=red ! "
            "video/x-raw,format=YUY2,width=160,height=120,framerate=15/1");
    ASSERT_TRUE(source.start(kNv12));
    Memory memory;
    ASSERT_EQ(Result::kDrawn, drawNext(source, &memory));
    EXPECT_EQ(kWidth * kHeight * 3 / 2, memory.used);
    expectRed(memory);
}

TEST_F(GstreamerSourceTest, DecodesASourceOfJpegFiles) {
    GstreamerSource source(
            "videotestsrc is-live=true pattern=red ! "
            "video/x-raw,format=I420,width=640,height=480 ! jpegenc");
    ASSERT_TRUE(source.start(kNv12));
    Memory memory;
    ASSERT_EQ(Result::kDrawn, drawNext(source, &memory));
    const uint8_t* chroma = &memory.bytes[kWidth * kHeight];
    EXPECT_GT(chroma[1], chroma[0] + 100) << "not red";
}

TEST_F(GstreamerSourceTest, GivesJpegFilesToAJpegStream) {
    GstreamerSource source("videotestsrc is-live=true");
    ASSERT_TRUE(source.start(kMjpg));
    Memory memory;
    ASSERT_EQ(Result::kDrawn, drawNext(source, &memory));
    testcard::Picture picture;
    std::string error;
    EXPECT_TRUE(testcard::decodeJpeg(memory.bytes.data(), memory.used, &picture, &error)) << error;
    EXPECT_EQ(kWidth, picture.width);
    EXPECT_EQ(kHeight, picture.height);
}

TEST_F(GstreamerSourceTest, FillsPaddedAndPlanarMemory) {
    GstreamerSource source("videotestsrc is-live=true pattern=red");
    ASSERT_TRUE(source.start(kNv12));
    constexpr size_t kStride = 384;
    std::vector<uint8_t> y(kStride * kHeight, 1), cb(kStride * kHeight, 1), cr(cb);
    PictureMemory memory;
    memory.planes = {y.data(), cb.data(), cr.data(), kStride, kStride, 1};
    Result result = Result::kNotYet;
    size_t used = 0;
    for (int tries = 0; tries < 100 && result == Result::kNotYet; ++tries) {
        result = source.draw({}, memory, &used);
    }
    ASSERT_EQ(Result::kDrawn, result);
    const size_t last = (kHeight / 2 - 1) * kStride + kWidth / 2 - 1;
    EXPECT_NEAR(90, cb[last], 2);
    EXPECT_NEAR(240, cr[last], 2);
    EXPECT_EQ(1, cr[last + 1]) << "wrote into the padding";
    EXPECT_EQ(1, y[kWidth]) << "wrote into the padding";
}

TEST_F(GstreamerSourceTest, LeavesOutAFileThatIsTooLarge) {
    const test::LogRecorder log;
    GstreamerSource source("videotestsrc is-live=true pattern=snow");
    ASSERT_TRUE(source.start(kMjpg));
    Memory memory;
    memory.bytes.resize(100);
    for (int tries = 0; tries < 100 && log.lines("desktop-camera").empty(); ++tries) {
        PictureMemory picture;
        picture.file = memory.bytes.data();
        picture.fileCapacity = memory.bytes.size();
        EXPECT_EQ(Result::kNotYet, source.draw({}, picture, &memory.used));
    }
    ASSERT_FALSE(log.lines("desktop-camera").empty());
    EXPECT_EQ(0u, log.lines("desktop-camera")[0].message.find("left out a JPEG file of "));
    EXPECT_EQ(std::vector<uint8_t>(100, 1), memory.bytes);
}

TEST_F(GstreamerSourceTest, BeginsASourceThatEndsAgain) {
    GstreamerSource source("videotestsrc num-buffers=3");
    ASSERT_TRUE(source.start(kNv12));
    Memory memory;
    for (int picture = 0; picture < 10; ++picture) {
        ASSERT_EQ(Result::kDrawn, drawNext(source, &memory)) << "picture " << picture;
    }
}

TEST_F(GstreamerSourceTest, GivesUpASourceThatEndsWithoutAPicture) {
    const test::LogRecorder log;
    GstreamerSource source("filesrc location=/dev/null ! rawvideoparse width=320 height=240");
    Memory memory;
    ASSERT_TRUE(source.start(kNv12));
    EXPECT_EQ(Result::kFailed, drawNext(source, &memory));
    ASSERT_EQ(1u, log.lines("desktop-camera").size());
    EXPECT_EQ(testcard::Notice::kFailed, source.trouble().notice);
}

TEST_F(GstreamerSourceTest, SaysThatASourceHasEndedOfWhichNoPictureCameThrough) {
    GstreamerSource source(
            "videotestsrc num-buffers=5 ! videorate drop-only=true ! "
            "identity name=gate eos-after=1");
    Memory memory;
    ASSERT_TRUE(source.start(kNv12));
    EXPECT_EQ(Result::kFailed, drawNext(source, &memory));
    EXPECT_EQ(testcard::Notice::kEnded, source.trouble().notice);
    EXPECT_EQ("the source has ended without a picture", source.trouble().text);
}

TEST_F(GstreamerSourceTest, ServesStreamsOfDifferentFormatsInTurn) {
    GstreamerSource source("videotestsrc is-live=true pattern=red");
    for (const PictureFormat& format : {kNv12, kMjpg, kNv12}) {
        ASSERT_TRUE(source.start(format));
        Memory memory;
        EXPECT_EQ(Result::kDrawn, drawNext(source, &memory));
        EXPECT_EQ(format.isJpeg(), memory.used != memory.bytes.size());
        source.stop();
    }
}

TEST_F(GstreamerSourceTest, FailsAndSaysWhyWhenTheSourceFails) {
    const test::LogRecorder log;
    GstreamerSource source("filesrc name=film location=/nowhere/film.mp4");
    Memory memory;
    if (source.start(kNv12)) {
        EXPECT_EQ(Result::kFailed, drawNext(source, &memory));
    }
    ASSERT_FALSE(log.lines("desktop-camera").empty());
    EXPECT_EQ(
            "the source failed: film: Resource not found. (No such file "
            "\"/nowhere/film.mp4\")",
            log.lines("desktop-camera")[0].message);
    EXPECT_EQ(testcard::Notice::kAbsent, source.trouble().notice);
    EXPECT_EQ(log.lines("desktop-camera")[0].message, source.trouble().text);
    source.stop();
    if (source.start(kNv12)) drawNext(source, &memory);
    EXPECT_EQ(1u, log.lines("desktop-camera").size()) << "the same again is no news";
}

TEST_F(GstreamerSourceTest, FailsWhenItsSourceDoesInTheMiddleAndIsWellAgainAfterwards) {
    const test::LogRecorder log;
    // Fails at the third picture, in every run.
    GstreamerSource source("videotestsrc is-live=true ! identity error-after=3");
    Memory memory;
    for (int run = 0; run < 2; ++run) {
        ASSERT_TRUE(source.start(kNv12));
        ASSERT_EQ(Result::kDrawn, drawNext(source, &memory));
        EXPECT_EQ("", source.trouble().text);
        Result result = Result::kDrawn;
        for (int i = 0; i < 10 && result == Result::kDrawn; ++i) result = drawNext(source, &memory);
        EXPECT_EQ(Result::kFailed, result);
        EXPECT_EQ(testcard::Notice::kFailed, source.trouble().notice);
        source.stop();
    }
    EXPECT_EQ(2u, log.lines("desktop-camera").size()) << "a picture came between";
}

TEST_F(GstreamerSourceTest, ChecksDescriptionsBeforeTheyAreUsed) {
    EXPECT_EQ("", GstreamerSource::check("videotestsrc"));
    EXPECT_EQ("no element \"nosuchsrc\"", GstreamerSource::check("nosuchsrc"));
    EXPECT_NE("", GstreamerSource::check("videotestsrc !"));
    EXPECT_NE("", GstreamerSource::check("videotestsrc nosuchproperty=1"));
}

}  // namespace
}  // namespace korvane::camera
