// SPDX-License-Identifier: Apache-2.0
// A program with the verbose log in it: what of its lines people get to read.
#include <string>

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::HasSubstr;
using testing::Not;

std::string logged(android_LogPriority priority) {
    testing::internal::CaptureStderr();
    __android_log_print(priority, "tag", "line %d", 7);
    return testing::internal::GetCapturedStderr();
}

TEST(VerboseLogTest, ShowsDebugLinesAndAllAbove) {
    for (const auto priority : {ANDROID_LOG_DEBUG, ANDROID_LOG_INFO, ANDROID_LOG_WARN,
                                ANDROID_LOG_ERROR, ANDROID_LOG_FATAL}) {
        EXPECT_THAT(logged(priority), HasSubstr("line 7")) << priority;
    }
}

TEST(VerboseLogTest, HidesVerboseLines) {
    EXPECT_THAT(logged(ANDROID_LOG_VERBOSE), Not(HasSubstr("line 7")));
}

}  // namespace
