// SPDX-License-Identifier: Apache-2.0
// A setup packet's way through the daemon, over a scripted node: from its arrival to the poll
// thread's response, split into waking a thread, the scripted calls, and the daemon's own share.

#include <atomic>
#include <cstdint>
#include <thread>

#include <fcntl.h>
#include <linux/usb/g_uvc.h>
#include <linux/usb/video.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "ScriptedDaemon.h"
#include "support/Samples.h"
#include "support/ScriptedKernel.h"
#include "uvc/UvcV4l2Ctrl.h"

namespace korvane::bench {
namespace {

using hardware::camera::desktop::V2_0::implementation::PollableDev;
using hardware::camera::desktop::V2_0::implementation::ServiceStats;
using hardware::camera::desktop::V2_0::implementation::UvcV4l2Ctrl;
using test::ScriptedKernel;

constexpr uint8_t kGet = USB_DIR_IN | USB_TYPE_CLASS | USB_RECIP_INTERFACE;
constexpr uint16_t kProbe = UVC_VS_PROBE_CONTROL << 8;

void sendGetCur(ScriptedKernel& node) {
    node.sendSetup(kGet, UVC_GET_CUR, kProbe, 1, 34);
}

/** A descriptor that one thread raises and another resets. */
class Bell {
  public:
    Bell() : mFd(eventfd(0, EFD_CLOEXEC)) {}
    ~Bell() { close(mFd); }
    Bell(const Bell&) = delete;
    Bell& operator=(const Bell&) = delete;

    void ring() const { eventfd_write(mFd, 1); }
    /** Waits as the poll thread does. */
    void take() const {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(mFd, &set);
        select(mFd + 1, &set, nullptr, nullptr, nullptr);
        eventfd_t count;
        eventfd_read(mFd, &count);
    }

  private:
    const int mFd;
};

/** A thread that does nothing but answer, until it is destroyed. */
class Answerer {
  public:
    Answerer() : mThread([this] { run(); }) {}
    ~Answerer() {
        mEnd = true;
        mCall.ring();
        mThread.join();
    }

    void ask() const {
        mCall.ring();
        mAnswer.take();
    }

  private:
    void run() {
        for (;;) {
            mCall.take();
            if (mEnd) return;
            mAnswer.ring();
        }
    }

    Bell mCall;
    Bell mAnswer;
    std::atomic<bool> mEnd{false};
    std::thread mThread;
};

/** Through the poll thread of the whole daemon, until the response reaches the node. */
class PolledNode {
  public:
    void request() {
        mNode.answerNext("UVCIOC_SEND_RESPONSE", [this](void*) {
            mResponded.ring();
            return 0;
        });
        sendGetCur(mNode);
        mResponded.take();
        mNode.clearCalls();
    }

  private:
    ScriptedKernel& mNode = scriptedDaemon().node;
    Bell mResponded;
};

/** The same device class without a thread: the event is handled at once. */
class DirectNode {
  public:
    // Failures show in the log, and in the times.
    DirectNode() { (void)mDevice.open(); }

    void request() {
        sendGetCur(mNode);
        (void)mDevice.handlePendingData(PollableDev::DATA_EXCEPTION);
        mNode.clearCalls();
    }

  private:
    static constexpr char kPath[] = "/dev/video7";
    ScriptedKernel mNode{kPath};
    ServiceStats mStats;
    UvcV4l2Ctrl mDevice{kPath, mStats};
};

/** The cost of the scripted node itself: the same calls, with nothing in between. */
class BareNode {
  public:
    BareNode() : mFd(open(kPath, O_RDWR)) {}
    ~BareNode() { close(mFd); }

    void request() {
        sendGetCur(mNode);
        v4l2_event event;
        ioctl(mFd, VIDIOC_DQEVENT, &event);
        uvc_request_data response = {};
        ioctl(mFd, UVCIOC_SEND_RESPONSE, &response);
        mNode.clearCalls();
    }

  private:
    static constexpr char kPath[] = "/dev/video8";
    ScriptedKernel mNode{kPath};
    const int mFd;
};

void setup(benchmark::State& state) {
    PolledNode polled;
    DirectNode direct;
    BareNode bare;
    Answerer answerer;
    Samples wake, response, handled, scripted;
    for (auto _ : state) {
        wake.add(timed(CLOCK_MONOTONIC, [&] { answerer.ask(); }));
        response.add(timed(CLOCK_MONOTONIC, [&] { polled.request(); }));
        handled.add(timed(CLOCK_MONOTONIC, [&] { direct.request(); }));
        scripted.add(timed(CLOCK_MONOTONIC, [&] { bare.request(); }));
    }
    wake.report(state, "wake");
    response.report(state, "response");
    handled.report(state, "handled");
    scripted.report(state, "scripted");
}

BENCHMARK(setup)->Name("setup")->UseRealTime();

}  // namespace
}  // namespace korvane::bench

int main(int argc, char** argv) {
    return korvane::bench::runWithScriptedDaemon(argc, argv);
}
