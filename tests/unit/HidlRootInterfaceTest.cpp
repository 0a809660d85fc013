// SPDX-License-Identifier: Apache-2.0
// What every implementation answers without a line of its own, and what is left out of the runtime.

#include <string>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hidl/HidlPassthroughSupport.h>
#include <hidl/HidlTransportSupport.h>
#include <hidl/TaskRunner.h>
#include <utils/misc.h>

#include "support/StubDesktop.h"

namespace android {
namespace hardware {
namespace {

using hidl::base::V1_0::DebugInfo;
using hidl::base::V1_0::IBase;
using ::korvane::test::StubDesktop;
using testing::ElementsAre;

class HidlRootInterfaceTest : public testing::Test {
  protected:
    const sp<StubDesktop> mDesktop = new StubDesktop();
};

TEST_F(HidlRootInterfaceTest, AnswersAPing) {
    EXPECT_TRUE(mDesktop->ping().isOk());
    EXPECT_FALSE(mDesktop->isRemote());
}

TEST_F(HidlRootInterfaceTest, NamesItsInterfacesFromTheMostDerivedToTheRoot) {
    std::vector<std::string> chain;
    EXPECT_TRUE(mDesktop->interfaceChain([&](const auto& names) {
                            chain.assign(names.begin(), names.end());
                        })
                        .isOk());
    EXPECT_THAT(chain, ElementsAre("korvane.hardware.camera.desktop@2.0::ICameraDesktop",
                                   "korvane.hardware.camera.desktop@1.0::ICameraDesktop",
                                   "android.hidl.base@1.0::IBase"));
}

TEST_F(HidlRootInterfaceTest, HasAHashForEachOfThem) {
    size_t count = 0;
    EXPECT_TRUE(mDesktop->getHashChain([&](const auto& hashes) { count = hashes.size(); }).isOk());
    EXPECT_EQ(3u, count);
}

TEST_F(HidlRootInterfaceTest, TellsNeitherItsProcessNorItsAddress) {
    bool replied = false;
    EXPECT_TRUE(mDesktop->getDebugInfo([&](const DebugInfo& info) {
                            EXPECT_EQ(-1, info.pid);
                            EXPECT_EQ(0u, info.ptr);
                            replied = true;
                        })
                        .isOk());
    EXPECT_TRUE(replied);
}

TEST_F(HidlRootInterfaceTest, DumpsNothing) {
    EXPECT_TRUE(mDesktop->debug(nullptr, {"option"}).isOk());
    EXPECT_TRUE(mDesktop->setHALInstrumentation().isOk());
}

int sReports = 0;

TEST_F(HidlRootInterfaceTest, PassesChangedPropertiesOn) {
    add_sysprop_change_callback([] { sReports++; }, 0);
    EXPECT_TRUE(mDesktop->notifySyspropsChanged().isOk());
    EXPECT_EQ(1, sReports);
}

TEST(HidlRuntimeTest, TellsItsProcessButNoAddresses) {
    EXPECT_EQ(getpid(), details::getPidIfSharable());
    EXPECT_FALSE(details::debuggable());
}

TEST(HidlRuntimeTest, ServesNothingFromLibraries) {
    const sp<IBase> object = new StubDesktop();
    EXPECT_EQ(object, details::wrapPassthroughInternal(object));
    details::TaskRunner runner;
    runner.start(1);
    EXPECT_FALSE(runner.push([] { FAIL(); }));
}

struct Recipient : hidl_death_recipient {
    void serviceDied(uint64_t cookie, const wp<IBase>& who) override {
        cookies.push_back(cookie);
        object = who.promote();
    }
    std::vector<uint64_t> cookies;
    sp<IBase> object;
};

TEST(HidlDeathLinkTest, TellsTheRecipientItsCookieAndTheObjectLinkedTo) {
    const sp<IBase> object = new StubDesktop();
    const sp<Recipient> recipient = new Recipient();
    const sp<hidl_binder_death_recipient> link =
            new hidl_binder_death_recipient(recipient, 0x123456789abcdef0, object);
    EXPECT_EQ(recipient, link->getRecipient().promote());
    link->binderDied(nullptr);
    EXPECT_THAT(recipient->cookies, ElementsAre(0x123456789abcdef0));
    EXPECT_EQ(object, recipient->object);
}

TEST(HidlDeathLinkTest, HoldsNeitherTheRecipientNorTheObject) {
    sp<IBase> object = new StubDesktop();
    const wp<IBase> watchedObject = object;
    sp<Recipient> recipient = new Recipient();
    const wp<Recipient> watchedRecipient = recipient;
    const sp<hidl_binder_death_recipient> link =
            new hidl_binder_death_recipient(recipient, 1, object);
    object = nullptr;
    recipient = nullptr;
    EXPECT_EQ(nullptr, watchedObject.promote());
    EXPECT_EQ(nullptr, watchedRecipient.promote());
    link->binderDied(nullptr);
}

}  // namespace
}  // namespace hardware
}  // namespace android
