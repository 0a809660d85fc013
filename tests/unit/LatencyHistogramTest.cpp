// SPDX-License-Identifier: Apache-2.0
// Counts and times in classes, since the start and since a mark.

#include "uvc/LatencyHistogram.h"

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "uvc/CountTable.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

TEST(CountTableTest, CountsEachIndexByItself) {
    CountTable<3> table;
    table.add(0);
    table.add(2, 5);
    EXPECT_EQ(1u, table.total(0));
    EXPECT_EQ(0u, table.total(1));
    EXPECT_EQ(5u, table.total(2));
}

TEST(CountTableTest, AMarkRestartsTheSecondCount) {
    CountTable<2> table;
    table.add(0, 3);
    EXPECT_EQ(3u, table.sinceMark(0));
    table.mark();
    EXPECT_EQ(0u, table.sinceMark(0));
    table.add(0, 4);
    EXPECT_EQ(4u, table.sinceMark(0));
    EXPECT_EQ(7u, table.total(0));
}

TEST(CountTableTest, AnIndexBeyondTheLastIsTheLast) {
    CountTable<2> table;
    table.add(2);
    table.add(1000);
    EXPECT_EQ(2u, table.total(1));
    EXPECT_EQ(2u, table.sinceMark(77));
}

TEST(CountTableTest, LosesNothingOfSeveralThreads) {
    CountTable<1> table;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&table] {
            for (int n = 0; n < 10000; ++n) table.add(0);
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(40000u, table.total(0));
}

class LatencyHistogramTest : public testing::Test {
  protected:
    // The class that a time falls into.
    static size_t classOf(int64_t ns) {
        LatencyHistogram histogram;
        histogram.add(ns);
        for (size_t i = 0; i < LatencyHistogram::kClasses; ++i) {
            if (histogram.total(i) == 1) return i;
        }
        return LatencyHistogram::kClasses;
    }
};

TEST_F(LatencyHistogramTest, ClassesDoubleFrom64Microseconds) {
    EXPECT_EQ(64u, LatencyHistogram::boundUs(0));
    EXPECT_EQ(128u, LatencyHistogram::boundUs(1));
    EXPECT_EQ(1048576u, LatencyHistogram::boundUs(14));
    EXPECT_EQ(0u, LatencyHistogram::boundUs(15));
}

TEST_F(LatencyHistogramTest, ATimeIsBelowTheBoundOfItsClass) {
    EXPECT_EQ(0u, classOf(-1));
    EXPECT_EQ(0u, classOf(0));
    EXPECT_EQ(0u, classOf(63999));
    EXPECT_EQ(1u, classOf(64000));
    EXPECT_EQ(14u, classOf(1048575999));
    EXPECT_EQ(15u, classOf(1048576000));
    EXPECT_EQ(15u, classOf(INT64_MAX));
}

TEST_F(LatencyHistogramTest, AMarkRestartsTheSecondCount) {
    LatencyHistogram histogram;
    histogram.add(0);
    histogram.mark();
    histogram.add(0);
    EXPECT_EQ(2u, histogram.total(0));
    EXPECT_EQ(1u, histogram.sinceMark(0));
}

}  // namespace
}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
