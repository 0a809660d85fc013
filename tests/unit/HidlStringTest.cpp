// SPDX-License-Identifier: Apache-2.0
#include "hidl/HidlString.h"

#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace android {
namespace hardware {
namespace {

TEST(HidlStringTest, IsEmptyWhenMadeFromNothing) {
    for (const hidl_string& string :
         {hidl_string(), hidl_string(nullptr), hidl_string(""), hidl_string(nullptr, 0)}) {
        EXPECT_EQ(0u, string.size());
        EXPECT_TRUE(string.empty());
        EXPECT_STREQ("", string.c_str());
    }
}

TEST(HidlStringTest, OwnsACopyOfItsText) {
    std::string source = "text";
    const hidl_string string(source);
    source[0] = 'x';
    EXPECT_STREQ("text", string.c_str());
    EXPECT_EQ(4u, string.size());
}

TEST(HidlStringTest, CopiesAreIndependent) {
    hidl_string first("first");
    const hidl_string second(first);
    first = "changed";
    EXPECT_STREQ("first", second.c_str());
    EXPECT_NE(first.c_str(), second.c_str());
}

TEST(HidlStringTest, CopyOfABorrowedTextIsItsOwn) {
    char text[] = "text";
    hidl_string borrowed;
    borrowed.setToExternal(text, 4);
    const hidl_string copy(borrowed);
    text[0] = 'n';
    EXPECT_STREQ("next", borrowed.c_str());
    EXPECT_STREQ("text", copy.c_str());
}

TEST(HidlStringTest, IsEmptyOnceMovedFrom) {
    hidl_string source("text");
    const char* const buffer = source.c_str();
    hidl_string target(std::move(source));
    EXPECT_EQ(buffer, target.c_str());
    EXPECT_TRUE(source.empty());  // NOLINT: what a moved-from string is, is the test
    EXPECT_STREQ("", source.c_str());

    hidl_string another("before");
    another = std::move(target);
    EXPECT_EQ(buffer, another.c_str());
    EXPECT_TRUE(target.empty());  // NOLINT
}

TEST(HidlStringTest, CanBeAssignedAPartOfItself) {
    hidl_string string("prefix-text");
    string = string.c_str() + 7;
    EXPECT_STREQ("text", string.c_str());
    const hidl_string& alias = string;
    string = alias;
    EXPECT_STREQ("text", string.c_str());
    hidl_string& movable = string;
    string = std::move(movable);
    EXPECT_STREQ("text", string.c_str());
}

TEST(HidlStringTest, AssigningNullEmptiesIt) {
    hidl_string string("text");
    string = static_cast<const char*>(nullptr);
    EXPECT_TRUE(string.empty());
    EXPECT_STREQ("", string.c_str());
}

TEST(HidlStringTest, KeepsInnerNulsAsAStdString) {
    const std::string text("a\0b", 3);
    const hidl_string string(text);
    EXPECT_EQ(3u, string.size());
    EXPECT_EQ(text, std::string(string));
}

TEST(HidlStringTest, ComparesUpToTheFirstNul) {
    EXPECT_TRUE(hidl_string("a\0b", 3) == hidl_string("a\0c", 3));
    EXPECT_TRUE(hidl_string("a\0b", 3) == "a");
    EXPECT_FALSE(hidl_string("a\0b", 3) != "a");
    EXPECT_TRUE(hidl_string("a") < hidl_string("b"));
    EXPECT_TRUE(hidl_string("a") <= hidl_string("a"));
    EXPECT_TRUE(hidl_string("b") > hidl_string("a"));
    EXPECT_TRUE(hidl_string("b") >= hidl_string("b"));
    EXPECT_TRUE("b" != hidl_string("a"));
    EXPECT_TRUE("a" == hidl_string("a\0b", 3));
    EXPECT_FALSE("b" == hidl_string("a"));
    EXPECT_TRUE(hidl_string("a") != hidl_string("b"));
    EXPECT_FALSE(hidl_string("a\0b", 3) != hidl_string("a"));
}

TEST(HidlStringTest, EqualsNoNullPointer) {
    const char* const null = nullptr;
    EXPECT_FALSE(hidl_string() == null);
    EXPECT_TRUE(hidl_string() != null);
}

TEST(HidlStringTest, BorrowsWithoutCopying) {
    const char text[] = "text";
    hidl_string string("owned");
    string.setToExternal(text, 4);
    EXPECT_EQ(text, string.c_str());
    EXPECT_EQ(4u, string.size());
    string.clear();
    EXPECT_STREQ("text", text);
}

TEST(HidlStringDeathTest, BorrowsNothingWithoutANul) {
    hidl_string string;
    EXPECT_DEATH(string.setToExternal("text", 3), "without a NUL");
}

TEST(HidlStringDeathTest, RefusesFourGibibytes) {
    EXPECT_DEATH(hidl_string("", 0xffffffffu), "4 GiB");
}

}  // namespace
}  // namespace hardware
}  // namespace android
