// SPDX-License-Identifier: Apache-2.0
// The service's slots: who is registered, who is told, who gets which surface.

#include "support/CameraDesktopTest.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace korvane::test {
namespace {

using ::android::hardware::Status;

TEST_F(CameraDesktopTest, RelaysACommandToTheKindAndItsReplyBack) {
    const sp<RecordingClient> one = new RecordingClient("from one");
    const sp<RecordingClient> three = new RecordingClient("from three");
    registerClient(1, one);
    registerClient(3, three);
    EXPECT_EQ(send(3, "hello"), "from three");
    EXPECT_EQ(three->commands(), std::vector<std::string>{"hello"});
    EXPECT_TRUE(one->commands().empty());
}

TEST_F(CameraDesktopTest, LogsARegistrationWithKindAndPointer) {
    const sp<RecordingClient> client = new RecordingClient("");
    registerClient(7, client);
    const Callback* pointer = client.get();
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, kTag,
                         text("Registering client %d with callback ptr: %p", 7, pointer)));
}

TEST_F(CameraDesktopTest, HandsTextsOnWhole) {
    const std::string command("command\0more", 12);
    const std::string reply("\0reply\0more", 11);
    const sp<RecordingClient> client = new RecordingClient(reply);
    registerClient(1, client);
    EXPECT_EQ(send(1, command), reply);
    EXPECT_EQ(sendSync(1, command), reply);
    EXPECT_THAT(client->commands(), testing::ElementsAre(command, command));
}

TEST_F(CameraDesktopTest, ReplacesAnEarlierClientOfTheKind) {
    const sp<RecordingClient> first = new RecordingClient("first");
    registerClient(3, first);
    registerClient(3, new RecordingClient("second"));
    EXPECT_EQ(send(3), "second");
    EXPECT_TRUE(first->commands().empty());
}

TEST_F(CameraDesktopTest, ANullCallbackClearsTheKind) {
    registerClient(3, new RecordingClient("here"));
    registerClient(3, nullptr);
    EXPECT_EQ(send(3), "");
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, kTag,
                         text("Registering client %d with callback ptr: %p", 3, nullptr)));
}

TEST_F(CameraDesktopTest, RepliesWithAnEmptyTextWhenNobodyIsRegistered) {
    EXPECT_EQ(send(3), "");
    EXPECT_TRUE(mLog.lines(kTag).empty());
}

TEST_F(CameraDesktopTest, RepliesWithAnEmptyTextWhenTheClientDoesNotAnswer) {
    class SilentClient : public Callback {
        Return<void> onCommand(const hidl_string& /* command */, onCommand_cb) override {
            return ::android::hardware::Void();
        }
    };
    EXPECT_TRUE(mService->registerCallback(static_cast<ClientType>(3), new SilentClient()).isOk());
    EXPECT_EQ(send(3), "");
}

TEST_F(CameraDesktopTest, RepliesWithAnEmptyTextWhenTheClientIsDead) {
    const sp<RecordingClient> client = new RecordingClient("unheard");
    client->failCommands(Status::fromStatusT(::android::DEAD_OBJECT));
    registerClient(3, client);
    EXPECT_EQ(send(3), "");
    EXPECT_TRUE(
            mLog.has(ANDROID_LOG_ERROR, kTag, "sendCommand: Failed during binder call, isDead 1"));
}

TEST_F(CameraDesktopTest, TellsAFailedCallFromADeadClient) {
    const sp<RecordingClient> client = new RecordingClient("unheard");
    client->failCommands(Status::fromStatusT(::android::FAILED_TRANSACTION));
    registerClient(3, client);
    EXPECT_EQ(send(3), "");
    EXPECT_TRUE(
            mLog.has(ANDROID_LOG_ERROR, kTag, "sendCommand: Failed during binder call, isDead 0"));
}

TEST_F(CameraDesktopTest, NeverRepliesToACommandForAnUnknownKind) {
    for (int kind : {8, 9, 255}) {
        EXPECT_EQ(send(kind), std::nullopt);
        EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, kTag, text("Invalid client id: %d", kind)));
    }
}

TEST_F(CameraDesktopTest, RefusesToRegisterAnUnknownKind) {
    const sp<RecordingClient> client = new RecordingClient("");
    registerClient(8, client);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, kTag, "Invalid client id: 8"));
    EXPECT_EQ(mLog.lines(kTag).size(), 1u);
    EXPECT_TRUE(client->deathLinks().empty());
}

TEST_F(CameraDesktopTest, EachOfTheEightKindsHasItsOwnClient) {
    for (int kind = 0; kind < 8; ++kind) {
        registerClient(kind, new RecordingClient(std::to_string(kind)));
        setSurface(kind, makeSurface());
    }
    for (int kind = 0; kind < 8; ++kind) {
        EXPECT_EQ(send(kind), std::to_string(kind));
        for (int other = 0; other < kind; ++other) EXPECT_NE(surface(kind), surface(other));
    }
}

TEST_F(CameraDesktopTest, AKindOfTheOldInterfaceIsTheNewOneOfThatNumber) {
    const sp<RecordingClient> client = new RecordingClient("two");
    EXPECT_TRUE(mService->registerSyncCallback(static_cast<ClientTypes>(2), client).isOk());
    EXPECT_EQ(send(2), "two");
    EXPECT_EQ(sendSync(2), "two");
}

TEST_F(CameraDesktopTest, TheOldInterfaceKnowsTheFirstThreeKinds) {
    for (int kind = 0; kind < 3; ++kind) {
        const sp<RecordingClient> client = new RecordingClient(std::to_string(kind));
        EXPECT_TRUE(mService->registerSyncCallback(static_cast<ClientTypes>(kind), client).isOk());
        EXPECT_EQ(send(kind), std::to_string(kind));
        EXPECT_EQ(sendSync(kind), std::to_string(kind));
    }
}

TEST_F(CameraDesktopTest, TheOldInterfaceIsServedByTheNewOnesMethods) {
    class DerivedService : public CameraDesktop {
      public:
        Return<void> registerCallback(ClientType type, const sp<Callback>&) override {
            calls.push_back("register " + std::to_string(static_cast<int>(type)));
            return ::android::hardware::Void();
        }
        Return<void> sendCommand(ClientType type, const hidl_string& command,
                                 sendCommand_cb reply) override {
            calls.push_back("send " + std::to_string(static_cast<int>(type)));
            reply(command);
            return ::android::hardware::Void();
        }
        std::vector<std::string> calls;
    };
    const sp<DerivedService> service = new DerivedService();
    std::string reply;
    const auto keep = [&](const hidl_string& text) { reply = text; };
    EXPECT_TRUE(service->registerSyncCallback(static_cast<ClientTypes>(1), nullptr).isOk());
    EXPECT_TRUE(service->registerSyncCallback(static_cast<ClientTypes>(3), nullptr).isOk());
    EXPECT_TRUE(service->setCommands(static_cast<ClientTypes>(2), "echo", keep).isOk());
    EXPECT_TRUE(service->setCommands(static_cast<ClientTypes>(9), "again", keep).isOk());
    const std::vector<std::string> expected{"register 1", "register 8", "send 2", "send 8"};
    EXPECT_EQ(service->calls, expected);
    EXPECT_EQ(reply, "again");
}

TEST_F(CameraDesktopTest, AnUnknownKindOfTheOldInterfaceIsRefusedWithTwoLines) {
    EXPECT_TRUE(mService->registerSyncCallback(static_cast<ClientTypes>(3), new RecordingClient(""))
                        .isOk());
    const std::vector<LogLine> expected{{ANDROID_LOG_ERROR, kTag, "Unknown client type: 3"},
                                        {ANDROID_LOG_ERROR, kTag, "Invalid client id: 8"}};
    EXPECT_EQ(mLog.lines(kTag), expected);
    EXPECT_EQ(send(3), "");
}

TEST_F(CameraDesktopTest, ACommandForAnUnknownKindOfTheOldInterfaceIsNeverRepliedTo) {
    EXPECT_EQ(sendSync(200), std::nullopt);
    const std::vector<LogLine> expected{{ANDROID_LOG_ERROR, kTag, "Unknown client type: 200"},
                                        {ANDROID_LOG_ERROR, kTag, "Invalid client id: 8"}};
    EXPECT_EQ(mLog.lines(kTag), expected);
}

TEST_F(CameraDesktopTest, GivesTheSurfaceThatWasPosted) {
    const sp<Surface> posted = makeSurface();
    setSurface(4, posted);
    EXPECT_EQ(surface(4), posted);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, kTag,
                         text("Registering surface ptr: %p for client %d", posted.get(), 4)));
}

TEST_F(CameraDesktopTest, ANullSurfaceClearsTheKind) {
    setSurface(4, makeSurface());
    setSurface(4, nullptr);
    EXPECT_EQ(surface(4), nullptr);
}

TEST_F(CameraDesktopTest, NothingOfAnUnknownKindIsHeldOrFound) {
    for (int kind = 0; kind < 8; ++kind) registerClient(kind, new RecordingClient(""));
    EXPECT_EQ(surface(8), nullptr);
    sp<Surface> posted = makeSurface();
    const ::android::wp<Surface> watched = posted;
    setSurface(8, posted);
    posted.clear();
    EXPECT_EQ(watched.promote(), nullptr);
}

TEST_F(CameraDesktopTest, AnUnknownKindHasNoSurface) {
    setSurface(8, makeSurface());
    EXPECT_EQ(surface(8), nullptr);
    EXPECT_EQ(mLog.count(ANDROID_LOG_ERROR, kTag, "Invalid client id: 8"), 2u);
}

TEST_F(CameraDesktopTest, TheOutputSurfaceOfTheOldInterfaceIsApart) {
    const sp<OutputSurface> output = makeOutputSurface();
    const sp<Surface> posted = makeSurface();
    EXPECT_EQ(sp<OutputSurface>(mService->getOutputSurface()), nullptr);
    setSurface(0, posted);
    EXPECT_EQ(sp<OutputSurface>(mService->getOutputSurface()), nullptr);
    EXPECT_TRUE(mService->setOutputSurface(output).isOk());
    EXPECT_EQ(sp<OutputSurface>(mService->getOutputSurface()), output);
    EXPECT_EQ(surface(0), posted);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, kTag,
                         text("Registering output surface ptr: %p", output.get())));
    mService->serviceDied(0, nullptr);
    EXPECT_EQ(sp<OutputSurface>(mService->getOutputSurface()), output);
    EXPECT_TRUE(mService->setOutputSurface(nullptr).isOk());
    EXPECT_EQ(sp<OutputSurface>(mService->getOutputSurface()), nullptr);
    EXPECT_TRUE(
            mLog.has(ANDROID_LOG_INFO, kTag, text("Registering output surface ptr: %p", nullptr)));
}

}  // namespace
}  // namespace korvane::test
