// SPDX-License-Identifier: Apache-2.0
#include "support/ShortWaits.h"

#include <dlfcn.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <mutex>

namespace korvane::test {
namespace {

enum class Mode { kReal, kStepOver, kHold };

std::atomic<Mode> sMode{Mode::kReal};
std::atomic<bool> sStepOverFutures{false};
std::mutex sLock;
std::vector<std::chrono::nanoseconds>& steppedOverLengths() {
    static auto* sLengths = new std::vector<std::chrono::nanoseconds>;  // for threads that go on
    return *sLengths;
}
// What this thread last took for the time: a wait is reckoned from there.
thread_local int64_t sNowNs = 0;
// How far the process's monotonic clock is ahead of the machine's.
std::atomic<int64_t> sAheadNs{0};

// The std::condition_variable of a steady clock waits with this one call, and asks the clock.
using ClockWait = int (*)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
using ClockGetTime = int (*)(clockid_t, timespec*);
// The std::future waits with this one.
using Syscall = long (*)(long, ...);

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
    sMode = Mode::kStepOver;
}

ShortWaits::~ShortWaits() {
    sMode = Mode::kReal;
    sStepOverFutures = false;
}

void ShortWaits::stepOverFutures(bool stepOver) {
    sStepOverFutures = stepOver;
}

void ShortWaits::hold() {
    sMode = Mode::kHold;
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
    if (meant && sMode == Mode::kStepOver) {
        stepOver(left);
        return ETIMEDOUT;
    }
    constexpr int64_t kForEver = INT64_C(1000000000) * 3600 * 24;
    const bool held = meant && sMode == Mode::kHold;
    const timespec machineTime = toTimespec(toNs(*until) - sAheadNs + (held ? kForEver : 0));
    return sReal(condition, mutex, clock, &machineTime);
}

extern "C" long syscall(long number, ...) {
    static const auto sReal = real<Syscall>("syscall");
    long arguments[6];
    va_list list;
    va_start(list, number);
    for (long& argument : arguments) argument = va_arg(list, long);
    va_end(list);

    const auto* until = reinterpret_cast<const timespec*>(arguments[3]);
    timespec machineTime;
    // FUTEX_WAIT_BITSET without a flag is the one with a point of the monotonic clock.
    if (number == SYS_futex && (arguments[1] & FUTEX_CMD_MASK) == FUTEX_WAIT_BITSET &&
        (arguments[1] & FUTEX_CLOCK_REALTIME) == 0 && until != nullptr) {
        const int64_t left = toNs(*until) - sNowNs;
        if (isMeant(left) && sStepOverFutures) {
            stepOver(left);
            errno = ETIMEDOUT;
            return -1;
        }
        machineTime = toTimespec(toNs(*until) - sAheadNs);
        arguments[3] = reinterpret_cast<long>(&machineTime);
    }
    return sReal(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4],
                 arguments[5]);
}
