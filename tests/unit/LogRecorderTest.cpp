// SPDX-License-Identifier: Apache-2.0
// The recorder itself: what it misses, no other test can see.

#include "support/LogRecorder.h"

#include <thread>

#include <gtest/gtest.h>

using korvane::test::LogLine;
using korvane::test::LogRecorder;

TEST(LogRecorderTest, KeepsPriorityTagAndTextInOrder) {
    LogRecorder log;
    __android_log_print(ANDROID_LOG_DEBUG, "A", "first %d", 1);
    __android_log_print(ANDROID_LOG_ERROR, "B", "second");
    const std::vector<LogLine> expected{{ANDROID_LOG_DEBUG, "A", "first 1"},
                                        {ANDROID_LOG_ERROR, "B", "second"}};
    EXPECT_EQ(log.lines(), expected);
    EXPECT_EQ(log.lines("B"), std::vector<LogLine>{expected[1]});
}

TEST(LogRecorderTest, ForgetsWhatAnEarlierRecorderSaw) {
    { LogRecorder().clear(); }
    LogRecorder log;
    EXPECT_FALSE(log.has(ANDROID_LOG_DEBUG, "A", "first 1"));
    EXPECT_TRUE(log.lines().empty());
}

TEST(LogRecorderTest, WaitsForALineOfAnotherThread) {
    LogRecorder log;
    std::thread other([] { __android_log_print(ANDROID_LOG_INFO, "T", "done"); });
    EXPECT_TRUE(log.waitFor(ANDROID_LOG_INFO, "T", "done"));
    other.join();
}
