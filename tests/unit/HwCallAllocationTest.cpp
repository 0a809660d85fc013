// SPDX-License-Identifier: Apache-2.0
// Calls as long as a frame's ask for no memory, served or made; longer ones give theirs back.
#include <cstdarg>
#include <vector>

#include <malloc.h>

#include <gtest/gtest.h>
#include <hwbinder/IPCThreadState.h>

#include "support/AllocationCounter.h"
#include "support/HwThreadTest.h"

namespace {

uint64_t sOfTheDriver = 0;

}  // namespace

extern "C" {

int __real_ioctl(int fd, unsigned long request, void* argument);
int __wrap_ioctl(int fd, unsigned long request, ...);

/** The scripted driver keeps records, whose memory isn't the runtime's. */
int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    const uint64_t before = korvane::test::allocations();
    const int result = __real_ioctl(fd, request, argument);
    sOfTheDriver += korvane::test::allocations() - before;
    return result;
}

}  // extern "C"

namespace korvane::test {
namespace {

using android::OK;
using android::sp;
using android::status_t;
using android::hardware::BHwBinder;
using android::hardware::Parcel;

constexpr int kCalls = 10;
constexpr int kUsualWords = 24;
constexpr int kUsualBuffers = 9;
constexpr int kManyWords = 100000;

status_t writeWords(Parcel* parcel, int count) {
    status_t status = OK;
    for (int i = 0; i < count && status == OK; i++) status = parcel->writeInt32(i);
    return status;
}

/** No less than the longer of a frame's calls: its result, its buffers and a handle that is none.
 */
status_t writeUsual(Parcel* parcel) {
    static const uint64_t sBytes[4] = {};
    status_t status = writeWords(parcel, kUsualWords);
    for (int i = 0; i < kUsualBuffers && status == OK; i++) {
        status = parcel->writeBuffer(sBytes, sizeof(sBytes), nullptr);
    }
    return status == OK ? parcel->writeNativeHandleNoDup(nullptr) : status;
}

class HwCallAllocationTest : public HwThreadTest {
  protected:
    /** Bytes; those that the C library keeps at hand for the thread count, a kilobyte or so. */
    static size_t inUse() { return mallinfo2().uordblks + mallinfo2().hblkhd; }
    static constexpr size_t kAtHand = 4096;

    static uint64_t ofTheRuntime() { return allocations() - sOfTheDriver; }

    /** How often memory is asked for from one call's reply to another's. */
    uint64_t betweenReplies() {
        std::vector<uint64_t> counts;
        counts.reserve(2 * kCalls);
        mHandler = [&](Parcel* reply, const auto& send) {
            const status_t status = writeUsual(reply);
            send(*reply);
            counts.push_back(ofTheRuntime());
            return status;
        };
        giveCalls(kCalls);
        mThread->joinThreadPool();
        EXPECT_EQ(size_t{kCalls}, counts.size());
        return counts.back() - counts.front();
    }

    void giveCalls(int count) {
        for (int i = 0; i < count; i++) {
            mBinder.give({{BR_TRANSACTION, incoming(mName, contentsOf(mWords))}});
            mBinder.give({BinderCommand(BR_TRANSACTION_COMPLETE)});
        }
    }

    std::function<status_t(Parcel* reply, const BHwBinder::TransactCallback& send)> mHandler;
    const sp<BHwBinder> mObject =
            new AnsweringObject([this](const Parcel&, Parcel* reply, const auto& send) {
                return mHandler(reply, send);
            });
    const uint64_t mName = publish(mObject);
};

TEST_F(HwCallAllocationTest, ACallServedAsksForNone) {
    betweenReplies();  // the channel's own lists at their longest
    EXPECT_EQ(0u, betweenReplies());
}

TEST_F(HwCallAllocationTest, ACallMadeAsksForNone) {
    uint64_t last = 0;
    for (int i = 0; i < kCalls; i++) {
        mBinder.give({BinderCommand(BR_TRANSACTION_COMPLETE), replyOf(mWords)});
        const uint64_t before = ofTheRuntime();
        {
            Parcel data;
            Parcel reply;
            writeUsual(&data);
            EXPECT_EQ(OK, mThread->transact(3, 7, data, &reply, 0));
            EXPECT_EQ(8u, reply.dataSize());
        }
        last = ofTheRuntime() - before;
    }
    EXPECT_EQ(0u, last);
}

TEST_F(HwCallAllocationTest, ALongParcelAsksNowAndThenAndKeepsNothing) {
    const size_t inUseBefore = inUse();
    const uint64_t before = allocations();
    {
        Parcel parcel;
        EXPECT_EQ(OK, writeWords(&parcel, kManyWords));
        EXPECT_EQ(kManyWords * sizeof(int32_t), parcel.dataSize());
        EXPECT_GT(20u, allocations() - before);
        EXPECT_LT(before, allocations());
    }
    EXPECT_LT(inUse(), inUseBefore + kAtHand);
}

TEST_F(HwCallAllocationTest, NorDoesAParcelThatIsEmptiedAndUsedAgain) {
    Parcel parcel;
    const size_t inUseBefore = inUse();
    EXPECT_EQ(OK, writeWords(&parcel, kManyWords));
    parcel.freeData();
    EXPECT_LT(inUse(), inUseBefore + kAtHand);
    const uint64_t before = allocations();
    EXPECT_EQ(OK, writeUsual(&parcel));
    EXPECT_EQ(before, allocations());
}

}  // namespace
}  // namespace korvane::test
