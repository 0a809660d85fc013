// SPDX-License-Identifier: Apache-2.0
// A service in a process of its own, as most tests across processes have it.
#pragma once

#include <csignal>
#include <functional>
#include <memory>
#include <string>

#include <sys/wait.h>

#include <gtest/gtest.h>
#include <hidl/HidlTransportSupport.h>
#include <korvane/hardware/camera/desktop/2.0/ICameraDesktop.h>

#include "Processes.h"
#include "support/StubDesktop.h"

namespace korvane::test {

/** With the register running. */
class ServiceFixture : public testing::Test {
  protected:
    using Desktop = ::android::sp<desktop_v2::ICameraDesktop>;
    using MakeService = std::function<::android::sp<desktop_v2::ICameraDesktop>()>;

    /** Starts a process that registers a service and serves it on its main thread. */
    void serve(const MakeService& make, const std::string& instance = "default") {
        mServer = std::make_unique<ForkedProcess>([&](Line& test) {
            ::android::hardware::configureRpcThreadpool(1, true /* callerWillJoin */);
            const Desktop service = make();
            ASSERT_EQ(::android::OK, service->registerAsService(instance));
            test.say('r');
            ::android::hardware::joinRpcThreadpool();
        });
        ASSERT_EQ('r', mServer->line().hear());
    }
    template <typename Service>
    void serve(const std::string& instance = "default") {
        serve([] { return Desktop(new Service()); }, instance);
    }

    /** Runs a client in a process of its own until it ends, and expects that it is content. */
    static void runClient(const ForkedProcess::Body& body) {
        ForkedProcess client(body);
        EXPECT_EQ(0, client.wait());
    }
    /** The same for what a client does with the service. */
    static void runClient(const std::function<void(const Desktop&)>& body) {
        runClient([&](Line&) { body(find()); });
    }

    static Desktop find(const std::string& instance = "default") {
        const Desktop service = desktop_v2::ICameraDesktop::tryGetService(instance);
        EXPECT_NE(nullptr, service);
        if (service == nullptr) _exit(EXIT_FAILURE);
        return service;
    }

    /** Sends a command to kind 3 and gives the reply, which must come. */
    static std::string send(const Desktop& service, const std::string& command) {
        std::string reply;
        const auto sent = service->sendCommand(
                desktop_v2::ClientType::STREAM, command,
                [&](const ::android::hardware::hidl_string& text) { reply = text; });
        EXPECT_TRUE(sent.isOk()) << sent.description();
        return reply;
    }

    RegisterProcess mRegister;
    std::unique_ptr<ForkedProcess> mServer;
};

}  // namespace korvane::test
