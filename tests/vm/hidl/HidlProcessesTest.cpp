// SPDX-License-Identifier: Apache-2.0
// Calls between processes.

#include <string>
#include <thread>
#include <utility>

#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <hwbinder/IPCThreadState.h>

#include "ServiceFixture.h"

namespace korvane::test {
namespace {

using ::android::sp;
using ::android::hardware::configureRpcThreadpool;
using ::android::hardware::hidl_string;
using ::android::hardware::IPCThreadState;
using ::android::hardware::Return;
using ::android::hardware::Void;
using desktop_v2::ClientType;

class HidlCallTest : public ServiceFixture {};

TEST_F(HidlCallTest, BringsTextsOfEveryLengthThere) {
    serve<StubDesktop>();
    runClient([](const Desktop& service) {
        for (const size_t length : {0, 1, 3, 4, 1000, 100000, 1000000}) {
            std::string text(length, 'x');
            if (length > 2) text[length / 2] = '\0';
            EXPECT_TRUE(send(service, text) == text) << length;
        }
    });
}

TEST_F(HidlCallTest, RefusesTextsThatTheReceiverHasNoRoomFor) {
    serve<StubDesktop>();
    runClient([](const Desktop& service) {
        for (const size_t length : {1040384, 1048576, 4000000}) {
            const Return<void> sent =
                    service->sendCommand(ClientType::STREAM, std::string(length, 'x'),
                                         [](const hidl_string&) { ADD_FAILURE(); });
            EXPECT_FALSE(sent.isOk());
            EXPECT_FALSE(sent.isDeadObject());
            EXPECT_NE(std::string::npos, sent.description().find("FAILED_TRANSACTION"))
                    << sent.description();
        }
        EXPECT_EQ("still there", send(service, "still there"));
    });
}

TEST_F(HidlCallTest, AReplyThatDoesNotFitFailsTheCallOnly) {
    struct Verbose : StubDesktop {
        Return<void> sendCommand(ClientType, const hidl_string& command,
                                 sendCommand_cb _hidl_cb) override {
            _hidl_cb(command == "long" ? std::string(2000000, 'x') : std::string("short"));
            return Void();
        }
    };
    serve<Verbose>();
    runClient([](const Desktop& service) {
        const Return<void> sent = service->sendCommand(ClientType::STREAM, "long",
                                                       [](const hidl_string&) { ADD_FAILURE(); });
        EXPECT_FALSE(sent.isOk());
        EXPECT_FALSE(sent.isDeadObject());
        EXPECT_EQ("short", send(service, "short"));
    });
}

/** Tells who calls it and on which thread it serves. */
struct Witness : StubDesktop {
    Return<void> sendCommand(ClientType, const hidl_string& command,
                             sendCommand_cb _hidl_cb) override {
        const IPCThreadState* const state = IPCThreadState::self();
        const long number = command == "pid"      ? state->getCallingPid()
                            : command == "uid"    ? state->getCallingUid()
                            : command == "thread" ? syscall(SYS_gettid)
                                                  : getpid();
        _hidl_cb(std::to_string(number));
        return Void();
    }
};

TEST_F(HidlCallTest, KnowsItsCaller) {
    serve<Witness>();
    runClient([](const Desktop& service) {
        EXPECT_EQ(std::to_string(getpid()), send(service, "pid"));
        EXPECT_EQ(std::to_string(getuid()), send(service, "uid"));
    });
}

TEST_F(HidlCallTest, ServesOnTheThreadThatJoined) {
    serve<Witness>();
    const std::string server = std::to_string(mServer->pid());
    runClient([&](const Desktop& service) {
        EXPECT_EQ(server, send(service, "process"));
        EXPECT_EQ(server, send(service, "thread"));
        std::thread([&] { EXPECT_EQ(server, send(service, "thread")); }).join();
    });
}

/** Passes commands on to the client of the same kind. */
struct Relay : StubDesktop {
    Return<void> sendCommand(ClientType type, const hidl_string& command,
                             sendCommand_cb _hidl_cb) override {
        std::string reply = "nobody";
        const Callback callback = callbacks[type];
        if (callback != nullptr) {
            const Return<void> told =
                    callback->onCommand(command, [&](const hidl_string& text) { reply = text; });
            if (!told.isOk()) reply = told.isDeadObject() ? "dead" : "failed";
        }
        _hidl_cb(reply);
        return Void();
    }
};

TEST_F(HidlCallTest, CallsBackIntoTheThreadThatWaits) {
    serve<Relay>();
    runClient([](Line&) {
        configureRpcThreadpool(1, true /* callerWillJoin */);  // and it never does
        const Desktop service = find();
        const auto caller = std::this_thread::get_id();
        const sp<StubCallback> callback = new StubCallback([&](const std::string& command) {
            EXPECT_EQ(caller, std::this_thread::get_id());
            return "re: " + command;
        });
        ASSERT_TRUE(service->registerCallback(ClientType::STREAM, callback).isOk());
        EXPECT_EQ("re: hello", send(service, "hello"));
    });
}

TEST_F(HidlCallTest, CallsBackAndForthToAnyDepth) {
    serve<Relay>();
    runClient([](Line&) {
        configureRpcThreadpool(1, true);
        const Desktop service = find();
        const sp<StubCallback> callback = new StubCallback([&](const std::string& command) {
            return command.empty() ? "." : "(" + send(service, command.substr(1)) + ")";
        });
        ASSERT_TRUE(service->registerCallback(ClientType::STREAM, callback).isOk());
        EXPECT_EQ("(((((.)))))", send(service, "12345"));
    });
}

TEST_F(HidlCallTest, ReachesAThirdProcess) {
    serve<Relay>();
    ForkedProcess other([](Line& test) {
        configureRpcThreadpool(1, true);
        const sp<StubCallback> callback =
                new StubCallback([](const std::string&) { return std::to_string(getpid()); });
        ASSERT_TRUE(find()->registerCallback(ClientType::STREAM, callback).isOk());
        test.say('r');
        ::android::hardware::joinRpcThreadpool();
    });
    ASSERT_EQ('r', other.line().hear());
    runClient([&](const Desktop& service) {
        EXPECT_EQ(std::to_string(other.pid()), send(service, "who"));
    });
}

TEST_F(HidlCallTest, TheServiceSeesADeadClientWithoutHarm) {
    serve<Relay>();
    runClient([](const Desktop& service) {
        const sp<StubCallback> callback =
                new StubCallback([](const std::string& text) { return text; });
        ASSERT_TRUE(service->registerCallback(ClientType::STREAM, callback).isOk());
    });
    runClient([](const Desktop& service) { EXPECT_EQ("dead", send(service, "hello")); });
}

TEST_F(HidlCallTest, BringsNullObjects) {
    serve<Relay>();
    runClient([](const Desktop& service) {
        const sp<StubCallback> callback =
                new StubCallback([](const std::string&) { return "somebody"; });
        ASSERT_TRUE(service->registerCallback(ClientType::STREAM, callback).isOk());
        EXPECT_EQ("somebody", send(service, ""));
        ASSERT_TRUE(service->registerCallback(ClientType::STREAM, nullptr).isOk());
        EXPECT_EQ("nobody", send(service, ""));

        const Return<StubDesktop::SurfaceV1> surface = service->getSurface(ClientType::STREAM);
        ASSERT_TRUE(surface.isOk());
        EXPECT_EQ(nullptr, static_cast<StubDesktop::SurfaceV1>(surface));
    });
}

TEST_F(HidlCallTest, BringsValuesThatTheEnumDoesNotHave) {
    struct Naming : StubDesktop {
        Return<void> sendCommand(ClientType type, const hidl_string&,
                                 sendCommand_cb _hidl_cb) override {
            _hidl_cb(toString(type));
            return Void();
        }
    };
    serve<Naming>();
    runClient([](const Desktop& service) {
        std::string reply;
        EXPECT_TRUE(service->sendCommand(static_cast<ClientType>(0xfe), "",
                                         [&](const hidl_string& text) { reply = text; })
                            .isOk());
        EXPECT_EQ("0xfe", reply);
    });
}

TEST_F(HidlCallTest, TheCallerGoesOnWhenTheReplyIsThere) {
    struct Lingering : StubDesktop {
        Return<void> sendCommand(ClientType, const hidl_string&, sendCommand_cb _hidl_cb) override {
            _hidl_cb("early");
            pause();
            return Void();
        }
    };
    serve<Lingering>();
    runClient([](const Desktop& service) { EXPECT_EQ("early", send(service, "")); });
}

TEST_F(HidlCallTest, AServiceThatDoesNotReplyDies) {
    struct Silent : StubDesktop {
        Return<void> sendCommand(ClientType, const hidl_string&, sendCommand_cb) override {
            return Void();
        }
    };
    serve<Silent>();
    runClient([](const Desktop& service) {
        const Return<void> sent = service->sendCommand(ClientType::STREAM, "",
                                                       [](const hidl_string&) { ADD_FAILURE(); });
        EXPECT_FALSE(sent.isOk());
        EXPECT_TRUE(sent.isDeadObject());
    });
    const int status = mServer->wait();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
}

TEST_F(HidlCallTest, AClientThatDoesNotLookAtADeadObjectDies) {
    serve<StubDesktop>();
    ForkedProcess client([](Line& test) {
        const Desktop service = find();
        test.say('f');
        ASSERT_EQ('k', test.hear());
        service->registerCallback(ClientType::STREAM, nullptr);
    });
    ASSERT_EQ('f', client.line().hear());
    mServer->kill();
    client.line().say('k');
    const int status = client.wait();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
}

TEST_F(HidlCallTest, ADeadObjectStaysDead) {
    serve<StubDesktop>();
    ForkedProcess client([](Line& test) {
        const Desktop service = find();
        test.say('f');
        ASSERT_EQ('k', test.hear());
        for (int i = 0; i < 3; ++i) EXPECT_TRUE(service->ping().isDeadObject());
    });
    ASSERT_EQ('f', client.line().hear());
    mServer->kill();
    serve<StubDesktop>();
    client.line().say('k');
    EXPECT_EQ(0, client.wait());
}

}  // namespace
}  // namespace korvane::test
