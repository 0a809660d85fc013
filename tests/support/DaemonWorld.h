// SPDX-License-Identifier: Apache-2.0
// The daemon's objects in the test's process, in a world that the test scripts.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <utils/StrongPointer.h>

#include "CameraDesktop.h"
#include "support/LocalServices.h"
#include "support/LogRecorder.h"
#include "support/PrivateFiles.h"
#include "support/RecordingClient.h"
#include "support/ScriptedKernel.h"
#include "support/ShortWaits.h"
#include "support/UeventSender.h"
#include "support/UvcFunctionTree.h"

namespace korvane::test {

/**
 * A real CameraDesktop with its controller, found by itself as "default"; configfs with a YUYV and
 * an MJPEG format of 640x480 and 1280x720; a scripted gadget node /dev/video0; kernel events that
 * only this test sees. The waits at startup are skipped.
 *
 * It needs root or user namespaces, and a network namespace; otherwise available() is false and the
 * test must skip itself with whyNot().
 *
 * The daemon's objects are never destroyed, as in the daemon. The destructor ends the poll thread
 * in the only way there is, by a failing `select`.
 */
class DaemonWorld {
  public:
    using CameraDesktop = ::korvane::hardware::camera::desktop::V2_0::implementation::CameraDesktop;
    using Controller = ::korvane::hardware::camera::desktop::V2_0::implementation::UvcGadgetHandler;
    using Surface = ::android::hardware::graphics::bufferqueue::V1_0::IGraphicBufferProducer;

    static constexpr char kStart[] = R"({"event":"stream-start"})";
    static constexpr char kStop[] = R"({"event":"stream-stop"})";
    static constexpr char kTag[] = "UVC-GadgetHandler";

    DaemonWorld();
    ~DaemonWorld();

    bool available() const { return whyNot().empty(); }
    const std::string& whyNot() const { return mWhyNot; }

    /** Creates the service, and waits until its controller has found it and opened the node. */
    void start();
    /** Creates the service only. */
    void create();
    /** Creates the controller without a service of its own: it finds what the test provides. */
    ::android::sp<Controller> createController();

    /** Registers a client of a kind that answers every command with `reply`. */
    ::android::sp<RecordingClient> addClient(int kind, const std::string& reply);
    ::android::sp<RecordingClient> addClient(int kind, RecordingClient::Answer answer);

    /** Sends a command to the controller from this thread; its reply, if there is exactly one. */
    std::string command(const std::string& text);

    /** The surface that the controller has posted, or null. */
    ::android::sp<Surface> surface();

    /** Raises an event for the node of this name. */
    void raiseAdd(const std::string& name = "video0");
    void raiseRemove(const std::string& name = "video0");
    void raiseDisconnected();

    /**
     * The host selects a format and a frame (from 1) and an interval in units of 100 ns, by probe
     * and commit; returns when the controller has set it.
     */
    void commit(uint8_t format, uint8_t frame, uint32_t interval = 333333);

    /** The host starts streaming; returns when the controller has told client 3. */
    void startStream();
    /** The host stops streaming; returns when the buffers are gone. */
    void stopStream();

    /** Waits until the controller has handled all kernel events so far. Closes any open device. */
    void settle();

    /** Waits for a log line of the controller's. */
    bool waitLog(android_LogPriority priority, const std::string& message) {
        return log.waitFor(priority, kTag, message);
    }

    LogRecorder log;
    PrivateFiles files;
    UvcFunctionTree function;
    LocalServices services;
    ShortWaits waits;
    ScriptedKernel node{"/dev/video0"};
    ::android::sp<CameraDesktop> service;
    ::android::sp<RecordingClient> streamClient;

  private:
    void raise(const std::string& action, const std::string& name);

    std::string mWhyNot;
    bool mPolling = false;
    std::optional<UeventSender> mEvents;
};

}  // namespace korvane::test
