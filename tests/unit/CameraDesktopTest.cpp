// SPDX-License-Identifier: Apache-2.0
// The service's slots: who is registered, who is told, who gets which surface.

#include "CameraDesktop.h"

#include <gtest/gtest.h>
#include <gui/BufferQueue.h>
#include <gui/bufferqueue/1.0/WGraphicBufferProducer.h>

#include <cinttypes>
#include <cstdio>
#include <optional>
#include <string>

#include "support/KeepForGood.h"
#include "support/LogRecorder.h"
#include "support/RecordingClient.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

using ::android::sp;
using ::android::hardware::hidl_string;
using ::android::hardware::Status;
using korvane::test::keepForGood;
using korvane::test::LogRecorder;
using korvane::test::RecordingClient;
using V1_0::ClientTypes;

using Surface = bufferqueue::V1_0::IGraphicBufferProducer;

constexpr char kTag[] = "CameraDesktopHal";

template <typename... Args>
std::string text(const char* format, Args... args) {
    char buffer[200];
    snprintf(buffer, sizeof(buffer), format, args...);
    return buffer;
}

sp<Surface> makeSurface() {
    sp<::android::IGraphicBufferProducer> producer;
    sp<::android::IGraphicBufferConsumer> consumer;
    ::android::BufferQueue::createBufferQueue(&producer, &consumer, false);
    return new ::android::TWGraphicBufferProducer<Surface>(producer);
}

class CameraDesktopTest : public testing::Test {
  protected:
    // Never destroyed, as in the daemon: its poll thread runs on.
    CameraDesktopTest() : mService(keepForGood(sp<CameraDesktop>(new CameraDesktop()))) {}

    /** The reply, or nothing when the reply callback was not called. */
    std::optional<std::string> send(int kind, const std::string& command = "command") {
        std::optional<std::string> reply;
        const auto status = mService->sendCommand(static_cast<ClientType>(kind), command,
                                                  [&](const hidl_string& text) {
                                                      EXPECT_FALSE(reply) << "replied twice";
                                                      reply = text;
                                                  });
        EXPECT_TRUE(status.isOk());
        return reply;
    }

    std::optional<std::string> sendSync(int kind) {
        std::optional<std::string> reply;
        EXPECT_TRUE(mService->setCommands(static_cast<ClientTypes>(kind), "command",
                                          [&](const hidl_string& text) { reply = text; })
                            .isOk());
        return reply;
    }

    void registerClient(int kind, const sp<RecordingClient>& client) {
        EXPECT_TRUE(mService->registerCallback(static_cast<ClientType>(kind), client).isOk());
    }

    sp<Surface> surface(int kind) { return mService->getSurface(static_cast<ClientType>(kind)); }

    void setSurface(int kind, const sp<Surface>& surface) {
        EXPECT_TRUE(mService->setSurface(static_cast<ClientType>(kind), surface).isOk());
    }

    const sp<CameraDesktop> mService;
    LogRecorder mLog;
};

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
    const V1_0::ICameraDesktopCallback* pointer = client.get();
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, kTag,
                         text("Registering client %d with callback ptr: %p", 7, pointer)));
}

TEST_F(CameraDesktopTest, FollowsTheDeathOfAClientUnderItsKind) {
    const sp<RecordingClient> client = new RecordingClient("");
    registerClient(5, client);
    EXPECT_EQ(client->deathLinks(), std::vector<uint64_t>{5});
}

TEST_F(CameraDesktopTest, KeepsAClientWhoseDeathItCannotFollow) {
    const sp<RecordingClient> client = new RecordingClient("still here");
    client->refuseDeathLinks();
    registerClient(2, client);
    EXPECT_EQ(send(2), "still here");
}

TEST_F(CameraDesktopTest, ReplacesAnEarlierClientOfTheKind) {
    const sp<RecordingClient> first = new RecordingClient("first");
    registerClient(3, first);
    registerClient(3, new RecordingClient("second"));
    EXPECT_EQ(send(3), "second");
    EXPECT_TRUE(first->commands().empty());
}

TEST_F(CameraDesktopTest, ANullCallbackClearsTheSlot) {
    registerClient(3, new RecordingClient("here"));
    registerClient(3, nullptr);
    EXPECT_EQ(send(3), "");
    EXPECT_TRUE(mLog.has(ANDROID_LOG_INFO, kTag,
                         text("Registering client %d with callback ptr: %p", 3, nullptr)));
}

TEST_F(CameraDesktopTest, ReplacingASlotLetsGoOfTheOldClient) {
    sp<RecordingClient> client = new RecordingClient("");
    const ::android::wp<RecordingClient> watched = client;
    registerClient(3, client);
    client.clear();
    ASSERT_NE(watched.promote(), nullptr);
    registerClient(3, nullptr);
    EXPECT_EQ(watched.promote(), nullptr);
}

TEST_F(CameraDesktopTest, RepliesWithAnEmptyTextWhenNobodyIsRegistered) {
    EXPECT_EQ(send(3), "");
    EXPECT_TRUE(mLog.lines(kTag).empty());
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

TEST_F(CameraDesktopTest, AllEightKindsHaveSlotsOfTheirOwn) {
    for (int kind = 0; kind < 8; ++kind) {
        registerClient(kind, new RecordingClient(std::to_string(kind)));
        setSurface(kind, makeSurface());
    }
    for (int kind = 0; kind < 8; ++kind) {
        EXPECT_EQ(send(kind), std::to_string(kind));
        for (int other = 0; other < kind; ++other) EXPECT_NE(surface(kind), surface(other));
    }
}

TEST_F(CameraDesktopTest, AKindOfTheOldInterfaceSharesTheSlotOfItsNumber) {
    const sp<RecordingClient> client = new RecordingClient("two");
    EXPECT_TRUE(mService->registerSyncCallback(static_cast<ClientTypes>(2), client).isOk());
    EXPECT_EQ(send(2), "two");
    EXPECT_EQ(sendSync(2), "two");
}

TEST_F(CameraDesktopTest, AnUnknownKindOfTheOldInterfaceIsRefusedWithTwoLines) {
    EXPECT_TRUE(mService->registerSyncCallback(static_cast<ClientTypes>(3), new RecordingClient(""))
                        .isOk());
    const std::vector<korvane::test::LogLine> expected{
            {ANDROID_LOG_ERROR, kTag, "Unknown client type: 3"},
            {ANDROID_LOG_ERROR, kTag, "Invalid client id: 8"}};
    EXPECT_EQ(mLog.lines(kTag), expected);
    EXPECT_EQ(send(3), "");
}

TEST_F(CameraDesktopTest, ACommandForAnUnknownKindOfTheOldInterfaceIsNeverRepliedTo) {
    EXPECT_EQ(sendSync(200), std::nullopt);
    const std::vector<korvane::test::LogLine> expected{
            {ANDROID_LOG_ERROR, kTag, "Unknown client type: 200"},
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

TEST_F(CameraDesktopTest, ANullSurfaceClearsTheSlot) {
    setSurface(4, makeSurface());
    setSurface(4, nullptr);
    EXPECT_EQ(surface(4), nullptr);
}

TEST_F(CameraDesktopTest, AnUnknownKindHasNoSurface) {
    setSurface(8, makeSurface());
    EXPECT_EQ(surface(8), nullptr);
    EXPECT_EQ(mLog.count(ANDROID_LOG_ERROR, kTag, "Invalid client id: 8"), 2u);
}

TEST_F(CameraDesktopTest, TheOutputSurfaceOfTheOldInterfaceIsApart) {
    setSurface(0, makeSurface());
    EXPECT_EQ(sp<bufferqueue::V2_0::IGraphicBufferProducer>(mService->getOutputSurface()), nullptr);
    EXPECT_TRUE(mService->setOutputSurface(nullptr).isOk());
    EXPECT_NE(surface(0), nullptr);
    EXPECT_TRUE(
            mLog.has(ANDROID_LOG_INFO, kTag, text("Registering output surface ptr: %p", nullptr)));
}

TEST_F(CameraDesktopTest, ADeadClientsCallbackAndSurfaceGo) {
    registerClient(3, new RecordingClient("three"));
    registerClient(1, new RecordingClient("one"));
    setSurface(3, makeSurface());
    setSurface(1, makeSurface());
    mService->serviceDied(3, nullptr);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_WARN, kTag, "Service died for 3"));
    EXPECT_EQ(send(3), "");
    EXPECT_EQ(surface(3), nullptr);
    EXPECT_EQ(send(1), "one");
    EXPECT_NE(surface(1), nullptr);
}

TEST_F(CameraDesktopTest, OnlyTheLowEightBitsOfADeathsCookieCount) {
    registerClient(3, new RecordingClient("three"));
    mService->serviceDied(0x103, nullptr);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_WARN, kTag, "Service died for 259"));
    EXPECT_EQ(send(3), "");
}

TEST_F(CameraDesktopTest, TheDeathOfAnUnknownKindClearsNothing) {
    registerClient(0, new RecordingClient("zero"));
    mService->serviceDied(8, nullptr);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, kTag, "Invalid client id: 8"));
    EXPECT_EQ(send(0), "zero");
}

}  // namespace
}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
