// SPDX-License-Identifier: Apache-2.0
// The daemon's main, step by step: it is linked into this program, which stands in for the runtime
// around it. And the daemon itself, on a machine where it cannot register.

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <dirent.h>
#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <korvane/hardware/camera/desktop/2.0/ICameraDesktop.h>
#include <log/log.h>

#include "support/LogRecorder.h"
#include "support/Program.h"
#include "support/ShortWaits.h"

using ::korvane::hardware::camera::desktop::V2_0::ICameraDesktop;

/** The daemon's main, which the build renames for this program. */
int serviceMain();

namespace {

// What the runtime and the kernel answer; each call is logged, so that one list tells the order.
constexpr char kCall[] = "call";

int sAffinityError = 0;
android::status_t sRegistration = android::OK;
std::atomic<bool> sNoThreads{false};
std::function<void()> sOnAffinity;
std::function<void()> sOnJoin;
android::wp<ICameraDesktop> sRegistered;

void log(const std::string& call) {
    __android_log_write(ANDROID_LOG_VERBOSE, kCall, call.c_str());
}

}  // namespace

// The linker sends main's calls here (--wrap).

void configure(size_t threads, bool callerWillJoin) __asm__("__wrap_" CONFIGURE_POOL);
void configure(size_t threads, bool callerWillJoin) {
    log("configureRpcThreadpool " + std::to_string(threads) + (callerWillJoin ? " joining" : ""));
}

android::status_t registerService(ICameraDesktop* service,
                                  const std::string& name) __asm__("__wrap_" REGISTER_SERVICE);
android::status_t registerService(ICameraDesktop* service, const std::string& name) {
    log("registerAsService " + name);
    sRegistered = service;
    return sRegistration;
}

void join() __asm__("__wrap_" JOIN_POOL);
void join() {
    log("joinRpcThreadpool");
    if (sOnJoin) sOnJoin();
}

extern "C" long __real_syscall(long number, ...);
extern "C" long __wrap_syscall(long number, ...) {
    va_list list;
    va_start(list, number);
    long arguments[6];
    for (long& argument : arguments) argument = va_arg(list, long);
    va_end(list);
    if (number != SYS_sched_setaffinity) {
        return __real_syscall(number, arguments[0], arguments[1], arguments[2], arguments[3],
                              arguments[4], arguments[5]);
    }
    const auto* mask = reinterpret_cast<const uint32_t*>(arguments[2]);
    const bool own = static_cast<pid_t>(arguments[0]) == gettid();
    log("sched_setaffinity " + std::string(own ? "own" : "other") + " thread, " +
        std::to_string(arguments[1]) + " bytes, " + std::to_string(*mask));
    if (sOnAffinity) sOnAffinity();
    errno = sAffinityError;
    return sAffinityError == 0 ? 0 : -1;
}

// The library that starts a std::thread finds the program's own function first.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*run)(void*), void* argument) {
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto sReal = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return sNoThreads ? EAGAIN : sReal(thread, attributes, run, argument);
}

namespace korvane::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kTag[] = "korvane.hardware.camera.desktop@2.0-service";
constexpr char kControllerTag[] = "UVC-GadgetHandler";

const LogLine kCreated{ANDROID_LOG_DEBUG, kControllerTag, "UvcGadgetHandler E"};
const LogLine kReleased{ANDROID_LOG_DEBUG, kControllerTag, "~UvcGadgetHandler E"};
const LogLine kPinning{ANDROID_LOG_DEBUG, kTag, "Setting thread affinity to 0xF0"};
const LogLine kPinned{ANDROID_LOG_VERBOSE, kCall, "sched_setaffinity own thread, 4 bytes, 240"};
const LogLine kConfigured{ANDROID_LOG_VERBOSE, kCall, "configureRpcThreadpool 1 joining"};
const LogLine kRegistering{ANDROID_LOG_VERBOSE, kCall, "registerAsService default"};
const LogLine kSuccess{ANDROID_LOG_DEBUG, kTag, "Registered Camera Desktop HAL service success!"};
const LogLine kFailure{ANDROID_LOG_ERROR, kTag, "Cannot register Camera Desktop HAL service"};
const LogLine kJoined{ANDROID_LOG_VERBOSE, kCall, "joinRpcThreadpool"};

class ServiceProcessTest : public testing::Test {
  protected:
    ServiceProcessTest() {
        // The poll thread waits to begin, so that the service can be released again.
        mWaits.hold();
        sAffinityError = 0;
        sRegistration = android::OK;
        sNoThreads = false;
        sOnAffinity = nullptr;
        sOnJoin = nullptr;
        sRegistered = nullptr;
    }

    LogRecorder mLog;
    ShortWaits mWaits;
};

TEST_F(ServiceProcessTest, StartsStepByStepAndServesUntilThePoolReturns) {
    EXPECT_EQ(serviceMain(), 0);
    EXPECT_THAT(mLog.lines(), ElementsAre(kCreated, kPinning, kPinned, kConfigured, kRegistering,
                                          kSuccess, kJoined, kReleased));
}

TEST_F(ServiceProcessTest, GoesOnWithoutTheCpusThatItWants) {
    sAffinityError = EINVAL;
    EXPECT_EQ(serviceMain(), 0);
    const LogLine failed{ANDROID_LOG_ERROR, kTag,
                         "Error in the syscall setaffinity: mask=240=0xf0 err=22=0x16"};
    EXPECT_THAT(mLog.lines(), ElementsAre(kCreated, kPinning, kPinned, failed, kConfigured,
                                          kRegistering, kSuccess, kJoined, kReleased));
}

TEST_F(ServiceProcessTest, EndsWithStatus1WhenItCannotRegister) {
    for (const int status : {INT32_MIN, -1, 1}) {
        mLog.clear();
        sRegistration = status;
        EXPECT_EQ(serviceMain(), 1) << status;
        EXPECT_THAT(mLog.lines(), ElementsAre(kCreated, kPinning, kPinned, kConfigured,
                                              kRegistering, kFailure, kReleased));
    }
}

TEST_F(ServiceProcessTest, HoldsTheServiceWhileItServes) {
    bool alive = false;
    sOnJoin = [&] { alive = sRegistered.promote() != nullptr; };
    EXPECT_EQ(serviceMain(), 0);
    EXPECT_TRUE(alive);
    EXPECT_EQ(sRegistered.promote(), nullptr);
}

// The affinity of a thread of this process, by its name; nothing if there is no such thread.
std::vector<cpu_set_t> affinitiesOf(const std::string& name) {
    std::vector<cpu_set_t> found;
    DIR* tasks = opendir("/proc/self/task");
    while (const dirent* task = readdir(tasks)) {
        std::string comm;
        std::getline(std::ifstream(std::string("/proc/self/task/") + task->d_name + "/comm"), comm);
        cpu_set_t cpus;
        if (comm != name || sched_getaffinity(std::stoi(task->d_name), sizeof(cpus), &cpus) != 0) {
            continue;
        }
        found.push_back(cpus);
    }
    closedir(tasks);
    return found;
}

bool equal(const cpu_set_t& a, const cpu_set_t& b) {
    return CPU_EQUAL(&a, &b) != 0;
}

TEST_F(ServiceProcessTest, PinsItselfAndTheThreadsToComeButNotThePollThread) {
    cpu_set_t all;
    ASSERT_EQ(sched_getaffinity(0, sizeof(all), &all), 0);
    if (CPU_COUNT(&all) < 2) GTEST_SKIP() << "needs two processors";
    cpu_set_t one;
    CPU_ZERO(&one);
    for (int cpu = 0; CPU_COUNT(&one) == 0; ++cpu) {
        if (CPU_ISSET(cpu, &all)) CPU_SET(cpu, &one);
    }
    // Which processors there are is the machine's affair: any other set shows who has it.
    sOnAffinity = [&] { sched_setaffinity(0, sizeof(one), &one); };
    std::vector<cpu_set_t> pollThreads;
    cpu_set_t main, later;
    sOnJoin = [&] {
        while (pollThreads.empty()) pollThreads = affinitiesOf("poll_thread");
        sched_getaffinity(0, sizeof(main), &main);
        std::thread([&] { sched_getaffinity(0, sizeof(later), &later); }).join();
    };
    EXPECT_EQ(serviceMain(), 0);
    sched_setaffinity(0, sizeof(all), &all);
    ASSERT_EQ(pollThreads.size(), 1u);
    EXPECT_TRUE(equal(pollThreads[0], all));
    EXPECT_TRUE(equal(main, one));
    EXPECT_TRUE(equal(later, one));
}

TEST_F(ServiceProcessTest, AbortsWhenThereCanBeNoPollThread) {
    // What leaves a program's main ends the program.
    const auto runMain = []() noexcept {
        sNoThreads = true;
        serviceMain();
    };
    EXPECT_EXIT(runMain(), testing::KilledBySignal(SIGABRT), "std::system_error");
}

TEST(DaemonProgramTest, SaysWhyItEndsOnAMachineWithoutBinder) {
    if (access("/dev/hwbinder", F_OK) == 0) GTEST_SKIP() << "this machine has the driver";
    // It has no options; what it is given is nothing to it.
    const ProgramResult result = runProgram(kTag, {"--help"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("Setting thread affinity to 0xF0\n"));
    EXPECT_THAT(result.err, HasSubstr("Cannot register Camera Desktop HAL service\n"));
}

}  // namespace
}  // namespace korvane::test
