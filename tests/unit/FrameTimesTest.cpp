// SPDX-License-Identifier: Apache-2.0
#include "uvc/FrameTimes.h"

#include <initializer_list>
#include <optional>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/LogRecorder.h"

namespace korvane::test {
namespace {

using android::BAD_VALUE;
using android::FrameTimes;
using android::OK;
using testing::ElementsAre;
using testing::IsEmpty;
using Count = ::korvane::hardware::camera::desktop::V2_0::implementation::Count;

constexpr char kTag[] = "KorBufferSource";
constexpr char kDroppingBackward[] = "Dropping frame that's going backward in time";
constexpr char kReceivedBackward[] = "Received frame that's going backward in time";
constexpr int64_t kMs = 1000000;  // in nanoseconds

class FrameTimesTest : public testing::Test {
  protected:
    void use(const FrameTimes::Settings& settings) { times = FrameTimes(stats, settings); }

    /** The time to lend a frame of this time with, in microseconds; none when it is dropped. */
    std::optional<int64_t> made(int64_t timeNs) {
        int64_t timeUs = 0;
        if (!times.calculate(timeNs, &timeUs)) return std::nullopt;
        return timeUs;
    }

    /** Those of the frames that aren't dropped. In and out in microseconds. */
    std::vector<int64_t> madeOf(std::initializer_list<int64_t> timesUs) {
        std::vector<int64_t> result;
        for (int64_t timeUs : timesUs) {
            const std::optional<int64_t> time = made(timeUs * 1000);
            if (time.has_value()) result.push_back(*time);
        }
        return result;
    }

    /** The time that a frame counts by; none when it is skipped. */
    std::optional<int64_t> countedFrom(int64_t timeNs) const {
        if (times.skip(&timeNs)) return std::nullopt;
        return timeNs;
    }

    /** Those of the times, in microseconds, that come too soon. */
    std::vector<int64_t> tooSoon(std::initializer_list<int64_t> timesUs) {
        std::vector<int64_t> result;
        for (int64_t timeUs : timesUs) {
            if (times.isTooSoon(timeUs * 1000)) result.push_back(timeUs);
        }
        return result;
    }

    bool logged(android_LogPriority priority, const std::string& message) const {
        return log.has(priority, kTag, message);
    }

    LogRecorder log;
    FrameTimes::ServiceStats stats;
    FrameTimes times{stats};
};

// Skipping.

TEST_F(FrameTimesTest, SkipsNoFrameUnlessToldTo) {
    EXPECT_EQ(0, countedFrom(0));
    EXPECT_EQ(-1, countedFrom(-1));
    EXPECT_EQ(INT64_MIN, countedFrom(INT64_MIN));
}

TEST_F(FrameTimesTest, SkipsFramesBeforeATimeAndCountsTheOthersFromThere) {
    use({.skipFramesBeforeNs = 100});
    EXPECT_EQ(std::nullopt, countedFrom(99));
    EXPECT_EQ(0, countedFrom(100));
    EXPECT_EQ(7, countedFrom(107));
}

TEST_F(FrameTimesTest, CountsFromTheVeryFirstNanosecond) {
    use({.skipFramesBeforeNs = 1});
    EXPECT_EQ(std::nullopt, countedFrom(0));
    EXPECT_EQ(1, countedFrom(2));
}

TEST_F(FrameTimesTest, SkipsFramesBeforeTimeZero) {
    use({.skipFramesBeforeNs = 0});
    EXPECT_EQ(std::nullopt, countedFrom(-1));
    EXPECT_EQ(0, countedFrom(0));
}

// The maximum rate.

TEST_F(FrameTimesTest, DropsNoFrameForItsRateWithoutAMaximum) {
    EXPECT_THAT(tooSoon({0, 1, 1, 0}), IsEmpty());
    EXPECT_EQ(0u, stats.total(Count::DROPPED_RATE));
}

// A frame may be 2 ms too soon.
TEST_F(FrameTimesTest, DropsFramesBeyondTheMaximumRateAndCountsThem) {
    ASSERT_EQ(OK, times.setMaxFps(10));
    EXPECT_THAT(tooSoon({0, 97999, 98000}), ElementsAre(97999));
    EXPECT_EQ(1u, stats.total(Count::DROPPED_RATE));
}

TEST_F(FrameTimesTest, JudgesTheRateByTimesBelowZeroCutTowardsIt) {
    ASSERT_EQ(OK, times.setMaxFps(10));
    EXPECT_FALSE(times.isTooSoon(-100 * kMs));
    EXPECT_TRUE(times.isTooSoon(-2001000));
    EXPECT_FALSE(times.isTooSoon(-2000999));
}

TEST_F(FrameTimesTest, HasNoMaximumAfterOneOfZero) {
    ASSERT_EQ(OK, times.setMaxFps(10));
    EXPECT_EQ(BAD_VALUE, times.setMaxFps(0));
    EXPECT_THAT(tooSoon({0, 1, 2}), IsEmpty());
    EXPECT_EQ(std::nullopt, made(-1000));  // nor is dropping disabled
}

TEST_F(FrameTimesTest, KeepsOneFrameUnderARateThatHasHardlyAnother) {
    ASSERT_EQ(OK, times.setMaxFps(1e-38f));
    EXPECT_THAT(tooSoon({-5, -4, INT64_MAX / 20000}), ElementsAre(-4, INT64_MAX / 20000));
}

TEST_F(FrameTimesTest, RestartsWithEachMaximumRate) {
    ASSERT_EQ(OK, times.setMaxFps(10));
    EXPECT_THAT(tooSoon({0}), IsEmpty());
    ASSERT_EQ(OK, times.setMaxFps(10));
    EXPECT_THAT(tooSoon({1}), IsEmpty());
}

// Times.

TEST_F(FrameTimesTest, CutsNanosecondsToMicroseconds) {
    EXPECT_EQ(1, made(1999));
    EXPECT_EQ(2, made(2000));
}

TEST_F(FrameTimesTest, AddsTheOffsetToTheCutTime) {
    use({.inputTimeOffsetUs = 10});
    EXPECT_EQ(8, made(-2999));
    EXPECT_EQ(11, made(1999));
}

TEST_F(FrameTimesTest, TakesTimeZeroForTheFirstFrame) {
    EXPECT_EQ(std::nullopt, made(-1000));
    EXPECT_EQ(0, made(0));
}

TEST_F(FrameTimesTest, DropsFramesThatGoBackwardOrStandStillAndCountsThem) {
    EXPECT_THAT(madeOf({5, 5, 3, 4, 6}), ElementsAre(5, 6));
    EXPECT_EQ(3u, log.count(ANDROID_LOG_WARN, kTag, kDroppingBackward));
    EXPECT_EQ(3u, log.lines().size());
    EXPECT_EQ(3u, stats.total(Count::DROPPED_BACKWARD));
}

TEST_F(FrameTimesTest, DropsBackwardFramesUnderARateThatDropsNone) {
    ASSERT_EQ(OK, times.setMaxFps(2e6f));
    EXPECT_THAT(madeOf({5, 3}), ElementsAre(5));
}

TEST_F(FrameTimesTest, KeepsBackwardFramesWhenDroppingIsDisabled) {
    ASSERT_EQ(OK, times.setMaxFps(-1));
    EXPECT_THAT(madeOf({5, 3, 4}), ElementsAre(5, 3, 4));  // forward from 3
    EXPECT_EQ(1u, log.count(ANDROID_LOG_WARN, kTag, kReceivedBackward));
    EXPECT_EQ(1u, log.lines().size());
    EXPECT_EQ(0u, stats.total(Count::DROPPED_BACKWARD));
}

// Time-lapse and slow motion.

TEST_F(FrameTimesTest, PutsFramesOfASlowCaptureAtTheFasterRate) {
    use({.captureFps = 1, .fps = 30});
    // The first: 3 s * 1 / 30. Then a frame for each second captured.
    EXPECT_THAT(madeOf({3000000, 4000000, 5100000}), ElementsAre(100000, 133333, 166667));
}

TEST_F(FrameTimesTest, PutsFramesOfAFastCaptureAtTheSlowerRate) {
    use({.captureFps = 120, .fps = 30});
    EXPECT_THAT(madeOf({0, 8333, 16667}), ElementsAre(0, 33333, 66667));
}

TEST_F(FrameTimesTest, CountsTheFramesThatATimeLapseMissed) {
    use({.captureFps = 1, .fps = 30});
    EXPECT_THAT(madeOf({0, 3000000}), ElementsAre(0, 100000));
}

TEST_F(FrameTimesTest, DropsFramesThatComeMuchTooSoonForATimeLapse) {
    use({.captureFps = 1, .fps = 30});
    // A little too soon counts as one interval.
    EXPECT_THAT(madeOf({0, 449999, 450000}), ElementsAre(0, 33333));
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "skipping frame, timeUs 449999"));
    EXPECT_EQ(1u, log.lines().size());
    EXPECT_EQ(1u, stats.total(Count::DROPPED_RATE));
}

// The capture after 0.45 s counts as that of 1 s: 0.45 s later is 0.1 s too soon for another.
TEST_F(FrameTimesTest, MeasuresFromTheIntervalThatTheLastFrameOfATimeLapseWasPutOn) {
    use({.captureFps = 1, .fps = 30});
    EXPECT_THAT(madeOf({0, 450000, 1449999, 1450000}), ElementsAre(0, 33333, 66667));
}

TEST_F(FrameTimesTest, RoundsHalvesAwayFromZero) {
    use({.captureFps = 1, .fps = 4});
    // 0.5; one interval; 2.5 intervals, which are three.
    EXPECT_THAT(madeOf({2, 1000002, 3500002}), ElementsAre(1, 250001, 1000001));
}

TEST_F(FrameTimesTest, RoundsHalvesBelowZeroAwayFromIt) {
    use({.captureFps = 1, .fps = 4});
    EXPECT_EQ(-1, made(-2000));
}

TEST_F(FrameTimesTest, ScalesOnlyAtRatesMoreThanTwiceApart) {
    for (auto [captureFps, fps] : {std::pair(15.0, 30.0), {60.0, 30.0}, {0.0, 30.0}}) {
        use({.captureFps = captureFps, .fps = fps});
        EXPECT_EQ(1000000, made(1000 * kMs)) << captureFps;
    }
    for (auto [captureFps, fps] : {std::pair(15.0, 30.1), {60.1, 30.0}}) {
        use({.captureFps = captureFps, .fps = fps});
        EXPECT_NE(1000000, made(1000 * kMs)) << captureFps;
    }
}

TEST_F(FrameTimesTest, ScalesTimesWhenItDoesNotSnap) {
    use({.captureFps = 1, .fps = 4, .snapTimestamps = false});
    EXPECT_THAT(madeOf({4000000, 4000002, 5000000}), ElementsAre(1000000, 1000001, 1250000));
}

TEST_F(FrameTimesTest, DropsBackwardFramesWhenItDoesNotSnap) {
    use({.captureFps = 1, .fps = 4, .snapTimestamps = false});
    EXPECT_THAT(madeOf({4000000, 4000000}), ElementsAre(1000000));
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, kDroppingBackward));
}

TEST_F(FrameTimesTest, KeepsBackwardFramesWhenDroppingIsDisabledAndItDoesNotSnap) {
    use({.captureFps = 1, .fps = 4, .snapTimestamps = false});
    ASSERT_EQ(OK, times.setMaxFps(-1));
    EXPECT_THAT(madeOf({4000000, 3000000, 3500000}), ElementsAre(1000000, 750000, 875000));
    EXPECT_EQ(1u, log.count(ANDROID_LOG_WARN, kTag, kReceivedBackward));  // forward from 3 s
}

// A capture below zero is none that a frame could be counted from.
TEST_F(FrameTimesTest, RestartsATimeLapseUntilAFrameWasCapturedAtZeroOrLater) {
    use({.captureFps = 1, .fps = 4});
    EXPECT_THAT(madeOf({-3300000, -4, 0, 1000000}), ElementsAre(-825000, -1, 0, 250000));
}

TEST_F(FrameTimesTest, MeasuresFromTheLastFrameWhetherItWasScaledOrNot) {
    use({.captureFps = 1, .fps = 4});
    EXPECT_THAT(madeOf({0, 1000000, 2000000}), ElementsAre(0, 250000, 500000));
    times.reset();
    EXPECT_THAT(madeOf({0, 1}), ElementsAre(0, 1));
}

// The reset.

TEST_F(FrameTimesTest, ForgetsRatesAndFramesWithAReset) {
    use({.skipFramesBeforeNs = 10, .inputTimeOffsetUs = 10, .captureFps = 1, .fps = 4});
    ASSERT_EQ(OK, times.setMaxFps(-1));
    EXPECT_THAT(madeOf({4000000, 5000000}), ElementsAre(1000003, 1250003));
    times.reset();
    EXPECT_EQ(0, countedFrom(0));
    EXPECT_THAT(madeOf({5, 4}), ElementsAre(5));
}

TEST_F(FrameTimesTest, ForgetsTheMaximumRateWithAReset) {
    ASSERT_EQ(OK, times.setMaxFps(1));
    times.reset();
    EXPECT_THAT(tooSoon({0, 1}), IsEmpty());
}

}  // namespace
}  // namespace korvane::test
