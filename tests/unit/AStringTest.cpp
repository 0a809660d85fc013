// SPDX-License-Identifier: Apache-2.0
#include "media/stagefright/foundation/AString.h"

#include <climits>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>
#include <utils/String8.h>

#include "support/LogRecorder.h"

namespace {

using android::AString;
using android::AStringPrintf;
using korvane::test::LogRecorder;

template <typename T>
std::string appended(T value) {
    AString text("=");
    text.append(value);
    return text.c_str();
}

TEST(AStringTest, IsEmptyAtFirst) {
    const AString text;
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(0u, text.size());
    EXPECT_STREQ("", text.c_str());
}

TEST(AStringTest, TakesNoTextForAnEmptyOneAndWarns) {
    LogRecorder log;
    EXPECT_TRUE(AString(static_cast<const char*>(nullptr)).empty());
    EXPECT_TRUE(log.has(ANDROID_LOG_WARN, "AString", "ctor got NULL, using empty string instead"));
}

TEST(AStringTest, IsMadeOfAllOrPartOfAText) {
    EXPECT_STREQ("text", AString("text").c_str());
    EXPECT_STREQ("te", AString("text", 2).c_str());
    EXPECT_EQ(3u, AString("a\0b", 3).size());
    EXPECT_STREQ("other", AString(android::String8("other")).c_str());
}

TEST(AStringTest, ClearsItsText) {
    AString text("text");
    text.clear();
    EXPECT_TRUE(text.empty());
}

TEST(AStringTest, AppendsTextsAndNumbers) {
    EXPECT_EQ("=text", appended("text"));
    EXPECT_EQ("=text", appended(AString("text")));
    EXPECT_EQ("=-2147483648", appended(INT_MIN));
    EXPECT_EQ("=4294967295", appended(UINT_MAX));
    EXPECT_EQ("=-9223372036854775808", appended(LONG_MIN));
    EXPECT_EQ("=18446744073709551615", appended(ULONG_MAX));
    EXPECT_EQ("=-9223372036854775808", appended(LLONG_MIN));
    EXPECT_EQ("=18446744073709551615", appended(ULLONG_MAX));
    EXPECT_EQ("=1.500000", appended(1.5f));
    EXPECT_EQ("=0.250000", appended(0.25));
    EXPECT_EQ("=0x10", appended(reinterpret_cast<void*>(uintptr_t{16})));
    AString text;
    text.append("text", 2);
    EXPECT_STREQ("te", text.c_str());
}

TEST(AStringTest, FindsWhereATextBegins) {
    const AString text("abcabc");
    EXPECT_EQ(1, text.find("bc"));
    EXPECT_EQ(4, text.find("bc", 2));
    EXPECT_EQ(-1, text.find("bc", 5));
    EXPECT_EQ(-1, text.find("cb"));
}

TEST(AStringTest, KnowsItsBeginningAndItsEnd) {
    const AString text("camera");
    EXPECT_TRUE(text.startsWith("cam"));
    EXPECT_TRUE(text.startsWith("camera"));
    EXPECT_FALSE(text.startsWith("camera2"));
    EXPECT_FALSE(text.startsWith("amera"));
    EXPECT_TRUE(text.endsWith("era"));
    EXPECT_TRUE(text.endsWith("camera"));
    EXPECT_FALSE(text.endsWith("a camera"));
    EXPECT_FALSE(text.endsWith("camer"));
}

TEST(AStringTest, ComparesAsItsBytesDo) {
    EXPECT_TRUE(AString("a") == AString("a"));
    EXPECT_TRUE(AString("a") != AString("b"));
    EXPECT_FALSE(AString("a") == AString("ab"));
    EXPECT_TRUE(AString("a") < AString("b"));
    EXPECT_FALSE(AString("a") < AString("a"));
    EXPECT_TRUE(AString("ab") > AString("a"));
    EXPECT_GT(AString("b").compare(AString("a")), 0);
    EXPECT_LT(AString("a").compare(AString("b")), 0);
    EXPECT_EQ(0, AString("a").compare(AString("a")));
}

TEST(AStringTest, FormatsAsPrintfDoes) {
    EXPECT_STREQ("7 of seven", AStringPrintf("%d of %s", 7, "seven").c_str());
    EXPECT_EQ(10000u, AStringPrintf("%10000d", 7).size());
}

}  // namespace
