// SPDX-License-Identifier: Apache-2.0
// The controller's poll thread: what it waits for, in which order it serves it, how it ends.

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>

#include <android-base/unique_fd.h>
#include <gmock/gmock.h>
#include <gui/bufferqueue/1.0/H2BGraphicBufferProducer.h>

#include "support/DaemonWorld.h"
#include "support/DescriptorZero.h"
#include "support/FrameProducer.h"
#include "support/HighDescriptors.h"
#include "support/OpenDescriptors.h"

using ::korvane::hardware::camera::desktop::V2_0::implementation::ServiceStats;
using ::korvane::hardware::camera::desktop::V2_0::implementation::UvcV4l2Ctrl;

namespace {

std::atomic<bool> sSocketFails{false};
std::atomic<bool> sSocketIsZero{false};
std::atomic<bool> sSocketIsHigh{false};
std::atomic<bool> sEventsFail{false};
std::atomic<int> sWaits{0};
std::atomic<int> sBoundedWaits{0};

/** Where the poll thread can be stopped: it sleeps while it waits for an added node's file. */
class Gate {
  public:
    void close() {
        const std::lock_guard<std::mutex> guard(mLock);
        mClosed = true;
        mReached = false;
    }
    bool waitUntilReached() {
        std::unique_lock<std::mutex> guard(mLock);
        return mChanged.wait_for(guard, std::chrono::seconds(10), [this] { return mReached; });
    }
    void open() {
        const std::lock_guard<std::mutex> guard(mLock);
        mClosed = false;
        mChanged.notify_all();
    }
    void pass() {
        std::unique_lock<std::mutex> guard(mLock);
        mReached = true;
        mChanged.notify_all();
        mChanged.wait(guard, [this] { return !mClosed; });
    }

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    bool mClosed = false;
    bool mReached = false;
};

Gate& gate() {
    static auto* sGate = new Gate;  // threads go on while the process exits
    return *sGate;
}

/** A device of which the poll thread is told, if the test says so, that it failed. */
class DeviceWithFailingEvents : public UvcV4l2Ctrl {
  public:
    using UvcV4l2Ctrl::UvcV4l2Ctrl;

    int32_t handlePendingData(PENDING_DATA_TYPE type) override {
        const int32_t result = UvcV4l2Ctrl::handlePendingData(type);
        return type == DATA_EXCEPTION && sEventsFail ? -EIO : result;
    }
};

}  // namespace

// The linker sends the calls of the code under test here (--wrap).

extern "C" int __real_uevent_open_socket(int bufferSize, bool passCredentials);
extern "C" int __wrap_uevent_open_socket(int bufferSize, bool passCredentials) {
    if (sSocketFails) return -1;
    const int socket = __real_uevent_open_socket(bufferSize, passCredentials);
    if (sSocketIsHigh) {
        const korvane::test::HighDescriptors taken;
        const int high = dup(socket);
        close(socket);
        return high;
    }
    if (!sSocketIsZero) return socket;
    dup3(socket, STDIN_FILENO, O_CLOEXEC);
    close(socket);
    return STDIN_FILENO;
}

extern "C" int __real_select(int width, fd_set* r, fd_set* w, fd_set* e, timeval* timeout);
extern "C" int __wrap_select(int width, fd_set* r, fd_set* w, fd_set* e, timeval* timeout) {
    ++(timeout == nullptr ? sWaits : sBoundedWaits);
    return __real_select(width, r, w, e, timeout);
}

extern "C" int __wrap_usleep(useconds_t /* microseconds */) {
    gate().pass();
    return 0;
}

void constructDevice(void* device, const char* path,
                     ServiceStats& stats) __asm__("__wrap_" CONSTRUCT_DEVICE);
void constructDevice(void* device, const char* path, ServiceStats& stats) {
    static_assert(sizeof(DeviceWithFailingEvents) == sizeof(UvcV4l2Ctrl));
    new (device) DeviceWithFailingEvents(path, stats);
}

namespace korvane::test {
namespace {

using ::android::hardware::graphics::bufferqueue::V1_0::utils::H2BGraphicBufferProducer;
using testing::ElementsAre;

std::vector<std::string> threadNames() {
    std::vector<std::string> names;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        names.push_back(name);
    }
    return names;
}

bool hasPollThread() {
    const auto names = threadNames();
    return std::count(names.begin(), names.end(), "poll_thread") > 0;
}

class UvcGadgetPollTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mWorld.available()) GTEST_SKIP() << mWorld.whyNot();
        sSocketFails = false;
        sSocketIsZero = false;
        sSocketIsHigh = false;
        sEventsFail = false;
    }

    void TearDown() override { gate().open(); }

    bool waitError(const std::string& message) {
        return mWorld.waitLog(ANDROID_LOG_ERROR, message);
    }
    size_t countError(const std::string& message) {
        return mWorld.log.count(ANDROID_LOG_ERROR, DaemonWorld::kTag, message);
    }

    // Stops the poll thread within its handling of a kernel event; what the test makes ready from
    // then on, the thread finds ready at once when it goes on.
    void stopPollThread() {
        gate().close();
        mWorld.raiseAdd("video9");
        ASSERT_TRUE(gate().waitUntilReached());
        mWorld.node.clearCalls();
    }

    // A stream of which one frame waits in the device.
    void streamOneFrame() {
        mWorld.start();
        mWorld.commit(1, 1);
        mWorld.startStream();
        ASSERT_EQ(mWorld.command(R"({"create-surface":{"width":640,"height":480,)"
                                 R"("consumer-usage":3,"v4l2-format":"NV12","fps":30}})"),
                  "");
        mCamera.emplace(new H2BGraphicBufferProducer(mWorld.surface()));
        ASSERT_EQ(mCamera->connect(), android::OK);
        ASSERT_GE(mCamera->queue({}), 0);
        ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_QBUF", 1));
    }

    // The calls by which frames and events are taken from the device.
    std::vector<std::string> dequeues() {
        std::vector<std::string> names;
        for (const std::string& name : mWorld.node.callNames()) {
            if (name == "VIDIOC_DQBUF" || name == "VIDIOC_DQEVENT") names.push_back(name);
        }
        return names;
    }

    // Its thread has all the descriptors that it needs, but for the device's.
    void startWithoutDevice() {
        mWorld.node.setDriver("uvcvideo");
        mWorld.create();
        ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_QUERYCAP", 1));
        mWorld.settle();
        mWorld.streamClient = mWorld.addClient(3, "camera");
    }

    // The number is the lowest that is free.
    void startDeviceAs(int number) {
        const size_t earlier = mWorld.node.calls("VIDIOC_S_FMT").size();
        mWorld.node.setDriver("g_uvc");
        mWorld.raiseAdd();
        ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_S_FMT", earlier + 1));
        ASSERT_EQ(mWorld.node.calls("VIDIOC_S_FMT")[earlier].fd, number);
    }

    // Returns the device's number, which is lower than the socket's.
    int startDeviceBelowTheSocket() {
        android::base::unique_fd low(open("/dev/null", O_RDONLY | O_CLOEXEC));
        startWithoutDevice();
        const int number = low.get();
        low.reset();
        startDeviceAs(number);
        return number;
    }

    DaemonWorld mWorld;
    std::optional<FrameProducer> mCamera;
};

TEST_F(UvcGadgetPollTest, RunsOnAThreadOfItsName) {
    mWorld.start();
    EXPECT_THAT(threadNames(), testing::Contains("poll_thread").Times(1));
}

TEST_F(UvcGadgetPollTest, WaitsWithoutALimit) {
    sWaits = 0;
    streamOneFrame();
    ASSERT_TRUE(mWorld.node.send());
    mWorld.stopStream();
    mWorld.raiseRemove();
    mWorld.settle();
    EXPECT_GT(sWaits, 0);
    EXPECT_EQ(sBoundedWaits, 0);
}

TEST_F(UvcGadgetPollTest, AsksAnIdleDeviceForEventsOnly) {
    mWorld.start();
    for (size_t events = 1; events <= 3; ++events) {
        mWorld.node.sendEvent(UVC_EVENT_CONNECT);
        ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_DQEVENT", events));
    }
    EXPECT_THAT(dequeues(), ElementsAre("VIDIOC_DQEVENT", "VIDIOC_DQEVENT", "VIDIOC_DQEVENT"));
}

TEST_F(UvcGadgetPollTest, TakesASentFrameBeforeAnEvent) {
    streamOneFrame();
    stopPollThread();
    ASSERT_TRUE(mWorld.node.send());
    mWorld.node.sendEvent(UVC_EVENT_CONNECT);
    gate().open();
    ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_DQEVENT", 1));
    EXPECT_THAT(dequeues(), ElementsAre("VIDIOC_DQBUF", "VIDIOC_DQEVENT"));
}

TEST_F(UvcGadgetPollTest, HandlesTheKernelsEventsBeforeTheDevices) {
    mWorld.start();
    stopPollThread();
    mWorld.raiseRemove();
    mWorld.node.sendEvent(UVC_EVENT_STREAMON);
    gate().open();
    ASSERT_TRUE(mWorld.node.waitForCalls("close", 1));
    mWorld.settle();
    EXPECT_THAT(mWorld.node.callNames(), ElementsAre("close"));
    EXPECT_TRUE(mWorld.streamClient->commands().empty());
}

TEST_F(UvcGadgetPollTest, AsksNothingOfADeviceThatTheWriteSideHasRemoved) {
    mWorld.start();
    mWorld.startStream();
    mWorld.node.clearCalls();
    // From now on there is output to take and an event to fetch, in every round.
    mWorld.node.remove();
    ASSERT_TRUE(waitError("UVC device is no longer present"));
    ASSERT_TRUE(mWorld.node.waitForCalls("close", 1));
    mWorld.settle();
    EXPECT_THAT(dequeues(), ElementsAre("VIDIOC_DQBUF", "VIDIOC_DQEVENT",  //
                                        "VIDIOC_DQBUF", "VIDIOC_DQEVENT",  //
                                        "VIDIOC_DQBUF", "VIDIOC_DQEVENT",  //
                                        "VIDIOC_DQBUF", "VIDIOC_DQEVENT",  //
                                        "VIDIOC_DQBUF"));
}

TEST_F(UvcGadgetPollTest, GoesOnAfterAnEventThatFailed) {
    mWorld.start();
    sEventsFail = true;
    mWorld.node.sendEvent(UVC_EVENT_CONNECT);
    EXPECT_TRUE(waitError("uvc ctrl handle data failed"));
    sEventsFail = false;
    mWorld.startStream();
    EXPECT_EQ(countError("uvc ctrl handle data failed"), 1u);
}

TEST_F(UvcGadgetPollTest, GoesOnAfterAKernelEventThatFailed) {
    mWorld.start();
    mWorld.raiseAdd("video9");
    EXPECT_TRUE(waitError("hot plug ctrl handle data failed"));
    mWorld.startStream();
    EXPECT_EQ(countError("hot plug ctrl handle data failed"), 1u);
}

TEST_F(UvcGadgetPollTest, WatchesADeviceWhoseDescriptorIsTheLowerOne) {
    startDeviceBelowTheSocket();
    mWorld.startStream();
    mWorld.settle();
    EXPECT_TRUE(mWorld.streamClient->waitFor(DaemonWorld::kStop));
}

TEST_F(UvcGadgetPollTest, WatchesADeviceWhoseDescriptorIsZero) {
    startWithoutDevice();
    const DescriptorZero zero;
    startDeviceAs(0);
    mWorld.startStream();
    mWorld.stopStream();
    EXPECT_TRUE(mWorld.streamClient->waitFor(DaemonWorld::kStop));
    mWorld.settle();  // which closes it
}

TEST_F(UvcGadgetPollTest, WatchesASocketWhoseDescriptorIsZero) {
    sSocketIsZero = true;
    startWithoutDevice();
    mWorld.node.setDriver("g_uvc");
    mWorld.raiseAdd();
    EXPECT_TRUE(mWorld.node.waitForCalls("VIDIOC_S_FMT", 1));
}

TEST_F(UvcGadgetPollTest, WaitsForNothingOfADeviceThatWentWithAnEvent) {
    const int number = startDeviceBelowTheSocket();
    stopPollThread();
    mWorld.node.sendEvent(UVC_EVENT_CONNECT);
    mWorld.raiseRemove();
    gate().open();
    startDeviceAs(number);
    EXPECT_EQ(countError("select failed"), 0u);
}

TEST_F(UvcGadgetPollTest, ServesTheDeviceWithoutTheKernelsEvents) {
    sSocketFails = true;
    mWorld.start();
    mWorld.startStream();
    mWorld.stopStream();
    EXPECT_EQ(countError("Fix: no fd to select"), 0u);
}

TEST_F(UvcGadgetPollTest, ADeviceThatCannotBeWatchedIsNotOpen) {
    startWithoutDevice();
    mWorld.node.setDriver("g_uvc");
    const int before = countOpenDescriptors();
    {
        const HighDescriptors taken;
        if (!taken.areLeft()) GTEST_SKIP() << "no descriptor above FD_SETSIZE is allowed";
        mWorld.raiseAdd();
        ASSERT_TRUE(waitError("failed to open uvc v4l2"));
    }
    EXPECT_TRUE(mWorld.log.has(ANDROID_LOG_ERROR, "UVC-V4l2Ctrl", "open [/dev/video0] failed 24"));
    EXPECT_EQ(countOpenDescriptors(), before);
    EXPECT_EQ(mWorld.node.calls("VIDIOC_S_FMT").size(), 0u);
    mWorld.raiseRemove();
    mWorld.raiseAdd();
    EXPECT_TRUE(mWorld.node.waitForCalls("VIDIOC_S_FMT", 1));
}

TEST_F(UvcGadgetPollTest, ASocketThatCannotBeWatchedIsNotOpen) {
    if (!HighDescriptors().areLeft()) GTEST_SKIP() << "no descriptor above FD_SETSIZE is allowed";
    sSocketIsHigh = true;
    mWorld.create();
    ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_S_FMT", 1));
    EXPECT_TRUE(mWorld.log.has(ANDROID_LOG_ERROR, "UVC-HotPlugCtrl",
                               "failed to open the uevent socket, errno 24"));
    EXPECT_EQ(fcntl(FD_SETSIZE, F_GETFD), -1);
    mWorld.node.sendEvent(UVC_EVENT_CONNECT);
    EXPECT_TRUE(mWorld.node.waitForCalls("VIDIOC_DQEVENT", 1));
}

TEST_F(UvcGadgetPollTest, WaitsForNothingWithoutAnyDescriptor) {
    sSocketFails = true;
    mWorld.node.setDriver("uvcvideo");
    mWorld.create();
    ASSERT_TRUE(waitError("Fix: no fd to select"));
    mWorld.node.sendEvent(UVC_EVENT_CONNECT);  // has the waiting thread look again
    EXPECT_TRUE(hasPollThread());
    mWorld.node.fail("select", EINTR);
    EXPECT_TRUE(waitError("select failed"));
    EXPECT_EQ(countError("Fix: no fd to select"), 1u);
}

TEST_F(UvcGadgetPollTest, EndsForGoodWhenSelectFails) {
    mWorld.start();
    mWorld.node.clearCalls();
    mWorld.node.fail("select", EINTR);
    ASSERT_TRUE(waitError("select failed"));
    while (hasPollThread()) std::this_thread::yield();
    mWorld.node.sendEvent(UVC_EVENT_STREAMON);
    mWorld.raiseRemove();
    EXPECT_EQ(mWorld.command(R"({"get-stream-config":1})").substr(0, 9), R"({"width":)");
    EXPECT_TRUE(mWorld.node.calls().empty());
}

}  // namespace
}  // namespace korvane::test
