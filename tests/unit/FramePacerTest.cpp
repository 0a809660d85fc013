// SPDX-License-Identifier: Apache-2.0
#include "desktop-camera/FramePacer.h"

#include <cstdint>

#include <gtest/gtest.h>

namespace korvane::camera {
namespace {

constexpr int64_t kStart = 5'000'000'000;
constexpr int64_t kInterval = 40'000'000;  // 25 frames a second

TEST(FramePacerTest, BeatsAtTheRateFromTheStartOn) {
    FramePacer pacer(kStart, 25);
    for (int64_t i = 0; i < 100; ++i) {
        EXPECT_EQ(kStart + i * kInterval, pacer.nextBeat());
        EXPECT_EQ(kStart + i * kInterval, pacer.takeBeat(pacer.nextBeat() + 1000));
    }
}

TEST(FramePacerTest, DoesNotDriftWhereAnIntervalIsNoWholeNumber) {
    FramePacer pacer(kStart, 30);
    int64_t beat = 0;
    for (int64_t i = 0; i <= 30 * 3600; ++i) beat = pacer.takeBeat(pacer.nextBeat());
    EXPECT_NEAR(kStart + 3600e9, beat, 1);
}

TEST(FramePacerTest, PassesOverBeatsThatWereMissed) {
    FramePacer pacer(kStart, 25);
    EXPECT_EQ(kStart, pacer.takeBeat(kStart));
    EXPECT_EQ(kStart + 4 * kInterval, pacer.takeBeat(kStart + 4 * kInterval + kInterval / 2));
    EXPECT_EQ(kStart + 5 * kInterval, pacer.nextBeat());
}

TEST(FramePacerTest, NeverGivesTheSameBeatTwice) {
    FramePacer pacer(kStart, 25);
    const int64_t first = pacer.takeBeat(kStart + 1);
    EXPECT_LT(first, pacer.takeBeat(kStart + 2));
}

TEST(FramePacerTest, TakesABeatThatIsDueToTheNanosecond) {
    for (double fps : {7.5, 15.0, 24.0, 29.97, 30.000030517578125, 60.0}) {
        FramePacer pacer(kStart, fps);
        int64_t last = pacer.takeBeat(kStart);
        for (int i = 0; i < 1000; ++i) {
            const int64_t due = pacer.nextBeat();
            EXPECT_EQ(due, pacer.takeBeat(due)) << fps;
            EXPECT_LT(last, due);
            last = due;
        }
    }
}

}  // namespace
}  // namespace korvane::camera
