// SPDX-License-Identifier: Apache-2.0
#include "uvc/FrameRepetition.h"

#include <memory>

#include <gtest/gtest.h>

namespace korvane::test {
namespace {

using android::AcquiredBuffer;
using android::CachedBuffer;
using android::FrameRepetition;
using android::VideoBuffer;

VideoBuffer frame(int64_t timestampNs) {
    const auto buffer = std::make_shared<CachedBuffer>(0, new android::GraphicBuffer);
    return {std::make_shared<AcquiredBuffer>(buffer, nullptr, [](AcquiredBuffer*) {}), timestampNs,
            7, 8};
}

TEST(FrameRepetitionTest, IsOnFromAnIntervalOfOneMicrosecond) {
    EXPECT_FALSE(FrameRepetition().isOn());
    EXPECT_FALSE(FrameRepetition(0).isOn());
    EXPECT_TRUE(FrameRepetition(1).isOn());
}

TEST(FrameRepetitionTest, ANewOneHasNothingToRepeat) {
    const FrameRepetition repetition;
    EXPECT_EQ(-1, repetition.intervalUs());
    EXPECT_EQ(nullptr, repetition.latest().mBuffer);
    EXPECT_EQ(0, repetition.generation());
    EXPECT_FALSE(repetition.isBlocked());
}

TEST(FrameRepetitionTest, KeepsTheLatestFrameWithTheTimeOfItsRepetition) {
    FrameRepetition repetition(10);
    const VideoBuffer latest = frame(500);
    repetition.setLatest(frame(1));
    repetition.setLatest(latest);
    EXPECT_EQ(latest.mBuffer, repetition.latest().mBuffer);
    EXPECT_EQ(10500, repetition.latest().mTimestampNs);
    EXPECT_EQ(7u, repetition.latest().mDataSpace);
    EXPECT_EQ(0, repetition.latest().mArrivedNs);  // a repetition doesn't arrive
}

TEST(FrameRepetitionTest, LetsGoOfAFrameThatIsForgotten) {
    FrameRepetition repetition(10);
    VideoBuffer latest = frame(500);
    const std::weak_ptr<AcquiredBuffer> held = latest.mBuffer;
    repetition.setLatest(latest);
    latest = {};
    EXPECT_FALSE(held.expired());
    repetition.forgetLatest();
    EXPECT_TRUE(held.expired());
    EXPECT_EQ(0, repetition.latest().mTimestampNs);
}

TEST(FrameRepetitionTest, RepeatsAFrameTenTimesAnIntervalApart) {
    FrameRepetition repetition(10);
    repetition.setLatest(frame(0));
    for (int i = 1; i < 10; ++i) {
        EXPECT_EQ(i * 10000, repetition.latest().mTimestampNs);
        EXPECT_TRUE(repetition.noteRepeated()) << i;
    }
    EXPECT_EQ(100000, repetition.latest().mTimestampNs);
    EXPECT_FALSE(repetition.noteRepeated());
    EXPECT_EQ(100000, repetition.latest().mTimestampNs);
    EXPECT_FALSE(repetition.noteRepeated());  // forced on a blocked one
}

TEST(FrameRepetitionTest, RestartsItsCountWithANewFrame) {
    FrameRepetition repetition(10);
    repetition.setLatest(frame(0));
    for (int i = 0; i < 9; ++i) repetition.noteRepeated();
    repetition.setLatest(frame(0));
    EXPECT_TRUE(repetition.noteRepeated());
}

TEST(FrameRepetitionTest, CancelsPostedRepetitions) {
    FrameRepetition repetition(10);
    repetition.cancel();
    const int32_t posted = repetition.generation();
    EXPECT_EQ(1, posted);
    repetition.cancel();
    EXPECT_NE(posted, repetition.generation());
}

TEST(FrameRepetitionTest, IsBlockedUntilItIsNot) {
    FrameRepetition repetition(10);
    repetition.setBlocked(true);
    repetition.setLatest(frame(0));
    EXPECT_TRUE(repetition.isBlocked());
    repetition.setBlocked(false);
    EXPECT_FALSE(repetition.isBlocked());
}

}  // namespace
}  // namespace korvane::test
