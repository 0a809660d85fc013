// SPDX-License-Identifier: Apache-2.0
// The far end of a surface: takes the frames that a camera renders and keeps their pictures.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

#include <android/hardware/graphics/bufferqueue/1.0/IGraphicBufferProducer.h>
#include <gui/BufferItem.h>
#include <gui/BufferQueue.h>
#include <ui/GraphicBuffer.h>
#include <utils/RefBase.h>

namespace korvane::test {

/**
 * A real buffer queue with a consumer that releases each frame as soon as it has read it. Like the
 * service's frame source, it may hold four buffers. Thread-safe.
 */
class FrameCollector {
  public:
    /** One frame: its picture as NV12 without padding, or the JPEG file that the buffer tells of.
     */
    struct Frame {
        int64_t timestampNs;
        std::vector<uint8_t> bytes;
    };

    FrameCollector();
    ~FrameCollector();
    FrameCollector(const FrameCollector&) = delete;
    FrameCollector& operator=(const FrameCollector&) = delete;

    /** The queue as handed to a client of the service. */
    android::sp<android::hardware::graphics::bufferqueue::V1_0::IGraphicBufferProducer>
    hidlProducer() const;

    /** The same as the client uses it: every call goes through the HIDL types and back. */
    android::sp<android::IGraphicBufferProducer> producer() const;

    /** From now on frames are left in the queue, as if the host took none. */
    void hold();

    /** Takes the frames left in the queue, and all that follow. */
    void letGo();

    /** Drops the queue, as the service does when the stream stops. */
    void abandon();

    /** Waits until this many frames have been queued, taken or not; false after ten seconds. */
    bool waitForQueued(size_t count) const;

    /** Waits until this many frames have been taken; false after ten seconds. */
    bool waitForFrames(size_t count) const;

    std::vector<Frame> frames() const;

    /** Whether the producer has disconnected. */
    bool disconnected() const;

  private:
    class Listener;

    void onFrameAvailable();
    void onDisconnect();
    void takeFrame();

    android::sp<android::IGraphicBufferProducer> mProducer;
    android::sp<android::IGraphicBufferConsumer> mConsumer;
    android::sp<Listener> mListener;

    mutable std::mutex mLock;
    mutable std::condition_variable mChanged;
    std::map<int, android::sp<android::GraphicBuffer>> mBuffers;
    std::vector<Frame> mFrames;
    size_t mQueued = 0;
    bool mHeld = false;
    bool mDisconnected = false;
};

}  // namespace korvane::test
