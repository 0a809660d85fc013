// SPDX-License-Identifier: Apache-2.0
// What the frame source counts: every frame that comes, and why one doesn't leave.

#include <gmock/gmock.h>
#include <media/stagefright/foundation/AMessage.h>

#include "support/FrameSourceTest.h"

namespace korvane::test {
namespace {

using android::AMessage;
using android::FrameRepetition;
using android::OK;
using android::sp;
using Count = ::korvane::hardware::camera::desktop::V2_0::implementation::Count;
using Event = ::korvane::hardware::camera::desktop::V2_0::implementation::Event;
using EventHistory = ::korvane::hardware::camera::desktop::V2_0::implementation::EventHistory;
using testing::ElementsAre;

class KorBufferSourceCountsTest : public FrameSourceTest {
  protected:
    uint64_t count(Count what) const { return stats.total(what); }

    std::vector<Event> events() const {
        std::array<EventHistory::Entry, EventHistory::kEvents> entries;
        const size_t number = stats.events().read(&entries);
        std::vector<Event> result;
        for (size_t i = 0; i < number; ++i) result.push_back(entries[i].event);
        return result;
    }
};

TEST_F(KorBufferSourceCountsTest, EveryFrameThatComesIsDrawn) {
    start(1);
    queueFrame(1 * kMs);
    queueFrame(2 * kMs);  // waits
    EXPECT_EQ(2u, count(Count::FRAMES_DRAWN));
    EXPECT_EQ(1u, component->submissions().size());
}

TEST_F(KorBufferSourceCountsTest, FramesThatComeTooSoonAreDropped) {
    prepare(4);
    ASSERT_EQ(OK, source->setMaxFps(30));
    ASSERT_EQ(OK, source->start());
    for (int i = 0; i < 6; ++i) queueFrame((1000 + i * 10) * kMs);
    EXPECT_EQ(6u, count(Count::FRAMES_DRAWN));
    EXPECT_EQ(6u, component->submissions().size() + count(Count::DROPPED_RATE));
    EXPECT_GT(count(Count::DROPPED_RATE), 0u);
}

TEST_F(KorBufferSourceCountsTest, FramesThatComeTooSoonForATimeLapseAreDropped) {
    start(4);
    peer.times() = android::FrameTimes(stats, {.captureFps = 1, .fps = 30});
    queueFrame(0);
    queueFrame(449 * kMs);
    EXPECT_EQ(1u, component->submissions().size());
    EXPECT_EQ(1u, count(Count::DROPPED_RATE));
}

TEST_F(KorBufferSourceCountsTest, AFrameWhoseGraphicBufferNeverCameIsDropped) {
    start(1);
    queue->onAcquired = [](android::BufferItem* item) { item->mGraphicBuffer = nullptr; };
    queueFrame(1 * kMs);
    EXPECT_EQ(1u, count(Count::DROPPED_UNREADABLE));
}

TEST_F(KorBufferSourceCountsTest, OnlyAFramesFirstWayIsTimed) {
    start(2);
    peer.repetition() = FrameRepetition(10000);
    stats.frameSent(0);  // which are the component's to tell
    stats.frameSent(1);
    queueFrame(1 * kMs);
    const sp<AMessage> due = new AMessage(0, nullptr);
    due->setInt32("generation", peer.repetition().generation());
    peer.onMessageReceived(due);
    ASSERT_EQ(2u, component->submissions().size());
    uint64_t timed = 0;
    for (size_t i = 0; i < 16; ++i) timed += stats.queueing().total(i);
    EXPECT_EQ(1u, timed);
}

TEST_F(KorBufferSourceCountsTest, FramesThatGoBackInTimeAreCountedAsDropped) {
    start(4);
    queueFrame(5 * kMs);
    queueFrame(4 * kMs);
    queueFrame(5 * kMs);
    EXPECT_EQ(2u, count(Count::DROPPED_BACKWARD));
}

TEST_F(KorBufferSourceCountsTest, AFrameThatIsKeptAllTheSameIsNotDropped) {
    prepare(4);
    ASSERT_EQ(OK, source->setMaxFps(-1));
    ASSERT_EQ(OK, source->start());
    queueFrame(5 * kMs);
    queueFrame(4 * kMs);
    EXPECT_EQ(0u, count(Count::DROPPED_BACKWARD));
    EXPECT_EQ(2u, component->submissions().size());
}

TEST_F(KorBufferSourceCountsTest, FramesThatComeOrWaitWhileSuspendedAreDropped) {
    start(1);
    queueFrame(1 * kMs);
    queueFrame(2 * kMs);  // waits
    (void)source->setSuspend(true, -1);
    EXPECT_TRUE(stats.suspended());
    EXPECT_EQ(1u, count(Count::DROPPED_SUSPENDED));
    queueFrame(3 * kMs);
    EXPECT_EQ(2u, count(Count::DROPPED_SUSPENDED));
    (void)source->setSuspend(false, -1);
    EXPECT_FALSE(stats.suspended());
    EXPECT_THAT(events(), ElementsAre(Event::FRAMES_SUSPENDED, Event::FRAMES_RESUMED));
}

TEST_F(KorBufferSourceCountsTest, AFrameThatASuspensionOfItsTimeCatchesIsDropped) {
    start(1);
    ASSERT_EQ(OK, source->setSuspend(true, 0));
    queueFrame(1 * kMs);
    EXPECT_EQ(1u, count(Count::DROPPED_SUSPENDED));
}

TEST_F(KorBufferSourceCountsTest, ARepetitionIsSentAgainButNotDrawn) {
    start(2);
    peer.repetition() = FrameRepetition(10000);
    queueFrame(1 * kMs);
    const sp<AMessage> due = new AMessage(0, nullptr);
    due->setInt32("generation", peer.repetition().generation());
    peer.onMessageReceived(due);
    EXPECT_EQ(2u, component->submissions().size());
    EXPECT_EQ(1u, count(Count::FRAMES_REPEATED));
    EXPECT_EQ(1u, count(Count::FRAMES_DRAWN));
}

}  // namespace
}  // namespace korvane::test
