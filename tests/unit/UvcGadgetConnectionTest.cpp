// SPDX-License-Identifier: Apache-2.0
// The controller as a client of the service: how it finds it, and what becomes of its events.

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "support/DaemonWorld.h"
#include "support/KeepForGood.h"
#include "support/StubDesktop.h"

namespace korvane::test {
namespace {

using namespace std::chrono_literals;

using ::android::sp;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::Status;
using desktop_v2::ClientType;
using testing::ElementsAre;
using testing::Pair;

constexpr char kLaunch[] = R"({"webcam-start":true})";
constexpr char kUnavailable[] = "setCommandTo: Service not available";

/** A service whose calls fail as the test says, and which keeps what it was asked. Thread-safe. */
class RecordingDesktop : public StubDesktop {
  public:
    using Command = std::pair<ClientType, std::string>;

    Return<void> registerCallback(ClientType type, const Callback& callback) override {
        const std::lock_guard<std::mutex> guard(mLock);
        mRegistered.emplace_back(type, callback);
        return Return<void>(mStatus);
    }

    Return<void> sendCommand(ClientType type, const hidl_string& command,
                             sendCommand_cb reply) override {
        const std::lock_guard<std::mutex> guard(mLock);
        mCommands.emplace_back(type, command);
        mChanged.notify_all();
        if (mStatus.isOk()) reply("");
        return Return<void>(mStatus);
    }

    Return<void> setSurface(ClientType /* type */, const SurfaceV1& /* surface */) override {
        const std::lock_guard<std::mutex> guard(mLock);
        return Return<void>(mStatus);
    }

    Return<bool> linkToDeath(const sp<hidl_death_recipient>& /* recipient */,
                             uint64_t /* cookie */) override {
        const std::lock_guard<std::mutex> guard(mLock);
        ++mDeathLinks;
        return true;
    }

    /** Every call from now on fails on its way with this transport status. */
    void fail(const Status& status) {
        const std::lock_guard<std::mutex> guard(mLock);
        mStatus = status;
    }

    std::vector<std::pair<ClientType, Callback>> registered() const {
        const std::lock_guard<std::mutex> guard(mLock);
        return mRegistered;
    }

    /** Waits until it was sent so many commands; those that there are, after ten seconds. */
    std::vector<Command> waitForCommands(size_t count) const {
        std::unique_lock<std::mutex> guard(mLock);
        mChanged.wait_for(guard, 10s, [&] { return mCommands.size() >= count; });
        return mCommands;
    }

    int deathLinks() const {
        const std::lock_guard<std::mutex> guard(mLock);
        return mDeathLinks;
    }

  private:
    mutable std::mutex mLock;
    mutable std::condition_variable mChanged;
    Status mStatus;
    std::vector<std::pair<ClientType, Callback>> mRegistered;
    std::vector<Command> mCommands;
    int mDeathLinks = 0;
};

class UvcGadgetConnectionTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mWorld.available()) GTEST_SKIP() << mWorld.whyNot();
    }

    // Returns once the node is open, which comes after all that has to do with the service.
    void start() {
        mWorld.createController();
        ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_S_FMT", 1));
    }

    void startWithService() {
        mWorld.services.provide("default", mService);
        start();
    }

    void startStream() { mWorld.node.sendEvent(UVC_EVENT_STREAMON); }

    std::vector<std::string> controllerLines() const {
        std::vector<std::string> texts;
        for (const LogLine& line : mWorld.log.lines(DaemonWorld::kTag)) {
            EXPECT_EQ(line.priority, ANDROID_LOG_DEBUG) << line;
            texts.push_back(line.message);
        }
        return texts;
    }

    size_t countError(const std::string& message) {
        return mWorld.log.count(ANDROID_LOG_ERROR, DaemonWorld::kTag, message);
    }

    static std::string got(const void* service) {
        char text[64];
        snprintf(text, sizeof(text), "Got service for camera desktop %p", service);
        return text;
    }

    DaemonWorld mWorld;
    // The controller keeps what it has found for good.
    const sp<RecordingDesktop> mService = keepForGood(sp<RecordingDesktop>(new RecordingDesktop()));
};

TEST_F(UvcGadgetConnectionTest, FindsTheServiceAfterTwoSecondsAndRegistersAsItsWebcamController) {
    startWithService();
    EXPECT_THAT(mWorld.waits.steppedOver(), ElementsAre(2s));
    EXPECT_EQ(mWorld.services.lookUps(), 1);
    EXPECT_THAT(controllerLines(),
                ElementsAre("UvcGadgetHandler E", "Trying to get service",
                            got(static_cast<desktop_v2::ICameraDesktop*>(mService.get())),
                            "added device: /dev/video0"));
    ASSERT_EQ(mService->registered().size(), 1u);
    EXPECT_EQ(mService->registered()[0].first, ClientType::WEBCAM_CONTROLLER);
    std::string reply;
    mService->registered()[0].second->onCommand("{}", [&](const auto& text) { reply = text; });
    EXPECT_EQ(reply, "OK_WEBCAM_HAL");
}

TEST_F(UvcGadgetConnectionTest, TriesThreeTimesTwoSecondsApartBeforeItLooksForDevices) {
    start();
    EXPECT_THAT(mWorld.waits.steppedOver(), ElementsAre(2s, 2s, 2s));
    EXPECT_EQ(mWorld.services.lookUps(), 3);
    EXPECT_THAT(controllerLines(),
                ElementsAre("UvcGadgetHandler E", "Trying to get service", got(nullptr),
                            "Trying to get service", got(nullptr), "Trying to get service",
                            got(nullptr), "added device: /dev/video0"));
}

TEST_F(UvcGadgetConnectionTest, StopsTryingOnceTheServiceIsThere) {
    mWorld.services.hide(1);
    startWithService();
    EXPECT_THAT(mWorld.waits.steppedOver(), ElementsAre(2s, 2s));
    EXPECT_EQ(mWorld.services.lookUps(), 2);
    EXPECT_EQ(mService->registered().size(), 1u);
}

TEST_F(UvcGadgetConnectionTest, RegistersWithAServiceFoundOnTheThirdTry) {
    mWorld.services.hide(2);
    startWithService();
    EXPECT_EQ(mWorld.services.lookUps(), 3);
    EXPECT_EQ(mService->registered().size(), 1u);
}

TEST_F(UvcGadgetConnectionTest, LooksForAMissingServiceAtEveryEvent) {
    start();
    startStream();
    ASSERT_TRUE(mWorld.services.waitForLookUps(5));
    mWorld.stopStream();
    EXPECT_EQ(mWorld.services.lookUps(), 6);
    EXPECT_EQ(countError(kUnavailable), 3u);
    EXPECT_FALSE(mWorld.node.isStreaming());
    EXPECT_EQ(mWorld.node.openMappings(), 0u);
}

TEST_F(UvcGadgetConnectionTest, AnEventFindsAServiceThatCameLate) {
    start();
    mWorld.services.provide("default", mService);
    startStream();
    EXPECT_THAT(mService->waitForCommands(2),
                ElementsAre(Pair(ClientType::STREAM, DaemonWorld::kStart),
                            Pair(ClientType::LAUNCHER, kLaunch)));
    EXPECT_EQ(mService->registered().size(), 1u);
    EXPECT_EQ(countError(kUnavailable), 0u);
}

TEST_F(UvcGadgetConnectionTest, KeepsTheServiceThatItHasFound) {
    startWithService();
    mWorld.services.provide("default", keepForGood(sp<StubDesktop>(new StubDesktop())));
    startStream();
    mService->waitForCommands(2);
    mWorld.stopStream();
    EXPECT_EQ(mService->waitForCommands(3).size(), 3u);
    EXPECT_EQ(mWorld.services.lookUps(), 1);
    EXPECT_EQ(mService->registered().size(), 1u);
    EXPECT_EQ(mService->deathLinks(), 0);
}

TEST_F(UvcGadgetConnectionTest, SendsEventsThoughItCouldNotRegister) {
    mService->fail(Status::fromStatusT(::android::FAILED_TRANSACTION));
    startWithService();
    EXPECT_THAT(controllerLines(),
                testing::Contains(got(static_cast<desktop_v2::ICameraDesktop*>(mService.get()))));
    mService->fail(Status::ok());
    startStream();
    EXPECT_THAT(mService->waitForCommands(2),
                ElementsAre(Pair(ClientType::STREAM, DaemonWorld::kStart),
                            Pair(ClientType::LAUNCHER, kLaunch)));
}

TEST_F(UvcGadgetConnectionTest, TakesADeadServiceForAnEmptyReply) {
    startWithService();
    mService->fail(Status::fromStatusT(::android::DEAD_OBJECT));
    startStream();
    EXPECT_THAT(mService->waitForCommands(2),
                ElementsAre(Pair(ClientType::STREAM, DaemonWorld::kStart),
                            Pair(ClientType::LAUNCHER, kLaunch)));
    mWorld.stopStream();
    EXPECT_EQ(countError("setCommandTo: Failed during binder call, isDead 1"), 3u);
    EXPECT_FALSE(mWorld.node.isStreaming());
}

TEST_F(UvcGadgetConnectionTest, TellsAFailedCallFromADeadService) {
    startWithService();
    mService->fail(Status::fromStatusT(::android::FAILED_TRANSACTION));
    startStream();
    mService->waitForCommands(2);
    mWorld.stopStream();
    EXPECT_EQ(countError("setCommandTo: Failed during binder call, isDead 0"), 3u);
}

}  // namespace
}  // namespace korvane::test
