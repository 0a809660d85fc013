// SPDX-License-Identifier: Apache-2.0
// The webcam controller: brings together the USB gadget, the desktop-camera service and the frames.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include <sys/select.h>

#include <android-base/thread_annotations.h>
#include <korvane/hardware/camera/desktop/2.0/ICameraDesktop.h>
#include <rapidjson/document.h>
#include <ui/GraphicBuffer.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include "uvc/CameraSurface.h"
#include "uvc/ClientEvents.h"
#include "uvc/ComponentWrapper.h"
#include "uvc/ControllerStart.h"
#include "uvc/DesktopConnection.h"
#include "uvc/HotPlugCtrl.h"
#include "uvc/KorBufferSource.h"
#include "uvc/ServiceStats.h"
#include "uvc/UvcV4l2Ctrl.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * Webcam mode. Watches for the gadget's video node, opens and closes its device, tells the camera
 * clients when the host starts and stops streaming, makes the surface they render into and hands
 * its frames to the device.
 *
 * It is what the HIDL service, the gadget's node and the frame source each call, and has what it
 * brings together: HotPlugCtrl, the device (UvcV4l2Ctrl), DesktopConnection, ClientEvents (which
 * sends the events), CameraSurface (with its frame source) and ServiceStats.
 *
 * States: no device; device present (opened, or left unopened after a failure); streaming. A
 * surface exists from a client's "create-surface" until the stream stops or another one replaces
 * it. Codec buffer i of the frame source is buffer i of the device.
 *
 * Threads:
 *  - the poll thread, which the constructor starts: the hot-plug and device callbacks, all creation
 *    and deletion of the device. Once `select` has failed it has ended for good.
 *  - the thread that sends the events, for which the poll thread waits (ClientEvents).
 *  - whoever sends a command: handleCommand. That is the HIDL thread, or the thread that sends an
 *    event when the client calls back from within it.
 *  - the frame source's callers (HIDL thread, poll thread): submitBuffer, with the frame source's
 *    mutex held.
 *
 * Lock: mDeviceLock guards the device pointer against deletion while another thread uses the
 * device, and is held over the whole making of a surface, so that two commands come one after the
 * other. It nests inside the mutex of a frame source that has been started, so it is never held
 * over a call into one; until then it is the outer of the two. It is never held over a call to a
 * client, whose answer may need it. The parts have locks of their own, inside it if both are held.
 *
 * One instance for the life of the process. Destroying it ends a poll thread that still waits for
 * the service; later the thread can't be stopped, and destruction terminates the process.
 *
 * Its tests are named for its sources: UvcGadgetHandlerTest, UvcGadgetPollTest,
 * UvcGadgetCommandsTest, UvcGadgetSurface...Test; beside them UvcGadgetConnectionTest and
 * StreamCyclesTest.
 */
class UvcGadgetHandler : public HotPlugCtrl::EventListener,
                         public UvcV4l2Ctrl::EventListener,
                         public ::android::ComponentWrapper {
  public:
    /** Starts the poll thread. Throws std::system_error when there can be none. */
    UvcGadgetHandler();
    ~UvcGadgetHandler() override;

    /**
     * Answers a command text, by the first member that it has:
     *  - "get-stream-config": the stream's configuration, or "no v4l2 control" without a device;
     *  - "create-surface": "" or what was wrong, see createSurface;
     *  - "stream-suspend": pauses (true) or resumes (false) the frames; "OK_WEBCAM_HAL".
     * Anything else is answered "OK_WEBCAM_HAL", a text that isn't JSON "PARSE_ERR".
     */
    std::string handleCommand(const std::string& command);

    /** The service has another client of this kind now, or none. Any thread; waits for nobody. */
    void onClientChanged(ClientType type);

    /** What the service counts; for the service object, which counts too, and for who shows it. */
    ServiceStats& stats() { return mStats; }

    /**
     * Has the device write every frame of the stream to file from now on, or to none: null.
     *
     * @return null, or what was wrong, with file closed
     */
    const char* dumpFrames(std::unique_ptr<FILE, int (*)(FILE*)> file);

    // HotPlugCtrl::EventListener, on the poll thread.

    /** Opens the device: 0, -12 when there is one already, -5 when it can't be opened (it stays,
     *  unopened, until a node is removed). */
    [[nodiscard]] int32_t onUvcV4l2Added(const char* devPath) override;
    /** Closes and deletes the device, whichever node was removed; always 0. */
    int32_t onV4l2Removed(const char* devName) override;
    /** Closes and deletes a device that is streaming, and only that; always 0. */
    int32_t onUsbDisconnected() override;

    // UvcV4l2Ctrl::EventListener, on the poll thread.
    void onFrameEmptied(UvcBufInfo* info) override;
    void onStreamStart() override;
    void onStreamStop() override;

    // ::android::ComponentWrapper, under the frame source's mutex.

    /**
     * Hands one frame to the device. Takes over the fence descriptor in every case. OK, or
     * UNKNOWN_ERROR when the device refused the frame; without a device the stream is stopped as
     * well.
     */
    [[nodiscard]] ::android::status_t submitBuffer(
            int bufferId, const ::android::sp<::android::GraphicBuffer>& buffer,
            int64_t timestampUs, int fenceFd) override;
    /** Does nothing; OK. Idle: no frame source is ever told to stop. */
    ::android::status_t submitEos(int bufferId) override;
    void dispatchDataSpaceChanged(int dataSpace, int aspects, int pixelFormat) override;

  private:
    // The device (UvcGadgetHandler.cpp), poll thread.
    void deleteDevice();
    /** The device, or null. Without the lock: nobody but the poll thread changes the pointer. */
    NO_THREAD_SAFETY_ANALYSIS UvcV4l2Ctrl* polledDevice() const { return mDevice.get(); }

    // The poll thread (UvcGadgetPoll.cpp).
    void pollThread();
    [[nodiscard]] bool connectAtStart();
    int preparePoll();
    void serveHotPlug();
    void serveDevice();
    void removeDeviceIfGone();

    // Commands and events (UvcGadgetCommands.cpp).
    /** A fixed name; the lock in question is the connection's own. */
    [[nodiscard]] bool connectToServiceLocked();
    std::string setCommandTo(ClientType type, const std::string& message);
    std::string getStreamConfig();
    void suspendStream(const rapidjson::Value& command);

    // The surface (UvcGadgetSurface.cpp).
    struct NewSurface {
        ::android::sp<ICameraDesktop> desktop;  // where to post it; null without a service
        ::android::sp<::android::KorBufferSource> source;
        ::android::sp<::android::KorBufferSource> replaced;  // to go without the device lock
    };
    std::string createSurface(const rapidjson::Value& params);
    /** All but the start; "", or what was wrong. */
    std::string makeSurface_l(const rapidjson::Value& params, NewSurface* made)
            REQUIRES(mDeviceLock);
    const char* refuseSurface_l() const REQUIRES(mDeviceLock);
    const char* publishSurface_l(const NewSurface& made) REQUIRES(mDeviceLock);

    ServiceStats mStats;
    fd_set mReadSet;
    fd_set mWriteSet;
    fd_set mExceptionSet;
    int mSelectWidth = 0;
    std::unique_ptr<HotPlugCtrl> mHotPlug;

    std::mutex mDeviceLock;
    // Changed by the poll thread only, which looks at it by polledDevice().
    std::unique_ptr<UvcV4l2Ctrl> mDevice GUARDED_BY(mDeviceLock);

    ControllerStart mStart;
    DesktopConnection mConnection;
    ClientEvents mEvents;
    CameraSurface mSurface;

    std::thread mPollThread;
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
