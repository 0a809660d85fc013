// SPDX-License-Identifier: Apache-2.0
// The fields of "create-surface": which are missing, which are of a wrong type, and the format's
// code.
#include "uvc/SurfaceRequest.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <rapidjson/document.h>

#include "support/LogRecorder.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

using test::LogLine;
using test::LogRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

class SurfaceRequestTest : public testing::Test {
  protected:
    // What read() says of a text with these members; "" when nothing is missing.
    std::string read(const std::string& members) {
        rapidjson::Document document;
        document.Parse(("{" + members + "}").c_str());
        EXPECT_FALSE(document.HasParseError()) << members;
        mRequest = {};
        const char* refusal = mRequest.read(document);
        return refusal == nullptr ? "" : refusal;
    }

    // The code that a format's text, in JSON's spelling, gets.
    uint32_t fourccOf(const std::string& format) {
        EXPECT_EQ("", read(R"("width":1,"height":1,"consumer-usage":0,"fps":1,"v4l2-format":")" +
                           format + "\""));
        return mRequest.fourcc();
    }

    LogRecorder mLog;
    SurfaceRequest mRequest;
};

LogLine wrongType(const std::string& field, const std::string& type) {
    return {ANDROID_LOG_ERROR, "JsonUtils",
            "parseValue: '" + field + "' parameter is not of type " + type};
}

LogLine wrongLength() {
    return {ANDROID_LOG_ERROR, "UVC-GadgetHandler",
            "input format isn't a valid v4l2_fourcc length"};
}

TEST_F(SurfaceRequestTest, TakesEveryFieldAsItIs) {
    EXPECT_EQ("", read(R"("fps":29.5,"v4l2-format":"NV12","consumer-usage":51,)"
                       R"("height":-720,"width":1280,"more":0)"));
    EXPECT_EQ(1280, mRequest.width);
    EXPECT_EQ(-720, mRequest.height);
    EXPECT_EQ(51, mRequest.consumerUsage);
    EXPECT_EQ(0x3231564Eu, mRequest.fourcc());
    EXPECT_EQ(29.5f, mRequest.fps);
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(SurfaceRequestTest, TakesAWholeNumberOfFramesToo) {
    EXPECT_EQ("", read(R"("fps":30,"v4l2-format":"NV12","consumer-usage":0,"height":1,"width":1)"));
    EXPECT_EQ(30.0f, mRequest.fps);
}

TEST_F(SurfaceRequestTest, NamesTheFirstFieldThatIsMissing) {
    std::string members = R"("more":0)";
    EXPECT_EQ("width missing", read(members));
    EXPECT_EQ("height missing", read(members += R"(,"width":640)"));
    EXPECT_EQ("consumer usage missing", read(members += R"(,"height":480)"));
    EXPECT_EQ("format missing", read(members += R"(,"consumer-usage":0)"));
    EXPECT_EQ("fps missing", read(members += R"(,"v4l2-format":"NV12")"));
    EXPECT_EQ("", read(members += R"(,"fps":30)"));
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(SurfaceRequestTest, TakesAFieldOfAWrongTypeForMissing) {
    std::string members = R"("more":0)";
    for (const std::string value : {"\"640\"", "640.5", "null", "true", "[640]", "4294967296"}) {
        EXPECT_EQ("width missing", read(members + R"(,"width":)" + value)) << value;
    }
    members += R"(,"width":640)";
    EXPECT_EQ("height missing", read(members + R"(,"height":"480")"));
    members += R"(,"height":480)";
    EXPECT_EQ("consumer usage missing", read(members + R"(,"consumer-usage":0.5)"));
    members += R"(,"consumer-usage":0)";
    EXPECT_EQ("format missing", read(members + R"(,"v4l2-format":842094158)"));
    members += R"(,"v4l2-format":"NV12")";
    EXPECT_EQ("fps missing", read(members + R"(,"fps":"30")"));
}

TEST_F(SurfaceRequestTest, AWrongTypeIsLogged) {
    read(R"("width":"640")");
    read(R"("width":1,"height":1,"consumer-usage":0,"v4l2-format":1)");
    EXPECT_THAT(mLog.lines(),
                ElementsAre(wrongType("width", "int"), wrongType("v4l2-format", "String")));
}

TEST_F(SurfaceRequestTest, ValuesThatAreNoObjectHaveNoField) {
    rapidjson::Document document;
    for (const char* text : {"7", "[1]", "null", "\"width\""}) {
        document.Parse(text);
        EXPECT_STREQ("width missing", mRequest.read(document)) << text;
    }
    EXPECT_EQ(4u, mLog.count(ANDROID_LOG_ERROR, "JsonUtils",
                             "getValue: Error: JSON root is not an object, name: width"));
}

// --- The format's code ---

TEST_F(SurfaceRequestTest, TheCodesFirstCharacterIsItsLowestByte) {
    EXPECT_EQ(0x47504A4Du, fourccOf("MJPG"));
    EXPECT_EQ(0x64636261u, fourccOf("abcd"));
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(SurfaceRequestTest, ALongerTextIsCutSilently) {
    EXPECT_EQ(0x3231564Eu, fourccOf("NV12 and more"));
    EXPECT_EQ(0x3231564Eu, fourccOf("NV121"));
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(SurfaceRequestTest, ATextTooShortForACodeIsLoggedAndMeansNone) {
    for (const char* text : {"", "N", "NV1"}) {
        mLog.clear();
        EXPECT_EQ(0u, fourccOf(text)) << text;
        EXPECT_THAT(mLog.lines(), ElementsAre(wrongLength()));
    }
}

TEST_F(SurfaceRequestTest, ALengthIsCountedInBytesOfAnyValue) {
    EXPECT_EQ(0xA9C3A9C3u, fourccOf("\xC3\xA9\xC3\xA9"));
    EXPECT_EQ(0x32310000u, fourccOf(R"(\u0000\u000012)"));
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(SurfaceRequestTest, ATextTooShortIsNotLookedAtBeforeEveryFieldIsThere) {
    EXPECT_EQ("fps missing",
              read(R"("width":1,"height":1,"consumer-usage":0,"v4l2-format":"NV1")"));
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

}  // namespace
}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
