// SPDX-License-Identifier: Apache-2.0
// The controller as the frame source and the device call it: frames in, frames back, start, stop.

#include <cerrno>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gui/bufferqueue/1.0/H2BGraphicBufferProducer.h>
#include <poll.h>
#include <unistd.h>

#include "support/DaemonWorld.h"
#include "support/FrameProducer.h"
#include "support/KeepForGood.h"
#include "support/StubDesktop.h"
#include "support/UvcFrames.h"
#include "uvc/UvcGadgetHandler.h"

namespace korvane::test {
namespace {

using ::android::OK;
using ::android::sp;
using ::android::hardware::Status;
using ::android::hardware::graphics::bufferqueue::V1_0::utils::H2BGraphicBufferProducer;
using ::korvane::hardware::camera::desktop::V2_0::implementation::UvcBufInfo;
using ::korvane::hardware::camera::desktop::V2_0::implementation::UvcGadgetHandler;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int32_t kUnknownError = INT32_MIN;
constexpr char kCreate[] = R"({"create-surface":{"width":640,"height":480,"consumer-usage":3,)"
                           R"("v4l2-format":"NV12","fps":30}})";
constexpr char kPosted[] = "surface 4";
constexpr char kCleared[] = "no surface 4";
const std::string kTold = "told 3: ";

std::function<void()> sWhileASourceIsMade;

// Notes what the controller asks of the service; a test may act from within.
class RecordingDesktop : public StubDesktop {
  public:
    Return<void> registerCallback(desktop_v2::ClientType type, const Callback& callback) override {
        note("callback " + std::to_string(static_cast<int>(type)));
        return StubDesktop::registerCallback(type, callback);
    }
    Return<void> sendCommand(desktop_v2::ClientType type, const hidl_string& command,
                             sendCommand_cb reply) override {
        note("told " + std::to_string(static_cast<int>(type)) + ": " + std::string(command));
        if (onCommand) onCommand();
        reply("done");
        return ::android::hardware::Void();
    }
    Return<void> setSurface(desktop_v2::ClientType type, const SurfaceV1& surface) override {
        note((surface == nullptr ? "no surface " : "surface ") +
             std::to_string(static_cast<int>(type)));
        if (onSurface) onSurface(surface);
        return Return<void>(surfaceStatus);
    }

    std::vector<std::string> calls() {
        std::lock_guard<std::mutex> guard(mLock);
        return mCalls;
    }
    bool waitFor(const std::string& call) {
        std::unique_lock<std::mutex> guard(mLock);
        return mNoted.wait_for(guard, std::chrono::seconds(10), [&] {
            return std::find(mCalls.begin(), mCalls.end(), call) != mCalls.end();
        });
    }
    void clear() {
        std::lock_guard<std::mutex> guard(mLock);
        mCalls.clear();
    }

    // Set before they can be needed.
    std::function<void()> onCommand;
    std::function<void(const SurfaceV1&)> onSurface;
    Status surfaceStatus;

  private:
    void note(const std::string& call) {
        std::lock_guard<std::mutex> guard(mLock);
        mCalls.push_back(call);
        mNoted.notify_all();
    }

    std::mutex mLock;
    std::condition_variable mNoted;
    std::vector<std::string> mCalls;
};

class FrameHandOverTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mWorld.available()) GTEST_SKIP() << mWorld.whyNot();
    }
    ~FrameHandOverTest() override {
        if (mHandler == nullptr) return;
        mWorld.node.fail("select", EINTR);
        mWorld.waitLog(ANDROID_LOG_ERROR, "select failed");
    }

    template <typename Handler = UvcGadgetHandler>
    sp<Handler> makeHandler() {
        const sp<Handler> handler = keepForGood(sp<Handler>(new Handler()));
        mHandler = handler;
        return handler;
    }

    // A controller that knows the service, but has no device.
    template <typename Handler = UvcGadgetHandler>
    sp<Handler> startWithoutDevice() {
        mWorld.node.setDriver("uvcvideo");
        mWorld.services.provide("default", mDesktop);
        const sp<Handler> handler = makeHandler<Handler>();
        EXPECT_TRUE(mDesktop->waitFor("callback 4"));
        EXPECT_TRUE(mWorld.node.waitForCalls("VIDIOC_QUERYCAP", 1));  // done with connecting
        mDesktop->clear();
        return handler;
    }

    // A controller whose device is open.
    void startWithDevice() {
        mWorld.services.provide("default", mDesktop);
        makeHandler();
        ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_S_FMT", 1));
        mDesktop->clear();
    }

    // One whose device streams.
    void stream() {
        startWithDevice();
        mWorld.node.sendEvent(UVC_EVENT_STREAMON);
        ASSERT_TRUE(mDesktop->waitFor(kTold + DaemonWorld::kStart));
        mDesktop->clear();
        mWorld.log.clear();
    }

    std::vector<v4l2_buffer> queued() {
        std::vector<v4l2_buffer> buffers;
        for (const KernelCall& call : mWorld.node.calls("VIDIOC_QBUF")) {
            buffers.push_back(call.as<v4l2_buffer>());
        }
        return buffers;
    }

    LogLine error(const std::string& message) {
        return {ANDROID_LOG_ERROR, DaemonWorld::kTag, message};
    }

    DaemonWorld mWorld;
    sp<RecordingDesktop> mDesktop = new RecordingDesktop();
    sp<UvcGadgetHandler> mHandler;
};

// The fence of a frame. Whether it was closed shows at its other end: its number may long be
// another descriptor's.
class WatchedFence {
  public:
    WatchedFence() { EXPECT_EQ(0, pipe2(mEnds, O_CLOEXEC)); }
    ~WatchedFence() { close(mEnds[0]); }
    WatchedFence(const WatchedFence&) = delete;
    WatchedFence& operator=(const WatchedFence&) = delete;

    /** Whoever gets it has to close it. */
    int fd() const { return mEnds[1]; }
    bool isOpen() const {
        pollfd end = {mEnds[0], POLLIN, 0};
        return poll(&end, 1, 0) == 0;
    }

  private:
    int mEnds[2] = {-1, -1};
};

// --- A frame without a device ---

TEST_F(FrameHandOverTest, AFrameWithoutADeviceEndsTheStream) {
    startWithoutDevice();
    const WatchedFence fence;
    mWorld.log.clear();
    EXPECT_EQ(kUnknownError, mHandler->submitBuffer(0, makePicture(64, 32), 0, fence.fd()));
    EXPECT_THAT(mDesktop->calls(), ElementsAre(kCleared, kTold + DaemonWorld::kStop));
    EXPECT_THAT(mWorld.log.lines(DaemonWorld::kTag),
                ElementsAre(error("No video device is setup for webcam mode")));
    EXPECT_FALSE(fence.isOpen());
}

TEST_F(FrameHandOverTest, AFrameWithoutADeviceCallsWhateverStopTheControllerHas) {
    struct OwnStop : public UvcGadgetHandler {
        void onStreamStop() override { ++stops; }
        int stops = 0;
    };
    const sp<OwnStop> handler = startWithoutDevice<OwnStop>();
    EXPECT_EQ(kUnknownError, handler->submitBuffer(0, makePicture(64, 32), 0, -1));
    EXPECT_EQ(1, handler->stops);
    EXPECT_THAT(mDesktop->calls(), IsEmpty());
}

TEST_F(FrameHandOverTest, TheClientMayAskBackFromWithinTheStopOfAFrameWithoutADevice) {
    startWithoutDevice();
    std::string reply;
    mDesktop->onCommand = [&] { reply = mHandler->handleCommand(R"({"get-stream-config":1})"); };
    mHandler->submitBuffer(0, makePicture(64, 32), 0, -1);
    EXPECT_EQ("no v4l2 control", reply);
}

// --- A frame for the device ---

TEST_F(FrameHandOverTest, AFrameGoesIntoTheBufferOfItsSlot) {
    stream();
    for (int slot : {2, 0, 3, 1}) {
        EXPECT_EQ(OK, mHandler->submitBuffer(slot, makePicture(64, 32), 0, -1));
        EXPECT_EQ(static_cast<uint32_t>(slot), queued().back().index);
    }
    EXPECT_THAT(mDesktop->calls(), IsEmpty());
    EXPECT_THAT(mWorld.log.lines(DaemonWorld::kTag), IsEmpty());
}

TEST_F(FrameHandOverTest, ATimeIsSplitIntoSecondsAndMicroseconds) {
    stream();
    mWorld.node.setAutoSend(true);
    for (const auto& [time, seconds, micros] : {std::tuple{int64_t{0}, 0L, 0L},
                                                {999999, 0, 999999},
                                                {1000000, 1, 0},
                                                {1234567890123, 1234567, 890123},
                                                {INT64_MAX, 9223372036854, 775807},
                                                {-1500000, -1, -500000}}) {
        EXPECT_EQ(OK, mHandler->submitBuffer(0, makePicture(64, 32), time, -1));
        EXPECT_EQ(seconds, queued().back().timestamp.tv_sec) << time;
        EXPECT_EQ(micros, queued().back().timestamp.tv_usec) << time;
    }
}

TEST_F(FrameHandOverTest, AQueuedFramesFenceIsKept) {
    stream();
    const WatchedFence fence;
    EXPECT_EQ(OK, mHandler->submitBuffer(0, makePicture(64, 32), 0, fence.fd()));
    EXPECT_TRUE(fence.isOpen());
}

TEST_F(FrameHandOverTest, AFrameThatTheDriverRefusesIsAnErrorAndNoMore) {
    stream();
    const WatchedFence fence;
    mWorld.node.fail("VIDIOC_QBUF", EIO);
    EXPECT_EQ(kUnknownError, mHandler->submitBuffer(0, makePicture(64, 32), 0, fence.fd()));
    EXPECT_FALSE(fence.isOpen());
    EXPECT_THAT(mDesktop->calls(), IsEmpty());
    EXPECT_THAT(mWorld.log.lines(DaemonWorld::kTag), IsEmpty());
    EXPECT_EQ(OK, mHandler->submitBuffer(0, makePicture(64, 32), 0, -1));
}

TEST_F(FrameHandOverTest, AFrameThatTheDeviceDropsIsAnErrorToo) {
    stream();
    const WatchedFence fence;
    const uint32_t capacity = 1280 * 720 * 2 + 1;
    EXPECT_EQ(kUnknownError, mHandler->submitBuffer(0, makeBlob(capacity), 0, fence.fd()));
    EXPECT_FALSE(fence.isOpen());
    EXPECT_THAT(queued(), IsEmpty());
}

TEST_F(FrameHandOverTest, AFrameForAnIdleDeviceIsAnErrorAndStopsNothing) {
    startWithDevice();
    EXPECT_EQ(kUnknownError, mHandler->submitBuffer(0, makePicture(64, 32), 0, -1));
    EXPECT_TRUE(mWorld.log.has(ANDROID_LOG_WARN, "UVC-V4l2Ctrl", "Not streaming, quit early"));
    EXPECT_THAT(mDesktop->calls(), IsEmpty());
}

TEST_F(FrameHandOverTest, EndsOfStreamAndDataSpacesAreIgnored) {
    stream();
    mWorld.node.clearCalls();
    EXPECT_EQ(OK, mHandler->submitEos(0));
    mHandler->dispatchDataSpaceChanged(1, 2, 3);
    EXPECT_THAT(mWorld.node.calls(), IsEmpty());
    EXPECT_THAT(mDesktop->calls(), IsEmpty());
    EXPECT_THAT(mWorld.log.lines(), IsEmpty());
}

// --- A frame that came back ---

TEST_F(FrameHandOverTest, AFrameThatComesBackGoesToTheSourceByItsIndex) {
    stream();
    ASSERT_EQ("", mHandler->handleCommand(kCreate));
    const WatchedFence fence;
    UvcBufInfo info;
    info.index = 9;
    info.fenceFd = fence.fd();
    mHandler->onFrameEmptied(&info);
    EXPECT_TRUE(mWorld.log.has(ANDROID_LOG_ERROR, "KorBufferSource",
                               "onInputBufferEmptied: buffer not recognized (bufferId=9)"));
    EXPECT_FALSE(fence.isOpen());
}

TEST_F(FrameHandOverTest, ASourceThatCouldNotBeConfiguredStaysInPlace) {
    stream();
    EXPECT_EQ("not configured",
              mHandler->handleCommand(R"({"create-surface":{"width":640,"height":480,)"
                                      R"("consumer-usage":3,"v4l2-format":"YUYV","fps":30}})"));
    UvcBufInfo info;
    mHandler->onFrameEmptied(&info);
    EXPECT_TRUE(mWorld.log.has(ANDROID_LOG_ERROR, "KorBufferSource",
                               "onInputBufferEmptied: buffer not recognized (bufferId=0)"));
    EXPECT_THAT(mDesktop->calls(), IsEmpty());
}

TEST_F(FrameHandOverTest, AFrameThatComesBackToNoSourceOnlyLosesItsFence) {
    startWithoutDevice();
    mWorld.log.clear();
    const WatchedFence fence;
    UvcBufInfo info;
    info.fenceFd = fence.fd();
    mHandler->onFrameEmptied(&info);
    EXPECT_FALSE(fence.isOpen());
    info.fenceFd = -1;
    mHandler->onFrameEmptied(&info);
    EXPECT_THAT(mWorld.log.lines(DaemonWorld::kTag), IsEmpty());
    EXPECT_THAT(mDesktop->calls(), IsEmpty());
}

// --- Start and stop ---

TEST_F(FrameHandOverTest, AStartCreatesNothing) {
    stream();
    EXPECT_THAT(mWorld.log.lines("KorBufferSource"), IsEmpty());
}

TEST_F(FrameHandOverTest, AStopClearsTheSurfaceBeforeItTellsTheCamera) {
    stream();
    ASSERT_EQ("", mHandler->handleCommand(kCreate));
    mDesktop->clear();
    mWorld.node.sendEvent(UVC_EVENT_STREAMOFF);
    ASSERT_TRUE(mDesktop->waitFor(kTold + DaemonWorld::kStop));
    EXPECT_THAT(mDesktop->calls(), ElementsAre(kCleared, kTold + DaemonWorld::kStop));
}

TEST_F(FrameHandOverTest, AStopGoesOnWhenTheSurfaceCannotBeCleared) {
    startWithoutDevice();
    mDesktop->surfaceStatus = Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED);
    mHandler->onStreamStop();
    EXPECT_THAT(mDesktop->calls(), ElementsAre(kCleared, kTold + DaemonWorld::kStop));
}

TEST_F(FrameHandOverTest, StartsAndStopsWithoutAServiceAreHarmless) {
    mWorld.node.setDriver("uvcvideo");
    makeHandler();
    ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_QUERYCAP", 1));  // it has stopped looking for it
    mWorld.log.clear();
    mHandler->onStreamStart();
    mHandler->onStreamStop();
    EXPECT_EQ(3u, mWorld.log.count(ANDROID_LOG_ERROR, DaemonWorld::kTag,
                                   "setCommandTo: Service not available"));
    EXPECT_EQ(kUnknownError, mHandler->submitBuffer(0, makePicture(64, 32), 0, -1));
}

// --- The surface ---

TEST_F(FrameHandOverTest, ASurfaceIsPostedOnceUnderKind4) {
    stream();
    EXPECT_EQ("", mHandler->handleCommand(kCreate));
    EXPECT_THAT(mDesktop->calls(), ElementsAre(kPosted));
}

TEST_F(FrameHandOverTest, ASurfaceThatTheServiceDoesNotTakeIsMadeAllTheSame) {
    stream();
    mDesktop->surfaceStatus = Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED);
    EXPECT_EQ("", mHandler->handleCommand(kCreate));
    EXPECT_THAT(mDesktop->calls(), ElementsAre(kPosted));
}

TEST_F(FrameHandOverTest, WithoutAServiceASurfaceIsMadeAllTheSame) {
    makeHandler();
    ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_S_FMT", 1));
    mWorld.node.sendEvent(UVC_EVENT_STREAMON);
    ASSERT_TRUE(mWorld.waitLog(ANDROID_LOG_ERROR, "setCommandTo: Service not available"));
    EXPECT_EQ("", mHandler->handleCommand(kCreate));
    mWorld.node.sendEvent(UVC_EVENT_STREAMOFF);
    EXPECT_TRUE(mWorld.node.waitForCalls("VIDIOC_STREAMOFF", 1));
}

TEST_F(FrameHandOverTest, ASurfaceThatIsMadeWhileTheStreamEndsIsNotPosted) {
    stream();
    sWhileASourceIsMade = [&] {
        mWorld.node.sendEvent(UVC_EVENT_STREAMOFF);
        EXPECT_TRUE(mDesktop->waitFor(kTold + DaemonWorld::kStop));
    };
    EXPECT_EQ("not streaming", mHandler->handleCommand(kCreate));
    sWhileASourceIsMade = nullptr;
    EXPECT_THAT(mDesktop->calls(), ElementsAre(kCleared, kTold + DaemonWorld::kStop));
}

// The camera is there before the reply: its frames wait for the buffers, the rate and the start.
TEST_F(FrameHandOverTest, ASurfaceIsPostedThenGetsItsBuffersAndItsRateAndIsStartedLast) {
    stream();
    std::vector<size_t> handedOver;
    mDesktop->onSurface = [&](const StubDesktop::SurfaceV1& surface) {
        FrameProducer camera(new H2BGraphicBufferProducer(surface));
        ASSERT_EQ(OK, camera.connect());
        for (int64_t frame = 0; frame < 3; ++frame) {
            ASSERT_GE(camera.queue({frame * 1000000}), 0);
            handedOver.push_back(queued().size());
        }
        mDesktop->onSurface = nullptr;
    };
    EXPECT_EQ("", mHandler->handleCommand(kCreate));
    EXPECT_THAT(handedOver, ElementsAre(0, 0, 0));
    // The others come too soon for 30 frames a second.
    EXPECT_EQ(1u, queued().size());
}

}  // namespace

// The linker leads the making of a frame source's queue here (--wrap).
using ProducerPtr = sp<::android::IGraphicBufferProducer>;
using ConsumerPtr = sp<::android::IGraphicBufferConsumer>;
void realCreateBufferQueue(ProducerPtr*, ConsumerPtr*, bool) asm(
        "__real__ZN7android11BufferQueue17createBufferQueueEPNS_2spINS_22IGraphicBufferProducerEEE"
        "PNS1_INS_22IGraphicBufferConsumerEEEb");
void createBufferQueue(ProducerPtr*, ConsumerPtr*, bool) asm(
        "__wrap__ZN7android11BufferQueue17createBufferQueueEPNS_2spINS_22IGraphicBufferProducerEEE"
        "PNS1_INS_22IGraphicBufferConsumerEEEb");

void createBufferQueue(ProducerPtr* producer, ConsumerPtr* consumer, bool isSurfaceFlinger) {
    if (sWhileASourceIsMade) sWhileASourceIsMade();
    realCreateBufferQueue(producer, consumer, isSurfaceFlinger);
}

}  // namespace korvane::test
