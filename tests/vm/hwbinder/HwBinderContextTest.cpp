// SPDX-License-Identifier: Apache-2.0
// Who is the context manager and what others see of it, over the real driver.
#include <hwbinder/IPCThreadState.h>

#include "TestObjects.h"

namespace korvane::test {
namespace {

using android::OK;
using android::sp;
using android::hardware::IBinder;
using android::hardware::IPCThreadState;
using android::hardware::ProcessState;

sp<TestObject> makeObject() {
    return new TestObject([](const Call&) { return OK; });
}

TEST(HwBinderContextTest, ThereIsNoContextObjectWithoutAManager) {
    runInProcess([] { EXPECT_EQ(nullptr, ProcessState::self()->getContextObject(nullptr)); });
}

TEST(HwBinderContextTest, AProcessWithoutAnObjectCannotBeTheManager) {
    runInProcess([] { EXPECT_FALSE(ProcessState::self()->becomeContextManager()); });
}

TEST(HwBinderContextTest, OnlyOneProcessIsTheManager) {
    Directory directory;
    runInProcess([] {
        IPCThreadState::self()->setTheContextObject(makeObject());
        EXPECT_FALSE(ProcessState::self()->becomeContextManager());
        const sp<IBinder> context = ProcessState::self()->getContextObject(nullptr);
        ASSERT_NE(nullptr, context);
        EXPECT_NE(nullptr, context->remoteBinder());
    });
}

TEST(HwBinderContextTest, TheManagerItselfGetsItsOwnObject) {
    runInProcess([] {
        const sp<TestObject> object = makeObject();
        IPCThreadState::self()->setTheContextObject(object);
        const Event never;
        while (!ProcessState::self()->becomeContextManager()) never.wait(20);
        EXPECT_EQ(object, ProcessState::self()->getContextObject(nullptr));
    });
}

TEST(HwBinderContextTest, AManagerCanBeReplacedWhenItHasDied) {
    { Directory first; }
    Directory second;
    runInProcess([] { EXPECT_NE(nullptr, ProcessState::self()->getContextObject(nullptr)); });
}

}  // namespace
}  // namespace korvane::test
