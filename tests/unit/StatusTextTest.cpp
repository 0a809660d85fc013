// SPDX-License-Identifier: Apache-2.0
// Both forms of the status word for word, and every name in them.

#include <string>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <utils/Timers.h>

#include "StatusJson.h"
#include "StatusNames.h"
#include "StatusPage.h"

namespace {

// What the counts take for now.
nsecs_t gNowNs = 0;

}  // namespace

extern "C" nsecs_t __wrap_systemTime(int clock) {
    EXPECT_EQ(SYSTEM_TIME_MONOTONIC, clock);
    return gNowNs;
}

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

using testing::ElementsAre;

constexpr uint32_t kYuyv = 0x56595559;
constexpr uint32_t kNv12 = 0x3231564E;

std::string replaced(std::string text, const std::string& what, const std::string& by) {
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
        text.replace(at, what.size(), by);
    }
    return text;
}

class StatusTextTest : public testing::Test {
  protected:
    static void waitUs(int64_t us) { gNowNs += us * 1000; }

    StatusTextTest() {
        waitUs(1500000);
        mStats.setNode(NodeState::READY, "/dev/video5");
        mStats.setMode(1280, 720, kYuyv, 400000);
        for (uint8_t kind = 1; kind < 5; ++kind) mStats.clientRegistered(kind, 100 + kind);
        for (size_t i = 0; i < static_cast<size_t>(Count::COUNTS); ++i) {
            mStats.count(static_cast<Count>(i), 100 * i);
        }
        sendFrame(7, 10, 10);
        waitUs(2250000);
        mStats.streamStarted(3);
        for (size_t i = 0; i < static_cast<size_t>(Count::COUNTS); ++i) {
            mStats.count(static_cast<Count>(i), 1 + i);
        }
        mStats.surfaceMade({640, 480, kNv12, 29.97f}, 0x33);
        mStats.surfaceTaken(555);
        mStats.setSuspended(true);
        sendFrame(1, 100, 20000);
        sendFrame(2, 3000000, 64);
        mStats.frameSent(1);
        for (int i = 0; i < 2; ++i) mStats.note(Event::CALL_FAILED, -5);
        waitUs(500000);
    }

    void sendFrame(uint64_t number, int64_t queueingUs, int64_t sendingUs) {
        mStats.frameArrived(number);
        waitUs(queueingUs);
        mStats.frameSent(0);
        mStats.frameTook(0, mStats.arrivalOf(number));
        waitUs(sendingUs);
        mStats.frameReturned(0);
    }

    static std::string withProcess(const std::string& text) {
        return replaced(text, "PID", std::to_string(getpid()));
    }

    ServiceStats mStats;
};

TEST_F(StatusTextTest, ThePage) {
    EXPECT_EQ(withProcess(R"(Service:  process PID, for 7.3 s
Node:     /dev/video5, streaming
Mode:     YUYV 1280x720, 25.00 fps
Buffers:  0 service 1 driver 2 service
Surface:  NV12 640x480, 29.97 fps, usage 0x33, taken by process 555, suspended
Clients:
  1 launcher   process 101, for 5.8 s
  2 other      process 102, for 5.8 s
  3 stream     process 103, for 5.8 s
  4 controller process 104, for 5.8 s
Counts:                 stream      start
  drawn                       3          4
  sent                        5        106
  returned                    5        206
  repeated                    4        304
  stale                       5        405
  dropped-rate                6        506
  dropped-backward            7        607
  dropped-suspended           8        708
  dropped-no-stream           9        809
  dropped-too-large          10        910
  dropped-unreadable         11       1011
  dropped-refused            12       1112
  requests-answered          13       1213
  requests-stalled           14       1314
  calls-failed               15       1415
  client-calls-failed        16       1516
From arrival to queueing:
  below      64 us          0          1
  below     128 us          1          1
  from  1048576 us          1          1
From queueing to return:
  below      64 us          0          1
  below     128 us          1          1
  below   32768 us          1          1
Events (seconds since the start, what, detail):
       1.500 node-opened        5
       1.500 client-registered  1
       1.500 client-registered  2
       1.500 client-registered  3
       1.500 client-registered  4
       3.750 stream-started     0
       3.750 surface-made       0
       3.750 surface-taken      0
       3.750 frames-suspended   0
       6.770 call-failed        -5, 2 times
)"),
              statusPage(mStats));
}

TEST_F(StatusTextTest, TheJson) {
    EXPECT_EQ(
            withProcess(R"({"pid":PID,"seconds":7.27,"node":{"path":"/dev/video5",)"
                        R"("state":"streaming"},)"
                        R"("mode":{"format":"YUYV","width":1280,"height":720,"fps":25.0,)"
                        R"("interval":400000},)"
                        R"("buffers":["service","driver","service"],)"
                        R"("surface":{"format":"NV12","width":640,"height":480,)"
                        R"("fps":29.969999313354493,"usage":51,"renderer":555,"suspended":true},)"
                        R"("clients":[{"kind":1,"name":"launcher","pid":101,"seconds":5.77},)"
                        R"({"kind":2,"name":"other","pid":102,"seconds":5.77},)"
                        R"({"kind":3,"name":"stream","pid":103,"seconds":5.77},)"
                        R"({"kind":4,"name":"controller","pid":104,"seconds":5.77}],)"
                        R"("stream":{"seconds":3.52,"drawn":3,"sent":5,"returned":5,"repeated":4,)"
                        R"("stale":5,"dropped-rate":6,"dropped-backward":7,"dropped-suspended":8,)"
                        R"("dropped-no-stream":9,"dropped-too-large":10,"dropped-unreadable":11,)"
                        R"("dropped-refused":12,"requests-answered":13,"requests-stalled":14,)"
                        R"("calls-failed":15,"client-calls-failed":16},)"
                        R"("start":{"drawn":4,"sent":106,"returned":206,"repeated":304,)"
                        R"("stale":405,"dropped-rate":506,"dropped-backward":607,)"
                        R"("dropped-suspended":708,"dropped-no-stream":809,)"
                        R"("dropped-too-large":910,"dropped-unreadable":1011,)"
                        R"("dropped-refused":1112,"requests-answered":1213,)"
                        R"("requests-stalled":1314,"calls-failed":1415,)"
                        R"("client-calls-failed":1516},)"
                        R"("latency":{"below-us":[64,128,256,512,1024,2048,4096,8192,16384,32768,)"
                        R"(65536,131072,262144,524288,1048576],)"
                        R"("arrival-to-queueing":{"stream":[0,1,0,0,0,0,0,0,0,0,0,0,0,0,0,1],)"
                        R"("start":[1,1,0,0,0,0,0,0,0,0,0,0,0,0,0,1]},)"
                        R"("queueing-to-return":{"stream":[0,1,0,0,0,0,0,0,0,1,0,0,0,0,0,0],)"
                        R"("start":[1,1,0,0,0,0,0,0,0,1,0,0,0,0,0,0]}},)"
                        R"("events":[{"seconds":1.5,"what":"node-opened","detail":5,"times":1},)"
                        R"({"seconds":1.5,"what":"client-registered","detail":1,"times":1},)"
                        R"({"seconds":1.5,"what":"client-registered","detail":2,"times":1},)"
                        R"({"seconds":1.5,"what":"client-registered","detail":3,"times":1},)"
                        R"({"seconds":1.5,"what":"client-registered","detail":4,"times":1},)"
                        R"({"seconds":3.75,"what":"stream-started","detail":0,"times":1},)"
                        R"({"seconds":3.75,"what":"surface-made","detail":0,"times":1},)"
                        R"({"seconds":3.75,"what":"surface-taken","detail":0,"times":1},)"
                        R"({"seconds":3.75,"what":"frames-suspended","detail":0,"times":1},)"
                        R"({"seconds":6.77,"what":"call-failed","detail":-5,"times":2}]})"
                        "\n"),
            statusJson(mStats));
}

TEST_F(StatusTextTest, WhatThereIsNot) {
    mStats.setSuspended(false);
    EXPECT_THAT(statusPage(mStats), testing::HasSubstr("taken by process 555\nClients:\n"));
    mStats.surfaceMade({640, 480, kNv12, 30}, 3);
    EXPECT_THAT(statusPage(mStats), testing::HasSubstr(", usage 0x3, taken by nobody\nClients:\n"));
    mStats.surfaceGone();
    EXPECT_THAT(statusPage(mStats), testing::HasSubstr("\nSurface:  none\nClients:\n"));
    EXPECT_THAT(statusJson(mStats), testing::HasSubstr(R"(],"surface":null,"clients":[)"));
    mStats.streamStopped();
    mStats.buffersReleased();
    EXPECT_THAT(statusPage(mStats),
                testing::HasSubstr("\nMode:     YUYV 1280x720, 25.00 fps\nSur"));
    EXPECT_THAT(statusJson(mStats), testing::HasSubstr(R"(,"buffers":[],"surface")"));
    mStats.setNode(NodeState::CLOSED);
    EXPECT_THAT(statusPage(mStats), testing::HasSubstr("\nNode:     /dev/video5, closed\nSur"));
    EXPECT_THAT(statusJson(mStats), testing::HasSubstr(R"("state":"closed"},"mode":null,"bu)"));
    mStats.setNode(NodeState::NONE);
    EXPECT_THAT(statusPage(mStats), testing::HasSubstr("\nNode:     none\nSur"));
    EXPECT_THAT(statusJson(mStats), testing::HasSubstr(R"({"path":"","state":"none"})"));
    mStats.clientGone(3, Event::CLIENT_LEFT);
    EXPECT_THAT(statusPage(mStats), testing::Not(testing::HasSubstr("  3 stream")));
}

TEST_F(StatusTextTest, OfTheFirstNodeAndOfAStreamFromTheFirstMoment) {
    ServiceStats stats;
    stats.setNode(NodeState::READY, "/dev/video0");
    EXPECT_THAT(statusPage(stats), testing::HasSubstr("\nNode:     /dev/video0, ready\n"));
    EXPECT_THAT(statusJson(stats), testing::HasSubstr(R"("stream":{"drawn":0,)"));
    stats.streamStarted(1);
    EXPECT_THAT(statusJson(stats), testing::HasSubstr(R"("stream":{"seconds":0.0,"drawn":0,)"));
    EXPECT_THAT(statusPage(stats), testing::HasSubstr("\nBuffers:  0 service\n"));
}

TEST_F(StatusTextTest, OfAKindBeyondTheLastThereIsNothing) {
    mStats.clientRegistered(0, 100);
    EXPECT_THAT(statusPage(mStats),
                testing::HasSubstr("Clients:\n  0 other      process 100, for "));
    EXPECT_THAT(statusJson(mStats), testing::HasSubstr(R"("clients":[{"kind":0,"name":"other",)"));
    const std::string before = statusJson(mStats);
    mStats.clientRegistered(8, 108);
    mStats.clientGone(8, Event::CLIENT_LEFT);
    EXPECT_EQ(before, statusJson(mStats));
    EXPECT_EQ(0, mStats.client(8).pid);
    EXPECT_EQ(0, mStats.client(8).sinceMs);
}

TEST(StatusNamesTest, OfEveryEvent) {
    std::vector<std::string> names;
    for (int i = 0; i <= static_cast<int>(Event::DUMP_STARTED); ++i) {
        names.push_back(nameOf(static_cast<Event>(i)));
    }
    EXPECT_THAT(names,
                ElementsAre("", "node-opened", "node-unopened", "node-removed", "cable-pulled",
                            "host-disconnected", "mode-committed", "stream-started",
                            "stream-refused", "stream-stopped", "surface-made", "surface-refused",
                            "surface-taken", "frames-suspended", "frames-resumed",
                            "client-registered", "client-left", "client-died", "client-failed",
                            "call-failed", "writes-given-up", "dump-started"));
    EXPECT_STREQ("", nameOf(static_cast<Event>(63)));
}

TEST(StatusNamesTest, OfEveryState) {
    EXPECT_STREQ("none", nameOf(NodeState::NONE));
    EXPECT_STREQ("unopened", nameOf(NodeState::UNOPENED));
    EXPECT_STREQ("closed", nameOf(NodeState::CLOSED));
    EXPECT_STREQ("ready", nameOf(NodeState::READY));
    EXPECT_STREQ("streaming", nameOf(NodeState::STREAMING));
    EXPECT_STREQ("", nameOf(static_cast<NodeState>(99)));
    EXPECT_STREQ("", nameOf(BufferState::NONE));
    EXPECT_STREQ("service", nameOf(BufferState::FREE));
    EXPECT_STREQ("driver", nameOf(BufferState::QUEUED));
    EXPECT_STREQ("", nameOf(static_cast<BufferState>(99)));
    EXPECT_STREQ("", nameOf(Count::COUNTS));
}

TEST(StatusNamesTest, OfEveryKind) {
    std::vector<std::string> names;
    for (size_t kind = 0; kind < 8; ++kind) names.push_back(nameOfKind(kind));
    EXPECT_THAT(names, ElementsAre("other", "launcher", "other", "stream", "controller", "other",
                                   "other", "other"));
}

TEST(StatusNamesTest, AFormatsOtherBytesAreShownAsQuestionMarks) {
    EXPECT_EQ(" ~??", formatName(0x7f1f7e20));
    EXPECT_EQ("?", formatName(0xff));
}

}  // namespace
}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
