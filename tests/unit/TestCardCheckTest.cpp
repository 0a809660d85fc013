// SPDX-License-Identifier: Apache-2.0
// Each way in which a capture can differ from what the camera drew, by class and by program.
#include "testcard/TestCard.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>
#include <libyuv.h>

#include "support/Program.h"
#include "testcard/FrameChecker.h"
#include "testcard/HostTimes.h"
#include "testcard/TestCardJpeg.h"

namespace korvane::testcard {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr uint32_t kWidth = 320;
constexpr uint32_t kHeight = 240;

using Bytes = std::vector<uint8_t>;

// The way of a frame into a YUYV stream: the daemon's two conversions, by the library that it uses.
Bytes convertToYuyv(const Bytes& nv12) {
    const int width = kWidth;
    const int height = kHeight;
    Bytes u(width * height / 4), v(width * height / 4), y(width * height), yuyv(2 * width * height);
    const uint8_t* chroma = &nv12[width * height];
    libyuv::Android420ToI420(nv12.data(), width, chroma, width, chroma + 1, width, 2, y.data(),
                             width, u.data(), width / 2, v.data(), width / 2, width, height);
    libyuv::I420ToYUY2(y.data(), width, u.data(), width / 2, v.data(), width / 2, yuyv.data(),
                       2 * width, width, height);
    return yuyv;
}

/** A camera that drew frames 1 to 10 and noted them, and a host that has them all. */
class Session {
  public:
    explicit Session(PixelFormat format) : mFormat(format) {
        for (uint32_t number = 1; number <= 10; ++number) add({number, 1000000u + number * 33333u});
    }

    void add(const FrameStamp& stamp) {
        const Bytes drawn = mFormat == PixelFormat::MJPG ? mJpeg->file(stamp) : mCard.nv12(stamp);
        received.push_back(mFormat == PixelFormat::YUYV ? convertToYuyv(drawn) : drawn);
        log += FrameRecord{stamp,   drawnFormatOf(mFormat), kWidth,
                           kHeight, drawn.size(),           crc32Of(drawn.data(), drawn.size())}
                       .toLine() +
               "\n";
    }

    CheckCounts check() const {
        FrameLog read;
        std::istringstream in(log);
        std::string error;
        EXPECT_TRUE(read.read(in, &error)) << error;
        FrameChecker checker(mLayout, mFormat, read);
        for (const Bytes& frame : received) checker.check({frame.data(), frame.size()});
        return checker.counts();
    }

    Bytes capture() const {
        Bytes file;
        for (const Bytes& frame : received) file.insert(file.end(), frame.begin(), frame.end());
        return file;
    }

    std::vector<Bytes> received;
    std::string log = std::string(FrameLog::kHeader) + "\n";

  private:
    const StripLayout mLayout = *StripLayout::forSize(kWidth, kHeight);
    const PixelFormat mFormat;
    TestCard mCard{mLayout};
    std::unique_ptr<TestCardJpeg> mJpeg = TestCardJpeg::create(mLayout);
};

std::vector<size_t> numbersOf(const CheckCounts& counts) {
    return {counts.lost,       counts.repeated, counts.outOfOrder, counts.torn,
            counts.unreadable, counts.unknown,  counts.wrongPixels};
}

/** The counts that are not zero, by name. */
std::string wrongs(const CheckCounts& counts) {
    static constexpr const char* kNames[] = {"lost",       "repeated", "outOfOrder", "torn",
                                             "unreadable", "unknown",  "wrongPixels"};
    std::string text;
    const std::vector<size_t> numbers = numbersOf(counts);
    for (size_t i = 0; i < numbers.size(); ++i) {
        if (numbers[i] != 0)
            text += std::string(kNames[i]) + " " + std::to_string(numbers[i]) + " ";
    }
    return text;
}

class FrameCheckerTest : public testing::TestWithParam<PixelFormat> {
  protected:
    Session mSession{GetParam()};

    std::string wrong() const { return wrongs(mSession.check()); }
};

/** For what can be done to samples, which a JPEG file does not have. */
class RawFrameCheckerTest : public FrameCheckerTest {};

std::string formatOf(const testing::TestParamInfo<PixelFormat>& info) {
    return nameOf(info.param);
}

INSTANTIATE_TEST_SUITE_P(All, FrameCheckerTest,
                         testing::Values(PixelFormat::MJPG, PixelFormat::YUYV, PixelFormat::NV12),
                         formatOf);
INSTANTIATE_TEST_SUITE_P(All, RawFrameCheckerTest,
                         testing::Values(PixelFormat::YUYV, PixelFormat::NV12), formatOf);

TEST_P(FrameCheckerTest, FindsNothingWrongWithWhatWasDrawn) {
    const CheckCounts counts = mSession.check();
    EXPECT_EQ("", wrongs(counts));
    EXPECT_TRUE(counts.sound());
    EXPECT_EQ(10u, counts.drawn);
    EXPECT_EQ(10u, counts.received);
}

TEST_P(FrameCheckerTest, CountsFramesLostInTheMiddleButNotAtTheEnds) {
    mSession.received.erase(mSession.received.begin() + 4, mSession.received.begin() + 7);
    mSession.received.erase(mSession.received.begin());
    mSession.received.pop_back();
    EXPECT_EQ("lost 3 ", wrong());
}

TEST_P(FrameCheckerTest, CountsAFrameReceivedTwice) {
    mSession.received.insert(mSession.received.begin() + 5, mSession.received[4]);
    EXPECT_EQ("repeated 1 ", wrong());
}

TEST_P(FrameCheckerTest, CountsAFrameReceivedTooLate) {
    std::swap(mSession.received[4], mSession.received[5]);
    EXPECT_EQ("outOfOrder 1 ", wrong());
}

TEST_P(RawFrameCheckerTest, CountsATornFrame) {
    Bytes& frame = mSession.received[4];
    const size_t half = kWidth * kHeight / 2 * (GetParam() == PixelFormat::YUYV ? 2 : 1);
    std::copy(mSession.received[5].begin() + half, mSession.received[5].end(),
              frame.begin() + half);
    EXPECT_EQ("torn 1 ", wrong());
}

TEST_P(RawFrameCheckerTest, CountsAFrameWithOneSampleChanged) {
    // One in the luma between the strips, one in the last chroma.
    mSession.received[4][mSession.received[4].size() / 3] ^= 1;
    mSession.received[7].back() ^= 1;
    EXPECT_EQ("wrongPixels 2 ", wrong());
}

TEST_P(FrameCheckerTest, CountsAFrameOfTheWrongLength) {
    mSession.received[4].pop_back();
    EXPECT_EQ("lost 1 unreadable 1 ", wrong());
}

TEST_P(FrameCheckerTest, CountsFramesThatTheLogDoesNotKnow) {
    mSession.log = std::string(FrameLog::kHeader) + "\n";
    EXPECT_EQ("unknown 10 ", wrong());
}

TEST_P(FrameCheckerTest, CountsFramesOfAnotherTimeThanLogged) {
    const size_t time = mSession.log.find("time_us=1033333");
    mSession.log.replace(time, 15, "time_us=1033334");
    EXPECT_EQ("unknown 1 ", wrong());
}

TEST_P(FrameCheckerTest, TakesFramesOfAnotherStreamForNeitherDrawnNorLost) {
    mSession.log += FrameRecord{{11, 5}, drawnFormatOf(GetParam()), 640, 480, 1, 1}.toLine() + "\n";
    mSession.add({12, 2000000});
    const CheckCounts counts = mSession.check();
    EXPECT_EQ(11u, counts.drawn);
    EXPECT_EQ("", wrongs(counts));
}

TEST(FrameCheckerJpegTest, CountsAFileThatIsNotByteForByteTheCameras) {
    Session session(PixelFormat::MJPG);
    // A comment changes no pixel.
    const Bytes comment{0xFF, 0xFE, 0x00, 0x03, 'x'};
    session.received[4].insert(session.received[4].begin() + 2, comment.begin(), comment.end());
    EXPECT_EQ("wrongPixels 1 ", wrongs(session.check()));
}

TEST(FrameCheckerJpegTest, CountsATornFile) {
    Session session(PixelFormat::MJPG);
    JpegRows top, bottom;
    ASSERT_TRUE(top.split(session.received[4].data(), session.received[4].size()));
    ASSERT_TRUE(bottom.split(session.received[5].data(), session.received[5].size()));
    Bytes torn = top.header;
    for (size_t row = 0; row < top.rows.size(); ++row) {
        const Bytes& data = row < 7 ? top.rows[row] : bottom.rows[row];
        torn.insert(torn.end(), data.begin(), data.end());
        torn.push_back(0xFF);
        torn.push_back(row + 1 == top.rows.size() ? 0xD9 : 0xD0 + row % 8);
    }
    session.received[4] = torn;
    EXPECT_EQ("torn 1 ", wrongs(session.check()));
}

TEST(FrameLogTest, ReadsBackItsOwnLines) {
    const FrameRecord record{{UINT32_MAX, UINT64_MAX}, "MJPG", 1920, 1080, 123456, 0xdeadbeef};
    FrameRecord read;
    ASSERT_TRUE(read.fromLine(record.toLine()));
    EXPECT_EQ(record.stamp, read.stamp);
    EXPECT_EQ("MJPG", read.format);
    EXPECT_EQ(1920u, read.width);
    EXPECT_EQ(1080u, read.height);
    EXPECT_EQ(123456u, read.bytes);
    EXPECT_EQ(0xdeadbeefu, read.crc32);
}

TEST(FrameLogTest, RefusesWhatIsNotALogAndSaysWhere) {
    const std::string header = std::string(FrameLog::kHeader) + "\n";
    const std::string frame = FrameRecord{{5, 1}, "NV12", 320, 240, 1, 1}.toLine() + "\n";
    const struct {
        std::string text, error;
    } kCases[] = {
            {"", "it does not begin with"},
            {"frame=1\n", "it does not begin with"},
            {header + frame + "hello\n", "line 3 is not a frame: \"hello\""},
            {header + frame + frame, "line 3: the frame's number does not rise"},
    };
    for (const auto& wrong : kCases) {
        FrameLog log;
        std::istringstream in(wrong.text);
        std::string error;
        EXPECT_FALSE(log.read(in, &error)) << wrong.text;
        EXPECT_THAT(error, StartsWith(wrong.error));
    }
}

TEST(FrameLogTest, LeavesOutALastLineThatWasNotFinished) {
    const std::string frame = FrameRecord{{5, 1}, "NV12", 320, 240, 1, 1}.toLine() + "\n";
    std::istringstream in(std::string(FrameLog::kHeader) + "\n" + frame + "frame=6 time_");
    FrameLog log;
    std::string error;
    EXPECT_TRUE(log.read(in, &error)) << error;
    EXPECT_EQ(1u, log.frames().size());
}

TEST(HostTimesTest, ReadsWhatV4l2CtlSaysOfItsBuffers) {
    std::istringstream in(
            "\t\tVIDIOC_STREAMON returned 0 (Success)\n"
            "cap dqbuf: 0 seq:      0 bytesused: 115200 ts: 4.035525 (ts-monotonic, ts-src-eof)\n"
            "cap dqbuf: 1 seq:      1 bytesused: 115200 ts: 4.232383 delta: 196.858 ms\n"
            "cap dqbuf: 2 seq:      4 bytesused: 115200 ts: 4.500000 delta: 267.617 ms dropped: 2\n"
            "cap dqbuf: 3 seq:      5 bytesused: 115200\n"
            "5000000\n");
    const HostTimes times = HostTimes::read(in);
    EXPECT_EQ((std::vector<uint64_t>{4035525, 4232383, 4500000, 5000000}), times.received);
    EXPECT_EQ(2u, times.dropped);
}

TEST(HostTimesTest, PutsFramesInTheOrderOfTheDriver) {
    std::istringstream in("1000 7\n2000 9\n3000 8\n4000 10\n5000 0\n6000 2\n7000 3\n8000 1\n");
    const HostTimes times = HostTimes::read(in);
    EXPECT_EQ((std::vector<size_t>{0, 2, 1, 3, 4, 7, 5, 6}), times.order);
    EXPECT_EQ(2u, times.swapped);
    EXPECT_EQ(0u, times.dropped);
    EXPECT_EQ((std::vector<uint64_t>{1000, 2000, 3000, 4000, 5000, 6000, 7000, 8000}),
              times.received);
}

TEST(HostTimesTest, AFrameThatNeverComesIsDropped) {
    std::istringstream in("1000 0\n2000 3\n3000 2\n4000 5\n");
    EXPECT_EQ(2u, HostTimes::read(in).dropped);
}

TEST(HostTimesTest, WithoutNumbersFramesStayAsTheyCame) {
    std::istringstream in("1000\n500\n1000 2 3\n1000 x\n2000\n");
    const HostTimes times = HostTimes::read(in);
    EXPECT_EQ((std::vector<size_t>{0, 1, 2}), times.order);
    EXPECT_EQ(0u, times.swapped);
}

TEST(HostTimesTest, GivesTheFiguresOverAllMeasurements) {
    std::vector<int64_t> measured;
    for (int64_t i = 100; i >= 1; --i) measured.push_back(i);
    const auto latency = latencyOf(measured);
    ASSERT_TRUE(latency);
    EXPECT_EQ(1, latency->min);
    EXPECT_EQ(50, latency->median);
    EXPECT_EQ(95, latency->p95);
    EXPECT_EQ(100, latency->max);
    EXPECT_FALSE(latencyOf({}));
    EXPECT_DOUBLE_EQ(20, rateOf({1000000, 1050000, 1100000}));
    EXPECT_EQ(0, rateOf({1000000}));
}

/** The program over files in a folder of the test's own. */
class TestCardCheckProgram : public testing::Test {
  protected:
    void SetUp() override {
        char path[] = "/tmp/testcard-check-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(path));
        mFolder = path;
    }

    void TearDown() override {
        for (const char* name : {"capture", "log", "times", "sheet.png"}) {
            unlink(file(name).c_str());
        }
        EXPECT_EQ(0, rmdir(mFolder.c_str()));
    }

    std::string file(const std::string& name) const { return mFolder + "/" + name; }

    void write(const std::string& name, const Bytes& bytes) const {
        std::ofstream(file(name), std::ios::binary)
                .write(reinterpret_cast<const char*>(bytes.data()),
                       static_cast<std::streamsize>(bytes.size()));
    }

    void write(const std::string& name, const std::string& text) const {
        write(name, Bytes(text.begin(), text.end()));
    }

    test::ProgramResult check(const Session& session, PixelFormat format,
                              std::vector<std::string> more = {}) const {
        write("capture", session.capture());
        write("log", session.log);
        return run(nameOf(format), std::move(more));
    }

    test::ProgramResult run(const std::string& format, std::vector<std::string> more = {}) const {
        more.insert(more.end(),
                    {"--format", format, "--size=320x240", "--log", file("log"), file("capture")});
        return test::runProgram("testcard-check", more);
    }

    std::string mFolder;
};

TEST_F(TestCardCheckProgram, PrintsTheCountsAsJson) {
    for (PixelFormat format : {PixelFormat::MJPG, PixelFormat::YUYV, PixelFormat::NV12}) {
        const auto result = check(Session(format), format);
        EXPECT_EQ(0, result.status);
        EXPECT_EQ("", result.err);
        EXPECT_EQ("{\"result\":\"ok\",\"format\":\"" + std::string(nameOf(format)) +
                          "\",\"width\":320,\"height\":240,\"drawn\":10,\"received\":10,\"lost\":0,"
                          "\"repeated\":0,\"out_of_order\":0,\"torn\":0,\"unreadable\":0,"
                          "\"unknown\":0,\"wrong_pixels\":0}\n",
                  result.out);
    }
}

TEST_F(TestCardCheckProgram, FailsAndNamesTheFrameWhenOneIsLost) {
    Session session(PixelFormat::MJPG);
    session.received.erase(session.received.begin() + 4);
    const auto result = check(session, PixelFormat::MJPG);
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("lost: frame 5\n", result.err);
    EXPECT_THAT(result.out, HasSubstr("\"result\":\"wrong\""));
    EXPECT_THAT(result.out, HasSubstr("\"lost\":1,"));
    EXPECT_EQ(0, check(session, PixelFormat::MJPG, {"--max-lost", "1"}).status);
}

TEST_F(TestCardCheckProgram, FailsWhenAFrameIsAltered) {
    Session session(PixelFormat::NV12);
    session.received[4][kWidth * kHeight / 2] ^= 1;
    const auto result = check(session, PixelFormat::NV12, {"--max-lost", "100"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("received 4: frame 5 of 1166665 us: not what the camera drew\n", result.err);
}

TEST_F(TestCardCheckProgram, GoesOnAfterADamagedJpegFile) {
    Session session(PixelFormat::MJPG);
    session.received[4].resize(session.received[4].size() / 2);
    const auto result = check(session, PixelFormat::MJPG);
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.out, HasSubstr("\"received\":10,\"lost\":1,"));
    EXPECT_THAT(result.out, HasSubstr("\"unreadable\":1,"));
}

TEST_F(TestCardCheckProgram, ReadsFramesAfterHeadersWithTheirSizes) {
    Session session(PixelFormat::MJPG);
    Bytes capture;
    for (const Bytes& frame : session.received) {
        const auto size = static_cast<uint32_t>(frame.size());
        for (uint8_t byte : {'r', 'd', 'h', 'V'}) capture.push_back(byte);
        for (int shift = 24; shift >= 0; shift -= 8) capture.push_back(uint8_t(size >> shift));
        capture.insert(capture.end(), frame.begin(), frame.end());
    }
    write("log", session.log);
    write("capture", capture);
    EXPECT_EQ(0, run("MJPG").status);
    capture.pop_back();
    write("capture", capture);
    const auto result = run("MJPG");
    EXPECT_EQ(2, result.status);
    EXPECT_THAT(result.err, HasSubstr("it is cut short after 9 whole frames"));
}

TEST_F(TestCardCheckProgram, GivesLatencyAndRateWhenTheTimesAreKnown) {
    Session session(PixelFormat::NV12);
    std::string times;
    for (uint32_t i = 1; i <= 10; ++i) times += std::to_string(1000000 + i * 33333 + 10 * i) + "\n";
    write("times", times);
    const auto result = check(session, PixelFormat::NV12, {"--times", file("times")});
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_THAT(result.out, HasSubstr("\"latency_us\":{\"min\":10,\"median\":50,\"p95\":90,"
                                      "\"max\":100},\"rate_fps\":29.99,\"host_dropped\":0,"
                                      "\"host_swapped\":0}"));
}

TEST_F(TestCardCheckProgram, TakesFramesThatTheHostsDriverSwappedInItsOrder) {
    Session session(PixelFormat::NV12);
    std::swap(session.received[4], session.received[5]);
    std::string times;
    std::string numbered;
    for (const int i : {0, 1, 2, 3, 5, 4, 6, 7, 8, 9}) {
        times += "2000000\n";
        numbered += "2000000 " + std::to_string(i) + "\n";
    }
    write("times", numbered);
    const auto result = check(session, PixelFormat::NV12, {"--times", file("times")});
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_THAT(result.out, HasSubstr("\"host_dropped\":0,\"host_swapped\":1}"));
    write("times", times);
    EXPECT_EQ(1, check(session, PixelFormat::NV12, {"--times", file("times")}).status);
}

TEST_F(TestCardCheckProgram, WritesAContactSheetOfTheFrames) {
    const auto result = check(Session(PixelFormat::MJPG), PixelFormat::MJPG,
                              {"--contact-sheet", file("sheet.png")});
    EXPECT_EQ(0, result.status) << result.err;
    std::ifstream sheet(file("sheet.png"), std::ios::binary);
    char start[24] = "";
    ASSERT_TRUE(sheet.read(start, sizeof start));
    EXPECT_EQ(std::string("\x89PNG\r\n"), std::string(start, 6));
    // Four columns and three rows of 320x240 with a gap of four pixels each.
    const auto* size = reinterpret_cast<const unsigned char*>(start + 16);
    EXPECT_EQ(4 * 324, size[2] * 256 + size[3]);
    EXPECT_EQ(3 * 244, size[6] * 256 + size[7]);
}

TEST_F(TestCardCheckProgram, SaysWhatIsWrongWithItsFiles) {
    Session session(PixelFormat::NV12);
    Bytes cut = session.capture();
    cut.resize(cut.size() - 100);
    const std::string log = session.log;
    const struct {
        Bytes capture;
        std::string log, format, error;
    } kCases[] = {
            {cut, log, "NV12",
             "/capture: it is cut short: 115100 bytes are left after 9 whole frames of 115200 "
             "bytes"},
            {{}, log, "NV12", "/capture: it is empty"},
            {cut, log, "MJPG", "/capture: there is no start of a JPEG file after 0 whole frames"},
            {session.capture(), "hello\n", "NV12", "/log: not a camera's log: it does not begin"},
    };
    for (const auto& wrong : kCases) {
        write("capture", wrong.capture);
        write("log", wrong.log);
        const auto result = run(wrong.format);
        EXPECT_EQ(2, result.status);
        EXPECT_EQ("", result.out);
        EXPECT_THAT(result.err, HasSubstr(wrong.error));
    }
    unlink(file("capture").c_str());
    write("log", log);
    EXPECT_THAT(run("NV12").err, HasSubstr("/capture: No such file or directory"));
    unlink(file("log").c_str());
    EXPECT_THAT(run("NV12").err, HasSubstr("/log: cannot be opened"));
}

TEST_F(TestCardCheckProgram, PrintsWhatTheCodesSayWithoutALog) {
    TestCard card(*StripLayout::forSize(320, 240));
    Bytes capture;
    const auto add = [&](const Bytes& frame) {
        capture.insert(capture.end(), frame.begin(), frame.end());
    };
    add(card.nv12({7, 1}));
    for (uint8_t notice = 1; notice <= 7; ++notice) {
        add(card.nv12({7U + notice, 1, static_cast<Notice>(notice)}));
    }
    add(Bytes(320 * 240 * 3 / 2, 128));
    Bytes torn = card.nv12({20, 1});
    const Bytes other = card.nv12({21, 1});
    std::copy(other.begin(), other.begin() + 320 * 120, torn.begin());
    add(torn);
    write("capture", capture);
    const auto result = test::runProgram(
            "testcard-check", {"--codes", "--format=NV12", "--size=320x240", file("capture")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(
            "7 none\n8 starting\n9 absent\n10 failed\n11 ended\n12 silent\n13 covered\n"
            "14 unknown\nno code\nno code\n",
            result.out);
}

TEST_F(TestCardCheckProgram, RefusesTimesThatDoNotFitTheFrames) {
    write("times", std::string("1\n2\n"));
    const auto result =
            check(Session(PixelFormat::NV12), PixelFormat::NV12, {"--times", file("times")});
    EXPECT_EQ(2, result.status);
    EXPECT_THAT(result.err, HasSubstr("2 receive times for 10 frames"));
}

TEST_F(TestCardCheckProgram, SaysInOneLineWhatIsWrongWithItsArguments) {
    const struct {
        std::vector<std::string> arguments;
        std::string error;
    } kCases[] = {
            {{}, "testcard-check: CAPTURE is missing"},
            {{"x"}, "testcard-check: --format is missing: MJPG, YUYV or NV12"},
            {{"--format=NV12", "x"}, "testcard-check: --size is missing"},
            {{"--format=NV12", "--size=320x240", "x"}, "testcard-check: --log is missing"},
            {{"--format=H264"}, "testcard-check: --format is 'H264', but MJPG, YUYV or NV12"},
            {{"--size", "64x64"}, "testcard-check: --size is '64x64', but a size in which"},
            {{"--max-lost", "-1"}, "testcard-check: --max-lost is '-1', but a number of frames"},
            {{"--quick"}, "testcard-check: unknown option '--quick'; accepted: --format, --size"},
    };
    for (const auto& wrong : kCases) {
        const auto result = test::runProgram("testcard-check", wrong.arguments);
        EXPECT_EQ(2, result.status);
        EXPECT_EQ("", result.out);
        EXPECT_THAT(result.err, StartsWith(wrong.error));
        EXPECT_EQ(result.err.size() - 1, result.err.find('\n')) << result.err;
    }
    EXPECT_EQ(0, test::runProgram("testcard-check", {"--help"}).status);
}

}  // namespace
}  // namespace korvane::testcard
