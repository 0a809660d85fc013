// SPDX-License-Identifier: Apache-2.0
// What the controller does as a stream starts and stops, and how it makes the surface.

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gui/bufferqueue/1.0/H2BGraphicBufferProducer.h>

#include "support/ControllerTest.h"
#include "support/FrameProducer.h"
#include "support/UvcFrames.h"

namespace korvane::test {
namespace {

using ::android::OK;
using ::android::sp;
using ::android::UNKNOWN_ERROR;
using ::android::hardware::Status;
using ::android::hardware::graphics::bufferqueue::V1_0::utils::H2BGraphicBufferProducer;
using testing::ElementsAre;
using testing::IsEmpty;

std::function<void()> sWhileASourceIsMade;

class UvcGadgetSurfaceStreamTest : public ControllerTest {};

// --- Start and stop ---

TEST_F(UvcGadgetSurfaceStreamTest, AStartCreatesNothing) {
    stream();
    EXPECT_THAT(mWorld.log.lines("KorBufferSource"), IsEmpty());
}

TEST_F(UvcGadgetSurfaceStreamTest, AStopClearsTheSurfaceBeforeItTellsTheCamera) {
    stream();
    ASSERT_EQ("", mHandler->handleCommand(kCreate));
    mDesktop->clear();
    mWorld.node.sendEvent(UVC_EVENT_STREAMOFF);
    ASSERT_TRUE(mDesktop->waitFor(kToldStop));
    EXPECT_THAT(mDesktop->calls(), ElementsAre(kCleared, kToldStop));
}

TEST_F(UvcGadgetSurfaceStreamTest, AStopGoesOnWhenTheSurfaceCannotBeCleared) {
    startWithoutDevice();
    mDesktop->surfaceStatus = Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED);
    mHandler->onStreamStop();
    EXPECT_THAT(mDesktop->calls(), ElementsAre(kCleared, kToldStop));
}

TEST_F(UvcGadgetSurfaceStreamTest, StartsAndStopsWithoutAServiceAreHarmless) {
    mWorld.node.setDriver("uvcvideo");
    makeHandler();
    ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_QUERYCAP", 1));  // it has stopped looking for it
    mWorld.log.clear();
    mHandler->onStreamStart();
    mHandler->onStreamStop();
    EXPECT_EQ(3u, mWorld.log.count(ANDROID_LOG_ERROR, DaemonWorld::kTag,
                                   "setCommandTo: Service not available"));
    EXPECT_EQ(UNKNOWN_ERROR, mHandler->submitBuffer(0, makePicture(64, 32), 0, -1));
}

// --- The surface ---

TEST_F(UvcGadgetSurfaceStreamTest, ASurfaceIsPostedOnceUnderKind4) {
    stream();
    EXPECT_EQ("", mHandler->handleCommand(kCreate));
    EXPECT_THAT(mDesktop->calls(), ElementsAre(kPosted));
}

TEST_F(UvcGadgetSurfaceStreamTest, ASurfaceThatTheServiceDoesNotTakeIsMadeAllTheSame) {
    stream();
    mDesktop->surfaceStatus = Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED);
    EXPECT_EQ("", mHandler->handleCommand(kCreate));
    EXPECT_THAT(mDesktop->calls(), ElementsAre(kPosted));
}

TEST_F(UvcGadgetSurfaceStreamTest, WithoutAServiceASurfaceIsMadeAllTheSame) {
    makeHandler();
    ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_S_FMT", 1));
    mWorld.node.sendEvent(UVC_EVENT_STREAMON);
    ASSERT_TRUE(mWorld.waitLog(ANDROID_LOG_ERROR, "setCommandTo: Service not available"));
    EXPECT_EQ("", mHandler->handleCommand(kCreate));
    mWorld.node.sendEvent(UVC_EVENT_STREAMOFF);
    EXPECT_TRUE(mWorld.node.waitForCalls("VIDIOC_STREAMOFF", 1));
}

TEST_F(UvcGadgetSurfaceStreamTest, ASurfaceThatIsMadeWhileTheStreamEndsIsNotPosted) {
    stream();
    sWhileASourceIsMade = [&] {
        mWorld.node.sendEvent(UVC_EVENT_STREAMOFF);
        EXPECT_TRUE(mDesktop->waitFor(kToldStop));
    };
    EXPECT_EQ("not streaming", mHandler->handleCommand(kCreate));
    sWhileASourceIsMade = nullptr;
    EXPECT_THAT(mDesktop->calls(), ElementsAre(kCleared, kToldStop));
    EXPECT_THAT(mWorld.log.lines(DaemonWorld::kTag), ElementsAre(error("webcam is not streaming")));
    // The source is no frame source, either.
    mWorld.log.clear();
    UvcBufInfo info;
    mHandler->onFrameEmptied(&info);
    EXPECT_THAT(mWorld.log.lines("KorBufferSource"), IsEmpty());
}

// The camera, whose thread isn't the controller's, is there before the reply: its frames wait for
// the buffers, the rate and the start.
TEST_F(UvcGadgetSurfaceStreamTest, ASurfaceIsPostedThenGetsItsBuffersAndItsRateAndIsStartedLast) {
    stream();
    std::vector<size_t> handedOver;
    const auto render = [&](const StubDesktop::SurfaceV1& surface) {
        FrameProducer camera(new H2BGraphicBufferProducer(surface));
        ASSERT_EQ(OK, camera.connect());
        for (int64_t frame = 0; frame < 3; ++frame) {
            ASSERT_GE(camera.queue({frame * 1000000}), 0);
            handedOver.push_back(queued().size());
        }
    };
    mDesktop->onSurface = [&](const StubDesktop::SurfaceV1& surface) {
        std::thread(render, surface).join();
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
