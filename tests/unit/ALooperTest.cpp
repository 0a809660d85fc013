// SPDX-License-Identifier: Apache-2.0
#include "media/stagefright/foundation/ALooper.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Timers.h>

#include "support/PendingCall.h"

namespace {

using android::AHandler;
using android::ALooper;
using android::AMessage;
using android::INVALID_OPERATION;
using android::OK;
using android::sp;
using korvane::test::PendingCall;
using testing::ElementsAre;

// What the looper takes for now; 0 is the clock's time.
std::atomic<nsecs_t> gNow{0};

}  // namespace

extern "C" nsecs_t __real_systemTime(int clock);

extern "C" nsecs_t __wrap_systemTime(int clock) {
    return gNow != 0 ? gNow.load() : __real_systemTime(clock);
}

namespace {

// Remembers what it received, and does what the test asks for.
class Receiver : public AHandler {
  public:
    std::function<void(uint32_t)> action = [](uint32_t) {};

    std::vector<uint32_t> waitFor(size_t count) {
        std::unique_lock<std::mutex> guard(mLock);
        mChanged.wait_for(guard, std::chrono::seconds(10),
                          [&] { return mReceived.size() >= count; });
        return mReceived;
    }

    void post(uint32_t what, int64_t delayUs = 0) {
        EXPECT_EQ(OK, (new AMessage(what, this))->post(delayUs));
    }

  protected:
    void onMessageReceived(const sp<AMessage>& msg) override {
        action(msg->what());
        std::lock_guard<std::mutex> guard(mLock);
        mReceived.push_back(msg->what());
        mChanged.notify_all();
    }

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<uint32_t> mReceived;
};

class ALooperTest : public testing::Test {
  protected:
    ALooperTest() { mLooper->registerHandler(mReceiver); }
    ~ALooperTest() override {
        if (mLooper != nullptr) mLooper->stop();
        gNow = 0;
    }

    sp<ALooper> mLooper = new ALooper;
    sp<Receiver> mReceiver = new Receiver;
};

TEST_F(ALooperTest, GivesEachHandlerTheNextId) {
    const sp<Receiver> second = new Receiver;
    EXPECT_EQ(0, second->id());
    EXPECT_EQ(mReceiver->id() + 1, mLooper->registerHandler(second));
    EXPECT_EQ(mReceiver->id() + 1, second->id());
    EXPECT_GT(mReceiver->id(), 0);
    EXPECT_EQ(mLooper, second->looper());
}

TEST_F(ALooperTest, TakesIdAndLooperFromAnUnregisteredHandler) {
    mLooper->unregisterHandler(mReceiver->id());
    EXPECT_EQ(0, mReceiver->id());
    EXPECT_EQ(nullptr, mReceiver->looper());
    EXPECT_GT(mLooper->registerHandler(mReceiver), 0);  // free for another registration
}

TEST_F(ALooperTest, IgnoresAnUnknownHandlerId) {
    mLooper->unregisterHandler(mReceiver->id() + 1000);
    EXPECT_GT(mReceiver->id(), 0);
}

using ALooperDeathTest = ALooperTest;

TEST_F(ALooperDeathTest, AbortsWhenAHandlerIsRegisteredTwice) {
    EXPECT_DEATH(mLooper->registerHandler(mReceiver), "only be registered once");
    EXPECT_DEATH((new ALooper)->registerHandler(mReceiver), "only be registered once");
}

TEST_F(ALooperTest, HoldsItsHandlersWeakly) {
    const android::wp<Receiver> weak = mReceiver;
    mReceiver.clear();
    EXPECT_EQ(nullptr, weak.promote());
}

TEST_F(ALooperTest, IsHeldWeaklyByItsHandlers) {
    const android::wp<ALooper> weak = mLooper;
    mLooper.clear();
    EXPECT_EQ(nullptr, weak.promote());
    EXPECT_EQ(nullptr, mReceiver->looper());
}

TEST_F(ALooperTest, FreesTheHandlersOfALooperThatIsGone) {
    mLooper.clear();
    mLooper = new ALooper;
    EXPECT_EQ(0, mReceiver->id());
    EXPECT_GT(mLooper->registerHandler(mReceiver), 0);
}

TEST_F(ALooperTest, DeliversInTheOrderOfPosting) {
    ASSERT_EQ(OK, mLooper->start());
    for (uint32_t what : {3, 1, 2}) mReceiver->post(what);
    EXPECT_THAT(mReceiver->waitFor(3), ElementsAre(3, 1, 2));
}

TEST_F(ALooperTest, DeliversWhatWasPostedBeforeTheStart) {
    mReceiver->post(1);
    mReceiver->post(2);
    ASSERT_EQ(OK, mLooper->start());
    EXPECT_THAT(mReceiver->waitFor(2), ElementsAre(1, 2));
}

TEST_F(ALooperTest, DeliversByDueTime) {
    gNow = systemTime(SYSTEM_TIME_MONOTONIC);
    mReceiver->post(3, 30000);
    mReceiver->post(2, 20000);
    mReceiver->post(1);
    mReceiver->post(4, 40000);
    mReceiver->post(5, 40000);
    gNow += 40000000;
    ASSERT_EQ(OK, mLooper->start());
    EXPECT_THAT(mReceiver->waitFor(5), ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(ALooperTest, TakesANegativeDelayForNone) {
    mReceiver->post(1);
    mReceiver->post(2, -5000000);  // not before what is due now
    ASSERT_EQ(OK, mLooper->start());
    EXPECT_THAT(mReceiver->waitFor(2), ElementsAre(1, 2));
}

TEST_F(ALooperTest, DeliversNoSoonerThanDue) {
    ASSERT_EQ(OK, mLooper->start());
    std::promise<int64_t> delivered;
    mReceiver->action = [&](uint32_t) { delivered.set_value(ALooper::GetNowUs()); };
    const int64_t posted = ALooper::GetNowUs();
    mReceiver->post(1, 20000);
    EXPECT_GE(delivered.get_future().get() - posted, 20000);
}

TEST_F(ALooperTest, WakesForAMessageThatIsDueBeforeTheOneItWaitsFor) {
    ASSERT_EQ(OK, mLooper->start());
    mReceiver->post(1, INT64_MAX);
    mReceiver->post(2);
    EXPECT_THAT(mReceiver->waitFor(1), ElementsAre(2));
}

TEST_F(ALooperTest, RefusesASecondStart) {
    EXPECT_EQ(OK, mLooper->start());
    EXPECT_EQ(INVALID_OPERATION, mLooper->start());
    EXPECT_EQ(INVALID_OPERATION, mLooper->start(true));
}

TEST_F(ALooperTest, RefusesToStopWhenItIsNotRunning) {
    EXPECT_EQ(INVALID_OPERATION, mLooper->stop());
    EXPECT_EQ(OK, mLooper->start());
    EXPECT_EQ(OK, mLooper->stop());
    EXPECT_EQ(INVALID_OPERATION, mLooper->stop());
}

TEST_F(ALooperTest, KeepsUndeliveredMessagesForTheNextStart) {
    ASSERT_EQ(OK, mLooper->start());
    ASSERT_EQ(OK, mLooper->stop());
    mReceiver->post(1);
    ASSERT_EQ(OK, mLooper->start());
    EXPECT_THAT(mReceiver->waitFor(1), ElementsAre(1));
}

TEST_F(ALooperTest, WaitsForTheMessageBeingDeliveredWhenStopped) {
    std::promise<void> entered;
    std::promise<void> leave;
    mReceiver->action = [&](uint32_t) {
        entered.set_value();
        leave.get_future().get();
    };
    ASSERT_EQ(OK, mLooper->start());
    mReceiver->post(1);
    entered.get_future().get();
    PendingCall<android::status_t> stopping([&] { return mLooper->stop(); });
    EXPECT_TRUE(stopping.isHeldUp());
    leave.set_value();
    EXPECT_EQ(OK, stopping.get());
    EXPECT_THAT(mReceiver->waitFor(1), ElementsAre(1));
}

TEST_F(ALooperTest, CanBeStoppedAndStartedAgainByItsHandler) {
    mReceiver->action = [&](uint32_t what) {
        if (what != 1) return;
        EXPECT_EQ(OK, mLooper->stop());
        EXPECT_EQ(OK, mLooper->start());
    };
    ASSERT_EQ(OK, mLooper->start());
    mReceiver->post(1);
    EXPECT_THAT(mReceiver->waitFor(1), ElementsAre(1));
    mReceiver->post(2);
    EXPECT_THAT(mReceiver->waitFor(2), ElementsAre(1, 2));
}

TEST_F(ALooperTest, CanBeDestroyedByItsHandler) {
    const android::wp<ALooper> weak = mLooper;
    mReceiver->action = [&](uint32_t) { mLooper.clear(); };
    ASSERT_EQ(OK, mLooper->start());
    mReceiver->post(1);
    EXPECT_THAT(mReceiver->waitFor(1), ElementsAre(1));
    EXPECT_EQ(nullptr, weak.promote());
}

TEST_F(ALooperTest, RunsOnTheCallersThreadUntilStopped) {
    std::vector<std::thread::id> threads;
    mReceiver->action = [&](uint32_t what) {
        threads.push_back(std::this_thread::get_id());
        if (what == 2) {
            EXPECT_EQ(OK, mLooper->stop());
        }
    };
    mReceiver->post(1);
    mReceiver->post(2);
    EXPECT_EQ(OK, mLooper->start(true));
    EXPECT_THAT(threads, ElementsAre(std::this_thread::get_id(), std::this_thread::get_id()));
}

std::string threadNameOf(const sp<ALooper>& looper, const sp<Receiver>& receiver) {
    std::promise<std::string> name;
    receiver->action = [&](uint32_t) {
        char text[16];
        pthread_getname_np(pthread_self(), text, sizeof(text));
        name.set_value(text);
    };
    looper->start();
    receiver->post(1);
    const std::string result = name.get_future().get();
    looper->stop();
    return result;
}

TEST_F(ALooperTest, NamesItsThread) {
    EXPECT_EQ("ALooper", threadNameOf(mLooper, mReceiver));
    mLooper->setName("a long name of a thread");
    EXPECT_EQ("a long name of ", threadNameOf(mLooper, mReceiver));
    EXPECT_STREQ("a long name of a thread", mLooper->getName());
}

}  // namespace
