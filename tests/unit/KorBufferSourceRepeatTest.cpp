// SPDX-License-Identifier: Apache-2.0
// The frame source's repetition of the latest frame.
#include <future>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <media/stagefright/foundation/AMessage.h>

#include "support/FrameSourceTest.h"

namespace {

using android::AMessage;
using android::Fence;
using android::FrameRepetition;
using android::KorBufferSource;
using android::OK;
using android::sp;
using korvane::test::failedCheck;
using korvane::test::FrameSourceTest;
using korvane::test::ManualFence;
using korvane::test::QueueSpy;
using korvane::test::trespass;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int64_t kIntervalUs = 10000;

// Without a looper: what falls due is told by the test.
class KorBufferSourceRepeatTest : public FrameSourceTest {
  protected:
    void startRepeating(int codecBuffers) {
        start(codecBuffers);
        peer.repetition() = FrameRepetition(kIntervalUs);
    }

    static sp<AMessage> repeatMessage(int32_t generation) {
        sp<AMessage> msg = new AMessage(0, nullptr);
        msg->setInt32("generation", generation);
        return msg;
    }

    int repetitionsLeft() const {
        FrameRepetition copy = peer.repetition();
        int left = 1;
        while (copy.noteRepeated()) ++left;
        return left;
    }

    void repeatIsDue() { peer.onMessageReceived(repeatMessage(peer.repetition().generation())); }
};

using KorBufferSourceRepeatDeathTest = KorBufferSourceRepeatTest;

TEST_F(KorBufferSourceRepeatTest, KeepsTheLatestFrameForItsRepetition) {
    startRepeating(2);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    EXPECT_NE(nullptr, peer.repetition().latest().mBuffer);
    EXPECT_EQ(110 * kMs, peer.repetition().latest().mTimestampNs);
    EXPECT_EQ(10, repetitionsLeft());
    EXPECT_EQ(1,
              peer.repetition().generation());  // for the frame: nobody is there to be told later
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(queue->releases(), IsEmpty());  // still held
}

TEST_F(KorBufferSourceRepeatTest, KeepsNoFrameWithoutAnInterval) {
    start(2);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    EXPECT_EQ(nullptr, peer.repetition().latest().mBuffer);
    peer.repetition() = FrameRepetition(0);
    ASSERT_GE(queueFrame(200 * kMs), 0);
    EXPECT_EQ(nullptr, peer.repetition().latest().mBuffer);
}

TEST_F(KorBufferSourceRepeatTest, KeepsTheLatestFrameForTheShortestInterval) {
    startRepeating(1);
    peer.repetition() = FrameRepetition(1);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    EXPECT_EQ(100 * kMs + 1000, peer.repetition().latest().mTimestampNs);
}

TEST_F(KorBufferSourceRepeatTest, LendsTheLatestFrameAgainAnIntervalLater) {
    startRepeating(2);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    repeatIsDue();
    EXPECT_THAT(submittedIds(), ElementsAre(0, 1));
    EXPECT_THAT(submittedTimes(), ElementsAre(100000, 110000));
    EXPECT_EQ(component->submissions()[0].buffer, component->submissions()[1].buffer);
    EXPECT_EQ(120 * kMs, peer.repetition().latest().mTimestampNs);
    EXPECT_EQ(9, repetitionsLeft());
}

TEST_F(KorBufferSourceRepeatTest, ReleasesARepeatedFrameWhenAllItsReadersAreDone) {
    startRepeating(3);
    ManualFence fences[2];
    QueueSpy::mergeNames().clear();
    ASSERT_GE(queueFrame(100 * kMs), 0);
    repeatIsDue();
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, fences[0].dup()));
    ASSERT_EQ(OK, source->onInputBufferEmptied(1, fences[1].dup()));
    EXPECT_THAT(queue->releases(), IsEmpty());
    ASSERT_GE(queueFrame(200 * kMs), 0);  // takes its place as the latest
    ASSERT_EQ(1u, queue->releases().size());
    EXPECT_THAT(QueueSpy::mergeNames(), ElementsAre("GBS::AB"));
    const sp<Fence> fence = queue->releases()[0].fence;
    fences[0].signal();
    EXPECT_EQ(-ETIME, fence->wait(0));
    fences[1].signal();
    EXPECT_EQ(OK, fence->wait(10000));
}

TEST_F(KorBufferSourceRepeatTest, IgnoresARepetitionThatANewFrameHasOvertaken) {
    startRepeating(4);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    const auto overtaken = repeatMessage(peer.repetition().generation());
    ASSERT_GE(queueFrame(105 * kMs), 0);
    peer.onMessageReceived(overtaken);
    EXPECT_THAT(submittedTimes(), ElementsAre(100000, 105000));
    EXPECT_FALSE(peer.repetition().isBlocked());
}

TEST_F(KorBufferSourceRepeatTest, RepeatsNothingWhileAFrameWaits) {
    startRepeating(1);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    ASSERT_GE(queueFrame(105 * kMs), 0);  // stays in the queue
    repeatIsDue();
    EXPECT_FALSE(peer.repetition().isBlocked());
    EXPECT_EQ(1u, component->submissions().size());
}

TEST_F(KorBufferSourceRepeatTest, RepeatsNothingWhenNotExecuting) {
    startRepeating(2);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    peer.state() = State::IDLE;
    repeatIsDue();
    EXPECT_EQ(1u, component->submissions().size());
    EXPECT_FALSE(peer.repetition().isBlocked());
}

TEST_F(KorBufferSourceRepeatTest, RepeatsOnceACodecBufferIsFree) {
    startRepeating(1);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    repeatIsDue();
    EXPECT_TRUE(peer.repetition().isBlocked());
    EXPECT_EQ(1u, component->submissions().size());
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_FALSE(peer.repetition().isBlocked());
    EXPECT_THAT(submittedTimes(), ElementsAre(100000, 110000));
}

TEST_F(KorBufferSourceRepeatTest, RepeatsUnaskedOnlyWhenARepetitionWasBlocked) {
    startRepeating(1);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_EQ(1u, component->submissions().size());
}

TEST_F(KorBufferSourceRepeatTest, IsBlockedWithoutAFrame) {
    startRepeating(1);
    repeatIsDue();
    EXPECT_TRUE(peer.repetition().isBlocked());
}

TEST_F(KorBufferSourceRepeatTest, IsBlockedWhilePausedAndGoesOnWhenResumed) {
    startRepeating(2);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    ASSERT_EQ(OK, source->setSuspend(true, -1));
    repeatIsDue();
    EXPECT_TRUE(peer.repetition().isBlocked());
    ASSERT_EQ(OK, source->setSuspend(false, -1));
    EXPECT_FALSE(peer.repetition().isBlocked());
    EXPECT_THAT(submittedTimes(), ElementsAre(100000, 110000));
}

TEST_F(KorBufferSourceRepeatTest, IsNoLongerBlockedOnceTheLastRepetitionWentOut) {
    startRepeating(2);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    while (repetitionsLeft() > 1) peer.repetition().noteRepeated();
    peer.repetition().setBlocked(true);
    ASSERT_EQ(OK, source->setSuspend(false, -1));
    EXPECT_EQ(2u, component->submissions().size());
    EXPECT_FALSE(peer.repetition().isBlocked());
}

TEST_F(KorBufferSourceRepeatTest, RepeatsNothingOnResumingUnlessBlocked) {
    startRepeating(2);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    ASSERT_EQ(OK, source->setSuspend(false, -1));
    EXPECT_EQ(1u, component->submissions().size());
}

TEST_F(KorBufferSourceRepeatTest, RepeatsNothingOnResumingBeforeTheStart) {
    prepare(2);
    peer.repetition().setBlocked(true);
    ASSERT_EQ(OK, source->setSuspend(false, -1));
    EXPECT_TRUE(peer.repetition().isBlocked());
}

TEST_F(KorBufferSourceRepeatTest, RepeatsNothingOnResumingWhileAFrameWaits) {
    startRepeating(1);
    for (int64_t ms : {100, 105}) ASSERT_GE(queueFrame(ms * kMs), 0);
    peer.repetition().setBlocked(true);
    ASSERT_EQ(OK, source->setSuspend(false, -1));
    EXPECT_TRUE(peer.repetition().isBlocked());
    EXPECT_EQ(1u, component->submissions().size());
}

TEST_F(KorBufferSourceRepeatTest, StaysBlockedWhenItCannotRepeatOnResuming) {
    startRepeating(1);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    repeatIsDue();
    ASSERT_EQ(OK, source->setSuspend(false, -1));
    EXPECT_TRUE(peer.repetition().isBlocked());
}

TEST_F(KorBufferSourceRepeatTest, IsBlockedWhenTheComponentRefuses) {
    startRepeating(2);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    component->submitResult = android::UNKNOWN_ERROR;
    repeatIsDue();
    EXPECT_TRUE(peer.repetition().isBlocked());
    EXPECT_EQ(10, repetitionsLeft());
    EXPECT_EQ(110 * kMs, peer.repetition().latest().mTimestampNs);
}

TEST_F(KorBufferSourceRepeatTest, GivesUpABlockedRepetitionThatTheComponentRefuses) {
    startRepeating(1);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    repeatIsDue();
    component->submitResult = android::UNKNOWN_ERROR;
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_EQ(2u, component->submissions().size());
    EXPECT_FALSE(peer.repetition().isBlocked());
}

TEST_F(KorBufferSourceRepeatTest, IsNoLongerBlockedWithANewFrame) {
    startRepeating(2);
    peer.repetition().setBlocked(true);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    EXPECT_FALSE(peer.repetition().isBlocked());
}

TEST_F(KorBufferSourceRepeatTest, ForgetsTheLatestFrameWithTheEndOfTheStream) {
    startRepeating(2);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    peer.state() = State::ENDING;
    peer.submitEndOfInputStream();
    EXPECT_EQ(nullptr, peer.repetition().latest().mBuffer);
    EXPECT_EQ(1u, queue->releases().size());
}

TEST_F(KorBufferSourceRepeatDeathTest, AbortsOnAnUnknownMessage) {
    const sp<AMessage> msg = new AMessage(1, nullptr);
    EXPECT_DEATH(peer.onMessageReceived(msg), trespass(1483));
}

TEST_F(KorBufferSourceRepeatDeathTest, AbortsOnAMessageWithoutItsGeneration) {
    const sp<AMessage> msg = new AMessage(0, nullptr);
    EXPECT_DEATH(peer.onMessageReceived(msg),
                 failedCheck(1461, "msg->findInt32(\"generation\", &generation)"));
}

TEST_F(KorBufferSourceRepeatDeathTest, AbortsWhenRepeatingBeforeTheStart) {
    EXPECT_DEATH(peer.repeatLatestBuffer(),
                 failedCheck(749, "mExecuting && !haveAvailableBuffers_l()"));
}

// On its looper.

class RepeatLooperTest : public FrameSourceTest {
  protected:
    /** The looper's thread may still be in the source, which uses what goes with the fixture. */
    void TearDown() override {
        if (source != nullptr && peer.looper() != nullptr) peer.looper()->stop();
    }

    void startRepeating(int codecBuffers, int64_t intervalUs) {
        prepare(codecBuffers);
        peer.repetition() = FrameRepetition(intervalUs);
        ASSERT_EQ(OK, source->start());
        ASSERT_NE(nullptr, peer.looper());
    }

    // Returns when the looper has dealt with all that was due before.
    static void waitFor(const sp<android::ALooper>& looper, int64_t delayUs) {
        struct Barrier : public android::AHandler {
            std::promise<void> reached;

          protected:
            void onMessageReceived(const sp<AMessage>&) override { reached.set_value(); }
        };
        const sp<Barrier> barrier = new Barrier;
        looper->registerHandler(barrier);
        (new AMessage(0, barrier))->post(delayUs);
        barrier->reached.get_future().wait();
    }

    /** Told when a message has come, how many frames the component had been lent by then. */
    class Counter : public android::AHandler {
      public:
        explicit Counter(const sp<korvane::test::RecordingComponent>& component)
            : mComponent(component) {}
        size_t get() { return mCount.get_future().get(); }

      protected:
        void onMessageReceived(const sp<AMessage>&) override {
            mCount.set_value(mComponent->submissions().size());
        }

      private:
        const sp<korvane::test::RecordingComponent> mComponent;
        std::promise<size_t> mCount;
    };
};

TEST_F(RepeatLooperTest, RepeatsAFrameTenTimes) {
    startRepeating(20, 1000);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    std::vector<int64_t> expected;
    for (int i = 0; i <= 10; ++i) expected.push_back(100000 + i * 1000);
    component->waitFor(11);
    waitFor(peer.looper(), 3000);
    EXPECT_THAT(submittedTimes(), testing::ElementsAreArray(expected));
}

TEST_F(RepeatLooperTest, RepeatsAFrameThatWasThereBeforeTheStart) {
    prepare(2);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    peer.repetition() = FrameRepetition(1000);
    ASSERT_EQ(OK, source->start());
    ASSERT_EQ(2u, component->waitFor(2).size());
    EXPECT_EQ(101000, submittedTimes()[1]);
}

// What is posted with the same delay is handled in the order in which it was posted.
TEST_F(RepeatLooperTest, RepeatsAFrameWhenTheIntervalIsOver) {
    constexpr int64_t kDelayUs = 20000;
    startRepeating(2, kDelayUs);  // so that there is one repetition
    const sp<Counter> before = new Counter(component);
    const sp<Counter> after = new Counter(component);
    peer.looper()->registerHandler(before);
    peer.looper()->registerHandler(after);
    (new AMessage(0, before))->post(kDelayUs);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    (new AMessage(0, after))->post(kDelayUs);
    EXPECT_EQ(1u, before->get());
    EXPECT_EQ(2u, after->get());
}

TEST_F(RepeatLooperTest, RunsForTheShortestInterval) {
    startRepeating(1, 1);
}

TEST_F(RepeatLooperTest, GoesOnWhenTheSourceIsStartedAgain) {
    startRepeating(1, 1000000);
    const sp<android::ALooper> looper = peer.looper();
    ASSERT_EQ(OK, configure());
    peer.repetition() = FrameRepetition(1000000);
    ASSERT_EQ(OK, source->start());
    EXPECT_EQ(looper, peer.looper());
}

TEST_F(RepeatLooperTest, RaisesTheGenerationWithEveryPostedRepetition) {
    startRepeating(2, 1000000000);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    EXPECT_EQ(2, peer.repetition().generation());  // for the frame and for its repetition
    peer.repeatLatestBuffer();
    EXPECT_EQ(3, peer.repetition().generation());
}

TEST_F(RepeatLooperTest, RestartsWithANewFrame) {
    startRepeating(2, 1000000000);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    peer.repetition() = FrameRepetition(1000);  // the frame is still lent
    ASSERT_GE(queueFrame(200 * kMs), 0);
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    ASSERT_EQ(3u, component->waitFor(3).size());
    EXPECT_THAT(submittedTimes(), ElementsAre(100000, 200000, 201000));
}

TEST_F(RepeatLooperTest, EndsWithItsSource) {
    startRepeating(20, 1000);
    ASSERT_GE(queueFrame(100 * kMs), 0);
    const android::wp<KorBufferSource> weak = source;
    const sp<android::ALooper> looper = peer.looper();
    component->waitFor(3);
    source.clear();
    waitFor(looper, 0);  // it may just have been repeating
    EXPECT_EQ(nullptr, weak.promote());
    const size_t count = component->submissions().size();
    waitFor(looper, 5000);
    EXPECT_EQ(count, component->submissions().size());
}

}  // namespace
