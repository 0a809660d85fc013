// SPDX-License-Identifier: Apache-2.0
// By which number each method of the interfaces travels, and under which interface's name. They are
// what the other side is built with, wherever it comes from: reordering a method breaks it.

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <hwbinder/IBinder.h>
#include <hwbinder/Parcel.h>
#include <android/hardware/graphics/bufferqueue/1.0/BpHwGraphicBufferProducer.h>
#include <android/hardware/graphics/bufferqueue/1.0/BpHwProducerListener.h>
#include <android/hardware/graphics/bufferqueue/2.0/BpHwGraphicBufferProducer.h>
#include <android/hardware/graphics/bufferqueue/2.0/BpHwProducerListener.h>
#include <android/hidl/base/1.0/BpHwBase.h>
#include <android/hidl/manager/1.0/BpHwServiceManager.h>
#include <android/hidl/manager/1.0/BpHwServiceNotification.h>
#include <korvane/hardware/camera/desktop/1.0/BpHwCameraDesktopCallback.h>
#include <korvane/hardware/camera/desktop/2.0/BpHwCameraDesktop.h>

namespace android {
namespace hardware {
namespace {

namespace BufferQueueV1 = graphics::bufferqueue::V1_0;
namespace BufferQueueV2 = graphics::bufferqueue::V2_0;
namespace DesktopV1 = ::korvane::hardware::camera::desktop::V1_0;
namespace DesktopV2 = ::korvane::hardware::camera::desktop::V2_0;
using hidl::base::V1_0::BpHwBase;
using hidl::base::V1_0::IBase;
using hidl::manager::V1_0::BpHwServiceManager;
using hidl::manager::V1_0::BpHwServiceNotification;

struct Sent {
    std::string interface;
    uint32_t code;
    bool oneway;

    bool operator==(const Sent& other) const {
        return interface == other.interface && code == other.code && oneway == other.oneway;
    }
};

void PrintTo(const Sent& sent, std::ostream* out) {
    *out << sent.interface << " " << sent.code << (sent.oneway ? " oneway" : "");
}

/** Notes what is sent to it and answers nothing. */
class RecordingBinder : public IBinder {
  public:
    status_t transact(uint32_t code, const Parcel& data, Parcel*, uint32_t flags,
                      TransactCallback) override {
        data.setDataPosition(0);
        const char* interface = data.readCString();
        sent.push_back({interface == nullptr ? "" : interface, code, (flags & FLAG_ONEWAY) != 0});
        return DEAD_OBJECT;
    }
    status_t linkToDeath(const sp<DeathRecipient>&, void*, uint32_t) override { return OK; }
    status_t unlinkToDeath(const wp<DeathRecipient>&, void*, uint32_t,
                           wp<DeathRecipient>*) override {
        return OK;
    }
    std::vector<Sent> sent;
};

struct NoRecipient : hidl_death_recipient {
    void serviceDied(uint64_t, const wp<IBase>&) override {}
};

class HidlMethodCodesTest : public testing::Test {
  protected:
    template <typename Proxy>
    sp<Proxy> make() {
        return new Proxy(mBinder);
    }

    /** One method has been called: the next one is the one at this code, of that interface. */
    void expect(const std::string& interface, uint32_t code, const details::return_status& result,
                bool oneway = false) {
        EXPECT_FALSE(result.isOk());
        mExpected.push_back({interface, code, oneway});
    }

    void TearDown() override { EXPECT_EQ(mExpected, mBinder->sent); }

    const sp<RecordingBinder> mBinder = new RecordingBinder();
    std::vector<Sent> mExpected;
};

/** For the many methods with results: a function that takes any, and must not be called. */
const auto never = [](const auto&...) { ADD_FAILURE() << "a result without a reply"; };

TEST_F(HidlMethodCodesTest, OfTheRootInterface) {
    const auto base = make<BpHwBase>();
    const char* const name = IBase::descriptor;
    ASSERT_STREQ("android.hidl.base@1.0::IBase", name);
    expect(name, 0x0f504e47, base->ping());
    expect(name, 0x0f43484e, base->interfaceChain(never));
    expect(name, 0x0f445343, base->interfaceDescriptor(never));
    expect(name, 0x0f535953, base->notifySyspropsChanged(), true);
    expect(name, 0x0f494e54, base->setHALInstrumentation(), true);
    expect(name, 0x0f524546, base->getDebugInfo(never));
    expect(name, 0x0f444247, base->debug(nullptr, {}));
    expect(name, 0x0f485348, base->getHashChain(never));
}

TEST_F(HidlMethodCodesTest, LinksToDeathAreNotSentAsCalls) {
    const auto base = make<BpHwBase>();
    const sp<NoRecipient> recipient = new NoRecipient();
    EXPECT_TRUE(base->linkToDeath(recipient, 1));
    EXPECT_TRUE(base->unlinkToDeath(recipient));
}

TEST_F(HidlMethodCodesTest, OfTheRegister) {
    const auto manager = make<BpHwServiceManager>();
    const std::string name = "android.hidl.manager@1.0::IServiceManager";
    expect(name, 1, manager->get("", ""));
    expect(name, 2, manager->add("", nullptr));
    expect(name, 3, manager->getTransport("", ""));
    expect(name, 4, manager->list(never));
    expect(name, 5, manager->listByInterface("", never));
    expect(name, 6, manager->registerForNotifications("", "", nullptr));
    expect(name, 7, manager->debugDump(never));
    expect(name, 8, manager->registerPassthroughClient("", ""));
    const auto listener = make<BpHwServiceNotification>();
    expect("android.hidl.manager@1.0::IServiceNotification", 1,
           listener->onRegistration("", "", true), true);
}

TEST_F(HidlMethodCodesTest, OfTheFirstBufferQueue) {
    const auto queue = make<BufferQueueV1::BpHwGraphicBufferProducer>();
    const std::string name = "android.hardware.graphics.bufferqueue@1.0::IGraphicBufferProducer";
    using Queue = BufferQueueV1::IGraphicBufferProducer;
    const auto format = graphics::common::V1_0::PixelFormat::BLOB;
    expect(name, 1, queue->requestBuffer(0, never));
    expect(name, 2, queue->setMaxDequeuedBufferCount(0));
    expect(name, 3, queue->setAsyncMode(true));
    expect(name, 4, queue->dequeueBuffer(0, 0, format, 0, false, never));
    expect(name, 5, queue->detachBuffer(0));
    expect(name, 6, queue->detachNextBuffer(never));
    expect(name, 7, queue->attachBuffer({}, never));
    expect(name, 8, queue->queueBuffer(0, {}, never));
    expect(name, 9, queue->cancelBuffer(0, nullptr));
    expect(name, 10, queue->query(0, never));
    expect(name, 11, queue->connect(nullptr, 0, false, never));
    expect(name, 12, queue->disconnect(0, Queue::DisconnectMode::API));
    expect(name, 13, queue->setSidebandStream(nullptr));
    expect(name, 14, queue->allocateBuffers(0, 0, format, 0));
    expect(name, 15, queue->allowAllocation(true));
    expect(name, 16, queue->setGenerationNumber(0));
    expect(name, 17, queue->getConsumerName(never));
    expect(name, 18, queue->setSharedBufferMode(true));
    expect(name, 19, queue->setAutoRefresh(true));
    expect(name, 20, queue->setDequeueTimeout(0));
    expect(name, 21, queue->getLastQueuedBuffer(never));
    expect(name, 22, queue->getFrameTimestamps(never));
    expect(name, 23, queue->getUniqueId(never));
    const auto listener = make<BufferQueueV1::BpHwProducerListener>();
    const std::string listenerName = "android.hardware.graphics.bufferqueue@1.0::IProducerListener";
    expect(listenerName, 1, listener->onBufferReleased(), true);
    expect(listenerName, 2, listener->needsReleaseNotify());
}

TEST_F(HidlMethodCodesTest, OfTheSecondBufferQueue) {
    const auto queue = make<BufferQueueV2::BpHwGraphicBufferProducer>();
    const std::string name = "android.hardware.graphics.bufferqueue@2.0::IGraphicBufferProducer";
    const auto api = BufferQueueV2::ConnectionType::CPU;
    expect(name, 1, queue->setMaxDequeuedBufferCount(0));
    expect(name, 2, queue->requestBuffer(0, never));
    expect(name, 3, queue->setAsyncMode(true));
    expect(name, 4, queue->dequeueBuffer({}, never));
    expect(name, 5, queue->detachBuffer(0));
    expect(name, 6, queue->detachNextBuffer(never));
    expect(name, 7, queue->attachBuffer({}, 0, never));
    expect(name, 8, queue->queueBuffer(0, {}, never));
    expect(name, 9, queue->cancelBuffer(0, nullptr));
    expect(name, 10, queue->query(0, never));
    expect(name, 11, queue->connect(nullptr, api, false, never));
    expect(name, 12, queue->disconnect(api));
    expect(name, 13, queue->allocateBuffers(0, 0, 0, 0));
    expect(name, 14, queue->allowAllocation(true));
    expect(name, 15, queue->setGenerationNumber(0));
    expect(name, 16, queue->setDequeueTimeout(0));
    expect(name, 17, queue->getUniqueId());
    expect(name, 18, queue->getConsumerName(never));
    const auto listener = make<BufferQueueV2::BpHwProducerListener>();
    expect("android.hardware.graphics.bufferqueue@2.0::IProducerListener", 1,
           listener->onBuffersReleased(1), true);
}

TEST_F(HidlMethodCodesTest, OfTheDesktopCameraWhoseParentKeepsItsName) {
    const auto desktop = make<DesktopV2::BpHwCameraDesktop>();
    const std::string first = "korvane.hardware.camera.desktop@1.0::ICameraDesktop";
    const std::string second = "korvane.hardware.camera.desktop@2.0::ICameraDesktop";
    const auto type = DesktopV2::ClientType::STREAM;
    expect(first, 1, desktop->registerSyncCallback(DesktopV1::ClientTypes::LAUNCHER, nullptr));
    expect(first, 2, desktop->setOutputSurface(nullptr));
    expect(first, 3, desktop->getOutputSurface());
    expect(first, 4, desktop->setCommands(DesktopV1::ClientTypes::LAUNCHER, "", never));
    expect(second, 5, desktop->registerCallback(type, nullptr));
    expect(second, 6, desktop->sendCommand(type, "", never));
    expect(second, 7, desktop->setSurface(type, nullptr));
    expect(second, 8, desktop->getSurface(type));
    const auto callback = make<DesktopV1::BpHwCameraDesktopCallback>();
    expect("korvane.hardware.camera.desktop@1.0::ICameraDesktopCallback", 1,
           callback->onCommand("", never));
}

}  // namespace
}  // namespace hardware
}  // namespace android
