// SPDX-License-Identifier: Apache-2.0
// Registering and looking up over a scripted driver: a register that is absent, refuses or fails.
#include <cstddef>
#include <list>
#include <string>
#include <vector>

#include <time.h>

#include <android/hidl/manager/1.0/IServiceManager.h>
#include <gtest/gtest.h>
#include <hidl/HidlTransportSupport.h>
#include <hidl/ServiceManagement.h>

#include "support/HwThreadTest.h"
#include "support/StubDesktop.h"

namespace {
int sSecondsSlept = 0;
}  // namespace

/** Time passes at once. */
extern "C" int __wrap_nanosleep(const timespec* time, timespec*) {
    sSecondsSlept += static_cast<int>(time->tv_sec);
    return 0;
}

namespace korvane::test {
namespace {

using android::OK;
using android::sp;
using android::UNEXPECTED_NULL;
using android::UNKNOWN_ERROR;
using android::hardware::defaultServiceManager;
using android::hardware::getOrCreateCachedBinder;
using android::hardware::IBinder;
using android::hardware::details::getRawServiceInternal;
using android::hardware::details::registerAsServiceInternal;
using android::hidl::base::V1_0::IBase;

constexpr char kTag[] = "ServiceManagement";
constexpr char kInterface[] = "korvane.hardware.camera.desktop@2.0::ICameraDesktop";

/** The register is whatever answers on handle 0, one batch for each call. */
class HidlServiceLookupTest : public HwThreadTest {
  protected:
    void SetUp() override {
        HwThreadTest::SetUp();
        // No thread of a pool may take what is meant for the test's.
        android::hardware::configureRpcThreadpool(1, true /* callerWillJoin */);
        sSecondsSlept = 0;
    }
    void TearDown() override { withdraw(mName); }

    void answer(const BinderCommand& reply) {
        mBinder.give({BinderCommand(BR_TRANSACTION_COMPLETE), reply});
    }
    void thereIsARegister() { answer(replyOf({})); }
    void thereIsNone() { answer(BinderCommand(BR_DEAD_REPLY)); }
    /** Results: the status, then these words. */
    void itAnswers(const std::vector<uint32_t>& words) {
        mAnswers.push_back(words);
        answer(replyOf(mAnswers.back()));
    }
    /** The reply holds the service, an object of this process. */
    void itFindsTheService() {
        mFound.name = mFound.cookie = mName;
        static const uint64_t sOffset = offsetof(FoundService, type);
        binder_transaction_data contents{};
        contents.data_size = sizeof(mFound);
        contents.data.ptr.buffer = reinterpret_cast<uintptr_t>(&mFound);
        contents.offsets_size = sizeof(sOffset);
        contents.data.ptr.offsets = reinterpret_cast<uintptr_t>(&sOffset);
        answer({BR_REPLY, contents});
    }
    void itFails() { answer(BinderCommand(BR_FAILED_REPLY)); }

    bool logged(android_LogPriority priority, const std::string& message) {
        return mLog.has(priority, kTag, message);
    }

    const sp<IBase> mService = new StubDesktop();

  private:
    struct FoundService {
        uint32_t status = OK;
        uint32_t type = BINDER_TYPE_BINDER;
        uint32_t flags = 0;
        uint64_t name = 0;
        uint64_t cookie = 0;
    } __attribute__((packed));

    const sp<IBinder> mBinderOfService = getOrCreateCachedBinder(mService.get());
    const uint64_t mName = publish(mBinderOfService->localBinder());
    std::list<std::vector<uint32_t>> mAnswers;
    FoundService mFound;
};

const std::vector<uint32_t> kTrue = {OK, 1};
const std::vector<uint32_t> kFalse = {OK, 0};
/** An interface that is null: an object of type "binder" with nothing in it. */
const std::vector<uint32_t> kNull = {OK, BINDER_TYPE_BINDER, 0, 0, 0, 0, 0};

TEST_F(HidlServiceLookupTest, RegistersAService) {
    thereIsARegister();
    itAnswers(kTrue);
    EXPECT_EQ(OK, registerAsServiceInternal(mService, "default"));
    EXPECT_EQ(0u, mBinder.left());
}

TEST_F(HidlServiceLookupTest, RegistersNoNull) {
    EXPECT_EQ(UNEXPECTED_NULL, registerAsServiceInternal(nullptr, "default"));
    EXPECT_TRUE(mBinder.take().empty());
}

TEST_F(HidlServiceLookupTest, TellsThatTheRegisterRefuses) {
    thereIsARegister();
    itAnswers(kFalse);
    EXPECT_EQ(UNKNOWN_ERROR, registerAsServiceInternal(mService, "default"));
}

TEST_F(HidlServiceLookupTest, TellsThatTheRegisterCannotBeReached) {
    thereIsARegister();
    itFails();
    EXPECT_EQ(UNKNOWN_ERROR, registerAsServiceInternal(mService, "default"));
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR,
                       "Can't register default: Status(EX_TRANSACTION_FAILED): "
                       "'FAILED_TRANSACTION: '"));
}

TEST_F(HidlServiceLookupTest, AServiceWaitsForTheRegisterAndSaysSoOnce) {
    thereIsNone();
    thereIsNone();
    thereIsARegister();
    itAnswers(kTrue);
    EXPECT_EQ(OK, registerAsServiceInternal(mService, "default"));
    EXPECT_EQ(1u, mLog.count(ANDROID_LOG_INFO, kTag, "Waiting for the service manager"));
}

TEST_F(HidlServiceLookupTest, FindsNothingWithoutARegister) {
    thereIsNone();
    EXPECT_EQ(nullptr, defaultServiceManager());
    thereIsNone();
    EXPECT_EQ(nullptr, getRawServiceInternal(kInterface, "default", false, false));
    EXPECT_EQ(0u, mBinder.left());
}

TEST_F(HidlServiceLookupTest, FindsNothingThatIsNotRegistered) {
    thereIsARegister();
    itAnswers(kNull);
    EXPECT_EQ(nullptr, getRawServiceInternal(kInterface, "default", false, false));
    EXPECT_EQ(0u, mBinder.left());
    EXPECT_TRUE(mLog.lines(kTag).empty());
}

TEST_F(HidlServiceLookupTest, FindsNothingInLibraries) {
    EXPECT_EQ(nullptr, getRawServiceInternal(kInterface, "default", true, true /* getStub */));
    EXPECT_TRUE(mBinder.take().empty());
}

TEST_F(HidlServiceLookupTest, SaysThatALookupFailed) {
    thereIsARegister();
    itFails();
    EXPECT_EQ(nullptr, getRawServiceInternal(kInterface, "default", false, false));
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, std::string("Can't look up ") + kInterface +
                                                  "/default: Status(EX_TRANSACTION_FAILED): "
                                                  "'FAILED_TRANSACTION: '"));
}

TEST_F(HidlServiceLookupTest, FindsAnObjectOfItsOwnProcessOnlyByItsInterfaces) {
    for (const char* interface :
         {kInterface, "korvane.hardware.camera.desktop@1.0::ICameraDesktop"}) {
        thereIsARegister();
        itFindsTheService();
        EXPECT_EQ(mService, getRawServiceInternal(interface, "default", false, false));
    }
    thereIsARegister();
    itFindsTheService();
    EXPECT_EQ(nullptr, getRawServiceInternal("korvane.hardware.camera.desktop@3.0::ICameraDesktop",
                                             "default", false, false));
}

// Waiting for a service, without anybody who could tell of it.

TEST_F(HidlServiceLookupTest, AThreadWhoseListenerIsRefusedAsksAgainEverySecond) {
    thereIsARegister();
    itAnswers(kNull);
    thereIsARegister();
    itAnswers(kFalse);  // the listener
    thereIsARegister();
    itFindsTheService();
    EXPECT_EQ(mService, getRawServiceInternal(kInterface, "default", true, false));
    EXPECT_EQ(0u, mBinder.left());
    EXPECT_EQ(1, sSecondsSlept);
    EXPECT_EQ(1u, mLog.count(ANDROID_LOG_INFO, kTag,
                             std::string("Waiting for ") + kInterface + "/default"));
}

TEST_F(HidlServiceLookupTest, AThreadWithoutARegisterAsksAgainEverySecond) {
    thereIsNone();
    thereIsNone();
    thereIsNone();
    thereIsNone();
    thereIsARegister();
    itFindsTheService();
    EXPECT_EQ(mService, getRawServiceInternal(kInterface, "default", true, false));
    EXPECT_EQ(0u, mBinder.left());
    EXPECT_EQ(2, sSecondsSlept);
}

/** Last, as the thread stays one that serves. */
TEST_F(HidlServiceLookupTest, TheOnlyThreadThatServesAsksAgainEverySecondWithoutAListener) {
    int descriptor;
    ASSERT_EQ(OK, mThread->setupPolling(&descriptor));
    thereIsARegister();
    itAnswers(kNull);
    thereIsARegister();
    itFindsTheService();
    EXPECT_EQ(mService, getRawServiceInternal(kInterface, "default", true, false));
    EXPECT_EQ(0u, mBinder.left());
    EXPECT_EQ(1, sSecondsSlept);
}

}  // namespace
}  // namespace korvane::test
