// SPDX-License-Identifier: Apache-2.0
#include "desktop-camera/SteadySource.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "desktop-camera/StreamDemand.h"
#include "support/LogRecorder.h"
#include "testcard/StripCode.h"
#include "testcard/StripLayout.h"

namespace korvane::camera {
namespace {

using Result = FrameSource::Result;
using testcard::Notice;

const PictureFormat kNv12{"NV12", 320, 240, 30};
constexpr uint8_t kOwnPicture = 3;  // what the source's pictures are filled with
constexpr int64_t kMs = 1'000'000;

/** A source that does as it is told. */
class ToldSource : public FrameSource {
  public:
    bool starts = true;
    Result result = Result::kDrawn;
    Trouble why{Notice::kFailed, "it broke"};
    int begun = 0;
    bool open = false;
    PictureFormat format;

    bool start(const PictureFormat& given) override {
        EXPECT_FALSE(open) << "begun twice";
        format = given;
        ++begun;
        return open = starts;
    }
    Result draw(const testcard::FrameStamp&, const PictureMemory& memory, size_t* bytes) override {
        EXPECT_TRUE(open) << "asked for a picture without a start";
        if (result == Result::kDrawn) memory.planes.y[0] = kOwnPicture;
        *bytes = 1;
        return result;
    }
    void stop() override { open = false; }
    Trouble trouble() const override { return why; }
    std::string handling() const override { return "copied"; }
};

class SteadySourceTest : public testing::Test {
  protected:
    /** What the host is shown: a notice, kNone for the source's own picture, nothing for none. */
    std::optional<Notice> draw() {
        std::vector<uint8_t> memory(320 * 240 * 3 / 2);
        PictureMemory picture;
        picture.planes = testcard::Planes::nv12(memory.data(), 320, 240);
        size_t bytes = 0;
        const Result result = mSteady.draw({1, 2}, picture, &bytes);
        EXPECT_NE(Result::kFailed, result);
        if (result != Result::kDrawn) return std::nullopt;
        if (memory[0] == kOwnPicture) return Notice::kNone;
        EXPECT_EQ(memory.size(), bytes);
        const auto reading = testcard::readCard(*testcard::StripLayout::forSize(320, 240),
                                                {memory.data(), 320, 1});
        EXPECT_TRUE(reading.readable());
        return reading.top ? std::optional(reading.top->notice) : std::nullopt;
    }

    /** Draws until the host is shown this; false after ten seconds. */
    bool drawUntil(std::optional<Notice> notice) {
        const int64_t end = monotonicNs() + 10'000 * kMs;
        while (monotonicNs() < end) {
            if (draw() == notice) return true;
        }
        return false;
    }

    const test::LogRecorder mLog;
    ToldSource mSource;
    bool mCovered = false;
    SteadySource::Times mTimes{50 * kMs, 30 * kMs, 100 * kMs, 60 * kMs};
    CameraStatus mStatus;
    SteadySource mSteady{mSource, [this] { return mCovered; }, mTimes, mStatus};
};

TEST(SteadySourceTimesTest, TriesAgainEveryTwoSeconds) {
    EXPECT_EQ(2'000'000'000, SteadySource::Times().retry);
}

TEST_F(SteadySourceTest, GivesTheSourcesPicturesAsTheyAre) {
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(kNv12, mSource.format);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(Notice::kNone, draw());
    EXPECT_EQ(1, mSource.begun);
    mSteady.stop();
    EXPECT_FALSE(mSource.open);
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(SteadySourceTest, ShowsACardWhileTheSourceIsNotThereAndItsPictureWhenItComes) {
    mSource.starts = false;
    mSource.why = {Notice::kAbsent, "no such device"};
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(Notice::kAbsent, draw());
    mSource.starts = true;
    EXPECT_TRUE(drawUntil(Notice::kNone));
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, "desktop-camera", "the source gives pictures again"));
}

TEST_F(SteadySourceTest, ShowsACardWhenTheSourceFailsInTheMiddle) {
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(Notice::kNone, draw());
    mSource.result = Result::kFailed;
    EXPECT_EQ(Notice::kFailed, draw());
    EXPECT_FALSE(mSource.open);
    mSource.result = Result::kDrawn;
    EXPECT_TRUE(drawUntil(Notice::kNone));
    EXPECT_EQ(2, mSource.begun);
}

TEST_F(SteadySourceTest, TriesTheSourceAgainAfterTheTimeAndNotBefore) {
    mSource.starts = false;
    const int64_t begin = monotonicNs();
    ASSERT_TRUE(mSteady.start(kNv12));
    while (mSource.begun < 4) EXPECT_EQ(Notice::kFailed, draw());
    EXPECT_GE(monotonicNs() - begin, 3 * mTimes.retry);
    EXPECT_EQ(1u, mLog.lines().size()) << "the same trouble is logged once";
}

TEST_F(SteadySourceTest, WaitsForTheFirstPictureBeforeItShowsACard) {
    mSource.result = Result::kNotYet;
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(std::nullopt, draw());
    EXPECT_TRUE(drawUntil(Notice::kStarting));
    EXPECT_TRUE(mSource.open);
    mSource.result = Result::kDrawn;
    EXPECT_EQ(Notice::kNone, draw());
    EXPECT_EQ(1, mSource.begun);
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(SteadySourceTest, BeginsASourceAnewThatNeverGivesAPicture) {
    mSource.result = Result::kNotYet;
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_TRUE(drawUntil(Notice::kSilent));
    EXPECT_FALSE(mSource.open);
    while (mSource.begun < 2) EXPECT_EQ(Notice::kSilent, draw());
    mSource.result = Result::kDrawn;
    EXPECT_TRUE(drawUntil(Notice::kNone));
}

TEST_F(SteadySourceTest, LeavesAGapBetweenPicturesAloneButNotForLong) {
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(Notice::kNone, draw());
    mSource.result = Result::kNotYet;
    EXPECT_EQ(std::nullopt, draw());
    EXPECT_TRUE(drawUntil(Notice::kSilent));
    mSource.result = Result::kDrawn;
    EXPECT_TRUE(drawUntil(Notice::kNone));
}

TEST_F(SteadySourceTest, StopsTheSourceWhileTheCameraIsCovered) {
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(Notice::kNone, draw());
    mCovered = true;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Notice::kCovered, draw());
    EXPECT_FALSE(mSource.open) << "nothing may be looked at";
    mCovered = false;
    EXPECT_EQ(Notice::kNone, draw());
    EXPECT_EQ(2, mSource.begun);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, "desktop-camera", "the camera is covered"));
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, "desktop-camera", "the camera is uncovered"));
}

TEST_F(SteadySourceTest, DoesNotBeginTheSourceOfACoveredCamera) {
    mCovered = true;
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(Notice::kCovered, draw());
    EXPECT_EQ(0, mSource.begun);
}

TEST_F(SteadySourceTest, KeepsTheStatusTrue) {
    const auto says = [this](const std::string& notice, const std::string& text) {
        return mStatus.json() ==
               R"({"streaming":true,"format":"NV12","width":320,"height":240,"notice":")" + notice +
                       R"(","text":")" + text + "\"}";
    };
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_TRUE(says("starting", "")) << mStatus.json();
    EXPECT_EQ(Notice::kNone, draw());
    EXPECT_TRUE(says("none", "copied")) << mStatus.json();
    mSource.result = Result::kFailed;
    EXPECT_EQ(Notice::kFailed, draw());
    EXPECT_TRUE(says("failed", "it broke")) << mStatus.json();
    mSource.result = Result::kDrawn;
    EXPECT_TRUE(drawUntil(Notice::kNone));
    EXPECT_TRUE(says("none", "copied")) << mStatus.json();
    mCovered = true;
    EXPECT_EQ(Notice::kCovered, draw());
    EXPECT_TRUE(says("covered", "")) << mStatus.json();
    mSteady.stop();
    EXPECT_EQ(R"({"streaming":false})", mStatus.json());
}

TEST_F(SteadySourceTest, ForgetsTheTroubleOfAnEarlierStream) {
    mSource.starts = false;
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(Notice::kFailed, draw());
    mSteady.stop();
    mSource.starts = true;
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(Notice::kNone, draw());
}

TEST_F(SteadySourceTest, DoesWithoutCardsWhereNoneFits) {
    const PictureFormat tiny{"NV12", 64, 64, 30};
    ASSERT_TRUE(mSteady.start(tiny));
    std::vector<uint8_t> memory(64 * 64 * 3 / 2);
    PictureMemory picture;
    picture.planes = testcard::Planes::nv12(memory.data(), 64, 64);
    size_t bytes = 0;
    EXPECT_EQ(Result::kDrawn, mSteady.draw({1, 2}, picture, &bytes));
    mSource.result = Result::kFailed;
    EXPECT_EQ(Result::kNotYet, mSteady.draw({1, 2}, picture, &bytes));
    mSource.starts = false;
    EXPECT_FALSE(mSteady.start(tiny));
    EXPECT_EQ(R"({"streaming":false})", mStatus.json());
}

}  // namespace
}  // namespace korvane::camera
