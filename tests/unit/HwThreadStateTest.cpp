// SPDX-License-Identifier: Apache-2.0
// A thread's calls and its time in the pool, over a driver that says whatever a test wants.
#include <cerrno>
#include <thread>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hwbinder/IPCThreadState.h>

#include "support/HwThreadTest.h"

namespace korvane::test {
namespace {

using android::BAD_VALUE;
using android::DEAD_OBJECT;
using android::FAILED_TRANSACTION;
using android::OK;
using android::sp;
using android::status_t;
using android::UNKNOWN_TRANSACTION;
using android::wp;
using android::hardware::BHwBinder;
using android::hardware::IPCThreadState;
using android::hardware::Parcel;
using testing::IsEmpty;

constexpr uint32_t kPendingFrozen = _IO('r', 20);

BinderCommand statusReplyOf(const std::vector<uint32_t>& words) {
    binder_transaction_data contents = contentsOf(words);
    contents.flags = TF_STATUS_CODE;
    return {BR_REPLY, contents};
}

class HwThreadStateTest : public HwThreadTest {
  protected:
    status_t call(Parcel* reply, uint32_t flags = 0) {
        return mThread->transact(3, 7, Parcel(), reply, flags);
    }
};

// Calls.

TEST_F(HwThreadStateTest, ACallSaysWhatIsCalledAndGetsItsReply) {
    mBinder.give({BinderCommand(BR_NOOP), BinderCommand(BR_TRANSACTION_COMPLETE)});
    mBinder.give({BinderCommand(BR_NOOP), replyOf(mWords)});
    uint32_t first = 0;
    {
        Parcel reply;
        EXPECT_EQ(OK, call(&reply, 0x40));
        EXPECT_EQ(OK, reply.readUint32(&first));
    }
    EXPECT_EQ(11u, first);
    const auto said = mBinder.take();
    ASSERT_EQ(2u, said.size());
    EXPECT_EQ(BC_TRANSACTION_SG, said[0].number);
    const auto sent = said[0].as<binder_transaction_data_sg>().transaction_data;
    EXPECT_EQ(3u, sent.target.handle);
    EXPECT_EQ(7u, sent.code);
    EXPECT_EQ(0x40u | TF_ACCEPT_FDS, sent.flags);
    EXPECT_EQ(BC_FREE_BUFFER, said[1].number);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(mWords.data()), said[1].as<binder_uintptr_t>());
}

TEST_F(HwThreadStateTest, AReplyThatNobodyWantsIsGivenBack) {
    mBinder.give({BinderCommand(BR_TRANSACTION_COMPLETE), replyOf(mWords)});
    EXPECT_EQ(OK, call(nullptr));
    EXPECT_EQ((Numbers{BC_TRANSACTION_SG, BC_FREE_BUFFER}), mBinder.takeNumbers());
}

TEST_F(HwThreadStateTest, AOnewayCallWaitsOnlyUntilTheDriverHasIt) {
    for (const uint32_t taken :
         {uint32_t{BR_TRANSACTION_COMPLETE}, uint32_t{BR_ONEWAY_SPAM_SUSPECT}, kPendingFrozen}) {
        mBinder.give({BinderCommand(taken)});
        mBinder.give({BinderCommand(BR_NOOP)});
        EXPECT_EQ(OK, call(nullptr, TF_ONE_WAY)) << taken;
        EXPECT_EQ(1u, mBinder.left());
        mBinder.clear();
    }
}

struct Outcome {
    const char* name;
    std::vector<BinderCommand> answer;
    status_t expected;
};

void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << outcome.name;
}

const std::vector<uint32_t> kUnknown = {static_cast<uint32_t>(UNKNOWN_TRANSACTION)};
const std::vector<uint32_t> kFine = {OK};
const std::vector<uint32_t> kTwo = {1, 2};

class HwThreadStateOutcomeTest : public HwThreadStateTest,
                                 public testing::WithParamInterface<Outcome> {};

TEST_P(HwThreadStateOutcomeTest, IsTheCallersStatusAndTheNextCallIsFine) {
    mBinder.give(GetParam().answer);
    Parcel reply;
    EXPECT_EQ(GetParam().expected, call(&reply));
    EXPECT_EQ(0u, reply.dataSize());
    mBinder.clear();
    mBinder.give({BinderCommand(BR_TRANSACTION_COMPLETE), replyOf(mWords)});
    EXPECT_EQ(OK, call(&reply));
    EXPECT_EQ(8u, reply.dataSize());
}

INSTANTIATE_TEST_SUITE_P(
        All, HwThreadStateOutcomeTest,
        testing::Values(
                Outcome{"Dead", {BinderCommand(BR_DEAD_REPLY)}, DEAD_OBJECT},
                Outcome{"Failed", {BinderCommand(BR_FAILED_REPLY)}, FAILED_TRANSACTION},
                Outcome{"Frozen", {BinderCommand(BR_FROZEN_REPLY)}, FAILED_TRANSACTION},
                Outcome{"FailedOnceSent",
                        {BinderCommand(BR_TRANSACTION_COMPLETE), BinderCommand(BR_FAILED_REPLY)},
                        FAILED_TRANSACTION},
                Outcome{"ErrorOfTheDriver", {{BR_ERROR, int32_t{-ENOMEM}}}, -ENOMEM},
                Outcome{"NothingMore", {BinderCommand(BR_TRANSACTION_COMPLETE)}, -EIO},
                Outcome{"Status", {statusReplyOf(kUnknown)}, UNKNOWN_TRANSACTION},
                Outcome{"StatusThatIsFine", {statusReplyOf(kFine)}, BAD_VALUE},
                Outcome{"StatusOfAnotherSize", {statusReplyOf(kTwo)}, BAD_VALUE},
                Outcome{"DamagedReply", {{BR_REPLY, damagedContents()}}, android::BAD_TYPE},
                Outcome{"ReplyCutOff", {{BR_REPLY, uint32_t{1}}}, BAD_VALUE},
                Outcome{"CallCutOff", {{BR_TRANSACTION, uint32_t{1}}}, BAD_VALUE},
                Outcome{"LabelledCallCutOff", {{BR_TRANSACTION_SEC_CTX, uint32_t{1}}}, BAD_VALUE},
                Outcome{"NoCommand", {BinderCommand(0x12345678)}, BAD_VALUE}),
        [](const testing::TestParamInfo<Outcome>& info) { return info.param.name; });

TEST_F(HwThreadStateTest, EveryFailedReplyIsGivenBack) {
    mBinder.give({statusReplyOf(kUnknown)});
    mBinder.give({{BR_REPLY, damagedContents()}});
    EXPECT_EQ(UNKNOWN_TRANSACTION, call(nullptr));
    EXPECT_EQ((Numbers{BC_TRANSACTION_SG, BC_FREE_BUFFER}), mBinder.takeNumbers());
    EXPECT_EQ(android::BAD_TYPE, call(nullptr));
    EXPECT_EQ((Numbers{BC_TRANSACTION_SG, BC_FREE_BUFFER}), mBinder.takeNumbers());
}

TEST_F(HwThreadStateTest, AnObjectGivenBackDuringACallIsDestroyedAfterIt) {
    sp<BHwBinder> object = new BHwBinder;
    const wp<BHwBinder> watched = object;
    const uint64_t name = publish(object);
    const binder_ptr_cookie node{name, name};
    const sp<BHwBinder> witness = new AnsweringObject([&](const Parcel&, Parcel*, const auto&) {
        withdraw(name);
        object = nullptr;
        EXPECT_NE(nullptr, watched.promote());
        return OK;
    });
    mBinder.give({{BR_ACQUIRE, node}, BinderCommand(BR_TRANSACTION_COMPLETE)});
    mBinder.give(
            {{BR_RELEASE, node}, {BR_TRANSACTION, incoming(publish(witness), contentsOf(mWords))}});
    mBinder.give({BinderCommand(BR_TRANSACTION_COMPLETE), replyOf(mWords)});
    EXPECT_EQ(OK, call(nullptr));
    EXPECT_EQ(nullptr, watched.promote());
}

// Threads of the pool.

constexpr uint32_t kEnter = BC_ENTER_LOOPER;
constexpr uint32_t kRegister = BC_REGISTER_LOOPER;
constexpr uint32_t kExit = BC_EXIT_LOOPER;

TEST_F(HwThreadStateTest, AThreadThatTheDriverAskedForEndsWhenItIsNotNeeded) {
    mBinder.give({BinderCommand(BR_FINISHED)});
    mThread->joinThreadPool(false);
    EXPECT_EQ((Numbers{kRegister, kExit}), mBinder.takeNumbers());
    EXPECT_FALSE(mThread->isLooperThread());
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(HwThreadStateTest, TheMainThreadStaysUntilTheDriverRefusesIt) {
    mBinder.kernel().fail("BINDER_WRITE_READ", ECONNREFUSED, 2);
    mBinder.give({BinderCommand(BR_FINISHED)});
    mBinder.give({BinderCommand(BR_FINISHED)});
    mThread->joinThreadPool();
    EXPECT_EQ(0u, mBinder.left());
    EXPECT_EQ((Numbers{kEnter, kExit}), mBinder.takeNumbers());
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(HwThreadStateTest, AThreadThatLeavesForAnotherReasonSaysSo) {
    mThread->joinThreadPool();
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, "hw-IPCThreadState",
                         "A thread leaves the pool, as the driver says -5"));
}

TEST_F(HwThreadStateTest, AThreadWithItsOwnLoopIsToldIfThatIsImpossible) {
    mBinder.kernel().fail("BINDER_WRITE_READ", EINVAL);
    int descriptor = -1;
    EXPECT_EQ(-EINVAL, mThread->setupPolling(&descriptor));
    EXPECT_EQ(-1, descriptor);
    EXPECT_FALSE(mThread->isLooperThread());
}

/** Notes, while it is destroyed, the state of the thread that does it and how many ended before. */
struct LastWords : BHwBinder {
    LastWords(IPCThreadState** state, size_t* ended) : state(state), ended(ended) {}
    ~LastWords() override {
        *state = IPCThreadState::selfOrNull();
        *ended = ScriptedBinder::ofThisProcess().kernel().calls("BINDER_THREAD_EXIT").size();
    }
    IPCThreadState** const state;
    size_t* const ended;
};

TEST_F(HwThreadStateTest, AThreadThatEndsGivesBackWhatItPutOffBeforeTheDriverForgetsIt) {
    IPCThreadState* lastState = nullptr;
    size_t endedBefore = 99;
    const size_t ended = mBinder.kernel().calls("BINDER_THREAD_EXIT").size();
    IPCThreadState* state = nullptr;
    std::thread([&] {
        sp<BHwBinder> object = new LastWords(&lastState, &endedBefore);
        const uint64_t name = publish(object);
        const binder_ptr_cookie node{name, name};
        mBinder.give(
                {{BR_ACQUIRE, node}, {BR_RELEASE, node}, BinderCommand(BR_TRANSACTION_COMPLETE)});
        state = IPCThreadState::self();
        EXPECT_EQ(OK, state->transact(3, 7, Parcel(), nullptr, TF_ONE_WAY));
        withdraw(name);
        object = nullptr;
        EXPECT_EQ(nullptr, lastState);
    }).join();
    EXPECT_EQ(state, lastState);
    EXPECT_EQ(ended, endedBefore);
    EXPECT_EQ(ended + 1, mBinder.kernel().calls("BINDER_THREAD_EXIT").size());
}

TEST_F(HwThreadStateTest, AThreadThatOnlyAsksItsStateHasNone) {
    std::thread([] { EXPECT_EQ(nullptr, IPCThreadState::selfOrNull()); }).join();
    EXPECT_EQ(mThread, IPCThreadState::selfOrNull());
}

}  // namespace
}  // namespace korvane::test
