// SPDX-License-Identifier: Apache-2.0
// Clients of other processes as the service follows them: by the proxies that the interface's
// compiler makes, over binders whose death a test reports.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <hwbinder/IBinder.h>
#include <hwbinder/Parcel.h>
#include <korvane/hardware/camera/desktop/1.0/BpHwCameraDesktopCallback.h>

#include "DeathLinks.h"
#include "support/CameraDesktopTest.h"

namespace korvane::test {
namespace {

using ::android::sp;
using ::android::status_t;
using ::android::wp;
using ::android::hardware::IBinder;
using ::android::hardware::Parcel;
using ::korvane::hardware::camera::desktop::V1_0::BpHwCameraDesktopCallback;
using ::korvane::hardware::camera::desktop::V2_0::implementation::DeathLinks;

constexpr size_t kMaxLinks = 64;
static_assert(kMaxLinks == DeathLinks::kMaxLinks);

/** An object of another process: links to it go with who made them, as the runtime has it. */
class RemoteBinder : public IBinder {
  public:
    status_t transact(uint32_t, const Parcel&, Parcel*, uint32_t, TransactCallback) override {
        return ::android::DEAD_OBJECT;
    }
    status_t linkToDeath(const sp<DeathRecipient>& recipient, void*, uint32_t) override {
        if (mDead) return ::android::DEAD_OBJECT;
        mRecipients.push_back(recipient);
        return ::android::OK;
    }
    status_t unlinkToDeath(const wp<DeathRecipient>&, void*, uint32_t,
                           wp<DeathRecipient>*) override {
        ++mUnlinked;
        return ::android::OK;
    }

    /** The process goes, and who is still linked is told. */
    void die() {
        mDead = true;
        for (const wp<DeathRecipient>& weak : mRecipients) {
            const sp<DeathRecipient> recipient = weak.promote();
            if (recipient != nullptr) recipient->binderDied(this);
        }
    }
    size_t links() const { return mRecipients.size(); }
    int unlinked() const { return mUnlinked; }

  private:
    std::vector<wp<DeathRecipient>> mRecipients;
    bool mDead = false;
    int mUnlinked = 0;
};

class CameraDesktopDeathTest : public CameraDesktopTest {
  protected:
    /** What arrives when this object is sent: each time a proxy of its own. */
    static sp<Callback> proxyOf(const sp<RemoteBinder>& binder) {
        return new BpHwCameraDesktopCallback(binder);
    }

    void registerProxy(int kind, const sp<Callback>& proxy) {
        EXPECT_TRUE(mService->registerCallback(static_cast<ClientType>(kind), proxy).isOk());
    }
    void registerRemote(int kind, const sp<RemoteBinder>& binder) {
        registerProxy(kind, proxyOf(binder));
    }

    size_t deathsOf(int kind) {
        return mLog.count(ANDROID_LOG_WARN, kTag, text("Service died for %d", kind));
    }

    const sp<RemoteBinder> mFirst = new RemoteBinder();
    const sp<RemoteBinder> mSecond = new RemoteBinder();
};

TEST_F(CameraDesktopDeathTest, ADeathClearsTheKind) {
    registerRemote(3, mFirst);
    setSurface(3, makeSurface());
    mFirst->die();
    EXPECT_EQ(1u, deathsOf(3));
    EXPECT_EQ(nullptr, surface(3));
    mLog.clear();
    EXPECT_EQ("", send(3));
    EXPECT_EQ(0u, mLog.lines(kTag).size()) << "the dead client was called";
}

TEST_F(CameraDesktopDeathTest, TheDeathOfAReplacedClientClearsItsSuccessorToo) {
    registerRemote(3, mFirst);
    registerClient(3, new RecordingClient("second"));
    setSurface(3, makeSurface());
    EXPECT_EQ("second", send(3));
    mFirst->die();
    EXPECT_EQ(1u, deathsOf(3));
    EXPECT_EQ("", send(3));
    EXPECT_EQ(nullptr, surface(3));
    EXPECT_EQ(0, mFirst->unlinked());
}

TEST_F(CameraDesktopDeathTest, TheDeathOfAClientThatWasClearedStillClearsTheKind) {
    registerRemote(3, mFirst);
    registerClient(3, nullptr);
    setSurface(3, makeSurface());
    mFirst->die();
    EXPECT_EQ(1u, deathsOf(3));
    EXPECT_EQ(nullptr, surface(3));
}

TEST_F(CameraDesktopDeathTest, AClientIsLinkedOnceUnderEachKindHoweverOftenItRegisters) {
    for (int i = 0; i < 1000; ++i) {
        registerRemote(3, mFirst);
        registerRemote(5, mFirst);
        registerRemote(3, mSecond);
    }
    EXPECT_EQ(2u, mFirst->links());
    EXPECT_EQ(1u, mSecond->links());
    mFirst->die();
    EXPECT_EQ(1u, deathsOf(3));
    EXPECT_EQ(1u, deathsOf(5));
}

TEST_F(CameraDesktopDeathTest, OnlyTheFirstProxyOfAClientIsKept) {
    registerRemote(3, mFirst);
    sp<Callback> again = proxyOf(mFirst);
    const wp<Callback> watched = again;
    registerProxy(3, again);
    again.clear();
    EXPECT_NE(nullptr, watched.promote());
    registerClient(3, nullptr);
    EXPECT_EQ(nullptr, watched.promote());
}

TEST_F(CameraDesktopDeathTest, ADeadClientIsLetGoOf) {
    sp<Callback> proxy = proxyOf(mFirst);
    const wp<Callback> watched = proxy;
    registerProxy(3, proxy);
    registerProxy(5, proxy);
    registerRemote(3, mSecond);
    registerRemote(5, mSecond);
    proxy.clear();
    EXPECT_NE(nullptr, watched.promote());
    mFirst->die();
    EXPECT_EQ(nullptr, watched.promote());
    mSecond->die();
    EXPECT_EQ(2u, deathsOf(3));
    EXPECT_EQ(2u, deathsOf(5));
}

TEST_F(CameraDesktopDeathTest, AClientThatIsDeadWhenItRegistersIsNotKept) {
    mFirst->die();
    sp<Callback> proxy = proxyOf(mFirst);
    const wp<Callback> watched = proxy;
    registerProxy(3, proxy);
    proxy.clear();
    mLog.clear();
    EXPECT_EQ("", send(3));
    EXPECT_TRUE(
            mLog.has(ANDROID_LOG_ERROR, kTag, "sendCommand: Failed during binder call, isDead 1"));
    registerClient(3, nullptr);
    EXPECT_EQ(nullptr, watched.promote());
}

TEST_F(CameraDesktopDeathTest, OfManyClientsTheLastToRegisterAreFollowed) {
    registerRemote(3, mFirst);
    registerRemote(3, mSecond);
    registerRemote(5, mSecond);
    std::vector<sp<RemoteBinder>> others;
    for (size_t i = 0; i < kMaxLinks - 2; ++i) others.push_back(new RemoteBinder());
    for (const auto& other : others) registerRemote(3, other);
    registerRemote(3, mFirst);  // and so it isn't the oldest any more

    const sp<RemoteBinder> last = new RemoteBinder();
    registerRemote(3, last);
    mSecond->die();
    EXPECT_EQ(0u, deathsOf(3));
    EXPECT_EQ(1u, deathsOf(5));
    mFirst->die();
    last->die();
    for (const auto& other : others) other->die();
    EXPECT_EQ(kMaxLinks, deathsOf(3));
}

TEST_F(CameraDesktopDeathTest, ManyThatLiveOnLeaveAnotherKindsAlone) {
    registerRemote(5, mFirst);
    std::vector<sp<RemoteBinder>> others;
    for (size_t i = 0; i <= kMaxLinks; ++i) others.push_back(new RemoteBinder());
    for (const auto& other : others) registerRemote(3, other);
    others.front()->die();
    EXPECT_EQ(0u, deathsOf(3));
    mFirst->die();
    EXPECT_EQ(1u, deathsOf(5));
}

TEST_F(CameraDesktopDeathTest, AClientThatIsNoLongerFollowedMayUseTheServiceWhenItIsLetGoOf) {
    struct Leaving : public BpHwCameraDesktopCallback {
        Leaving(const sp<IBinder>& binder, const std::function<void()>& leave)
            : BpHwCameraDesktopCallback(binder), leave(leave) {}
        ~Leaving() override { leave(); }
        const std::function<void()> leave;
    };
    bool left = false;
    registerProxy(3, new Leaving(mFirst, [&] {
                      registerRemote(5, mSecond);
                      left = true;
                  }));
    for (size_t i = 0; i < kMaxLinks; ++i) registerRemote(3, new RemoteBinder());
    EXPECT_TRUE(left);
    mSecond->die();
    EXPECT_EQ(1u, deathsOf(5));
}

TEST_F(CameraDesktopDeathTest, HoweverManyClientsLiveOnNoMoreAreKept) {
    std::vector<wp<Callback>> proxies;
    for (size_t i = 0; i < 10 * kMaxLinks; ++i) {
        const sp<Callback> proxy = proxyOf(new RemoteBinder());
        proxies.push_back(proxy);
        registerProxy(3, proxy);
    }
    size_t kept = 0;
    for (const wp<Callback>& proxy : proxies) kept += proxy.promote() != nullptr ? 1 : 0;
    EXPECT_EQ(kMaxLinks, kept);
}

TEST_F(CameraDesktopDeathTest, TheLinksGoWithTheService) {
    sp<Callback> proxy = proxyOf(mFirst);
    const wp<Callback> watched = proxy;
    registerProxy(3, proxy);
    proxy.clear();
    mService.clear();
    EXPECT_EQ(nullptr, watched.promote());
}

}  // namespace
}  // namespace korvane::test
