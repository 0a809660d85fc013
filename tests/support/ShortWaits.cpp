// SPDX-License-Identifier: Apache-2.0
#include "support/ShortWaits.h"

#include <dlfcn.h>
#include <pthread.h>
#include <time.h>

#include <cerrno>
#include <cstdint>

namespace korvane::test {
namespace {

std::atomic<bool> sActive{false};
std::atomic<int> sSteppedOver{0};
// How far the process's monotonic clock is ahead of the machine's.
std::atomic<int64_t> sAheadNs{0};

// The std::condition_variable of a steady clock waits with this one call, and asks the clock.
using ClockWait = int (*)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
using ClockGetTime = int (*)(clockid_t, timespec*);

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

}  // namespace

ShortWaits::ShortWaits() {
    sSteppedOver = 0;
    sActive = true;
}

ShortWaits::~ShortWaits() {
    sActive = false;
}

int ShortWaits::steppedOver() const {
    return sSteppedOver;
}

}  // namespace korvane::test

using namespace korvane::test;

extern "C" int clock_gettime(clockid_t clock, timespec* time) {
    static const auto sReal = real<ClockGetTime>("clock_gettime");
    const int result = sReal(clock, time);
    if (result == 0 && clock == CLOCK_MONOTONIC) *time = toTimespec(toNs(*time) + sAheadNs);
    return result;
}

extern "C" int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                      clockid_t clock, const timespec* until) {
    static const auto sReal = real<ClockWait>("pthread_cond_clockwait");
    timespec now;
    clock_gettime(clock, &now);
    const int64_t left = toNs(*until) - toNs(now);
    if (sActive && clock == CLOCK_MONOTONIC && left > 1000000000 && left < 3000000000) {
        ++sSteppedOver;
        sAheadNs += left;
        return ETIMEDOUT;
    }
    const int64_t ahead = clock == CLOCK_MONOTONIC ? sAheadNs.load() : 0;
    const timespec machineTime = toTimespec(toNs(*until) - ahead);
    return sReal(condition, mutex, clock, &machineTime);
}
