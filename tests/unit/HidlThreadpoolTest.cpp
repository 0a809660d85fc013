// SPDX-License-Identifier: Apache-2.0
// How a program gives a thread to serve: by joining the pool, or from an event loop of its own.
#include <cerrno>

#include <gtest/gtest.h>
#include <hidl/HidlTransportSupport.h>

#include "../../platform/libhidlbase/hwbinder/BinderDriver.h"
#include "support/HwThreadTest.h"

namespace korvane::test {
namespace {

using android::OK;
using android::sp;
using android::hardware::BHwBinder;
using android::hardware::configureRpcThreadpool;
using android::hardware::handleTransportPoll;
using android::hardware::joinRpcThreadpool;
using android::hardware::Parcel;
using android::hardware::ProcessState;
using android::hardware::setupTransportPolling;

using HidlThreadpoolTest = HwThreadTest;

TEST_F(HidlThreadpoolTest, AThreadThatJoinsServesUntilTheDriverTurnsItAway) {
    int calls = 0;
    const sp<BHwBinder> object = new AnsweringObject([&](const Parcel&, Parcel*, const auto&) {
        EXPECT_TRUE(mThread->isLooperThread());
        EXPECT_TRUE(mThread->isOnlyBinderThread());
        calls++;
        return OK;
    });
    configureRpcThreadpool(1, true /* callerWillJoin */);
    mBinder.give({{BR_TRANSACTION, incoming(publish(object), contentsOf(mWords))}});
    mBinder.give({BinderCommand(BR_TRANSACTION_COMPLETE)});
    mBinder.kernel().fail("BINDER_WRITE_READ", ECONNREFUSED, 3);
    joinRpcThreadpool();
    EXPECT_EQ(1, calls);
    EXPECT_FALSE(mThread->isLooperThread());
    EXPECT_FALSE(mThread->isOnlyBinderThread());
}

TEST_F(HidlThreadpoolTest, AThreadWithALoopOfItsOwnServesWhenItIsTold) {
    int calls = 0;
    const sp<BHwBinder> object = new AnsweringObject([&](const Parcel&, Parcel*, const auto&) {
        calls++;
        return OK;
    });
    const int descriptor = setupTransportPolling();
    EXPECT_EQ(ProcessState::self()->driver().fd(), descriptor);
    EXPECT_EQ((Numbers{BC_ENTER_LOOPER}), mBinder.takeNumbers());
    EXPECT_TRUE(mThread->isOnlyBinderThread());
    mBinder.give({{BR_TRANSACTION, incoming(publish(object), contentsOf(mWords))}});
    mBinder.give({BinderCommand(BR_TRANSACTION_COMPLETE)});
    EXPECT_EQ(OK, handleTransportPoll(descriptor));
    EXPECT_EQ(1, calls);
}

TEST_F(HidlThreadpoolTest, AThreadThatMayNotServeIsToldSo) {
    mBinder.kernel().fail("BINDER_WRITE_READ", EINVAL);
    EXPECT_EQ(-EINVAL, setupTransportPolling());
}

}  // namespace
}  // namespace korvane::test
