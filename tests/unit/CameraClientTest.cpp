// SPDX-License-Identifier: Apache-2.0
// The camera and a service in one process: what it asks, in which order, and what it survives.
#include "desktop-camera/CameraClient.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "desktop-camera/Messages.h"
#include "desktop-camera/TestCardSource.h"
#include "support/FrameCollector.h"
#include "support/LocalServices.h"
#include "support/LogRecorder.h"
#include "support/Program.h"
#include "support/StubDesktop.h"

namespace korvane::camera {
namespace {

using ::android::sp;
using ::android::hardware::Status;
using ::android::hardware::Void;
using test::FrameCollector;

constexpr char kStart[] = "{\"event\":\"stream-start\"}";
constexpr char kStop[] = "{\"event\":\"stream-stop\"}";
constexpr char kConfigNv12[] =
        "{\"width\":320,\"height\":240,\"v4l2-format\":\"NV12\",\"fps\":100.0,\"buffer-count\":4}";
constexpr char kConfigMjpg[] =
        "{\"width\":320,\"height\":240,\"v4l2-format\":\"MJPG\",\"fps\":100.0,\"buffer-count\":4}";
constexpr char kCreateNv12[] =
        "{\"create-surface\":{\"width\":320,\"height\":240,\"consumer-usage\":51,"
        "\"v4l2-format\":\"NV12\",\"fps\":100.0}}";

/** The service with a webcam controller whose answers the test sets. */
class FakeService : public test::StubDesktop {
  public:
    std::string config = kConfigNv12;
    std::string refusal;  // the answer to "create-surface"; empty: a surface is posted
    bool postsSurface = true;
    bool streaming = false;  // whether a host streams; set by a start that a client is told
    std::function<void(const std::string& command)> onCommand;  // before it is answered, no lock
    // A command with this in it fails on its way; none if it is empty.
    std::string failingCommand;

    Return<void> registerCallback(ClientType type, const Callback& callback) override {
        const std::lock_guard<std::mutex> guard(mLock);
        mChanged.notify_all();
        return StubDesktop::registerCallback(type, callback);
    }

    Return<void> sendCommand(ClientType type, const hidl_string& command,
                             sendCommand_cb reply) override {
        EXPECT_EQ(ClientType::WEBCAM_CONTROLLER, type);
        if (onCommand != nullptr) onCommand(command);
        const std::optional<std::string> given = answer(command);
        if (!given) return Return<void>(Status::fromStatusT(android::DEAD_OBJECT));
        reply(*given);
        return Void();
    }

    Return<SurfaceV1> getSurface(ClientType type) override {
        const std::lock_guard<std::mutex> guard(mLock);
        EXPECT_EQ(ClientType::WEBCAM_CONTROLLER, type);
        commands.emplace_back("getSurface");
        mChanged.notify_all();
        return StubDesktop::getSurface(type);
    }

    /** Tells a client; its answer. */
    std::string tell(ClientType type, const std::string& command) {
        std::string reply;
        setStreaming(command != kStop);
        const Callback callback = callbackOf(type);
        EXPECT_NE(nullptr, callback.get());
        callback->onCommand(command, [&](const hidl_string& given) { reply = given; });
        return reply;
    }

    void setStreaming(bool now) {
        const std::lock_guard<std::mutex> guard(mLock);
        streaming = now;
    }

    /** Waits until a camera has looked for a stream and found none, and forgets its questions. */
    bool waitForIdleClient() {
        if (!waitForCommands(2)) return false;
        const std::lock_guard<std::mutex> guard(mLock);
        commands.clear();
        return true;
    }

    bool waitForClient(ClientType type) {
        return wait([&] { return callbacks.count(type) > 0; });
    }

    bool waitForCommands(size_t count) {
        return wait([&] { return commands.size() >= count; });
    }

    /** The surface of the latest stream. */
    std::shared_ptr<FrameCollector> surface() {
        const std::lock_guard<std::mutex> guard(mLock);
        return mSurface;
    }

    std::vector<std::string> commands;
    int surfacesMade = 0;

  private:
    Callback callbackOf(ClientType type) {
        const std::lock_guard<std::mutex> guard(mLock);
        return callbacks[type];
    }

    template <typename Condition>
    bool wait(const Condition& condition) {
        std::unique_lock<std::mutex> guard(mLock);
        return mChanged.wait_for(guard, std::chrono::seconds(10), condition);
    }

    std::optional<std::string> answer(const std::string& command) {
        const std::lock_guard<std::mutex> guard(mLock);
        commands.push_back(command);
        mChanged.notify_all();
        if (!failingCommand.empty() && command.find(failingCommand) != std::string::npos) return {};
        if (command == kGetStreamConfig) return config;
        if (!refusal.empty()) return refusal;
        if (!streaming) return "not streaming";
        ++surfacesMade;
        mSurface = std::make_shared<FrameCollector>();
        surfaces[ClientType::WEBCAM_CONTROLLER] = postsSurface ? mSurface->hidlProducer() : nullptr;
        return "";
    }

    std::mutex mLock;
    std::condition_variable mChanged;
    std::shared_ptr<FrameCollector> mSurface;
};

class CameraClientTest : public testing::Test {
  protected:
    explicit CameraClientTest(const std::string& onStart = "", const std::string& onStop = "")
        : mHooks(onStart, onStop) {}

    void TearDown() override { quit(); }

    void startCamera(std::vector<ClientType> kinds = {ClientType::STREAM},
                     uint32_t lastFrame = UINT32_MAX) {
        mConnection = std::make_unique<ServiceConnection>(mDemand, mStatus, std::move(kinds));
        mThread = std::thread([this, lastFrame] {
            CameraClient(mDemand, *mConnection, mSource, mJournal, mHooks, lastFrame).run();
        });
    }

    void startBoth() {
        mServices.provide("default", mService);
        startCamera();
        ASSERT_TRUE(mService->waitForIdleClient());
    }

    void quit() {
        mDemand.quit();
        if (mThread.joinable()) mThread.join();
    }

    const test::LogRecorder mLog;
    test::LocalServices mServices;
    sp<FakeService> mService = new FakeService;
    StreamDemand mDemand;
    CameraStatus mStatus;
    TestCardSource mSource;
    FrameJournal mJournal;
    StreamHooks mHooks;
    std::unique_ptr<ServiceConnection> mConnection;
    std::thread mThread;
};

TEST_F(CameraClientTest, AsksForTheConfigurationThenTheSurfaceThenRenders) {
    startBoth();
    EXPECT_NE("", mService->tell(ClientType::STREAM, kStart));
    ASSERT_TRUE(mService->waitForCommands(3));
    EXPECT_EQ((std::vector<std::string>{kGetStreamConfig, kCreateNv12, "getSurface"}),
              mService->commands);
    EXPECT_TRUE(mService->surface()->waitForFrames(5));
    EXPECT_EQ("", mService->tell(ClientType::STREAM, kStop));
    EXPECT_TRUE(mLog.waitFor(ANDROID_LOG_INFO, "desktop-camera", "told " + std::string(kStop)));
}

TEST_F(CameraClientTest, WaitsForTheServiceToCome) {
    startCamera();
    ASSERT_TRUE(mServices.waitForLookUps(2));
    mServices.provide("default", mService);
    EXPECT_TRUE(mService->waitForClient(ClientType::STREAM));
}

TEST_F(CameraClientTest, EndsWhileItWaitsForTheService) {
    startCamera();
    ASSERT_TRUE(mServices.waitForLookUps(1));
    quit();
}

TEST_F(CameraClientTest, ServesOneStreamAfterTheOtherInWhateverFormat) {
    startBoth();
    for (const char* config : {kConfigNv12, kConfigMjpg, kConfigNv12}) {
        mService->config = config;
        const size_t before = mService->commands.size();
        mService->tell(ClientType::STREAM, kStart);
        ASSERT_TRUE(mService->waitForCommands(before + 2));
        ASSERT_TRUE(mService->surface()->waitForFrames(3));
        mService->tell(ClientType::STREAM, kStop);
        mService->surface()->abandon();
    }
}

TEST_F(CameraClientTest, StartsAgainWhenANewStreamComesWithoutAStop) {
    startBoth();
    mService->tell(ClientType::STREAM, kStart);
    ASSERT_TRUE(mService->waitForCommands(3));
    const auto first = mService->surface();
    ASSERT_TRUE(first->waitForFrames(1));
    mService->tell(ClientType::STREAM, kStart);
    ASSERT_TRUE(mService->waitForCommands(6));
    EXPECT_NE(first, mService->surface());
    EXPECT_TRUE(mService->surface()->waitForFrames(1));
}

TEST_F(CameraClientTest, GoesOnAfterARefusal) {
    startBoth();
    mService->config = "no v4l2 control";
    mService->tell(ClientType::STREAM, kStart);
    EXPECT_TRUE(mLog.waitFor(ANDROID_LOG_WARN, "desktop-camera",
                             "no stream: asked for the configuration, the controller says "
                             "\"no v4l2 control\""));
    mService->config = kConfigNv12;
    mService->refusal = "not streaming";
    mService->tell(ClientType::STREAM, kStart);
    EXPECT_TRUE(mLog.waitFor(ANDROID_LOG_WARN, "desktop-camera",
                             "no stream: asked for a surface, the controller says "
                             "\"not streaming\""));
    mService->refusal.clear();
    mService->tell(ClientType::STREAM, kStart);
    ASSERT_TRUE(mService->waitForCommands(6));
    EXPECT_TRUE(mService->surface()->waitForFrames(1));
}

TEST_F(CameraClientTest, GoesOnWithoutASurface) {
    startBoth();
    mService->postsSurface = false;
    mService->tell(ClientType::STREAM, kStart);
    EXPECT_TRUE(mLog.waitFor(ANDROID_LOG_WARN, "desktop-camera", "no stream: there is no surface"));
    mService->postsSurface = true;
    mService->tell(ClientType::STREAM, kStart);
    ASSERT_TRUE(mService->waitForCommands(6));
    EXPECT_TRUE(mService->surface()->waitForFrames(1));
}

TEST_F(CameraClientTest, GoesOnWhenTheServiceFailsInTheMiddle) {
    startBoth();
    mService->failingCommand = "get-stream-config";
    mService->tell(ClientType::STREAM, kStart);
    ASSERT_TRUE(mService->waitForCommands(1));
    mService->failingCommand = "create-surface";
    mService->tell(ClientType::STREAM, kStart);
    ASSERT_TRUE(mService->waitForCommands(3));
    EXPECT_EQ((std::vector<std::string>{kGetStreamConfig, kGetStreamConfig, kCreateNv12}),
              mService->commands);
    mService->failingCommand.clear();
    mService->tell(ClientType::STREAM, kStart);
    ASSERT_TRUE(mService->waitForCommands(6));
    EXPECT_TRUE(mService->surface()->waitForFrames(1));
}

TEST_F(CameraClientTest, GoesOnWhenTheSourceCannotDrawAStream) {
    startBoth();
    mService->config =
            "{\"width\":64,\"height\":64,\"v4l2-format\":\"NV12\",\"fps\":100.0,\"buffer-count\":"
            "4}";
    mService->tell(ClientType::STREAM, kStart);
    EXPECT_TRUE(mLog.waitFor(ANDROID_LOG_ERROR, "desktop-camera",
                             "the test card cannot be drawn in 64x64"));
    mService->config = kConfigNv12;
    mService->tell(ClientType::STREAM, kStart);
    ASSERT_TRUE(mService->waitForCommands(6));
    EXPECT_TRUE(mService->surface()->waitForFrames(1));
}

TEST_F(CameraClientTest, WaitsForTheNextStartWhenTheSurfaceVanishes) {
    startBoth();
    mService->tell(ClientType::STREAM, kStart);
    ASSERT_TRUE(mService->waitForCommands(3));
    ASSERT_TRUE(mService->surface()->waitForFrames(1));
    mService->surface()->abandon();
    mService->tell(ClientType::STREAM, kStart);
    ASSERT_TRUE(mService->waitForCommands(6));
    EXPECT_TRUE(mService->surface()->waitForFrames(1));
}

TEST_F(CameraClientTest, FindsTheServiceAgainAfterItDied) {
    startBoth();
    mService->tell(ClientType::STREAM, kStart);
    ASSERT_TRUE(mService->waitForCommands(3));
    ASSERT_TRUE(mService->surface()->waitForFrames(1));
    const sp<FakeService> second = new FakeService;
    mServices.provide("default", second);
    mDemand.serviceDied();
    ASSERT_TRUE(second->waitForIdleClient());
    second->tell(ClientType::STREAM, kStart);
    ASSERT_TRUE(second->waitForCommands(3));
    EXPECT_TRUE(second->surface()->waitForFrames(1));
}

/** What is run says nothing, but that it was run stands in the log. */
class CameraHooksTest : public CameraClientTest {
  protected:
    CameraHooksTest() : CameraClientTest("exit 11", "exit 12") {}
};

TEST_F(CameraHooksTest, RunsTheCommandsAtTheEndsOfAStreamAndOfNoOther) {
    startBoth();
    mService->postsSurface = false;
    mService->tell(ClientType::STREAM, kStart);
    EXPECT_TRUE(mLog.waitFor(ANDROID_LOG_WARN, "desktop-camera", "no stream: there is no surface"));
    mService->postsSurface = true;
    mService->tell(ClientType::STREAM, kStart);
    EXPECT_TRUE(mLog.waitFor(ANDROID_LOG_WARN, "desktop-camera", "'exit 11' ended with status 11"));
    EXPECT_EQ(0u, mLog.count(ANDROID_LOG_WARN, "desktop-camera", "'exit 12' ended with status 12"));
    mService->tell(ClientType::STREAM, kStop);
    EXPECT_TRUE(mLog.waitFor(ANDROID_LOG_WARN, "desktop-camera", "'exit 12' ended with status 12"));
    EXPECT_EQ(1u, mLog.count(ANDROID_LOG_WARN, "desktop-camera", "'exit 11' ended with status 11"));
}

TEST_F(CameraClientTest, JoinsAStreamThatRunsAlready) {
    mService->streaming = true;
    mServices.provide("default", mService);
    const int64_t begun = monotonicNs();
    startCamera();
    ASSERT_TRUE(mService->waitForCommands(4));
    ASSERT_TRUE(mService->surface()->waitForFrames(1));
    EXPECT_LT(monotonicNs() - begun, 1'000'000'000);
    EXPECT_EQ((std::vector<std::string>{kGetStreamConfig, kCreateNv12, kGetStreamConfig,
                                        "getSurface"}),
              mService->commands);
    EXPECT_TRUE(mService->surface()->waitForFrames(5));
    mService->tell(ClientType::STREAM, kStop);
    EXPECT_TRUE(mLog.waitFor(ANDROID_LOG_INFO, "desktop-camera", "told " + std::string(kStop)));
}

TEST_F(CameraClientTest, JoinsTheStreamOfAServiceThatTookTheDeadOnesPlace) {
    startBoth();
    const sp<FakeService> second = new FakeService;
    second->streaming = true;
    mServices.provide("default", second);
    mDemand.serviceDied();
    ASSERT_TRUE(second->waitForCommands(4));
    EXPECT_TRUE(second->surface()->waitForFrames(3));
}

TEST_F(CameraClientTest, RendersAStreamOnceWhenItsStartComesWhileItIsJoined) {
    // Whenever it comes: before, between and after the questions.
    for (size_t at : {0, 1, 2, 3}) {
        mService = new FakeService;
        size_t asked = 0;
        mService->onCommand = [&](const std::string&) {
            if (asked++ == at) mService->tell(ClientType::STREAM, kStart);
        };
        mServices.provide("default", mService);
        if (at == 0) {
            startCamera();
        } else {
            mService->streaming = true;
            mDemand.serviceDied();
        }
        ASSERT_TRUE(mService->waitForCommands(4)) << at;
        if (at == 3) mService->tell(ClientType::STREAM, kStart);
        EXPECT_TRUE(mService->surface()->waitForFrames(20)) << at;
        EXPECT_EQ(1, mService->surfacesMade) << at;
        EXPECT_EQ(4u, mService->commands.size()) << at;
    }
}

TEST_F(CameraClientTest, ServesAStreamThatBeginsWhileItFindsNone) {
    // The start comes while the refusal is on its way, and the camera does not know that yet.
    size_t asked = 0;
    mService->onCommand = [&](const std::string&) {
        if (asked == 1) mDemand.start();
        if (asked == 2) mService->setStreaming(true);
        ++asked;
    };
    mServices.provide("default", mService);
    startCamera();
    ASSERT_TRUE(mService->waitForCommands(5));
    EXPECT_TRUE(mService->surface()->waitForFrames(3));
    EXPECT_EQ(1, mService->surfacesMade);
}

TEST_F(CameraClientTest, TakesTheFormatThatTheHostChoseWhileItWasJoining) {
    mService->streaming = true;
    mService->config = kConfigMjpg;
    mService->onCommand = [&](const std::string& command) {
        if (command != kGetStreamConfig) mService->config = kConfigNv12;
    };
    mServices.provide("default", mService);
    startCamera();
    ASSERT_TRUE(mService->waitForCommands(6));
    EXPECT_EQ(kCreateNv12, mService->commands[3]);
    EXPECT_TRUE(mService->surface()->waitForFrames(1));
    EXPECT_EQ(320u * 240 * 3 / 2, mService->surface()->frames()[0].bytes.size());
}

TEST_F(CameraClientTest, LooksForTheNextStreamWhenTheJoinedOnesSurfaceGoesAfterAStart) {
    mService->streaming = true;
    mServices.provide("default", mService);
    startCamera();
    ASSERT_TRUE(mService->waitForCommands(4));
    ASSERT_TRUE(mService->surface()->waitForFrames(1));
    const auto joined = mService->surface();
    mService->tell(ClientType::STREAM, kStart);
    joined->abandon();
    ASSERT_TRUE(mService->waitForCommands(7));
    EXPECT_NE(joined, mService->surface());
    EXPECT_TRUE(mService->surface()->waitForFrames(1));
}

TEST_F(CameraClientTest, StartsAsTheLauncherToo) {
    mServices.provide("default", mService);
    startCamera({ClientType::LAUNCHER});
    ASSERT_TRUE(mService->waitForIdleClient());
    EXPECT_EQ(0u, mService->callbacks.count(ClientType::STREAM));
    mService->tell(ClientType::LAUNCHER, "{\"webcam-start\":true}");
    ASSERT_TRUE(mService->waitForCommands(3));
    EXPECT_TRUE(mService->surface()->waitForFrames(1));
}

TEST_F(CameraClientTest, EndsAfterTheLastFrame) {
    mServices.provide("default", mService);
    startCamera({ClientType::STREAM}, 4);
    ASSERT_TRUE(mService->waitForIdleClient());
    mService->tell(ClientType::STREAM, kStart);
    mThread.join();
    EXPECT_EQ(4u, mService->surface()->frames().size());
}

TEST(CameraProgramTest, SaysInOneLineWhatIsWrongWithItsArguments) {
    const struct {
        std::vector<std::string> arguments;
        std::string error;
    } kCases[] = {
            {{"--sourec=x"},
             "desktop-camera: unknown option '--sourec'; accepted: --source, --list, --rotate, "
             "--mirror, --privacy, --on-start, --on-stop, --config, --kind, --log, --frames, "
             "--help\n"},
            {{"--kind", "2"}, "desktop-camera: --kind is '2', but 1, 3 or both is needed\n"},
            {{"--frames", "0"}, "desktop-camera: --frames is '0', but a number from 1 is needed\n"},
            {{"--rotate", "45"},
             "desktop-camera: --rotate is '45', but 0, 90, 180 or 270 is needed\n"},
            {{"--mirror=yes"}, "desktop-camera: --mirror takes no value\n"},
            {{"--log"}, "desktop-camera: --log needs a value: FILE\n"},
            {{"now"},
             "desktop-camera: unexpected argument 'now'; accepted: --source, --list, --rotate, "
             "--mirror, --privacy, --on-start, --on-stop, --config, --kind, --log, --frames, "
             "--help\n"},
            {{"--source", "nosuchsrc"},
             "desktop-camera: --source is 'nosuchsrc', but a GStreamer pipeline, auto or card is "
             "needed: no element \"nosuchsrc\"\n"},
            {{"--log=/nowhere/log"},
             "desktop-camera: --log needs a file that can be written: /nowhere/log: No such file "
             "or directory\n"},
    };
    for (const auto& wrong : kCases) {
        const auto result = test::runProgram("desktop-camera", wrong.arguments);
        EXPECT_EQ(2, result.status);
        EXPECT_EQ("", result.out);
        EXPECT_EQ(wrong.error, result.err);
    }
    const auto list = test::runProgram("desktop-camera", {"--list"});
    EXPECT_EQ(0, list.status);
    EXPECT_EQ("", list.err);
    EXPECT_NE(std::string::npos, list.out.find("--source auto"));
    const auto help = test::runProgram("desktop-camera", {"--help"});
    EXPECT_EQ(0, help.status);
    EXPECT_EQ("", help.err);
    EXPECT_NE(std::string::npos, help.out.find("--source SOURCE"));
}

}  // namespace
}  // namespace korvane::camera
