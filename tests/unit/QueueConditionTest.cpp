// SPDX-License-Identifier: Apache-2.0
// The buffer queue's condition: who has the mutex while somebody waits, and afterwards.
#include <chrono>
#include <future>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>
#include <gui/QueueCondition.h>

namespace korvane::test {
namespace {

using android::QueueCondition;
using std::chrono::hours;
using std::chrono::milliseconds;

class QueueConditionTest : public testing::Test {
  protected:
    /** Has a thread wait by the function. */
    template <typename Wait>
    void start(Wait wait) {
        mThread = std::thread([this, wait] {
            const std::lock_guard<std::mutex> guard(mMutex);
            mIsWaiting = true;
            wait();
            mReturned.set_value();
            mEnd.get_future().wait();
        });
    }
    /** Returns while it does; for a wait that ends only with wake(). */
    template <typename Wait>
    void startToWait(Wait wait) {
        start(wait);
        // When the mutex can be had, it is in its wait.
        while (!isWaiting()) std::this_thread::yield();
    }
    void wake() {
        {
            const std::lock_guard<std::mutex> guard(mMutex);
            mIsReady = true;
        }
        mCondition.notifyAll();
    }
    /** Whether it has the mutex once it has returned. */
    bool returnsWithTheMutex() {
        mReturned.get_future().wait();
        const bool isFree = mMutex.try_lock();
        if (isFree) mMutex.unlock();
        mEnd.set_value();
        mThread.join();
        return !isFree;
    }

    std::mutex mMutex;
    QueueCondition mCondition;
    bool mIsReady = false;

  private:
    bool isWaiting() {
        const std::lock_guard<std::mutex> guard(mMutex);
        return mIsWaiting;
    }

    bool mIsWaiting = false;
    std::promise<void> mReturned;
    std::promise<void> mEnd;
    std::thread mThread;
};

TEST_F(QueueConditionTest, AWaitLetsTheMutexGoAndReturnsWithIt) {
    startToWait([this] {
        while (!mIsReady) mCondition.wait(mMutex);
    });
    wake();
    EXPECT_TRUE(returnsWithTheMutex());
    EXPECT_TRUE(mMutex.try_lock());
    mMutex.unlock();
}

TEST_F(QueueConditionTest, ATimedWaitLetsTheMutexGoAndReturnsWithItWhenWoken) {
    bool inTime = true;
    startToWait([this, &inTime] {
        while (!mIsReady) inTime = mCondition.waitFor(mMutex, hours(1)) && inTime;
    });
    wake();
    EXPECT_TRUE(returnsWithTheMutex());
    EXPECT_TRUE(inTime);
}

TEST_F(QueueConditionTest, ATimedWaitReturnsWithTheMutexWhenItsTimeIsOver) {
    start([this] {
        while (mCondition.waitFor(mMutex, milliseconds(1))) {
        }
    });
    EXPECT_TRUE(returnsWithTheMutex());
}

TEST_F(QueueConditionTest, WakesEverybody) {
    startToWait([this] {
        while (!mIsReady) mCondition.wait(mMutex);
    });
    std::thread other([this] {
        const std::lock_guard<std::mutex> guard(mMutex);
        while (!mIsReady) mCondition.wait(mMutex);
    });
    wake();
    EXPECT_TRUE(returnsWithTheMutex());
    other.join();
}

}  // namespace
}  // namespace korvane::test
