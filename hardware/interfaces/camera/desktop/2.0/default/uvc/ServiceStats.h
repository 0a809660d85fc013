// SPDX-License-Identifier: Apache-2.0
// What the service counts and what it knows of itself, for people who ask what it does.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include <sys/types.h>

#include "uvc/CountTable.h"
#include "uvc/EventHistory.h"
#include "uvc/LatencyHistogram.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/** What is counted. */
enum class Count : uint8_t {
    FRAMES_DRAWN,  // the camera queued one
    FRAMES_SENT,   // queued to the node
    FRAMES_RETURNED,
    FRAMES_REPEATED,      // sent once more
    FRAMES_STALE,         // of those sent: still with the buffer's previous picture
    DROPPED_RATE,         // sooner than the rate asked for
    DROPPED_BACKWARD,     // no later than the one before
    DROPPED_SUSPENDED,    // while the camera had paused
    DROPPED_NO_STREAM,    // no device, or none that streams
    DROPPED_TOO_LARGE,    // for the buffer
    DROPPED_UNREADABLE,   // its memory can't be read
    DROPPED_REFUSED,      // by the driver
    REQUESTS_ANSWERED,    // of the host
    REQUESTS_STALLED,     // of the host
    CALLS_FAILED,         // to the node
    CLIENT_CALLS_FAILED,  // commands that reached nobody
    COUNTS                // how many there are
};

/** The gadget's node. */
enum class NodeState : uint8_t { NONE, UNOPENED, CLOSED, READY, STREAMING };

/** One of the node's buffers: not there, waiting for a frame, or with the driver. */
enum class BufferState : uint8_t { NONE, FREE, QUEUED };

/**
 * There is one in the service, made first and gone last; whoever counts has a reference to it. The
 * service never reads anything back: it does the same whether it is watched or not.
 *
 * All of it is relaxed atomics, for any thread: no lock, no allocation, no system call but the
 * clock's (which needs none). A reader sees each value by itself; together they are only nearly of
 * one moment. Times are milliseconds since the service started, unless their name says otherwise.
 */
class ServiceStats {
  public:
    static constexpr size_t kClients = 8;
    static constexpr size_t kBuffers = 32;

    struct Picture {
        uint32_t width;
        uint32_t height;
        /** V4L2 code; 0 when there is none. */
        uint32_t format;
        float fps;
    };
    struct Client {
        /** 0 when there is none. */
        pid_t pid;
        int64_t sinceMs;
    };

    ServiceStats();
    ServiceStats(const ServiceStats&) = delete;
    ServiceStats& operator=(const ServiceStats&) = delete;

    int64_t nowMs() const;

    void count(Count what, uint64_t number = 1) { mCounts.add(static_cast<size_t>(what), number); }
    void note(Event event, int32_t detail = 0) { mEvents.add(event, detail, nowMs()); }

    // The frame's road. A frame's number is the queue's; a buffer's index is the node's.
    void frameArrived(uint64_t frameNumber);
    /** When that frame arrived, in nanoseconds of CLOCK_MONOTONIC; 0 when that isn't known. */
    int64_t arrivalOf(uint64_t frameNumber) const;
    void frameSent(uint32_t buffer);
    /** The frame sent last with this buffer had arrived then; 0 for a time that isn't known. */
    void frameTook(uint32_t buffer, int64_t arrivedNs);
    void frameReturned(uint32_t buffer);

    // What there is.
    /** @param path ends in the node's number */
    void setNode(NodeState state, const char* path);
    void setNode(NodeState state);
    void streamStarted(uint32_t buffers);
    void streamStopped();
    void buffersReleased();
    void setMode(uint32_t width, uint32_t height, uint32_t format, uint32_t interval);
    void surfaceMade(const Picture& picture, uint32_t usage);
    void surfaceTaken(pid_t pid);
    void surfaceGone();
    void setSuspended(bool suspended);
    void clientRegistered(uint8_t kind, pid_t pid);
    void clientGone(uint8_t kind, Event how);
    /** A client was there, and a command to it failed or was given up. */
    void clientFailed(uint8_t kind);

    // For those who show it.
    uint64_t total(Count what) const { return mCounts.total(static_cast<size_t>(what)); }
    uint64_t sinceStream(Count what) const { return mCounts.sinceMark(static_cast<size_t>(what)); }
    const LatencyHistogram& queueing() const { return mQueueing; }
    const LatencyHistogram& sending() const { return mSending; }
    const EventHistory& events() const { return mEvents; }
    NodeState node() const { return mNode.load(std::memory_order_relaxed); }
    /** -1 when there is none. */
    int32_t nodeNumber() const { return mNodeNumber.load(std::memory_order_relaxed); }
    Picture mode() const;
    /** In units of 100 ns. */
    uint32_t interval() const { return mInterval.load(std::memory_order_relaxed); }
    BufferState buffer(size_t index) const;
    Picture surface() const;
    uint32_t surfaceUsage() const { return mSurfaceUsage.load(std::memory_order_relaxed); }
    /** The process that took the surface; 0 when none has. */
    pid_t renderer() const { return mRenderer.load(std::memory_order_relaxed); }
    bool suspended() const { return mSuspended.load(std::memory_order_relaxed); }
    Client client(size_t kind) const;
    /** When the last stream started; -1 when none has. */
    int64_t streamStartMs() const { return mStreamStartMs.load(std::memory_order_relaxed); }

  private:
    static constexpr size_t kArrivals = 64;  // more than a queue can hold

    const int64_t mStartNs;
    CountTable<static_cast<size_t>(Count::COUNTS)> mCounts;
    LatencyHistogram mQueueing;
    LatencyHistogram mSending;
    EventHistory mEvents;

    std::array<std::atomic<uint64_t>, kArrivals> mArrivedNumbers = {};
    std::array<std::atomic<int64_t>, kArrivals> mArrivedNs = {};
    std::array<std::atomic<int64_t>, kBuffers> mSentNs = {};
    std::array<std::atomic<BufferState>, kBuffers> mBuffers = {};

    std::atomic<NodeState> mNode{NodeState::NONE};
    std::atomic<int32_t> mNodeNumber{-1};
    std::atomic<uint64_t> mModeSize{0};  // width above height, so that they are of one picture
    std::atomic<uint32_t> mModeFormat{0};
    std::atomic<uint32_t> mInterval{0};
    std::atomic<int64_t> mStreamStartMs{-1};

    std::atomic<uint64_t> mSurfaceSize{0};
    std::atomic<uint32_t> mSurfaceFormat{0};
    std::atomic<uint32_t> mSurfaceUsage{0};
    std::atomic<float> mSurfaceFps{0};
    std::atomic<pid_t> mRenderer{0};
    std::atomic<bool> mSuspended{false};

    std::array<std::atomic<pid_t>, kClients> mClientPids = {};
    std::array<std::atomic<int64_t>, kClients> mClientsSinceMs = {};
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
