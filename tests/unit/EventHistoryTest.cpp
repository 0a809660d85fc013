// SPDX-License-Identifier: Apache-2.0
// The last events: their order, their details, repetitions, more of them than there is room for.

#include "uvc/EventHistory.h"

#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

class EventHistoryTest : public testing::Test {
  protected:
    std::vector<EventHistory::Entry> entries() const {
        std::array<EventHistory::Entry, EventHistory::kEvents> all;
        const size_t count = mHistory.read(&all);
        return {all.begin(), all.begin() + count};
    }

    EventHistory mHistory;
};

TEST_F(EventHistoryTest, IsEmptyAtFirst) {
    EXPECT_TRUE(entries().empty());
}

TEST_F(EventHistoryTest, KeepsWhatItIsToldOldestFirst) {
    mHistory.add(Event::NODE_OPENED, 7, 0);
    mHistory.add(Event::CALL_FAILED, -5, 60000000000);
    const auto all = entries();
    ASSERT_EQ(2u, all.size());
    EXPECT_EQ(Event::NODE_OPENED, all[0].event);
    EXPECT_EQ(7, all[0].detail);
    EXPECT_EQ(1u, all[0].times);
    EXPECT_EQ(0, all[0].ms);
    EXPECT_EQ(Event::CALL_FAILED, all[1].event);
    EXPECT_EQ(-5, all[1].detail);
    EXPECT_EQ(60000000000, all[1].ms);
}

TEST_F(EventHistoryTest, KeepsDetailsFromOneLimitToTheOther) {
    for (int detail : {-8192, 8191, -8193, 8192}) mHistory.add(Event::CALL_FAILED, detail, 1);
    const auto all = entries();
    ASSERT_EQ(3u, all.size());
    EXPECT_EQ(-8192, all[0].detail);
    EXPECT_EQ(8191, all[1].detail);
    EXPECT_EQ(0, all[2].detail);
    EXPECT_EQ(2u, all[2].times);
}

TEST_F(EventHistoryTest, ARepetitionTakesNoNewPlaceButTheLatestTime) {
    mHistory.add(Event::STREAM_STARTED, 0, 1);
    for (int i = 0; i < 1000; ++i) mHistory.add(Event::CALL_FAILED, 19, 10 + i);
    const auto all = entries();
    ASSERT_EQ(2u, all.size());
    EXPECT_EQ(Event::STREAM_STARTED, all[0].event);
    EXPECT_EQ(255u, all[1].times);
    EXPECT_EQ(1009, all[1].ms);
}

TEST_F(EventHistoryTest, AnotherDetailIsAnotherEvent) {
    mHistory.add(Event::CALL_FAILED, 19, 1);
    mHistory.add(Event::CALL_FAILED, 5, 2);
    mHistory.add(Event::CALL_FAILED, 19, 3);
    EXPECT_EQ(3u, entries().size());
}

TEST_F(EventHistoryTest, KeepsTheLast32) {
    for (int i = 0; i < 100; ++i) mHistory.add(Event::CLIENT_REGISTERED, i, i);
    const auto all = entries();
    ASSERT_EQ(32u, all.size());
    EXPECT_EQ(68, all.front().detail);
    EXPECT_EQ(99, all.back().detail);
}

TEST_F(EventHistoryTest, AReaderNeverSeesHalfAnEvent) {
    // Detail and time are the same number in each event.
    std::vector<std::thread> writers;
    for (int writer = 0; writer < 2; ++writer) {
        writers.emplace_back([this, writer] {
            for (int i = 0; i < 20000; ++i) {
                const int number = 2 * (i % 4000) + writer;
                mHistory.add(Event::CLIENT_DIED, number, number);
            }
        });
    }
    for (int i = 0; i < 2000; ++i) {
        for (const auto& entry : entries()) {
            EXPECT_EQ(Event::CLIENT_DIED, entry.event);
            EXPECT_EQ(entry.ms, entry.detail);
        }
    }
    for (std::thread& writer : writers) writer.join();
}

}  // namespace
}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
