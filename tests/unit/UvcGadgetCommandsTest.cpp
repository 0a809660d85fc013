// SPDX-License-Identifier: Apache-2.0
// The texts between the controller and the clients of the service.

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <rapidjson/document.h>

#include "support/DaemonWorld.h"

namespace korvane::test {
namespace {

constexpr char kSuspend[] = R"({"stream-suspend":true})";

class UvcGadgetCommandsTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mWorld.available()) GTEST_SKIP() << mWorld.whyNot();
        mWorld.start();
    }

    size_t countError(const std::string& tag, const std::string& message) {
        return mWorld.log.count(ANDROID_LOG_ERROR, tag, message);
    }

    DaemonWorld mWorld;
};

TEST_F(UvcGadgetCommandsTest, AnObjectWithNoKnownMemberIsAnsweredOk) {
    EXPECT_EQ(mWorld.command("{}"), "OK_WEBCAM_HAL");
    EXPECT_EQ(mWorld.command(R"({"anything":1})"), "OK_WEBCAM_HAL");
}

TEST_F(UvcGadgetCommandsTest, ATextThatIsNoJsonIsAParseError) {
    EXPECT_EQ(mWorld.command("hello"), "PARSE_ERR");
    EXPECT_EQ(countError(DaemonWorld::kTag, "handleCommand: failed to parse command: err=3 at 0"),
              1u);
    EXPECT_EQ(mWorld.command(""), "PARSE_ERR");
    EXPECT_EQ(countError(DaemonWorld::kTag, "handleCommand: failed to parse command: err=1 at 0"),
              1u);
    EXPECT_EQ(mWorld.command(R"({"a":1)"), "PARSE_ERR");
    EXPECT_EQ(countError(DaemonWorld::kTag, "handleCommand: failed to parse command: err=6 at 6"),
              1u);
    EXPECT_EQ(mWorld.command("{} {}"), "PARSE_ERR");
    EXPECT_EQ(countError(DaemonWorld::kTag, "handleCommand: failed to parse command: err=2 at 3"),
              1u);
    EXPECT_EQ(mWorld.log.lines("JsonUtils").size(), 0u);
}

TEST_F(UvcGadgetCommandsTest, AMemberCountsOnlyInTheRoot) {
    EXPECT_EQ(mWorld.command(R"({"in":{"get-stream-config":1,"create-surface":{}}})"),
              "OK_WEBCAM_HAL");
    EXPECT_EQ(mWorld.command(R"(["get-stream-config"])"), "OK_WEBCAM_HAL");
}

TEST_F(UvcGadgetCommandsTest, ARootThatIsNoObjectIsAnsweredOkWithALineForEachLookUp) {
    EXPECT_EQ(mWorld.command("[1]"), "OK_WEBCAM_HAL");
    for (const char* name : {"get-stream-config", "create-surface", "stream-suspend"}) {
        EXPECT_EQ(countError("JsonUtils",
                             std::string("getValue: Error: JSON root is not an object, name: ") +
                                     name),
                  1u);
    }
}

TEST_F(UvcGadgetCommandsTest, ATextNestedHoweverDeepIsSurvived) {
    const size_t depth = 250000;
    EXPECT_EQ(mWorld.command(std::string(depth, '[')), "PARSE_ERR");
    EXPECT_EQ(mWorld.command(R"({"stream-suspend":)" + std::string(depth, '[') +
                             std::string(depth, ']') + "}"),
              "OK_WEBCAM_HAL");
}

TEST_F(UvcGadgetCommandsTest, ATextOfManyBracketsIsJudgedAsTheDefaultParserDoes) {
    const std::string many(300, '[');
    std::vector<std::string> texts;
    for (const char* begin :
         {"", "]", "}", ",", ":", "x", "\"", "-", "1", "null", " \t\r\n", " ]"}) {
        for (const char* end : {"", "]", "}", "1", "\"", "\\", ",]", "{", "{1", "{\"a\"", "{\"a\"]",
                                "{\"a\":]", "{\"a\":1", "{\"a\":1]", "{\"a\":1,}", "{}", "tru"}) {
            texts.push_back(begin + many + end);
            texts.push_back(begin + many + end + std::string(300, ']'));
            texts.push_back(std::string("{\"a\":") + begin + "[" + many + end);
        }
    }
    for (const std::string& text : texts) {
        rapidjson::Document expected;
        expected.Parse(text.c_str());
        mWorld.log.clear();
        EXPECT_EQ(mWorld.command(text), expected.HasParseError() ? "PARSE_ERR" : "OK_WEBCAM_HAL");
        const std::string line = "handleCommand: failed to parse command: err=" +
                                 std::to_string(expected.GetParseError()) + " at " +
                                 std::to_string(expected.GetErrorOffset());
        EXPECT_EQ(countError(DaemonWorld::kTag, line), expected.HasParseError() ? 1u : 0u) << text;
    }
    for (const char* first : {"]", "#"}) {
        mWorld.log.clear();
        EXPECT_EQ(mWorld.command(first + std::string(257, '[')), "PARSE_ERR");
        EXPECT_EQ(
                countError(DaemonWorld::kTag, "handleCommand: failed to parse command: err=3 at 0"),
                1u)
                << first;
    }
}

TEST_F(UvcGadgetCommandsTest, ATextThatOnlyLooksNestedIsSurvived) {
    const std::string many(250000, '[');
    EXPECT_EQ(mWorld.command("\"" + many + "\""), "OK_WEBCAM_HAL");
    EXPECT_EQ(mWorld.command("null " + many), "PARSE_ERR");
    EXPECT_EQ(mWorld.command(" \t\n\r" + many), "PARSE_ERR");
}

TEST_F(UvcGadgetCommandsTest, TheStreamConfigurationOfAYuyvStreamAsksForNv12) {
    mWorld.commit(1, 2);
    EXPECT_THAT(mWorld.command(R"({"get-stream-config":null})"),
                testing::StartsWith(R"({"width":1280,"height":720,"v4l2-format":"NV12","fps":)"));
}

TEST_F(UvcGadgetCommandsTest, TheFrameRateIsTheSinglePrecisionQuotientWidened) {
    mWorld.commit(1, 2, 333333);
    const std::string config = mWorld.command(R"({"get-stream-config":1})");
    const std::string name = R"("fps":)";
    const size_t value = config.find(name) + name.size();
    EXPECT_EQ(std::stod(config.substr(value)), 30.000030517578125);
}

TEST_F(UvcGadgetCommandsTest, TheStreamConfigurationOfACompressedStreamNamesItsFormat) {
    mWorld.commit(2, 1, 666666);
    EXPECT_EQ(mWorld.command(R"({"get-stream-config":{}})"),
              R"({"width":640,"height":480,"v4l2-format":"MJPG",)"
              R"("fps":15.000015258789063,"buffer-count":4})");
}

TEST_F(UvcGadgetCommandsTest, BeforeAnyProbeTheConfigurationIsTheFirstFrameAt15FramesASecond) {
    EXPECT_EQ(mWorld.command(R"({"get-stream-config":0})"),
              R"({"width":640,"height":480,"v4l2-format":"NV12",)"
              R"("fps":15.000015258789063,"buffer-count":4})");
}

TEST_F(UvcGadgetCommandsTest, AnIntervalOfZeroStillGivesJson) {
    mWorld.commit(1, 1, 0);
    EXPECT_EQ(mWorld.command(R"({"get-stream-config":0})"),
              R"({"width":640,"height":480,"v4l2-format":"NV12","fps":0.0,"buffer-count":4})");
}

TEST_F(UvcGadgetCommandsTest, OnlyTheFirstKnownMemberCounts) {
    mWorld.commit(2, 1);
    const std::string both = mWorld.command(R"({"create-surface":{},"get-stream-config":1})");
    EXPECT_EQ(both.substr(0, 9), R"({"width":)");
    EXPECT_EQ(mWorld.surface(), nullptr);
}

TEST_F(UvcGadgetCommandsTest, ASurfaceComesBeforeASuspension) {
    EXPECT_EQ(mWorld.command(R"({"stream-suspend":1,"create-surface":{}})"), "not streaming");
    EXPECT_TRUE(mWorld.log.lines("JsonUtils").empty());
}

TEST_F(UvcGadgetCommandsTest, TheNumberOfBuffersIsTheDevicesWhateverTheDriverGranted) {
    mWorld.node.setGrant(6);
    mWorld.commit(2, 1);
    mWorld.startStream();
    const std::string config = mWorld.command(R"({"get-stream-config":false})");
    EXPECT_THAT(config, testing::HasSubstr(R"("v4l2-format":"MJPG","fps":30.000030517578126,)"));
    EXPECT_THAT(config, testing::EndsWith(R"("buffer-count":4})"));
}

TEST_F(UvcGadgetCommandsTest, WithoutADeviceThereIsNoConfiguration) {
    mWorld.raiseRemove();
    mWorld.settle();
    EXPECT_EQ(mWorld.command(R"({"get-stream-config":1})"), "no v4l2 control");
    EXPECT_EQ(countError(DaemonWorld::kTag, "No video device is setup for webcam mode"), 1u);
}

TEST_F(UvcGadgetCommandsTest, SuspendingWithoutASurfaceIsAnsweredOk) {
    EXPECT_EQ(mWorld.command(kSuspend), "OK_WEBCAM_HAL");
    EXPECT_TRUE(mWorld.log.lines("JsonUtils").empty());
}

TEST_F(UvcGadgetCommandsTest, ASuspendThatIsNoBoolDoesNothing) {
    EXPECT_EQ(mWorld.command(R"({"stream-suspend":1})"), "OK_WEBCAM_HAL");
    EXPECT_EQ(countError("JsonUtils", "parseValue: 'stream-suspend' parameter is not of type bool"),
              1u);
}

TEST_F(UvcGadgetCommandsTest, AnEmptyReplyToTheStartHasTheLauncherStartTheWebcam) {
    const auto launcher = mWorld.addClient(1, "ignored");
    mWorld.streamClient = mWorld.addClient(3, "");
    mWorld.startStream();
    EXPECT_TRUE(launcher->waitFor(R"({"webcam-start":true})"));
}

TEST_F(UvcGadgetCommandsTest, TheLauncherIsToldAfterTheStreamClientAndOfStartsOnly) {
    std::vector<std::string> told;
    const auto noting = [&told](const std::string& kind) {
        return [&told, kind](const std::string& command) {
            told.push_back(kind + " " + command);
            return "";
        };
    };
    const auto launcher = mWorld.addClient(1, noting("1"));
    mWorld.streamClient = mWorld.addClient(3, noting("3"));
    mWorld.startStream();
    ASSERT_TRUE(launcher->waitForCount(1));
    mWorld.stopStream();
    EXPECT_THAT(told, testing::ElementsAre(std::string("3 ") + DaemonWorld::kStart,
                                           R"(1 {"webcam-start":true})",
                                           std::string("3 ") + DaemonWorld::kStop));
}

TEST_F(UvcGadgetCommandsTest, AStreamClientThatCannotBeReachedIsAsGoodAsNone) {
    const auto launcher = mWorld.addClient(1, "ignored");
    mWorld.streamClient->failCommands(
            ::android::hardware::Status::fromStatusT(::android::DEAD_OBJECT));
    mWorld.startStream();
    EXPECT_TRUE(launcher->waitFor(R"({"webcam-start":true})"));
}

TEST_F(UvcGadgetCommandsTest, AnyReplyToTheStartLeavesTheLauncherAlone) {
    const auto launcher = mWorld.addClient(1, "ignored");
    mWorld.startStream();
    mWorld.stopStream();
    EXPECT_TRUE(launcher->commands().empty());
}

TEST_F(UvcGadgetCommandsTest, AReplyEndsAtItsFirstNul) {
    const auto launcher = mWorld.addClient(1, "ignored");
    mWorld.streamClient = mWorld.addClient(3, std::string("\0in charge", 10));
    mWorld.startStream();
    EXPECT_TRUE(launcher->waitFor(R"({"webcam-start":true})"));
}

TEST_F(UvcGadgetCommandsTest, WithoutAStreamClientTheLauncherStartsTheWebcam) {
    (void)mWorld.service
            ->registerCallback(static_cast<korvane::hardware::camera::desktop::V2_0::ClientType>(3),
                               nullptr)
            .isOk();
    const auto launcher = mWorld.addClient(1, "ignored");
    mWorld.node.sendEvent(UVC_EVENT_STREAMON);
    EXPECT_TRUE(launcher->waitFor(R"({"webcam-start":true})"));
}

TEST_F(UvcGadgetCommandsTest, AClientMayAskBackFromWithinTheStart) {
    std::string config;
    mWorld.commit(2, 1);
    mWorld.streamClient = mWorld.addClient(3, [&](const std::string&) {
        config = mWorld.command(R"({"get-stream-config":1})");
        return "asked";
    });
    mWorld.startStream();
    mWorld.stopStream();
    EXPECT_EQ(config.substr(0, 9), R"({"width":)");
}

TEST_F(UvcGadgetCommandsTest, AClientMayAskBackFromWithinTheStopOfARemovedNode) {
    std::string config;
    mWorld.startStream();
    mWorld.addClient(3, [&](const std::string&) {
        config = mWorld.command(R"({"get-stream-config":1})");
        return "";
    });
    mWorld.raiseRemove();
    ASSERT_TRUE(mWorld.node.waitForCalls("close", 2));
    EXPECT_EQ(config.substr(0, 9), R"({"width":)");
}

TEST_F(UvcGadgetCommandsTest, AClientMayAskBackFromWithinTheStopOfADisconnectedCable) {
    std::string config;
    mWorld.startStream();
    mWorld.addClient(3, [&](const std::string&) {
        config = mWorld.command(R"({"get-stream-config":1})");
        return "";
    });
    mWorld.raiseDisconnected();
    ASSERT_TRUE(mWorld.node.waitForCalls("close", 2));
    EXPECT_EQ(config.substr(0, 9), R"({"width":)");
}

// --- A client that never answers ---

class SilentClientTest : public UvcGadgetCommandsTest {
  protected:
    static constexpr char kFailed[] = "setCommandTo: Failed during binder call, isDead 0";

    ~SilentClientTest() override { letAnswer(); }

    void registerSilentClient() {
        mWorld.streamClient = mWorld.addClient(3, [gate = mGate](const std::string&) {
            std::unique_lock<std::mutex> guard(gate->lock);
            gate->changed.wait(guard, [&] { return gate->isOpen; });
            return "late";
        });
    }
    void letAnswer() {
        const std::lock_guard<std::mutex> guard(mGate->lock);
        mGate->isOpen = true;
        mGate->changed.notify_all();
    }
    // Its event has failed when this returns.
    void startStreamInVain() {
        mWorld.waits.stepOverNextFuture();
        mWorld.node.sendEvent(UVC_EVENT_STREAMON);
        ASSERT_TRUE(mWorld.waitLog(ANDROID_LOG_ERROR, kFailed));
        mWorld.waits.stepOverNextFuture(false);
        ASSERT_TRUE(mWorld.streamClient->waitFor(DaemonWorld::kStart));
    }

  private:
    // The client may still be in it when the test has ended.
    struct Gate {
        std::mutex lock;
        std::condition_variable changed;
        bool isOpen = false;
    };
    const std::shared_ptr<Gate> mGate = std::make_shared<Gate>();
};

TEST_F(SilentClientTest, HoldsUpNeitherTheHostNorTheStreamsEnd) {
    registerSilentClient();
    startStreamInVain();
    mWorld.commit(2, 1);
    EXPECT_EQ(mWorld.command(R"({"create-surface":{"width":640,"height":480,"consumer-usage":3,)"
                             R"("v4l2-format":"MJPG","fps":30}})"),
              "");
    mWorld.stopStream();
    EXPECT_EQ(mWorld.surface(), nullptr);
    EXPECT_THAT(mWorld.streamClient->commands(), testing::ElementsAre(DaemonWorld::kStart));
    EXPECT_EQ(countError(DaemonWorld::kTag, kFailed), 2u);  // the stop at once
}

TEST_F(SilentClientTest, IsTakenForNoneByTheStart) {
    const auto launcher = mWorld.addClient(1, "ignored");
    registerSilentClient();
    startStreamInVain();
    EXPECT_TRUE(launcher->waitFor(R"({"webcam-start":true})"));
    EXPECT_EQ(countError(DaemonWorld::kTag, kFailed), 1u);
}

TEST_F(SilentClientTest, IsToldAgainOnceItHasAnswered) {
    registerSilentClient();
    startStreamInVain();
    mWorld.stopStream();
    letAnswer();
    while (mWorld.streamClient->commands().size() == 1) {
        mWorld.node.sendEvent(UVC_EVENT_STREAMON);
        mWorld.stopStream();
    }
}

TEST_F(SilentClientTest, IsReplacedByTheNextToRegister) {
    registerSilentClient();
    startStreamInVain();
    const auto next = mWorld.addClient(3, "in charge");
    mWorld.stopStream();
    EXPECT_TRUE(next->waitFor(DaemonWorld::kStop));
}

TEST_F(SilentClientTest, IsForgottenWhenItDies) {
    registerSilentClient();
    startStreamInVain();
    mWorld.log.clear();
    mWorld.streamClient->die();
    mWorld.stopStream();
    mWorld.commit(1, 1);  // done with the stop
    EXPECT_EQ(countError(DaemonWorld::kTag, kFailed), 0u);
}

}  // namespace
}  // namespace korvane::test
