// SPDX-License-Identifier: Apache-2.0
#include "desktop-camera/SteadySource.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/LogRecorder.h"
#include "testcard/StripCode.h"
#include "testcard/StripLayout.h"

// The clock moves only when a test moves it.
extern "C" int64_t __wrap__ZN7korvane6camera11monotonicNsEv();

namespace korvane::camera {
namespace {

using Result = FrameSource::Result;
using testcard::Notice;

const PictureFormat kNv12{"NV12", 320, 240, 30};
constexpr uint8_t kOwnPicture = 3;  // what the source's pictures are filled with
constexpr int64_t kMs = 1'000'000;

int64_t sNow = 0;

/** A source that does as it is told. */
class ToldSource : public FrameSource {
  public:
    bool starts = true;
    Result result = Result::DRAWN;
    Result afterEnd = Result::DRAWN;
    Trouble why{Notice::FAILED, "it broke"};
    int begun = 0;
    int begunAgain = 0;
    bool open = false;
    PictureFormat format;

    bool start(const PictureFormat& given) override {
        EXPECT_FALSE(open) << "begun twice";
        format = given;
        ++begun;
        return open = starts;
    }
    bool startAgain() override {
        EXPECT_TRUE(open) << "has not ended";
        ++begunAgain;
        result = afterEnd;
        return starts;
    }
    Result draw(const testcard::FrameStamp&, const PictureMemory& memory, size_t* bytes) override {
        EXPECT_TRUE(open) << "asked for a picture without a start";
        if (result == Result::DRAWN) memory.planes.y[0] = kOwnPicture;
        *bytes = 1;
        return result;
    }
    void stop() override { open = false; }
    Trouble trouble() const override { return why; }
    std::string handling() const override { return "copied"; }
};

class SteadySourceTest : public testing::Test {
  protected:
    /** What the host is shown: a notice, NONE for the source's own picture, nothing for none. */
    std::optional<Notice> draw() {
        std::vector<uint8_t> memory(320 * 240 * 3 / 2);
        PictureMemory picture;
        picture.planes = testcard::Planes::nv12(memory.data(), 320, 240);
        size_t bytes = 0;
        const Result result = mSteady.draw({1, 2}, picture, &bytes);
        EXPECT_NE(Result::FAILED, result);
        if (result != Result::DRAWN) return std::nullopt;
        if (memory[0] == kOwnPicture) return Notice::NONE;
        EXPECT_EQ(memory.size(), bytes);
        const auto reading = testcard::readCard(*testcard::StripLayout::forSize(320, 240),
                                                {memory.data(), 320, 1});
        EXPECT_TRUE(reading.readable());
        return reading.top ? std::optional(reading.top->notice) : std::nullopt;
    }

    /** Draws each millisecond until the host is shown this; false after a second. */
    bool drawUntil(std::optional<Notice> notice) {
        for (int ms = 0; ms < 1000; ++ms) {
            if (draw() == notice) return true;
            sNow += kMs;
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
    for (int i = 0; i < 5; ++i) EXPECT_EQ(Notice::NONE, draw());
    EXPECT_EQ(1, mSource.begun);
    mSteady.stop();
    EXPECT_FALSE(mSource.open);
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(SteadySourceTest, ShowsACardWhileTheSourceIsNotThereAndItsPictureWhenItComes) {
    mSource.starts = false;
    mSource.why = {Notice::ABSENT, "no such device"};
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(Notice::ABSENT, draw());
    mSource.starts = true;
    EXPECT_TRUE(drawUntil(Notice::NONE));
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, "desktop-camera", "the source gives pictures again"));
}

TEST_F(SteadySourceTest, ShowsACardWhenTheSourceFailsInTheMiddle) {
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(Notice::NONE, draw());
    mSource.result = Result::FAILED;
    EXPECT_EQ(Notice::FAILED, draw());
    EXPECT_FALSE(mSource.open);
    mSource.result = Result::DRAWN;
    EXPECT_TRUE(drawUntil(Notice::NONE));
    EXPECT_EQ(2, mSource.begun);
}

TEST_F(SteadySourceTest, TriesTheSourceAgainAfterTheTimeAndNotBefore) {
    mSource.starts = false;
    const int64_t begin = sNow;
    ASSERT_TRUE(mSteady.start(kNv12));
    for (; mSource.begun < 4 && sNow < begin + 1000 * kMs; sNow += kMs) {
        EXPECT_EQ(Notice::FAILED, draw());
    }
    EXPECT_EQ(3 * mTimes.retry + kMs, sNow - begin);
    EXPECT_EQ(1u, mLog.lines().size()) << "the same trouble is logged once";
}

TEST_F(SteadySourceTest, WaitsForTheFirstPictureBeforeItShowsACard) {
    mSource.result = Result::NOT_YET;
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(std::nullopt, draw());
    sNow += mTimes.beforeCard - 1;
    EXPECT_EQ(std::nullopt, draw());
    sNow += 1;
    EXPECT_EQ(Notice::STARTING, draw());
    EXPECT_TRUE(mSource.open);
    mSource.result = Result::DRAWN;
    EXPECT_EQ(Notice::NONE, draw());
    EXPECT_EQ(1, mSource.begun);
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(SteadySourceTest, BeginsASourceAnewThatNeverGivesAPicture) {
    mSource.result = Result::NOT_YET;
    ASSERT_TRUE(mSteady.start(kNv12));
    sNow += mTimes.patience;
    EXPECT_EQ(Notice::STARTING, draw());
    sNow += 1;
    EXPECT_EQ(Notice::SILENT, draw());
    EXPECT_FALSE(mSource.open);
    sNow += mTimes.retry - 1;
    EXPECT_EQ(Notice::SILENT, draw());
    EXPECT_EQ(1, mSource.begun);
    sNow += 1;
    EXPECT_EQ(Notice::SILENT, draw());
    EXPECT_EQ(2, mSource.begun);
    mSource.result = Result::DRAWN;
    EXPECT_TRUE(drawUntil(Notice::NONE));
}

TEST_F(SteadySourceTest, DoesNotBeginASourceAnewWhileItBegins) {
    mSource.result = Result::STARTING;
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(std::nullopt, draw());
    sNow += mTimes.beforeCard;
    for (int ms = 0; ms < 500; ++ms, sNow += kMs) EXPECT_EQ(Notice::STARTING, draw());
    EXPECT_EQ(1, mSource.begun);
    EXPECT_NE(std::string::npos, mStatus.json().find(R"("text":"the source does not start")"));
    ASSERT_EQ(1u, mLog.lines().size());
    EXPECT_EQ("no picture: the source does not start; it is waited for", mLog.lines()[0].message);
    mSource.result = Result::DRAWN;
    EXPECT_EQ(Notice::NONE, draw());
}

TEST_F(SteadySourceTest, HasPatienceWithASourceFromTheEndOfItsStart) {
    mSource.result = Result::STARTING;
    ASSERT_TRUE(mSteady.start(kNv12));
    sNow += 2 * mTimes.patience;
    EXPECT_EQ(Notice::STARTING, draw());
    mSource.result = Result::NOT_YET;
    sNow += mTimes.patience;
    EXPECT_EQ(Notice::STARTING, draw());
    sNow += 1;
    EXPECT_EQ(Notice::SILENT, draw());
}

TEST_F(SteadySourceTest, BeginsAgainWhatHasEndedWithoutACard) {
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(Notice::NONE, draw());
    mSource.result = Result::ENDED;
    EXPECT_EQ(std::nullopt, draw());
    EXPECT_EQ(Notice::NONE, draw());
    EXPECT_EQ(1, mSource.begunAgain);
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(SteadySourceTest, ShowsACardWhenWhatHasEndedTakesLongToBeginAgain) {
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(Notice::NONE, draw());
    mSource.result = Result::ENDED;
    mSource.afterEnd = Result::STARTING;
    EXPECT_EQ(std::nullopt, draw());
    sNow += mTimes.gap;
    EXPECT_EQ(std::nullopt, draw());
    sNow += 1;
    EXPECT_EQ(Notice::STARTING, draw());
    mSource.result = Result::DRAWN;
    EXPECT_EQ(Notice::NONE, draw());
}

TEST_F(SteadySourceTest, ShowsACardWhenWhatHasEndedDoesNotBeginAgain) {
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(Notice::NONE, draw());
    mSource.result = Result::ENDED;
    mSource.starts = false;
    EXPECT_EQ(Notice::FAILED, draw());
}

TEST_F(SteadySourceTest, LeavesAGapBetweenPicturesAloneButNotForLong) {
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(Notice::NONE, draw());
    mSource.result = Result::NOT_YET;
    sNow += mTimes.gap;
    EXPECT_EQ(std::nullopt, draw());
    sNow += 1;
    EXPECT_EQ(Notice::SILENT, draw());
    mSource.result = Result::DRAWN;
    EXPECT_TRUE(drawUntil(Notice::NONE));
}

TEST_F(SteadySourceTest, StopsTheSourceWhileTheCameraIsCovered) {
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(Notice::NONE, draw());
    mCovered = true;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Notice::COVERED, draw());
    EXPECT_FALSE(mSource.open) << "nothing may be looked at";
    mCovered = false;
    EXPECT_EQ(Notice::NONE, draw());
    EXPECT_EQ(2, mSource.begun);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, "desktop-camera", "the camera is covered"));
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, "desktop-camera", "the camera is uncovered"));
}

TEST_F(SteadySourceTest, DoesNotBeginTheSourceOfACoveredCamera) {
    mCovered = true;
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(Notice::COVERED, draw());
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
    EXPECT_EQ(Notice::NONE, draw());
    EXPECT_TRUE(says("none", "copied")) << mStatus.json();
    mSource.result = Result::FAILED;
    EXPECT_EQ(Notice::FAILED, draw());
    EXPECT_TRUE(says("failed", "it broke")) << mStatus.json();
    mSource.result = Result::DRAWN;
    EXPECT_TRUE(drawUntil(Notice::NONE));
    EXPECT_TRUE(says("none", "copied")) << mStatus.json();
    mCovered = true;
    EXPECT_EQ(Notice::COVERED, draw());
    EXPECT_TRUE(says("covered", "")) << mStatus.json();
    mSteady.stop();
    EXPECT_EQ(R"({"streaming":false})", mStatus.json());
}

TEST_F(SteadySourceTest, ForgetsTheTroubleOfAnEarlierStream) {
    mSource.starts = false;
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(Notice::FAILED, draw());
    mSteady.stop();
    mSource.starts = true;
    ASSERT_TRUE(mSteady.start(kNv12));
    EXPECT_EQ(Notice::NONE, draw());
}

TEST_F(SteadySourceTest, DoesWithoutCardsWhereNoneFits) {
    const PictureFormat tiny{"NV12", 64, 64, 30};
    ASSERT_TRUE(mSteady.start(tiny));
    std::vector<uint8_t> memory(64 * 64 * 3 / 2);
    PictureMemory picture;
    picture.planes = testcard::Planes::nv12(memory.data(), 64, 64);
    size_t bytes = 0;
    EXPECT_EQ(Result::DRAWN, mSteady.draw({1, 2}, picture, &bytes));
    mSource.result = Result::FAILED;
    EXPECT_EQ(Result::NOT_YET, mSteady.draw({1, 2}, picture, &bytes));
    mSource.starts = false;
    EXPECT_FALSE(mSteady.start(tiny));
    EXPECT_EQ(R"({"streaming":false})", mStatus.json());
}

}  // namespace
}  // namespace korvane::camera

extern "C" int64_t __wrap__ZN7korvane6camera11monotonicNsEv() {
    return korvane::camera::sNow;
}
