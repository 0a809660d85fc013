// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <hidl/HidlTransportSupport.h>
#include <hidl/Static.h>
#include <hwbinder/ProcessState.h>
#include <android/hidl/base/1.0/BnHwBase.h>
#include <android/hidl/base/1.0/BpHwBase.h>
#include <korvane/hardware/camera/desktop/1.0/BnHwCameraDesktop.h>
#include <korvane/hardware/camera/desktop/1.0/BnHwCameraDesktopCallback.h>
#include <korvane/hardware/camera/desktop/1.0/BpHwCameraDesktop.h>
#include <korvane/hardware/camera/desktop/1.0/BpHwCameraDesktopCallback.h>
#include <korvane/hardware/camera/desktop/2.0/BnHwCameraDesktop.h>
#include <korvane/hardware/camera/desktop/2.0/BpHwCameraDesktop.h>

#include "support/StubDesktop.h"

namespace android {
namespace hardware {
namespace {

using hidl::base::V1_0::BnHwBase;
using hidl::base::V1_0::BpHwBase;
using hidl::base::V1_0::IBase;
using ::korvane::hardware::camera::desktop::V2_0::BpHwCameraDesktop;
using ::korvane::hardware::camera::desktop::V2_0::ClientType;
using ::korvane::hardware::camera::desktop::V2_0::ICameraDesktop;
using ::korvane::test::StubCallback;
using ::korvane::test::StubDesktop;
namespace V1 = ::korvane::hardware::camera::desktop::V1_0;

struct StubRecipient : hidl_death_recipient {
    void serviceDied(uint64_t, const wp<IBase>&) override {}
};

/** An object of an interface that no generated code knows. */
struct UnknownObject : IBase {
    Return<void> interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) override {
        _hidl_cb("unknown@1.0::IUnknown");
        return Void();
    }
};

/** An object that can't be asked for its interfaces. */
struct UnreachableObject : IBase {
    Return<void> interfaceChain(interfaceChain_cb) override {
        return Status::fromStatusT(DEAD_OBJECT);
    }
    Return<void> interfaceDescriptor(interfaceDescriptor_cb) override {
        return Status::fromStatusT(DEAD_OBJECT);
    }
};

sp<StubCallback> makeCallback() {
    return new StubCallback([](const std::string& command) { return command; });
}

// Objects of this process.

TEST(HidlLocalObjectTest, CastsToEveryInterfaceOfItsChain) {
    const sp<StubDesktop> desktop = new StubDesktop();
    const sp<IBase> base = desktop;
    const sp<V1::ICameraDesktop> v1 = V1::ICameraDesktop::castFrom(base);
    const sp<ICameraDesktop> v2 = ICameraDesktop::castFrom(v1);
    EXPECT_EQ(desktop.get(), v1.get());
    EXPECT_EQ(desktop.get(), v2.get());
    EXPECT_FALSE(v2->isRemote());
}

TEST(HidlLocalObjectTest, CastsToNothingElse) {
    const sp<IBase> base = new StubDesktop();
    const sp<V1::ICameraDesktopCallback> callback = V1::ICameraDesktopCallback::castFrom(base);
    EXPECT_EQ(nullptr, callback);
    const sp<ICameraDesktop> null = ICameraDesktop::castFrom(sp<IBase>());
    EXPECT_EQ(nullptr, null);
}

TEST(HidlLocalObjectTest, CastTellsHowAskingFailedOnlyIfWanted) {
    const sp<IBase> base = new UnreachableObject();
    const Return<sp<ICameraDesktop>> quiet = ICameraDesktop::castFrom(base);
    ASSERT_TRUE(quiet.isOk());
    EXPECT_EQ(nullptr, static_cast<sp<ICameraDesktop>>(quiet));
    EXPECT_TRUE(ICameraDesktop::castFrom(base, true /* emitError */).isDeadObject());
}

TEST(HidlLocalObjectTest, NamesItsMostDerivedInterface) {
    const sp<IBase> desktop = new StubDesktop();
    EXPECT_EQ(ICameraDesktop::descriptor, details::getDescriptor(desktop.get()));
    const sp<IBase> unreachable = new UnreachableObject();
    EXPECT_EQ("", details::getDescriptor(unreachable.get()));
}

TEST(HidlLocalObjectTest, LinksToItsDeathWithoutEffect) {
    const sp<StubDesktop> desktop = new StubDesktop();
    const sp<StubRecipient> recipient = new StubRecipient();
    EXPECT_TRUE(desktop->linkToDeath(recipient, 1));
    EXPECT_TRUE(desktop->unlinkToDeath(recipient));
    EXPECT_TRUE(desktop->unlinkToDeath(recipient));
    EXPECT_FALSE(desktop->linkToDeath(nullptr, 1));
    EXPECT_FALSE(desktop->unlinkToDeath(nullptr));
}

TEST(HidlLocalObjectTest, NobodyChecksThatItReplies) {
    struct Silent : StubDesktop {
        Return<void> sendCommand(ClientType, const hidl_string&, sendCommand_cb) override {
            return Void();
        }
    };
    const sp<ICameraDesktop> desktop = new Silent();
    std::string reply = "unchanged";
    EXPECT_TRUE(desktop->sendCommand(ClientType::STREAM, "",
                                     [&](const hidl_string& text) { reply = text; })
                        .isOk());
    EXPECT_EQ("unchanged", reply);
}

TEST(HidlLocalObjectTest, CannotBeRegisteredWithoutTheDriver) {
    if (ProcessState::self()->hasDriver()) GTEST_SKIP() << "This machine has the driver";
    const sp<StubDesktop> desktop = new StubDesktop();
    EXPECT_EQ(INVALID_OPERATION, desktop->registerAsService());
    EXPECT_EQ(UNEXPECTED_NULL, details::registerAsServiceInternal(nullptr, "default"));
    EXPECT_EQ(nullptr, ICameraDesktop::tryGetService());
}

// Their binder objects.

TEST(HidlBinderTest, AnObjectHasOneBinderObject) {
    const sp<IBase> first = new StubDesktop();
    const sp<IBase> second = new StubDesktop();
    const sp<IBinder> binder = getOrCreateCachedBinder(first.get());
    ASSERT_NE(nullptr, binder);
    EXPECT_EQ(binder, getOrCreateCachedBinder(first.get()));
    EXPECT_NE(binder, getOrCreateCachedBinder(second.get()));
}

TEST(HidlBinderTest, ThreadsGetTheSameBinderObject) {
    const sp<IBase> object = new StubDesktop();
    std::array<sp<IBinder>, 8> binders;
    std::vector<std::thread> threads;
    for (sp<IBinder>& binder : binders) {
        threads.emplace_back([&] { binder = getOrCreateCachedBinder(object.get()); });
    }
    for (std::thread& thread : threads) thread.join();
    for (const sp<IBinder>& binder : binders) EXPECT_EQ(binders[0], binder);
}

TEST(HidlBinderTest, TheBinderObjectKeepsItsImplementation) {
    sp<StubDesktop> desktop = new StubDesktop();
    const wp<StubDesktop> weak = desktop;
    sp<IBinder> binder = getOrCreateCachedBinder(desktop.get());
    desktop = nullptr;
    EXPECT_NE(nullptr, weak.promote());
    binder = nullptr;
    EXPECT_EQ(nullptr, weak.promote());
}

TEST(HidlBinderTest, IsMadeAnewOnceReleased) {
    const sp<IBase> object = new StubDesktop();
    getOrCreateCachedBinder(object.get());
    EXPECT_EQ(nullptr, details::gBnMap->get(object.get(), nullptr).promote());
    EXPECT_NE(nullptr, getOrCreateCachedBinder(object.get()));
}

TEST(HidlBinderTest, AnUnknownInterfaceHasNone) {
    const sp<IBase> unknown = new UnknownObject();
    EXPECT_EQ(nullptr, getOrCreateCachedBinder(unknown.get()));
}

TEST(HidlBinderTest, LeadsBackToTheImplementation) {
    const sp<StubDesktop> desktop = new StubDesktop();
    const sp<IBinder> binder = getOrCreateCachedBinder(desktop.get());
    const sp<V1::ICameraDesktop> v1 =
            fromBinder<V1::ICameraDesktop, V1::BpHwCameraDesktop, V1::BnHwCameraDesktop>(binder);
    EXPECT_EQ(desktop.get(), v1.get());
    const sp<IBase> base = fromBinder<IBase, BpHwBase, BnHwBase>(binder);
    EXPECT_EQ(desktop.get(), base.get());
}

TEST(HidlBinderTest, LeadsToNothingElse) {
    const sp<IBase> desktop = new StubDesktop();
    const sp<IBinder> binder = getOrCreateCachedBinder(desktop.get());
    EXPECT_EQ(nullptr, (fromBinder<V1::ICameraDesktopCallback, V1::BpHwCameraDesktopCallback,
                                   V1::BnHwCameraDesktopCallback>(binder)));
    EXPECT_EQ(nullptr, (fromBinder<IBase, BpHwBase, BnHwBase>(nullptr)));
}

// Calls through a proxy, which here leads to an object of the same process: everything but the
// driver takes part. No results in buffers: with no driver to send them, they would be read only
// after the implementation has freed them.

class HidlProxyTest : public testing::Test {
  protected:
    template <typename Proxy = BpHwCameraDesktop>
    sp<Proxy> proxyOf(const sp<IBase>& object) {
        return new Proxy(getOrCreateCachedBinder(object.get()));
    }

    const sp<StubDesktop> mDesktop = new StubDesktop();
    const sp<BpHwCameraDesktop> mProxy = proxyOf(mDesktop);
};

TEST_F(HidlProxyTest, IsRemote) {
    EXPECT_TRUE(mProxy->isRemote());
}

TEST_F(HidlProxyTest, ServesTheParentsMethods) {
    const sp<V1::BpHwCameraDesktop> v1 = proxyOf<V1::BpHwCameraDesktop>(mDesktop);
    ASSERT_TRUE(v1->registerSyncCallback(V1::ClientTypes::LAUNCHER, makeCallback()).isOk());
    EXPECT_NE(nullptr, mDesktop->callbacks[ClientType::LAUNCHER]);
    ASSERT_TRUE(mProxy->setOutputSurface(nullptr).isOk());
}

TEST_F(HidlProxyTest, BringsEnumValuesThatTheInterfaceDoesNotKnow) {
    const auto unknown = static_cast<ClientType>(200);
    ASSERT_TRUE(mProxy->registerCallback(unknown, nullptr).isOk());
    EXPECT_EQ(1u, mDesktop->callbacks.count(unknown));
}

TEST_F(HidlProxyTest, BringsObjectsAsThemselves) {
    const sp<StubCallback> callback = makeCallback();
    ASSERT_TRUE(mProxy->registerCallback(ClientType::STREAM, callback).isOk());
    EXPECT_EQ(callback.get(), mDesktop->callbacks[ClientType::STREAM].get());
}

TEST_F(HidlProxyTest, BringsNullObjects) {
    mDesktop->callbacks[ClientType::STREAM] = makeCallback();
    ASSERT_TRUE(mProxy->registerCallback(ClientType::STREAM, nullptr).isOk());
    EXPECT_EQ(nullptr, mDesktop->callbacks[ClientType::STREAM]);
    const Return<StubDesktop::SurfaceV1> surface = mProxy->getSurface(ClientType::STREAM);
    ASSERT_TRUE(surface.isOk());
    EXPECT_EQ(nullptr, static_cast<StubDesktop::SurfaceV1>(surface));
}

TEST_F(HidlProxyTest, EqualsAnotherProxyOfTheSameObject) {
    const sp<IBase> second = proxyOf<V1::BpHwCameraDesktop>(mDesktop);
    const sp<IBase> other = proxyOf(new StubDesktop());
    EXPECT_NE(second.get(), mProxy.get());
    EXPECT_TRUE(interfacesEqual(mProxy, second));
    EXPECT_FALSE(interfacesEqual(mProxy, other));
    EXPECT_FALSE(interfacesEqual(mProxy, nullptr));
    EXPECT_TRUE(interfacesEqual(nullptr, nullptr));
    EXPECT_TRUE(interfacesEqual(mDesktop, mDesktop));
    EXPECT_FALSE(interfacesEqual(mDesktop, new StubDesktop()));
}

TEST_F(HidlProxyTest, RefusesToCallWithoutAReplyFunction) {
    const Return<void> result = mProxy->sendCommand(ClientType::STREAM, "", nullptr);
    EXPECT_FALSE(result.isOk());
    EXPECT_FALSE(result.isDeadObject());
    EXPECT_NE(std::string::npos, result.description().find("EX_ILLEGAL_ARGUMENT"));
}

TEST_F(HidlProxyTest, IsRefusedByAnObjectOfAnotherInterface) {
    const sp<V1::BpHwCameraDesktopCallback> wrong =
            proxyOf<V1::BpHwCameraDesktopCallback>(mDesktop);
    const Return<void> result = wrong->onCommand("", [](const hidl_string&) { FAIL(); });
    EXPECT_FALSE(result.isOk());
    EXPECT_NE(std::string::npos, result.description().find("BAD_TYPE")) << result.description();
}

TEST_F(HidlProxyTest, TellsHowACallIsRefused) {
    IBinder* const binder = mProxy->remote();
    Parcel empty;
    Parcel reply;
    EXPECT_EQ(UNKNOWN_TRANSACTION, binder->transact(99, empty, &reply));
    EXPECT_EQ(BAD_TYPE, binder->transact(6 /* sendCommand */, empty, &reply));
    EXPECT_EQ(UNKNOWN_ERROR, binder->transact(6, empty, &reply, IBinder::FLAG_ONEWAY));

    Parcel cut;
    cut.writeInterfaceToken(ICameraDesktop::descriptor);
    EXPECT_EQ(NOT_ENOUGH_DATA, binder->transact(6, cut, &reply));
}

TEST_F(HidlProxyTest, ANullTextIsAnExceptionOfTheObject) {
    Parcel data;
    data.writeInterfaceToken(ICameraDesktop::descriptor);
    data.writeUint32(3);
    data.writeBuffer(nullptr, sizeof(hidl_string), nullptr);
    Parcel reply;
    ASSERT_EQ(OK, mProxy->remote()->transact(6 /* sendCommand */, data, &reply));
    reply.setDataPosition(0);
    Status status;
    ASSERT_EQ(OK, readFromParcel(&status, reply));
    EXPECT_EQ(Status::EX_NULL_POINTER, status.exceptionCode());
}

// Calls that bring more than their method's arguments.

/** Counts the calls that reach it. */
struct CountingDesktop : StubDesktop {
    Return<SurfaceV1> getSurface(ClientType type) override {
        calls++;
        return StubDesktop::getSurface(type);
    }
    Return<void> setSurface(ClientType type, const SurfaceV1& surface) override {
        calls++;
        return StubDesktop::setSurface(type, surface);
    }

    int calls = 0;
};

class HidlSurplusTest : public HidlProxyTest {
  protected:
    static constexpr uint32_t kGetSurface = 8;
    static constexpr uint32_t kSetSurface = 7;
    static constexpr uint32_t kPing = 0x0f504e47;

    HidlSurplusTest() {
        mCall.writeInterfaceToken(ICameraDesktop::descriptor);
        mCall.writeUint8(4);
    }

    status_t call(uint32_t code) { return mBinder->transact(code, mCall, &mReply); }

    const sp<CountingDesktop> mCounting = new CountingDesktop();
    const sp<IBinder> mBinder = getOrCreateCachedBinder(mCounting.get());
    const sp<IBinder> mSurplus = new BHwBinder();
    Parcel mCall;
    Parcel mReply;
};

TEST_F(HidlSurplusTest, AMoreDescriptorIsRefusedBeforeTheMethodRuns) {
    native_handle_t* const handle = native_handle_create(1, 0);
    handle->data[0] = 0;
    ASSERT_EQ(OK, mCall.writeNativeHandleNoDup(handle));
    EXPECT_EQ(BAD_VALUE, call(kGetSurface));
    EXPECT_EQ(0, mCounting->calls);
    native_handle_delete(handle);
}

TEST_F(HidlSurplusTest, AMoreObjectIsRefusedBeforeTheMethodRuns) {
    ASSERT_EQ(OK, mCall.writeStrongBinder(mSurplus));
    EXPECT_EQ(BAD_VALUE, call(kGetSurface));
    EXPECT_EQ(0, mCounting->calls);
}

TEST_F(HidlSurplusTest, ASecondObjectAfterTheOneAskedForIsRefused) {
    ASSERT_EQ(OK, mCall.writeStrongBinder(nullptr));
    ASSERT_EQ(OK, mCall.writeStrongBinder(mSurplus));
    EXPECT_EQ(BAD_VALUE, call(kSetSurface));
    EXPECT_EQ(0, mCounting->calls);
}

TEST_F(HidlSurplusTest, AMoreBufferIsRefused) {
    ASSERT_EQ(OK, mCall.writeBuffer("more", 5, nullptr));
    EXPECT_EQ(BAD_VALUE, call(kGetSurface));
    EXPECT_EQ(0, mCounting->calls);
}

TEST_F(HidlSurplusTest, NumbersAfterTheArgumentsDoNoHarm) {
    ASSERT_EQ(OK, mCall.writeUint64(5));
    EXPECT_EQ(OK, call(kGetSurface));
    EXPECT_EQ(1, mCounting->calls);
}

TEST_F(HidlSurplusTest, MethodsOfTheRootInterfaceRefuseItToo) {
    Parcel ping;
    ping.writeInterfaceToken(IBase::descriptor);
    EXPECT_EQ(OK, mBinder->transact(kPing, ping, &mReply));
    ASSERT_EQ(OK, ping.writeStrongBinder(mSurplus));
    EXPECT_EQ(BAD_VALUE, mBinder->transact(kPing, ping, &mReply));
}

using HidlProxyDeathTest = HidlProxyTest;

TEST_F(HidlProxyDeathTest, AnObjectThatDoesNotReplyEndsItsProcess) {
    struct Silent : StubDesktop {
        Return<void> sendCommand(ClientType, const hidl_string&, sendCommand_cb) override {
            return Void();
        }
    };
    const sp<BpHwCameraDesktop> proxy = proxyOf(new Silent());
    EXPECT_EXIT(proxy->sendCommand(ClientType::STREAM, "", [](const hidl_string&) {}).isOk(),
                testing::KilledBySignal(SIGABRT), "_hidl_cb not called");
}

TEST_F(HidlProxyDeathTest, AnObjectThatRepliesTwiceEndsItsProcess) {
    struct Talkative : StubDesktop {
        Return<void> sendCommand(ClientType, const hidl_string&, sendCommand_cb reply) override {
            reply("one");
            reply("two");
            return Void();
        }
    };
    const sp<BpHwCameraDesktop> proxy = proxyOf(new Talkative());
    EXPECT_DEATH(proxy->sendCommand(ClientType::STREAM, "", [](const hidl_string&) {}).isOk(),
                 "called a second time");
}

TEST_F(HidlProxyDeathTest, AnObjectThatReturnsAnErrorEndsItsProcess) {
    struct Failing : StubDesktop {
        Return<void> registerCallback(ClientType, const Callback&) override {
            return Status::fromExceptionCode(Status::EX_UNSUPPORTED_OPERATION, "no");
        }
    };
    const sp<BpHwCameraDesktop> proxy = proxyOf(new Failing());
    EXPECT_DEATH(proxy->registerCallback(ClientType::STREAM, nullptr).isOk(),
                 "Failed HIDL return status");
}

TEST(HidlThreadpoolDeathTest, JoiningNeedsAConfiguration) {
    EXPECT_DEATH(joinRpcThreadpool(), "without calling configureRpcThreadPool");
}

TEST(HidlThreadpoolDeathTest, ACallerCannotJoinAPoolOfNone) {
    EXPECT_DEATH(configureRpcThreadpool(0, true /* callerWillJoin */), "");
}

}  // namespace
}  // namespace hardware
}  // namespace android
