// SPDX-License-Identifier: Apache-2.0
// Attacks through calls to the service and the register.
#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <android/hidl/manager/1.0/IServiceManager.h>
#include <cutils/native_handle.h>
#include <hidl/HidlBinderSupport.h>
#include <hidl/ServiceManagement.h>
#include <hwbinder/Parcel.h>

#include "Callback.h"
#include "Scenario.h"

namespace korvane::hostile {

using android::sp;
using android::status_t;
using android::hardware::hidl_string;
using android::hardware::Parcel;
using android::hardware::Return;
using android::hardware::Void;

namespace {

constexpr uint32_t kSendCommand = 6;
constexpr ClientType kKind = ClientType::RESERVED_5;

/** Sends a command and returns the reply; false if the call failed. */
bool send(const Service& to, ClientType kind, const std::string& command) {
    return to->sendCommand(kind, command, [](const hidl_string&) {}).isOk();
}

}  // namespace

/** Answers each command by sending the same one again. */
bool nest(const std::string&) {
    const Service target = service();
    int depth = 0;
    int failed = 0;
    const sp<Callback> callback = new Callback([&](const std::string& command) {
        depth++;
        if (!send(target, kKind, command)) failed++;
        return std::string();
    });
    if (!target->registerCallback(kKind, callback).isOk()) return wrong("can't register");
    if (!send(target, kKind, "again")) return wrong("the outermost call failed");
    say("depth " + std::to_string(depth) + ", calls refused " + std::to_string(failed));
    if (failed != 1) return wrong("one call, the innermost, must be refused");
    return depth == 64 || wrong("64 calls must be served one inside another");
}

/** Passes descriptors along with a command whose receiver never answers. */
bool bringDescriptors(const std::string& count) {
    const Service target = service();
    std::atomic<bool> isReached{false};
    const sp<Callback> silent = new Callback([&](const std::string&) -> std::string {
        isReached = true;
        hold("the call with the descriptors has reached its method");
    });
    if (!target->registerCallback(kKind, silent).isOk()) return wrong("can't register");

    Parcel call;
    Parcel reply;
    const hidl_string command("x");
    size_t parent;
    call.writeInterfaceToken(desktop_v2::ICameraDesktop::descriptor);
    call.writeUint8(static_cast<uint8_t>(kKind));
    call.writeBuffer(&command, sizeof(command), &parent);
    android::hardware::writeEmbeddedToParcel(command, &call, parent, 0);
    native_handle_t* const handle = native_handle_create(static_cast<int>(number(count)), 0);
    const int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int i = 0; i < handle->numFds; i++) handle->data[i] = fd;
    call.writeNativeHandleNoDup(handle);
    const status_t status = android::hardware::getOrCreateCachedBinder(target.get())
                                    ->transact(kSendCommand, call, &reply);
    say("status " + std::to_string(status));
    return (status == android::BAD_VALUE && !isReached) || wrong("the call must be refused");
}

namespace {

using android::hidl::manager::V1_0::IServiceManager;
using android::hidl::manager::V1_0::IServiceNotification;

struct Listener : IServiceNotification {
    Return<void> onRegistration(const hidl_string&, const hidl_string&, bool) override {
        return Void();
    }
};

}  // namespace

/** Subscribes to the register `count` times, each time with a new object. */
bool listen(const std::string& count) {
    const sp<IServiceManager> manager = android::hardware::defaultServiceManager();
    if (manager == nullptr) return wrong("there is no register");
    std::vector<sp<Listener>> all;
    unsigned long accepted = 0;
    for (unsigned long i = 0; i < number(count); i++) {
        all.push_back(new Listener());
        const Return<bool> listening = manager->registerForNotifications(
                desktop_v2::ICameraDesktop::descriptor, "nobody", all.back());
        if (!listening.isOk()) return wrong("call " + std::to_string(i) + " failed");
        accepted += listening;
    }
    say("accepted " + std::to_string(accepted) + " of " + count);
    return accepted == 64 || wrong("64 must be accepted");
}

/** Registers for a kind and never answers. */
bool beSilent(const std::string& kind) {
    const sp<Callback> silent = new Callback(
            [](const std::string& command) -> std::string { hold("silent at " + command); });
    const auto type = static_cast<ClientType>(number(kind));
    if (!service()->registerCallback(type, silent).isOk()) return wrong("can't register");
    hold("registered");
}

/** Registers the same callback `count` times. */
bool registerAgain(const std::string& count) {
    const Service target = service();
    const sp<Callback> callback = new Callback([](const std::string&) { return std::string(); });
    for (unsigned long i = 0; i < number(count); i++) {
        if (!target->registerCallback(kKind, callback).isOk()) return wrong("can't register");
    }
    hold("registered " + count + " times");
}

}  // namespace korvane::hostile
