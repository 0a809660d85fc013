// SPDX-License-Identifier: Apache-2.0
// The renderer on a real buffer queue, reached through the HIDL types as in the service.
#include "desktop-camera/SurfaceRenderer.h"

#include <cstdint>
#include <cstdio>
#include <deque>
#include <fstream>
#include <future>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "desktop-camera/TestCardSource.h"
#include "support/FrameCollector.h"
#include "support/LogRecorder.h"
#include "testcard/FrameLog.h"
#include "testcard/Picture.h"
#include "testcard/StripCode.h"
#include "testcard/StripLayout.h"
#include "testcard/TestCard.h"
#include "testcard/TestCardJpeg.h"

namespace korvane::camera {
namespace {

using End = SurfaceRenderer::End;
using Bytes = std::vector<uint8_t>;
using test::FrameCollector;
using testcard::FrameStamp;

const PictureFormat kNv12{"NV12", 320, 240, 100};
const PictureFormat kMjpg{"MJPG", 320, 240, 100};

/** Answers from a script, then draws; the pictures stay as they are. */
class ScriptedSource : public FrameSource {
  public:
    bool start(const PictureFormat& /*format*/) override { return true; }
    Result draw(const FrameStamp& stamp, const PictureMemory& /*memory*/, size_t* bytes) override {
        numbers.push_back(stamp.number);
        *bytes = 1;
        if (script.empty()) return Result::DRAWN;
        const Result result = script.front();
        script.pop_front();
        return result;
    }
    void stop() override {}

    std::deque<Result> script;
    std::vector<uint32_t> numbers;
};

class SurfaceRendererTest : public testing::Test {
  protected:
    void SetUp() override {
        mDemand.start();
        mDemand.waitForWork(&mStream);
    }

    StreamTicket ticket() const { return {mDemand, mStream}; }

    End render(FrameSource& source, const PictureFormat& format, uint32_t lastFrame = UINT32_MAX) {
        EXPECT_TRUE(source.start(format));
        return SurfaceRenderer(mCollector.producer(), format, source, mJournal)
                .run(ticket(), lastFrame);
    }

    std::future<End> renderBeside(FrameSource& source, const PictureFormat& format) {
        return std::async(std::launch::async,
                          [this, &source, format] { return render(source, format); });
    }

    StreamDemand mDemand;
    uint64_t mStream = 0;
    FrameJournal mJournal;
    FrameCollector mCollector;
    TestCardSource mCard;
};

FrameStamp stampOf(const Bytes& nv12) {
    const auto layout = *testcard::StripLayout::forSize(320, 240);
    const auto reading = testcard::readCard(layout, {nv12.data(), 320, 1});
    EXPECT_TRUE(reading.readable());
    EXPECT_FALSE(reading.torn());
    return reading.top.value_or(FrameStamp{});
}

TEST_F(SurfaceRendererTest, DrawsNumberedPicturesIntoPlanes) {
    EXPECT_EQ(End::LAST_FRAME, render(mCard, kNv12, 20));
    const auto frames = mCollector.frames();
    ASSERT_EQ(20u, frames.size());
    testcard::TestCard card(*testcard::StripLayout::forSize(320, 240));
    for (uint32_t i = 0; i < frames.size(); ++i) {
        const FrameStamp stamp = stampOf(frames[i].bytes);
        EXPECT_EQ(i + 1, stamp.number);
        EXPECT_EQ(card.nv12(stamp), frames[i].bytes);
    }
}

TEST_F(SurfaceRendererTest, DrawsJpegFilesWithAFooterAfterThem) {
    EXPECT_EQ(End::LAST_FRAME, render(mCard, kMjpg, 20));
    const auto frames = mCollector.frames();
    ASSERT_EQ(20u, frames.size());
    const auto card = testcard::TestCardJpeg::create(*testcard::StripLayout::forSize(320, 240));
    const auto layout = *testcard::StripLayout::forSize(320, 240);
    for (uint32_t i = 0; i < frames.size(); ++i) {
        testcard::Picture picture;
        std::string error;
        ASSERT_TRUE(testcard::decodeJpeg(frames[i].bytes.data(), frames[i].bytes.size(), &picture,
                                         &error));
        const auto stamp = testcard::readCard(layout, picture.luma()).top;
        ASSERT_TRUE(stamp);
        EXPECT_EQ(i + 1, stamp->number);
        EXPECT_EQ(card->file(*stamp), frames[i].bytes);
    }
}

TEST_F(SurfaceRendererTest, StampsFramesWithBeatsOfTheRate) {
    EXPECT_EQ(End::LAST_FRAME, render(mCard, kNv12, 20));
    const auto frames = mCollector.frames();
    ASSERT_EQ(20u, frames.size());
    for (size_t i = 1; i < frames.size(); ++i) {
        const int64_t step = frames[i].timestampNs - frames[i - 1].timestampNs;
        EXPECT_GE(step, 10'000'000 - 1);
        EXPECT_LE(step % 10'000'000, 1) << "not a whole number of intervals";
        // Drawn at or after its beat, on the same clock.
        EXPECT_GE(stampOf(frames[i].bytes).timeUs, uint64_t(frames[i].timestampNs / 1000));
    }
}

TEST_F(SurfaceRendererTest, StopsAtOnceBetweenTwoBeats) {
    PictureFormat slow = kNv12;
    slow.fps = 1.0 / 60;
    auto end = renderBeside(mCard, slow);
    ASSERT_TRUE(mCollector.waitForFrames(1));
    const int64_t before = monotonicNs();
    mDemand.stop();
    EXPECT_EQ(End::STOPPED, end.get());
    EXPECT_LT(monotonicNs() - before, 10'000'000'000);
}

TEST_F(SurfaceRendererTest, StopsWhileEveryBufferIsTaken) {
    mCollector.hold();
    auto end = renderBeside(mCard, kNv12);
    ASSERT_TRUE(mCollector.waitForQueued(6));
    mDemand.stop();
    EXPECT_EQ(End::STOPPED, end.get());
}

TEST_F(SurfaceRendererTest, SkipsNoNumberWhenTheHostIsSlow) {
    mCollector.hold();
    auto end = renderBeside(mCard, kNv12);
    // Four that the far end may hold and two of the camera's: there are no more buffers.
    ASSERT_TRUE(mCollector.waitForQueued(6));
    const uint64_t heldUntil = static_cast<uint64_t>(monotonicNs()) / 1000 + 50'000;
    StreamTicket(mDemand, mStream).sleepUntil(static_cast<int64_t>(heldUntil) * 1000);
    mCollector.letGo();
    ASSERT_TRUE(mCollector.waitForFrames(12));
    mDemand.stop();
    EXPECT_EQ(End::STOPPED, end.get());
    const auto frames = mCollector.frames();
    for (uint32_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(i + 1, stampOf(frames[i].bytes).number);
        if (i > 0) {
            EXPECT_LT(frames[i - 1].timestampNs, frames[i].timestampNs);
        }
    }
    EXPECT_GE(stampOf(frames[6].bytes).timeUs, heldUntil) << "drawn before there was a buffer";
}

TEST_F(SurfaceRendererTest, EndsWhenTheSurfaceVanishes) {
    auto end = renderBeside(mCard, kMjpg);
    ASSERT_TRUE(mCollector.waitForFrames(3));
    mCollector.abandon();
    EXPECT_EQ(End::SURFACE_GONE, end.get());
}

TEST_F(SurfaceRendererTest, EndsWhenTheSurfaceVanishesWhileItWaitsForABuffer) {
    mCollector.hold();
    auto end = renderBeside(mCard, kNv12);
    ASSERT_TRUE(mCollector.waitForQueued(6));
    mCollector.abandon();
    EXPECT_EQ(End::SURFACE_GONE, end.get());
}

TEST_F(SurfaceRendererTest, EndsWhenTheSurfaceWasGoneBeforeItBegan) {
    mCollector.abandon();
    EXPECT_EQ(End::SURFACE_GONE, render(mCard, kNv12));
}

TEST_F(SurfaceRendererTest, SaysWhyItCannotUseASurfaceThatAnotherUses) {
    const test::LogRecorder log;
    android::IGraphicBufferProducer::QueueBufferOutput output;
    ASSERT_EQ(android::OK, mCollector.producer()->connect(nullptr, 4, true, &output));
    EXPECT_EQ(End::FAILED, render(mCard, kNv12));
    EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, "desktop-camera", "cannot connect to the surface: -22"));
    EXPECT_FALSE(mCollector.disconnected()) << "took the surface away from the other";
}

TEST_F(SurfaceRendererTest, DisconnectsAtTheEnd) {
    EXPECT_EQ(End::LAST_FRAME, render(mCard, kNv12, 1));
    EXPECT_TRUE(mCollector.disconnected());
}

TEST_F(SurfaceRendererTest, GoesOnNumberingInTheNextStream) {
    EXPECT_EQ(End::LAST_FRAME, render(mCard, kMjpg, 3));
    EXPECT_EQ(End::LAST_FRAME, render(mCard, kNv12, 5));
    const auto frames = mCollector.frames();
    ASSERT_EQ(5u, frames.size());
    EXPECT_EQ(4u, stampOf(frames[3].bytes).number);
}

TEST_F(SurfaceRendererTest, GivesANumberOnlyToFramesThatWereDrawn) {
    ScriptedSource source;
    source.script = {FrameSource::Result::NOT_YET, FrameSource::Result::NOT_YET};
    EXPECT_EQ(End::LAST_FRAME, render(source, kNv12, 2));
    EXPECT_EQ((std::vector<uint32_t>{1, 1, 1, 2}), source.numbers);
    EXPECT_EQ(2u, mCollector.frames().size());
}

TEST_F(SurfaceRendererTest, EndsWhenTheSourceFails) {
    ScriptedSource source;
    source.script = {FrameSource::Result::DRAWN, FrameSource::Result::FAILED};
    EXPECT_EQ(End::FAILED, render(source, kNv12));
    EXPECT_EQ(1u, mCollector.frames().size());
    EXPECT_TRUE(mCollector.disconnected());
}

TEST_F(SurfaceRendererTest, NotesEveryFrameInTheJournal) {
    const std::string path = "/tmp/renderer-journal-" + std::to_string(getpid());
    std::string error;
    ASSERT_TRUE(mJournal.open(path, &error)) << error;
    render(mCard, kMjpg, 3);
    render(mCard, kNv12, 6);
    testcard::FrameLog log;
    std::ifstream in(path);
    EXPECT_TRUE(log.read(in, &error)) << error;
    unlink(path.c_str());
    const auto frames = mCollector.frames();
    ASSERT_EQ(6u, frames.size());
    ASSERT_EQ(6u, log.frames().size());
    for (uint32_t i = 0; i < 6; ++i) {
        const testcard::FrameRecord* record = log.find(i + 1);
        ASSERT_NE(nullptr, record);
        EXPECT_EQ(i < 3 ? "MJPG" : "NV12", record->format);
        EXPECT_EQ(frames[i].bytes.size(), record->bytes);
        EXPECT_EQ(testcard::crc32Of(frames[i].bytes.data(), record->bytes), record->crc32);
        if (i >= 3) {
            EXPECT_EQ(stampOf(frames[i].bytes), record->stamp);
        }
    }
}

TEST(FrameJournalTest, SaysWhyItCannotBeOpened) {
    FrameJournal journal;
    std::string error;
    EXPECT_FALSE(journal.open("/nowhere/log", &error));
    EXPECT_EQ("/nowhere/log: No such file or directory", error);
}

TEST(FrameJournalTest, SaysOnceWhyItEndsAndGoesOnCounting) {
    const test::LogRecorder log;
    FrameJournal journal;
    std::string error;
    ASSERT_TRUE(journal.open("/dev/full", &error)) << error;
    for (int i = 0; i < 3; ++i) journal.queued({{1, 1}, "NV12", 320, 240, 1, 1});
    EXPECT_FALSE(journal.isOpen());
    EXPECT_EQ(4u, journal.nextNumber());
    EXPECT_EQ((std::vector<test::LogLine>{
                      {ANDROID_LOG_ERROR, "desktop-camera",
                       "the log of the frames ends here: No space left on device"}}),
              log.lines());
}

TEST(TestCardSourceTest, SaysThatASizeIsTooSmall) {
    const test::LogRecorder log;
    TestCardSource source;
    EXPECT_FALSE(source.start({"NV12", 64, 64, 30}));
    EXPECT_TRUE(
            log.has(ANDROID_LOG_ERROR, "desktop-camera", "the test card cannot be drawn in 64x64"));
}

}  // namespace
}  // namespace korvane::camera
