// SPDX-License-Identifier: Apache-2.0
// The HIDL service: where the parties of webcam mode meet.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>

#include <android-base/thread_annotations.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <korvane/hardware/camera/desktop/2.0/ICameraDesktop.h>
#include <utils/StrongPointer.h>

#include "DeathLinks.h"
#include "uvc/UvcGadgetHandler.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

namespace bufferqueue = ::android::hardware::graphics::bufferqueue;

/**
 * Keeps one callback and one surface for each client kind and relays command texts between the
 * clients, without reading them. Owns the webcam controller, which is a client (kind 4) itself.
 *
 * Every method answers with a successful transport status; what is wrong with a call is logged.
 * Only the low eight bits of `type` count; a kind of kClientKinds or more is refused.
 *
 * Outside clients' calls arrive on the one HIDL thread, the controller's on its poll thread and on
 * the threads that send its events (ClientEvents), so several threads may be inside at once.
 * mLock guards the callbacks and surfaces, and is never held while a client is called or a
 * reference to one is dropped.
 */
class CameraDesktop : public V2_0::ICameraDesktop,
                      public ::android::hardware::hidl_death_recipient {
  public:
    /** Creates the webcam controller, and with it the poll thread. */
    CameraDesktop();

    // V1_0::ICameraDesktop. A V1_0 kind beyond the known ones is handed on as kClientKinds, which
    // the V2_0 method refuses in turn.
    ::android::hardware::Return<void> registerSyncCallback(
            V1_0::ClientTypes type,
            const ::android::sp<V1_0::ICameraDesktopCallback>& callback) override;
    ::android::hardware::Return<void> setOutputSurface(
            const ::android::sp<bufferqueue::V2_0::IGraphicBufferProducer>& surface) override;
    ::android::hardware::Return<::android::sp<bufferqueue::V2_0::IGraphicBufferProducer>>
    getOutputSurface() override;
    ::android::hardware::Return<void> setCommands(V1_0::ClientTypes type,
                                                  const ::android::hardware::hidl_string& command,
                                                  setCommands_cb reply) override;

    // V2_0::ICameraDesktop.

    /**
     * Replaces the callback of a kind; null clears it. The service follows the client until it
     * dies, even after another has replaced it: its death still clears the kind's callback and
     * surface (DeathLinks says how many are followed).
     */
    ::android::hardware::Return<void> registerCallback(
            ClientType type, const ::android::sp<V1_0::ICameraDesktopCallback>& callback) override;

    /**
     * Hands the command to the client of a kind, and its answer to `reply`, once: an empty text
     * when there is no such client or it can't be reached. For a kind of kClientKinds or more
     * `reply` is never called, which ends this process when the caller is another one.
     */
    ::android::hardware::Return<void> sendCommand(ClientType type,
                                                  const ::android::hardware::hidl_string& command,
                                                  sendCommand_cb reply) override;

    /** Replaces the surface of a kind; null clears it. */
    ::android::hardware::Return<void> setSurface(
            ClientType type,
            const ::android::sp<bufferqueue::V1_0::IGraphicBufferProducer>& surface) override;

    /** The surface of a kind, or null. */
    ::android::hardware::Return<::android::sp<bufferqueue::V1_0::IGraphicBufferProducer>>
    getSurface(ClientType type) override;

    // IBase.

    /** Answers people who debug, see DebugCommand. */
    ::android::hardware::Return<void>
    debug(const ::android::hardware::hidl_handle& fd,
          const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& options) override;

    /** A client died (HIDL thread): clears the callback and surface of the kind in the cookie. */
    void serviceDied(uint64_t cookie,
                     const ::android::wp<::android::hidl::base::V1_0::IBase>& who) override;

  private:
    static constexpr uint8_t kClientKinds = 8;

    /** Whether there is such a kind; logs when there isn't. */
    static bool isClientKind(uint8_t kind);

    ::android::sp<V1_0::ICameraDesktopCallback> callbackOf(uint8_t kind);

    std::mutex mLock;
    ::android::sp<bufferqueue::V2_0::IGraphicBufferProducer> mOutputSurface GUARDED_BY(mLock);
    std::array<::android::sp<bufferqueue::V1_0::IGraphicBufferProducer>, kClientKinds> mSurfaces
            GUARDED_BY(mLock);
    std::array<::android::sp<V1_0::ICameraDesktopCallback>, kClientKinds> mCallbacks
            GUARDED_BY(mLock);
    DeathLinks mDeathLinks;
    ::android::sp<UvcGadgetHandler> mHandler;
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
