// SPDX-License-Identifier: Apache-2.0
// Calls that a thread serves, over a driver that brings and refuses whatever a test wants.
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "../../platform/libhidlbase/hwbinder/IncomingCall.h"
#include "support/HwThreadTest.h"

namespace korvane::test {
namespace {

using android::BAD_TYPE;
using android::DEAD_OBJECT;
using android::FAILED_TRANSACTION;
using android::OK;
using android::sp;
using android::status_t;
using android::UNKNOWN_TRANSACTION;
using android::hardware::BHwBinder;
using android::hardware::Parcel;

class HwIncomingCallTest : public HwThreadTest {
  protected:
    /** Serves what has been given in one batch. */
    status_t serve() { return mThread->handlePolledCommands(); }

    bool logged(android_LogPriority priority, const std::string& message) {
        return mLog.has(priority, "hw-IncomingCall", message);
    }
};

TEST_F(HwIncomingCallTest, ACallServedKnowsItsCallerAndIsAnswered) {
    const sp<BHwBinder> object =
            new AnsweringObject([&](const Parcel& data, Parcel* reply, const auto&) {
                EXPECT_EQ(42, mThread->getCallingPid());
                EXPECT_EQ(43u, mThread->getCallingUid());
                uint32_t first = 0;
                EXPECT_EQ(OK, data.readUint32(&first));
                return reply->writeUint32(first);
            });
    mBinder.give({{BR_TRANSACTION, incoming(publish(object), contentsOf(mWords))}});
    mBinder.give({BinderCommand(BR_TRANSACTION_COMPLETE)});
    EXPECT_EQ(OK, serve());
    EXPECT_EQ(getpid(), mThread->getCallingPid());
    const auto said = mBinder.take();
    ASSERT_EQ(2u, said.size());
    EXPECT_EQ(BC_REPLY_SG, said[0].number);
    EXPECT_EQ(4u, said[0].as<binder_transaction_data_sg>().transaction_data.data_size);
    EXPECT_EQ(BC_FREE_BUFFER, said[1].number);
}

TEST_F(HwIncomingCallTest, AClearedIdentityComesBackByItsToken) {
    const sp<BHwBinder> object = new AnsweringObject([&](const Parcel&, Parcel*, const auto&) {
        const int64_t token = mThread->clearCallingIdentity();
        EXPECT_EQ(getpid(), mThread->getCallingPid());
        EXPECT_EQ(getuid(), mThread->getCallingUid());
        mThread->restoreCallingIdentity(token);
        EXPECT_EQ(42, mThread->getCallingPid());
        EXPECT_EQ(43u, mThread->getCallingUid());
        return OK;
    });
    mBinder.give({{BR_TRANSACTION, incoming(publish(object), contentsOf(mWords))}});
    mBinder.give({BinderCommand(BR_TRANSACTION_COMPLETE)});
    EXPECT_EQ(OK, serve());
    EXPECT_EQ(getpid(), mThread->getCallingPid());
}

TEST_F(HwIncomingCallTest, ALabelledCallIsServedLikeAnyOther) {
    int calls = 0;
    const sp<BHwBinder> object = new AnsweringObject([&](const Parcel&, Parcel*, const auto&) {
        calls++;
        return OK;
    });
    binder_transaction_data_secctx labelled{};
    labelled.transaction_data = incoming(publish(object), contentsOf(mWords));
    mBinder.give({{BR_TRANSACTION_SEC_CTX, labelled}});
    mBinder.give({BinderCommand(BR_TRANSACTION_COMPLETE)});
    EXPECT_EQ(OK, serve());
    EXPECT_EQ(1, calls);
}

TEST_F(HwIncomingCallTest, ACallOfNoObjectIsAnsweredSo) {
    mBinder.give({{BR_TRANSACTION, incoming(4711, contentsOf(mWords))}});
    mBinder.give({BinderCommand(BR_TRANSACTION_COMPLETE)});
    EXPECT_EQ(OK, serve());
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "Call 9 is for an object that doesn't exist"));
    const auto said = mBinder.take();
    ASSERT_EQ(2u, said.size());
    EXPECT_EQ(BC_REPLY, said[0].number);
    EXPECT_EQ(DEAD_OBJECT, said[0].status);
    EXPECT_EQ(BC_FREE_BUFFER, said[1].number);
}

TEST_F(HwIncomingCallTest, ADamagedCallIsAnsweredSoAndReachesNobody) {
    const sp<BHwBinder> object = new AnsweringObject([](const Parcel&, Parcel*, const auto&) {
        ADD_FAILURE() << "called";
        return OK;
    });
    mBinder.give({{BR_TRANSACTION, incoming(publish(object), damagedContents())}});
    mBinder.give({BinderCommand(BR_TRANSACTION_COMPLETE)});
    EXPECT_EQ(OK, serve());
    const auto said = mBinder.take();
    ASSERT_EQ(2u, said.size());
    EXPECT_EQ(BC_FREE_BUFFER, said[0].number);
    EXPECT_EQ(BAD_TYPE, said[1].status);
}

TEST_F(HwIncomingCallTest, AReplyThatTheDriverRefusesIsSaid) {
    const sp<BHwBinder> object =
            new AnsweringObject([](const Parcel&, Parcel* reply, const auto& send) {
                send(*reply);
                return OK;
            });
    mBinder.give({{BR_TRANSACTION, incoming(publish(object), contentsOf(mWords))}});
    mBinder.give({BinderCommand(BR_FAILED_REPLY)});
    EXPECT_EQ(OK, serve());
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR,
                       "Call 9: sending the reply failed: " + std::to_string(FAILED_TRANSACTION)));
    EXPECT_EQ((Numbers{BC_REPLY_SG, BC_FREE_BUFFER}), mBinder.takeNumbers());
}

TEST_F(HwIncomingCallTest, AStatusThatTheDriverRefusesIsSaid) {
    const sp<BHwBinder> object = new AnsweringObject(
            [](const Parcel&, Parcel*, const auto&) { return UNKNOWN_TRANSACTION; });
    mBinder.give({{BR_TRANSACTION, incoming(publish(object), contentsOf(mWords))}});
    mBinder.give({BinderCommand(BR_DEAD_REPLY)});
    EXPECT_EQ(OK, serve());
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "Call 9: sending status -74 failed: -32"));
}

TEST_F(HwIncomingCallTest, AReplyThatComesWhereACompletionIsDueIsDropped) {
    const sp<BHwBinder> object =
            new AnsweringObject([](const Parcel&, Parcel*, const auto&) { return OK; });
    mBinder.give({{BR_TRANSACTION, incoming(publish(object), contentsOf(mWords))}});
    mBinder.give({replyOf(mWords)});
    EXPECT_EQ(OK, serve());
    EXPECT_EQ((Numbers{BC_REPLY_SG, BC_FREE_BUFFER, BC_FREE_BUFFER}), mBinder.takeNumbers());
}

TEST_F(HwIncomingCallTest, AOnewayCallIsNeverAnswered) {
    const sp<BHwBinder> object =
            new AnsweringObject([](const Parcel&, Parcel* reply, const auto& send) {
                send(*reply);
                return UNKNOWN_TRANSACTION;
            });
    mBinder.give({{BR_TRANSACTION, incoming(publish(object), contentsOf(mWords), TF_ONE_WAY)}});
    EXPECT_EQ(OK, serve());
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "Call 9: a reply that nobody waits for is dropped"));
    EXPECT_TRUE(logged(ANDROID_LOG_WARN, "Call 9 ended with -74, unseen by its caller"));
    EXPECT_EQ((Numbers{BC_FREE_BUFFER}), mBinder.takeNumbers());
}

// Calls inside one another.

constexpr int kDeepest = 64;

class HwNestedCallTest : public HwIncomingCallTest {
  protected:
    /** Makes so many calls, each while the one before waits for its own, and lets all end. */
    void giveCallsInsideOneAnother(int count) {
        const BinderCommand call(BR_TRANSACTION, incoming(mName, contentsOf(mWords)));
        for (int i = 0; i < count; i++) mBinder.give({call});
        for (int i = 0; i < count; i++) {
            if (i > 0) mBinder.give({replyOf(mWords)});
            mBinder.give({BinderCommand(BR_TRANSACTION_COMPLETE)});
        }
    }

    /** What every call of the object has been answered with: OK, or the status sent instead. */
    std::vector<status_t> answers() {
        std::vector<status_t> statuses;
        for (const BinderCommand& said : mBinder.take()) {
            if (said.number == BC_REPLY_SG) statuses.push_back(OK);
            if (said.number == BC_REPLY) statuses.push_back(said.status);
        }
        return statuses;
    }

    /** Calls on while the driver has another call of it. */
    status_t handle() {
        mServed++;
        const int before = mServed;
        if (mServed < mWanted) {
            Parcel reply;
            EXPECT_EQ(OK, mThread->transact(3, 7, Parcel(), &reply, 0)) << before;
        }
        return OK;
    }

    int mServed = 0;
    int mWanted = 0;
    const sp<BHwBinder> mObject =
            new AnsweringObject([this](const Parcel&, Parcel*, const auto&) { return handle(); });
    const uint64_t mName = publish(mObject);
};

TEST_F(HwNestedCallTest, SixtyFourCallsAreServedOneInsideAnother) {
    mWanted = kDeepest;
    giveCallsInsideOneAnother(kDeepest);
    EXPECT_EQ(OK, serve());
    EXPECT_EQ(kDeepest, mServed);
    EXPECT_EQ(std::vector<status_t>(kDeepest, OK), answers());
    EXPECT_EQ(0u, mBinder.left());
}

TEST_F(HwNestedCallTest, TheNextOneIsRefusedAndReachesNobody) {
    mWanted = kDeepest + 1;
    giveCallsInsideOneAnother(kDeepest + 1);
    EXPECT_EQ(OK, serve());
    EXPECT_EQ(kDeepest, mServed);
    std::vector<status_t> expected(kDeepest + 1, OK);
    expected.front() = FAILED_TRANSACTION;
    EXPECT_EQ(expected, answers());
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "Call 9 of process 42 comes inside 64 others"));
    EXPECT_EQ(0u, mBinder.left());
}

TEST_F(HwNestedCallTest, CallsThatHaveEndedDontCount) {
    for (int i = 0; i < 2; i++) {
        mServed = 0;
        mWanted = kDeepest;
        giveCallsInsideOneAnother(kDeepest);
        EXPECT_EQ(OK, serve());
        EXPECT_EQ(std::vector<status_t>(kDeepest, OK), answers()) << i;
    }
}

}  // namespace
}  // namespace korvane::test
