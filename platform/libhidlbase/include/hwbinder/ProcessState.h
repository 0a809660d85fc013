// SPDX-License-Identifier: Apache-2.0
// What a process has only one of: its connection to the driver, its thread pool, its table of
// proxies.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

#include <android-base/thread_annotations.h>
#include <hwbinder/IBinder.h>

namespace android {
namespace hardware {

class BinderDriver;
class LocalNodes;
class RemoteHandles;

/**
 * This process as the driver sees it. Made on first use, never destroyed; must first be used after
 * the last fork(). Every method may be called by any thread. mLock guards the thread pool's
 * configuration and the context object; it is never held while anybody else's code runs.
 *
 * Without a driver (no /dev/hwbinder) everything stays callable: the reason is logged once and
 * what needs the driver fails.
 */
class ProcessState : public virtual RefBase {
  public:
    static sp<ProcessState> self();

    /** Whether the driver is there and speaks our protocol. */
    bool hasDriver() const;

    // The context object: the one that every process can find.

    /** The proxy of the context object; null if no process is the context manager. */
    sp<IBinder> getContextObject(const sp<IBinder>& caller) EXCLUDES(mLock);

    /**
     * Makes this process the context manager, with the object that
     * IPCThreadState::setTheContextObject() has been given. False, and logged, if there is none or
     * the driver refuses, as it does while another process has that role.
     */
    bool becomeContextManager() EXCLUDES(mLock);

    // The thread pool.

    /**
     * Starts the pool unless it is running: spawns its first thread, unless the configuration
     * leaves none. Without setThreadPoolConfiguration() the pool has just that one thread.
     */
    void startThreadPool() EXCLUDES(mLock);

    /**
     * Gives the pool at most maxThreads threads. One is the caller, if callerJoinsPool says that it
     * will call joinThreadPool(); one, if any is left, is spawned by startThreadPool(); the driver
     * asks for the rest when it needs them. Starts nothing. Returns 0 or the driver's negative
     * errno.
     *
     * Fatal: no threads at all although the caller joins; shrinking a pool that is running.
     */
    status_t setThreadPoolConfiguration(size_t maxThreads, bool callerJoinsPool) EXCLUDES(mLock);

    size_t getMaxThreads() const EXCLUDES(mLock);

    /** Spawns a thread of the pool; isMain unless the driver asked for it. */
    void spawnPooledThread(bool isMain);

    // For the transport.

    /** The one proxy for a handle of the driver; null without a driver. */
    sp<IBinder> getStrongProxyForHandle(uint32_t handle);

    BinderDriver& driver() { return *mDriver; }
    LocalNodes& localNodes() { return *mLocalNodes; }
    RemoteHandles& remoteHandles() { return *mRemoteHandles; }

    /** What becomeContextManager() publishes. */
    void setTheContextObject(const sp<BHwBinder>& object) EXCLUDES(mLock);

  private:
    ProcessState();
    ~ProcessState() override;

    const std::unique_ptr<BinderDriver> mDriver;
    const std::unique_ptr<LocalNodes> mLocalNodes;
    const std::unique_ptr<RemoteHandles> mRemoteHandles;

    mutable std::mutex mLock;
    bool mThreadPoolStarted GUARDED_BY(mLock) = false;
    bool mSpawnThreadOnStart GUARDED_BY(mLock) = true;
    size_t mMaxThreads GUARDED_BY(mLock) = 0;
    sp<BHwBinder> mContextObject GUARDED_BY(mLock);
    bool mIsContextManager GUARDED_BY(mLock) = false;
    std::atomic<int> mThreadPoolSequence{1};
};

}  // namespace hardware
}  // namespace android
