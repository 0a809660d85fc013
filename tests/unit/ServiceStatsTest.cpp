// SPDX-License-Identifier: Apache-2.0
// What the service knows of itself: a frame's road, the node, the surface, the clients.

#include "uvc/ServiceStats.h"

#include <functional>
#include <utility>

#include <gtest/gtest.h>
#include <utils/Timers.h>

namespace {

// What the time is, where a test says so; the linker leads the counts here.
std::function<nsecs_t()> sTime;

}  // namespace

extern "C" nsecs_t __real_systemTime(int clock);
extern "C" nsecs_t __wrap_systemTime(int clock) {
    return sTime ? sTime() : __real_systemTime(clock);
}

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

class ServiceStatsTest : public testing::Test {
  protected:
    ~ServiceStatsTest() override { sTime = nullptr; }

    static uint64_t times(const LatencyHistogram& histogram) {
        uint64_t sum = 0;
        for (size_t i = 0; i < LatencyHistogram::kClasses; ++i) sum += histogram.total(i);
        return sum;
    }

    std::vector<EventHistory::Entry> events() const {
        std::array<EventHistory::Entry, EventHistory::kEvents> all;
        const size_t count = mStats.events().read(&all);
        return {all.begin(), all.begin() + count};
    }

    ServiceStats mStats;
};

TEST_F(ServiceStatsTest, StartsWithNothing) {
    for (size_t i = 0; i < static_cast<size_t>(Count::COUNTS); ++i) {
        EXPECT_EQ(0u, mStats.total(static_cast<Count>(i)));
    }
    EXPECT_EQ(NodeState::NONE, mStats.node());
    EXPECT_EQ(-1, mStats.nodeNumber());
    for (const auto& picture : {mStats.mode(), mStats.surface()}) {
        EXPECT_EQ(0u, picture.width);
        EXPECT_EQ(0u, picture.height);
        EXPECT_EQ(0u, picture.format);
    }
    EXPECT_EQ(0u, mStats.interval());
    EXPECT_EQ(0, mStats.surface().fps);
    EXPECT_EQ(0u, mStats.surfaceUsage());
    EXPECT_EQ(0, mStats.renderer());
    EXPECT_FALSE(mStats.suspended());
    EXPECT_EQ(BufferState::NONE, mStats.buffer(0));
    EXPECT_EQ(-1, mStats.streamStartMs());
    for (size_t kind = 0; kind < 9; ++kind) EXPECT_EQ(0, mStats.client(kind).pid);
    EXPECT_TRUE(events().empty());
}

TEST_F(ServiceStatsTest, AFrameIsTimedFromItsArrivalToItsReturn) {
    mStats.frameArrived(1);
    const int64_t arrived = mStats.arrivalOf(1);
    EXPECT_GT(arrived, 0);
    EXPECT_LE(arrived, systemTime(SYSTEM_TIME_MONOTONIC));
    mStats.frameSent(2);
    EXPECT_EQ(BufferState::QUEUED, mStats.buffer(2));
    EXPECT_EQ(0u, times(mStats.queueing()));
    mStats.frameTook(2, arrived);
    EXPECT_EQ(1u, times(mStats.queueing()));
    EXPECT_EQ(0u, times(mStats.sending()));
    mStats.frameReturned(2);
    EXPECT_EQ(1u, times(mStats.sending()));
    EXPECT_EQ(BufferState::FREE, mStats.buffer(2));
    EXPECT_EQ(1u, mStats.total(Count::FRAMES_DRAWN));
    EXPECT_EQ(1u, mStats.total(Count::FRAMES_SENT));
    EXPECT_EQ(1u, mStats.total(Count::FRAMES_RETURNED));
}

TEST_F(ServiceStatsTest, TheTimeIsThatOfTheFrameItself) {
    mStats.frameArrived(1);
    mStats.frameSent(0);
    // As if it had arrived two seconds ago.
    mStats.frameTook(0, systemTime(SYSTEM_TIME_MONOTONIC) - 2000000000);
    EXPECT_EQ(1u, mStats.queueing().total(LatencyHistogram::kClasses - 1));
}

TEST_F(ServiceStatsTest, AnArrivalThatIsNotKnownIsNotTimed) {
    mStats.frameArrived(1);
    EXPECT_EQ(0, mStats.arrivalOf(2));
    EXPECT_EQ(0, mStats.arrivalOf(65));
    mStats.frameArrived(65);
    EXPECT_EQ(0, mStats.arrivalOf(1));
    mStats.frameSent(0);
    mStats.frameTook(0, 0);
    mStats.frameTook(1, 1);  // nothing was sent with it
    EXPECT_EQ(0u, times(mStats.queueing()));
}

// It takes the place of one that came long before, of which nobody must be given the time.
TEST_F(ServiceStatsTest, AFrameIsKnownOnceItsTimeIs) {
    mStats.frameArrived(1);
    int64_t meanwhile = -1;
    sTime = [&] {
        meanwhile = mStats.arrivalOf(65);
        return nsecs_t{5};
    };
    mStats.frameArrived(65);
    EXPECT_EQ(0, meanwhile);
    EXPECT_EQ(5, mStats.arrivalOf(65));
}

TEST_F(ServiceStatsTest, TimeIsCountedInMillisecondsFromTheStart) {
    sTime = [] { return nsecs_t{123}; };
    const ServiceStats stats;
    EXPECT_EQ(0, stats.nowMs());
    sTime = [] { return nsecs_t{123} + 3600 * INT64_C(1000000000) - 1; };
    EXPECT_EQ(3599999, stats.nowMs());
    sTime = [] { return nsecs_t{123} + 3600 * INT64_C(1000000000); };
    EXPECT_EQ(3600000, stats.nowMs());
}

TEST_F(ServiceStatsTest, BuffersThatThereAreNotAreOnlyCounted) {
    mStats.frameSent(32);
    mStats.frameTook(32, 1);
    mStats.frameReturned(UINT32_MAX);
    EXPECT_EQ(1u, mStats.total(Count::FRAMES_SENT));
    EXPECT_EQ(1u, mStats.total(Count::FRAMES_RETURNED));
    EXPECT_EQ(BufferState::NONE, mStats.buffer(32));
}

TEST_F(ServiceStatsTest, ABufferBeyondTheLastLeavesAllElseAlone) {
    mStats.streamStarted(32);
    mStats.frameSent(32);
    mStats.frameTook(32, 1);
    mStats.frameReturned(32);
    EXPECT_EQ(0u, times(mStats.queueing()));
    EXPECT_EQ(0u, times(mStats.sending()));
    EXPECT_EQ(NodeState::STREAMING, mStats.node());
    for (size_t i = 0; i < 32; ++i) EXPECT_EQ(BufferState::FREE, mStats.buffer(i)) << i;
}

TEST_F(ServiceStatsTest, AReturnOfWhatWasNotSentIsNotTimed) {
    mStats.frameReturned(0);
    EXPECT_EQ(0u, times(mStats.sending()));
}

TEST_F(ServiceStatsTest, WhatWasSentBeforeTheBuffersWentIsForgotten) {
    mStats.streamStarted(4);
    mStats.frameSent(1);
    mStats.buffersReleased();
    mStats.frameTook(1, 1);
    mStats.frameReturned(1);
    EXPECT_EQ(0u, times(mStats.queueing()));
    EXPECT_EQ(0u, times(mStats.sending()));
}

TEST_F(ServiceStatsTest, AStreamStartsCountsAndTimesAnew) {
    mStats.frameArrived(1);
    mStats.frameSent(0);
    mStats.frameTook(0, mStats.arrivalOf(1));
    mStats.frameReturned(0);
    mStats.streamStarted(4);
    EXPECT_EQ(NodeState::STREAMING, mStats.node());
    EXPECT_EQ(0u, mStats.sinceStream(Count::FRAMES_DRAWN));
    EXPECT_EQ(1u, mStats.total(Count::FRAMES_DRAWN));
    EXPECT_EQ(0u, mStats.queueing().sinceMark(0));
    EXPECT_EQ(0u, mStats.sending().sinceMark(0));
    EXPECT_GE(mStats.streamStartMs(), 0);
    EXPECT_EQ(BufferState::FREE, mStats.buffer(3));
    EXPECT_EQ(BufferState::NONE, mStats.buffer(4));
    mStats.streamStopped();
    EXPECT_EQ(NodeState::READY, mStats.node());
    mStats.buffersReleased();
    EXPECT_EQ(BufferState::NONE, mStats.buffer(0));
}

TEST_F(ServiceStatsTest, ANodeHasTheNumberAtTheEndOfItsPath) {
    mStats.setNode(NodeState::READY, "/dev/video12");
    EXPECT_EQ(12, mStats.nodeNumber());
    EXPECT_EQ(NodeState::READY, mStats.node());
    mStats.setNode(NodeState::CLOSED);
    EXPECT_EQ(12, mStats.nodeNumber());
    mStats.setNode(NodeState::NONE);
    EXPECT_EQ(-1, mStats.nodeNumber());
    mStats.setNode(NodeState::UNOPENED, "/dev/video");
    EXPECT_EQ(-1, mStats.nodeNumber());
    const auto all = events();
    ASSERT_EQ(3u, all.size());
    EXPECT_EQ(Event::NODE_OPENED, all[0].event);
    EXPECT_EQ(Event::NODE_REMOVED, all[1].event);
    EXPECT_EQ(12, all[1].detail);
    EXPECT_EQ(Event::NODE_UNOPENED, all[2].event);
}

TEST_F(ServiceStatsTest, ANumberIsAllOfTheDigitsAtTheEnd) {
    const std::pair<const char*, int> paths[] = {{"/dev/video0", 0},
                                                 {"/dev/video9", 9},
                                                 {"/dev/video90", 90},
                                                 {"/dev/5", 5},
                                                 {"/dev/video1:2", 2},
                                                 {"/dev/video1/", -1},
                                                 {"", -1}};
    for (const auto& [path, number] : paths) {
        mStats.setNode(NodeState::READY, path);
        EXPECT_EQ(number, mStats.nodeNumber()) << path;
    }
    const char digits[] = {'1', '2', '\0'};
    mStats.setNode(NodeState::READY, digits + 1);
    EXPECT_EQ(2, mStats.nodeNumber());
}

TEST_F(ServiceStatsTest, AModeHasARateButAnIntervalOfZeroHasNone) {
    mStats.setMode(1280, 720, 0x56595559, 400000);
    EXPECT_EQ(1280u, mStats.mode().width);
    EXPECT_EQ(720u, mStats.mode().height);
    EXPECT_EQ(0x56595559u, mStats.mode().format);
    EXPECT_EQ(25.0f, mStats.mode().fps);
    EXPECT_EQ(400000u, mStats.interval());
    mStats.setMode(0, 0, 0, 0);
    EXPECT_EQ(0.0f, mStats.mode().fps);
}

TEST_F(ServiceStatsTest, ASurfaceIsThereUntilItGoes) {
    mStats.surfaceMade({640, 480, 0x3231564E, 30}, 3);
    mStats.surfaceTaken(77);
    mStats.setSuspended(true);
    EXPECT_EQ(640u, mStats.surface().width);
    EXPECT_EQ(480u, mStats.surface().height);
    EXPECT_EQ(30.0f, mStats.surface().fps);
    EXPECT_EQ(3u, mStats.surfaceUsage());
    EXPECT_EQ(77, mStats.renderer());
    EXPECT_TRUE(mStats.suspended());
    mStats.surfaceGone();
    EXPECT_EQ(0u, mStats.surface().format);
    EXPECT_EQ(0, mStats.renderer());
    EXPECT_FALSE(mStats.suspended());
}

TEST_F(ServiceStatsTest, ANewSurfaceIsTakenByNobodyAndRuns) {
    mStats.surfaceTaken(77);
    mStats.setSuspended(true);
    mStats.surfaceMade({640, 480, 0x3231564E, 30}, 3);
    EXPECT_EQ(0, mStats.renderer());
    EXPECT_FALSE(mStats.suspended());
}

TEST_F(ServiceStatsTest, AClientIsThereUntilItLeavesOrDies) {
    mStats.clientRegistered(3, 42);
    EXPECT_EQ(42, mStats.client(3).pid);
    EXPECT_LE(mStats.client(3).sinceMs, mStats.nowMs());
    EXPECT_EQ(0, mStats.client(1).pid);
    mStats.clientGone(3, Event::CLIENT_DIED);
    EXPECT_EQ(0, mStats.client(3).pid);
    const auto all = events();
    ASSERT_EQ(2u, all.size());
    EXPECT_EQ(Event::CLIENT_REGISTERED, all[0].event);
    EXPECT_EQ(Event::CLIENT_DIED, all[1].event);
    EXPECT_EQ(3, all[1].detail);
}

TEST_F(ServiceStatsTest, KindsThatThereAreNotAreNoClients) {
    mStats.clientRegistered(8, 42);
    mStats.clientGone(255, Event::CLIENT_LEFT);
    EXPECT_EQ(0, mStats.client(8).pid);
    EXPECT_TRUE(events().empty());
}

}  // namespace
}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
