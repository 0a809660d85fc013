// SPDX-License-Identifier: Apache-2.0
// Calls between processes over the real driver: contents, results, order, nesting.
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include <linux/android/binder.h>
#include <unistd.h>

#include <hwbinder/IPCThreadState.h>

#include "TestObjects.h"
#include "support/LogRecorder.h"

namespace korvane::test {
namespace {

using android::OK;
using android::sp;
using android::status_t;
using android::hardware::IBinder;
using android::hardware::IPCThreadState;
using android::hardware::Parcel;

class HwBinderCallTest : public HwBinderTest {};

struct Text {
    const char* characters;
    uint64_t size;
};

void writeText(const Text& text, Parcel* parcel) {
    size_t parent;
    ASSERT_EQ(OK, parcel->writeBuffer(&text, sizeof(text), &parent));
    ASSERT_EQ(OK, parcel->writeEmbeddedBuffer(text.characters, text.size, nullptr, parent,
                                              offsetof(Text, characters)));
}

std::string readText(const Parcel& parcel) {
    size_t parent;
    const void* text = nullptr;
    EXPECT_EQ(OK, parcel.readBuffer(sizeof(Text), &parent, &text));
    const auto* received = static_cast<const Text*>(text);
    const void* characters = nullptr;
    EXPECT_EQ(OK, parcel.readEmbeddedBuffer(received->size, nullptr, parent,
                                            offsetof(Text, characters), &characters));
    return std::string(received->characters, received->size);
}

/** The only number that a call without arguments answers. */
int32_t ask(const sp<IBinder>& object, uint32_t code) {
    Parcel reply;
    EXPECT_EQ(OK, object->transact(code, Parcel(), &reply));
    int32_t number = -1;
    EXPECT_EQ(OK, reply.readInt32(&number));
    return number;
}

TEST_F(HwBinderCallTest, CarriesScalarsAndEmbeddedBuffersBothWays) {
    Server server([](const Call& call) {
        EXPECT_TRUE(call.data.enforceInterface("test@1.0::ITest"));
        int32_t number = 0;
        EXPECT_EQ(OK, call.data.readInt32(&number));
        const std::string text = readText(call.data);
        const std::string doubled = text + text;
        call.reply->writeInt32(2 * number);
        writeText({doubled.data(), doubled.size()}, call.reply);
        call.sendReply();
        return OK;
    });
    runInProcess([] {
        Parcel data;
        Parcel reply;
        data.writeInterfaceToken("test@1.0::ITest");
        data.writeInt32(21);
        const Text text{"frame", 5};
        writeText(text, &data);
        ASSERT_EQ(OK, Server::find()->transact(7, data, &reply));
        int32_t number = 0;
        EXPECT_EQ(OK, reply.readInt32(&number));
        EXPECT_EQ(42, number);
        EXPECT_EQ("frameframe", readText(reply));
    });
}

TEST_F(HwBinderCallTest, PassesCodeAndFlagsOn) {
    Server server([](const Call& call) {
        call.reply->writeInt32(call.code);
        return (call.flags & IBinder::FLAG_ONEWAY) == 0 ? OK : android::UNKNOWN_ERROR;
    });
    runInProcess([] { EXPECT_EQ(0x0f504e47, ask(Server::find(), 0x0f504e47)); });
}

TEST_F(HwBinderCallTest, GivesTheReplyToTheCallersFunction) {
    Server server([](const Call& call) { return call.reply->writeInt32(5); });
    runInProcess([] {
        Parcel reply;
        int32_t number = 0;
        EXPECT_EQ(OK, Server::find()->transact(1, Parcel(), &reply, 0, [&](Parcel& received) {
            EXPECT_EQ(OK, received.readInt32(&number));
        }));
        EXPECT_EQ(5, number);
    });
}

TEST_F(HwBinderCallTest, AnErrorOfTheObjectIsTheCallersStatus) {
    Server server([](const Call&) -> status_t { return android::UNKNOWN_TRANSACTION; });
    runInProcess([] { EXPECT_EQ(android::UNKNOWN_TRANSACTION, call(Server::find())); });
}

TEST_F(HwBinderCallTest, TheReplyArrivesWhileTheMethodStillRuns) {
    Event isReceived;
    Event isReturning;
    Server server([&](const Call& call) {
        call.sendReply();
        EXPECT_TRUE(isReceived.wait());
        isReturning.signal();
        return OK;
    });
    runInProcess([&] {
        EXPECT_EQ(OK, call(Server::find()));
        isReceived.signal();
        EXPECT_TRUE(isReturning.wait());
    });
}

TEST_F(HwBinderCallTest, ASecondReplyAndALateErrorAreDropped) {
    Server server([&](const Call& call) -> status_t {
        if (call.code == 2) return call.reply->writeInt32(2);
        LogRecorder log;
        call.reply->writeInt32(1);
        call.sendReply();
        EXPECT_TRUE(log.lines().empty());
        call.sendReply();
        EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, "hw-IncomingCall",
                            "Call 1: a reply that nobody waits for is dropped"));
        return android::UNKNOWN_ERROR;
    });
    runInProcess([&] {
        const sp<IBinder> object = Server::find();
        EXPECT_EQ(1, ask(object, 1));
        EXPECT_EQ(2, ask(object, 2));
    });
}

TEST_F(HwBinderCallTest, TheCallerIsKnownDuringTheCallAlone) {
    Server server([](const Call& call) {
        const IPCThreadState* thread = IPCThreadState::self();
        call.reply->writeInt32(thread->getCallingPid());
        return call.reply->writeUint32(thread->getCallingUid());
    });
    runInProcess([] {
        const sp<IBinder> object = Server::find();
        ASSERT_EQ(0, setresuid(1234, 1234, 0));
        const IPCThreadState* thread = IPCThreadState::self();
        EXPECT_EQ(getpid(), thread->getCallingPid());
        EXPECT_EQ(1234u, thread->getCallingUid());
        Parcel reply;
        EXPECT_EQ(OK, object->transact(1, Parcel(), &reply));
        int32_t pid;
        uint32_t uid;
        reply.readInt32(&pid);
        reply.readUint32(&uid);
        EXPECT_EQ(getpid(), pid);
        EXPECT_EQ(1234u, uid);
    });
}

TEST_F(HwBinderCallTest, AClearedIdentityComesBackByItsToken) {
    Server server([](const Call& call) {
        IPCThreadState* thread = IPCThreadState::self();
        const int64_t token = thread->clearCallingIdentity();
        EXPECT_EQ(getpid(), thread->getCallingPid());
        thread->restoreCallingIdentity(token);
        return call.reply->writeInt32(thread->getCallingPid());
    });
    runInProcess([] { EXPECT_EQ(getpid(), ask(Server::find(), 1)); });
}

TEST_F(HwBinderCallTest, ACallBackRunsOnTheThreadThatWaits) {
    Server server([](const Call& serverCall) {
        sp<IBinder> callback;
        EXPECT_EQ(OK, serverCall.data.readStrongBinder(&callback));
        const pid_t caller = IPCThreadState::self()->getCallingPid();
        EXPECT_EQ(OK, call(callback));
        EXPECT_EQ(caller, IPCThreadState::self()->getCallingPid());
        return OK;
    });
    const pid_t serverPid = server.pid();
    runInProcess([serverPid] {
        // No pool: nobody else could serve it.
        const pid_t waiting = gettid();
        pid_t serving = -1;
        const sp<IBinder> callback = new TestObject([&](const Call&) {
            serving = gettid();
            EXPECT_EQ(serverPid, IPCThreadState::self()->getCallingPid());
            return OK;
        });
        Parcel data;
        data.writeStrongBinder(callback);
        EXPECT_EQ(OK, Server::find()->transact(1, data, nullptr));
        EXPECT_EQ(waiting, serving);
        EXPECT_EQ(getpid(), IPCThreadState::self()->getCallingPid());
    });
}

/** Calls peer with one round less and itself along, until none is left; adds the rounds up. */
sp<IBinder> makeRecursive() {
    static sp<IBinder> self;
    self = new TestObject([](const Call& call) {
        int32_t rounds;
        sp<IBinder> peer;
        EXPECT_EQ(OK, call.data.readInt32(&rounds));
        EXPECT_EQ(OK, call.data.readStrongBinder(&peer));
        int32_t sum = 0;
        if (rounds > 0) {
            Parcel data;
            Parcel reply;
            data.writeInt32(rounds - 1);
            data.writeStrongBinder(self);
            EXPECT_EQ(OK, peer->transact(1, data, &reply));
            reply.readInt32(&sum);
        }
        return call.reply->writeInt32(sum + rounds);
    });
    return self;
}

TEST_F(HwBinderCallTest, ACallBackByAThirdProcessRunsOnTheThreadThatWaits) {
    // Passes what it gets on to the third, which calls it.
    Server second([](const Call& fromFirst) {
        sp<IBinder> callback;
        EXPECT_EQ(OK, fromFirst.data.readStrongBinder(&callback));
        Parcel data;
        data.writeStrongBinder(callback);
        return Directory::get("third")->transact(1, data, nullptr);
    });
    Event isReady;
    TestProcess third([&] {
        Directory::put("third", new TestObject([](const Call& fromSecond) {
                           sp<IBinder> callback;
                           EXPECT_EQ(OK, fromSecond.data.readStrongBinder(&callback));
                           return call(callback);
                       }));
        isReady.signal();
        serveAlone();
    });
    ASSERT_TRUE(isReady.wait());
    const pid_t thirdPid = third.pid();
    runInProcess([thirdPid] {
        // No pool: nobody else could serve it.
        const pid_t waiting = gettid();
        pid_t serving = -1;
        Parcel data;
        data.writeStrongBinder(new TestObject([&](const Call&) {
            serving = gettid();
            EXPECT_EQ(thirdPid, IPCThreadState::self()->getCallingPid());
            return OK;
        }));
        EXPECT_EQ(OK, Server::find()->transact(1, data, nullptr));
        EXPECT_EQ(waiting, serving);
    });
}

TEST_F(HwBinderCallTest, CallsGoBackAndForthBetweenTwoWaitingThreads) {
    Event isReady;
    TestProcess server([&] {
        Directory::put("server", makeRecursive());
        isReady.signal();
        serveAlone();
    });
    ASSERT_TRUE(isReady.wait());
    runInProcess([] {
        Parcel data;
        Parcel reply;
        data.writeInt32(20);
        data.writeStrongBinder(makeRecursive());
        EXPECT_EQ(OK, Server::find()->transact(1, data, &reply));
        int32_t sum = 0;
        reply.readInt32(&sum);
        EXPECT_EQ(210, sum);
    });
}

/** A call with so many bytes in one buffer, answered with as many. */
status_t exchange(const sp<IBinder>& object, size_t sent, size_t answered) {
    const std::vector<uint8_t> bytes(sent, 0x5a);
    Parcel data;
    Parcel reply;
    data.writeUint64(sent);
    data.writeUint64(answered);
    data.writeBuffer(bytes.data(), bytes.size(), nullptr);
    return object->transact(1, data, &reply);
}

status_t answerExchange(const Call& call) {
    uint64_t sent;
    uint64_t answered;
    const void* bytes;
    call.data.readUint64(&sent);
    call.data.readUint64(&answered);
    const status_t status = call.data.readBuffer(sent, nullptr, &bytes);
    if (status != OK) return status;
    const std::vector<uint8_t> answer(answered, 0xa5);
    call.reply->writeBuffer(answer.data(), answer.size(), nullptr);
    call.sendReply();
    return OK;
}

constexpr size_t kArea = 1024 * 1024 - 2 * 4096;
// Two sizes, one buffer object and its place in the table, besides the buffer's bytes.
constexpr size_t kOverhead = 2 * sizeof(uint64_t) + sizeof(binder_buffer_object) + sizeof(uint64_t);
constexpr size_t kAlmostAll = 1024 * 1024 - 4 * 4096;
constexpr size_t kTooMuch = 1024 * 1024;

TEST_F(HwBinderCallTest, TheReceiveAreaIsAMegabyteLessTwoPages) {
    Server server(answerExchange);
    runInProcess([] {
        const sp<IBinder> object = Server::find();
        EXPECT_EQ(OK, exchange(object, kArea - kOverhead, 8));
        EXPECT_EQ(android::FAILED_TRANSACTION, exchange(object, kArea - kOverhead + 8, 8));
    });
}

TEST_F(HwBinderCallTest, ACallMayFillTheReceiveAreaButNotPassIt) {
    Server server(answerExchange);
    runInProcess([] {
        const sp<IBinder> object = Server::find();
        EXPECT_EQ(OK, exchange(object, kAlmostAll, 8));
        EXPECT_EQ(android::FAILED_TRANSACTION, exchange(object, kTooMuch, 8));
        // The server gives a call's bytes back after its reply, but before it takes the next call.
        EXPECT_EQ(OK, exchange(object, 8, 8));
        EXPECT_EQ(OK, exchange(object, kAlmostAll, 8));
    });
}

TEST_F(HwBinderCallTest, WhatACallBroughtGoesBackThoughNoOtherReachesTheServer) {
    Server server(answerExchange);
    runInProcess([] {
        const sp<IBinder> object = Server::find();
        EXPECT_EQ(OK, exchange(object, kAlmostAll, 8));
        // The reply may come before the bytes go back. A call for which there is no room doesn't
        // get to the server, so nothing but its wait has given them back when one does.
        status_t status = exchange(object, kAlmostAll, 8);
        for (int i = 0; i < 1000 && status != OK; i++) {
            EXPECT_EQ(android::FAILED_TRANSACTION, status);
            Event().wait(10);
            status = exchange(object, kAlmostAll, 8);
        }
        EXPECT_EQ(OK, status);
    });
}

TEST_F(HwBinderCallTest, AReplyThatIsTooLargeFailsTheCallOnly) {
    Server server(answerExchange);
    runInProcess([] {
        const sp<IBinder> object = Server::find();
        EXPECT_EQ(OK, exchange(object, 8, kAlmostAll));
        EXPECT_EQ(android::FAILED_TRANSACTION, exchange(object, 8, kTooMuch));
        EXPECT_EQ(OK, exchange(object, 8, kAlmostAll));
    });
}

TEST_F(HwBinderCallTest, ReceivedBytesAreGivenBack) {
    Server server(answerExchange);
    runInProcess([] {
        const sp<IBinder> object = Server::find();
        for (int i = 0; i < 50; i++) ASSERT_EQ(OK, exchange(object, 300000, 300000)) << i;
    });
}

}  // namespace
}  // namespace korvane::test
