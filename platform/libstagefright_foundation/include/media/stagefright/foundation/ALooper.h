// SPDX-License-Identifier: Apache-2.0
// A message loop on a thread of its own.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include <android-base/thread_annotations.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/ThreadDefs.h>

namespace android {

struct AHandler;
struct AMessage;

/**
 * Delivers messages to their handlers in the order they fall due, those of the same time in the
 * order they were posted. Messages may be posted before it is started, and those not yet delivered
 * when it is stopped wait for the next start.
 *
 * Thread-safe, except for the name, which is set before the start.
 */
struct ALooper : public RefBase {
    typedef int32_t event_id;
    typedef int32_t handler_id;

    ALooper();

    /** The name of the thread that the next start() makes; "ALooper" if none is given. */
    void setName(const char* name);
    const char* getName() const { return mName.c_str(); }

    /**
     * Registers a handler and returns its id: 1, 2, 3, ... in the process. A handler that is
     * already registered is a fatal error.
     */
    handler_id registerHandler(const sp<AHandler>& handler);

    /** Forgets a handler: its id becomes 0 and its looper null. An unknown id is ignored. */
    void unregisterHandler(handler_id handlerId);

    /**
     * Starts to deliver: on a new thread, or on the caller's until stop() when `runOnCallingThread`
     * is set. `canCallJava` and `priority` mean nothing on Linux.
     *
     * @return OK, or INVALID_OPERATION when it is already running.
     */
    status_t start(bool runOnCallingThread = false, bool canCallJava = false,
                   int32_t priority = PRIORITY_DEFAULT);

    /**
     * Ends the loop after the message being delivered. Waits for its thread to end unless called
     * from that thread or the loop runs on a caller's thread.
     *
     * @return OK, or INVALID_OPERATION when it is not running.
     */
    status_t stop();

    /** CLOCK_MONOTONIC in microseconds. */
    static int64_t GetNowUs();

  protected:
    /** Stops the loop; may run on the looper's own thread. */
    ~ALooper() override;

  private:
    friend struct AMessage;  // posts

    class EventQueue;
    struct Run;

    void post(const sp<AMessage>& msg, int64_t delayUs);

    AString mName;
    // Shared with the loop, which may be delivering when the last reference to the looper drops.
    const std::shared_ptr<EventQueue> mQueue;

    std::mutex mLock;
    std::shared_ptr<Run> mRun GUARDED_BY(mLock);  // null while stopped
    std::thread mThread GUARDED_BY(mLock);        // empty when running on a caller's thread
};

}  // namespace android
