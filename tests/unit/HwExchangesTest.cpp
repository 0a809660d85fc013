// SPDX-License-Identifier: Apache-2.0
// How often a thread goes to the driver, and what it has told the driver by the time that it waits.
#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <hwbinder/IPCThreadState.h>
#include <hwbinder/BpHwBinder.h>

#include "support/HwThreadTest.h"

namespace korvane::test {
namespace {

using android::OK;
using android::sp;
using android::status_t;
using android::wp;
using android::hardware::BHwBinder;
using android::hardware::IBinder;
using android::hardware::Parcel;
using android::hardware::ProcessState;

constexpr uint32_t kHandle = 6;
constexpr int kCalls = 20;

/** What a call brings that has one object of another process in it. */
class ContentsWithHandle {
  public:
    ContentsWithHandle() {
        mBytes.object.hdr.type = BINDER_TYPE_HANDLE;
        mBytes.object.handle = kHandle;
    }
    binder_transaction_data get() const {
        binder_transaction_data contents{};
        contents.data_size = sizeof(mBytes.object);
        contents.data.ptr.buffer = reinterpret_cast<uintptr_t>(&mBytes);
        contents.offsets_size = sizeof(mBytes.offset);
        contents.data.ptr.offsets = reinterpret_cast<uintptr_t>(&mBytes.offset);
        return contents;
    }

  private:
    struct {
        flat_binder_object object{};
        uint64_t offset = 0;
    } mBytes;
};

class HwExchangesTest : public HwThreadTest {
  protected:
    void TearDown() override { mBinder.clear(); }

    /** Serves everything that has been given, as a thread of the pool, until no more comes. */
    void serve() {
        mBinder.whenIdle([this] {
            mSaid = mBinder.take();
            mExchanges = mBinder.exchanges();
        });
        mThread->joinThreadPool();
    }

    void giveCall(const binder_transaction_data& contents, uint32_t flags = 0) {
        mBinder.give({{BR_TRANSACTION, incoming(mName, contents, flags)}});
        if ((flags & TF_ONE_WAY) == 0) giveCompletion();
    }
    void giveCompletion() { mBinder.give({BinderCommand(BR_TRANSACTION_COMPLETE)}); }
    void giveReply() { mBinder.give({BinderCommand(BR_TRANSACTION_COMPLETE), replyOf(mWords)}); }

    size_t saidBefore(const std::vector<BinderCommand>& said, uint32_t number) {
        return std::find_if(said.begin(), said.end(),
                            [&](const auto& command) { return command.number == number; }) -
               said.begin();
    }
    size_t count(uint32_t number) {
        return std::count_if(mSaid.begin(), mSaid.end(),
                             [&](const auto& command) { return command.number == number; });
    }

    // The object called does this.
    AnsweringObject::Handler mHandler = [](const Parcel&, Parcel*, const auto&) { return OK; };
    const sp<BHwBinder> mObject =
            new AnsweringObject([this](const Parcel& data, Parcel* reply, const auto& send) {
                return mHandler(data, reply, send);
            });
    const uint64_t mName = publish(mObject);
    const ContentsWithHandle mWithHandle;

    // What the thread had said, and how often it had gone to the driver, when no more call came.
    std::vector<BinderCommand> mSaid;
    size_t mExchanges = 0;
};

TEST_F(HwExchangesTest, ACallServedTakesTwoTheReplyAndTheWaitForTheNext) {
    for (int i = 0; i < kCalls; i++) giveCall(contentsOf(mWords));
    serve();
    EXPECT_EQ(1u + 2 * kCalls, mExchanges);
    EXPECT_EQ(size_t{kCalls}, count(BC_REPLY_SG));
    EXPECT_EQ(size_t{kCalls}, count(BC_FREE_BUFFER));
}

TEST_F(HwExchangesTest, SoDoesOneThatIsAnsweredFirst) {
    mHandler = [](const Parcel&, Parcel* reply, const auto& send) {
        send(*reply);
        return OK;
    };
    for (int i = 0; i < kCalls; i++) giveCall(contentsOf(mWords));
    serve();
    EXPECT_EQ(1u + 2 * kCalls, mExchanges);
    EXPECT_EQ(size_t{kCalls}, count(BC_FREE_BUFFER));
}

TEST_F(HwExchangesTest, SoDoOnesThatAreRefused) {
    mHandler = [](const Parcel&, Parcel*, const auto&) { return android::UNKNOWN_TRANSACTION; };
    for (int i = 0; i < kCalls; i++) giveCall(contentsOf(mWords));
    for (int i = 0; i < kCalls; i++) giveCall(damagedContents());
    serve();
    EXPECT_EQ(1u + 4 * kCalls, mExchanges);
    EXPECT_EQ(size_t{2 * kCalls}, count(BC_FREE_BUFFER));
}

TEST_F(HwExchangesTest, AOnewayCallTakesOneHoweverManyCome) {
    for (int i = 0; i < kCalls; i++) giveCall(contentsOf(mWords), TF_ONE_WAY);
    serve();
    EXPECT_EQ(1u + kCalls, mExchanges);
    EXPECT_EQ(size_t{kCalls}, count(BC_FREE_BUFFER));
}

TEST_F(HwExchangesTest, WhatACallMadeBetweenBringsIsGivenBackWithTheReply) {
    mHandler = [this](const Parcel&, Parcel*, const auto&) {
        return mThread->transact(3, 7, Parcel(), nullptr, 0);
    };
    for (int i = 0; i < kCalls; i++) {
        mBinder.give({{BR_TRANSACTION, incoming(mName, contentsOf(mWords))}});
        giveReply();
        giveCompletion();
    }
    serve();
    EXPECT_EQ(1u + 3 * kCalls, mExchanges);
    EXPECT_EQ(size_t{2 * kCalls}, count(BC_FREE_BUFFER));
}

TEST_F(HwExchangesTest, NoCallTakesMoreThanTwoForTheObjectsThatItBrings) {
    mHandler = [](const Parcel& data, Parcel*, const auto&) {
        sp<IBinder> object;
        return data.readStrongBinder(&object);
    };
    for (const uint32_t flags : {uint32_t{0}, uint32_t{TF_ONE_WAY}}) {
        mBinder.clear();
        for (int i = 0; i < kCalls; i++) giveCall(mWithHandle.get(), flags);
        serve();
        EXPECT_GE(1u + 2 * kCalls, mExchanges) << flags;
        EXPECT_EQ(size_t{kCalls}, count(BC_ACQUIRE)) << flags;
        EXPECT_EQ(size_t{kCalls}, count(BC_RELEASE)) << flags;
        EXPECT_EQ(size_t{kCalls}, count(BC_FREE_BUFFER)) << flags;
    }
}

TEST_F(HwExchangesTest, AnObjectIsTakenBeforeTheBytesThatBroughtItGoBack) {
    sp<IBinder> kept;
    mHandler = [&](const Parcel& data, Parcel*, const auto&) {
        return data.readStrongBinder(&kept);
    };
    for (const uint32_t flags : {uint32_t{0}, uint32_t{TF_ONE_WAY}}) {
        kept = nullptr;
        mBinder.clear();
        giveCall(mWithHandle.get(), flags);
        serve();
        ASSERT_EQ(1u, count(BC_ACQUIRE)) << flags;
        ASSERT_EQ(1u, count(BC_FREE_BUFFER)) << flags;
        EXPECT_LT(saidBefore(mSaid, BC_ACQUIRE), saidBefore(mSaid, BC_FREE_BUFFER)) << flags;
        EXPECT_EQ(0u, count(BC_RELEASE)) << flags;
    }
}

TEST_F(HwExchangesTest, AnObjectThatAnotherThreadDropsAtOnceIsTakenFirst) {
    mHandler = [](const Parcel& data, Parcel*, const auto&) {
        sp<IBinder> object;
        const status_t status = data.readStrongBinder(&object);
        std::thread([dropped = std::move(object)]() mutable { dropped = nullptr; }).join();
        return status;
    };
    giveCall(mWithHandle.get());
    serve();
    ASSERT_EQ(1u, count(BC_ACQUIRE));
    ASSERT_EQ(1u, count(BC_RELEASE));
    EXPECT_LT(saidBefore(mSaid, BC_ACQUIRE), saidBefore(mSaid, BC_RELEASE));
}

TEST_F(HwExchangesTest, NobodyHoldsAnObjectThatCameWhileNoMoreCalls) {
    wp<IBinder> watched;
    mHandler = [&](const Parcel& data, Parcel* reply, const auto& send) {
        send(*reply);
        sp<IBinder> object;
        const status_t status = data.readStrongBinder(&object);
        watched = object;
        return status;
    };
    giveCall(mWithHandle.get());
    bool isIdle = false;
    mBinder.whenIdle([&] {
        isIdle = true;
        EXPECT_EQ(nullptr, watched.promote());
    });
    mThread->joinThreadPool();
    EXPECT_TRUE(isIdle);
}

TEST_F(HwExchangesTest, AThreadThatServesNoMoreGivesBackAtOnce) {
    giveCall(contentsOf(mWords));
    serve();
    mBinder.clear();
    giveReply();
    EXPECT_EQ(OK, mThread->transact(3, 7, Parcel(), nullptr, 0));
    EXPECT_EQ((Numbers{BC_TRANSACTION_SG, BC_FREE_BUFFER}), mBinder.takeNumbers());
}

TEST_F(HwExchangesTest, SoDoesAThreadWithItsOwnLoopBeforeItGoesBackToIt) {
    int descriptor = -1;
    ASSERT_EQ(OK, mThread->setupPolling(&descriptor));
    mBinder.clear();
    giveCall(contentsOf(mWords));
    EXPECT_EQ(OK, mThread->handlePolledCommands());
    EXPECT_EQ((Numbers{BC_REPLY_SG, BC_FREE_BUFFER}), mBinder.takeNumbers());
    giveReply();
    EXPECT_EQ(OK, mThread->transact(3, 7, Parcel(), nullptr, 0));
    EXPECT_EQ((Numbers{BC_TRANSACTION_SG, BC_FREE_BUFFER}), mBinder.takeNumbers());
}

TEST_F(HwExchangesTest, AThreadThatServesNobodyTakesAndDropsAReferenceAtOnce) {
    sp<IBinder> proxy = ProcessState::self()->getStrongProxyForHandle(kHandle);
    EXPECT_EQ((Numbers{BC_ACQUIRE}), mBinder.takeNumbers());
    proxy = nullptr;
    EXPECT_EQ((Numbers{BC_RELEASE}), mBinder.takeNumbers());
}

}  // namespace
}  // namespace korvane::test
