// SPDX-License-Identifier: Apache-2.0
// The UVC gadget's video node: the host's requests, the stream, the buffers that leave for the
// host.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <linux/usb/ch9.h>
#include <linux/usb/g_uvc.h>

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

#include "uvc/LockedFrame.h"
#include "uvc/MappedBuffer.h"
#include "uvc/PollableDev.h"
#include "uvc/ServiceStats.h"
#include "uvc/UvcBufInfo.h"
#include "uvc/UvcConfig.h"
#include "uvc/V4l2CtrlBase.h"
#include "uvc/YuyvConverter.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/** What the host has negotiated, or before that the first mode of the configuration. */
struct StreamSettings {
    uint32_t width;
    uint32_t height;
    /** V4L2 code of the pixel format, and the same as text. */
    uint32_t format;
    std::string formatName;
    /** In units of 100 ns. */
    uint32_t frameInterval;
};

/**
 * Drives one gadget node: subscribes to its events, answers the host's class requests from the
 * function's configuration, follows the host's stream start and stop, and while streaming puts
 * frames into the node's buffers.
 *
 *               open()                 STREAMON
 *     CLOSED ─────────────► READY ───────────────────────────► STREAMING
 *            ◄─────────────       ◄───────────────────────────
 *             last close(),        STREAMOFF, close(), DISCONNECT,
 *             DISCONNECT           five failing writes in a row
 *
 * DISCONNECT is a close() by the host: after it the node is closed while the object remains. A
 * node that was opened more than once stays open until it has been closed as often. fd is the
 * node's descriptor unless CLOSED.
 *
 * Threads: everything runs on the poll thread except queueBuffer(), which the frame source's thread
 * calls, and isStreaming(), getBufferNum() and getStreamSettings(), which any thread may. One
 * non-recursive lock serialises them. The listener is always called with that lock released.
 */
class UvcV4l2Ctrl : public PollableDev, public V4l2CtrlBase {
  public:
    /** Told about the stream, on the poll thread. May call back into the device. */
    class EventListener {
      public:
        virtual ~EventListener() = default;

        /**
         * The gadget has sent the frame of one buffer. buf says which, and what the buffer held
         * when it came back, whatever it has taken since. buf is only good during this call; its
         * fenceFd is the listener's from now on.
         */
        virtual void onFrameEmptied(UvcBufInfo* buf) = 0;
        /** The host streams: the buffers are mapped and streaming is on. */
        virtual void onStreamStart() = 0;
        /** The stream has stopped. Once per stream, before its buffers are released. */
        virtual void onStreamStop() = 0;
    };

    /** Reads the function's configuration; the node is opened by open(). stats outlives it. */
    UvcV4l2Ctrl(const char* devName, ServiceStats& stats);
    /** Closes the node. It neither stops a stream nor unmaps buffers: close() comes first. */
    ~UvcV4l2Ctrl() override;
    UvcV4l2Ctrl(const UvcV4l2Ctrl&) = delete;
    UvcV4l2Ctrl& operator=(const UvcV4l2Ctrl&) = delete;

    /** Right after construction and before open(); not owned. */
    void setEventListener(EventListener* listener) { mListener = listener; }

    /**
     * Opens the node, subscribes to its events and sets an initial format; a further call only
     * counts.
     *
     * @return 0; -EINVAL when the node is open although nobody opened it; -ENODEV when it cannot be
     *         opened
     */
    [[nodiscard]] int open();

    /** Stops the stream and drops one open(); the last one closes the node. Always 0. */
    int close();

    /**
     * DATA_EXCEPTION handles one event, DATA_WRITABLE takes one sent buffer back.
     *
     * @return 0; -1 when writing has failed five times in a row, which has also stopped the stream
     */
    [[nodiscard]] int32_t handlePendingData(PENDING_DATA_TYPE type) override;

    /**
     * Puts a frame into the UVC buffer of its index and queues that, by V4l2CtrlBase's operation of
     * the same name. From then until the buffer comes back the device holds the frame, locked for
     * CPU access. The frame is read at once: nobody waits for its fence.
     *
     * YCbCr 4:2:0 is brought into the negotiated format, and queued even if that fails; anything
     * else is taken for a blob with a JPEG in it.
     *
     * @param frame only read; its index is below getBufferNum(). Its fence descriptor is the
     *        device's once the frame is queued, until onFrameEmptied() hands it on.
     * @return false when the frame was not queued: no stream, no CPU access, too large, or refused
     *         by the driver
     */
    [[nodiscard]] virtual bool queueBuffer(UvcBufInfo* frame);

    const char* getV4l2DevName() override;
    int getV4l2DeviceFd() override;
    uint32_t getV4l2BufferType() override;

    /** How many buffers a stream has. */
    virtual uint32_t getBufferNum();

    /** Whether the host streams. From any thread, without the lock: it may change right after. */
    bool isStreaming() const { return mState == State::STREAMING; }

    /** A consistent copy of the negotiated settings, from any thread. Takes the lock. */
    StreamSettings getStreamSettings() const;

    /**
     * For people who debug: appends the bytes of every frame queued from now on to file, and closes
     * it when the stream stops; null ends it before. Takes file over.
     *
     * @return false when another file is being written already, which goes on
     */
    [[nodiscard]] bool dumpFramesTo(FILE* file);

  private:
    enum class State { CLOSED, READY, STREAMING };
    using Guard = std::lock_guard<std::mutex>;
    struct FileCloser {
        void operator()(FILE* file) const { fclose(file); }
    };

    void onFailure() override;

    // The node and its stream.
    void closeNode();
    void subscribeEvents();
    void setInitialFormat_l() REQUIRES(mLock);
    void noteMode_l() REQUIRES(mLock);
    /** Takes a buffer back by handleWrite(), and ends the stream when that keeps failing. */
    [[nodiscard]] int takeBackOrGiveUp();
    void handleEvent();
    void handleSetup(const usb_ctrlrequest& request);
    void handleStartStream();
    void handleStopStream();
    /** Calls the listener with the lock released meanwhile. */
    template <typename... Args>
    void notify_l(void (EventListener::*call)(Args...), Args... args) REQUIRES(mLock);

    // Class requests. A response that they leave alone stalls the request.
    void processClassEvent(const usb_ctrlrequest* request, uvc_request_data* response);
    void processControlEvent(uint8_t request, uint8_t selector);
    void processStreamingEvent(uint8_t request, uint8_t selector, uvc_request_data* response);
    void handleData(const uvc_request_data* data);
    void commitFormat_l() REQUIRES(mLock);

    /** One of the stream's buffers, and what it holds while the driver has it. */
    struct OutputBuffer {
        MappedBuffer memory;
        LockedFrame frame;
        /** Came with the frame, and goes back with it. */
        android::base::unique_fd fence;
    };

    // Buffers. What fills one locks the frame through `locked`, and leaves it so if the frame is to
    // stay locked.
    v4l2_buffer makeBuffer();
    [[nodiscard]] bool allocBuffers_l() REQUIRES(mLock);
    [[nodiscard]] bool mapBuffer_l(uint32_t index) REQUIRES(mLock);
    void releaseBuffers_l() REQUIRES(mLock);
    [[nodiscard]] bool fill_l(const UvcBufInfo& frame, LockedFrame& locked,
                              const MappedBuffer& target, v4l2_buffer* buf) REQUIRES(mLock);
    [[nodiscard]] bool copyBlob_l(const UvcBufInfo& frame, LockedFrame& locked,
                                  const MappedBuffer& target, v4l2_buffer* buf) REQUIRES(mLock);
    [[nodiscard]] bool convertFromYCbCr420_l(const UvcBufInfo& frame, LockedFrame& locked,
                                             const MappedBuffer& target, v4l2_buffer* buf)
            REQUIRES(mLock);
    [[nodiscard]] bool writeYCbCr420_l(const UvcBufInfo& frame, const android_ycbcr& planes,
                                       const MappedBuffer& target, v4l2_buffer* buf)
            REQUIRES(mLock);
    void dump_l(const MappedBuffer& buffer, uint32_t size) REQUIRES(mLock);
    /** Takes one sent buffer back and reports it; -1 when that failed. */
    [[nodiscard]] int handleWrite();
    /** Unlocks a buffer's frame and takes out all that the buffer holds but its mapping. */
    UvcBufInfo takeFrame_l(uint32_t index) REQUIRES(mLock);

    EventListener* mListener = nullptr;
    const std::string mDevName;
    ServiceStats& mStats;
    mutable std::mutex mLock;
    std::vector<OutputBuffer> mBuffers GUARDED_BY(mLock);  // by V4L2 index
    std::atomic<State> mState{State::CLOSED};              // written with mLock held
    uint32_t mFurtherOpens GUARDED_BY(mLock) = 0;          // since the first, not closed yet
    UvcConfig mConfig GUARDED_BY(mLock);
    uint32_t mFrameCount GUARDED_BY(mLock) = 0;
    std::unique_ptr<FILE, FileCloser> mDumpFile GUARDED_BY(mLock);
    YuyvConverter mConverter GUARDED_BY(mLock);
};

template <typename... Args>
void UvcV4l2Ctrl::notify_l(void (EventListener::*call)(Args...), Args... args) {
    if (mListener == nullptr) return;
    mLock.unlock();
    (mListener->*call)(args...);
    mLock.lock();
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
