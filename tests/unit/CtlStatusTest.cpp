// SPDX-License-Identifier: Apache-2.0
// The service's status as desktopctl reads and shows it, and how the program ends by it.

#include <string>

#include <sys/prctl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "StatusJson.h"
#include "desktopctl/Screens.h"
#include "desktopctl/Status.h"

namespace korvane::ctl {
namespace {

namespace service = ::korvane::hardware::camera::desktop::V2_0::implementation;
using testing::HasSubstr;

class CtlStatusTest : public testing::Test {
  protected:
    // As the service itself writes it.
    Status read() const {
        const auto status = parseStatus(service::statusJson(mStats));
        EXPECT_TRUE(status);
        return status.value_or(Status());
    }

    void stream() {
        mStats.setNode(service::NodeState::READY, "/dev/video3");
        mStats.setMode(640, 480, 0x56595559, 333333);
        mStats.streamStarted(4);
        mStats.clientRegistered(3, getpid());
        mStats.surfaceMade({640, 480, 0x3231564e, 30}, 3);
        mStats.surfaceTaken(getpid());
    }

    service::ServiceStats mStats;
};

TEST_F(CtlStatusTest, HasWhatTheServiceSays) {
    stream();
    mStats.frameArrived(1);
    mStats.frameSent(2);
    mStats.frameTook(2, mStats.arrivalOf(1));
    mStats.count(service::Count::DROPPED_RATE, 3);
    mStats.setSuspended(true);
    const Status status = read();
    EXPECT_EQ(getpid(), status.pid);
    EXPECT_EQ("/dev/video3", status.nodePath);
    EXPECT_TRUE(status.isStreaming());
    ASSERT_TRUE(status.mode);
    EXPECT_EQ("YUYV", status.mode->format);
    EXPECT_EQ(640u, status.mode->width);
    ASSERT_EQ(4u, status.buffers.size());
    EXPECT_EQ("driver", status.buffers[2]);
    ASSERT_EQ(1u, status.clients.size());
    EXPECT_EQ(3u, status.clients[0].kind);
    ASSERT_TRUE(status.surface);
    EXPECT_EQ(getpid(), status.surface->renderer);
    EXPECT_TRUE(status.surface->suspended);
    EXPECT_EQ(1u, status.ofStream("drawn"));
    EXPECT_EQ(1u, status.ofStart("sent"));
    EXPECT_EQ(0u, status.ofStart("unheard-of"));
    EXPECT_EQ(3u, status.dropped());
    EXPECT_EQ(15u, status.belowUs.size());
}

TEST_F(CtlStatusTest, TheExitStatusIsThatOfTheFirstThingThatIsMissing) {
    EXPECT_EQ(NO_NODE, read().exitCode());
    mStats.clientRegistered(3, 1);
    EXPECT_EQ(NO_NODE, read().exitCode());
    mStats.setNode(service::NodeState::UNOPENED, "/dev/video0");
    EXPECT_EQ(NO_NODE, read().exitCode());
    mStats.setNode(service::NodeState::CLOSED);
    EXPECT_EQ(NO_NODE, read().exitCode());
    mStats.setNode(service::NodeState::READY, "/dev/video0");
    EXPECT_EQ(READY, read().exitCode());
    mStats.clientGone(3, service::Event::CLIENT_DIED);
    EXPECT_EQ(NO_CAMERA, read().exitCode());
    mStats.clientRegistered(4, 1);
    EXPECT_EQ(NO_CAMERA, read().exitCode());
    mStats.clientRegistered(1, 1);
    EXPECT_EQ(READY, read().exitCode());
    mStats.streamStarted(4);
    EXPECT_EQ(READY, read().exitCode());
}

TEST_F(CtlStatusTest, AnythingElseIsNoStatus) {
    for (const char* text :
         {"", "{", "[]", "{}", "null", "{\"node\":1}", "text", "{\"node\":[]}"}) {
        EXPECT_FALSE(parseStatus(text)) << text;
    }
}

TEST_F(CtlStatusTest, MembersOfWrongTypesCountForNothing) {
    const auto status = parseStatus(
            R"({"node":{"path":1,"state":true},"pid":"1","seconds":[],"mode":[1],"buffers":{},)"
            R"("clients":[1,{"kind":-1}],"surface":7,"stream":[],"start":{"sent":-1,"drawn":"x"},)"
            R"("latency":{"below-us":["a"],"queueing-to-return":[]}})");
    ASSERT_TRUE(status);
    EXPECT_EQ(NO_NODE, status->exitCode());
    EXPECT_EQ(0, status->pid);
    EXPECT_FALSE(status->mode);
    EXPECT_FALSE(status->surface);
    EXPECT_EQ(2u, status->clients.size());
    EXPECT_EQ(0u, status->ofStart("sent"));
}

// --- What is shown ---

TEST_F(CtlStatusTest, TheScreenShowsRatesBetweenTwoLooks) {
    stream();
    const Status before = read();
    for (int i = 0; i < 50; ++i) mStats.frameArrived(i);
    for (int i = 0; i < 40; ++i) mStats.frameSent(i % 4);
    mStats.count(service::Count::DROPPED_TOO_LARGE, 10);
    const std::string screen = watchScreen(read(), &before, 2.0);
    EXPECT_THAT(screen, HasSubstr("Frames      drawn 25.0/s, sent 20.0/s, returned 0.0/s\n"));
    EXPECT_THAT(screen, HasSubstr("Stream      40 sent in "));
    EXPECT_THAT(screen, HasSubstr("Dropped     10, too-large 10\n"));
    EXPECT_THAT(screen, HasSubstr("Node        /dev/video3 streaming\n"));
    EXPECT_THAT(screen, HasSubstr("Buffers     driver driver driver driver\n"));
    EXPECT_THAT(screen, HasSubstr("taken by " + std::to_string(getpid()) + " ("));
    EXPECT_LE(std::count(screen.begin(), screen.end(), '\n'), 24);
}

TEST_F(CtlStatusTest, TheFirstScreenHasNoRates) {
    EXPECT_THAT(watchScreen(read(), nullptr, 1), HasSubstr("drawn 0.0/s"));
    EXPECT_THAT(watchScreen(read(), nullptr, 1), HasSubstr("Surface     none\n"));
}

TEST_F(CtlStatusTest, ABoundHoldsForItsPartOfTheTimes) {
    Status status;
    status.belowUs = {64, 128, 256};
    EXPECT_EQ(0u, boundOf(status, {{0, 0, 0, 0}}, 0.5));
    EXPECT_EQ(64u, boundOf(status, {{50, 49, 1, 0}}, 0.5));
    EXPECT_EQ(128u, boundOf(status, {{50, 49, 1, 0}}, 0.99));
    EXPECT_EQ(256u, boundOf(status, {{50, 48, 2, 0}}, 0.99));
    EXPECT_EQ(UINT64_MAX, boundOf(status, {{0, 0, 0, 1}}, 0.5));
}

TEST_F(CtlStatusTest, ClientsHaveTheNameOfTheirProcess) {
    // An emulated program has its emulator's name until it has one of its own.
    ASSERT_EQ(0, prctl(PR_SET_NAME, "a-launcher"));
    mStats.clientRegistered(1, getpid());
    EXPECT_THAT(clientList(read()),
                HasSubstr("1 launcher   " + std::to_string(getpid()) + " (a-launcher), for "));
    EXPECT_EQ("?", processName(-1));
}

}  // namespace
}  // namespace korvane::ctl
