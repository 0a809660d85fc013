// SPDX-License-Identifier: Apache-2.0
// The camera's connection to a service whose calls fail, and what the service is answered.
#include "desktop-camera/ServiceConnection.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/LocalServices.h"
#include "support/LogRecorder.h"
#include "support/StubDesktop.h"
#include "support/StubProducer.h"

namespace korvane::camera {
namespace {

using ::android::sp;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_string;
using ::android::hardware::Status;
using test::LogLine;

/** A service whose calls fail as the test says. */
class FailingService : public test::StubDesktop {
  public:
    Return<bool> linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t) override {
        mourner = recipient;
        if (refusedLinks > 0) return --refusedLinks, false;
        if (failedLinks > 0) return --failedLinks, failure<bool>();
        return true;
    }
    Return<void> registerCallback(ClientType type, const Callback& callback) override {
        if (failedRegistrations > 0) return --failedRegistrations, failure<void>();
        return StubDesktop::registerCallback(type, callback);
    }
    Return<void> sendCommand(ClientType type, const hidl_string& command,
                             sendCommand_cb reply) override {
        sentTo = type;
        return dead ? failure<void>() : StubDesktop::sendCommand(type, command, reply);
    }
    Return<SurfaceV1> getSurface(ClientType type) override {
        return dead ? failure<SurfaceV1>() : StubDesktop::getSurface(type);
    }

    int refusedLinks = 0;
    int failedLinks = 0;
    int failedRegistrations = 0;
    bool dead = false;
    ClientType sentTo{};
    sp<hidl_death_recipient> mourner;

  private:
    template <typename T>
    static Return<T> failure() {
        return Return<T>(Status::fromStatusT(android::DEAD_OBJECT));
    }
};

class ServiceConnectionTest : public testing::Test {
  protected:
    ServiceConnectionTest() { mServices.provide("default", mService); }

    // The lines that tell of something wrong.
    std::vector<LogLine> complaints() const {
        std::vector<LogLine> found;
        for (const LogLine& line : mLog.lines("desktop-camera")) {
            if (line.priority > ANDROID_LOG_INFO) found.push_back(line);
        }
        return found;
    }

    // Whether there is one complaint, which begins so: how a status is described is the runtime's.
    bool complainsOnce(const std::string& start) const {
        const auto lines = complaints();
        return lines.size() == 1 && lines[0].priority == ANDROID_LOG_ERROR &&
               lines[0].message.find(start) == 0;
    }

    std::string tell(const std::string& command) {
        std::string reply = "no reply";
        mService->callbacks[ClientType::STREAM]->onCommand(
                command, [&](const hidl_string& given) { reply = given; });
        return reply;
    }

    test::LogRecorder mLog;
    test::LocalServices mServices;
    const sp<FailingService> mService = new FailingService;
    StreamDemand mDemand;
    CameraStatus mStatus;
    ServiceConnection mConnection{mDemand, mStatus, {ClientType::STREAM, ClientType::LAUNCHER}};
};

TEST_F(ServiceConnectionTest, RegistersOneCallbackUnderAllItsKinds) {
    EXPECT_TRUE(mConnection.connect());
    ASSERT_EQ(2u, mService->callbacks.size());
    EXPECT_EQ(mService->callbacks[ClientType::STREAM], mService->callbacks[ClientType::LAUNCHER]);
    EXPECT_TRUE(complaints().empty());
}

TEST_F(ServiceConnectionTest, TriesAgainWhenItCannotFollowTheServicesDeath) {
    mService->refusedLinks = 1;
    EXPECT_TRUE(mConnection.connect());
    EXPECT_TRUE(complainsOnce("cannot watch the desktop-camera service"));
    EXPECT_EQ(2, mServices.lookUps());
}

TEST_F(ServiceConnectionTest, TriesAgainWhenTheServiceIsDeadAlready) {
    mService->failedLinks = 1;
    EXPECT_TRUE(mConnection.connect());
    EXPECT_TRUE(complainsOnce("cannot watch the desktop-camera service"));
    EXPECT_EQ(2, mServices.lookUps());
}

TEST_F(ServiceConnectionTest, TriesAgainWhenItCannotRegister) {
    mService->failedRegistrations = 1;
    EXPECT_TRUE(mConnection.connect());
    EXPECT_TRUE(complainsOnce("cannot register: "));
    EXPECT_EQ(2u, mService->callbacks.size());
}

TEST_F(ServiceConnectionTest, GivesUpWhenTheProgramEnds) {
    mService->refusedLinks = 1000000;
    mDemand.quit();
    EXPECT_FALSE(mConnection.connect());
    EXPECT_EQ(1, mServices.lookUps());
}

TEST_F(ServiceConnectionTest, SendsCommandsToTheWebcamController) {
    ASSERT_TRUE(mConnection.connect());
    EXPECT_EQ("echo", mConnection.command("echo"));
    EXPECT_EQ(ClientType::WEBCAM_CONTROLLER, mService->sentTo);
}

TEST_F(ServiceConnectionTest, TellsASilentServiceFromAnEmptyReply) {
    ASSERT_TRUE(mConnection.connect());
    EXPECT_EQ("", mConnection.command(""));
    EXPECT_TRUE(complaints().empty());
    mService->dead = true;
    EXPECT_EQ(std::nullopt, mConnection.command("echo"));
    EXPECT_TRUE(complainsOnce("cannot send a command: "));
}

TEST_F(ServiceConnectionTest, TakesTheControllersSurface) {
    ASSERT_TRUE(mConnection.connect());
    EXPECT_EQ(nullptr, mConnection.surface());
    mService->surfaces[ClientType::STREAM] = new test::StubProducer;
    EXPECT_EQ(nullptr, mConnection.surface());
    mService->surfaces[ClientType::WEBCAM_CONTROLLER] = new test::StubProducer;
    EXPECT_NE(nullptr, mConnection.surface());
    EXPECT_TRUE(complaints().empty());
}

TEST_F(ServiceConnectionTest, HasNoSurfaceOfADeadService) {
    ASSERT_TRUE(mConnection.connect());
    mService->surfaces[ClientType::WEBCAM_CONTROLLER] = new test::StubProducer;
    mService->dead = true;
    EXPECT_EQ(nullptr, mConnection.surface());
    EXPECT_TRUE(complainsOnce("cannot get the surface: "));
}

TEST_F(ServiceConnectionTest, SaysThatTheServiceHasDied) {
    ASSERT_TRUE(mConnection.connect());
    mService->mourner->serviceDied(0, nullptr);
    EXPECT_EQ((std::vector<LogLine>{
                      {ANDROID_LOG_WARN, "desktop-camera", "the desktop-camera service has died"}}),
              complaints());
    uint64_t stream = 0;
    EXPECT_EQ(StreamDemand::Work::RECONNECT, mDemand.waitForWork(&stream));
}

TEST_F(ServiceConnectionTest, AnswersWhoAsksForTheCamerasStatus) {
    ASSERT_TRUE(mConnection.connect());
    mLog.clear();
    EXPECT_EQ(R"({"streaming":false})", tell(R"({"get-camera-status":true})"));
    mStatus.begin({"NV12", 640, 480, 30});
    EXPECT_EQ(R"({"streaming":true,"format":"NV12","width":640,"height":480,)"
              R"("notice":"starting","text":""})",
              tell(R"({"get-camera-status":1})"));
    mStatus.setTrouble({testcard::Notice::ABSENT, "no \"such\" device"});
    EXPECT_EQ(R"({"streaming":true,"format":"NV12","width":640,"height":480,)"
              R"("notice":"absent","text":"no \"such\" device"})",
              tell(R"({"get-camera-status":true})"));
    mStatus.end();
    EXPECT_EQ(R"({"streaming":false})", tell(R"({"get-camera-status":true})"));
    EXPECT_TRUE(mLog.lines().empty()) << "being asked is no event";
}

TEST_F(ServiceConnectionTest, TakesChargeOfTheCameraAtAStart) {
    ASSERT_TRUE(mConnection.connect());
    uint64_t stream = 0;
    for (const char* start : {R"({"event":"stream-start"})", R"({"webcam-start":true})"}) {
        EXPECT_EQ(CameraCallback::kTaken, tell(start));
        ASSERT_EQ(StreamDemand::Work::STREAM, mDemand.waitForWork(&stream));
        EXPECT_TRUE(mDemand.isWanted(stream));
    }
    EXPECT_EQ("", tell("{}"));
    EXPECT_EQ("", tell("hello"));
    EXPECT_TRUE(mDemand.isWanted(stream));
    EXPECT_EQ("", tell(R"({"event":"stream-stop"})"));
    EXPECT_FALSE(mDemand.isWanted(stream));
}

}  // namespace
}  // namespace korvane::camera
