// SPDX-License-Identifier: Apache-2.0
// Calls of every method with all kinds of malformed parcels.
#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>

#include <android/hidl/manager/1.0/IServiceManager.h>
#include <cutils/native_handle.h>
#include <hidl/HidlBinderSupport.h>
#include <hidl/ServiceManagement.h>
#include <hwbinder/Binder.h>
#include <hwbinder/Parcel.h>

#include "Scenario.h"

namespace korvane::hostile {

using android::sp;
using android::status_t;
using android::hardware::BHwBinder;
using android::hardware::IBinder;
using android::hardware::Parcel;

namespace {

constexpr int kCalls = 4000;

// Those of the root interface.
constexpr std::array<uint32_t, 10> kRootCodes = {0x0f504e47, 0x0f43484e, 0x0f445343, 0x0f535953,
                                                 0x0f4c5444, 0x0f555444, 0x0f494e54, 0x0f524546,
                                                 0x0f444247, 0x0f485348};

/** An object to call, and what its calls look like. */
struct Target {
    sp<IBinder> binder;
    std::vector<std::string> descriptors;
    uint32_t lastCode;
    /** The kinds that methods are called for, by code, where not every kind will do. */
    std::map<uint32_t, std::vector<uint8_t>> kinds;
};

/** Makes one call after another; the same seed gives the same calls. */
class Caller {
  public:
    explicit Caller(unsigned long seed) : mRandom(seed) {}

    status_t call(const Target& target) {
        Parcel data;
        Parcel reply;
        const uint32_t code = someCode(target);
        mBuffers.clear();
        mHandles.clear();
        const size_t tokens = target.descriptors.size();
        if (!one(8)) data.writeInterfaceToken(target.descriptors[below(tokens)].c_str());
        const auto kinds = target.kinds.find(code);
        if (kinds != target.kinds.end())
            data.writeUint8(kinds->second[below(kinds->second.size())]);
        for (uint32_t i = below(7); i > 0; i--) add(&data);
        const uint32_t flags = one(16) ? below(256) | IBinder::FLAG_ONEWAY : 0;
        return target.binder->transact(code, data, &reply, flags);
    }

  private:
    uint32_t below(size_t bound) {
        return std::uniform_int_distribution<uint32_t>(0,
                                                       static_cast<uint32_t>(bound - 1))(mRandom);
    }
    bool one(size_t of) { return below(of) == 0; }

    uint32_t someCode(const Target& target) {
        switch (below(12)) {
            case 0:
                return kRootCodes[below(kRootCodes.size())];
            case 1:
                return target.lastCode + 1 + below(1000);
            default:
                return 1 + below(target.lastCode);
        }
    }

    uint64_t someNumber() {
        static constexpr std::array<uint64_t, 9> kInteresting = {
                0, 1, 2, 3, 64, 0x7fffffff, 0x80000000, 0xffffffff, 0x7fffffffffffffff};
        return one(2) ? kInteresting[below(kInteresting.size())] : mRandom();
    }

    /** Bytes that live until the call is over. */
    std::vector<uint8_t>& someBytes() {
        static constexpr std::array<size_t, 10> kSizes = {0, 1, 8, 16, 40, 56, 72, 88, 200, 5000};
        const size_t size = one(3) ? below(300) : kSizes[below(kSizes.size())];
        mBuffers.push_back(std::make_unique<std::vector<uint8_t>>(size + 8));
        std::vector<uint8_t>& bytes = *mBuffers.back();
        if (one(2)) std::generate(bytes.begin(), bytes.end(), [this] { return mRandom() & 0xff; });
        bytes.resize(size);
        return bytes;
    }

    const native_handle_t* someHandle() {
        const int fds = one(8) ? 200 : static_cast<int>(below(4));
        const int ints = static_cast<int>(below(20));
        native_handle_t* const handle = native_handle_create(fds, ints);
        for (int i = 0; i < fds; i++) handle->data[i] = mFd;
        for (int i = 0; i < ints; i++) handle->data[fds + i] = static_cast<int>(someNumber());
        mHandles.emplace_back(handle, native_handle_delete);
        return handle;
    }

    void add(Parcel* data) {
        switch (below(9)) {
            case 0:
                data->writeUint8(static_cast<uint8_t>(someNumber()));
                break;
            case 1:
            case 2:
                data->writeUint32(static_cast<uint32_t>(someNumber()));
                break;
            case 3:
                data->writeUint64(someNumber());
                break;
            case 4:
                addText(data);
                break;
            case 5:
                addBuffers(data);
                break;
            case 6:
                data->writeNativeHandleNoDup(one(4) ? nullptr : someHandle());
                break;
            case 7:
                data->writeStrongBinder(one(3) ? nullptr : mObject);
                break;
            default:
                data->writeCString(std::string(below(100), 'x').c_str());
        }
    }

    /** A well-formed text, or one that is longer or shorter than it says. */
    void addText(Parcel* data) {
        static const std::array<android::hardware::hidl_string, 4> kTexts = {
                "", "default", "{\"get-stream-config\":true}", "{\"create-surface\":{}}"};
        const auto& text = kTexts[below(kTexts.size())];
        size_t parent = 0;
        data->writeBuffer(&text, sizeof(text), &parent);
        data->writeEmbeddedBuffer(text.c_str(), text.size() + (one(4) ? 0 : 1), nullptr, parent, 0);
    }

    void addBuffers(Parcel* data) {
        const std::vector<uint8_t>& outer = someBytes();
        size_t parent = 0;
        data->writeBuffer(outer.data(), outer.size(), &parent);
        for (uint32_t i = below(3); i > 0; i--) {
            const std::vector<uint8_t>& inner = someBytes();
            const size_t offset = outer.empty() ? 0 : below(outer.size());
            if (one(2)) {
                data->writeEmbeddedBuffer(inner.data(), inner.size(), nullptr, parent, offset);
            } else {
                data->writeEmbeddedNativeHandle(someHandle(), parent, offset);
            }
        }
    }

    std::mt19937_64 mRandom;
    std::vector<std::unique_ptr<std::vector<uint8_t>>> mBuffers;
    std::vector<std::unique_ptr<native_handle_t, int (*)(native_handle_t*)>> mHandles;
    const sp<BHwBinder> mObject = new BHwBinder();
    const int mFd = open("/dev/null", O_RDWR | O_CLOEXEC);
};

/** Everything that can be called; the surface only while there is one. */
std::vector<Target> targets() {
    const Service desktop = service();
    const auto binderOf = [](auto* interface) {
        return android::hardware::getOrCreateCachedBinder(interface);
    };
    std::vector<Target> all;
    // A command to a kind that doesn't exist is never answered, which ends the daemon, as it must.
    // And kinds have no owner: whoever takes the controller's (4) ends the webcam with it.
    const std::vector<uint8_t> anyButTheControllers = {0, 1, 2, 3, 5, 6, 7, 8, 200};
    all.push_back({binderOf(desktop.get()),
                   {desktop_v2::ICameraDesktop::descriptor, desktop_v1::ICameraDesktop::descriptor,
                    android::hidl::base::V1_0::IBase::descriptor},
                   8,
                   {{4, {0, 1, 2}},
                    {5, anyButTheControllers},
                    {6, {0, 1, 2, 3, 4, 5, 6, 7}},
                    {7, anyButTheControllers}}});
    all.push_back({binderOf(android::hardware::defaultServiceManager().get()),
                   {android::hidl::manager::V1_0::IServiceManager::descriptor,
                    android::hidl::base::V1_0::IBase::descriptor},
                   8,
                   {}});
    const android::hardware::Return<Surface> surface =
            desktop->getSurface(ClientType::WEBCAM_CONTROLLER);
    const Surface queue = surface.isOk() ? static_cast<Surface>(surface) : nullptr;
    if (queue != nullptr) {
        all.push_back({binderOf(queue.get()),
                       {queue->descriptor, android::hidl::base::V1_0::IBase::descriptor},
                       23,
                       {}});
    }
    return all;
}

}  // namespace

bool callAtRandom(const std::string& seed) {
    Caller caller(number(seed));
    const std::vector<Target> all = targets();
    std::map<status_t, int> seen;
    for (int i = 0; i < kCalls; i++) {
        const status_t status = caller.call(all[static_cast<size_t>(i) % all.size()]);
        seen[status]++;
        if (status == android::DEAD_OBJECT) {
            return wrong("call " + std::to_string(i) + " of seed " + seed + " found a dead object");
        }
    }
    std::string counts;
    for (const auto& [status, count] : seen) {
        counts += " " + std::to_string(status) + ":" + std::to_string(count);
    }
    say(std::to_string(all.size()) + " targets, seed " + seed + ", statuses" + counts);
    return true;
}

}  // namespace korvane::hostile
