// SPDX-License-Identifier: Apache-2.0
// How long objects live, and which object a process gets, over the real driver.
#include <hwbinder/IPCThreadState.h>

#include "TestObjects.h"

namespace korvane::test {
namespace {

using android::OK;
using android::sp;
using android::hardware::IBinder;
using android::hardware::Parcel;
using android::hardware::ProcessState;

class HwBinderReferenceTest : public HwBinderTest {};

/** A server whose object keeps what is sent to it (1), drops it (2) or gives it back (3). */
class Keeper {
  public:
    Keeper() : mServer([this](const Call& call) { return answer(call); }) {}

    static void keep(const sp<IBinder>& object) {
        Parcel data;
        data.writeStrongBinder(object);
        ASSERT_EQ(OK, Server::find()->transact(1, data, nullptr));
    }
    static void drop() { ASSERT_EQ(OK, call(Server::find(), 2)); }
    static sp<IBinder> get() {
        Parcel reply;
        EXPECT_EQ(OK, Server::find()->transact(3, Parcel(), &reply));
        sp<IBinder> object;
        EXPECT_EQ(OK, reply.readNullableStrongBinder(&object));
        return object;
    }
    void kill() { mServer.kill(); }

  private:
    android::status_t answer(const Call& call) {
        switch (call.code) {
            case 1:
                return call.data.readNullableStrongBinder(&mKept);
            case 2:
                mKept = nullptr;
                return OK;
            default:
                return call.reply->writeStrongBinder(mKept);
        }
    }

    sp<IBinder> mKept;
    Server mServer;
};

sp<TestObject> makeObject(const Event* destroyed) {
    return new TestObject([](const Call&) { return OK; }, destroyed);
}

TEST_F(HwBinderReferenceTest, AnObjectLivesUntilItsLastProxyGoes) {
    Keeper keeper;
    Event isDestroyed;
    runInProcess([&] {
        startPool(1);
        Keeper::keep(makeObject(&isDestroyed));
        // The keeper's reference is all that is left; the object still answers.
        EXPECT_EQ(OK, call(Keeper::get()));
        EXPECT_FALSE(isDestroyed.wait(0));
        Keeper::drop();
        EXPECT_TRUE(isDestroyed.wait());
    });
}

TEST_F(HwBinderReferenceTest, AnObjectLivesUntilTheProxiesOfEveryProcessAreGone) {
    Keeper keeper;
    Event isDestroyed;
    Event isPut;
    Event isTaken;
    Event isToDrop;
    TestProcess owner([&] {
        startPool(1);
        Keeper::keep(makeObject(&isDestroyed));
        isPut.signal();
        Event().wait(60000);
    });
    TestProcess other([&] {
        EXPECT_TRUE(isPut.wait());
        sp<IBinder> object = Keeper::get();
        isTaken.signal();
        EXPECT_TRUE(isToDrop.wait());
        EXPECT_EQ(OK, call(object));
        object = nullptr;
        EXPECT_TRUE(isDestroyed.wait());
    });
    ASSERT_TRUE(isTaken.wait());
    runInProcess([] { Keeper::drop(); });
    EXPECT_FALSE(isDestroyed.wait(100));
    isToDrop.signal();
    other.expectSuccess();
}

TEST_F(HwBinderReferenceTest, AnObjectIsReleasedWhenItsHolderDies) {
    Keeper keeper;
    Event isDestroyed;
    Event isPut;
    TestProcess owner([&] {
        startPool(1);
        Keeper::keep(makeObject(&isDestroyed));
        isPut.signal();
        Event().wait(60000);
    });
    ASSERT_TRUE(isPut.wait());
    EXPECT_FALSE(isDestroyed.wait(0));
    keeper.kill();
    EXPECT_TRUE(isDestroyed.wait());
}

TEST_F(HwBinderReferenceTest, AnObjectThatComesBackIsTheOriginal) {
    Keeper keeper;
    runInProcess([] {
        const sp<IBinder> object = makeObject(nullptr);
        Keeper::keep(object);
        EXPECT_EQ(object, Keeper::get());
        EXPECT_NE(nullptr, Keeper::get()->localBinder());
    });
}

TEST_F(HwBinderReferenceTest, ARemoteObjectHasOneProxyAtATime) {
    Keeper keeper;
    runInProcess([] {
        const sp<IBinder> first = Server::find();
        EXPECT_NE(nullptr, first->remoteBinder());
        EXPECT_EQ(first, Server::find());
    });
}

TEST_F(HwBinderReferenceTest, AProxyPassedOnReachesItsObject) {
    Keeper keeper;
    runInProcess([] {
        Keeper::keep(ProcessState::self()->getContextObject(nullptr));
        EXPECT_EQ(ProcessState::self()->getContextObject(nullptr), Keeper::get());
    });
}

TEST_F(HwBinderReferenceTest, NullArrivesAsNull) {
    Keeper keeper;
    runInProcess([] {
        Keeper::keep(nullptr);
        EXPECT_EQ(nullptr, Keeper::get());
    });
}

TEST_F(HwBinderReferenceTest, AProxyMadeAgainAndAgainStaysGood) {
    Keeper keeper;
    Event isDestroyed;
    runInProcess([&] {
        startPool(1);
        for (int i = 0; i < 100; i++) {
            Keeper::keep(makeObject(&isDestroyed));
            EXPECT_NE(nullptr, Keeper::get());
        }
        Keeper::drop();
        for (int i = 0; i < 100; i++) ASSERT_TRUE(isDestroyed.wait()) << i;
    });
}

TEST_F(HwBinderReferenceTest, ThreadsThatTakeAndDropTheSameProxyDontDisturbEachOther) {
    Keeper keeper;
    runInProcess([] {
        auto work = [](void*) -> void* {
            for (int i = 0; i < 40; i++) EXPECT_EQ(OK, call(Server::find(), 2));
            return nullptr;
        };
        pthread_t threads[3];
        for (pthread_t& thread : threads) pthread_create(&thread, nullptr, work, nullptr);
        for (pthread_t& thread : threads) pthread_join(thread, nullptr);
    });
}

}  // namespace
}  // namespace korvane::test
