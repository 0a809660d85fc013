// SPDX-License-Identifier: Apache-2.0
// Watches for the gadget's video node to come and go and for the cable to be pulled.
#pragma once

#include <cstdint>
#include <string>

#include "uvc/PollableDev.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * Listens to the kernel's uevents, and at start looks for a gadget node that is already there.
 *
 * Order of calls: open(), initCheck(), then handlePendingData() whenever fd is readable. Poll
 * thread only, and so are the calls of the listener. No state but the socket: nothing remembers
 * which nodes were reported.
 */
class HotPlugCtrl : public PollableDev {
  public:
    /** Told what happened. A non-zero result ends the handling of the message that it came in. */
    class EventListener {
      public:
        virtual ~EventListener() = default;

        /** A UVC gadget node has appeared; devPath is its full path, like "/dev/video2". */
        [[nodiscard]] virtual int32_t onUvcV4l2Added(const char* devPath) = 0;
        /**
         * A video4linux node has gone, whether or not it was reported as added. devName is its bare
         * name, like "video2": not the string that onUvcV4l2Added() received.
         */
        [[nodiscard]] virtual int32_t onV4l2Removed(const char* devName) = 0;
        /** The USB gadget has been disconnected from its host. */
        [[nodiscard]] virtual int32_t onUsbDisconnected() = 0;
    };

    /** The fields of one uevent, pointing into the message; null for one that it doesn't have. */
    struct UEventObj {
        const char* action = nullptr;
        const char* subsystem = nullptr;
        const char* devName = nullptr;
        const char* usbState = nullptr;
    };

    /** listener may be null, and is not owned. */
    explicit HotPlugCtrl(EventListener* listener);
    /** Closes the socket. */
    ~HotPlugCtrl() override;
    HotPlugCtrl(const HotPlugCtrl&) = delete;
    HotPlugCtrl& operator=(const HotPlugCtrl&) = delete;

    /**
     * Opens the uevent socket, non-blocking.
     *
     * @return 0, or -EIO when there is none
     */
    [[nodiscard]] int open();

    /**
     * Reports the gadget nodes that exist, from video0 up to the first number without a node.
     *
     * @return 0, or the first non-zero result of onUvcV4l2Added(), which ends the scan
     */
    [[nodiscard]] int initCheck();

    /**
     * Receives one message and handles each event in it; type is ignored.
     *
     * @return 0 (also when a message too long for the buffer was discarded, with all that was
     *         pending after it), -EINVAL when there is no message, or the first non-zero result of
     *         handleUEvent()
     */
    [[nodiscard]] int32_t handlePendingData(PENDING_DATA_TYPE type) override;

    /**
     * Fills obj from the strings of one event, of which "SEQNUM=" is the last.
     *
     * @param msg NUL-terminated strings, the last one followed by an empty one
     * @return where the next event starts; null when the message has ended
     */
    const char* parseUEvent(const char* msg, UEventObj* obj);

    /**
     * Reports the event to the listener if it is one of the three. An added node is waited for, up
     * to 0.4 s.
     *
     * @return 0, the listener's result, or -EIO when an added node does not appear
     */
    [[nodiscard]] int handleUEvent(UEventObj& obj);

    /** Whether the name in this file is that of one of the phone's own video drivers. */
    bool isBlacklistedDevice(const char* namePath);

    /** Whether the node is a UVC gadget's. Opens it for that. */
    bool getVideoDevType(const char* devPath);

    /**
     * Reads the first 511 bytes of a file into out, up to the first NUL and without a newline at
     * the end.
     *
     * @return whether there was any text
     */
    [[nodiscard]] bool readTextFile(const char* path, std::string& out);

    /** Whether added nodes are looked at; initCheck()'s always are. Idle: nothing clears it. */
    bool watchVideoAdd = true;

  private:
    [[nodiscard]] int handleVideoAdded(const char* devName);
    [[nodiscard]] int handleVideoRemoved(const char* devName);
    [[nodiscard]] int handleMessage(const char* message);

    EventListener* const mListener;
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
