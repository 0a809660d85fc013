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
    EXPECT_EQ(Work::kStream, demand.waitForWork(&stream));
    EXPECT_TRUE(demand.isWanted(stream));
    demand.quit();
    EXPECT_EQ(Work::kQuit, demand.waitForWork(&stream));
}

TEST(StreamDemandTest, DoesNotGiveOutAStreamThatWasStopped) {
    StreamDemand demand;
    uint64_t stream = 0;
    demand.start();
    demand.stop();
    demand.serviceDied();
    EXPECT_EQ(Work::kReconnect, demand.waitForWork(&stream));
}

TEST(StreamDemandTest, MakesEveryStartAnotherStream) {
    StreamDemand demand;
    uint64_t first = 0;
    uint64_t second = 0;
    demand.start();
    demand.waitForWork(&first);
    demand.start();
    EXPECT_FALSE(demand.isWanted(first));
    EXPECT_EQ(Work::kStream, demand.waitForWork(&second));
    EXPECT_NE(first, second);
    EXPECT_TRUE(demand.isWanted(second));
}

TEST(StreamDemandTest, ForgetsTheStreamOfAServiceThatDied) {
    StreamDemand demand;
    uint64_t stream = 0;
    demand.start();
    demand.waitForWork(&stream);
    demand.serviceDied();
    EXPECT_FALSE(demand.isWanted(stream));
    EXPECT_EQ(Work::kReconnect, demand.waitForWork(&stream));
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
