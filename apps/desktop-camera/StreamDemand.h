// SPDX-License-Identifier: Apache-2.0
// What the camera is wanted for, passed from any thread to the one that does the work.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include <android-base/thread_annotations.h>

namespace korvane::camera {

/** Now, in nanoseconds of the monotonic clock. */
int64_t monotonicNs();

/**
 * Holds whether a stream is wanted, whether the service is alive and whether the program is to end.
 * Whoever learns of a change (the HIDL thread, the signal thread) reports it and returns at once;
 * the worker waits for work and, while working, for the end of it. Every start is a new stream,
 * with a number of its own.
 *
 * A stream can also be joined: it began when nobody was there to be told. Its own start may still
 * be on its way then, and must not create a second stream. Thread-safe.
 */
class StreamDemand {
  public:
    /**
     * A stream is wanted, replacing one that may be running. The first start after join() belongs
     * to the joined stream itself, and changes nothing.
     */
    void start();

    /** A stream may already be running: look for it, unless one is wanted anyway. */
    void join();

    /**
     * The stream of that number is no longer served, or didn't exist. If a start was taken for its
     * own, that start was for another stream, which is wanted now.
     */
    void over(uint64_t stream);

    /** No stream is wanted any more. */
    void stop();

    /** The service is gone, and the stream with it. */
    void serviceDied();

    /** The program is to end. */
    void quit();

    enum class Work { STREAM, JOIN, RECONNECT, QUIT };

    /**
     * Waits for something to do. STREAM comes once for each start not stopped since, with the
     * stream's number, and so does JOIN for join(); RECONNECT comes once for each death. Only one
     * thread may wait.
     */
    Work waitForWork(uint64_t* stream);

    /** Waits until a monotonic time; false, at once, if the program is to end. */
    bool waitToRetry(int64_t untilNs);

    /** Whether the stream of that number is still wanted. */
    bool isWanted(uint64_t stream) const;

    /** Waits until a monotonic time; false, at once, if the stream is no longer wanted. */
    bool waitWhileWanted(uint64_t stream, int64_t untilNs) const;

  private:
    void begin_l(bool joined) REQUIRES(mLock);
    bool isWanted_l(uint64_t stream) const REQUIRES(mLock);

    mutable std::mutex mLock;
    mutable std::condition_variable_any mChanged;
    uint64_t mLatest GUARDED_BY(mLock) = 0;  // the number of the stream started last
    uint64_t mServed GUARDED_BY(mLock) =
            0;  // the number of the last one that waitForWork() gave out
    bool mWanted GUARDED_BY(mLock) = false;      // whether mLatest has not been stopped
    bool mJoined GUARDED_BY(mLock) = false;      // whether mLatest came from join()
    bool mStartHeard GUARDED_BY(mLock) = false;  // whether the joined stream's start has come
    bool mDied GUARDED_BY(mLock) = false;
    bool mQuit GUARDED_BY(mLock) = false;
};

/** One stream's view of the demand. Cheap to copy; the demand must outlive it. */
class StreamTicket {
  public:
    StreamTicket(const StreamDemand& demand, uint64_t stream) : mDemand(demand), mStream(stream) {}

    bool isWanted() const { return mDemand.isWanted(mStream); }

    /** Waits until a monotonic time; false, at once, when the stream is over. */
    bool sleepUntil(int64_t untilNs) const { return mDemand.waitWhileWanted(mStream, untilNs); }

  private:
    const StreamDemand& mDemand;
    const uint64_t mStream;
};

}  // namespace korvane::camera
