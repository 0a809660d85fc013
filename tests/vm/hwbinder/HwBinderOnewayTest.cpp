// SPDX-License-Identifier: Apache-2.0
// Calls that nobody waits for, over the real driver: their order, their room, their failures.
#include <atomic>
#include <vector>

#include "TestObjects.h"

namespace korvane::test {
namespace {

using android::FAILED_TRANSACTION;
using android::OK;
using android::sp;
using android::status_t;
using android::hardware::IBinder;
using android::hardware::Parcel;

class HwBinderOnewayTest : public HwBinderTest {};

/** As many oneway calls, numbered from 0. */
void sendNumbers(const sp<IBinder>& object, int count) {
    for (int i = 0; i < count; i++) {
        Parcel data;
        data.writeInt32(i);
        ASSERT_EQ(OK, object->transact(1, data, nullptr, IBinder::FLAG_ONEWAY));
    }
}

TEST_F(HwBinderOnewayTest, OnewayCallsReturnBeforeTheyAreServedAndKeepTheirOrder) {
    constexpr int kCalls = 200;
    Event isSent;
    Event isServed;
    int next = 0;
    Server server([&](const Call& call) {
        EXPECT_EQ(IBinder::FLAG_ONEWAY, call.flags & IBinder::FLAG_ONEWAY);
        if (next == 0) {
            EXPECT_TRUE(isSent.wait());
        }
        int32_t number = -1;
        call.data.readInt32(&number);
        EXPECT_EQ(next++, number);
        if (next == kCalls) isServed.signal();
        return OK;
    });
    runInProcess([&] {
        sendNumbers(Server::find(), kCalls);
        isSent.signal();
        EXPECT_TRUE(isServed.wait());
    });
}

TEST_F(HwBinderOnewayTest, AOnewayCallThatFailsDoesNotShowAtItsCaller) {
    Server server(
            [](const Call& call) { return call.code == 1 ? android::UNKNOWN_TRANSACTION : OK; });
    runInProcess([] {
        const sp<IBinder> object = Server::find();
        EXPECT_EQ(OK, call(object, 1, IBinder::FLAG_ONEWAY));
        EXPECT_EQ(OK, call(object, 2));
    });
}

/** A oneway call with so many bytes in one buffer. */
status_t sendBytes(const sp<IBinder>& object, size_t size) {
    const std::vector<uint8_t> bytes(size);
    Parcel data;
    data.writeBuffer(bytes.data(), bytes.size(), nullptr);
    return object->transact(1, data, nullptr, IBinder::FLAG_ONEWAY);
}

TEST_F(HwBinderOnewayTest, TheyMayFillHalfTheReceiveAreaAndGetNoFurther) {
    constexpr size_t kHalf = (1024 * 1024 - 2 * 4096) / 2;
    std::atomic<int> served{0};
    Server server([&](const Call& call) {
        if (call.code == 1) served++;
        return call.code == 2 ? call.reply->writeInt32(served) : OK;
    });
    runInProcess([] {
        const sp<IBinder> object = Server::find();
        EXPECT_EQ(FAILED_TRANSACTION, sendBytes(object, kHalf));
        EXPECT_EQ(OK, sendBytes(object, kHalf - 4096));
        // Sent by the same thread, it is served after the one before.
        Parcel reply;
        EXPECT_EQ(OK, object->transact(2, Parcel(), &reply));
        int32_t count = -1;
        EXPECT_EQ(OK, reply.readInt32(&count));
        EXPECT_EQ(1, count);
        EXPECT_EQ(OK, sendBytes(object, kHalf - 4096));
    });
}

TEST_F(HwBinderOnewayTest, ThoseOfOneObjectAreServedOneAtATimeByAPoolOfAnySize) {
    constexpr int kCalls = 100;
    Event isReady;
    Event isServed;
    TestProcess server([&] {
        std::atomic<int> inside{0};
        std::atomic<int> served{0};
        Directory::put("server", new TestObject([&](const Call& call) {
                           EXPECT_EQ(1, ++inside);
                           // Takes a while, in which others could come.
                           Directory::get("server");
                           int32_t number = -1;
                           call.data.readInt32(&number);
                           EXPECT_EQ(served++, number);
                           --inside;
                           if (number == kCalls - 1) isServed.signal();
                           return OK;
                       }));
        startPool(3);
        isReady.signal();
        Event().wait(60000);
    });
    ASSERT_TRUE(isReady.wait());
    runInProcess([&] {
        sendNumbers(Server::find(), kCalls);
        EXPECT_TRUE(isServed.wait());
    });
}

}  // namespace
}  // namespace korvane::test
