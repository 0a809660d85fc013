// SPDX-License-Identifier: Apache-2.0
// How many threads a configuration gives the pool: what is started here, what the driver may ask
// for. A pool starts once in a process, so each case has a process of its own.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <pthread.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <hwbinder/ProcessState.h>

#include "support/ScriptedBinder.h"

namespace {
int sThreadsStarted = 0;
}  // namespace

extern "C" int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t*, void* (*)(void*),
                                     void*) {
    sThreadsStarted++;
    *thread = pthread_self();
    return 0;
}

extern "C" int __wrap_pthread_detach(pthread_t) {
    return 0;
}

namespace korvane::test {
namespace {

using android::sp;
using android::hardware::ProcessState;
using testing::ExitedWithCode;

sp<ProcessState> process() {
    ScriptedBinder::ofThisProcess();
    return ProcessState::self();
}

/** Says how many threads have been started and how many the driver may ask for, and ends. */
[[noreturn]] void report() {
    const auto calls = ScriptedBinder::ofThisProcess().kernel().calls("BINDER_SET_MAX_THREADS");
    fprintf(stderr, "started %d, may ask for %u\n", sThreadsStarted, calls.back().as<uint32_t>());
    _exit(EXIT_SUCCESS);
}

[[noreturn]] void configureAndStart(size_t maxThreads, bool callerJoins) {
    process()->setThreadPoolConfiguration(maxThreads, callerJoins);
    if (sThreadsStarted > 0 || process()->getMaxThreads() != maxThreads) _exit(EXIT_FAILURE);
    process()->startThreadPool();
    process()->startThreadPool();
    report();
}

struct Size {
    size_t maxThreads;
    bool callerJoins;
    std::string outcome;
};

void PrintTo(const Size& size, std::ostream* out) {
    *out << size.maxThreads << (size.callerJoins ? " with" : " without") << " the caller";
}

class HwPoolSizeDeathTest : public testing::TestWithParam<Size> {};

TEST_P(HwPoolSizeDeathTest, IsWhatTheConfigurationLeavesBesideTheCaller) {
    EXPECT_EXIT(configureAndStart(GetParam().maxThreads, GetParam().callerJoins),
                ExitedWithCode(EXIT_SUCCESS), GetParam().outcome);
}

INSTANTIATE_TEST_SUITE_P(All, HwPoolSizeDeathTest,
                         testing::Values(Size{0, false, "started 0, may ask for 0"},
                                         Size{1, true, "started 0, may ask for 0"},
                                         Size{1, false, "started 1, may ask for 0"},
                                         Size{2, true, "started 1, may ask for 0"},
                                         Size{3, true, "started 1, may ask for 1"},
                                         Size{3, false, "started 1, may ask for 2"}));

TEST(HwPoolDeathTest, WithoutAConfigurationThePoolIsOneThread) {
    const auto start = [] {
        process()->startThreadPool();
        report();
    };
    EXPECT_EXIT(start(), ExitedWithCode(EXIT_SUCCESS), "started 1, may ask for 0");
}

TEST(HwPoolDeathTest, AThreadStartedBeforeTheConfigurationStaysInAddition) {
    const auto configureLate = [] {
        process()->startThreadPool();
        process()->setThreadPoolConfiguration(3, false);
        process()->startThreadPool();
        report();
    };
    EXPECT_EXIT(configureLate(), ExitedWithCode(EXIT_SUCCESS), "started 1, may ask for 2");
}

TEST(HwPoolDeathTest, ADriverThatRefusesTheSizeIsSaid) {
    const auto configure = [] {
        process();
        ScriptedBinder::ofThisProcess().kernel().fail("BINDER_SET_MAX_THREADS", EINVAL);
        _exit(process()->setThreadPoolConfiguration(3, false) == -EINVAL ? 0 : 1);
    };
    EXPECT_EXIT(configure(), ExitedWithCode(EXIT_SUCCESS),
                "Setting 2 threads failed: Invalid argument");
}

}  // namespace
}  // namespace korvane::test
