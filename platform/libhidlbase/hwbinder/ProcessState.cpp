// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "hw-ProcessState"

#include "hwbinder/ProcessState.h"

#include <cstdio>
#include <cstring>

#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <hwbinder/Binder.h>
#include <hwbinder/IPCThreadState.h>
#include <hwbinder/Parcel.h>
#include <log/log.h>
#include <hwbinder/BpHwBinder.h>

#include "BinderDriver.h"
#include "LocalNodes.h"
#include "RemoteHandles.h"

namespace android {
namespace hardware {
namespace {

constexpr char kDevice[] = "/dev/hwbinder";
constexpr uint32_t kContextHandle = 0;

struct PooledThread {
    bool isMain;
    int number;
};

void* runPooledThread(void* argument) {
    const std::unique_ptr<PooledThread> thread(static_cast<PooledThread*>(argument));
    char name[32];
    snprintf(name, sizeof(name), "HwBinder:%d_%X", getpid(), thread->number);
    prctl(PR_SET_NAME, name);  // cut to fifteen characters
    IPCThreadState::self()->joinThreadPool(thread->isMain);
    return nullptr;
}

}  // namespace

sp<ProcessState> ProcessState::self() {
    // Never destroyed: pooled threads outlive static objects.
    static const sp<ProcessState>& process = *new sp<ProcessState>(new ProcessState);
    return process;
}

ProcessState::ProcessState()
    : mDriver(std::make_unique<BinderDriver>(kDevice)),
      mLocalNodes(std::make_unique<LocalNodes>()),
      mRemoteHandles(std::make_unique<RemoteHandles>()) {
    mDriver->setMaxThreads(0);
}

ProcessState::~ProcessState() = default;

bool ProcessState::hasDriver() const {
    return mDriver->isOpen();
}

sp<IBinder> ProcessState::getStrongProxyForHandle(uint32_t handle) {
    if (!hasDriver()) return nullptr;
    return mRemoteHandles->get(handle);
}

sp<IBinder> ProcessState::getContextObject(const sp<IBinder>&) {
    if (!hasDriver()) return nullptr;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mIsContextManager) return mContextObject;
    }
    // A reference to handle 0 can be taken only while there is an object behind it.
    const status_t status = IPCThreadState::self()->transact(
            kContextHandle, IBinder::PING_TRANSACTION, Parcel(), nullptr, 0);
    if (status == DEAD_OBJECT) return nullptr;
    return getStrongProxyForHandle(kContextHandle);
}

void ProcessState::setTheContextObject(const sp<BHwBinder>& object) {
    std::lock_guard<std::mutex> lock(mLock);
    mContextObject = object;
}

bool ProcessState::becomeContextManager() {
    std::lock_guard<std::mutex> lock(mLock);
    if (mContextObject == nullptr) {
        ALOGE("Not the context manager: there is no context object");
        return false;
    }
    // Stays published for as long as the process lives.
    const uint64_t name = mLocalNodes->publish(mContextObject);
    flat_binder_object object{};
    object.hdr.type = BINDER_TYPE_BINDER;
    object.flags = FLAT_BINDER_FLAG_ACCEPTS_FDS;
    object.binder = name;
    object.cookie = name;
    const status_t status = mDriver->setContextManager(object);
    if (status != OK) {
        mLocalNodes->withdraw(name);
        ALOGE("Becoming the context manager failed: %s", strerror(-status));
    }
    mIsContextManager = status == OK;
    return mIsContextManager;
}

void ProcessState::startThreadPool() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mThreadPoolStarted) return;
        mThreadPoolStarted = true;
        if (!mSpawnThreadOnStart) return;
    }
    spawnPooledThread(true);
}

status_t ProcessState::setThreadPoolConfiguration(size_t maxThreads, bool callerJoinsPool) {
    std::lock_guard<std::mutex> lock(mLock);
    LOG_ALWAYS_FATAL_IF(
            maxThreads == 0 && callerJoinsPool,
            "Binder threadpool must have a minimum of one thread if caller joins pool.");
    LOG_ALWAYS_FATAL_IF(mThreadPoolStarted && maxThreads < mMaxThreads,
                        "Binder threadpool cannot be shrunk after starting");
    size_t threadsLeft = callerJoinsPool ? maxThreads - 1 : maxThreads;
    mSpawnThreadOnStart = threadsLeft > 0;
    if (mSpawnThreadOnStart) --threadsLeft;
    mMaxThreads = maxThreads;
    const status_t status = mDriver->setMaxThreads(threadsLeft);
    if (status != OK) ALOGE("Setting %zu threads failed: %s", threadsLeft, strerror(-status));
    return status;
}

size_t ProcessState::getMaxThreads() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mMaxThreads;
}

void ProcessState::spawnPooledThread(bool isMain) {
    if (!hasDriver()) return;
    auto argument = std::make_unique<PooledThread>(PooledThread{isMain, mThreadPoolSequence++});
    pthread_t thread;
    const int error = pthread_create(&thread, nullptr, runPooledThread, argument.get());
    if (error != 0) {
        ALOGE("Starting a thread of the pool failed: %s", strerror(error));
        return;
    }
    argument.release();  // NOLINT: the thread's now
    pthread_detach(thread);
}

}  // namespace hardware
}  // namespace android
