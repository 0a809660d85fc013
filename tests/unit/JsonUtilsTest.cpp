// SPDX-License-Identifier: Apache-2.0
#include "JsonUtils.h"

#include <string>

#include <gtest/gtest.h>

#include "support/LogRecorder.h"

namespace {

using android::JsonUtils;
using korvane::test::LogLine;
using korvane::test::LogRecorder;

constexpr int kNameNotFound = -2;
constexpr int kBadValue = -22;
constexpr int kOverflow = -75;

class JsonUtilsTest : public testing::Test {
  protected:
    const rapidjson::Value& parse(const char* text) {
        mDocument.Parse(text);
        EXPECT_FALSE(mDocument.HasParseError()) << text;
        return mDocument;
    }

    // Reads member "x" into a value that a failing read has to reset or to keep.
    template <typename T>
    int read(const char* text, T* out, int index = -1) {
        return JsonUtils::parseValue(parse(text), "x", *out, index);
    }

    void expectOnlyLine(android_LogPriority priority, const std::string& message) {
        EXPECT_EQ((std::vector<LogLine>{{priority, "JsonUtils", message}}), mLog.lines());
    }

    void expectError(const std::string& message) { expectOnlyLine(ANDROID_LOG_ERROR, message); }

    LogRecorder mLog;
    rapidjson::Document mDocument;
};

TEST_F(JsonUtilsTest, FindsAMember) {
    const auto& object = parse(R"({"a":1,"x":{"y":2}})");
    int status = 99;
    const auto& value = JsonUtils::getValue(status, object, "x", -1);
    EXPECT_EQ(0, status);
    EXPECT_EQ(&object["x"], &value);
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(JsonUtilsTest, TakesAnyNegativeIndexForTheMemberItself) {
    const auto& object = parse(R"({"x":[1,2]})");
    int status = 99;
    EXPECT_EQ(&object["x"], &JsonUtils::getValue(status, object, "x", -7));
    EXPECT_EQ(0, status);
}

TEST_F(JsonUtilsTest, FindsTheElementsOfAnArray) {
    const auto& object = parse(R"({"x":[10,20]})");
    for (int index : {0, 1}) {
        int status = 99;
        EXPECT_EQ(&object["x"][index], &JsonUtils::getValue(status, object, "x", index));
        EXPECT_EQ(0, status);
    }
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(JsonUtilsTest, RefusesARootThatIsNoObject) {
    for (const char* text : {"[1]", "1", "\"x\"", "null", "true"}) {
        mLog.clear();
        const auto& root = parse(text);
        int status = 99;
        EXPECT_EQ(&root, &JsonUtils::getValue(status, root, "width", -1)) << text;
        EXPECT_EQ(kBadValue, status) << text;
        expectError("getValue: Error: JSON root is not an object, name: width");
    }
}

TEST_F(JsonUtilsTest, SaysNothingOfAMissingMember) {
    const auto& object = parse(R"({"y":1})");
    for (int index : {-1, 0}) {
        int status = 99;
        EXPECT_EQ(&object, &JsonUtils::getValue(status, object, "x", index));
        EXPECT_EQ(kNameNotFound, status);
    }
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(JsonUtilsTest, RefusesAnIndexAfterTheLastElement) {
    const auto& object = parse(R"({"x":[1,2]})");
    int status = 99;
    EXPECT_EQ(&object["x"], &JsonUtils::getValue(status, object, "x", 2));
    EXPECT_EQ(kOverflow, status);
    expectError("getValue: 'x' array insufficient size=2, index=2");
    mLog.clear();
    JsonUtils::getValue(status, object, "x", 5);
    expectError("getValue: 'x' array insufficient size=2, index=5");
}

TEST_F(JsonUtilsTest, RefusesAnyIndexIntoAnEmptyArray) {
    const auto& object = parse(R"({"x":[]})");
    int status = 99;
    JsonUtils::getValue(status, object, "x", 0);
    EXPECT_EQ(kOverflow, status);
    expectError("getValue: 'x' array insufficient size=0, index=0");
}

TEST_F(JsonUtilsTest, RefusesAnIndexIntoWhatIsNoArray) {
    const auto& object = parse(R"({"x":{"0":1}})");
    int status = 99;
    EXPECT_EQ(&object["x"], &JsonUtils::getValue(status, object, "x", 0));
    EXPECT_EQ(kNameNotFound, status);
    expectOnlyLine(ANDROID_LOG_DEBUG, "getValue: 'x' parameter not found, or is not an array");
}

TEST_F(JsonUtilsTest, ReadsBothBools) {
    bool out = false;
    EXPECT_EQ(0, read(R"({"x":true})", &out));
    EXPECT_TRUE(out);
    EXPECT_EQ(0, read(R"({"x":false})", &out));
    EXPECT_FALSE(out);
}

TEST_F(JsonUtilsTest, ReadsNothingButBoolsAsBool) {
    for (const char* text : {R"({"x":"a"})", R"({"x":1})", R"({"x":null})", R"({"x":[true]})"}) {
        mLog.clear();
        bool out = true;
        EXPECT_EQ(kBadValue, read(text, &out)) << text;
        EXPECT_FALSE(out) << text;
        expectError("parseValue: 'x' parameter is not of type bool");
    }
}

TEST_F(JsonUtilsTest, ReadsTheWholeRangeOfInts) {
    int out = 0;
    EXPECT_EQ(0, read(R"({"x":2147483647})", &out));
    EXPECT_EQ(2147483647, out);
    EXPECT_EQ(0, read(R"({"x":-2147483648})", &out));
    EXPECT_EQ(-2147483647 - 1, out);
}

TEST_F(JsonUtilsTest, ReadsNothingButIntsThatFitAsInt) {
    for (const char* text :
         {R"({"x":1.5})", R"({"x":1.0})", R"({"x":3000000000})", R"({"x":2147483648})",
          R"({"x":-2147483649})", R"({"x":"1"})", R"({"x":true})"}) {
        mLog.clear();
        int out = 5;
        EXPECT_EQ(kBadValue, read(text, &out)) << text;
        EXPECT_EQ(0, out) << text;
        expectError("parseValue: 'x' parameter is not of type int");
    }
}

TEST_F(JsonUtilsTest, ReadsAStringWholeWithItsNul) {
    std::string out = "before";
    EXPECT_EQ(0, read(R"({"x":"a\u0000b"})", &out));
    EXPECT_EQ(std::string("a\0b", 3), out);
    EXPECT_EQ(0, read(R"({"x":""})", &out));
    EXPECT_EQ("", out);
}

TEST_F(JsonUtilsTest, LeavesTheStringAloneWhenItFails) {
    std::string out = "before";
    EXPECT_EQ(kBadValue, read(R"({"x":1})", &out));
    expectError("parseValue: 'x' parameter is not of type String");
    EXPECT_EQ(kNameNotFound, read(R"({"y":1})", &out));
    EXPECT_EQ(kBadValue, read("[]", &out));
    EXPECT_EQ("before", out);
}

TEST_F(JsonUtilsTest, ReadsAnyNumberAsFloat) {
    float out = 0;
    EXPECT_EQ(0, read(R"({"x":30})", &out));
    EXPECT_EQ(30.0f, out);
    EXPECT_EQ(0, read(R"({"x":29.97})", &out));
    EXPECT_EQ(29.97f, out);
    EXPECT_EQ(0, read(R"({"x":-1})", &out));
    EXPECT_EQ(-1.0f, out);
    EXPECT_EQ(0, read(R"({"x":5000000000})", &out));
    EXPECT_EQ(5e9f, out);
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(JsonUtilsTest, PrintsZeroForWhatIsNoFloat) {
    for (const char* text : {R"({"x":"30"})", R"({"x":true})", R"({"x":{}})"}) {
        mLog.clear();
        float out = 5;
        EXPECT_EQ(kBadValue, read(text, &out)) << text;
        EXPECT_EQ(0.0f, out) << text;
        expectError("parseValue: x=0.000000 (real Value)");
    }
}

TEST_F(JsonUtilsTest, ZeroesNumbersAndBoolsOfAMissingMember) {
    bool flag = true;
    int number = 5;
    float real = 5;
    EXPECT_EQ(kNameNotFound, read("{}", &flag));
    EXPECT_EQ(kNameNotFound, read("{}", &number));
    EXPECT_EQ(kNameNotFound, read("{}", &real));
    EXPECT_FALSE(flag);
    EXPECT_EQ(0, number);
    EXPECT_EQ(0.0f, real);
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(JsonUtilsTest, ZeroesNumbersAndBoolsOfARootThatIsNoObject) {
    bool flag = true;
    int number = 5;
    float real = 5;
    EXPECT_EQ(kBadValue, read("[]", &flag));
    EXPECT_EQ(kBadValue, read("[]", &number));
    EXPECT_EQ(kBadValue, read("[]", &real));
    EXPECT_FALSE(flag);
    EXPECT_EQ(0, number);
    EXPECT_EQ(0.0f, real);
    EXPECT_EQ(3u, mLog.count(ANDROID_LOG_ERROR, "JsonUtils",
                             "getValue: Error: JSON root is not an object, name: x"));
    EXPECT_EQ(3u, mLog.lines().size());
}

TEST_F(JsonUtilsTest, ReadsElementsByTypeToo) {
    const char* text = R"({"x":[7,"seven",true,1.5]})";
    int number = 0;
    std::string string;
    bool flag = false;
    float real = 0;
    EXPECT_EQ(0, read(text, &number, 0));
    EXPECT_EQ(0, read(text, &string, 1));
    EXPECT_EQ(0, read(text, &flag, 2));
    EXPECT_EQ(0, read(text, &real, 3));
    EXPECT_EQ(7, number);
    EXPECT_EQ("seven", string);
    EXPECT_TRUE(flag);
    EXPECT_EQ(1.5f, real);
}

TEST_F(JsonUtilsTest, PassesOnTheStatusOfABadIndex) {
    int number = 5;
    EXPECT_EQ(kOverflow, read(R"({"x":[1]})", &number, 1));
    EXPECT_EQ(0, number);
    EXPECT_EQ(kNameNotFound, read(R"({"x":1})", &number, 0));
    std::string string = "before";
    EXPECT_EQ(kOverflow, read(R"({"x":["a"]})", &string, 1));
    EXPECT_EQ("before", string);
}

}  // namespace
