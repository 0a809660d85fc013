// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "CameraDesktopHal"

#include "CameraDesktop.h"

#include <string>
#include <utility>

#include <unistd.h>

#include <hwbinder/IPCThreadState.h>
#include <log/log.h>

#include "DebugCommand.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

using ::android::sp;
using ::android::wp;
using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::IPCThreadState;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ::android::hidl::base::V1_0::IBase;
using V1_0::ICameraDesktopCallback;

using OutputSurface = bufferqueue::V2_0::IGraphicBufferProducer;
using Surface = bufferqueue::V1_0::IGraphicBufferProducer;

namespace {

// The kinds that version 1.0 of the interface knows.
constexpr uint8_t kSyncClientKinds = 3;

ClientType fromSyncClient(V1_0::ClientTypes type, uint8_t invalidKind) {
    const auto kind = static_cast<uint8_t>(type);
    if (kind < kSyncClientKinds) return static_cast<ClientType>(kind);
    ALOGE("Unknown client type: %d", kind);
    return static_cast<ClientType>(invalidKind);
}

// This process when the call came from within.
pid_t callingPid() {
    const IPCThreadState* state = IPCThreadState::selfOrNull();
    return state == nullptr ? getpid() : state->getCallingPid();
}

void noteClient(ServiceStats& stats, uint8_t kind, bool there) {
    if (there) {
        stats.clientRegistered(kind, callingPid());
    } else {
        stats.clientGone(kind, Event::CLIENT_LEFT);
    }
}

}  // namespace

CameraDesktop::CameraDesktop() : mHandler(new UvcGadgetHandler()) {}

Return<void> CameraDesktop::registerSyncCallback(V1_0::ClientTypes type,
                                                 const sp<ICameraDesktopCallback>& callback) {
    return registerCallback(fromSyncClient(type, kClientKinds), callback);
}

Return<void> CameraDesktop::setOutputSurface(const sp<OutputSurface>& surface) {
    ALOGI("Registering output surface ptr: %p", surface.get());
    sp<OutputSurface> replaced = surface;
    std::lock_guard<std::mutex> guard(mLock);
    std::swap(mOutputSurface, replaced);
    return Void();
}

Return<sp<OutputSurface>> CameraDesktop::getOutputSurface() {
    std::lock_guard<std::mutex> guard(mLock);
    return mOutputSurface;
}

Return<void> CameraDesktop::setCommands(V1_0::ClientTypes type, const hidl_string& command,
                                        setCommands_cb reply) {
    return sendCommand(fromSyncClient(type, kClientKinds), command, reply);
}

Return<void> CameraDesktop::registerCallback(ClientType type,
                                             const sp<ICameraDesktopCallback>& callback) {
    const auto kind = static_cast<uint8_t>(type);
    if (!isClientKind(kind)) return Void();

    ALOGI("Registering client %d with callback ptr: %p", kind, callback.get());
    sp<ICameraDesktopCallback> replaced = callback;
    {
        std::lock_guard<std::mutex> guard(mLock);
        std::swap(mCallbacks[kind], replaced);
    }
    mHandler->onClientChanged(type);
    noteClient(mHandler->stats(), kind, callback != nullptr);
    if (callback != nullptr) mDeathLinks.follow(kind, callback, this);
    return Void();
}

Return<void> CameraDesktop::sendCommand(ClientType type, const hidl_string& command,
                                        sendCommand_cb reply) {
    const auto kind = static_cast<uint8_t>(type);
    if (!isClientKind(kind)) return Void();

    hidl_string answer;
    const sp<ICameraDesktopCallback> callback = callbackOf(kind);
    if (callback != nullptr) {
        const Return<void> status =
                callback->onCommand(command, [&answer](const hidl_string& text) { answer = text; });
        if (!status.isOk()) {
            ALOGE("%s: Failed during binder call, isDead %d", __func__, status.isDeadObject());
            mHandler->stats().clientFailed(kind);
        }
    }
    reply(answer);
    return Void();
}

Return<void> CameraDesktop::setSurface(ClientType type, const sp<Surface>& surface) {
    const auto kind = static_cast<uint8_t>(type);
    if (!isClientKind(kind)) return Void();

    ALOGI("Registering surface ptr: %p for client %d", surface.get(), kind);
    sp<Surface> replaced = surface;
    std::lock_guard<std::mutex> guard(mLock);
    std::swap(mSurfaces[kind], replaced);
    return Void();
}

Return<sp<Surface>> CameraDesktop::getSurface(ClientType type) {
    const auto kind = static_cast<uint8_t>(type);
    if (!isClientKind(kind)) return sp<Surface>();

    std::lock_guard<std::mutex> guard(mLock);
    if (type == ClientType::WEBCAM_CONTROLLER && mSurfaces[kind] != nullptr) {
        mHandler->stats().surfaceTaken(callingPid());
    }
    return mSurfaces[kind];
}

Return<void> CameraDesktop::debug(const hidl_handle& fd, const hidl_vec<hidl_string>& options) {
    DebugCommand(*mHandler).run(fd.getNativeHandle(), options);
    return Void();
}

void CameraDesktop::serviceDied(uint64_t cookie, const wp<IBase>& who) {
    ALOGW("Service died for %lu", static_cast<unsigned long>(cookie));
    const auto kind = static_cast<uint8_t>(cookie);
    if (!isClientKind(kind)) return;

    mDeathLinks.forget(kind, who.promote());
    mHandler->stats().clientGone(kind, Event::CLIENT_DIED);
    sp<Surface> surface;
    sp<ICameraDesktopCallback> callback;
    {
        std::lock_guard<std::mutex> guard(mLock);
        std::swap(mSurfaces[kind], surface);
        std::swap(mCallbacks[kind], callback);
    }
    mHandler->onClientChanged(static_cast<ClientType>(kind));
}

bool CameraDesktop::isClientKind(uint8_t kind) {
    if (kind < kClientKinds) return true;
    ALOGE("Invalid client id: %d", kind);
    return false;
}

sp<ICameraDesktopCallback> CameraDesktop::callbackOf(uint8_t kind) {
    std::lock_guard<std::mutex> guard(mLock);
    return mCallbacks[kind];
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
