// SPDX-License-Identifier: Apache-2.0
// What is told when a process dies.

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "ServiceFixture.h"

namespace korvane::test {
namespace {

using ::android::sp;
using ::android::wp;
using ::android::hardware::configureRpcThreadpool;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::interfacesEqual;
using ::android::hardware::Void;
using ::android::hidl::base::V1_0::IBase;
using desktop_v2::ClientType;

/** Keeps the notices of several recipients, in their order. */
class Notices {
  public:
    void add(const std::string& name) {
        std::lock_guard<std::mutex> guard(mLock);
        mNames.push_back(name);
        mChanged.notify_all();
    }

    /** Waits until a recipient of this name has been told; all names until then. */
    std::vector<std::string> waitFor(const std::string& name) {
        std::unique_lock<std::mutex> guard(mLock);
        EXPECT_TRUE(mChanged.wait_for(
                guard, std::chrono::seconds(30),
                [&] { return std::find(mNames.begin(), mNames.end(), name) != mNames.end(); }))
                << "no notice for " << name;
        return mNames;
    }

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<std::string> mNames;
};

struct Recipient : hidl_death_recipient {
    Recipient(Notices& to, std::string as) : notices(to), name(std::move(as)) {}
    void serviceDied(uint64_t cookie, const wp<IBase>& who) override {
        lastCookie = cookie;
        lastWho = who;
        notices.add(name);
    }
    Notices& notices;
    const std::string name;
    uint64_t lastCookie = 0;
    wp<IBase> lastWho;
};

class DeathNoticeTest : public ServiceFixture {
  protected:
    /** Runs a client up to its links, kills the service and runs the client to its end. */
    void outlive(const std::function<void(const std::function<void()>& serviceDies)>& body) {
        serve<StubDesktop>();
        ForkedProcess client([&](Line& test) {
            body([&] {
                test.say('l');
                ASSERT_EQ('k', test.hear());
            });
        });
        ASSERT_EQ('l', client.line().hear());
        mServer->kill();
        client.line().say('k');
        EXPECT_EQ(0, client.wait());
    }
};

TEST_F(DeathNoticeTest, TellsTheClientOfADeadService) {
    outlive([](const auto& serviceDies) {
        Notices notices;
        const sp<Recipient> recipient = new Recipient(notices, "recipient");
        const Desktop service = find();
        EXPECT_TRUE(service->linkToDeath(recipient, 0x123456789abcdef0));
        serviceDies();
        notices.waitFor("recipient");
        EXPECT_EQ(0x123456789abcdef0u, recipient->lastCookie);
        EXPECT_EQ(service.get(), recipient->lastWho.promote().get());
        EXPECT_TRUE(service->ping().isDeadObject());
    });
}

TEST_F(DeathNoticeTest, TellsOncePerLinkInTheirOrder) {
    outlive([](const auto& serviceDies) {
        Notices notices;
        const sp<Recipient> first = new Recipient(notices, "first");
        const sp<Recipient> second = new Recipient(notices, "second");
        const sp<Recipient> last = new Recipient(notices, "last");
        const Desktop service = find();
        EXPECT_TRUE(service->linkToDeath(first, 1));
        EXPECT_TRUE(service->linkToDeath(second, 2));
        EXPECT_TRUE(service->linkToDeath(first, 3));
        EXPECT_TRUE(service->linkToDeath(last, 4));
        serviceDies();
        EXPECT_EQ((std::vector<std::string>{"first", "second", "first", "last"}),
                  notices.waitFor("last"));
    });
}

TEST_F(DeathNoticeTest, DoesNotTellWhoUnlinked) {
    outlive([](const auto& serviceDies) {
        Notices notices;
        const sp<Recipient> unlinked = new Recipient(notices, "unlinked");
        const sp<Recipient> last = new Recipient(notices, "last");
        const Desktop service = find();
        EXPECT_TRUE(service->linkToDeath(unlinked, 1));
        EXPECT_TRUE(service->linkToDeath(last, 2));
        EXPECT_TRUE(service->unlinkToDeath(unlinked));
        EXPECT_FALSE(service->unlinkToDeath(unlinked));
        serviceDies();
        EXPECT_EQ((std::vector<std::string>{"last"}), notices.waitFor("last"));
        EXPECT_FALSE(service->unlinkToDeath(last));
    });
}

TEST_F(DeathNoticeTest, UnlinksOnlyWhatWasLinkedThroughTheSameProxy) {
    outlive([](const auto& serviceDies) {
        Notices notices;
        const sp<Recipient> recipient = new Recipient(notices, "recipient");
        const Desktop service = find();
        const Desktop other = find();
        EXPECT_TRUE(service->linkToDeath(recipient, 1));
        EXPECT_FALSE(other->unlinkToDeath(recipient));
        serviceDies();
        notices.waitFor("recipient");
    });
}

TEST_F(DeathNoticeTest, ForgetsTheLinksOfAProxyThatIsGone) {
    outlive([](const auto& serviceDies) {
        Notices notices;
        const sp<Recipient> forgotten = new Recipient(notices, "forgotten");
        const sp<Recipient> last = new Recipient(notices, "last");
        Desktop dropped = find();
        const Desktop kept = find();
        EXPECT_TRUE(dropped->linkToDeath(forgotten, 1));
        EXPECT_TRUE(kept->linkToDeath(last, 2));
        dropped = nullptr;
        serviceDies();
        EXPECT_EQ((std::vector<std::string>{"last"}), notices.waitFor("last"));
    });
}

TEST_F(DeathNoticeTest, DoesNotKeepTheRecipient) {
    outlive([](const auto& serviceDies) {
        Notices notices;
        sp<Recipient> dropped = new Recipient(notices, "dropped");
        const wp<Recipient> weak = dropped;
        const sp<Recipient> last = new Recipient(notices, "last");
        const Desktop service = find();
        EXPECT_TRUE(service->linkToDeath(dropped, 1));
        EXPECT_TRUE(service->linkToDeath(last, 2));
        dropped = nullptr;
        EXPECT_EQ(nullptr, weak.promote());
        serviceDies();
        EXPECT_EQ((std::vector<std::string>{"last"}), notices.waitFor("last"));
    });
}

TEST_F(DeathNoticeTest, ALinkToADeadServiceStillGetsItsNotice) {
    outlive([](const auto& serviceDies) {
        Notices notices;
        const sp<Recipient> recipient = new Recipient(notices, "recipient");
        const Desktop service = find();
        serviceDies();
        EXPECT_TRUE(service->linkToDeath(recipient, 1));
        notices.waitFor("recipient");
        EXPECT_FALSE(service->linkToDeath(recipient, 2));
    });
}

/** Replies with the cookies and threads of the notices that it was given so far. */
struct Mourner : StubDesktop, hidl_death_recipient {
    Return<void> registerCallback(ClientType type, const Callback& callback) override {
        StubDesktop::registerCallback(type, callback);
        callback->linkToDeath(this, static_cast<uint64_t>(type)).assertOk();
        return Void();
    }
    void serviceDied(uint64_t cookie, const wp<IBase>& who) override {
        const bool known = interfacesEqual(who.promote(), callbacks[ClientType(cookie)]);
        report += std::to_string(cookie) + (known ? " on " : " of somebody else on ") +
                  (syscall(SYS_gettid) == getpid() ? "main" : "other") + ".";
        toTest->say('d');
    }
    Return<void> sendCommand(ClientType, const hidl_string&, sendCommand_cb _hidl_cb) override {
        _hidl_cb(report);
        return Void();
    }
    std::string report;
    Line* toTest = nullptr;
};

TEST_F(DeathNoticeTest, TellsTheServiceOfADeadClientOnTheThreadThatJoined) {
    mServer = std::make_unique<ForkedProcess>([](Line& test) {
        configureRpcThreadpool(1, true /* callerWillJoin */);
        const sp<Mourner> service = new Mourner();
        service->toTest = &test;
        ASSERT_EQ(::android::OK, service->registerAsService());
        test.say('r');
        ::android::hardware::joinRpcThreadpool();
    });
    ASSERT_EQ('r', mServer->line().hear());
    runClient([](const Desktop& service) {
        const sp<StubCallback> callback =
                new StubCallback([](const std::string& text) { return text; });
        ASSERT_TRUE(service->registerCallback(ClientType::STREAM, callback).isOk());
        EXPECT_EQ("", send(service, ""));
    });
    ASSERT_EQ('d', mServer->line().hear());
    runClient([](const Desktop& service) { EXPECT_EQ("3 on main.", send(service, "")); });
}

}  // namespace
}  // namespace korvane::test
