// SPDX-License-Identifier: Apache-2.0
// What a process sees of the death of another, over the real driver.
#include <atomic>
#include <vector>

#include <unistd.h>

#include <hwbinder/BpHwBinder.h>

#include "TestObjects.h"

namespace korvane::test {
namespace {

using android::DEAD_OBJECT;
using android::OK;
using android::sp;
using android::wp;
using android::hardware::IBinder;
using android::hardware::Parcel;

class HwBinderDeathTest : public HwBinderTest {};

class Recipient : public IBinder::DeathRecipient {
  public:
    explicit Recipient(std::function<void(const wp<IBinder>&)> told) : mTold(std::move(told)) {}
    void binderDied(const wp<IBinder>& who) override { mTold(who); }

  private:
    const std::function<void(const wp<IBinder>&)> mTold;
};

sp<Recipient> makeRecipient(const Event& told) {
    return new Recipient([&told](const wp<IBinder>&) { told.signal(); });
}

android::status_t serve(const Call& call) {
    if (call.code == 2) _exit(0);
    return OK;
}

TEST_F(HwBinderDeathTest, ACallDuringWhichTheServerDiesGivesDeadObjectAndSoDoAllLaterOnes) {
    Server server(serve);
    runInProcess([] {
        const sp<IBinder> object = Server::find();
        EXPECT_EQ(OK, call(object, 1));
        EXPECT_TRUE(object->remoteBinder()->isBinderAlive());
        EXPECT_EQ(DEAD_OBJECT, call(object, 2));
        EXPECT_FALSE(object->remoteBinder()->isBinderAlive());
        EXPECT_EQ(DEAD_OBJECT, call(object, 1));
        EXPECT_EQ(DEAD_OBJECT, call(object, 1, IBinder::FLAG_ONEWAY));
    });
}

TEST_F(HwBinderDeathTest, AServerThatDiesWhileItCallsBackGivesDeadObject) {
    Server server([](const Call& serverCall) {
        sp<IBinder> callback;
        EXPECT_EQ(OK, serverCall.data.readStrongBinder(&callback));
        call(callback);
        return OK;
    });
    runInProcess([&] {
        const sp<IBinder> object = Server::find();
        const sp<IBinder> callback = new TestObject([&](const Call&) {
            ::kill(server.pid(), SIGKILL);
            // Its end shows when its pending call is of no more use.
            Event never;
            while (call(object, 1, IBinder::FLAG_ONEWAY) != DEAD_OBJECT) never.wait(20);
            return OK;
        });
        Parcel data;
        data.writeStrongBinder(callback);
        EXPECT_EQ(DEAD_OBJECT, object->transact(1, data, nullptr));
        // The thread's conversation with the driver is in order.
        EXPECT_NE(nullptr, Server::find());
    });
}

TEST_F(HwBinderDeathTest, EachLinkIsToldOnceInTheOrderOfLinking) {
    Server server(serve);
    Event isLinked;
    TestProcess client([&] {
        startPool(1);
        const sp<IBinder> object = Server::find();
        std::vector<int> told;
        Event isTold;
        const sp<Recipient> first = new Recipient([&](const wp<IBinder>& who) {
            EXPECT_TRUE(who == wp<IBinder>(object));
            told.push_back(1);
            isTold.signal();
        });
        const sp<Recipient> second = new Recipient([&](const wp<IBinder>&) {
            told.push_back(2);
            isTold.signal();
        });
        EXPECT_EQ(OK, object->linkToDeath(second));
        EXPECT_EQ(OK, object->linkToDeath(first));
        EXPECT_EQ(OK, object->linkToDeath(second));
        isLinked.signal();
        for (int i = 0; i < 3; i++) EXPECT_TRUE(isTold.wait());
        EXPECT_EQ((std::vector<int>{2, 1, 2}), told);
        EXPECT_FALSE(isTold.wait(100));
        EXPECT_EQ(DEAD_OBJECT, object->linkToDeath(first));
        EXPECT_EQ(DEAD_OBJECT, object->unlinkToDeath(first));
        EXPECT_EQ(DEAD_OBJECT, call(object));
    });
    ASSERT_TRUE(isLinked.wait());
    server.kill();
    client.expectSuccess();
}

TEST_F(HwBinderDeathTest, ALinkTakenBackIsNotTold) {
    Server server(serve);
    Event isLinked;
    TestProcess client([&] {
        startPool(1);
        const sp<IBinder> object = Server::find();
        Event isKeptTold;
        Event isRemovedTold;
        const sp<Recipient> kept = makeRecipient(isKeptTold);
        const sp<Recipient> removed = makeRecipient(isRemovedTold);
        EXPECT_EQ(OK, object->linkToDeath(removed));
        EXPECT_EQ(OK, object->unlinkToDeath(removed));
        EXPECT_EQ(android::NAME_NOT_FOUND, object->unlinkToDeath(removed));
        // Linked anew, after the driver's own link had gone with the last.
        EXPECT_EQ(OK, object->linkToDeath(kept));
        EXPECT_EQ(OK, object->linkToDeath(removed));
        EXPECT_EQ(OK, object->unlinkToDeath(removed));
        isLinked.signal();
        EXPECT_TRUE(isKeptTold.wait());
        EXPECT_FALSE(isRemovedTold.wait(100));
    });
    ASSERT_TRUE(isLinked.wait());
    server.kill();
    client.expectSuccess();
}

TEST_F(HwBinderDeathTest, UnlinkingTakesTheNewestOfEqualLinks) {
    Server server(serve);
    runInProcess([] {
        const sp<IBinder> object = Server::find();
        Event isTold;
        const sp<Recipient> recipient = makeRecipient(isTold);
        int first;
        int second;
        EXPECT_EQ(OK, object->linkToDeath(recipient, &first, 1));
        EXPECT_EQ(OK, object->linkToDeath(recipient, &second, 2));
        wp<IBinder::DeathRecipient> taken;
        EXPECT_EQ(android::NAME_NOT_FOUND, object->unlinkToDeath(nullptr, &second, 1));
        EXPECT_EQ(OK, object->unlinkToDeath(nullptr, &second, 2, &taken));
        EXPECT_TRUE(taken == wp<IBinder::DeathRecipient>(recipient));
        EXPECT_EQ(OK, object->unlinkToDeath(recipient, nullptr, 1));
    });
}

TEST_F(HwBinderDeathTest, ARecipientThatHasGoneIsPassedOver) {
    Server server(serve);
    Event isLinked;
    TestProcess client([&] {
        startPool(1);
        const sp<IBinder> object = Server::find();
        Event isTold;
        Event isGoneTold;
        const sp<Recipient> kept = makeRecipient(isTold);
        EXPECT_EQ(OK, object->linkToDeath(makeRecipient(isGoneTold)));
        EXPECT_EQ(OK, object->linkToDeath(kept));
        isLinked.signal();
        EXPECT_TRUE(isTold.wait());
        EXPECT_FALSE(isGoneTold.wait(0));
    });
    ASSERT_TRUE(isLinked.wait());
    server.kill();
    client.expectSuccess();
}

TEST_F(HwBinderDeathTest, ALinkToAProcessAlreadyDeadIsToldToo) {
    Server server(serve);
    Event isFound;
    Event isKilled;
    TestProcess client([&] {
        startPool(1);
        const sp<IBinder> object = Server::find();
        isFound.signal();
        EXPECT_TRUE(isKilled.wait());
        EXPECT_EQ(DEAD_OBJECT, call(object));
        Event isTold;
        const sp<Recipient> recipient = makeRecipient(isTold);
        EXPECT_EQ(OK, object->linkToDeath(recipient));
        EXPECT_TRUE(isTold.wait());
    });
    ASSERT_TRUE(isFound.wait());
    server.kill();
    isKilled.signal();
    client.expectSuccess();
}

TEST_F(HwBinderDeathTest, AProxyDroppedWithItsLinksIsNotToldAndItsSuccessorIs) {
    Server server(serve);
    Event isLinked;
    TestProcess client([&] {
        startPool(1);
        Event isTold;
        const sp<Recipient> recipient = makeRecipient(isTold);
        for (int i = 0; i < 20; i++) EXPECT_EQ(OK, Server::find()->linkToDeath(recipient));
        const sp<IBinder> last = Server::find();
        EXPECT_EQ(OK, last->linkToDeath(recipient));
        isLinked.signal();
        EXPECT_TRUE(isTold.wait());
        EXPECT_FALSE(isTold.wait(100));
    });
    ASSERT_TRUE(isLinked.wait());
    server.kill();
    client.expectSuccess();
}

TEST_F(HwBinderDeathTest, TheLinkOfADroppedProxyDoesNotStandInTheWayOfTheNext) {
    Server server(serve);
    Event isLinked;
    TestProcess client([&] {
        startPool(1);
        Event isTold;
        const sp<Recipient> recipient = makeRecipient(isTold);
        // The reply holds the driver's reference, so that it outlives the first proxy.
        Parcel reply;
        Directory::ask("server", &reply);
        sp<IBinder> object;
        EXPECT_EQ(OK, reply.readStrongBinder(&object));
        EXPECT_EQ(OK, object->linkToDeath(recipient));
        object = nullptr;
        reply.setDataPosition(0);
        EXPECT_EQ(OK, reply.readStrongBinder(&object));
        EXPECT_EQ(OK, object->linkToDeath(recipient));
        isLinked.signal();
        EXPECT_TRUE(isTold.wait());
        EXPECT_FALSE(isTold.wait(100));
    });
    ASSERT_TRUE(isLinked.wait());
    server.kill();
    client.expectSuccess();
}

TEST_F(HwBinderDeathTest, AThreadBusyInACallIsNotInterruptedByANotice) {
    Server mortal(serve);
    Event isServing;
    Event isTold;
    Event isReplied;
    std::atomic<bool> isBusy{false};
    // Its only thread learns of a death while it waits for another process.
    Event isReady;
    TestProcess watcher([&] {
        const sp<IBinder> watched = Server::find();
        sp<Recipient> recipient = new Recipient([&](const wp<IBinder>&) {
            EXPECT_FALSE(isBusy);
            isTold.signal();
        });
        Directory::put("watcher", new TestObject([&](const Call&) {
                           isBusy = true;
                           ::kill(mortal.pid(), SIGKILL);
                           Event never;
                           while (call(watched) != DEAD_OBJECT) never.wait(20);
                           // Asked for on this very thread, so that the notice comes to it while it
                           // is here.
                           EXPECT_EQ(OK, watched->linkToDeath(recipient));
                           for (int i = 0; i < 5; i++) Directory::get("watcher");
                           EXPECT_FALSE(isTold.wait(0));
                           isBusy = false;
                           return OK;
                       }));
        isReady.signal();
        serveAlone();
    });
    ASSERT_TRUE(isReady.wait());
    runInProcess([] { EXPECT_EQ(OK, call(Directory::get("watcher"))); });
    EXPECT_TRUE(isTold.wait());
}

}  // namespace
}  // namespace korvane::test
