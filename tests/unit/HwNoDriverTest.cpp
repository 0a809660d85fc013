// SPDX-License-Identifier: Apache-2.0
// A process on a machine without the binder driver: what it tries fails, and it goes on.
#include <cerrno>

#include <unistd.h>

#include <gtest/gtest.h>
#include <hwbinder/Binder.h>
#include <hwbinder/IPCThreadState.h>
#include <hwbinder/Parcel.h>
#include <hwbinder/ProcessState.h>

#include "support/LogRecorder.h"

namespace korvane::test {
namespace {

using android::NO_INIT;
using android::OK;
using android::sp;
using android::hardware::BHwBinder;
using android::hardware::IBinder;
using android::hardware::IPCThreadState;
using android::hardware::Parcel;
using android::hardware::ProcessState;

class HwNoDriverTest : public testing::Test {
  protected:
    void SetUp() override {
        if (access("/dev/hwbinder", F_OK) == 0) GTEST_SKIP() << "This machine has the driver";
    }
};

/** Declared first, as the reason is logged once in a process. */
TEST_F(HwNoDriverTest, TheReasonIsLoggedOnce) {
    LogRecorder log;
    ProcessState::self();
    ProcessState::self();
    EXPECT_EQ(1u, log.count(ANDROID_LOG_ERROR, "hw-BinderDriver",
                            "Opening /dev/hwbinder failed: No such file or directory"));
    EXPECT_EQ(1u, log.count(ANDROID_LOG_ERROR, "hw-BinderDriver",
                            "No calls between processes will work: /dev/hwbinder cannot be used"));
    EXPECT_FALSE(ProcessState::self()->hasDriver());
}

TEST_F(HwNoDriverTest, ThereIsNoContextObjectAndNoProxy) {
    EXPECT_EQ(nullptr, ProcessState::self()->getContextObject(nullptr));
    EXPECT_EQ(nullptr, ProcessState::self()->getStrongProxyForHandle(3));
}

TEST_F(HwNoDriverTest, CallsFail) {
    Parcel reply;
    IPCThreadState* thread = IPCThreadState::self();
    EXPECT_EQ(NO_INIT, thread->transact(0, 1, Parcel(), &reply, 0));
    EXPECT_EQ(NO_INIT, thread->transact(0, 1, Parcel(), nullptr, IBinder::FLAG_ONEWAY));
}

TEST_F(HwNoDriverTest, ThisProcessCannotServe) {
    IPCThreadState* thread = IPCThreadState::self();
    thread->setTheContextObject(new BHwBinder);
    EXPECT_FALSE(ProcessState::self()->becomeContextManager());
    ProcessState::self()->startThreadPool();
    EXPECT_EQ(NO_INIT, ProcessState::self()->setThreadPoolConfiguration(1, true));
    int descriptor;
    EXPECT_EQ(NO_INIT, thread->setupPolling(&descriptor));
    thread->joinThreadPool();
    EXPECT_FALSE(thread->isLooperThread());
}

TEST_F(HwNoDriverTest, TheCallerIsThisProcess) {
    EXPECT_EQ(getpid(), IPCThreadState::self()->getCallingPid());
    EXPECT_EQ(getuid(), IPCThreadState::self()->getCallingUid());
}

TEST_F(HwNoDriverTest, APoolMustHaveAThreadForACallerThatJoins) {
    EXPECT_DEATH(ProcessState::self()->setThreadPoolConfiguration(0, true),
                 "Binder threadpool must have a minimum of one thread if caller joins pool.");
}

TEST_F(HwNoDriverTest, APoolThatRunsDoesNotShrink) {
    const auto shrink = [] {
        ProcessState::self()->setThreadPoolConfiguration(4, false);
        ProcessState::self()->startThreadPool();
        ProcessState::self()->setThreadPoolConfiguration(4, false);
        ProcessState::self()->setThreadPoolConfiguration(3, false);
    };
    EXPECT_DEATH(shrink(), "Binder threadpool cannot be shrunk after starting");
}

TEST_F(HwNoDriverTest, ALocalObjectIsCalledDirectly) {
    class Doubling : public BHwBinder {
        android::status_t onTransact(uint32_t, const Parcel& data, Parcel* reply, uint32_t,
                                     TransactCallback callback) override {
            int32_t number;
            data.readInt32(&number);
            reply->writeInt32(2 * number);
            callback(*reply);
            return OK;
        }
    };
    const sp<IBinder> object = new Doubling;
    Parcel data;
    Parcel reply;
    data.writeInt32(21);
    int32_t number = 0;
    EXPECT_EQ(OK, object->transact(1, data, &reply, 0,
                                   [&](Parcel& finished) { finished.readInt32(&number); }));
    EXPECT_EQ(42, number);
    EXPECT_EQ(object.get(), object->localBinder());
    EXPECT_EQ(nullptr, object->remoteBinder());
}

TEST_F(HwNoDriverTest, ALocalObjectsDeathCannotBeLinkedTo) {
    const sp<IBinder> object = new BHwBinder;
    EXPECT_EQ(android::INVALID_OPERATION, object->linkToDeath(nullptr));
    EXPECT_EQ(android::INVALID_OPERATION, object->unlinkToDeath(nullptr));
    EXPECT_EQ(android::UNKNOWN_TRANSACTION, object->transact(1, Parcel(), nullptr));
    EXPECT_EQ(OK, object->transact(IBinder::PING_TRANSACTION, Parcel(), nullptr));
}

}  // namespace
}  // namespace korvane::test
