// SPDX-License-Identifier: Apache-2.0
#include "media/stagefright/foundation/ALooper.h"

#define LOG_TAG "ALooper"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <limits>
#include <map>
#include <utility>

#include <pthread.h>

#include <android-base/thread_annotations.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Timers.h>

#include "ALooperRoster.h"

namespace android {

// From a start to its stop. A loop that is told to stop by the handler it calls ends only
// afterwards, by which time the looper may have been started again.
struct ALooper::Run {
    bool stopped = false;  // guarded by the lock of the queue
};

class ALooper::EventQueue {
  public:
    void add(int64_t whenUs, const sp<AMessage>& msg);

    // Delivers until the run is stopped.
    void deliver(const Run& run);

    void stop(Run* run);

  private:
    // The next message that is due; null when the run is stopped.
    sp<AMessage> next(const Run& run);

    std::mutex mLock;
    std::condition_variable_any mChanged;
    // By due time; a multimap keeps the order of insertion among equal keys.
    std::multimap<int64_t, sp<AMessage>> mMessages GUARDED_BY(mLock);
};

void ALooper::EventQueue::add(int64_t whenUs, const sp<AMessage>& msg) {
    std::lock_guard<std::mutex> guard(mLock);
    mMessages.emplace(whenUs, msg);
    mChanged.notify_all();
}

void ALooper::EventQueue::deliver(const Run& run) {
    while (const sp<AMessage> msg = next(run)) msg->deliver();
}

void ALooper::EventQueue::stop(Run* run) {
    std::lock_guard<std::mutex> guard(mLock);
    run->stopped = true;
    mChanged.notify_all();
}

sp<AMessage> ALooper::EventQueue::next(const Run& run) {
    std::lock_guard<std::mutex> guard(mLock);
    while (!run.stopped) {
        if (mMessages.empty()) {
            mChanged.wait(mLock);
            continue;
        }
        const auto first = mMessages.begin();
        const int64_t waitUs = first->first - GetNowUs();
        if (waitUs > 0) {
            // A day at a time: with the longest delays the clock's own arithmetic would overflow.
            const auto day = std::chrono::hours(24);
            mChanged.wait_for(mLock, std::min<std::chrono::microseconds>(
                                             std::chrono::microseconds(waitUs), day));
            continue;
        }
        sp<AMessage> msg = first->second;
        mMessages.erase(first);
        return msg;
    }
    return nullptr;
}

ALooper::ALooper() : mQueue(std::make_shared<EventQueue>()) {
    ALooperRoster::instance().unregisterStaleHandlers();
}

ALooper::~ALooper() {
    stop();
}

void ALooper::setName(const char* name) {
    mName = name;
}

ALooper::handler_id ALooper::registerHandler(const sp<AHandler>& handler) {
    return ALooperRoster::instance().registerHandler(this, handler);
}

void ALooper::unregisterHandler(handler_id handlerId) {
    ALooperRoster::instance().unregisterHandler(handlerId);
}

status_t ALooper::start(bool runOnCallingThread, bool /*canCallJava*/, int32_t /*priority*/) {
    const auto run = std::make_shared<Run>();
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mRun != nullptr) return INVALID_OPERATION;
        mRun = run;
        if (!runOnCallingThread) {
            const AString name = mName.empty() ? AString("ALooper") : mName;
            mThread = std::thread([queue = mQueue, run, name] {
                // The kernel keeps 15 characters of a thread's name and refuses more.
                pthread_setname_np(pthread_self(), std::string(name.c_str(), 0, 15).c_str());
                queue->deliver(*run);
            });
            return OK;
        }
    }
    const std::shared_ptr<EventQueue> queue = mQueue;
    queue->deliver(*run);
    return OK;
}

status_t ALooper::stop() {
    std::shared_ptr<Run> run;
    std::thread thread;
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mRun == nullptr) return INVALID_OPERATION;
        run = std::move(mRun);
        mRun = nullptr;
        thread = std::move(mThread);
    }
    mQueue->stop(run.get());
    if (!thread.joinable()) return OK;
    if (thread.get_id() == std::this_thread::get_id()) {
        thread.detach();
    } else {
        thread.join();
    }
    return OK;
}

int64_t ALooper::GetNowUs() {
    return systemTime(SYSTEM_TIME_MONOTONIC) / 1000;
}

void ALooper::post(const sp<AMessage>& msg, int64_t delayUs) {
    const int64_t now = GetNowUs();
    const int64_t latest = std::numeric_limits<int64_t>::max();
    const int64_t delay = std::max<int64_t>(delayUs, 0);
    mQueue->add(delay > latest - now ? latest : now + delay, msg);
}

}  // namespace android
