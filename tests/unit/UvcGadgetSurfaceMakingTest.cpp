// SPDX-License-Identifier: Apache-2.0
// The steps in which the controller makes a surface, and what its device lock is held over: seen
// from within the calls that it makes.

#include <algorithm>
#include <cerrno>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gui/bufferqueue/1.0/H2BGraphicBufferProducer.h>

#include "support/ControllerTest.h"
#include "support/FrameProducer.h"
#include "support/PendingCall.h"
#include "support/UvcFrames.h"

using ::android::ComponentWrapper;
using ::android::KorBufferSource;
using ::android::sp;
using ::android::status_t;
using ::korvane::hardware::camera::desktop::V2_0::implementation::StreamSettings;
using ::korvane::hardware::camera::desktop::V2_0::implementation::UvcBufInfo;
using ::korvane::hardware::camera::desktop::V2_0::implementation::UvcV4l2Ctrl;

namespace {

/** Called with the name of each step before it is taken, on the thread that takes it. */
std::function<void(const std::string& step)> sOnStep;

void step(const std::string& name) {
    if (sOnStep) sOnStep(name);
}

}  // namespace

// The linker sends the controller's calls here (--wrap).

status_t realConfigure(KorBufferSource*, const sp<ComponentWrapper>&, int, uint32_t, uint32_t,
                       uint32_t, uint32_t) __asm__("__real_" CONFIGURE);
status_t wrappedConfigure(KorBufferSource*, const sp<ComponentWrapper>&, int, uint32_t, uint32_t,
                          uint32_t, uint32_t) __asm__("__wrap_" CONFIGURE);
status_t wrappedConfigure(KorBufferSource* source, const sp<ComponentWrapper>& component, int count,
                          uint32_t width, uint32_t height, uint32_t format, uint32_t usage) {
    step("configure for " + std::to_string(count));
    return realConfigure(source, component, count, width, height, format, usage);
}

status_t realAdd(KorBufferSource*, int32_t) __asm__("__real_" ADD_BUFFER);
status_t wrappedAdd(KorBufferSource*, int32_t) __asm__("__wrap_" ADD_BUFFER);
status_t wrappedAdd(KorBufferSource* source, int32_t index) {
    step("add " + std::to_string(index));
    return realAdd(source, index);
}

status_t realSetMaxFps(KorBufferSource*, float) __asm__("__real_" SET_MAX_FPS);
status_t wrappedSetMaxFps(KorBufferSource*, float) __asm__("__wrap_" SET_MAX_FPS);
status_t wrappedSetMaxFps(KorBufferSource* source, float fps) {
    step("rate " + std::to_string(fps));
    return realSetMaxFps(source, fps);
}

status_t realStart(KorBufferSource*) __asm__("__real_" START);
status_t wrappedStart(KorBufferSource*) __asm__("__wrap_" START);
status_t wrappedStart(KorBufferSource* source) {
    step("start");
    return realStart(source);
}

status_t realEmptied(KorBufferSource*, int32_t, int) __asm__("__real_" EMPTIED);
status_t wrappedEmptied(KorBufferSource*, int32_t, int) __asm__("__wrap_" EMPTIED);
status_t wrappedEmptied(KorBufferSource* source, int32_t index, int fenceFd) {
    step("emptied " + std::to_string(index) + " with fence " + std::to_string(fenceFd));
    return realEmptied(source, index, fenceFd);
}

bool realQueue(UvcV4l2Ctrl*, UvcBufInfo*) __asm__("__real_" QUEUE_BUFFER);
bool wrappedQueue(UvcV4l2Ctrl*, UvcBufInfo*) __asm__("__wrap_" QUEUE_BUFFER);
bool wrappedQueue(UvcV4l2Ctrl* device, UvcBufInfo* frame) {
    step("queue " + std::to_string(frame->index));
    return realQueue(device, frame);
}

StreamSettings realSettings(const UvcV4l2Ctrl*) __asm__("__real_" GET_SETTINGS);
StreamSettings wrappedSettings(const UvcV4l2Ctrl*) __asm__("__wrap_" GET_SETTINGS);
StreamSettings wrappedSettings(const UvcV4l2Ctrl* device) {
    step("settings");
    return realSettings(device);
}

namespace korvane::test {
namespace {

using ::android::NO_INIT;
using ::android::OK;
using ::android::hardware::graphics::bufferqueue::V1_0::utils::H2BGraphicBufferProducer;
using testing::ElementsAre;

constexpr char kAnyConfig[] = R"({"get-stream-config":1})";
constexpr char kFractional[] = R"({"create-surface":{"width":640,"height":480,"consumer-usage":3,)"
                               R"("v4l2-format":"NV12","fps":29.97}})";

class UvcGadgetSurfaceMakingTest : public ControllerTest {
  protected:
    UvcGadgetSurfaceMakingTest() {
        mDesktop->onSurface = [](const auto& surface) {
            step(surface == nullptr ? "clear" : "post");
        };
    }
    ~UvcGadgetSurfaceMakingTest() override { sOnStep = nullptr; }

    void noteSteps() {
        sOnStep = [this](const std::string& name) {
            const std::lock_guard<std::mutex> guard(mLock);
            mSteps.push_back(name);
        };
    }

    // Runs at the first step of this name, and not for what it causes itself.
    void during(const std::string& name, const std::function<void()>& act) {
        sOnStep = [name, act](const std::string& now) {
            if (now != name) return;
            const std::function<void()> once = act;
            sOnStep = nullptr;  // and with it what this has captured
            once();
        };
    }

    // At this step of this command another thread's question after the configuration has to wait.
    bool isLockedAt(const std::string& name, const std::function<void()>& act) {
        bool reached = false;
        bool locked = false;
        std::unique_ptr<PendingCall<std::string>> question;
        during(name, [&] {
            reached = true;
            question = std::make_unique<PendingCall<std::string>>(
                    [this] { return mHandler->handleCommand(kAnyConfig); });
            locked = question->isHeldUp();
        });
        act();
        EXPECT_TRUE(reached) << name;
        return locked;
    }
    bool isLockedAt(const std::string& name) {
        return isLockedAt(name, [this] { EXPECT_EQ("", mHandler->handleCommand(kCreate)); });
    }

    std::vector<std::string> steps() {
        const std::lock_guard<std::mutex> guard(mLock);
        return mSteps;
    }

    // The surface that this command posts.
    StubDesktop::SurfaceV1 createSurface() {
        StubDesktop::SurfaceV1 surface;
        mDesktop->onSurface = [&](const StubDesktop::SurfaceV1& posted) { surface = posted; };
        EXPECT_EQ("", mHandler->handleCommand(kCreate));
        mDesktop->onSurface = nullptr;
        return surface;
    }

    // Whether its frame source still is.
    static bool exists(const StubDesktop::SurfaceV1& surface) {
        FrameProducer camera(new H2BGraphicBufferProducer(surface));
        const status_t status = camera.connect();
        if (status == OK) camera.disconnect();
        return status != NO_INIT;
    }

  private:
    std::mutex mLock;
    std::vector<std::string> mSteps;
};

TEST_F(UvcGadgetSurfaceMakingTest, TakesItsStepsInOrderWithTheDevicesCountAndTheExactRate) {
    stream();
    noteSteps();
    EXPECT_EQ("", mHandler->handleCommand(kFractional));
    EXPECT_THAT(steps(), ElementsAre("configure for 4", "post", "add 0", "add 1", "add 2", "add 3",
                                     "rate 29.969999", "start"));
}

TEST_F(UvcGadgetSurfaceMakingTest, TheDeviceLockIsHeldUpToTheRateAndNotForTheStart) {
    stream();
    for (const char* name : {"configure for 4", "post", "add 0", "add 3", "rate 30.000000"}) {
        EXPECT_TRUE(isLockedAt(name)) << name;
    }
    EXPECT_FALSE(isLockedAt("start"));
}

TEST_F(UvcGadgetSurfaceMakingTest, ASecondCommandWaitsForTheFirstAndBothGetASurface) {
    stream();
    for (const char* name : {"configure for 4", "post", "add 2", "rate 30.000000", "start"}) {
        std::unique_ptr<PendingCall<std::string>> second;
        during(name, [&] {
            second = std::make_unique<PendingCall<std::string>>(
                    [this] { return mHandler->handleCommand(kCreate); });
            second->isHeldUp();
        });
        EXPECT_EQ("", mHandler->handleCommand(kCreate)) << name;
        ASSERT_NE(nullptr, second) << name;
        EXPECT_EQ("", second->get()) << name;
    }
    EXPECT_THAT(mWorld.log.lines(DaemonWorld::kTag), testing::IsEmpty());
}

TEST_F(UvcGadgetSurfaceMakingTest, TheDeviceLockIsHeldWhileTheDeviceIsAskedForItsSettings) {
    stream();
    EXPECT_TRUE(isLockedAt("settings", [this] { mHandler->handleCommand(kAnyConfig); }));
}

TEST_F(UvcGadgetSurfaceMakingTest, TheDeviceLockIsHeldWhileAFrameIsQueued) {
    stream();
    EXPECT_TRUE(isLockedAt("queue 1", [this] {
        EXPECT_EQ(0, mHandler->submitBuffer(1, makePicture(64, 32), 0, -1));
    }));
}

TEST_F(UvcGadgetSurfaceMakingTest, AFrameComesBackWithItsFence) {
    stream();
    ASSERT_EQ("", mHandler->handleCommand(kCreate));
    noteSteps();
    UvcBufInfo info;
    info.index = 2;
    info.fenceFd = dup(STDERR_FILENO);
    const std::string fence = std::to_string(info.fenceFd);
    mHandler->onFrameEmptied(&info);
    info.fenceFd = -1;
    mHandler->onFrameEmptied(&info);
    EXPECT_THAT(steps(), ElementsAre("emptied 2 with fence " + fence, "emptied 2 with fence -1"));
}

TEST_F(UvcGadgetSurfaceMakingTest, AStreamThatEndsMeanwhileTakesItsSurfaceBackWithoutTheLock) {
    stream();
    during("add 1", [this] {
        mWorld.node.sendEvent(UVC_EVENT_STREAMOFF);
        EXPECT_TRUE(mDesktop->waitFor(kToldStop));
    });
    EXPECT_EQ("", mHandler->handleCommand(kCreate));
    EXPECT_THAT(mDesktop->calls(), ElementsAre(kPosted, kCleared, kToldStop));
}

// The source that was being made belongs to the stream before: the stop took it away.
TEST_F(UvcGadgetSurfaceMakingTest,
       AStreamThatIsReplacedMeanwhileRefusesTheSurfaceAndTakesTheNextOne) {
    stream();
    during("configure for 4", [this] {
        mWorld.node.sendEvent(UVC_EVENT_STREAMOFF);
        EXPECT_TRUE(mDesktop->waitFor(kToldStop));
        mWorld.node.sendEvent(UVC_EVENT_STREAMON);
        EXPECT_TRUE(mDesktop->waitFor(kToldStart));
    });
    EXPECT_EQ("not streaming", mHandler->handleCommand(kCreate));
    EXPECT_THAT(mDesktop->calls(), ElementsAre(kCleared, kToldStop, kToldStart));
    EXPECT_THAT(mWorld.log.lines(DaemonWorld::kTag), ElementsAre(error("webcam is not streaming")));
    EXPECT_EQ(0u, mHandler->stats().surface().format);

    FrameProducer camera(new H2BGraphicBufferProducer(createSurface()));
    ASSERT_EQ(OK, camera.connect());
    noteSteps();
    mWorld.node.setAutoSend(true);
    ASSERT_GE(camera.queue({}), 0);
    mWorld.node.waitUntilIdle();
    EXPECT_THAT(steps(), ElementsAre("queue 0", "emptied 0 with fence -1"));
}

// --- When a source goes ---

// Its camera may well call back: not while the device is locked.
TEST_F(UvcGadgetSurfaceMakingTest,
       AReplacedSourceGoesOnceTheDeviceIsUnlockedAndBeforeTheNextOneStarts) {
    stream();
    const StubDesktop::SurfaceV1 first = createSurface();
    bool existed = false;
    during("rate 30.000000", [&] { existed = exists(first); });
    const StubDesktop::SurfaceV1 second = createSurface();
    EXPECT_TRUE(existed);
    EXPECT_FALSE(exists(first));
    bool existedAtTheStart = true;
    during("start", [&] { existedAtTheStart = exists(second); });
    EXPECT_TRUE(exists(createSurface()));
    EXPECT_FALSE(existedAtTheStart);
}

TEST_F(UvcGadgetSurfaceMakingTest, TheSourceOfAnEndedStreamGoesOnceTheCameraHasBeenTold) {
    stream();
    const StubDesktop::SurfaceV1 surface = createSurface();
    bool existed = false;
    mWorld.node.waitUntilIdle();  // nobody is told anything
    mDesktop->onCommand = [&] { existed = exists(surface); };
    mWorld.node.sendEvent(UVC_EVENT_STREAMOFF);
    ASSERT_TRUE(mDesktop->waitFor(kToldStop));
    mWorld.node.waitUntilIdle();
    EXPECT_TRUE(existed);
    EXPECT_FALSE(exists(surface));
}

}  // namespace
}  // namespace korvane::test
