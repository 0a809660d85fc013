// SPDX-License-Identifier: Apache-2.0
// What the driver tells a thread beside calls and answers: references, deaths, threads, errors.
#include <cerrno>
#include <functional>
#include <utility>

#include <pthread.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hwbinder/Binder.h>
#include <hwbinder/IPCThreadState.h>
#include <hwbinder/ProcessState.h>

#include "../../platform/libhidlbase/hwbinder/DriverChannel.h"
#include "../../platform/libhidlbase/hwbinder/DriverEvents.h"
#include "../../platform/libhidlbase/hwbinder/LocalNodes.h"
#include "support/LogRecorder.h"
#include "support/ScriptedBinder.h"

namespace {
bool sHasNoThreads = false;
}  // namespace

extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument) {
    if (sHasNoThreads) return EAGAIN;
    return __real_pthread_create(thread, attributes, body, argument);
}

}  // extern "C"

namespace korvane::test {
namespace {

using android::BAD_VALUE;
using android::OK;
using android::sp;
using android::status_t;
using android::wp;
using android::hardware::BHwBinder;
using android::hardware::DriverChannel;
using android::hardware::DriverEvents;
using android::hardware::IBinder;
using android::hardware::LocalNodes;
using android::hardware::ProcessState;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kTag[] = "hw-DriverEvents";

class HwDriverEventsTest : public testing::Test {
  protected:
    void SetUp() override { mBinder.clear(); }

    /** Brings one command and lets it be handled. */
    status_t handle(const BinderCommand& command) {
        mBinder.give({command});
        EXPECT_EQ(OK, mChannel.receive());
        return handleNext();
    }
    status_t handleNext() {
        uint32_t number;
        EXPECT_TRUE(mChannel.in().read(&number));
        return mEvents.handle(number);
    }
    /** What has been said since. */
    std::vector<BinderCommand> said() {
        EXPECT_EQ(OK, mChannel.flush());
        return mBinder.take();
    }

    /** An object that only the table of names knows, and the test. */
    uint64_t publish(const sp<BHwBinder>& object) { return mNodes.publish(object); }
    static binder_ptr_cookie reference(uint64_t name) { return {name, name}; }

    LogRecorder mLog;
    ScriptedBinder& mBinder = ScriptedBinder::ofThisProcess();
    LocalNodes& mNodes = ProcessState::self()->localNodes();
    DriverChannel mChannel{ProcessState::self()->driver()};
    DriverEvents mEvents{*ProcessState::self(), mChannel};
};

TEST_F(HwDriverEventsTest, NothingIsDoneAboutNothing) {
    EXPECT_EQ(OK, handle(BinderCommand(BR_NOOP)));
    EXPECT_EQ(OK, handle(BinderCommand(BR_OK)));
    EXPECT_THAT(said(), IsEmpty());
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(HwDriverEventsTest, ReferencesAreTakenAtOnceAndAcknowledged) {
    sp<BHwBinder> object = new BHwBinder;
    const wp<BHwBinder> watched = object;
    const uint64_t name = publish(object);
    EXPECT_EQ(OK, handle({BR_INCREFS, reference(name)}));
    EXPECT_EQ(OK, handle({BR_ACQUIRE, reference(name)}));
    mNodes.withdraw(name);
    object = nullptr;
    EXPECT_NE(nullptr, watched.promote());
    const auto answers = said();
    ASSERT_EQ(2u, answers.size());
    EXPECT_EQ(BC_INCREFS_DONE, answers[0].number);
    EXPECT_EQ(name, answers[0].as<binder_ptr_cookie>().ptr);
    EXPECT_EQ(name, answers[0].as<binder_ptr_cookie>().cookie);
    EXPECT_EQ(BC_ACQUIRE_DONE, answers[1].number);
    EXPECT_EQ(name, answers[1].as<binder_ptr_cookie>().ptr);
    handle({BR_RELEASE, reference(name)});
    handle({BR_DECREFS, reference(name)});
    mEvents.runDeferred();
}

TEST_F(HwDriverEventsTest, ReferencesAreGivenBackOnlyWhenTheirTurnComes) {
    sp<BHwBinder> object = new BHwBinder;
    const wp<BHwBinder> watched = object;
    const uint64_t name = publish(object);
    handle({BR_INCREFS, reference(name)});
    handle({BR_ACQUIRE, reference(name)});
    mNodes.withdraw(name);
    object = nullptr;
    const size_t names = mNodes.size();
    EXPECT_EQ(OK, handle({BR_RELEASE, reference(name)}));
    EXPECT_EQ(OK, handle({BR_DECREFS, reference(name)}));
    EXPECT_NE(nullptr, watched.promote());
    mEvents.runDeferred();
    EXPECT_EQ(nullptr, watched.promote());
    EXPECT_EQ(names - 1, mNodes.size());
}

TEST_F(HwDriverEventsTest, AReferenceOfNoObjectIsAcknowledgedAndSaid) {
    EXPECT_EQ(OK, handle({BR_ACQUIRE, reference(4711)}));
    EXPECT_EQ(OK, handle({BR_INCREFS, reference(4711)}));
    EXPECT_EQ(2u, said().size());
    EXPECT_EQ(2u, mLog.count(ANDROID_LOG_ERROR, kTag,
                             "The driver refers to object 4711, which doesn't exist"));
    EXPECT_EQ(OK, handle({BR_RELEASE, reference(4711)}));
    EXPECT_EQ(OK, handle({BR_DECREFS, reference(4711)}));
    mEvents.runDeferred();
}

binder_pri_ptr_cookie attempt(uint64_t name) {
    binder_pri_ptr_cookie node{};
    node.ptr = name;
    node.cookie = name;
    return node;
}

TEST_F(HwDriverEventsTest, AnAttemptAtALivingObjectSucceedsAndHoldsIt) {
    sp<BHwBinder> object = new BHwBinder;
    const wp<BHwBinder> watched = object;
    const uint64_t name = publish(object);
    EXPECT_EQ(OK, handle({BR_ATTEMPT_ACQUIRE, attempt(name)}));
    const auto answers = said();
    ASSERT_EQ(1u, answers.size());
    EXPECT_EQ(BC_ACQUIRE_RESULT, answers[0].number);
    EXPECT_EQ(1, answers[0].as<int32_t>());
    mNodes.withdraw(name);
    object = nullptr;
    EXPECT_NE(nullptr, watched.promote());
    handle({BR_RELEASE, reference(name)});
    mEvents.runDeferred();
    EXPECT_EQ(nullptr, watched.promote());
}

TEST_F(HwDriverEventsTest, AnAttemptAtADeadObjectFailsAndHoldsNothing) {
    sp<BHwBinder> object = new BHwBinder;
    const uint64_t name = publish(object);
    object = nullptr;
    EXPECT_EQ(OK, handle({BR_ATTEMPT_ACQUIRE, attempt(name)}));
    EXPECT_EQ(OK, handle({BR_ATTEMPT_ACQUIRE, attempt(4711)}));
    const auto answers = said();
    ASSERT_EQ(2u, answers.size());
    EXPECT_EQ(0, answers[0].as<int32_t>());
    EXPECT_EQ(0, answers[1].as<int32_t>());
    const size_t names = mNodes.size();
    mNodes.withdraw(name);
    EXPECT_EQ(names - 1, mNodes.size());
}

/** Runs a function when it is told of a death. */
struct Recipient : IBinder::DeathRecipient {
    explicit Recipient(std::function<void()> then) : told(std::move(then)) {}
    void binderDied(const wp<IBinder>&) override { told(); }
    const std::function<void()> told;
};

/** The cookie by which the driver was asked to tell of a death. */
uint64_t requestedCookie(const std::vector<BinderCommand>& commands) {
    for (const BinderCommand& command : commands) {
        if (command.number == BC_REQUEST_DEATH_NOTIFICATION) {
            return command.as<binder_handle_cookie>().cookie;
        }
    }
    return 0;
}

TEST_F(HwDriverEventsTest, ADeathIsToldWhenItsTurnComesAndThenAcknowledged) {
    const sp<IBinder> proxy = ProcessState::self()->getStrongProxyForHandle(5);
    int told = 0;
    const sp<Recipient> recipient = new Recipient([&] {
        told++;
        EXPECT_THAT(said(), IsEmpty());
    });
    ASSERT_EQ(OK, proxy->linkToDeath(recipient));
    const uint64_t cookie = requestedCookie(mBinder.take());
    ASSERT_NE(0u, cookie);
    EXPECT_EQ(OK, handle({BR_DEAD_BINDER, binder_uintptr_t{cookie}}));
    EXPECT_EQ(0, told);
    mEvents.runDeferred();
    EXPECT_EQ(1, told);
    const auto answers = said();
    ASSERT_EQ(1u, answers.size());
    EXPECT_EQ(BC_DEAD_BINDER_DONE, answers[0].number);
    EXPECT_EQ(cookie, answers[0].as<binder_uintptr_t>());
}

TEST_F(HwDriverEventsTest, ADeathThatNobodyWaitsForAnyMoreIsAcknowledgedToo) {
    EXPECT_EQ(OK, handle({BR_DEAD_BINDER, binder_uintptr_t{99}}));
    mEvents.runDeferred();
    const auto answers = said();
    ASSERT_EQ(1u, answers.size());
    EXPECT_EQ(99u, answers[0].as<binder_uintptr_t>());
}

TEST_F(HwDriverEventsTest, WhatComesWhileItsTurnRunsIsDoneAsWell) {
    sp<BHwBinder> object = new BHwBinder;
    const wp<BHwBinder> watched = object;
    const uint64_t name = publish(object);
    handle({BR_ACQUIRE, reference(name)});
    mNodes.withdraw(name);
    object = nullptr;
    const sp<IBinder> proxy = ProcessState::self()->getStrongProxyForHandle(6);
    const sp<Recipient> recipient = new Recipient([&] {
        EXPECT_EQ(OK, handle({BR_RELEASE, reference(name)}));
    });
    ASSERT_EQ(OK, proxy->linkToDeath(recipient));
    const uint64_t cookie = requestedCookie(mBinder.take());
    EXPECT_EQ(OK, handle({BR_DEAD_BINDER, binder_uintptr_t{cookie}}));
    mEvents.runDeferred();
    EXPECT_EQ(nullptr, watched.promote());
}

TEST_F(HwDriverEventsTest, AThreadIsAddedWhenTheDriverWantsOne) {
    const size_t ended = mBinder.kernel().calls("BINDER_THREAD_EXIT").size();
    EXPECT_EQ(OK, handle(BinderCommand(BR_SPAWN_LOOPER)));
    // It finds nothing to serve here and ends.
    ASSERT_TRUE(mBinder.kernel().waitForCalls("BINDER_THREAD_EXIT", ended + 1));
    EXPECT_THAT(mBinder.takeNumbers(), ElementsAre(static_cast<uint32_t>(BC_REGISTER_LOOPER),
                                                   static_cast<uint32_t>(BC_EXIT_LOOPER)));
}

TEST_F(HwDriverEventsTest, TheProcessGoesOnWithoutAThreadThatCannotBeStarted) {
    sHasNoThreads = true;
    EXPECT_EQ(OK, handle(BinderCommand(BR_SPAWN_LOOPER)));
    sHasNoThreads = false;
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, "hw-ProcessState",
                         "Starting a thread of the pool failed: Resource temporarily unavailable"));
}

TEST_F(HwDriverEventsTest, AThreadTooManyIsSentAway) {
    EXPECT_EQ(android::TIMED_OUT, handle(BinderCommand(BR_FINISHED)));
}

TEST_F(HwDriverEventsTest, AnErrorOfTheDriverIsTheStatus) {
    EXPECT_EQ(-EPERM, handle({BR_ERROR, int32_t{-EPERM}}));
}

TEST_F(HwDriverEventsTest, TheEndOfALinkIsPassedOverWithoutAWord) {
    EXPECT_EQ(OK, handle({BR_CLEAR_DEATH_NOTIFICATION_DONE, binder_uintptr_t{1}}));
    EXPECT_TRUE(mChannel.in().isExhausted());
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(HwDriverEventsTest, ACommandOfANewerDriverIsPassedOverWithItsArgument) {
    mBinder.give({BinderCommand(_IOR('r', 60, uint64_t), uint64_t{7}), BinderCommand(BR_NOOP)});
    ASSERT_EQ(OK, mChannel.receive());
    EXPECT_EQ(OK, handleNext());
    EXPECT_TRUE(mLog.has(ANDROID_LOG_WARN, kTag, "The driver's command 0x8008723c is unknown"));
    EXPECT_EQ(OK, handleNext());
    EXPECT_TRUE(mChannel.in().isExhausted());
}

TEST_F(HwDriverEventsTest, WhatIsNoCommandAtAllEndsTheReading) {
    mBinder.give({BinderCommand(0x12345678), BinderCommand(BR_NOOP)});
    ASSERT_EQ(OK, mChannel.receive());
    EXPECT_EQ(BAD_VALUE, handleNext());
    EXPECT_TRUE(mChannel.in().isExhausted());
}

TEST_F(HwDriverEventsTest, ACommandCutOffIsNotDone) {
    for (const uint32_t number :
         {BR_INCREFS, BR_ACQUIRE, BR_RELEASE, BR_DECREFS, BR_ATTEMPT_ACQUIRE, BR_DEAD_BINDER,
          BR_ERROR, BR_CLEAR_DEATH_NOTIFICATION_DONE}) {
        EXPECT_EQ(BAD_VALUE, handle({number, uint16_t{1}})) << number;
        EXPECT_TRUE(mChannel.in().isExhausted());
    }
    mEvents.runDeferred();
    EXPECT_THAT(said(), IsEmpty());
}

}  // namespace
}  // namespace korvane::test
