// SPDX-License-Identifier: Apache-2.0
#include "desktop-camera/GstreamerSource.h"

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/LogRecorder.h"
#include "support/TemporaryFolder.h"
#include "testcard/Picture.h"
#include "testcard/StripCode.h"
#include "testcard/StripLayout.h"
#include "testcard/TestCardJpeg.h"

// GStreamer and GLib were not built with the thread sanitizer, which sees what they write by libc's
// functions (memcpy, memset, malloc) but not the locks of GLib that hand it from thread to thread:
// each picture that we read was a race to it. A suppression by the libraries' names is not enough,
// since the sanitizer forgets now and then who wrote. So it looks at nothing that libc's functions
// do here; what our own code reads and writes it still sees, and our locks. Of the order of locks,
// which are nearly all theirs, it knows too little.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
    return "ignore_interceptors_accesses=1:detect_deadlocks=0";
}

namespace korvane::camera {
namespace {

using Result = FrameSource::Result;
using testcard::Planes;

constexpr uint32_t kWidth = 320;
constexpr uint32_t kHeight = 240;
const PictureFormat kNv12{"NV12", kWidth, kHeight, 30};
const PictureFormat kMjpg{"MJPG", kWidth, kHeight, 30};
constexpr int kTries = 300;  // of draw(), each of which may wait for a tenth of a second

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

    /** Draws, again after an end, until it is drawn or failed; NOT_YET after half a minute without
     * a picture. */
    static Result drawNext(GstreamerSource& source, Memory* memory) {
        Result result = Result::NOT_YET;
        for (int tries = 0; tries < kTries && result == Result::NOT_YET; ++tries) {
            result = source.draw({}, memory->picture(), &memory->used);
            if (result == Result::ENDED && source.startAgain()) result = Result::NOT_YET;
        }
        return result;
    }

    /** What was logged of what is wrong. */
    static std::vector<std::string> complaints(const test::LogRecorder& log) {
        std::vector<std::string> found;
        for (const test::LogLine& line : log.lines("desktop-camera")) {
            if (line.priority > ANDROID_LOG_INFO) found.push_back(line.message);
        }
        return found;
    }

    /** Runs until there is a picture; the log tells what was done to it. */
    static void expectDone(const std::string& description, const PictureFormat& format,
                           const Turn& turn, const std::string& line) {
        const test::LogRecorder log;
        GstreamerSource source(description, turn);
        ASSERT_TRUE(source.start(format));
        Memory memory;
        EXPECT_EQ(Result::DRAWN, drawNext(source, &memory));
        EXPECT_TRUE(log.has(ANDROID_LOG_INFO, "desktop-camera", line)) << line;
        EXPECT_EQ(line, source.handling());
        EXPECT_EQ(1u, log.lines("desktop-camera").size());
    }

    static void expectRed(const Memory& memory) {
        const uint8_t* chroma = &memory.bytes[kWidth * kHeight];
        const size_t last = kWidth * kHeight / 2 - 1;
        EXPECT_NEAR(81, memory.bytes[0], 2);
        EXPECT_NEAR(90, chroma[0], 2);
        EXPECT_NEAR(240, chroma[1], 2);
        EXPECT_NEAR(240, chroma[last], 2);
    }
};

TEST_F(GstreamerSourceTest, BringsRawVideoIntoTheStreamsFormatAndSize) {
    GstreamerSource source(
            "videotestsrc is-live=true pattern=red ! "
            "video/x-raw,format=YUY2,width=160,height=120,framerate=15/1");
    ASSERT_TRUE(source.start(kNv12));
    Memory memory;
    ASSERT_EQ(Result::DRAWN, drawNext(source, &memory));
    EXPECT_EQ(kWidth * kHeight * 3 / 2, memory.used);
    expectRed(memory);
}

TEST_F(GstreamerSourceTest, DecodesASourceOfJpegFiles) {
    GstreamerSource source(
            "videotestsrc is-live=true pattern=red ! "
            "video/x-raw,format=I420,width=640,height=480 ! jpegenc");
    ASSERT_TRUE(source.start(kNv12));
    Memory memory;
    ASSERT_EQ(Result::DRAWN, drawNext(source, &memory));
    const uint8_t* chroma = &memory.bytes[kWidth * kHeight];
    EXPECT_GT(chroma[1], chroma[0] + 100) << "not red";
}

TEST_F(GstreamerSourceTest, GivesJpegFilesToAJpegStream) {
    GstreamerSource source("videotestsrc is-live=true");
    ASSERT_TRUE(source.start(kMjpg));
    Memory memory;
    ASSERT_EQ(Result::DRAWN, drawNext(source, &memory));
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
    Result result = Result::NOT_YET;
    size_t used = 0;
    for (int tries = 0; tries < kTries && result == Result::NOT_YET; ++tries) {
        result = source.draw({}, memory, &used);
    }
    ASSERT_EQ(Result::DRAWN, result);
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
    for (int tries = 0; tries < kTries && complaints(log).empty(); ++tries) {
        PictureMemory picture;
        picture.file = memory.bytes.data();
        picture.fileCapacity = memory.bytes.size();
        EXPECT_EQ(Result::NOT_YET, source.draw({}, picture, &memory.used));
    }
    ASSERT_FALSE(complaints(log).empty());
    EXPECT_EQ(0u, complaints(log)[0].find("left out a JPEG file of "));
    EXPECT_EQ(std::vector<uint8_t>(100, 1), memory.bytes);
}

TEST_F(GstreamerSourceTest, RestartsASourceThatEnds) {
    GstreamerSource source("videotestsrc num-buffers=3");
    ASSERT_TRUE(source.start(kNv12));
    Memory memory;
    for (int picture = 0; picture < 10; ++picture) {
        ASSERT_EQ(Result::DRAWN, drawNext(source, &memory)) << "picture " << picture;
    }
}

TEST_F(GstreamerSourceTest, GivesUpASourceThatEndsWithoutAPicture) {
    const test::LogRecorder log;
    GstreamerSource source("filesrc location=/dev/null ! rawvideoparse width=320 height=240");
    Memory memory;
    ASSERT_TRUE(source.start(kNv12));
    EXPECT_EQ(Result::FAILED, drawNext(source, &memory));
    ASSERT_EQ(1u, complaints(log).size());
    EXPECT_EQ(testcard::Notice::FAILED, source.trouble().notice);
}

TEST_F(GstreamerSourceTest, SaysThatASourceEndedBeforeAnyPictureCameThrough) {
    GstreamerSource source(
            "videotestsrc num-buffers=5 ! videorate drop-only=true ! "
            "identity name=gate eos-after=1");
    Memory memory;
    ASSERT_TRUE(source.start(kNv12));
    EXPECT_EQ(Result::FAILED, drawNext(source, &memory));
    EXPECT_EQ(testcard::Notice::ENDED, source.trouble().notice);
    EXPECT_EQ("the source has ended without a picture", source.trouble().text);
}

TEST_F(GstreamerSourceTest, ServesStreamsOfDifferentFormatsInTurn) {
    GstreamerSource source("videotestsrc is-live=true pattern=red");
    for (const PictureFormat& format : {kNv12, kMjpg, kNv12}) {
        ASSERT_TRUE(source.start(format));
        Memory memory;
        EXPECT_EQ(Result::DRAWN, drawNext(source, &memory));
        EXPECT_EQ(format.isJpeg(), memory.used != memory.bytes.size());
        source.stop();
    }
}

TEST_F(GstreamerSourceTest, FailsAndSaysWhyWhenTheSourceFails) {
    const test::LogRecorder log;
    GstreamerSource source("filesrc name=film location=/nowhere/film.mp4");
    Memory memory;
    if (source.start(kNv12)) {
        EXPECT_EQ(Result::FAILED, drawNext(source, &memory));
    }
    ASSERT_FALSE(complaints(log).empty());
    EXPECT_EQ(
            "the source failed: film: Resource not found. (No such file "
            "\"/nowhere/film.mp4\")",
            complaints(log)[0]);
    EXPECT_EQ(testcard::Notice::ABSENT, source.trouble().notice);
    EXPECT_EQ(complaints(log)[0], source.trouble().text);
    source.stop();
    if (source.start(kNv12)) drawNext(source, &memory);
    EXPECT_EQ(1u, complaints(log).size()) << "the same again is no news";
}

// As cameras and films give them: each buffer is a file, and its size is known.
std::string jpegFiles(const std::string& path, const std::string& size) {
    return "multifilesrc location=" + path + " caps=image/jpeg,framerate=30/1," + size +
           " loop=true";
}

std::vector<uint8_t> cardFile(uint32_t width, uint32_t height) {
    const auto layout = *testcard::StripLayout::forSize(width, height);
    return testcard::TestCardJpeg::create(layout)->file({1, 2});
}

TEST_F(GstreamerSourceTest, FailsWithItsSourceInTheMiddleAndRecoversAfterwards) {
    const test::TemporaryFolder files;
    const std::string film =
            jpegFiles(files.write("a.jpg", cardFile(kWidth, kHeight)), "width=320,height=240");
    const test::LogRecorder log;
    // Fails at the third picture, in every run; without a clock, so that none is made up.
    GstreamerSource source(film + " ! identity error-after=3");
    Memory memory;
    for (int run = 0; run < 2; ++run) {
        ASSERT_TRUE(source.start(kMjpg));
        ASSERT_EQ(Result::DRAWN, drawNext(source, &memory));
        EXPECT_EQ("", source.trouble().text);
        Result result = Result::DRAWN;
        for (int i = 0; i < 3 && result == Result::DRAWN; ++i) result = drawNext(source, &memory);
        EXPECT_EQ(Result::FAILED, result);
        EXPECT_EQ(testcard::Notice::FAILED, source.trouble().notice);
        source.stop();
    }
    EXPECT_EQ(2u, complaints(log).size()) << "a picture came between";
}

TEST_F(GstreamerSourceTest, PassesJpegFilesOfTheStreamsSizeOnUntouched) {
    const test::TemporaryFolder files;
    const std::vector<uint8_t> jpeg = cardFile(kWidth, kHeight);
    const test::LogRecorder log;
    GstreamerSource source(jpegFiles(files.write("a.jpg", jpeg), "width=320,height=240"));
    ASSERT_TRUE(source.start(kMjpg));
    Memory memory;
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(Result::DRAWN, drawNext(source, &memory));
        memory.bytes.resize(memory.used);
        EXPECT_EQ(jpeg, memory.bytes);
        memory.bytes.resize(kWidth * kHeight);
    }
    EXPECT_TRUE(log.has(ANDROID_LOG_INFO, "desktop-camera",
                        "MJPG 320x240 from the source is passed on untouched"));
}

TEST_F(GstreamerSourceTest, TakesFilesOneByOneWhenTheyComeWithoutAClock) {
    const test::TemporaryFolder files;
    std::vector<std::vector<uint8_t>> jpegs;
    const auto layout = *testcard::StripLayout::forSize(kWidth, kHeight);
    const auto card = testcard::TestCardJpeg::create(layout);
    for (uint32_t number = 0; number < 100; ++number) {
        jpegs.push_back(card->file({number, 1}));
        files.write(std::to_string(number) + ".jpg", jpegs.back());
    }
    GstreamerSource source(jpegFiles(files.path("%d.jpg"), "width=320,height=240"));
    ASSERT_TRUE(source.start(kMjpg));
    Memory memory;
    uint32_t last = 0;
    for (int i = 0; i < 60; ++i) {
        ASSERT_EQ(Result::DRAWN, drawNext(source, &memory));
        testcard::Picture picture;
        std::string error;
        ASSERT_TRUE(testcard::decodeJpeg(memory.bytes.data(), memory.used, &picture, &error));
        const auto reading = testcard::readCard(layout, picture.luma());
        ASSERT_TRUE(reading.readable());
        // Some may be read before the first is taken, and one wait beside it.
        if (i > 2) {
            EXPECT_EQ((last + 1) % 100, reading.top->number);
        }
        last = reading.top->number;
    }
}

TEST_F(GstreamerSourceTest, EncodesJpegFilesAgainThatAreNotAsTheStreamWantsThem) {
    const test::TemporaryFolder files;
    const std::string right = files.write("a.jpg", cardFile(kWidth, kHeight));
    const std::string large = files.write("b.jpg", cardFile(640, 480));
    expectDone(jpegFiles(large, "width=640,height=480"), kMjpg, {},
               "MJPG from the source is encoded again: it is not 320x240");
    expectDone(jpegFiles(right, "width=320,height=240"), kMjpg, {180, false},
               "MJPG from the source is encoded again: it is turned");
    expectDone("filesrc location=" + right, kMjpg, {},
               "MJPG from the source is encoded again: it does not come file by file");
    expectDone(jpegFiles(right, "width=320,height=240"), kNv12, {},
               "I420 320x240 from the source is converted to NV12 320x240");
}

TEST_F(GstreamerSourceTest, EncodesJpegFilesAgainThatAreTooLarge) {
    const test::TemporaryFolder files;
    std::vector<uint8_t> jpeg = cardFile(kWidth, kHeight);
    jpeg.resize(kWidth * kHeight + 1);  // zeros after the end, as some cameras have them
    const test::LogRecorder log;
    GstreamerSource source(jpegFiles(files.write("a.jpg", jpeg), "width=320,height=240"));
    ASSERT_TRUE(source.start(kMjpg));
    Memory memory;
    memory.bytes.resize(kWidth * kHeight);
    ASSERT_EQ(Result::DRAWN, drawNext(source, &memory));
    testcard::Picture picture;
    std::string error;
    EXPECT_TRUE(testcard::decodeJpeg(memory.bytes.data(), memory.used, &picture, &error)) << error;
    EXPECT_TRUE(log.has(ANDROID_LOG_WARN, "desktop-camera",
                        "a JPEG file of 76801 bytes from the source is too large, the host takes "
                        "76800"));
    EXPECT_TRUE(log.has(ANDROID_LOG_INFO, "desktop-camera",
                        "MJPG from the source is encoded again: its files are too large"));
    source.stop();
    ASSERT_TRUE(source.start(kMjpg));
    drawNext(source, &memory);
    EXPECT_EQ(2u, log.count(ANDROID_LOG_INFO, "desktop-camera",
                            "MJPG 320x240 from the source is passed on untouched"))
            << "another stream may have more room";
}

TEST_F(GstreamerSourceTest, SaysWhatBecomesOfRawVideo) {
    const std::string source = "videotestsrc is-live=true ! video/x-raw,format=";
    expectDone(source + "NV12,width=320,height=240", kNv12, {},
               "NV12 320x240 from the source is copied as it is");
    expectDone(source + "NV12,width=640,height=480", kNv12, {},
               "NV12 640x480 from the source is converted to NV12 320x240");
    expectDone(source + "NV12,width=320,height=240", kNv12, {0, true},
               "NV12 320x240 from the source is converted to NV12 320x240");
    expectDone(source + "YUY2,width=320,height=240", kMjpg, {},
               "YUY2 320x240 from the source is encoded");
}

// The brightest quarter of the picture, named by where it is.
std::string brightCorner(const std::vector<uint8_t>& luma) {
    const auto at = [&](uint32_t x, uint32_t y) { return luma[y * kWidth + x] > 128; };
    std::string corners;
    if (at(80, 60)) corners += "top left ";
    if (at(240, 60)) corners += "top right ";
    if (at(80, 180)) corners += "bottom left ";
    if (at(240, 180)) corners += "bottom right ";
    return corners;
}

TEST_F(GstreamerSourceTest, TurnsAndMirrorsPictures) {
    // Bright at the top left alone, and square, so that a quarter turn keeps its shape.
    constexpr uint32_t kSide = 240;
    std::vector<uint8_t> square(kSide * kSide * 3 / 2, 128);
    for (uint32_t y = 0; y < kSide; ++y) {
        for (uint32_t x = 0; x < kSide; ++x) {
            square[y * kSide + x] = x < kSide / 2 && y < kSide / 2 ? 220 : 40;
        }
    }
    const test::TemporaryFolder files;
    const std::string source = "filesrc location=" + files.write("raw", square) +
                               " ! rawvideoparse format=nv12 width=240 height=240 framerate=30/1";
    const struct {
        Turn turn;
        const char* bright;
    } kCases[] = {
            {{0, false}, "top left "},       {{90, false}, "top right "},
            {{180, false}, "bottom right "}, {{270, false}, "bottom left "},
            {{0, true}, "top right "},       {{90, true}, "top left "},
            {{180, true}, "bottom left "},   {{270, true}, "bottom right "},
    };
    for (const auto& expected : kCases) {
        GstreamerSource turned(source, expected.turn);
        ASSERT_TRUE(turned.start(kNv12));
        Memory memory;
        ASSERT_EQ(Result::DRAWN, drawNext(turned, &memory));
        EXPECT_EQ(expected.bright, brightCorner(memory.bytes))
                << expected.turn.degrees << (expected.turn.mirrored ? " mirrored" : "");
    }
}

TEST_F(GstreamerSourceTest, AsksForItsDescriptionAtEachStart) {
    const test::LogRecorder log;
    std::string description;
    GstreamerSource source(
            [&](std::string* why) {
                *why = "there is none";
                return description;
            },
            {});
    EXPECT_FALSE(source.start(kNv12));
    EXPECT_EQ(testcard::Notice::ABSENT, source.trouble().notice);
    EXPECT_EQ("there is none", source.trouble().text);
    description = "videotestsrc is-live=true pattern=red";
    ASSERT_TRUE(source.start(kNv12));
    Memory memory;
    EXPECT_EQ(Result::DRAWN, drawNext(source, &memory));
}

TEST_F(GstreamerSourceTest, ChecksDescriptionsBeforeTheyAreUsed) {
    EXPECT_EQ("", GstreamerPipeline::check("videotestsrc"));
    EXPECT_EQ("no element \"nosuchsrc\"", GstreamerPipeline::check("nosuchsrc"));
    EXPECT_NE("", GstreamerPipeline::check("videotestsrc !"));
    EXPECT_NE("", GstreamerPipeline::check("videotestsrc nosuchproperty=1"));
}

}  // namespace
}  // namespace korvane::camera
