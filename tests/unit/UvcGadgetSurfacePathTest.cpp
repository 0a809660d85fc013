// SPDX-License-Identifier: Apache-2.0
// The surface that a camera asks for, and the road of its frames to the gadget and back.

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <sys/eventfd.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gui/bufferqueue/1.0/H2BGraphicBufferProducer.h>
#include <system/window.h>

#include "support/DaemonWorld.h"
#include "support/FrameProducer.h"
#include "support/OpenDescriptors.h"
#include "support/PendingCall.h"

namespace korvane::test {
namespace {

using ::android::Fence;
using ::android::sp;
using ::android::hardware::graphics::bufferqueue::V1_0::utils::H2BGraphicBufferProducer;

constexpr int64_t kForEver = -1;
constexpr int64_t kDefaultTimeout = -2;  // nothing is set

constexpr char kNv12[] = R"({"create-surface":{"width":640,"height":480,"consumer-usage":3,)"
                         R"("v4l2-format":"NV12","fps":30}})";
constexpr char kUnknownFormat[] = R"({"create-surface":{"width":640,"height":480,)"
                                  R"("consumer-usage":3,"v4l2-format":"I420","fps":30}})";

class UvcGadgetSurfacePathTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mWorld.available()) GTEST_SKIP() << mWorld.whyNot();
        mWorld.start();
    }

    // A stream of 640x480 YUYV with a surface for it, and a camera connected to that.
    void streamWithCamera() {
        mWorld.commit(1, 1);
        mWorld.startStream();
        ASSERT_EQ(mWorld.command(kNv12), "");
        ASSERT_EQ(camera().connect(), android::OK);
    }

    FrameProducer& camera() {
        if (!mCamera) mCamera.emplace(new H2BGraphicBufferProducer(mWorld.surface()));
        return *mCamera;
    }

    int queueFrame(const sp<Fence>& fence = Fence::NO_FENCE) {
        FrameProducer::Frame frame;
        frame.timestampNs = ++mFrames * 1000000000;
        frame.fence = fence;
        return camera().queue(frame);
    }

    bool sentFrames(size_t count) { return mWorld.node.waitForCalls("VIDIOC_QBUF", count); }

    bool hasError(const std::string& message) {
        return mWorld.log.has(ANDROID_LOG_ERROR, DaemonWorld::kTag, message);
    }

    DaemonWorld mWorld;
    std::optional<FrameProducer> mCamera;
    int64_t mFrames = 0;
};

TEST_F(UvcGadgetSurfacePathTest, WithoutADeviceThereIsNoSurface) {
    mWorld.raiseRemove();
    mWorld.settle();
    EXPECT_EQ(mWorld.command(kNv12), "no v4l2 device");
    EXPECT_TRUE(hasError("No video device is setup for webcam mode"));
    EXPECT_EQ(mWorld.surface(), nullptr);
}

TEST_F(UvcGadgetSurfacePathTest, BeforeTheHostStreamsThereIsNoSurface) {
    EXPECT_EQ(mWorld.command(kNv12), "not streaming");
    EXPECT_TRUE(hasError("webcam is not streaming"));
    EXPECT_EQ(mWorld.surface(), nullptr);
    EXPECT_EQ(mWorld.command(R"({"create-surface":{}})"), "not streaming");
}

TEST_F(UvcGadgetSurfacePathTest, EachMissingFieldHasItsReplyInOrder) {
    mWorld.startStream();
    const std::vector<std::pair<std::string, std::string>> fields{
            {R"("width":640)", "width missing"},
            {R"("height":480)", "height missing"},
            {R"("consumer-usage":0)", "consumer usage missing"},
            {R"("v4l2-format":"NV12")", "format missing"},
            {R"("fps":30)", "fps missing"}};
    std::string given;
    for (const auto& [field, reply] : fields) {
        EXPECT_EQ(mWorld.command(R"({"create-surface":{)" + given + "}}"), reply);
        given += (given.empty() ? "" : ",") + field;
    }
    EXPECT_EQ(mWorld.command(R"({"create-surface":{)" + given + "}}"), "");
}

TEST_F(UvcGadgetSurfacePathTest, AFieldOfTheWrongTypeCountsAsMissing) {
    mWorld.startStream();
    EXPECT_EQ(mWorld.command(R"({"create-surface":{"width":"640"}})"), "width missing");
    EXPECT_EQ(mWorld.command(R"({"create-surface":{"width":640.5}})"), "width missing");
    EXPECT_EQ(mWorld.command(R"({"create-surface":7})"), "width missing");
}

TEST_F(UvcGadgetSurfacePathTest, ASurfaceIsPostedUnderTheControllersKind) {
    mWorld.startStream();
    EXPECT_EQ(mWorld.command(kNv12), "");
    EXPECT_NE(mWorld.surface(), nullptr);
    EXPECT_TRUE(mWorld.log.has(ANDROID_LOG_DEBUG, "KorBufferSource", "setMaxFps: maxFps=30"));
}

TEST_F(UvcGadgetSurfacePathTest, AShortFormatIsLoggedAndNotConfigured) {
    mWorld.startStream();
    EXPECT_EQ(mWorld.command(R"({"create-surface":{"width":640,"height":480,"consumer-usage":0,)"
                             R"("v4l2-format":"NV1","fps":30}})"),
              "not configured");
    EXPECT_TRUE(hasError("input format isn't a valid v4l2_fourcc length"));
    EXPECT_TRUE(mWorld.log.has(ANDROID_LOG_ERROR, "KorBufferSource",
                               "configure: Unsupported format: 0"));
    EXPECT_EQ(mWorld.surface(), nullptr);
}

TEST_F(UvcGadgetSurfacePathTest, ALongFormatIsCutToFourCharacters) {
    mWorld.startStream();
    EXPECT_EQ(mWorld.command(R"({"create-surface":{"width":640,"height":480,"consumer-usage":0,)"
                             R"("v4l2-format":"NV12 and more","fps":30}})"),
              "");
}

TEST_F(UvcGadgetSurfacePathTest, TheBuffersHaveTheSizeFormatAndUsageAskedFor) {
    mWorld.startStream();
    ASSERT_EQ(mWorld.command(R"({"create-surface":{"width":320,"height":200,)"
                             R"("consumer-usage":256,"v4l2-format":"NV12","fps":30}})"),
              "");
    ASSERT_EQ(camera().connect(), android::OK);
    const int slot = queueFrame();
    ASSERT_GE(slot, 0);
    const sp<android::GraphicBuffer> buffer = camera().buffer(slot);
    EXPECT_EQ(buffer->getWidth(), 320u);
    EXPECT_EQ(buffer->getHeight(), 200u);
    EXPECT_EQ(buffer->getPixelFormat(), HAL_PIXEL_FORMAT_YCbCr_420_888);
    EXPECT_EQ(buffer->getUsage() & 256, 256u);
}

TEST_F(UvcGadgetSurfacePathTest, ASurfaceThatCannotBeConfiguredEndsTheOneBefore) {
    streamWithCamera();
    const sp<DaemonWorld::Surface> first = mWorld.surface();
    EXPECT_EQ(mWorld.command(kUnknownFormat), "not configured");
    EXPECT_EQ(queueFrame(), android::NO_INIT);
    EXPECT_EQ(mWorld.surface(), first);  // nothing was posted instead
    EXPECT_EQ(mWorld.command(R"({"stream-suspend":true})"), "OK_WEBCAM_HAL");

    mCamera.reset();
    ASSERT_EQ(mWorld.command(kNv12), "");
    ASSERT_EQ(camera().connect(), android::OK);
    ASSERT_GE(queueFrame(), 0);
    EXPECT_TRUE(sentFrames(1));
}

TEST_F(UvcGadgetSurfacePathTest, AStreamMayEndWithASurfaceThatCouldNotBeConfigured) {
    mWorld.startStream();
    EXPECT_EQ(mWorld.command(kUnknownFormat), "not configured");
    mWorld.stopStream();
    streamWithCamera();
    ASSERT_GE(queueFrame(), 0);
    EXPECT_TRUE(sentFrames(1));
}

TEST_F(UvcGadgetSurfacePathTest, ASizeOfZeroIsNotConfigured) {
    mWorld.startStream();
    EXPECT_EQ(mWorld.command(R"({"create-surface":{"width":0,"height":480,"consumer-usage":0,)"
                             R"("v4l2-format":"NV12","fps":30}})"),
              "not configured");
}

TEST_F(UvcGadgetSurfacePathTest, AnAbsurdSizeAllocatesNothing) {
    mWorld.startStream();
    mWorld.command(R"({"create-surface":{"width":-5,"height":2000000000,"consumer-usage":3,)"
                   R"("v4l2-format":"NV12","fps":30}})");
    ASSERT_NE(mWorld.surface(), nullptr);
    ASSERT_EQ(camera().connect(), android::OK);
    EXPECT_LT(queueFrame(), 0);
}

TEST_F(UvcGadgetSurfacePathTest, AFrameGoesIntoTheBufferOfItsIdAndToTheGadget) {
    streamWithCamera();
    ASSERT_GE(queueFrame(), 0);
    ASSERT_TRUE(sentFrames(1));
    const auto queued = mWorld.node.calls("VIDIOC_QBUF")[0].as<v4l2_buffer>();
    EXPECT_EQ(queued.index, 0u);
    EXPECT_EQ(queued.bytesused, 640u * 480 * 2);
    EXPECT_EQ(queued.timestamp.tv_sec, 1);
    EXPECT_EQ(queued.timestamp.tv_usec, 0);
}

TEST_F(UvcGadgetSurfacePathTest, AFrameThatWasSentLetsTheNextOneThrough) {
    streamWithCamera();
    mWorld.node.setAutoSend(true);
    for (size_t i = 1; i <= 20; ++i) {
        ASSERT_GE(queueFrame(), 0);
        ASSERT_TRUE(sentFrames(i));
    }
}

TEST_F(UvcGadgetSurfacePathTest, AFrameThatTheDriverRefusesIsLostAndTheNextOneIsSent) {
    streamWithCamera();
    mWorld.node.setAutoSend(true);
    mWorld.node.fail("VIDIOC_QBUF", EIO);
    ASSERT_GE(queueFrame(), 0);
    for (size_t i = 2; i <= 10; ++i) {
        ASSERT_GE(queueFrame(), 0);
        ASSERT_TRUE(sentFrames(i));
    }
    EXPECT_EQ(mWorld.node.sentFrames().size(), 9u);
}

TEST_F(UvcGadgetSurfacePathTest, AFrameWaitsWhileAllBuffersAreOnTheirWay) {
    streamWithCamera();
    for (int i = 0; i < 5; ++i) ASSERT_GE(queueFrame(), 0);
    EXPECT_EQ(mWorld.node.calls("VIDIOC_QBUF").size(), 4u);
    mWorld.node.send();
    EXPECT_TRUE(sentFrames(5));
}

TEST_F(UvcGadgetSurfacePathTest, SuspendingDropsFramesAndResumingLetsThemThrough) {
    streamWithCamera();
    EXPECT_EQ(mWorld.command(R"({"stream-suspend":true})"), "OK_WEBCAM_HAL");
    for (int i = 0; i < 10; ++i) ASSERT_GE(queueFrame(), 0);
    EXPECT_TRUE(mWorld.node.calls("VIDIOC_QBUF").empty());
    EXPECT_EQ(mWorld.command(R"({"stream-suspend":false})"), "OK_WEBCAM_HAL");
    ASSERT_GE(queueFrame(), 0);
    EXPECT_TRUE(sentFrames(1));
}

TEST_F(UvcGadgetSurfacePathTest, SuspendingGivesTheFramesThatWaitBackAtOnce) {
    streamWithCamera();
    for (int i = 0; i < 20 && queueFrame() >= 0; ++i) {
    }
    ASSERT_LT(queueFrame(), 0);  // every buffer of the queue waits or is lent
    EXPECT_EQ(mWorld.command(R"({"stream-suspend":true})"), "OK_WEBCAM_HAL");
    EXPECT_GE(queueFrame(), 0);
}

TEST_F(UvcGadgetSurfacePathTest, OtherCommandsLeaveASuspendedStreamAlone) {
    streamWithCamera();
    mWorld.command(R"({"stream-suspend":true})");
    for (const char* other : {"{}", R"({"stream-suspend":0})", R"({"stream-resume":true})"}) {
        EXPECT_EQ(mWorld.command(other), "OK_WEBCAM_HAL");
        ASSERT_GE(queueFrame(), 0);
    }
    EXPECT_TRUE(mWorld.node.calls("VIDIOC_QBUF").empty());
}

TEST_F(UvcGadgetSurfacePathTest, AFenceThatNeverSignalsHoldsNothingUp) {
    streamWithCamera();
    ASSERT_GE(queueFrame(new Fence(eventfd(0, EFD_CLOEXEC))), 0);
    EXPECT_TRUE(sentFrames(1));
    mWorld.stopStream();
    EXPECT_TRUE(mWorld.streamClient->waitFor(DaemonWorld::kStop));
}

TEST_F(UvcGadgetSurfacePathTest, AClientIsConnectedAsWhatItSaysItIs) {
    mWorld.commit(1, 1);
    mWorld.startStream();
    ASSERT_EQ(mWorld.command(kNv12), "");
    for (int api : {NATIVE_WINDOW_API_EGL, NATIVE_WINDOW_API_CPU, NATIVE_WINDOW_API_MEDIA}) {
        ASSERT_EQ(camera().connect(2, api), android::OK) << api;
        EXPECT_EQ(camera().disconnect(NATIVE_WINDOW_API_CAMERA), android::BAD_VALUE) << api;
        EXPECT_EQ(camera().disconnect(api), android::OK) << api;
    }
}

TEST_F(UvcGadgetSurfacePathTest, AListenerIsAskedOnceAndToldOfReleasedBuffers) {
    streamWithCamera();
    ASSERT_EQ(camera().disconnect(), android::OK);
    struct Listener : public android::BnProducerListener {
        void onBufferReleased() override { ++released; }
        bool needsReleaseNotify() override {
            ++asked;
            return true;
        }
        void onBuffersDiscarded(const std::vector<int32_t>&) override {}
        std::atomic<int> released{0};
        std::atomic<int> asked{0};
    };
    const sp<Listener> listener = new Listener();
    const sp<H2BGraphicBufferProducer> producer = new H2BGraphicBufferProducer(mWorld.surface());
    android::IGraphicBufferProducer::QueueBufferOutput output;
    ASSERT_EQ(producer->connect(listener, NATIVE_WINDOW_API_CAMERA, false, &output), android::OK);
    EXPECT_EQ(listener->asked, 1);
    mWorld.command(R"({"stream-suspend":true})");
    ASSERT_GE(queueFrame(), 0);
    EXPECT_EQ(listener->released, 1);
}

TEST_F(UvcGadgetSurfacePathTest, ASecondSurfaceReplacesTheFirst) {
    streamWithCamera();
    const sp<DaemonWorld::Surface> first = mWorld.surface();
    ASSERT_EQ(mWorld.command(kNv12), "");
    EXPECT_NE(mWorld.surface(), first);
    EXPECT_EQ(queueFrame(), android::NO_INIT);
    mCamera.reset();
    ASSERT_EQ(camera().connect(), android::OK);
    ASSERT_GE(queueFrame(), 0);
    EXPECT_TRUE(sentFrames(1));
}

TEST_F(UvcGadgetSurfacePathTest, ACommandWithoutAFieldLeavesTheSurfaceBeforeItAlone) {
    streamWithCamera();
    const sp<DaemonWorld::Surface> surface = mWorld.surface();
    EXPECT_EQ(mWorld.command(R"({"create-surface":{"width":640,"height":480,"consumer-usage":3,)"
                             R"("v4l2-format":"NV12"}})"),
              "fps missing");
    EXPECT_EQ(mWorld.surface(), surface);
    ASSERT_GE(queueFrame(), 0);
    EXPECT_TRUE(sentFrames(1));
    mWorld.node.send();
    ASSERT_GE(queueFrame(), 0);
    EXPECT_TRUE(sentFrames(2));
}

TEST_F(UvcGadgetSurfacePathTest, TheStreamsEndClearsTheSurfaceTellsTheCameraAndEndsTheQueue) {
    streamWithCamera();
    ASSERT_GE(queueFrame(), 0);
    mWorld.stopStream();
    EXPECT_TRUE(mWorld.streamClient->waitFor(DaemonWorld::kStop));
    EXPECT_EQ(mWorld.surface(), nullptr);
    EXPECT_EQ(queueFrame(), android::NO_INIT);
    EXPECT_EQ(mWorld.node.openMappings(), 0u);
}

TEST_F(UvcGadgetSurfacePathTest, TheNextStreamWorksWithANewSurface) {
    streamWithCamera();
    mWorld.stopStream();
    mCamera.reset();
    streamWithCamera();
    ASSERT_GE(queueFrame(), 0);
    EXPECT_TRUE(sentFrames(1));
}

TEST_F(UvcGadgetSurfacePathTest, FiveFailedWritesInARowEndTheStreamButNotTheDevice) {
    streamWithCamera();
    mWorld.node.fail("VIDIOC_DQBUF", EIO, 0, 5);
    mWorld.node.setAutoSend(true);
    ASSERT_GE(queueFrame(), 0);
    EXPECT_TRUE(mWorld.streamClient->waitFor(DaemonWorld::kStop));
    EXPECT_TRUE(mWorld.log.waitFor(ANDROID_LOG_ERROR, "UVC-V4l2Ctrl",
                                   "Too many streaming errors, forcing it to stop."));
    mWorld.startStream();
    EXPECT_EQ(mWorld.node.openDescriptors(), 1u);
    EXPECT_FALSE(hasError("UVC device is no longer present"));
}

// The queue's default, and what a client may ask for: to wait until there is a buffer.
TEST_F(UvcGadgetSurfacePathTest, AHostThatPausesForTwoSecondsOnlyHoldsAWaitingCameraUp) {
    streamWithCamera();
    ASSERT_EQ(camera().disconnect(), android::OK);
    mCamera.reset();
    ASSERT_EQ(mWorld.command(kNv12), "");
    const sp<H2BGraphicBufferProducer> producer = new H2BGraphicBufferProducer(mWorld.surface());
    android::IGraphicBufferProducer::QueueBufferOutput output;
    ASSERT_EQ(producer->connect(nullptr, NATIVE_WINDOW_API_CAMERA, false, &output), android::OK);
    for (const int64_t timeout : {kDefaultTimeout, kForEver}) {
        if (timeout != kDefaultTimeout) {
            ASSERT_EQ(producer->setDequeueTimeout(timeout), android::OK);
        }
        FrameProducer waiting(producer);
        std::unique_ptr<PendingCall<int>> frame;
        for (bool isHeldUp = false; !isHeldUp; isHeldUp = frame->isHeldUp()) {
            frame = std::make_unique<PendingCall<int>>([&] {
                FrameProducer::Frame next;
                next.timestampNs = ++mFrames * 1000000000;
                return waiting.queue(next);
            });
        }
        std::this_thread::sleep_for(std::chrono::seconds(2));
        EXPECT_TRUE(frame->isHeldUp());
        ASSERT_TRUE(mWorld.node.send());
        EXPECT_GE(frame->get(), 0);
    }
}

TEST_F(UvcGadgetSurfacePathTest, ACameraThatWaitsIsTurnedAwayWhenTheStreamEnds) {
    streamWithCamera();
    while (queueFrame() >= 0) {
    }
    const sp<DaemonWorld::Surface> surface = mWorld.surface();
    ASSERT_EQ(int32_t{surface->setDequeueTimeout(kForEver)}, android::OK);
    // A frame may just have gone, and left its buffer for one more.
    std::unique_ptr<PendingCall<int>> frame;
    for (bool isHeldUp = false; !isHeldUp; isHeldUp = frame->isHeldUp()) {
        frame = std::make_unique<PendingCall<int>>([this] { return queueFrame(); });
    }
    mWorld.stopStream();
    // A frame that comes back with the end may serve it once more.
    const int result = frame->get();
    EXPECT_TRUE(result >= 0 || result == android::NO_INIT) << result;
    EXPECT_EQ(queueFrame(), android::NO_INIT);
}

TEST_F(UvcGadgetSurfacePathTest, NoDescriptorIsLeftAfterAStream) {
    const auto streamOnce = [&] {
        streamWithCamera();
        for (int i = 0; i < 4; ++i) queueFrame(new Fence(eventfd(0, EFD_CLOEXEC)));
        mWorld.stopStream();
        mCamera.reset();
    };
    streamOnce();
    const int before = countOpenDescriptors();
    for (int i = 0; i < 5; ++i) streamOnce();
    EXPECT_EQ(countOpenDescriptors(), before);
}

}  // namespace
}  // namespace korvane::test
