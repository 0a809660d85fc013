// SPDX-License-Identifier: Apache-2.0
#include "support/ShortWaits.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <mutex>
#include <utility>

#include <dlfcn.h>
#include <pthread.h>
#include <time.h>

namespace korvane::test {
namespace {

enum class Mode { REAL, STEP_OVER, HOLD };

std::atomic<Mode> sMode{Mode::REAL};
std::atomic<bool> sStepOverNextFuture{false};
std::function<void()> sMeanwhile;  // written before and read after the flag is changed
std::mutex sLock;
std::vector<std::chrono::nanoseconds>& steppedOverLengths() {
    static auto* sLengths = new std::vector<std::chrono::nanoseconds>;  // for threads that go on
    return *sLengths;
}
// What this thread last took to be the time: waits are measured from there.
thread_local int64_t sNowNs = 0;
// How far the process's monotonic clock is ahead of the machine's.
std::atomic<int64_t> sAheadNs{0};

// A std::condition_variable on a steady clock waits with this one call, and asks the clock.
using ClockWait = int (*)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
using ClockGetTime = int (*)(clockid_t, timespec*);
// A std::future waits with this member function of the library.
#define FUTURE_WAIT                                                                           \
    "_ZNSt28__atomic_futex_unsigned_base26_M_futex_wait_until_steadyEPjjbNSt6chrono8duration" \
    "IlSt5ratioILl1ELl1EEEENS2_IlS3_ILl1ELl1000000000EEEE"
using FutureWait = bool (*)(void*, unsigned*, unsigned, bool, std::chrono::seconds,
                            std::chrono::nanoseconds);

template <typename Function>
Function real(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

int64_t toNs(const timespec& time) {
    return int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

timespec toTimespec(int64_t ns) {
    return {ns / 1000000000, ns % 1000000000};
}

bool isMeant(int64_t left) {
    return left > 1000000000 && left < 3000000000;
}

void stepOver(int64_t left) {
    const std::lock_guard<std::mutex> guard(sLock);
    steppedOverLengths().emplace_back(left);
    sAheadNs += left;
}

}  // namespace

ShortWaits::ShortWaits() {
    const std::lock_guard<std::mutex> guard(sLock);
    steppedOverLengths().clear();
    sMode = Mode::STEP_OVER;
}

ShortWaits::~ShortWaits() {
    sMode = Mode::REAL;
    sStepOverNextFuture = false;
}

void ShortWaits::stepOverNextFuture(bool stepOver) {
    sMeanwhile = nullptr;
    sStepOverNextFuture = stepOver;
}

void ShortWaits::stepOverNextFuture(std::function<void()> meanwhile) {
    sMeanwhile = std::move(meanwhile);
    sStepOverNextFuture = true;
}

void ShortWaits::hold() {
    sMode = Mode::HOLD;
}

std::vector<std::chrono::nanoseconds> ShortWaits::steppedOver() const {
    const std::lock_guard<std::mutex> guard(sLock);
    return steppedOverLengths();
}

}  // namespace korvane::test

using namespace korvane::test;

extern "C" int clock_gettime(clockid_t clock, timespec* time) {
    static const auto sReal = real<ClockGetTime>("clock_gettime");
    const int result = sReal(clock, time);
    if (result != 0 || clock != CLOCK_MONOTONIC) return result;
    sNowNs = toNs(*time) + sAheadNs;
    *time = toTimespec(sNowNs);
    return 0;
}

extern "C" int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                      clockid_t clock, const timespec* until) {
    static const auto sReal = real<ClockWait>("pthread_cond_clockwait");
    if (clock != CLOCK_MONOTONIC) return sReal(condition, mutex, clock, until);
    const int64_t left = toNs(*until) - sNowNs;
    const bool meant = isMeant(left);
    if (meant && sMode == Mode::STEP_OVER) {
        stepOver(left);
        return ETIMEDOUT;
    }
    constexpr int64_t kForEver = INT64_C(1000000000) * 3600 * 24;
    const bool held = meant && sMode == Mode::HOLD;
    const timespec machineTime = toTimespec(toNs(*until) - sAheadNs + (held ? kForEver : 0));
    return sReal(condition, mutex, clock, &machineTime);
}

bool waitForFuture(void* future, unsigned* address, unsigned value, bool hasTimeout,
                   std::chrono::seconds seconds,
                   std::chrono::nanoseconds nanoseconds) __asm__(FUTURE_WAIT);

bool waitForFuture(void* future, unsigned* address, unsigned value, bool hasTimeout,
                   std::chrono::seconds seconds, std::chrono::nanoseconds nanoseconds) {
    static const auto sReal = real<FutureWait>(FUTURE_WAIT);
    if (!hasTimeout) return sReal(future, address, value, hasTimeout, seconds, nanoseconds);
    const int64_t until = std::chrono::nanoseconds(seconds + nanoseconds).count();
    const int64_t left = until - sNowNs;
    if (isMeant(left) && sStepOverNextFuture.exchange(false)) {
        if (sMeanwhile) sMeanwhile();
        stepOver(left);
        return false;
    }
    const timespec machineTime = toTimespec(until - sAheadNs);
    return sReal(future, address, value, hasTimeout, std::chrono::seconds(machineTime.tv_sec),
                 std::chrono::nanoseconds(machineTime.tv_nsec));
}
