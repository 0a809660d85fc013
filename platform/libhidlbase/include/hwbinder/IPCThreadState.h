// SPDX-License-Identifier: Apache-2.0
// A thread as the driver sees it: its commands and the call that it serves.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <sys/types.h>

#include <hwbinder/IBinder.h>

namespace android {
namespace hardware {

class BpHwBinder;
class DriverChannel;
class DriverEvents;
class IncomingCall;

/**
 * One thread's conversation with the driver. Made by self() for the calling thread, which alone may
 * use it, and destroyed when that thread ends. It holds no lock.
 *
 * A thread that waits for a reply serves the calls that come back within its own, and calls within
 * those. Two processes could go on like that until the stack overflows, so a thread serves at most
 * kMaxServedDepth calls one inside another and answers any further one with FAILED_TRANSACTION.
 *
 * What a serving thread takes and gives back goes to the driver with its next reply, call or wait
 * for a call, one of which is sure to come: it costs no trip of its own. Any other thread may never
 * call again, so what it takes and gives back goes to the driver at once.
 */
class IPCThreadState {
  public:
    static constexpr int kMaxServedDepth = 64;

    static IPCThreadState* self();
    /** The same, but null if this thread has none yet. */
    static IPCThreadState* selfOrNull();

    /** The process and user of the caller being served; outside a call, this process and its user.
     */
    pid_t getCallingPid() const { return caller().pid; }
    uid_t getCallingUid() const { return caller().uid; }

    /** Makes this process the caller until restoreCallingIdentity() is given the token returned. */
    int64_t clearCallingIdentity();
    void restoreCallingIdentity(int64_t token);

    /**
     * Makes this thread one of those that serve incoming calls and death notices, until the driver
     * turns it away; normally it doesn't return. isMain unless the driver asked for it.
     */
    void joinThreadPool(bool isMain = true);

    /**
     * For a thread that has its own event loop: *fd polls readable when handlePolledCommands() has
     * something to do.
     */
    status_t setupPolling(int* fd);
    status_t handlePolledCommands();

    /** Whether this thread serves incoming calls. */
    bool isLooperThread() const { return mIsLooper; }
    /** Whether it is the only one that does. */
    bool isOnlyBinderThread() const;

    /** Hands the driver the commands that are still waiting. */
    void flushCommands();

    /** What ProcessState::becomeContextManager() publishes. */
    void setTheContextObject(const sp<BHwBinder>& object);

    // For proxies.

    /** One call to a handle; see IBinder::transact(). */
    status_t transact(uint32_t handle, uint32_t code, const Parcel& data, Parcel* reply,
                      uint32_t flags);

    /** Gives the bytes of a received call or reply back to the driver. */
    void freeBuffer(const uint8_t* bytes);

    /**
     * Takes and gives back a proxy's reference to its handle. The proxy is kept alive until the
     * driver knows of the reference: otherwise another thread that drops it could give back what
     * isn't taken yet.
     */
    void incStrongHandle(const sp<BpHwBinder>& proxy);
    void decStrongHandle(uint32_t handle);

    /** Asks for, or cancels, a notice of the death of a handle's process, at once. */
    status_t requestDeathNotification(uint32_t handle, uint64_t cookie);
    status_t clearDeathNotification(uint32_t handle, uint64_t cookie);

  private:
    friend class IncomingCall;

    struct Caller {
        pid_t pid;
        uid_t uid;
    };

    IPCThreadState();
    ~IPCThreadState();
    static void threadDestructor(void* state);

    Caller caller() const;
    status_t executeNextCommand();
    status_t execute(uint32_t command);
    status_t waitForReply(Parcel* reply);
    status_t waitForCompletion();
    status_t receiveReply(Parcel* reply);
    status_t nextCommand(uint32_t* command);
    void runDeferredEvents();
    void flushUnlessServing();
    void letGoOfProxies();

    const std::unique_ptr<DriverChannel> mChannel;
    const std::unique_ptr<DriverEvents> mEvents;
    std::optional<Caller> mCaller;  // of the call being served
    bool mIsLooper = false;
    bool mIsPolling = false;
    bool mIsServing = false;                  // inside joinThreadPool() or handlePolledCommands()
    std::vector<sp<BpHwBinder>> mNewProxies;  // whose references the driver may not know of
    int mServedDepth = 0;                     // calls that this thread serves, one inside another
    int mCallDepth = 0;  // calls of this thread that wait for their reply, one inside another
};

}  // namespace hardware
}  // namespace android
