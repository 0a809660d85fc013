// SPDX-License-Identifier: Apache-2.0
// The binder driver's device: what is asked of it, and what becomes of one that can't be used.
#include <cerrno>
#include <functional>
#include <memory>
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../../platform/libhidlbase/hwbinder/BinderDriver.h"
#include "support/LogRecorder.h"
#include "support/ScriptedBinder.h"

namespace korvane::test {
namespace {

using android::NO_INIT;
using android::OK;
using android::hardware::BinderDriver;
using testing::ElementsAre;

constexpr char kPath[] = "/dev/scripted";

class HwBinderDriverTest : public testing::Test {
  protected:
    void open() { mDriver = std::make_unique<BinderDriver>(kPath); }

    LogRecorder mLog;
    ScriptedBinder mBinder{kPath};
    std::unique_ptr<BinderDriver> mDriver;
};

TEST_F(HwBinderDriverTest, IsOpenedForThisProgramAloneAndMappedForReading) {
    open();
    EXPECT_TRUE(mDriver->isOpen());
    EXPECT_TRUE(mLog.lines().empty());
    ASSERT_THAT(mBinder.kernel().callNames(), ElementsAre("open", "BINDER_VERSION", "mmap"));
    EXPECT_EQ(O_RDWR | O_CLOEXEC, mBinder.kernel().calls("open")[0].as<int>());
    const auto mapping = mBinder.kernel().calls("mmap")[0].as<KernelMapping>();
    EXPECT_EQ(1024u * 1024 - 2 * sysconf(_SC_PAGESIZE), mapping.length);
    EXPECT_EQ(PROT_READ, mapping.protection);
    EXPECT_EQ(0, mapping.offset);
}

TEST_F(HwBinderDriverTest, IsClosedAndUnmappedInTheEnd) {
    open();
    mDriver = nullptr;
    EXPECT_EQ(0u, mBinder.kernel().openDescriptors());
    EXPECT_EQ(0u, mBinder.kernel().openMappings());
}

TEST_F(HwBinderDriverTest, PassesItsRequestsOn) {
    open();
    EXPECT_EQ(OK, mDriver->setMaxThreads(3));
    EXPECT_EQ(3u, mBinder.kernel().calls("BINDER_SET_MAX_THREADS")[0].as<uint32_t>());
    flat_binder_object object{};
    object.binder = 77;
    EXPECT_EQ(OK, mDriver->setContextManager(object));
    const auto manager = mBinder.kernel().calls("BINDER_SET_CONTEXT_MGR_EXT")[0];
    EXPECT_EQ(77u, manager.as<flat_binder_object>().binder);
    mDriver->exitThread();
    EXPECT_EQ(1u, mBinder.kernel().calls("BINDER_THREAD_EXIT").size());
}

TEST_F(HwBinderDriverTest, SaysWhatTheDriverAnswers) {
    open();
    mBinder.kernel().fail("BINDER_SET_MAX_THREADS", EINVAL);
    mBinder.kernel().fail("BINDER_SET_CONTEXT_MGR_EXT", EBUSY);
    mBinder.kernel().fail("BINDER_WRITE_READ", ECONNREFUSED);
    EXPECT_EQ(-EINVAL, mDriver->setMaxThreads(3));
    EXPECT_EQ(-EBUSY, mDriver->setContextManager({}));
    binder_write_read exchange{};
    EXPECT_EQ(-ECONNREFUSED, mDriver->writeRead(&exchange));
    EXPECT_EQ(OK, mDriver->writeRead(&exchange));
}

TEST_F(HwBinderDriverTest, GoesOnAfterASignal) {
    open();
    mBinder.kernel().fail("BINDER_WRITE_READ", EINTR, 0, 3);
    binder_write_read exchange{};
    EXPECT_EQ(OK, mDriver->writeRead(&exchange));
    EXPECT_EQ(4u, mBinder.kernel().calls("BINDER_WRITE_READ").size());
}

struct Fault {
    const char* name;
    std::function<void(ScriptedKernel&)> apply;
    std::string logged;
};

void PrintTo(const Fault& fault, std::ostream* out) {
    *out << fault.name;
}

class HwBinderDriverFaultTest : public HwBinderDriverTest,
                                public testing::WithParamInterface<Fault> {};

TEST_P(HwBinderDriverFaultTest, IsSaidAndNothingIsAskedOfTheDeviceAnyMore) {
    GetParam().apply(mBinder.kernel());
    open();
    EXPECT_FALSE(mDriver->isOpen());
    EXPECT_THAT(mLog.lines(),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, "hw-BinderDriver", GetParam().logged},
                            LogLine{ANDROID_LOG_ERROR, "hw-BinderDriver",
                                    "No calls between processes will work: /dev/scripted cannot "
                                    "be used"}));
    mBinder.kernel().clearCalls();
    binder_write_read exchange{};
    EXPECT_EQ(NO_INIT, mDriver->setMaxThreads(1));
    EXPECT_EQ(NO_INIT, mDriver->setContextManager({}));
    EXPECT_EQ(NO_INIT, mDriver->writeRead(&exchange));
    mDriver->exitThread();
    EXPECT_THAT(mBinder.kernel().callNames(), ElementsAre());
    mDriver = nullptr;
    EXPECT_EQ(0u, mBinder.kernel().openDescriptors());
}

INSTANTIATE_TEST_SUITE_P(
        All, HwBinderDriverFaultTest,
        testing::Values(
                Fault{"NotThere", [](ScriptedKernel& kernel) { kernel.fail("open", ENOENT); },
                      "Opening /dev/scripted failed: No such file or directory"},
                Fault{"NotAllowed", [](ScriptedKernel& kernel) { kernel.fail("open", EACCES); },
                      "Opening /dev/scripted failed: Permission denied"},
                Fault{"NoBinderDriver",
                      [](ScriptedKernel& kernel) { kernel.fail("BINDER_VERSION", ENOTTY); },
                      "Asking /dev/scripted for its version failed: Inappropriate ioctl for "
                      "device"},
                Fault{"AnotherProtocol",
                      [](ScriptedKernel& kernel) {
                          kernel.answerNext("BINDER_VERSION", [](void* argument) {
                              static_cast<binder_version*>(argument)->protocol_version = 7;
                              return 0;
                          });
                      },
                      "/dev/scripted speaks protocol 7, not 8"},
                Fault{"NoRoom", [](ScriptedKernel& kernel) { kernel.fail("mmap", ENOMEM); },
                      "Mapping " + std::to_string(1024 * 1024 - 2 * sysconf(_SC_PAGESIZE)) +
                              " bytes of /dev/scripted failed: Cannot allocate memory"}),
        [](const testing::TestParamInfo<Fault>& info) { return info.param.name; });

}  // namespace
}  // namespace korvane::test
