// SPDX-License-Identifier: Apache-2.0
// Registering services and finding them from other processes.

#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <android/hidl/manager/1.0/IServiceManager.h>
#include <gtest/gtest.h>
#include <hidl/ServiceManagement.h>

#include "ServiceFixture.h"

namespace korvane::test {
namespace {

using ::android::sp;
using ::android::hardware::defaultServiceManager;
using ::android::hardware::hidl_string;
using ::android::hardware::interfacesEqual;
using ::android::hidl::base::V1_0::IBase;
using ::android::hidl::manager::V1_0::IServiceManager;
using desktop_v2::ClientType;

constexpr uid_t kNobody = 65534;

class ServiceLookupTest : public ServiceFixture {};

TEST_F(ServiceLookupTest, FindsAServiceOfAnotherProcess) {
    serve<StubDesktop>();
    runClient([](Line&) {
        const Desktop service = find();
        EXPECT_TRUE(service->isRemote());
        EXPECT_TRUE(service->ping().isOk());
        EXPECT_EQ("hello", send(service, "hello"));
    });
}

TEST_F(ServiceLookupTest, FindsItByTheParentInterface) {
    serve<StubDesktop>();
    runClient([](Line&) {
        const sp<desktop_v1::ICameraDesktop> parent =
                desktop_v1::ICameraDesktop::tryGetService("default");
        ASSERT_NE(nullptr, parent);
        std::string reply;
        EXPECT_TRUE(parent->setCommands(desktop_v1::ClientTypes::LAUNCHER, "hello",
                                        [&](const hidl_string& text) { reply = text; })
                            .isOk());
        EXPECT_EQ("hello", reply);
        const Desktop child = desktop_v2::ICameraDesktop::castFrom(parent);
        EXPECT_NE(nullptr, child);
    });
}

TEST_F(ServiceLookupTest, AProxyTellsWhatIsBehindIt) {
    serve<StubDesktop>();
    const int32_t server = mServer->pid();
    runClient([&](const Desktop& service) {
        EXPECT_TRUE(service->getDebugInfo([&](const auto& info) {
                               EXPECT_EQ(server, info.pid);
                               EXPECT_EQ(0u, info.ptr);
                           })
                            .isOk());
        EXPECT_TRUE(service->interfaceDescriptor([](const hidl_string& name) {
                               EXPECT_EQ(desktop_v2::ICameraDesktop::descriptor, name);
                           })
                            .isOk());
        EXPECT_TRUE(service->getHashChain([](const auto& hashes) {
                               ASSERT_EQ(3u, hashes.size());
                               EXPECT_EQ(0, hashes[0][31]) << "not frozen";
                               EXPECT_NE(hashes[0], hashes[1]);
                           })
                            .isOk());
        const sp<IBase> base = service;
        const sp<desktop_v1::ICameraDesktopCallback> other =
                desktop_v1::ICameraDesktopCallback::castFrom(base);
        EXPECT_EQ(nullptr, other);
    });
}

TEST_F(ServiceLookupTest, FindsNothingThatIsNotThere) {
    serve<StubDesktop>();
    runClient([](Line&) {
        EXPECT_EQ(nullptr, desktop_v2::ICameraDesktop::tryGetService("other"));
        EXPECT_EQ(nullptr, desktop_v1::ICameraDesktopCallback::tryGetService("default"));
        EXPECT_EQ(nullptr, desktop_v2::ICameraDesktop::tryGetService(true /* getStub */));
    });
}

TEST_F(ServiceLookupTest, FindsItsOwnServiceItself) {
    runClient([](Line&) {
        const sp<StubDesktop> service = new StubDesktop();
        ASSERT_EQ(::android::OK, service->registerAsService());
        const Desktop found = desktop_v2::ICameraDesktop::tryGetService();
        EXPECT_EQ(service.get(), found.get());
        EXPECT_FALSE(found->isRemote());
        const sp<desktop_v1::ICameraDesktop> parent = desktop_v1::ICameraDesktop::getService();
        EXPECT_EQ(service.get(), parent.get());
    });
}

TEST_F(ServiceLookupTest, ProxiesOfOneServiceAreEqual) {
    serve<StubDesktop>();
    ForkedProcess::Body compare = [](Line&) {
        const Desktop first = find();
        const Desktop second = find();
        EXPECT_NE(first.get(), second.get());
        EXPECT_TRUE(interfacesEqual(first, second));
        EXPECT_FALSE(interfacesEqual(first, defaultServiceManager()));
        EXPECT_FALSE(interfacesEqual(first, new StubDesktop()));
    };
    runClient(compare);
}

TEST_F(ServiceLookupTest, ALaterServiceReplacesTheFormer) {
    serve<StubDesktop>();
    const std::unique_ptr<ForkedProcess> former = std::move(mServer);
    struct Second : StubDesktop {
        Return<void> sendCommand(ClientType, const hidl_string&, sendCommand_cb _hidl_cb) override {
            _hidl_cb("second");
            return ::android::hardware::Void();
        }
    };
    serve<Second>();
    runClient([](const Desktop& service) { EXPECT_EQ("second", send(service, "hello")); });
}

TEST_F(ServiceLookupTest, LosesAServiceThatDies) {
    serve<StubDesktop>();
    runClient([](Line&) { find(); });
    mServer->kill();
    EXPECT_TRUE(mRegister.waitForLog("A service has died"));
    runClient([](Line&) {
        EXPECT_EQ(nullptr, desktop_v2::ICameraDesktop::tryGetService());
        EXPECT_EQ(nullptr, desktop_v1::ICameraDesktop::tryGetService());
        size_t count = 1;
        EXPECT_TRUE(defaultServiceManager()
                            ->list([&](const auto& names) { count = names.size(); })
                            .isOk());
        EXPECT_EQ(0u, count);
    });
}

TEST_F(ServiceLookupTest, GetServiceWaitsForTheService) {
    ForkedProcess client([](Line& test) {
        test.say('w');
        const Desktop service = desktop_v2::ICameraDesktop::getService();
        ASSERT_NE(nullptr, service);
        EXPECT_EQ("hello", send(service, "hello"));
    });
    ASSERT_EQ('w', client.line().hear());
    serve<StubDesktop>();
    EXPECT_EQ(0, client.wait());
}

/** Says on which instance it could wait for another service. */
struct Waiting : StubDesktop {
    Return<void> sendCommand(ClientType, const hidl_string& instance,
                             sendCommand_cb _hidl_cb) override {
        toTest->say('w');
        const auto other = desktop_v2::ICameraDesktop::getService(instance);
        _hidl_cb(other->isRemote() ? "found" : "own");
        return ::android::hardware::Void();
    }
    Line* toTest = nullptr;
};

TEST_F(ServiceLookupTest, TheOnlyThreadOfAServiceCanWaitForAnotherService) {
    mServer = std::make_unique<ForkedProcess>([](Line& test) {
        ::android::hardware::configureRpcThreadpool(1, true /* callerWillJoin */);
        const sp<Waiting> service = new Waiting();
        service->toTest = &test;
        ASSERT_EQ(::android::OK, service->registerAsService());
        test.say('r');
        ::android::hardware::joinRpcThreadpool();
    });
    ASSERT_EQ('r', mServer->line().hear());
    ForkedProcess client([](Line&) { EXPECT_EQ("found", send(find(), "other")); });
    ASSERT_EQ('w', mServer->line().hear());
    const std::unique_ptr<ForkedProcess> first = std::move(mServer);
    serve<StubDesktop>("other");
    EXPECT_EQ(0, client.wait());
}

TEST_F(ServiceLookupTest, ListsWhatIsRegistered) {
    serve<StubDesktop>();
    const int32_t server = mServer->pid();
    runClient([&](Line&) {
        const sp<IServiceManager> manager = defaultServiceManager();
        ASSERT_NE(nullptr, manager);
        std::vector<std::string> names;
        EXPECT_TRUE(manager->list([&](const auto& listed) {
                               names.assign(listed.begin(), listed.end());
                           })
                            .isOk());
        EXPECT_EQ((std::vector<std::string>{
                          "android.hidl.base@1.0::IBase/default",
                          "korvane.hardware.camera.desktop@1.0::ICameraDesktop/default",
                          "korvane.hardware.camera.desktop@2.0::ICameraDesktop/default"}),
                  names);
        EXPECT_TRUE(manager->debugDump([&](const auto& infos) {
                               ASSERT_EQ(3u, infos.size());
                               for (const auto& info : infos) EXPECT_EQ(server, info.pid);
                           })
                            .isOk());
        const IServiceManager::Transport transport =
                manager->getTransport(desktop_v2::ICameraDesktop::descriptor, "default");
        EXPECT_EQ(IServiceManager::Transport::HWBINDER, transport);
    });
}

TEST_F(ServiceLookupTest, TakesNoServiceFromAnotherUser) {
    ASSERT_EQ(0, chmod("/dev/hwbinder", 0666));
    ForkedProcess stranger([](Line&) {
        ASSERT_EQ(0, setuid(kNobody));
        const sp<StubDesktop> service = new StubDesktop();
        EXPECT_EQ(::android::UNKNOWN_ERROR, service->registerAsService());
    });
    EXPECT_EQ(0, stranger.wait());
    EXPECT_TRUE(mRegister.waitForLog("of user 65534 may not register a service"));
    runClient([](Line&) { EXPECT_EQ(nullptr, desktop_v2::ICameraDesktop::tryGetService()); });
}

TEST_F(ServiceLookupTest, LetsEverybodyUseAService) {
    ASSERT_EQ(0, chmod("/dev/hwbinder", 0666));
    serve<StubDesktop>();
    runClient([](Line&) {
        ASSERT_EQ(0, setuid(kNobody));
        EXPECT_EQ("hello", send(find(), "hello"));
    });
}

TEST_F(ServiceLookupTest, TakesNoServiceWithoutAName) {
    runClient([](Line&) {
        const sp<StubDesktop> service = new StubDesktop();
        EXPECT_EQ(::android::UNKNOWN_ERROR, service->registerAsService(""));
    });
}

TEST_F(ServiceLookupTest, TheRegisterIsThereOnce) {
    ForkedProcess second([](Line&) {
        const auto program = std::string("/proc/self/exe");
        char path[4096] = {};
        ASSERT_GT(readlink(program.c_str(), path, sizeof(path) - 1), 0);
        const std::string folder = std::string(path).substr(0, std::string(path).rfind('/'));
        execl((folder + "/../bin/hwservicemanager").c_str(), "hwservicemanager", nullptr);
    });
    const int status = second.wait();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == EXIT_FAILURE) << status;
}

/** Without the register. */
class NoRegisterTest : public testing::Test {};

TEST_F(NoRegisterTest, NothingIsFoundAtOnce) {
    ForkedProcess client([](Line&) {
        EXPECT_EQ(nullptr, defaultServiceManager());
        EXPECT_EQ(nullptr, desktop_v2::ICameraDesktop::tryGetService());
    });
    EXPECT_EQ(0, client.wait());
}

TEST_F(NoRegisterTest, NoServiceCannotBeRegistered) {
    EXPECT_EQ(::android::UNEXPECTED_NULL,
              ::android::hardware::details::registerAsServiceInternal(nullptr, "default"));
}

void expectService() {
    ForkedProcess client([](Line&) {
        const sp<desktop_v2::ICameraDesktop> service = desktop_v2::ICameraDesktop::tryGetService();
        EXPECT_NE(nullptr, service);
    });
    EXPECT_EQ(0, client.wait());
}

TEST_F(NoRegisterTest, AServiceWaitsForTheRegisterAndFindsTheNextOne) {
    ForkedProcess server([](Line& test) {
        const sp<StubDesktop> service = new StubDesktop();
        EXPECT_EQ(nullptr, defaultServiceManager());
        test.say('w');
        do {
            EXPECT_EQ(::android::OK, service->registerAsService());
            test.say('r');
        } while (test.hear() == 'a');
    });
    ASSERT_EQ('w', server.line().hear());
    {
        RegisterProcess first;
        ASSERT_EQ('r', server.line().hear());
        expectService();
    }
    RegisterProcess second;
    server.line().say('a');
    ASSERT_EQ('r', server.line().hear());
    expectService();
    server.line().say('e');
    EXPECT_EQ(0, server.wait());
}

}  // namespace
}  // namespace korvane::test
