// SPDX-License-Identifier: Apache-2.0
#include "media/stagefright/bqhelper/FrameDropper.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using android::BAD_VALUE;
using android::FrameDropper;
using android::OK;
using android::sp;

sp<FrameDropper> dropperFor(float rate) {
    sp<FrameDropper> dropper = new FrameDropper;
    EXPECT_EQ(OK, dropper->setMaxFrameRate(rate));
    return dropper;
}

// What becomes of frames of an even rate from second 1 on: 'K' for kept, '-' for dropped.
std::string fate(float cap, int fps, int frames) {
    const sp<FrameDropper> dropper = dropperFor(cap);
    std::string result;
    for (int i = 0; i < frames; ++i) {
        result += dropper->shouldDrop(1000000 + i * 1000000LL / fps) ? '-' : 'K';
    }
    return result;
}

TEST(FrameDropperTest, KeepsEveryFrameAtTheMaximumRate) {
    EXPECT_EQ(std::string(300, 'K'), fate(30, 30, 300));
}

TEST(FrameDropperTest, KeepsEveryFrameAtALowerRate) {
    EXPECT_EQ(std::string(100, 'K'), fate(30, 15, 100));
}

TEST(FrameDropperTest, KeepsEveryOtherFrameAtTwiceTheMaximum) {
    EXPECT_EQ("K-K-K-K-K-", fate(30, 60, 10));
}

TEST(FrameDropperTest, DropsOneFrameInFourAtAThirdAboveTheMaximum) {
    EXPECT_EQ("K-KKK-KKK-KKK-K", fate(30, 40, 15));
}

TEST(FrameDropperTest, DropsOneFrameInThirtyOneAtAThirtiethAboveTheMaximum) {
    EXPECT_EQ("KK-" + std::string(30, 'K') + "-", fate(30, 31, 34));
}

TEST(FrameDropperTest, DropsOneInFiveOfThirtyCappedToTwentyFour) {
    EXPECT_EQ("K-KKKK-KKKK-", fate(24, 30, 12));
}

TEST(FrameDropperTest, KeepsOneInThreeOfThirtyCappedToTen) {
    EXPECT_EQ("K--K--K--", fate(10, 30, 9));
}

TEST(FrameDropperTest, ToleratesTwoMillisecondsOfJitterAndNoMore) {
    const sp<FrameDropper> dropper = dropperFor(30);
    EXPECT_FALSE(dropper->shouldDrop(0));
    EXPECT_TRUE(dropper->shouldDrop(31332));
    EXPECT_FALSE(dropper->shouldDrop(31333));
    EXPECT_TRUE(dropper->shouldDrop(64665));
    EXPECT_FALSE(dropper->shouldDrop(64666));
}

TEST(FrameDropperTest, StaysOnItsGridAfterAGap) {
    const sp<FrameDropper> dropper = dropperFor(10);
    EXPECT_FALSE(dropper->shouldDrop(0));
    EXPECT_FALSE(dropper->shouldDrop(550000));  // the next place on the grid is 600000
    EXPECT_TRUE(dropper->shouldDrop(597999));
    EXPECT_FALSE(dropper->shouldDrop(598000));
}

// The earliest second frame that is kept tells the interval.
void expectInterval(float rate, int64_t intervalUs) {
    const sp<FrameDropper> dropper = dropperFor(rate);
    EXPECT_FALSE(dropper->shouldDrop(0));
    EXPECT_TRUE(dropper->shouldDrop(intervalUs - 2001)) << rate;
    EXPECT_FALSE(dropper->shouldDrop(intervalUs - 2000)) << rate;
}

TEST(FrameDropperTest, CutsTheIntervalToWholeMicroseconds) {
    expectInterval(30, 33333);
    expectInterval(29.97f, 33366);
    expectInterval(24, 41666);
    expectInterval(60, 16666);
    expectInterval(15, 66666);
}

TEST(FrameDropperTest, DropsFramesThatGoBackwardsUntilTheyCatchUp) {
    const sp<FrameDropper> dropper = dropperFor(30);
    EXPECT_FALSE(dropper->shouldDrop(1000000));
    EXPECT_TRUE(dropper->shouldDrop(0));
    EXPECT_TRUE(dropper->shouldDrop(1000000));
    EXPECT_FALSE(dropper->shouldDrop(1033333));
}

TEST(FrameDropperTest, TreatsTimeZeroLikeAnyOtherTime) {
    const sp<FrameDropper> dropper = dropperFor(30);
    EXPECT_FALSE(dropper->shouldDrop(-33333));  // the next one is wanted at 0
    EXPECT_TRUE(dropper->shouldDrop(-2001));
    EXPECT_FALSE(dropper->shouldDrop(-2000));
}

TEST(FrameDropperTest, KeepsEveryFrameBeforeARateIsSet) {
    const sp<FrameDropper> dropper = new FrameDropper;
    EXPECT_FALSE(dropper->disabled());
    EXPECT_FALSE(dropper->shouldDrop(0));
    EXPECT_FALSE(dropper->shouldDrop(0));
}

TEST(FrameDropperTest, IsDisabledByANegativeRate) {
    const sp<FrameDropper> dropper = dropperFor(-1);
    EXPECT_TRUE(dropper->disabled());
    EXPECT_FALSE(dropper->shouldDrop(0));
    EXPECT_FALSE(dropper->shouldDrop(0));
}

TEST(FrameDropperTest, RefusesARateOfZeroAndKeepsTheLast) {
    const sp<FrameDropper> dropper = dropperFor(30);
    EXPECT_EQ(BAD_VALUE, dropper->setMaxFrameRate(0));
    EXPECT_FALSE(dropper->shouldDrop(0));
    EXPECT_TRUE(dropper->shouldDrop(10000));
}

TEST(FrameDropperTest, NeverDropsAboveAMillionFramesASecond) {
    const sp<FrameDropper> dropper = dropperFor(2e6f);
    EXPECT_FALSE(dropper->disabled());
    EXPECT_FALSE(dropper->shouldDrop(0));
    EXPECT_FALSE(dropper->shouldDrop(0));
}

TEST(FrameDropperTest, KeepsItsPlaceWhenTheRateChanges) {
    const sp<FrameDropper> dropper = dropperFor(10);
    EXPECT_FALSE(dropper->shouldDrop(0));
    EXPECT_EQ(OK, dropper->setMaxFrameRate(50));
    EXPECT_TRUE(dropper->shouldDrop(50000));
    EXPECT_FALSE(dropper->shouldDrop(98000));
    EXPECT_FALSE(dropper->shouldDrop(118000));
}

}  // namespace
