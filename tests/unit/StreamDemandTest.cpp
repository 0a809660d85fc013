// SPDX-License-Identifier: Apache-2.0
#include "desktop-camera/StreamDemand.h"

#include <cstdint>
#include <thread>

#include <gtest/gtest.h>

namespace korvane::camera {
namespace {

using Work = StreamDemand::Work;

constexpr int64_t kLong = 60'000'000'000;

TEST(StreamDemandTest, GivesEachStreamOutOnce) {
    StreamDemand demand;
    uint64_t stream = 0;
    demand.start();
    EXPECT_EQ(Work::STREAM, demand.waitForWork(&stream));
    EXPECT_TRUE(demand.isWanted(stream));
    demand.quit();
    EXPECT_EQ(Work::QUIT, demand.waitForWork(&stream));
}

TEST(StreamDemandTest, DoesNotGiveOutAStreamThatWasStopped) {
    StreamDemand demand;
    uint64_t stream = 0;
    demand.start();
    demand.stop();
    demand.serviceDied();
    EXPECT_EQ(Work::RECONNECT, demand.waitForWork(&stream));
}

TEST(StreamDemandTest, MakesEveryStartAnotherStream) {
    StreamDemand demand;
    uint64_t first = 0;
    uint64_t second = 0;
    demand.start();
    demand.waitForWork(&first);
    demand.start();
    EXPECT_FALSE(demand.isWanted(first));
    EXPECT_EQ(Work::STREAM, demand.waitForWork(&second));
    EXPECT_NE(first, second);
    EXPECT_TRUE(demand.isWanted(second));
}

TEST(StreamDemandTest, TakesTheFirstStartAfterJoiningForTheJoinedStreamsOwn) {
    StreamDemand demand;
    uint64_t joined = 0;
    uint64_t next = 0;
    demand.join();
    EXPECT_EQ(Work::JOIN, demand.waitForWork(&joined));
    demand.start();
    EXPECT_TRUE(demand.isWanted(joined));
    demand.start();
    EXPECT_FALSE(demand.isWanted(joined));
    EXPECT_EQ(Work::STREAM, demand.waitForWork(&next));
    EXPECT_NE(joined, next);
}

TEST(StreamDemandTest, DoesNotJoinWhileAStreamIsWanted) {
    StreamDemand demand;
    uint64_t stream = 0;
    demand.start();
    demand.join();
    EXPECT_EQ(Work::STREAM, demand.waitForWork(&stream));
    demand.join();
    EXPECT_TRUE(demand.isWanted(stream));
}

TEST(StreamDemandTest, ForgetsTheStartsOfAJoinedStreamWithIt) {
    StreamDemand demand;
    uint64_t joined = 0;
    uint64_t next = 0;
    demand.join();
    demand.waitForWork(&joined);
    demand.stop();
    EXPECT_FALSE(demand.isWanted(joined));
    demand.start();
    EXPECT_EQ(Work::STREAM, demand.waitForWork(&next));
    EXPECT_NE(joined, next);
}

TEST(StreamDemandTest, TakesAStreamForStartedWhenTheJoinedOneWasNotThere) {
    StreamDemand demand;
    uint64_t joined = 0;
    uint64_t next = 0;
    demand.join();
    demand.waitForWork(&joined);
    demand.start();
    demand.over(joined);
    EXPECT_EQ(Work::STREAM, demand.waitForWork(&next));
    EXPECT_NE(joined, next);
    EXPECT_TRUE(demand.isWanted(next));
}

TEST(StreamDemandTest, WantsNothingAfterAStreamIsOverUntilTheNextStart) {
    StreamDemand demand;
    uint64_t joined = 0;
    uint64_t next = 0;
    demand.join();
    demand.waitForWork(&joined);
    demand.over(joined);
    EXPECT_FALSE(demand.isWanted(joined));
    demand.start();
    EXPECT_EQ(Work::STREAM, demand.waitForWork(&next));
    demand.over(joined);
    EXPECT_TRUE(demand.isWanted(next)) << "that was another one";
}

TEST(StreamDemandTest, ForgetsTheStreamOfAServiceThatDied) {
    StreamDemand demand;
    uint64_t stream = 0;
    demand.start();
    demand.waitForWork(&stream);
    demand.serviceDied();
    EXPECT_FALSE(demand.isWanted(stream));
    EXPECT_EQ(Work::RECONNECT, demand.waitForWork(&stream));
}

TEST(StreamDemandTest, EndsAStreamsWaitAtOnce) {
    const auto endings = {&StreamDemand::stop, &StreamDemand::start, &StreamDemand::serviceDied,
                          &StreamDemand::quit};
    for (const auto ending : endings) {
        StreamDemand demand;
        uint64_t stream = 0;
        demand.start();
        demand.waitForWork(&stream);
        const int64_t before = monotonicNs();
        std::thread other([&] { (demand.*ending)(); });
        EXPECT_FALSE(StreamTicket(demand, stream).sleepUntil(before + kLong));
        EXPECT_LT(monotonicNs() - before, kLong / 2);
        other.join();
    }
}

TEST(StreamDemandTest, WaitsUntilTheTimeWhileTheStreamIsWanted) {
    StreamDemand demand;
    uint64_t stream = 0;
    demand.start();
    demand.waitForWork(&stream);
    const int64_t until = monotonicNs() + 5'000'000;
    EXPECT_TRUE(StreamTicket(demand, stream).sleepUntil(until));
    EXPECT_GE(monotonicNs(), until);
}

TEST(StreamDemandTest, EndsTheWaitForTheServiceOnlyWhenTheProgramEnds) {
    StreamDemand demand;
    demand.start();
    EXPECT_TRUE(demand.waitToRetry(monotonicNs() + 1'000'000));
    const int64_t before = monotonicNs();
    std::thread other([&] { demand.quit(); });
    EXPECT_FALSE(demand.waitToRetry(before + kLong));
    EXPECT_LT(monotonicNs() - before, kLong / 2);
    other.join();
}

}  // namespace
}  // namespace korvane::camera
