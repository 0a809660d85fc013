// SPDX-License-Identifier: Apache-2.0
// What the driver tells a thread besides calls and replies.
#pragma once

#include <cstdint>
#include <vector>

#include <linux/android/binder.h>

#include <utils/Errors.h>

namespace android {
namespace hardware {

class DriverChannel;
class ProcessState;

/**
 * Handles references taken and given back, deaths and requests for threads. References taken are
 * noted at once. What may run an object's or a recipient's code is put off until runDeferred(),
 * since the thread may be inside a call and hold its caller's locks. Used by one thread.
 */
class DriverEvents {
  public:
    DriverEvents(ProcessState& process, DriverChannel& channel)
        : mProcess(process), mChannel(channel) {}

    /**
     * Handles one command whose argument is still to be read. Commands of newer drivers are
     * skipped. TIMED_OUT: the driver no longer wants this thread. BAD_VALUE: not a command at all.
     */
    status_t handle(uint32_t command);

    /** Does what was put off, in the order it came. May run foreign code. */
    void runDeferred();

  private:
    struct Deferred {
        uint32_t command;
        uint64_t name;  // of a local object, or the cookie of a death
    };

    status_t takeReference(uint32_t command);
    status_t deferRelease(uint32_t command);
    status_t deferDeath();
    status_t attemptAcquire();
    status_t readError();
    status_t skip(uint32_t command);
    void run(const Deferred& event);
    void reportDeath(uint64_t cookie);

    ProcessState& mProcess;
    DriverChannel& mChannel;
    std::vector<Deferred> mDeferred;
};

}  // namespace hardware
}  // namespace android
