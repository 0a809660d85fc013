// SPDX-License-Identifier: Apache-2.0
// What the frame source does under its lock, and what without.
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <media/stagefright/foundation/AMessage.h>

#include "support/FrameSourceTest.h"
#include "support/PendingCall.h"

namespace {

using android::AMessage;
using android::ComponentWrapper;
using android::GraphicBuffer;
using android::Mutex;
using android::OK;
using android::sp;
using android::status_t;
using korvane::test::FrameSourceTest;
using korvane::test::PendingCall;
using korvane::test::trespass;
using testing::ElementsAre;

class KorBufferSourceLockTest : public FrameSourceTest {
  protected:
    /** Whether the lock is held by anybody. */
    bool isLocked() {
        return std::async(std::launch::async,
                          [this] {
                              if (peer.mutex().tryLock() != OK) return true;
                              peer.mutex().unlock();
                              return false;
                          })
                .get();
    }

    /** Makes the call while the lock is held, and sees that it ends only afterwards. */
    void expectWaits(const std::string& name, const std::function<void()>& call) {
        Mutex& mutex = peer.mutex();
        mutex.lock();
        PendingCall<void> waiting(call);
        EXPECT_TRUE(waiting.isHeldUp()) << name;
        mutex.unlock();
        waiting.get();
    }
};

using KorBufferSourceLockDeathTest = KorBufferSourceLockTest;

/** Notes for each call whether the source was locked in it. */
class Watcher : public ComponentWrapper {
  public:
    explicit Watcher(const std::function<bool()>& isLocked) : mIsLocked(isLocked) {}

    status_t submitBuffer(int, const sp<GraphicBuffer>&, int64_t, int) override {
        locked.push_back(mIsLocked());
        return OK;
    }
    status_t submitEos(int) override {
        locked.push_back(mIsLocked());
        return OK;
    }
    void dispatchDataSpaceChanged(int, int, int) override { locked.push_back(mIsLocked()); }

    std::vector<bool> locked;

  private:
    const std::function<bool()> mIsLocked;
};

TEST_F(KorBufferSourceLockTest, HoldsTheLockDuringEveryCallToItsComponent) {
    const sp<Watcher> watcher = new Watcher([this] { return isLocked(); });
    ASSERT_EQ(OK, source->configure(watcher, 4, kWidth, kHeight, kNv12, 3));
    for (int id : {0, 1}) ASSERT_EQ(OK, source->onInputBufferAdded(id));
    ASSERT_EQ(OK, producer.connect(4));
    ASSERT_EQ(OK, source->start());
    ASSERT_GE(queueFrame(1 * kMs), 0);
    peer.state() = State::ENDING;
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_THAT(watcher->locked, ElementsAre(true, true, true));  // dataspace, frame, end
    EXPECT_FALSE(isLocked());
}

TEST_F(KorBufferSourceLockTest, HoldsTheLockWhileAFrameIsReleased) {
    start(1);
    ASSERT_GE(queueFrame(1 * kMs), 0);
    bool wasLocked = false;
    queue->onReleased = [&] { wasLocked = isLocked(); };
    ASSERT_EQ(OK, source->onInputBufferEmptied(0, -1));
    EXPECT_TRUE(wasLocked);
}

TEST_F(KorBufferSourceLockTest, EveryEntryPointWaitsForTheLock) {
    prepare(1);
    expectWaits("onInputBufferAdded", [this] { (void)source->onInputBufferAdded(1); });
    expectWaits("setMaxFps", [this] { (void)source->setMaxFps(30); });
    expectWaits("start", [this] { (void)source->start(); });
    expectWaits("setSuspend", [this] { (void)source->setSuspend(false, -1); });
    expectWaits("onInputBufferEmptied", [this] { (void)source->onInputBufferEmptied(7, -1); });
    expectWaits("onFrameAvailable", [this] { source->onFrameAvailable(android::BufferItem()); });
    expectWaits("onBuffersReleased", [this] { source->onBuffersReleased(); });
    const sp<AMessage> repeat = new AMessage(0, nullptr);
    repeat->setInt32("generation", -1);
    expectWaits("onMessageReceived", [this, repeat] { peer.onMessageReceived(repeat); });
}

TEST_F(KorBufferSourceLockTest, SetsTheBufferCountBeforeItTakesTheLock) {
    queue->clear();
    peer.mutex().lock();
    PendingCall<status_t> configuring([this] { return configure(); });
    EXPECT_TRUE(configuring.isHeldUp());
    EXPECT_THAT(queue->calls(), ElementsAre("setMaxAcquiredBufferCount"));
    peer.mutex().unlock();
    EXPECT_EQ(OK, configuring.get());
}

TEST_F(KorBufferSourceLockTest, HoldsTheLockDuringTheRestOfItsConfiguration) {
    std::vector<std::string> unlocked;
    queue->clear();
    queue->duringCall = [&](const std::string& name) {
        if (!isLocked()) unlocked.push_back(name);
    };
    EXPECT_EQ(OK, configure());
    queue->duringCall = [](const std::string&) {};
    EXPECT_EQ(5u, queue->calls().size());
    EXPECT_THAT(unlocked, ElementsAre("setMaxAcquiredBufferCount"));
}

TEST_F(KorBufferSourceLockTest, LogsTheMaximumRateBeforeItTakesTheLock) {
    peer.mutex().lock();
    PendingCall<status_t> setting([this] { return source->setMaxFps(30); });
    EXPECT_TRUE(log.waitFor(ANDROID_LOG_DEBUG, kTag, "setMaxFps: maxFps=30"));
    peer.mutex().unlock();
    EXPECT_EQ(OK, setting.get());
}

TEST_F(KorBufferSourceLockTest, OffersEndpointsWithoutTheLock) {
    Mutex::Autolock lock(peer.mutex());
    PendingCall<bool> offering(
            [this] { return source->getHGraphicBufferProducer_V1_0() != nullptr; });
    EXPECT_TRUE(offering.get());
}

TEST_F(KorBufferSourceLockDeathTest, JudgesAMessageBeforeItTakesTheLock) {
    const sp<AMessage> msg = new AMessage(1, nullptr);
    Mutex::Autolock lock(peer.mutex());
    EXPECT_DEATH(peer.onMessageReceived(msg), trespass(1483));
}

}  // namespace
