// SPDX-License-Identifier: Apache-2.0
#include "StreamDemand.h"

#include <chrono>

namespace korvane::camera {
namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point at(int64_t ns) {
    return Clock::time_point(std::chrono::nanoseconds(ns));
}

}  // namespace

int64_t monotonicNs() {
    return std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
}

void StreamDemand::start() {
    const std::lock_guard<std::mutex> guard(mLock);
    if (mWanted && mJoined && !mStartHeard) {
        mStartHeard = true;
    } else {
        begin_l(false);
    }
}

void StreamDemand::join() {
    const std::lock_guard<std::mutex> guard(mLock);
    if (!mWanted) begin_l(true);
}

void StreamDemand::over(uint64_t stream) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (!isWanted_l(stream)) return;
    if (mJoined && mStartHeard) {
        begin_l(false);
    } else {
        mWanted = false;
    }
}

void StreamDemand::begin_l(bool joined) {
    ++mLatest;
    mWanted = true;
    mJoined = joined;
    mStartHeard = false;
    mChanged.notify_all();
}

void StreamDemand::stop() {
    const std::lock_guard<std::mutex> guard(mLock);
    mWanted = false;
    mChanged.notify_all();
}

void StreamDemand::serviceDied() {
    const std::lock_guard<std::mutex> guard(mLock);
    mWanted = false;
    mDied = true;
    mChanged.notify_all();
}

void StreamDemand::quit() {
    const std::lock_guard<std::mutex> guard(mLock);
    mQuit = true;
    mChanged.notify_all();
}

StreamDemand::Work StreamDemand::waitForWork(uint64_t* stream) {
    const std::lock_guard<std::mutex> guard(mLock);
    while (!mQuit && !mDied && !(mWanted && mServed != mLatest)) mChanged.wait(mLock);
    if (mQuit) return Work::QUIT;
    if (mDied) {
        mDied = false;
        return Work::RECONNECT;
    }
    *stream = mServed = mLatest;
    return mJoined ? Work::JOIN : Work::STREAM;
}

bool StreamDemand::waitToRetry(int64_t untilNs) {
    const std::lock_guard<std::mutex> guard(mLock);
    while (!mQuit && mChanged.wait_until(mLock, at(untilNs)) == std::cv_status::no_timeout) {
    }
    return !mQuit;
}

bool StreamDemand::isWanted(uint64_t stream) const {
    const std::lock_guard<std::mutex> guard(mLock);
    return isWanted_l(stream);
}

bool StreamDemand::waitWhileWanted(uint64_t stream, int64_t untilNs) const {
    const std::lock_guard<std::mutex> guard(mLock);
    while (isWanted_l(stream) &&
           mChanged.wait_until(mLock, at(untilNs)) == std::cv_status::no_timeout) {
    }
    return isWanted_l(stream);
}

bool StreamDemand::isWanted_l(uint64_t stream) const {
    return mWanted && stream == mLatest && !mQuit;
}

}  // namespace korvane::camera
