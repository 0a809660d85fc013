// SPDX-License-Identifier: Apache-2.0
// The fatal checks of the media foundation: what they let pass and what they say of the rest.
#define LOG_TAG "ADebugTest"

#include "media/stagefright/foundation/ADebug.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::AllOf;
using testing::HasSubstr;

/** The line that a check logs, with the place where it stands in this file. */
testing::Matcher<const std::string&> fatalLine(const std::string& text) {
    return AllOf(HasSubstr("ADebugTest F "), HasSubstr("ADebugTest.cpp:"), HasSubstr(text + "\n"));
}

int gEvaluated = 0;

int evaluate(int value) {
    ++gEvaluated;
    return value;
}

TEST(ADebugTest, LetsPassWhatIsTrueAndLooksAtItOnce) {
    gEvaluated = 0;
    CHECK(evaluate(1) == 1);
    CHECK_EQ(evaluate(1), 1);
    CHECK_NE(evaluate(1), 2);
    CHECK_LE(evaluate(1), 1);
    CHECK_LT(evaluate(1), 2);
    CHECK_GE(evaluate(1), 1);
    CHECK_GT(evaluate(1), 0);
    EXPECT_EQ(7, gEvaluated);
}

TEST(ADebugDeathTest, NamesTheConditionThatFailed) {
    const int frames = 3;
    EXPECT_DEATH(CHECK(frames == 4), fatalLine(" CHECK(frames == 4) failed."));
}

TEST(ADebugDeathTest, KeepsAConditionThatLooksLikeAFormatAsItIs) {
    const int frames = 3;
    EXPECT_DEATH(CHECK(frames % 2 == 0), fatalLine(" CHECK(frames % 2 == 0) failed."));
}

TEST(ADebugDeathTest, NamesBothValuesOfAComparison) {
    const int frames = 3;
    EXPECT_DEATH(CHECK_EQ(frames, 4), fatalLine(" CHECK_EQ( frames,4) failed: 3 vs. 4"));
    EXPECT_DEATH(CHECK_NE(frames, 3), fatalLine(" CHECK_NE( frames,3) failed: 3 vs. 3"));
    EXPECT_DEATH(CHECK_LE(frames, 2), fatalLine(" CHECK_LE( frames,2) failed: 3 vs. 2"));
    EXPECT_DEATH(CHECK_LT(frames, 3), fatalLine(" CHECK_LT( frames,3) failed: 3 vs. 3"));
    EXPECT_DEATH(CHECK_GE(frames, 4), fatalLine(" CHECK_GE( frames,4) failed: 3 vs. 4"));
    EXPECT_DEATH(CHECK_GT(frames, 3), fatalLine(" CHECK_GT( frames,3) failed: 3 vs. 3"));
    EXPECT_DEATH(CHECK_EQ(1.5, 2.5), fatalLine(" failed: 1.500000 vs. 2.500000"));
}

TEST(ADebugDeathTest, TellsWhereNothingShouldCome) {
    EXPECT_DEATH(TRESPASS("Not %s.", "even once"),
                 fatalLine(" Should not be here. Not even once."));
}

TEST(ABaseTest, AnArrayKnowsItsSize) {
    const int values[] = {1, 2, 3};
    EXPECT_EQ(3u, ARRAY_SIZE(values));
}

}  // namespace
