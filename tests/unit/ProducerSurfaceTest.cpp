// SPDX-License-Identifier: Apache-2.0
// The camera's surface over a producer that answers what a test says.
#include "desktop-camera/ProducerSurface.h"

#include <cstdint>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gui/bufferqueue/1.0/H2BGraphicBufferProducer.h>

#include "support/LogRecorder.h"
#include "support/StubProducer.h"

namespace korvane::camera {
namespace {

using ::android::sp;
using ::android::hardware::Void;
using ::android::hardware::graphics::bufferqueue::V1_0::utils::H2BGraphicBufferProducer;
using testing::ElementsAre;
using testing::IsEmpty;

const PictureFormat kNv12{"NV12", 320, 240, 25};
const PictureFormat kMjpg{"MJPG", 320, 240, 25};

/** Gives statuses from the test and notes what it was asked. */
class ScriptedProducer : public test::StubProducer {
  public:
    Return<void> connect(const Listener& given, int32_t api, bool byApp,
                         connect_cb reply) override {
        note("connect " + std::to_string(api) + (byApp ? " by an application" : ""));
        listener = given;
        reply(connected, QueueBufferOutput{});
        return Void();
    }
    Return<int32_t> setDequeueTimeout(int64_t ns) override {
        note("timeout " + std::to_string(ns));
        return timeoutSet;
    }
    Return<int32_t> setMaxDequeuedBufferCount(int32_t count) override {
        note("at most " + std::to_string(count));
        return countSet;
    }
    Return<void> dequeueBuffer(uint32_t width, uint32_t height, PixelFormat format, uint32_t usage,
                               bool, dequeueBuffer_cb reply) override {
        note("dequeue " + std::to_string(width) + "x" + std::to_string(height) + " of " +
             std::to_string(static_cast<int>(format)) + " for " + std::to_string(usage));
        reply(dequeued, slot, hidl_handle(), FrameEventHistoryDelta{});
        return Void();
    }
    Return<void> requestBuffer(int32_t number, requestBuffer_cb reply) override {
        note("request " + std::to_string(number));
        reply(requested, AnwBuffer{});
        return Void();
    }
    Return<int32_t> cancelBuffer(int32_t number, const hidl_handle&) override {
        note("cancel " + std::to_string(number));
        return cancelled;
    }
    Return<int32_t> disconnect(int32_t api, DisconnectMode) override {
        note("disconnect " + std::to_string(api));
        return 0;
    }

    Listener listener;
    int32_t connected = 0;
    int32_t timeoutSet = 0;
    int32_t countSet = 0;
    int32_t dequeued = 0;
    int32_t slot = 0;
    int32_t requested = 0;
    int32_t cancelled = 0;
    std::vector<std::string> calls;

  private:
    void note(const std::string& call) { calls.push_back(call); }
};

class ProducerSurfaceTest : public testing::Test {
  protected:
    // Connects a surface and asks it once for a buffer.
    int32_t dequeueOnce(const PictureFormat& format = kNv12) {
        ProducerSurface surface(mQueue, format);
        EXPECT_EQ(android::OK, surface.connect());
        mProducer->calls.clear();
        ProducerSurface::Buffer buffer;
        const int32_t status = surface.dequeue(&buffer);
        mAsked = mProducer->calls;
        return status;
    }

    const test::LogRecorder mLog;
    const sp<ScriptedProducer> mProducer = new ScriptedProducer;
    const sp<android::IGraphicBufferProducer> mQueue = new H2BGraphicBufferProducer(mProducer);
    std::vector<std::string> mAsked;
};

TEST_F(ProducerSurfaceTest, ConnectsAsACameraThatWaitsForNoLongerThanAFrame) {
    {
        ProducerSurface surface(mQueue, kNv12);
        EXPECT_EQ(android::OK, surface.connect());
    }
    EXPECT_THAT(mProducer->calls, ElementsAre("connect 4 by an application", "timeout 40000000",
                                              "at most 2", "disconnect 4"));
}

TEST_F(ProducerSurfaceTest, GivesTheServiceSomethingWhoseDeathItCanFollow) {
    ProducerSurface surface(mQueue, kNv12);
    ASSERT_EQ(android::OK, surface.connect());
    ASSERT_NE(nullptr, mProducer->listener.get());
    EXPECT_FALSE(mProducer->listener->needsReleaseNotify())
            << "that would be a call for each frame";
}

TEST_F(ProducerSurfaceTest, LeavesAloneWhatItCouldNotConnectTo) {
    mProducer->connected = android::NO_INIT;
    {
        ProducerSurface surface(mQueue, kNv12);
        EXPECT_EQ(android::NO_INIT, surface.connect());
    }
    EXPECT_THAT(mProducer->calls, ElementsAre("connect 4 by an application"));
}

TEST_F(ProducerSurfaceTest, DisconnectsWhatTakesNoSettings) {
    for (int32_t* status : {&mProducer->timeoutSet, &mProducer->countSet}) {
        mProducer->calls.clear();
        *status = android::BAD_VALUE;
        EXPECT_EQ(android::BAD_VALUE, ProducerSurface(mQueue, kNv12).connect());
        EXPECT_EQ("disconnect 4", mProducer->calls.back());
        *status = android::OK;
    }
}

TEST_F(ProducerSurfaceTest, AsksForPicturesOrForFilesInABlob) {
    mProducer->dequeued = android::TIMED_OUT;
    dequeueOnce(kNv12);
    EXPECT_THAT(mAsked, ElementsAre("dequeue 320x240 of 35 for 51"));
    dequeueOnce(kMjpg);
    EXPECT_THAT(mAsked,
                ElementsAre("dequeue " + std::to_string(kMjpg.jpegLimit()) + "x1 of 33 for 51"));
}

TEST_F(ProducerSurfaceTest, PassesOnThatThereIsNoBuffer) {
    for (const int32_t status : {android::TIMED_OUT, android::NO_INIT, android::DEAD_OBJECT}) {
        mProducer->dequeued = status;
        EXPECT_EQ(status, dequeueOnce());
        EXPECT_EQ(1u, mAsked.size());
    }
}

TEST_F(ProducerSurfaceTest, RefusesSlotsThatDoNotExist) {
    for (const int32_t slot : {-1, 64, INT32_MAX}) {
        mProducer->slot = slot;
        EXPECT_EQ(android::BAD_VALUE, dequeueOnce()) << slot;
        EXPECT_EQ(1u, mAsked.size());
    }
}

TEST_F(ProducerSurfaceTest, GivesBackABufferThatItCannotFetch) {
    mProducer->slot = 3;
    mProducer->requested = android::NO_MEMORY;
    EXPECT_EQ(android::NO_MEMORY, dequeueOnce());
    EXPECT_THAT(mAsked, ElementsAre(testing::_, "request 3", "cancel 3"));
    EXPECT_THAT(mLog.lines("desktop-camera"), IsEmpty());
}

TEST_F(ProducerSurfaceTest, SaysThatABufferIsNotTakenBackUnlessTheSurfaceHasGone) {
    mProducer->slot = 3;
    mProducer->requested = android::NO_MEMORY;
    mProducer->cancelled = android::NO_INIT;
    dequeueOnce();
    mProducer->cancelled = android::DEAD_OBJECT;
    dequeueOnce();
    EXPECT_THAT(mLog.lines("desktop-camera"), IsEmpty());
    mProducer->cancelled = android::BAD_VALUE;
    dequeueOnce();
    EXPECT_THAT(mLog.lines("desktop-camera"),
                ElementsAre(test::LogLine{ANDROID_LOG_WARN, "desktop-camera",
                                          "cannot give buffer 3 back: -22"}));
}

}  // namespace
}  // namespace korvane::camera
