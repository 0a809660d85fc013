// SPDX-License-Identifier: Apache-2.0
// The proxy of an object of another process, over a scripted driver: calls, life, links to a death.
#include <cerrno>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hwbinder/IInterface.h>
#include <hwbinder/BpHwBinder.h>

#include "../../platform/libhidlbase/hwbinder/RemoteHandles.h"
#include "support/HwThreadTest.h"

namespace korvane::test {
namespace {

using android::BAD_TYPE;
using android::BAD_VALUE;
using android::DEAD_OBJECT;
using android::FAILED_TRANSACTION;
using android::NAME_NOT_FOUND;
using android::OK;
using android::sp;
using android::status_t;
using android::wp;
using android::hardware::IBinder;
using android::hardware::IInterface;
using android::hardware::Parcel;
using android::hardware::ProcessState;
using testing::ElementsAre;

constexpr uint32_t kHandle = 5;

struct Recipient : IBinder::DeathRecipient {
    void binderDied(const wp<IBinder>& dead) override { told.push_back(dead.promote()); }
    std::vector<sp<IBinder>> told;
};

class HwProxyTest : public HwThreadTest {
  protected:
    void SetUp() override {
        HwThreadTest::SetUp();
        mProxy = ProcessState::self()->getStrongProxyForHandle(kHandle);
    }

    status_t call(Parcel* reply, const IBinder::TransactCallback& callback = nullptr) {
        return mProxy->transact(1, Parcel(), reply, 0, callback);
    }
    void answer(const BinderCommand& reply) {
        mBinder.give({BinderCommand(BR_TRANSACTION_COMPLETE), reply});
    }
    bool isAlive() { return mProxy->remoteBinder()->isBinderAlive(); }

    sp<IBinder> mProxy;
    const sp<Recipient> mRecipient = new Recipient();
};

TEST_F(HwProxyTest, HoldsAReferenceWhileItLives) {
    EXPECT_EQ((Numbers{BC_ACQUIRE}), mBinder.takeNumbers());
    mProxy = nullptr;
    const auto said = mBinder.take();
    ASSERT_EQ(1u, said.size());
    EXPECT_EQ(BC_RELEASE, said[0].number);
    EXPECT_EQ(kHandle, said[0].as<uint32_t>());
}

TEST_F(HwProxyTest, GivesTheReplyOfACallToItsFunctionOnceAndOnlyIfThereIsOne) {
    int calls = 0;
    const auto count = [&](Parcel& reply) {
        EXPECT_EQ(8u, reply.dataSize());
        calls++;
    };
    Parcel reply;
    answer(replyOf(mWords));
    EXPECT_EQ(OK, call(&reply, count));
    EXPECT_EQ(1, calls);
    answer(BinderCommand(BR_FAILED_REPLY));
    EXPECT_EQ(FAILED_TRANSACTION, call(&reply, count));
    answer(replyOf(mWords));
    EXPECT_EQ(OK, call(nullptr, count));
    EXPECT_EQ(1, calls);
    EXPECT_TRUE(isAlive());
}

TEST_F(HwProxyTest, AsksNoMoreOfAnObjectFoundDead) {
    EXPECT_TRUE(isAlive());
    answer(BinderCommand(BR_DEAD_REPLY));
    EXPECT_EQ(DEAD_OBJECT, call(nullptr));
    EXPECT_FALSE(isAlive());
    mBinder.clear();
    EXPECT_EQ(DEAD_OBJECT, call(nullptr));
    EXPECT_TRUE(mBinder.take().empty());
}

TEST_F(HwProxyTest, LinksWithTheDriverOnceForAllRecipients) {
    mBinder.clear();
    EXPECT_EQ(OK, mProxy->linkToDeath(mRecipient));
    EXPECT_EQ(OK, mProxy->linkToDeath(mRecipient));
    const auto said = mBinder.take();
    ASSERT_EQ(1u, said.size());
    EXPECT_EQ(BC_REQUEST_DEATH_NOTIFICATION, said[0].number);
    EXPECT_EQ(kHandle, said[0].as<binder_handle_cookie>().handle);
    const uint64_t cookie = said[0].as<binder_handle_cookie>().cookie;
    EXPECT_EQ(mProxy, ProcessState::self()->remoteHandles().findByDeathCookie(cookie));

    EXPECT_EQ(OK, mProxy->unlinkToDeath(mRecipient));
    EXPECT_TRUE(mBinder.take().empty());
    EXPECT_EQ(OK, mProxy->unlinkToDeath(mRecipient));
    const auto cleared = mBinder.take();
    ASSERT_EQ(1u, cleared.size());
    EXPECT_EQ(BC_CLEAR_DEATH_NOTIFICATION, cleared[0].number);
    // The packed field is not aligned: + makes a value of it.
    EXPECT_EQ(cookie, +cleared[0].as<binder_handle_cookie>().cookie);
    EXPECT_EQ(NAME_NOT_FOUND, mProxy->unlinkToDeath(mRecipient));
}

TEST_F(HwProxyTest, ALinkThatTheDriverRefusesIsNone) {
    mBinder.kernel().fail("BINDER_WRITE_READ", ENOMEM);
    EXPECT_EQ(-ENOMEM, mProxy->linkToDeath(mRecipient));
    EXPECT_EQ(NAME_NOT_FOUND, mProxy->unlinkToDeath(mRecipient));
    EXPECT_EQ(BAD_VALUE, mProxy->linkToDeath(nullptr));
    mBinder.clear();
    EXPECT_EQ(OK, mProxy->linkToDeath(mRecipient));
    EXPECT_EQ((Numbers{BC_REQUEST_DEATH_NOTIFICATION}), mBinder.takeNumbers());
}

TEST_F(HwProxyTest, AProxyThatGoesTakesItsLinkAlong) {
    EXPECT_EQ(OK, mProxy->linkToDeath(mRecipient));
    mBinder.clear();
    mProxy = nullptr;
    EXPECT_EQ((Numbers{BC_CLEAR_DEATH_NOTIFICATION, BC_RELEASE}), mBinder.takeNumbers());
}

TEST_F(HwProxyTest, TellsOfADeathOnceAndKeepsNoLink) {
    EXPECT_EQ(OK, mProxy->linkToDeath(mRecipient));
    mProxy->remoteBinder()->sendObituary();
    mProxy->remoteBinder()->sendObituary();
    EXPECT_THAT(mRecipient->told, ElementsAre(mProxy));
    EXPECT_FALSE(isAlive());
    EXPECT_EQ(DEAD_OBJECT, mProxy->linkToDeath(mRecipient));
    EXPECT_EQ(DEAD_OBJECT, mProxy->unlinkToDeath(mRecipient));
    mRecipient->told.clear();
    mBinder.clear();
    mProxy = nullptr;
    EXPECT_EQ((Numbers{BC_RELEASE}), mBinder.takeNumbers());
}

TEST_F(HwProxyTest, TellsNobodyWhoHasGone) {
    sp<Recipient> gone = new Recipient();
    EXPECT_EQ(OK, mProxy->linkToDeath(gone));
    EXPECT_EQ(OK, mProxy->linkToDeath(mRecipient));
    gone = nullptr;
    mProxy->remoteBinder()->sendObituary();
    EXPECT_EQ(1u, mRecipient->told.size());
    mRecipient->told.clear();
}

TEST_F(HwProxyTest, UnlinksTheNewestOfEqualLinksByRecipientOrCookie) {
    int first;
    int second;
    EXPECT_EQ(OK, mProxy->linkToDeath(mRecipient, &first, 1));
    EXPECT_EQ(OK, mProxy->linkToDeath(mRecipient, &second, 2));
    EXPECT_EQ(NAME_NOT_FOUND, mProxy->unlinkToDeath(nullptr, &second, 1));
    wp<IBinder::DeathRecipient> taken;
    EXPECT_EQ(OK, mProxy->unlinkToDeath(nullptr, &second, 2, &taken));
    EXPECT_TRUE(taken == wp<IBinder::DeathRecipient>(mRecipient));
    EXPECT_EQ(OK, mProxy->unlinkToDeath(mRecipient, nullptr, 1));
}

TEST_F(HwProxyTest, TravelsAsItsHandle) {
    Parcel parcel;
    ASSERT_EQ(OK, parcel.writeStrongBinder(mProxy));
    ASSERT_EQ(1u, parcel.ipcObjectsCount());
    flat_binder_object object;
    memcpy(&object, parcel.data() + parcel.ipcObjects()[0], sizeof(object));
    EXPECT_EQ(uint32_t{BINDER_TYPE_HANDLE}, object.hdr.type);
    EXPECT_EQ(kHandle, object.handle);
    sp<IBinder> read;
    EXPECT_EQ(OK, parcel.readStrongBinder(&read));
    EXPECT_EQ(mProxy, read);
}

/** Neither an object of this process nor a proxy. */
struct Stranger : IBinder {
    status_t transact(uint32_t, const Parcel&, Parcel*, uint32_t, TransactCallback) override {
        return OK;
    }
    status_t linkToDeath(const sp<DeathRecipient>&, void*, uint32_t) override { return OK; }
    status_t unlinkToDeath(const wp<DeathRecipient>&, void*, uint32_t,
                           wp<DeathRecipient>*) override {
        return OK;
    }
};

TEST_F(HwProxyTest, WhatTheDriverCannotKnowDoesNotTravel) {
    Parcel parcel;
    EXPECT_EQ(BAD_TYPE, parcel.writeStrongBinder(new Stranger()));
    EXPECT_EQ(0u, parcel.dataSize());
}

TEST_F(HwProxyTest, NoInterfaceHasNoBinder) {
    EXPECT_EQ(nullptr, IInterface::asBinder(static_cast<const IInterface*>(nullptr)));
    EXPECT_EQ(nullptr, IInterface::asBinder(sp<IInterface>()));
}

}  // namespace
}  // namespace korvane::test
