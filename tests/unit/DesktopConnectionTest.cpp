// SPDX-License-Identifier: Apache-2.0
#include "uvc/DesktopConnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/LocalServices.h"
#include "support/LogRecorder.h"
#include "support/PendingCall.h"
#include "support/StubDesktop.h"

namespace korvane::test {
namespace {

using ::android::sp;
using desktop_v2::ClientType;
using ::korvane::hardware::camera::desktop::V2_0::implementation::DesktopConnection;
using testing::ElementsAre;
using testing::Pair;

constexpr char kTag[] = "UVC-GadgetHandler";

class DesktopConnectionTest : public testing::Test {
  protected:
    LogRecorder log;
    LocalServices services;
    const sp<StubDesktop> desktop = new StubDesktop;
    const sp<StubCallback> callback = new StubCallback([](const auto&) { return ""; });
    DesktopConnection connection{callback};
};

TEST_F(DesktopConnectionTest, LooksForTheServiceOnlyOnceToldToConnect) {
    services.provide("default", desktop);
    EXPECT_EQ(nullptr, connection.service());
    EXPECT_EQ(0, services.lookUps());
}

TEST_F(DesktopConnectionTest, RegistersTheControllerWithTheServiceThatItFinds) {
    services.provide("default", desktop);
    EXPECT_TRUE(connection.connect());
    EXPECT_EQ(desktop, connection.service());
    EXPECT_THAT(desktop->callbacks, ElementsAre(Pair(ClientType::WEBCAM_CONTROLLER, callback)));
    EXPECT_TRUE(log.has(ANDROID_LOG_DEBUG, kTag, "Trying to get service"));
}

TEST_F(DesktopConnectionTest, KeepsTheServiceThatItFound) {
    services.provide("default", desktop);
    ASSERT_TRUE(connection.connect());
    services.provide("default", new StubDesktop);
    EXPECT_TRUE(connection.connect());
    EXPECT_EQ(1, services.lookUps());
    EXPECT_EQ(desktop, connection.service());
}

TEST_F(DesktopConnectionTest, LooksAgainWhileThereIsNoService) {
    EXPECT_FALSE(connection.connect());
    EXPECT_EQ(nullptr, connection.service());
    EXPECT_EQ(1u, log.count(ANDROID_LOG_DEBUG, kTag, "Trying to get service"));
    services.provide("default", desktop);
    EXPECT_TRUE(connection.connect());
    EXPECT_EQ(2, services.lookUps());
}

TEST_F(DesktopConnectionTest, IsRegisteredOnceHoweverManyConnectAtATime) {
    services.provide("default", desktop);
    services.hold();
    PendingCall<bool> first([this] { return connection.connect(); });
    EXPECT_TRUE(first.isHeldUp());
    PendingCall<bool> second([this] { return connection.connect(); });
    EXPECT_TRUE(second.isHeldUp());
    services.release();
    EXPECT_TRUE(first.get());
    EXPECT_TRUE(second.get());
    EXPECT_EQ(1, services.lookUps());
}

}  // namespace
}  // namespace korvane::test
