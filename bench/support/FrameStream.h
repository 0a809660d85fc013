// SPDX-License-Identifier: Apache-2.0
// A stream through the whole daemon over a scripted node, one frame at a time.
#pragma once

#include <cstdint>
#include <ctime>
#include <deque>
#include <optional>

#include <sys/types.h>

#include "support/DaemonWorld.h"
#include "support/SharedMemory.h"
#include "support/SurfaceCamera.h"

namespace korvane::bench {

/** What the host has chosen and the camera renders. */
struct StreamMode {
    enum Format { NV12, YUYV, MJPEG };

    Format format;
    uint32_t width;
    uint32_t height;
    /** Bytes of a JPEG; ignored for the other formats. */
    uint32_t jpegSize = 0;

    /** Bytes that reach the UVC buffer. */
    uint32_t frameSize() const;
};

/** Times of one frame, in nanoseconds. */
struct FrameTimes {
    /** Processor time of the thread that queues the frame and of the one that takes it back. */
    int64_t cpu;
    /** Elapsed time of the same. What the host does between them doesn't count. */
    int64_t wall;
    /** From the camera's call to the driver's. */
    int64_t latency;
};

/**
 * The daemon's objects, a camera that queues on the caller's thread, and alongside them buffers of
 * the same number and kind, to copy between. Throws std::runtime_error if they can't be set up.
 *
 * Programs get this by linking `korvane_frame_stream`. One at a time.
 */
class FrameStream {
  public:
    explicit FrameStream(const StreamMode& mode);

    /** Passes a frame from the camera to the driver and, once sent, back. */
    FrameTimes pass();

    /** Copies a frame's number of bytes to the next of the other buffers; times without latency. */
    FrameTimes copy();

    /** The two halves of pass(), for counting what they do. */
    void queue();
    void takeBack();

    /** The thread that takes frames back. */
    pid_t pollThread() const { return mPollThread; }

  private:
    void drawFooter(int slot);

    const StreamMode mMode;
    test::DaemonWorld mWorld;
    std::optional<test::SurfaceCamera> mCamera;
    pid_t mPollThread = -1;
    clockid_t mPollThreadTime = 0;
    std::deque<SharedMemory> mSources;
    std::deque<SharedMemory> mTargets;
    size_t mCopies = 0;
};

}  // namespace korvane::bench
