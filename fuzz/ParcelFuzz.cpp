// SPDX-License-Identifier: Apache-2.0
// Calls from processes that may send anything, to an object of each interface that others can
// reach. The input says which object and method, then how the parcel is written, value by value,
// and finally which of its bytes are changed before it is received.
#include <iterator>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include <android/hidl/manager/1.0/IServiceManager.h>
#include <gui/BufferQueue.h>
#include <gui/bufferqueue/1.0/WGraphicBufferProducer.h>
#include <hidl/HidlBinderSupport.h>
#include <hwbinder/Binder.h>
#include <hwbinder/Parcel.h>

#include "Fuzzer.h"
#include "ServiceManager.h"
#include "support/ReceivedBytes.h"
#include "support/StubDesktop.h"

namespace desktop_v1 = ::korvane::hardware::camera::desktop::V1_0;
namespace desktop_v2 = ::korvane::hardware::camera::desktop::V2_0;
using android::sp;
using android::hardware::getOrCreateCachedBinder;
using android::hardware::hidl_string;
using android::hardware::IBinder;
using android::hardware::Parcel;
using android::hidl::base::V1_0::IBase;
using korvane::fuzz::FuzzInput;
using korvane::test::ReceivedBytes;
using korvane::test::StubCallback;
using korvane::test::StubDesktop;
using Producer = android::hardware::graphics::bufferqueue::V1_0::IGraphicBufferProducer;

namespace {

constexpr int kMostValues = 24;
constexpr int kMostChanges = 8;
constexpr uint32_t kFirstRootMethod = 0x0f43484e;  // of every interface's root

struct Consumer : android::BnConsumerListener {
    void onFrameAvailable(const android::BufferItem&) override {}
    void onBuffersReleased() override {}
    void onSidebandStreamChanged() override {}
};

/** A queue and its producer end. */
class Queue {
  public:
    Queue() {
        sp<android::IGraphicBufferProducer> producer;
        android::BufferQueue::createBufferQueue(&producer, &mConsumer);
        mConsumer->consumerConnect(new Consumer, false);
        mConsumer->setDefaultBufferSize(16, 16);
        producer->setDequeueTimeout(0);
        mProducer = new android::TWGraphicBufferProducer<Producer>(producer);
    }
    ~Queue() { mConsumer->consumerDisconnect(); }

    const sp<Producer>& producer() const { return mProducer; }

  private:
    sp<android::IGraphicBufferConsumer> mConsumer;
    sp<Producer> mProducer;
};

const char* const kTokens[] = {desktop_v1::ICameraDesktop::descriptor,
                               desktop_v2::ICameraDesktop::descriptor,
                               desktop_v1::ICameraDesktopCallback::descriptor,
                               Producer::descriptor,
                               android::hidl::manager::V1_0::IServiceManager::descriptor,
                               IBase::descriptor,
                               ""};

sp<StubCallback> makeCallback() {
    return new StubCallback([](const std::string& command) { return command; });
}

/** A parcel written as the input says. What it refers to lives as long as it does. */
class WrittenParcel {
  public:
    explicit WrittenParcel(FuzzInput& input) {
        mParcel.writeInterfaceToken(kTokens[input.take<uint8_t>() % std::size(kTokens)]);
        for (int i = input.take<uint8_t>() % kMostValues; i > 0 && !input.empty(); i--) {
            writeValue(input);
        }
    }
    ~WrittenParcel() {
        for (native_handle_t* const handle : mHandles) {
            native_handle_close(handle);
            native_handle_delete(handle);
        }
    }

    const Parcel& parcel() const { return mParcel; }

  private:
    void writeValue(FuzzInput& input) {
        const uint8_t what = input.take<uint8_t>();
        switch (what % 9) {
            case 0:
                mParcel.writeInt32(input.take<int32_t>());
                break;
            case 1:
                mParcel.writeInt64(input.take<int64_t>());
                break;
            case 2:
                mParcel.writeBool(what & 0x80);
                break;
            case 3:
                writeString(input);
                break;
            case 4:
                mParcel.writeNativeHandleNoDup(makeHandle(input));
                break;
            case 5:
                mParcel.writeStrongBinder(nullptr);
                break;
            case 6:
                mParcel.writeStrongBinder(makeObject(what));
                break;
            case 7:
                writeBuffer(input);
                break;
            default:
                writeEmbedded(input);
                break;
        }
    }

    void writeString(FuzzInput& input) {
        mStrings.push_back(std::make_unique<hidl_string>(input.text()));
        const hidl_string& string = *mStrings.back();
        mParcel.writeBuffer(&string, sizeof(string), &mParent);
        // The runtime's layout of a string: its characters are a buffer of their own.
        mParcel.writeEmbeddedBuffer(string.c_str(), string.size() + 1, nullptr, mParent, 0);
    }

    void writeBuffer(FuzzInput& input) {
        mBuffers.push_back(
                std::make_unique<std::vector<uint8_t>>(input.bytes(input.take<uint8_t>())));
        mBuffers.back()->resize((mBuffers.back()->size() + 7) / 8 * 8 + 8);
        mParcel.writeBuffer(mBuffers.back()->data(), mBuffers.back()->size(), &mParent);
        mParentSize = mBuffers.back()->size();
    }

    /** Within the latest buffer, where an address fits. */
    void writeEmbedded(FuzzInput& input) {
        if (mParentSize == 0) return;
        const size_t offset = input.take<uint8_t>() % (mParentSize / 8) * 8;
        const size_t parent = mParent;
        if (input.take<uint8_t>() % 4 == 0) {
            native_handle_t* const handle = makeHandle(input);
            if (handle != nullptr) mParcel.writeEmbeddedNativeHandle(handle, parent, offset);
            return;
        }
        mBuffers.push_back(
                std::make_unique<std::vector<uint8_t>>(input.bytes(input.take<uint8_t>())));
        mBuffers.back()->resize(mBuffers.back()->size() + 1);
        mParcel.writeEmbeddedBuffer(mBuffers.back()->data(), mBuffers.back()->size(), nullptr,
                                    parent, offset);
    }

    native_handle_t* makeHandle(FuzzInput& input) {
        const int descriptors = input.take<uint8_t>() % 3;
        const int ints = input.take<uint8_t>() % 12;
        native_handle_t* const handle = native_handle_create(descriptors, ints);
        if (handle == nullptr) return nullptr;
        for (int i = 0; i < descriptors; i++) {
            handle->data[i] = memfd_create("fuzz", MFD_CLOEXEC);
            if (ftruncate(handle->data[i], input.take<uint8_t>() * 64) != 0) abort();
        }
        for (int i = 0; i < ints; i++) handle->data[descriptors + i] = input.take<int32_t>();
        mHandles.push_back(handle);
        return handle;
    }

    static sp<IBinder> makeObject(uint8_t what) {
        if (what & 0x80) return new android::hardware::BHwBinder;
        if (what & 0x40) return getOrCreateCachedBinder(new StubDesktop);
        return getOrCreateCachedBinder(makeCallback().get());
    }

    Parcel mParcel;
    size_t mParent = 0;
    size_t mParentSize = 0;
    std::vector<std::unique_ptr<hidl_string>> mStrings;
    std::vector<std::unique_ptr<std::vector<uint8_t>>> mBuffers;
    std::vector<native_handle_t*> mHandles;
};

void damage(FuzzInput& input, ReceivedBytes* bytes) {
    for (int i = input.take<uint8_t>() % kMostChanges; i > 0 && !input.empty(); i--) {
        if (bytes->size() == 0) return;
        bytes->data()[input.take<uint16_t>() % bytes->size()] ^= input.take<uint8_t>();
    }
}

void call(const sp<IBinder>& object, FuzzInput& input) {
    const uint8_t method = input.take<uint8_t>();
    const uint32_t code = method & 0x80 ? kFirstRootMethod + (method & 0x7f) : method % 32;
    const uint32_t flags = input.take<uint8_t>() % 4 == 0 ? 1 : 0;
    const WrittenParcel written(input);
    ReceivedBytes bytes(written.parcel());
    damage(input, &bytes);
    Parcel data;
    if (bytes.deliver(&data) != android::OK) return;
    Parcel reply;
    object->transact(code, data, &reply, flags, [](Parcel&) {});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const Queue queue;
    const sp<IBase> interfaces[] = {new StubDesktop, makeCallback(), queue.producer(),
                                    new android::ServiceManager};
    const sp<IBase> interface = interfaces[input.take<uint8_t>() % std::size(interfaces)];
    const sp<IBinder> object = getOrCreateCachedBinder(interface.get());
    // The second call finds what the first one has left behind.
    for (int calls = 0; calls < 3 && !input.empty(); calls++) call(object, input);
    return 0;
}
