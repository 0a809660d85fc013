// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "hw-IPCThreadState"

#include "hwbinder/IPCThreadState.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <pthread.h>
#include <unistd.h>

#include <hwbinder/Parcel.h>
#include <hwbinder/ProcessState.h>
#include <log/log.h>
#include <hwbinder/BpHwBinder.h>

#include "BinderDriver.h"
#include "DriverChannel.h"
#include "DriverEvents.h"
#include "IncomingCall.h"
#include "Transaction.h"

namespace android {
namespace hardware {
namespace {

// Commands of drivers newer than the headers that we build with.
constexpr uint32_t kTransactionPendingFrozen = _IO('r', 20);

/**
 * The thread's state hangs on a key, not a thread_local, so that it can be reached at thread exit.
 */
pthread_key_t threadKey(void (*destructor)(void*)) {
    static const pthread_key_t key = [destructor] {
        pthread_key_t created;
        LOG_ALWAYS_FATAL_IF(pthread_key_create(&created, destructor) != 0,
                            "No key for the state of threads");
        return created;
    }();
    return key;
}

}  // namespace

IPCThreadState* IPCThreadState::self() {
    IPCThreadState* state = selfOrNull();
    if (state == nullptr) {
        state = new IPCThreadState;
        pthread_setspecific(threadKey(threadDestructor), state);
    }
    return state;
}

IPCThreadState* IPCThreadState::selfOrNull() {
    return static_cast<IPCThreadState*>(pthread_getspecific(threadKey(threadDestructor)));
}

IPCThreadState::IPCThreadState()
    : mChannel(std::make_unique<DriverChannel>(ProcessState::self()->driver())),
      mEvents(std::make_unique<DriverEvents>(*ProcessState::self(), *mChannel)) {}

IPCThreadState::~IPCThreadState() {
    mChannel->driver().exitThread();
}

void IPCThreadState::threadDestructor(void* state) {
    auto* thread = static_cast<IPCThreadState*>(state);
    // What runs here may still ask for this thread's state.
    pthread_setspecific(threadKey(threadDestructor), thread);
    thread->mEvents->runDeferred();
    thread->flushCommands();
    pthread_setspecific(threadKey(threadDestructor), nullptr);
    delete thread;
}

IPCThreadState::Caller IPCThreadState::caller() const {
    return mCaller.value_or(Caller{getpid(), getuid()});
}

int64_t IPCThreadState::clearCallingIdentity() {
    const int64_t token = static_cast<int64_t>(getCallingUid()) << 32 | getCallingPid();
    mCaller = Caller{getpid(), getuid()};
    return token;
}

void IPCThreadState::restoreCallingIdentity(int64_t token) {
    mCaller = Caller{static_cast<pid_t>(token), static_cast<uid_t>(token >> 32)};
}

void IPCThreadState::setTheContextObject(const sp<BHwBinder>& object) {
    ProcessState::self()->setTheContextObject(object);
}

bool IPCThreadState::isOnlyBinderThread() const {
    return mIsPolling || (mIsLooper && ProcessState::self()->getMaxThreads() <= 1);
}

void IPCThreadState::flushCommands() {
    mChannel->flush();
    letGoOfProxies();
}

void IPCThreadState::flushUnlessServing() {
    if (!mIsServing) flushCommands();
}

void IPCThreadState::letGoOfProxies() {
    if (mChannel->out().isEmpty()) std::exchange(mNewProxies, {});
}

// Serving.

void IPCThreadState::joinThreadPool(bool isMain) {
    mChannel->out().write(isMain ? BC_ENTER_LOOPER : BC_REGISTER_LOOPER);
    mIsLooper = true;
    mIsServing = true;
    status_t status;
    do {
        status = executeNextCommand();
    } while (status == OK || (status == TIMED_OUT && isMain));
    mIsServing = false;
    ALOGE_IF(status != TIMED_OUT && status != -ECONNREFUSED,
             "A thread leaves the pool, as the driver says %d", status);
    mIsLooper = false;
    mChannel->out().write(BC_EXIT_LOOPER);
    flushCommands();
}

status_t IPCThreadState::setupPolling(int* fd) {
    mChannel->out().write(BC_ENTER_LOOPER);
    const status_t status = mChannel->flush();
    if (status != OK) return status;
    mIsPolling = true;
    mIsLooper = true;
    *fd = mChannel->driver().fd();
    return OK;
}

status_t IPCThreadState::handlePolledCommands() {
    mIsServing = true;
    // The descriptor may poll readable with nothing to read: take only what is there, without
    // waiting.
    status_t status = mChannel->receive();
    while (status == OK && !mChannel->in().isExhausted()) status = executeNextCommand();
    mIsServing = false;
    flushCommands();
    return status;
}

status_t IPCThreadState::executeNextCommand() {
    // A proxy that nobody else holds must not stay until the next call comes.
    if (!mNewProxies.empty()) flushCommands();
    uint32_t command;
    status_t status = nextCommand(&command);
    if (status == OK) status = execute(command);
    runDeferredEvents();
    return status;
}

void IPCThreadState::runDeferredEvents() {
    // What runs may make calls, which must not meet a command that was read before them.
    if (mChannel->in().isExhausted()) mEvents->runDeferred();
}

status_t IPCThreadState::nextCommand(uint32_t* command) {
    do {
        const status_t status = mChannel->receive();
        if (status != OK) return status;
        letGoOfProxies();
    } while (mChannel->in().isExhausted());
    return mChannel->in().read(command) ? OK : BAD_VALUE;
}

status_t IPCThreadState::execute(uint32_t command) {
    binder_transaction_data_secctx call;
    if (command == BR_TRANSACTION) {
        if (!mChannel->in().read(&call.transaction_data)) return BAD_VALUE;
    } else if (command == BR_TRANSACTION_SEC_CTX) {
        if (!mChannel->in().read(&call)) return BAD_VALUE;
    } else {
        return mEvents->handle(command);
    }
    IncomingCall(*this, call.transaction_data).serve();
    return OK;
}

// Calling.

status_t IPCThreadState::transact(uint32_t handle, uint32_t code, const Parcel& data, Parcel* reply,
                                  uint32_t flags) {
    if (!ProcessState::self()->hasDriver()) return NO_INIT;
    writeCall(mChannel->out(), handle, code, flags, data);
    if ((flags & TF_ONE_WAY) != 0) return waitForCompletion();
    Parcel ignored;
    ++mCallDepth;
    const status_t status = waitForReply(reply != nullptr ? reply : &ignored);
    --mCallDepth;
    // A thread of the pool gets to this between the calls that it serves.
    if (mCallDepth == 0 && !mIsLooper) runDeferredEvents();
    return status;
}

status_t IPCThreadState::waitForCompletion() {
    return waitForReply(nullptr);
}

/** Without reply: waits only until the driver has taken what was sent. */
status_t IPCThreadState::waitForReply(Parcel* reply) {
    while (true) {
        uint32_t command;
        status_t status = nextCommand(&command);
        if (status != OK) return status;
        switch (command) {
            case BR_TRANSACTION_COMPLETE:
            case BR_ONEWAY_SPAM_SUSPECT:
            case kTransactionPendingFrozen:
                if (reply == nullptr) return OK;
                break;
            case BR_DEAD_REPLY:
                return DEAD_OBJECT;
            case BR_FAILED_REPLY:
            case BR_FROZEN_REPLY:
                return FAILED_TRANSACTION;
            case BR_REPLY:
                return receiveReply(reply);
            default:
                status = execute(command);
                if (status != OK) return status;
        }
    }
}

status_t IPCThreadState::receiveReply(Parcel* reply) {
    binder_transaction_data received;
    if (!mChannel->in().read(&received)) return BAD_VALUE;
    if ((received.flags & TF_STATUS_CODE) != 0) return receiveStatus(received);
    Parcel unexpected;
    return receiveParcel(received, reply != nullptr ? reply : &unexpected);
}

void IPCThreadState::freeBuffer(const uint8_t* bytes) {
    mChannel->out().write(BC_FREE_BUFFER,
                          static_cast<binder_uintptr_t>(reinterpret_cast<uintptr_t>(bytes)));
    flushUnlessServing();
}

// References and links of proxies.

void IPCThreadState::incStrongHandle(const sp<BpHwBinder>& proxy) {
    mChannel->out().write(BC_ACQUIRE, proxy->handle());
    // Until then the received bytes hold the object that a handle came for; none came for handle 0.
    if (mIsServing && proxy->handle() != 0) {
        mNewProxies.push_back(proxy);
    } else {
        mChannel->flush();
    }
}

void IPCThreadState::decStrongHandle(uint32_t handle) {
    mChannel->out().write(BC_RELEASE, handle);
    flushUnlessServing();
}

status_t IPCThreadState::requestDeathNotification(uint32_t handle, uint64_t cookie) {
    mChannel->out().write(BC_REQUEST_DEATH_NOTIFICATION, binder_handle_cookie{handle, cookie});
    return mChannel->flush();
}

status_t IPCThreadState::clearDeathNotification(uint32_t handle, uint64_t cookie) {
    mChannel->out().write(BC_CLEAR_DEATH_NOTIFICATION, binder_handle_cookie{handle, cookie});
    return mChannel->flush();
}

}  // namespace hardware
}  // namespace android
