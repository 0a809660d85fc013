// SPDX-License-Identifier: Apache-2.0
#include "uvc/ConfigfsAttribute.h"

#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/LogRecorder.h"
#include "support/PrivateFiles.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

using test::LogLine;
using test::LogRecorder;
using test::PrivateFiles;

constexpr char kPath[] = "/config/attribute";

class ConfigfsAttributeTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mFiles.available()) GTEST_SKIP() << mFiles.whyNot();
    }

    uint32_t readUnsigned(const std::string& content) {
        mFiles.write(kPath, content);
        return readUnsignedAttribute(kPath);
    }

    int readInt(const std::string& content) {
        mFiles.write(kPath, content);
        return readIntAttribute(kPath);
    }

    std::vector<uint32_t> readLines(const std::string& content) {
        mFiles.write(kPath, content);
        return readUnsignedLines(kPath);
    }

    void expectOnlyLine(const std::string& message) {
        EXPECT_EQ((std::vector<LogLine>{{ANDROID_LOG_ERROR, "UVC-Config", message}}), mLog.lines());
    }

    PrivateFiles mFiles;
    LogRecorder mLog;
};

TEST_F(ConfigfsAttributeTest, KeepsEveryByteOfAText) {
    const std::string bytes("NV12\0\0\x10\0\x80\0\0\xaa\0\n\n", 15);
    mFiles.write(kPath, bytes);
    EXPECT_EQ(bytes, readAttribute(kPath));
}

TEST_F(ConfigfsAttributeTest, ReadsAMissingFileAsEmpty) {
    EXPECT_EQ("", readAttribute(kPath));
    EXPECT_TRUE(readUnsignedLines(kPath).empty());
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(ConfigfsAttributeTest, ReadsAFileThatCannotBeReadAsEmpty) {
    mFiles.makeDirectory(kPath);
    EXPECT_EQ("", readAttribute(kPath));
}

TEST_F(ConfigfsAttributeTest, ReadsADecimalNumberUpToTheFirstNonDigit) {
    EXPECT_EQ(336u, readUnsigned("336\n"));
    EXPECT_EQ(336u, readUnsigned("336"));
    EXPECT_EQ(12u, readUnsigned(" \t\n12 13"));
    EXPECT_EQ(7u, readUnsigned("7seven"));
    EXPECT_EQ(10u, readUnsigned("0010"));
    EXPECT_EQ(16, readInt("16\n"));
    EXPECT_EQ(-8, readInt("-8\n"));
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(ConfigfsAttributeTest, ReadsAHexadecimalNumberAsZero) {
    EXPECT_EQ(0u, readUnsigned("0x0150\n"));
    EXPECT_EQ(0, readInt("0x10\n"));
}

TEST_F(ConfigfsAttributeTest, KeepsTheLower32BitsOfANumber) {
    EXPECT_EQ(4294967295u, readUnsigned("4294967295"));
    EXPECT_EQ(1u, readUnsigned("4294967297"));
    EXPECT_EQ(4294967295u, readUnsigned("-1"));
}

TEST_F(ConfigfsAttributeTest, SaysWhichAttributeIsMissingBeforeItThrows) {
    EXPECT_THROW(readUnsignedAttribute(kPath), std::invalid_argument);
    expectOnlyLine(
            "/config/attribute: no usable number in \"\" (No such file or directory), cannot go "
            "on");
    mLog.clear();
    EXPECT_THROW(readIntAttribute(kPath), std::invalid_argument);
    expectOnlyLine(
            "/config/attribute: no usable number in \"\" (No such file or directory), cannot go "
            "on");
}

TEST_F(ConfigfsAttributeTest, ShowsTheContentThatIsNoNumberBeforeItThrows) {
    EXPECT_THROW(readUnsigned("off\n"), std::invalid_argument);
    expectOnlyLine(
            "/config/attribute: no usable number in \"off\n\" (it does not begin with a decimal "
            "digit), cannot go on");
    mLog.clear();
    EXPECT_THROW(readInt(""), std::invalid_argument);
    expectOnlyLine(
            "/config/attribute: no usable number in \"\" (it does not begin with a decimal digit), "
            "cannot go on");
}

TEST_F(ConfigfsAttributeTest, SaysThatANumberIsOutOfRangeBeforeItThrows) {
    EXPECT_THROW(readUnsigned("99999999999999999999999"), std::out_of_range);
    expectOnlyLine(
            "/config/attribute: no usable number in \"99999999999999999999999\" (it is out of "
            "range), cannot go on");
    for (const char* text : {"2147483648", "-2147483649", "99999999999999999999999"}) {
        mLog.clear();
        EXPECT_THROW(readInt(text), std::out_of_range) << text;
        expectOnlyLine(std::string("/config/attribute: no usable number in \"") + text +
                       "\" (it is out of range), cannot go on");
    }
}

TEST_F(ConfigfsAttributeTest, TakesNoLetterForADigit) {
    EXPECT_THROW(readUnsigned("a1\n"), std::invalid_argument);
    EXPECT_THROW(readInt("a1\n"), std::invalid_argument);
    const LogLine line{ANDROID_LOG_ERROR, "UVC-Config",
                       "/config/attribute: no usable number in \"a1\n\" (it does not begin with a "
                       "decimal digit), cannot go on"};
    EXPECT_EQ((std::vector<LogLine>{line, line}), mLog.lines());
}

TEST_F(ConfigfsAttributeTest, TakesEveryNumberThatAnIntHolds) {
    EXPECT_EQ(2147483647, readInt("2147483647\n"));
    EXPECT_EQ(-2147483647 - 1, readInt("-2147483648\n"));
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(ConfigfsAttributeTest, ReadsOneNumberALine) {
    EXPECT_EQ((std::vector<uint32_t>{333333, 666666}), readLines("333333\n666666\n"));
    EXPECT_EQ((std::vector<uint32_t>{666666, 333333}), readLines("666666\n333333\n"));
}

TEST_F(ConfigfsAttributeTest, CountsALastLineWithoutItsNewline) {
    EXPECT_EQ((std::vector<uint32_t>{333333, 666666}), readLines("333333\n666666"));
}

TEST_F(ConfigfsAttributeTest, FindsNoLinesInAnEmptyFile) {
    EXPECT_TRUE(readLines("").empty());
}

TEST_F(ConfigfsAttributeTest, SaysWhichLineIsNoNumberBeforeItThrows) {
    EXPECT_THROW(readLines("333333\n\n666666\n"), std::invalid_argument);
    expectOnlyLine(
            "line 2 of /config/attribute: no usable number in \"\" (it does not begin with a "
            "decimal digit), cannot go on");
    mLog.clear();
    EXPECT_THROW(readLines("fast\n"), std::invalid_argument);
    expectOnlyLine(
            "line 1 of /config/attribute: no usable number in \"fast\" (it does not begin with a "
            "decimal digit), cannot go on");
}

}  // namespace
}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
