// SPDX-License-Identifier: Apache-2.0
// A camera that renders on a thread of its own while the host starts and stops, the node comes and
// goes, and others ask and pause: whatever the order, nothing hangs, and the next stream works.

#include <atomic>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <gui/bufferqueue/1.0/H2BGraphicBufferProducer.h>

#include "support/DaemonWorld.h"
#include "support/FrameProducer.h"

namespace korvane::test {
namespace {

using ::android::sp;
using ::android::hardware::graphics::bufferqueue::V1_0::utils::H2BGraphicBufferProducer;

constexpr char kCreate[] = R"({"create-surface":{"width":640,"height":480,"consumer-usage":3,)"
                           R"("v4l2-format":"NV12","fps":1000}})";

// Renders into whatever surface is posted, as fast as it is let.
class TirelessCamera {
  public:
    explicit TirelessCamera(DaemonWorld& world) : mWorld(world), mThread([this] { run(); }) {}
    ~TirelessCamera() {
        mStop = true;
        mThread.join();
    }

    uint64_t frames() const { return mFrames; }

  private:
    void run() {
        while (!mStop) {
            const sp<DaemonWorld::Surface> surface = mWorld.surface();
            if (surface == nullptr) {
                std::this_thread::yield();
            } else {
                render(surface);
            }
        }
    }

    void render(const sp<DaemonWorld::Surface>& surface) {
        FrameProducer producer(new H2BGraphicBufferProducer(surface));
        if (producer.connect() != android::OK) return;
        while (!mStop) {
            FrameProducer::Frame frame;
            frame.timestampNs = ++mTimeMs * 1000000;
            const int slot = producer.queue(frame);
            if (slot == android::NO_INIT) return;
            if (slot >= 0) ++mFrames;
        }
        producer.disconnect();
    }

    DaemonWorld& mWorld;
    std::atomic<bool> mStop{false};
    std::atomic<uint64_t> mFrames{0};
    int64_t mTimeMs = 0;
    std::thread mThread;
};

class StreamCyclesTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mWorld.available()) GTEST_SKIP() << mWorld.whyNot();
        mWorld.start();
        mWorld.commit(1, 1);
        mWorld.node.setAutoSend(true);
    }

    // The host starts, the camera asks for a surface, and frames reach the gadget.
    void streamFrames(size_t count) {
        const size_t before = mWorld.node.calls("VIDIOC_QBUF").size();
        mWorld.startStream();
        ASSERT_EQ(mWorld.command(kCreate), "");
        ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_QBUF", before + count));
    }

    DaemonWorld mWorld;
};

TEST_F(StreamCyclesTest, TwentyStreamsInARowDeliverFrames) {
    TirelessCamera camera(mWorld);
    for (int i = 0; i < 20; ++i) {
        ASSERT_NO_FATAL_FAILURE(streamFrames(10));
        mWorld.stopStream();
        EXPECT_EQ(mWorld.node.openMappings(), 0u);
    }
    EXPECT_GE(camera.frames(), 200u);
}

TEST_F(StreamCyclesTest, TheNodeMayGoAtAnyFrame) {
    TirelessCamera camera(mWorld);
    for (int i = 0; i < 10; ++i) {
        const size_t opened = mWorld.node.calls("VIDIOC_S_FMT").size();
        ASSERT_NO_FATAL_FAILURE(streamFrames(1 + i));
        mWorld.raiseRemove();
        mWorld.raiseAdd();
        ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_S_FMT", opened + 1));
        EXPECT_EQ(mWorld.node.openMappings(), 0u);
        EXPECT_EQ(mWorld.surface(), nullptr);
    }
}

TEST_F(StreamCyclesTest, TheNodeMayGoWhileTheConfigurationIsAskedFor) {
    std::atomic<bool> stop{false};
    std::thread other([&] {
        while (!stop) mWorld.command(R"({"get-stream-config":1})");
    });
    for (int i = 0; i < 10; ++i) {
        const size_t opened = mWorld.node.calls("VIDIOC_S_FMT").size();
        mWorld.raiseRemove();
        mWorld.raiseAdd();
        ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_S_FMT", opened + 1));
    }
    stop = true;
    other.join();
}

TEST_F(StreamCyclesTest, SurfacesMayBeReplacedWhileFramesFlow) {
    TirelessCamera camera(mWorld);
    ASSERT_NO_FATAL_FAILURE(streamFrames(5));
    for (int i = 0; i < 20; ++i) {
        const uint64_t before = camera.frames();
        ASSERT_EQ(mWorld.command(kCreate), "");
        while (camera.frames() < before + 3) std::this_thread::yield();
    }
    mWorld.stopStream();
    ASSERT_NO_FATAL_FAILURE(streamFrames(5));
    mWorld.stopStream();
}

TEST_F(StreamCyclesTest, CommandsThatOverlapEachGetTheirSurface) {
    TirelessCamera camera(mWorld);
    ASSERT_NO_FATAL_FAILURE(streamFrames(5));
    const auto askOften = [&] {
        for (int i = 0; i < 200; ++i) EXPECT_EQ(mWorld.command(kCreate), "");
    };
    std::thread other(askOften);
    askOften();
    other.join();
    EXPECT_FALSE(mWorld.log.has(ANDROID_LOG_ERROR, DaemonWorld::kTag, "webcam is not streaming"));
    mWorld.stopStream();
    EXPECT_EQ(mWorld.surface(), nullptr);
}

TEST_F(StreamCyclesTest, PausesAndQuestionsDisturbNothing) {
    TirelessCamera camera(mWorld);
    std::atomic<bool> stop{false};
    std::thread other([&] {
        while (!stop) {
            mWorld.command(R"({"stream-suspend":true})");
            mWorld.command(R"({"get-stream-config":1})");
            mWorld.command(R"({"stream-suspend":false})");
        }
    });
    for (int i = 0; i < 10; ++i) {
        ASSERT_NO_FATAL_FAILURE(streamFrames(10));
        mWorld.stopStream();
    }
    stop = true;
    other.join();
}

TEST_F(StreamCyclesTest, SurfacesAskedForWhileTheStreamEndsLeaveNothingBehind) {
    TirelessCamera camera(mWorld);
    std::atomic<bool> stop{false};
    std::thread other([&] {
        while (!stop) mWorld.command(kCreate);
    });
    for (int i = 0; i < 20; ++i) {
        mWorld.startStream();
        mWorld.stopStream();
    }
    stop = true;
    other.join();
    EXPECT_EQ(mWorld.command(kCreate), "not streaming");
    EXPECT_EQ(mWorld.surface(), nullptr);
    EXPECT_EQ(mWorld.node.openMappings(), 0u);
}

TEST_F(StreamCyclesTest, ACameraThatAnswersByCallingBackIsServed) {
    std::string reply = "none";
    mWorld.streamClient = mWorld.addClient(3, [&](const std::string& event) {
        if (event == DaemonWorld::kStart) reply = mWorld.command(kCreate);
        return "done";
    });
    TirelessCamera camera(mWorld);
    for (int i = 0; i < 5; ++i) {
        const size_t before = mWorld.node.calls("VIDIOC_QBUF").size();
        mWorld.startStream();
        ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_QBUF", before + 3));
        EXPECT_EQ(reply, "");
        mWorld.stopStream();
    }
}

}  // namespace
}  // namespace korvane::test
